#pragma once
// The message server: tells a client which application server serves a
// logon group of the system.

#include <cstdint>
#include <string>

#include "sapsim/wire/frame_channel.h"

namespace sapsim::server {

class SimulatedSystem;

class MessageServer {
 public:
  // `host` and `port`: the application server to name in answers (an empty
  // host means the message server's own).
  MessageServer(const SimulatedSystem& system, std::string host, uint16_t port)
      : system_(system), host_(std::move(host)), port_(port) {}

  // Answers look-ups on one connection until it ends.
  void Serve(wire::FrameChannel& channel) const;

 private:
  const SimulatedSystem& system_;
  std::string host_;
  uint16_t port_;
};

}  // namespace sapsim::server
