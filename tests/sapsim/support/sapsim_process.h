#pragma once
// Helpers for tests that run the real sapsim: a private temporary folder, a
// `sapsim serve` process on a free port, and one-shot command runs.

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/processes.h"
#include "tests/support/temp_dir.h"

namespace sapsim::testing {

using TempDir = testutil::TempDir;

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
  std::string port_text() const { return std::to_string(port_); }

  // SIGTERM, then waits; the exit code (128 + signal when killed).
  int Stop();
  // Everything the system logged so far.
  std::string Log() const;

 private:
  testutil::TempDir dir_;
  std::string log_path_;
  pid_t pid_ = -1;
  uint16_t port_ = 0;
  uint16_t ms_port_ = 0;
};

}  // namespace sapsim::testing
