#include "tests/sapsim/support/sapsim_process.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "tests/sapsim/support/rfc_library.h"

extern char** environ;

namespace sapsim::testing {

std::string TempDir::Write(const std::string& name, const std::string& text) const {
  std::string file = File(name);
  std::ofstream out(file, std::ios::binary);
  out << text;
  if (!out) throw std::runtime_error("cannot write " + file);
  return file;
}

std::string ReadFile(const std::string& path) { return testutil::ReadBytes(path); }

namespace {

std::vector<char*> Pointers(std::vector<std::string>& args) {
  std::vector<char*> pointers;
  for (std::string& arg : args) pointers.push_back(arg.data());
  pointers.push_back(nullptr);
  return pointers;
}

int ExitCode(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

// Reads lines from `fd` until `done` says so or the time is up.
std::string ReadUntil(int fd, int timeout_ms, bool (*done)(const std::string&)) {
  std::string text;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  while (!done(text)) {
    int left = static_cast<int>(
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count());
    if (left <= 0) break;
    pollfd p{fd, POLLIN, 0};
    if (poll(&p, 1, left) <= 0) break;
    char buffer[256];
    ssize_t got = read(fd, buffer, sizeof buffer);
    if (got <= 0) break;
    text.append(buffer, static_cast<size_t>(got));
  }
  return text;
}

uint16_t PortAfter(const std::string& text, const std::string& prefix) {
  size_t at = text.find(prefix);
  if (at == std::string::npos) return 0;
  return static_cast<uint16_t>(std::atoi(text.c_str() + at + prefix.size()));
}

}  // namespace

SapsimProcess::SapsimProcess(const Options& options) {
  log_path_ = dir_.path() + "/sapsim.log";
  std::vector<std::string> args = {SapsimPath(), "serve", "--system", options.system_file, "--port",
                                   std::to_string(options.port)};
  if (options.message_server) {
    args.push_back("--ms-port");
    args.push_back("0");
  }
  args.insert(args.end(), options.extra.begin(), options.extra.end());
  int out[2];
  if (pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_addopen(&actions, 2, log_path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  std::vector<char*> argv = Pointers(args);
  int rc = posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  if (rc != 0) {
    close(out[0]);
    throw std::runtime_error("cannot start " + args[0] + ": " + std::strerror(rc));
  }
  bool want_ms = options.message_server;
  std::string text = ReadUntil(out[0], 20000, want_ms ? +[](const std::string& t) {
    return t.find("message server on port ") != std::string::npos && t.back() == '\n';
  } : +[](const std::string& t) { return t.find("listening on port ") != std::string::npos && t.back() == '\n'; });
  close(out[0]);
  port_ = PortAfter(text, "sapsim: listening on port ");
  ms_port_ = PortAfter(text, "sapsim: message server on port ");
  if (port_ == 0 || (want_ms && ms_port_ == 0)) {
    Stop();
    throw std::runtime_error("sapsim did not come up; output: " + text + "; log: " + Log());
  }
}

SapsimProcess::~SapsimProcess() { Stop(); }

void SapsimProcess::Signal(int signal) const {
  if (pid_ > 0) kill(pid_, signal);
}

bool SapsimProcess::Pause() const {
  if (pid_ <= 0) return false;
  kill(pid_, SIGSTOP);
  std::string stat_path = "/proc/" + std::to_string(pid_) + "/stat";
  for (int i = 0; i < 5000; ++i) {
    // The state follows the command name in parentheses: "pid (comm) T ...".
    std::string stat = ReadFile(stat_path);
    size_t close = stat.rfind(')');
    if (close != std::string::npos && close + 2 < stat.size() && stat[close + 2] == 'T') return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

int SapsimProcess::Stop() {
  if (pid_ <= 0) return -1;
  kill(pid_, SIGCONT);  // a stopped process cannot act on SIGTERM
  kill(pid_, SIGTERM);
  int status = 0;
  for (int i = 0; i < 1000; ++i) {
    pid_t done = waitpid(pid_, &status, WNOHANG);
    if (done == pid_) {
      pid_ = -1;
      return ExitCode(status);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  kill(pid_, SIGKILL);
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return -1;
}

std::string SapsimProcess::Log() const { return ReadFile(log_path_); }

RunResult RunCommand(const std::vector<std::string>& command, int timeout_ms) {
  TempDir dir;
  std::string out_path = dir.path() + "/out";
  std::string err_path = dir.path() + "/err";
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  std::vector<std::string> args = command;
  std::vector<char*> argv = Pointers(args);
  pid_t pid = -1;
  int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  RunResult result;
  if (rc != 0) {
    result.err = std::string("cannot start ") + argv[0] + ": " + std::strerror(rc);
    return result;
  }
  int status = 0;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  for (;;) {
    pid_t done = waitpid(pid, &status, WNOHANG);
    if (done == pid) {
      result.exit_code = ExitCode(status);
      break;
    }
    if (std::chrono::steady_clock::now() > deadline) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      result.exit_code = -1;
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  result.out = ReadFile(out_path);
  result.err = ReadFile(err_path);
  return result;
}

uint16_t UnusedPort() {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  socklen_t length = sizeof addr;
  getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &length);
  close(fd);
  return ntohs(addr.sin_port);
}

}  // namespace sapsim::testing
