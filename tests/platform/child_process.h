#pragma once
// Runs a helper program as a child process with pipes to its standard input
// and output, for tests that need a second process.

#include <sys/types.h>

#include <string>
#include <vector>

namespace platform_test {

class ChildProcess {
 public:
  ChildProcess() = default;
  // Kills a child that is still running and reaps it.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // argv[0] is the program's path. Standard error stays the test's own unless
  // `capture_stderr` is set.
  bool Start(const std::vector<std::string>& argv, bool capture_stderr = false);

  // One line of the child's output without its line end; empty at the end of
  // the output (the child ended or closed it).
  std::string ReadLine();
  // Everything the child still writes to standard output / error until it
  // closes them.
  std::string ReadAllOutput();
  std::string ReadAllError();
  // Closes the child's standard input: helpers that hold something let go of
  // it then.
  void CloseInput();
  void Kill(int signal_number);
  // Waits for the end; the exit code, or 128 + signal when a signal ended it.
  int Wait();

 private:
  pid_t pid_ = -1;
  int to_child_ = -1;
  int from_child_ = -1;
  int error_from_child_ = -1;
  std::string pending_;
};

struct RunResult {
  int exit_code = -1;
  std::string out;
  std::string err;
};

// Runs a program to its end with empty input and collects what it prints.
RunResult Run(const std::vector<std::string>& argv);

}  // namespace platform_test
