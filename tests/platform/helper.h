#pragma once
// The platform tests' second process (platform_test_child) and names no other
// test process uses.

#include <string>
#include <vector>

#include "tests/support/processes.h"

namespace platform_test {

using testutil::TempDir;

inline testutil::RunResult Run(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), BS_TEST_CHILD);
  return testutil::RunCommand(arguments);
}

inline std::string UniqueName(const std::string& stem) { return testutil::UniqueName("bs_test_" + stem + "_"); }

}  // namespace platform_test
