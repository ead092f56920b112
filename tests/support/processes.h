#pragma once
// Programs run by tests: a background process reaped when the test leaves it
// running, and one-shot runs.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/temp_dir.h"

extern char** environ;

namespace testutil {

// 128 + signal for a killed process, -1 when the status says neither.
inline int ExitCode(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

// Starts argv[0] in `directory` ("" for this one); output and error to the files (one if `err_path` is "").
inline pid_t Spawn(const std::vector<std::string>& arguments, const std::string& directory,
                   const std::string& out_path, const std::string& err_path) {
  std::vector<std::string> words = arguments;
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (!directory.empty()) posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out_path.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (err_path.empty()) {
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err_path.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
  }
  pid_t pid = -1;
  const int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) throw std::runtime_error("cannot start " + arguments[0] + ": " + std::strerror(rc));
  return pid;
}

// Ended and reaped when the object goes; SIGTERM first, so that a coverage build counts what it ran.
class ChildProcess {
 public:
  ChildProcess(const std::vector<std::string>& arguments, const std::string& directory,
               const std::string& out_path, const std::string& err_path)
      : pid_(Spawn(arguments, directory, out_path, err_path)) {}
  ~ChildProcess() {
    if (pid_ > 0 && !status_ && !Terminate(10000)) Terminate(30000, SIGKILL);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  bool started() const { return pid_ > 0; }

  // The wait status once the process ended; nothing while it runs.
  std::optional<int> Poll() {
    if (!status_ && pid_ > 0) {
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) == pid_) status_ = status;
    }
    return status_;
  }
  // Sends `signal` unless it ended, waits up to `timeout_ms`; the wait status, or nothing.
  std::optional<int> Terminate(int timeout_ms = 20000, int signal = SIGTERM) {
    if (pid_ <= 0) return std::nullopt;
    if (!Poll()) kill(pid_, signal);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    while (!Poll() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return status_;
  }
  size_t ThreadCount() const {
    size_t count = 0;
    std::error_code error;
    for (std::filesystem::directory_iterator it("/proc/" + std::to_string(pid_) + "/task", error), end;
         !error && it != end; it.increment(error)) {
      ++count;
    }
    return count;
  }

 private:
  pid_t pid_ = -1;
  std::optional<int> status_;
};

struct RunResult {
  int exit_code = -1;
  std::string out;
  std::string err;
};

// Runs a program to its end; after `timeout_ms` it is killed and the exit code is -1.
inline RunResult RunCommand(const std::vector<std::string>& argv, int timeout_ms = 30000) {
  TempDir dir;
  RunResult result;
  try {
    ChildProcess child(argv, "", dir.File("out"), dir.File("err"));
    const std::optional<int> status = child.Terminate(timeout_ms, 0);
    result.exit_code = status ? ExitCode(*status) : -1;
  } catch (const std::runtime_error& error) {
    result.err = error.what();
    return result;
  }
  result.out = ReadBytes(dir.File("out"));
  result.err = ReadBytes(dir.File("err"));
  return result;
}

// One run as a transcript shows it: `name` and the arguments, exit code, output, error output.
inline std::string RunTranscript(const std::string& name, const std::vector<std::string>& command) {
  const RunResult result = RunCommand(command);
  std::string line = "$ " + name;
  for (size_t i = 1; i < command.size(); ++i) line += " " + command[i];
  return line + "\n[exit " + std::to_string(result.exit_code) + "]\n" + result.out + "[stderr]\n" + result.err;
}

}  // namespace testutil
