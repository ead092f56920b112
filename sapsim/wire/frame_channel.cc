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

IoStatus FrameChannel::Receive(Frame* frame, std::string* error) {
  uint8_t head[kHeaderSize];
  IoStatus status = ReadFully(head, kHeaderSize, true, error);
  if (status != IoStatus::kOk) return status;
  FrameHeader header;
  try {
    header = DecodeHeader(head, kHeaderSize);
  } catch (const DecodeError& e) {
    *error = std::string("protocol error: ") + e.what();
    return IoStatus::kMalformed;
  }
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
