#pragma once
// The platform tests' second process (platform_test_child): one-shot runs,
// and "hold" commands that keep what they hold until released.

#include <signal.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/polling.h"
#include "tests/support/processes.h"

namespace platform_test {

using testutil::ReadBytes;
using testutil::TempDir;

inline testutil::RunResult Run(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), BS_TEST_CHILD);
  return testutil::RunCommand(arguments);
}

class Helper {
 public:
  // Starts the child with `arguments` and its release file last.
  explicit Helper(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), BS_TEST_CHILD);
    arguments.push_back(dir_.File("release"));
    child_ = std::make_unique<testutil::ChildProcess>(arguments, "", dir_.File("out"), dir_.File("err"));
  }
  // Whether the child printed `line` (waits for it).
  bool Says(const std::string& line) const {
    return testutil::Eventually([&] { return ReadBytes(dir_.File("out")).find(line + "\n") != std::string::npos; });
  }
  void Release() const { testutil::WriteBytes(dir_.File("release"), ""); }
  // The exit code once the child ended (128 + signal when killed).
  int Wait() {
    const auto status = child_->Terminate(60000, 0);
    return status ? testutil::ExitCode(*status) : -1;
  }
  int Kill() { return testutil::ExitCode(child_->Kill(SIGKILL)); }

 private:
  TempDir dir_;
  std::unique_ptr<testutil::ChildProcess> child_;
};

// A name no other test (or parallel test process) uses.
inline std::string UniqueName(const std::string& stem) { return testutil::UniqueName("bs_test_" + stem + "_"); }

}  // namespace platform_test
