#pragma once
// One RFC server program registered at the gateway under a program id: its
// connection, and whether it is free for a call. The session thread that
// accepted the connection watches it while it is idle; a caller that
// reserves it takes over the connection for one call (and the callbacks the
// server makes during that call).

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "sapsim/wire/control_messages.h"
#include "sapsim/wire/frame.h"
#include "sapsim/wire/frame_channel.h"

namespace sapsim::server {

class SimulatedSystem;

// The CALL payload to pass on: bytes in memory, followed (for a relayed
// call) by the rest of the payload still arriving on the caller's connection.
struct CallSource {
  const uint8_t* data = nullptr;
  size_t size = 0;
  wire::FrameChannel* stream = nullptr;
  size_t stream_size = 0;
};

class Registration {
 public:
  // The registration shares the connection with its session, so that a
  // caller still inside a call keeps it alive after the session ended.
  Registration(uint64_t id, std::string program_id, std::shared_ptr<wire::FrameChannel> channel,
               const SimulatedSystem& system);

  uint64_t id() const { return id_; }
  const std::string& program_id() const { return program_id_; }

  // The server has been told it is registered: calls may come now.
  void Ready();

  // The session thread: watches the idle connection (and serves callbacks
  // sent outside a call) until the connection ends or is cancelled.
  void Watch();

  // Reserves the registration for one call; false unless it is idle.
  bool TryReserve();
  // Sends the CALL (the caller holds the reservation) and waits for the
  // server's REPLY, serving the server's callbacks meanwhile. False with
  // *error when a connection broke. Releases the reservation either way. The
  // source's stream is read to its end unless the caller's connection broke.
  bool Exchange(const CallSource& call, wire::Frame* reply, wire::ErrorNotice* error);
  // Ends the registration: tells the server with a CLOSE frame carrying
  // `notice` and closes the connection.
  void Cancel(const wire::ErrorNotice& notice);
  // Closes without a word (the system shuts down).
  void Shutdown();

  bool starting() const;
  bool busy() const;
  bool closed() const;

 private:
  enum class State { kStarting, kIdle, kReading, kBusy, kClosed };

  // Answers a CALL the server sent to the system.
  bool ServeCallback(const wire::Frame& frame, std::string* error);
  void Release(bool broken);

  const uint64_t id_;
  const std::string program_id_;
  std::shared_ptr<wire::FrameChannel> channel_;
  const SimulatedSystem& system_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  State state_ = State::kStarting;
};

}  // namespace sapsim::server
