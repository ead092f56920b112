#pragma once
// Helpers for tests that run the real sapsim: a private temporary folder, a
// `sapsim serve` process on a free port, and one-shot command runs.

#include <cstdint>
#include <memory>
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

  uint16_t port() const { return port_; }
  uint16_t ms_port() const { return ms_port_; }
  std::string port_text() const { return std::to_string(port_); }

  // SIGTERM, then waits; the exit code (128 + signal when killed), -1 when it does
  // not end (it is killed when the object goes).
  int Stop();
  // Everything the system logged so far.
  std::string Log() const;

 private:
  testutil::TempDir dir_;
  std::string log_path_;
  std::unique_ptr<testutil::ChildProcess> process_;  // after dir_: ends before the folder goes
  uint16_t port_ = 0;
  uint16_t ms_port_ = 0;
};

}  // namespace sapsim::testing
