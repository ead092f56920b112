#pragma once
// One connection to the system's main port, from its first frame to its
// end: a client that logs on and calls function modules, a server program
// that registers, a control connection (registration check and cancel), or
// the SAP side that looks up structures and routes calls.

#include <memory>
#include <string>
#include <vector>

#include "sapsim/wire/control_messages.h"
#include "sapsim/wire/frame_channel.h"

namespace sapsim::server {

class Gateway;
class SimulatedSystem;

class Session {
 public:
  // `log_calls`: one log line per call (off with sapsim serve --quiet).
  Session(const SimulatedSystem& system, Gateway& gateway, std::shared_ptr<wire::FrameChannel> channel,
          bool log_calls);
  void Run();

 private:
  void ServeClient(const wire::Hello& hello);
  void ServeRegisteredServer(const wire::Hello& hello);
  void ServeControl();
  void ServeCaller();
  bool RelayCall(size_t payload_length);
  bool ReadText(size_t* left, std::string* text, std::vector<uint8_t>* raw);
  bool Send(wire::FrameWriter frame);
  void Refuse(const wire::ErrorNotice& notice);

  const SimulatedSystem& system_;
  Gateway& gateway_;
  std::shared_ptr<wire::FrameChannel> channel_;
  bool log_calls_;
};

}  // namespace sapsim::server
