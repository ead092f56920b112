#pragma once
// The gateway: registered RFC server programs by program id, and the routing
// of calls from the SAP side to a free registration of a program id.

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "sapsim/server/registration.h"
#include "sapsim/wire/control_messages.h"

namespace sapsim::server {

class SimulatedSystem;

class Gateway {
 public:
  explicit Gateway(const SimulatedSystem& system) : system_(system) {}

  std::shared_ptr<Registration> Register(const std::string& program_id,
                                         std::shared_ptr<wire::FrameChannel> channel);
  void Unregister(const std::shared_ptr<Registration>& registration);

  wire::RegistrationCounts Count(const std::string& program_id) const;
  // Cancels every registration of the program id; they see their connection
  // closed with error group 109.
  wire::RegistrationCounts Cancel(const std::string& program_id);

  // Calls a registered server of the program id: waits up to `wait_ms` for
  // one to be free. False with *error when none is registered, none became
  // free, or a connection broke during the call. *delivered tells whether
  // the call (and so the source's stream) went to a server.
  bool Route(const std::string& program_id, const CallSource& call, int wait_ms, wire::Frame* reply,
             wire::ErrorNotice* error, bool* delivered);

  // Closes every registration (the system shuts down).
  void ShutdownAll();

 private:
  const SimulatedSystem& system_;
  mutable std::mutex mutex_;
  std::condition_variable freed_;
  uint64_t next_id_ = 1;
  std::vector<std::shared_ptr<Registration>> registrations_;
};

}  // namespace sapsim::server
