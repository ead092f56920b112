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
  // kOk when bytes (or the end of the connection) are waiting, kTimeout when
  // nothing arrived within `timeout_ms` (0: just look), kFailed on error.
  IoStatus WaitReadable(int timeout_ms) const;
  // Wakes a thread blocked in Receive; it then sees the connection closed.
  void Shutdown() const { socket_.Shutdown(); }

 private:
  IoStatus ReadFully(uint8_t* data, size_t size, bool at_frame_start, std::string* error);

  Socket socket_;
  std::mutex send_mutex_;
};

}  // namespace sapsim::wire
