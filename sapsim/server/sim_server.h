#pragma once
// The running system: the main port (gateway and application server), the
// optional message server port, a thread per connection, and an orderly stop
// that closes every connection and waits for every thread.

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "sapsim/server/gateway.h"
#include "sapsim/server/message_server.h"
#include "sapsim/wire/frame_channel.h"
#include "sapsim/wire/socket.h"

namespace sapsim::server {

class SimulatedSystem;

struct ServerOptions {
  std::string bind_address = "127.0.0.1";
  uint16_t port = 0;          // 0: any free port
  bool message_server = false;
  uint16_t ms_port = 0;       // 0: any free port
  bool log_calls = true;
};

class SimServer {
 public:
  SimServer(const SimulatedSystem& system, ServerOptions options);
  ~SimServer();
  SimServer(const SimServer&) = delete;
  SimServer& operator=(const SimServer&) = delete;

  // Opens the ports and starts accepting; false with *error when a port
  // cannot be opened.
  bool Start(std::string* error);
  uint16_t port() const { return port_; }
  uint16_t ms_port() const { return ms_port_; }
  // Closes the ports and every connection, and waits for all threads.
  void Stop();

 private:
  struct Connection {
    std::shared_ptr<wire::FrameChannel> channel;
    std::thread thread;
    bool done = false;
  };

  void AcceptLoop(const wire::Socket& listener, bool message_server);
  void Serve(Connection* connection, bool message_server);
  void ReapFinished();

  const SimulatedSystem& system_;
  ServerOptions options_;
  Gateway gateway_;
  std::unique_ptr<MessageServer> message_server_;
  wire::Socket listener_;
  wire::Socket ms_listener_;
  uint16_t port_ = 0;
  uint16_t ms_port_ = 0;
  std::thread accept_thread_;
  std::thread ms_accept_thread_;
  std::mutex mutex_;
  bool stopping_ = false;
  std::list<Connection> connections_;
};

}  // namespace sapsim::server
