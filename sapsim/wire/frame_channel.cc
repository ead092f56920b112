#include "sapsim/wire/frame_channel.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>
#include <vector>

#include "sapsim/wire/decode_error.h"

namespace sapsim::wire {

IoStatus FrameChannel::Send(FrameWriter& frame, std::string* error) {
  std::vector<ConstSpan> spans;
  try {
    spans = frame.Segments();
  } catch (const DecodeError& e) {
    *error = e.what();
    return IoStatus::kFailed;
  }
  std::vector<iovec> iov(spans.size());
  for (size_t i = 0; i < spans.size(); ++i) {
    iov[i].iov_base = const_cast<uint8_t*>(spans[i].data);
    iov[i].iov_len = spans[i].size;
  }
  std::lock_guard<std::mutex> lock(send_mutex_);
  size_t first = 0;
  while (first < iov.size()) {
    msghdr message{};
    message.msg_iov = &iov[first];
    message.msg_iovlen = std::min<size_t>(iov.size() - first, IOV_MAX);
    ssize_t sent = ::sendmsg(socket_.fd(), &message, MSG_NOSIGNAL);
    if (sent < 0) {
      if (errno == EINTR) continue;
      *error = std::string("send failed: ") + std::strerror(errno);
      return errno == EPIPE || errno == ECONNRESET ? IoStatus::kClosed : IoStatus::kFailed;
    }
    size_t left = static_cast<size_t>(sent);
    while (first < iov.size() && left >= iov[first].iov_len) {
      left -= iov[first].iov_len;
      ++first;
    }
    if (left > 0) {
      iov[first].iov_base = static_cast<uint8_t*>(iov[first].iov_base) + left;
      iov[first].iov_len -= left;
    }
  }
  return IoStatus::kOk;
}

IoStatus FrameChannel::ReadFully(uint8_t* data, size_t size, bool at_frame_start, std::string* error) {
  size_t done = 0;
  while (done < size) {
    ssize_t got = ::recv(socket_.fd(), data + done, size - done, 0);
    if (got > 0) {
      done += static_cast<size_t>(got);
      continue;
    }
    if (got == 0) {
      if (done == 0 && at_frame_start) {
        *error = "connection closed by partner";
        return IoStatus::kClosed;
      }
      *error = "connection closed by partner in the middle of a frame";
      return IoStatus::kFailed;
    }
    if (errno == EINTR) continue;
    *error = std::string("receive failed: ") + std::strerror(errno);
    return errno == ECONNRESET && done == 0 && at_frame_start ? IoStatus::kClosed : IoStatus::kFailed;
  }
  return IoStatus::kOk;
}

IoStatus FrameChannel::ReceiveHeader(FrameHeader* header, std::string* error) {
  uint8_t head[kHeaderSize];
  IoStatus status = ReadFully(head, kHeaderSize, true, error);
  if (status != IoStatus::kOk) return status;
  try {
    *header = DecodeHeader(head, kHeaderSize);
  } catch (const DecodeError& e) {
    *error = std::string("protocol error: ") + e.what();
    return IoStatus::kMalformed;
  }
  return IoStatus::kOk;
}

IoStatus FrameChannel::ReceiveBytes(uint8_t* data, size_t size, std::string* error) {
  return ReadFully(data, size, false, error);
}

namespace {
// Relayed payloads move in pieces of up to this size: big pieces mean few
// system calls, and a read returns what has arrived without waiting for more.
constexpr size_t kRelayChunk = 1024 * 1024;
}  // namespace

IoStatus FrameChannel::Discard(size_t size, std::string* error) {
  std::vector<uint8_t> sink(std::min(size, kRelayChunk));
  while (size > 0) {
    size_t piece = std::min(size, sink.size());
    IoStatus status = ReadFully(sink.data(), piece, false, error);
    if (status != IoStatus::kOk) return status;
    size -= piece;
  }
  return IoStatus::kOk;
}

IoStatus FrameChannel::Relay(FrameType type, const uint8_t* prefix, size_t prefix_size, FrameChannel& source,
                             size_t stream_size, bool* source_failed, std::string* error) {
  *source_failed = false;
  uint64_t total = static_cast<uint64_t>(prefix_size) + stream_size;
  if (total > kMaxPayload) {
    *error = "relayed payload of " + std::to_string(total) + " bytes exceeds the frame limit";
    return IoStatus::kFailed;
  }
  uint8_t head[kHeaderSize];
  FrameHeader header;
  header.type = type;
  header.payload_length = static_cast<uint32_t>(total);
  EncodeHeader(header, head);
  std::lock_guard<std::mutex> lock(send_mutex_);
  bool sending = SendAll(head, kHeaderSize, error) && SendAll(prefix, prefix_size, error);
  PayloadBytes chunk(std::min(stream_size, kRelayChunk));
  size_t left = stream_size;
  while (left > 0) {
    // Whatever has arrived, up to a chunk: pass it on at once.
    ssize_t got = ::recv(source.socket_.fd(), chunk.data(), std::min(left, chunk.size()), 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      *source_failed = true;
      *error = got == 0 ? "the sender ended the connection in the middle of a frame"
                        : std::string("receive failed: ") + std::strerror(errno);
      return IoStatus::kFailed;
    }
    left -= static_cast<size_t>(got);
    if (sending) sending = SendAll(chunk.data(), static_cast<size_t>(got), error);
  }
  return sending ? IoStatus::kOk : IoStatus::kFailed;
}

bool FrameChannel::SendAll(const uint8_t* data, size_t size, std::string* error) {
  while (size > 0) {
    ssize_t sent = ::send(socket_.fd(), data, size, MSG_NOSIGNAL);
    if (sent < 0) {
      if (errno == EINTR) continue;
      *error = std::string("send failed: ") + std::strerror(errno);
      return false;
    }
    data += sent;
    size -= static_cast<size_t>(sent);
  }
  return true;
}

IoStatus FrameChannel::Receive(Frame* frame, std::string* error) {
  FrameHeader header;
  IoStatus status = ReceiveHeader(&header, error);
  if (status != IoStatus::kOk) return status;
  frame->type = header.type;
  try {
    frame->payload.resize(header.payload_length);
  } catch (const std::bad_alloc&) {
    *error = "out of memory for a frame of " + std::to_string(header.payload_length) + " bytes";
    return IoStatus::kFailed;
  }
  return ReadFully(frame->payload.data(), header.payload_length, false, error);
}

IoStatus FrameChannel::WaitReadable(int timeout_ms) const {
  pollfd fd{};
  fd.fd = socket_.fd();
  fd.events = POLLIN;
  for (;;) {
    int rc = ::poll(&fd, 1, timeout_ms);
    if (rc > 0) return IoStatus::kOk;
    if (rc == 0) return IoStatus::kTimeout;
    if (errno != EINTR) return IoStatus::kFailed;
  }
}

}  // namespace sapsim::wire
