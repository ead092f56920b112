#pragma once
// Frames over one socket. Sends are serialised (several threads may send on
// one channel); receiving is meant for one thread at a time.

#include <mutex>
#include <string>

#include "sapsim/wire/frame.h"
#include "sapsim/wire/frame_writer.h"
#include "sapsim/wire/socket.h"

namespace sapsim::wire {

enum class IoStatus {
  kOk,
  kClosed,     // the partner closed the connection in an orderly way
  kFailed,     // the connection broke (reset, truncated frame, send failure)
  kMalformed,  // the partner sent something that is not a frame of ours
  kTimeout,    // nothing arrived in the time given
};

class FrameChannel {
 public:
  explicit FrameChannel(Socket socket) : socket_(std::move(socket)) {}

  bool valid() const { return socket_.valid(); }
  const Socket& socket() const { return socket_; }

  IoStatus Send(FrameWriter& frame, std::string* error);
  // Blocks until a whole frame has arrived.
  IoStatus Receive(Frame* frame, std::string* error);

  // A frame in parts, for relaying large frames without holding them whole:
  // the header first, then the payload's bytes as they are needed.
  IoStatus ReceiveHeader(FrameHeader* header, std::string* error);
  IoStatus ReceiveBytes(uint8_t* data, size_t size, std::string* error);
  // Reads and drops `size` bytes (a payload nobody will take).
  IoStatus Discard(size_t size, std::string* error);

  // Sends a frame whose payload is `prefix` followed by the next
  // `stream_size` bytes arriving on `source`, passing them on as they come.
  // *source_failed tells whether a failure was on the source's side (then the
  // frame sent is incomplete and this connection is unusable). When sending
  // fails, the rest of the source is still read, so the source stays in step.
  IoStatus Relay(FrameType type, const uint8_t* prefix, size_t prefix_size, FrameChannel& source,
                 size_t stream_size, bool* source_failed, std::string* error);
  // kOk when bytes (or the end of the connection) are waiting, kTimeout when
  // nothing arrived within `timeout_ms` (0: just look), kFailed on error.
  IoStatus WaitReadable(int timeout_ms) const;
  // Wakes a thread blocked in Receive; it then sees the connection closed.
  void Shutdown() const { socket_.Shutdown(); }

 private:
  IoStatus ReadFully(uint8_t* data, size_t size, bool at_frame_start, std::string* error);
  // Sends every byte; the caller holds the send lock.
  bool SendAll(const uint8_t* data, size_t size, std::string* error);

  Socket socket_;
  std::mutex send_mutex_;
};

}  // namespace sapsim::wire
