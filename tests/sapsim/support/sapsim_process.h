#pragma once
// Helpers for tests that run the real sapsim: a private temporary folder, a
// `sapsim serve` process on a free port, and one-shot command runs.

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

namespace sapsim::testing {

// The tests' shared temporary folder, with a way to put a file in it.
class TempDir : public testutil::TempDir {
 public:
  // Writes `text` to path()/name and returns the file's path.
  std::string Write(const std::string& name, const std::string& text) const;
};

std::string ReadFile(const std::string& path);

// `sapsim serve` running in the background.
class SapsimProcess {
 public:
  struct Options {
    std::string system_file;
    uint16_t port = 0;
    bool message_server = false;
    std::vector<std::string> extra;
  };

  // Starts the system and waits for its "listening" line; throws
  // std::runtime_error with the process's error output when it does not come up.
  explicit SapsimProcess(const Options& options);
  ~SapsimProcess();
  SapsimProcess(const SapsimProcess&) = delete;
  SapsimProcess& operator=(const SapsimProcess&) = delete;

  uint16_t port() const { return port_; }
  uint16_t ms_port() const { return ms_port_; }
  pid_t pid() const { return pid_; }
  std::string port_text() const { return std::to_string(port_); }

  void Signal(int signal) const;
  // SIGSTOP, and returns once the process is really stopped (signals arrive
  // asynchronously); false if it did not stop within a few seconds.
  bool Pause() const;
  // SIGTERM, then waits; the exit code (128 + signal when killed).
  int Stop();
  // Everything the system logged so far.
  std::string Log() const;

 private:
  TempDir dir_;
  std::string log_path_;
  pid_t pid_ = -1;
  uint16_t port_ = 0;
  uint16_t ms_port_ = 0;
};

struct RunResult {
  int exit_code = -1;
  std::string out;
  std::string err;
};

// Runs a program to its end (at most `timeout_ms`, then it is killed and the
// exit code is -1).
RunResult RunCommand(const std::vector<std::string>& argv, int timeout_ms = 30000);

// A port nothing listens on (bound once, then released).
uint16_t UnusedPort();

}  // namespace sapsim::testing
