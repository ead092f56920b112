#include "sapsim/server/sim_server.h"

#include "sapsim/server/event_log.h"
#include "sapsim/server/session.h"
#include "sapsim/server/simulated_system.h"

namespace sapsim::server {

SimServer::SimServer(const SimulatedSystem& system, ServerOptions options)
    : system_(system), options_(std::move(options)), gateway_(system) {}

SimServer::~SimServer() { Stop(); }

bool SimServer::Start(std::string* error) {
  listener_ = wire::Socket::Listen(options_.bind_address, options_.port, error);
  if (!listener_.valid()) return false;
  port_ = listener_.LocalPort();
  if (options_.message_server) {
    ms_listener_ = wire::Socket::Listen(options_.bind_address, options_.ms_port, error);
    if (!ms_listener_.valid()) return false;
    ms_port_ = ms_listener_.LocalPort();
    // A wildcard bind has no one address to name: clients then use the
    // message server's host.
    bool wildcard = options_.bind_address.empty() || options_.bind_address == "0.0.0.0" ||
                    options_.bind_address == "::";
    message_server_ = std::make_unique<MessageServer>(system_, wildcard ? std::string() : options_.bind_address, port_);
    ms_accept_thread_ = std::thread([this] { AcceptLoop(ms_listener_, true); });
  }
  accept_thread_ = std::thread([this] { AcceptLoop(listener_, false); });
  return true;
}

void SimServer::AcceptLoop(const wire::Socket& listener, bool message_server) {
  for (;;) {
    wire::Socket socket = listener.Accept();
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_ || !socket.valid()) return;
    ReapFinished();
    try {
      connections_.emplace_back();
      Connection* connection = &connections_.back();
      connection->channel = std::make_shared<wire::FrameChannel>(std::move(socket));
      connection->thread = std::thread([this, connection, message_server] { Serve(connection, message_server); });
    } catch (const std::exception& e) {
      // No thread (or no memory) for this connection: drop it, keep serving the others.
      if (!connections_.empty() && !connections_.back().thread.joinable()) connections_.pop_back();
      EventLog::Write(std::string("connection refused: ") + e.what());
    }
  }
}

void SimServer::Serve(Connection* connection, bool message_server) {
  try {
    if (message_server) {
      message_server_->Serve(*connection->channel);
    } else {
      Session(system_, gateway_, connection->channel, options_.log_calls).Run();
    }
  } catch (const std::exception& e) {
    // One broken connection must not take the system down.
    EventLog::Write(std::string("connection ended by an error: ") + e.what());
  }
  connection->channel->Shutdown();
  std::lock_guard<std::mutex> lock(mutex_);
  connection->done = true;
}

void SimServer::ReapFinished() {
  for (auto it = connections_.begin(); it != connections_.end();) {
    if (it->done) {
      it->thread.join();
      it = connections_.erase(it);
    } else {
      ++it;
    }
  }
}

void SimServer::Stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopping_) return;
    stopping_ = true;
  }
  listener_.Shutdown();
  ms_listener_.Shutdown();
  if (accept_thread_.joinable()) accept_thread_.join();
  if (ms_accept_thread_.joinable()) ms_accept_thread_.join();
  gateway_.ShutdownAll();
  std::list<Connection> remaining;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (Connection& connection : connections_) connection.channel->Shutdown();
    remaining.splice(remaining.end(), connections_);
  }
  for (Connection& connection : remaining) {
    if (connection.thread.joinable()) connection.thread.join();
  }
}

}  // namespace sapsim::server
