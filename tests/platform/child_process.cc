#include "tests/platform/child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

extern char** environ;

namespace platform_test {
namespace {

void CloseFd(int* fd) {
  if (*fd >= 0) close(*fd);
  *fd = -1;
}

std::string ReadToEnd(int fd) {
  std::string text;
  char buffer[4096];
  for (;;) {
    const ssize_t got = read(fd, buffer, sizeof buffer);
    if (got > 0) {
      text.append(buffer, static_cast<size_t>(got));
    } else if (got == 0 || errno != EINTR) {
      return text;
    }
  }
}

}  // namespace

ChildProcess::~ChildProcess() {
  CloseFd(&to_child_);
  if (pid_ > 0) {
    Kill(SIGKILL);
    Wait();
  }
  CloseFd(&from_child_);
  CloseFd(&error_from_child_);
}

bool ChildProcess::Start(const std::vector<std::string>& argv, bool capture_stderr) {
  int in_pipe[2];
  int out_pipe[2];
  int err_pipe[2] = {-1, -1};
  if (pipe2(in_pipe, O_CLOEXEC) != 0) return false;
  if (pipe2(out_pipe, O_CLOEXEC) != 0) {
    close(in_pipe[0]);
    close(in_pipe[1]);
    return false;
  }
  if (capture_stderr && pipe2(err_pipe, O_CLOEXEC) != 0) {
    for (int fd : {in_pipe[0], in_pipe[1], out_pipe[0], out_pipe[1]}) close(fd);
    return false;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in_pipe[0], 0);
  posix_spawn_file_actions_adddup2(&actions, out_pipe[1], 1);
  if (capture_stderr) posix_spawn_file_actions_adddup2(&actions, err_pipe[1], 2);
  std::vector<char*> args;
  for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  const int spawned = posix_spawn(&pid_, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(in_pipe[0]);
  close(out_pipe[1]);
  if (capture_stderr) close(err_pipe[1]);
  to_child_ = in_pipe[1];
  from_child_ = out_pipe[0];
  error_from_child_ = err_pipe[0];
  if (spawned != 0) {
    pid_ = -1;
    return false;
  }
  // A child that ends early must not kill the test with SIGPIPE.
  signal(SIGPIPE, SIG_IGN);
  return true;
}

std::string ChildProcess::ReadLine() {
  for (;;) {
    const size_t end = pending_.find('\n');
    if (end != std::string::npos) {
      std::string line = pending_.substr(0, end);
      pending_.erase(0, end + 1);
      return line;
    }
    char buffer[256];
    const ssize_t got = read(from_child_, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      std::string rest;
      rest.swap(pending_);
      return rest;
    }
    pending_.append(buffer, static_cast<size_t>(got));
  }
}

std::string ChildProcess::ReadAllOutput() {
  std::string text;
  text.swap(pending_);
  return text + ReadToEnd(from_child_);
}

std::string ChildProcess::ReadAllError() {
  return error_from_child_ >= 0 ? ReadToEnd(error_from_child_) : std::string();
}

void ChildProcess::CloseInput() { CloseFd(&to_child_); }

void ChildProcess::Kill(int signal_number) {
  if (pid_ > 0) kill(pid_, signal_number);
}

int ChildProcess::Wait() {
  if (pid_ <= 0) return -1;
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  pid_ = -1;
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

RunResult Run(const std::vector<std::string>& argv) {
  RunResult result;
  ChildProcess child;
  if (!child.Start(argv, true)) return result;
  child.CloseInput();
  // Read one pipe after the other: the programs run here print far less
  // than a pipe holds, so neither can block the other.
  result.out = child.ReadAllOutput();
  result.err = child.ReadAllError();
  result.exit_code = child.Wait();
  return result;
}

}  // namespace platform_test
