#pragma once
// A simulated SAP system for the class library's end-to-end tests: a
// `sapsim serve` process on free ports with a system file of the test's own,
// stopped when the object goes.

#include <sys/types.h>

#include <string>

namespace rfc_function_test {

// The build's file of that name (bin/sapsim, lib/librfcsim.so).
std::string BuildFile(const std::string& relative);

class SapsimRunner {
 public:
  // Writes `system_json` into a fresh temporary folder and starts sapsim on
  // it; with `message_server` it also gets a message-server port. Throws
  // std::runtime_error when the system does not come up.
  SapsimRunner(const std::string& system_json, bool message_server);
  ~SapsimRunner();
  SapsimRunner(const SapsimRunner&) = delete;
  SapsimRunner& operator=(const SapsimRunner&) = delete;

  int port() const { return port_; }
  int ms_port() const { return ms_port_; }
  std::string port_text() const { return std::to_string(port_); }
  // Stops the process (SIGSTOP) until Kill or destruction.
  void Pause();
  // Ends the process at once (SIGKILL): every connection breaks.
  void Kill();
  // What the system logged on its standard error so far.
  std::string Log() const;

 private:
  void Reap();

  std::string dir_;
  pid_t pid_ = -1;
  int port_ = 0;
  int ms_port_ = 0;
};

}  // namespace rfc_function_test
