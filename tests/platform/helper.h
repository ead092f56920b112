#pragma once
// The platform tests' second process (platform_test_child).

#include <string>
#include <vector>

#include "tests/support/processes.h"

namespace platform_test {

inline testutil::RunResult Run(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), BS_TEST_CHILD);
  return testutil::RunCommand(arguments);
}

}  // namespace platform_test
