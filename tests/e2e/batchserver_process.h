#pragma once
// The batchserver binary as a test runs it: a command line, a working
// directory (where the class-library trace goes), standard output and error
// in files, and its end by signal.

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace e2e {

class BatchServerProcess {
 public:
  // Starts <build>/bin/batchserver with `arguments` in `directory`; its
  // standard output and error go to the two files.
  BatchServerProcess(const std::vector<std::string>& arguments, const std::string& directory,
                     const std::string& out_path, const std::string& err_path);
  // Kills and reaps a process the test left running.
  ~BatchServerProcess();
  BatchServerProcess(const BatchServerProcess&) = delete;
  BatchServerProcess& operator=(const BatchServerProcess&) = delete;

  bool started() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }
  // The wait status once the process ended; nothing while it runs.
  std::optional<int> Poll();
  // SIGTERM, then waits up to `timeout_ms`; the wait status, or nothing.
  std::optional<int> Terminate(int timeout_ms = 20000);
  // Threads of the running process.
  std::size_t ThreadCount() const;

 private:
  pid_t pid_ = -1;
  std::optional<int> status_;
};

// Runs a program in the background until the test kills it.
class BackgroundCommand {
 public:
  BackgroundCommand(const std::vector<std::string>& argv, const std::string& out_path);
  ~BackgroundCommand();
  BackgroundCommand(const BackgroundCommand&) = delete;
  BackgroundCommand& operator=(const BackgroundCommand&) = delete;
  // Sends `signal` and reaps the process; its wait status.
  int Kill(int signal);

 private:
  pid_t pid_ = -1;
};

}  // namespace e2e
