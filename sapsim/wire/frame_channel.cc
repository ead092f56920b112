#include "sapsim/wire/frame_channel.h"

#include <algorithm>
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
  std::vector<SendPiece> pieces(spans.size());
  for (size_t i = 0; i < spans.size(); ++i) pieces[i] = SendPiece{spans[i].data, spans[i].size};
  std::lock_guard<std::mutex> lock(send_mutex_);
  size_t first = 0;
  while (first < pieces.size()) {
    const Transferred sent = socket_.SendSome(&pieces[first], pieces.size() - first);
    if (sent.bytes < 0) {
      *error = sent.error;
      return sent.reset ? IoStatus::kClosed : IoStatus::kFailed;
    }
    size_t left = static_cast<size_t>(sent.bytes);
    while (first < pieces.size() && left >= pieces[first].size) {
      left -= pieces[first].size;
      ++first;
    }
    if (left > 0) {
      pieces[first].data = static_cast<const uint8_t*>(pieces[first].data) + left;
      pieces[first].size -= left;
    }
  }
  return IoStatus::kOk;
}

IoStatus FrameChannel::ReadFully(uint8_t* data, size_t size, bool at_frame_start, std::string* error) {
  size_t done = 0;
  while (done < size) {
    const Transferred got = socket_.ReceiveSome(data + done, size - done);
    if (got.bytes > 0) {
      done += static_cast<size_t>(got.bytes);
      continue;
    }
    if (got.bytes == 0) {
      if (done == 0 && at_frame_start) {
        *error = "connection closed by partner";
        return IoStatus::kClosed;
      }
      *error = "connection closed by partner in the middle of a frame";
      return IoStatus::kFailed;
    }
    *error = got.error;
    return got.reset && done == 0 && at_frame_start ? IoStatus::kClosed : IoStatus::kFailed;
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
    const Transferred got = source.socket_.ReceiveSome(chunk.data(), std::min(left, chunk.size()));
    if (got.bytes <= 0) {
      *source_failed = true;
      *error = got.bytes == 0 ? "the sender ended the connection in the middle of a frame" : got.error;
      return IoStatus::kFailed;
    }
    left -= static_cast<size_t>(got.bytes);
    if (sending) sending = SendAll(chunk.data(), static_cast<size_t>(got.bytes), error);
  }
  return sending ? IoStatus::kOk : IoStatus::kFailed;
}

bool FrameChannel::SendAll(const uint8_t* data, size_t size, std::string* error) {
  while (size > 0) {
    const SendPiece piece{data, size};
    const Transferred sent = socket_.SendSome(&piece, 1);
    if (sent.bytes < 0) {
      *error = sent.error;
      return false;
    }
    data += sent.bytes;
    size -= static_cast<size_t>(sent.bytes);
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
  const int ready = socket_.WaitReadable(timeout_ms);
  return ready > 0 ? IoStatus::kOk : ready == 0 ? IoStatus::kTimeout : IoStatus::kFailed;
}

}  // namespace sapsim::wire
