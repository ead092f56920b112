#include "tests/rfc/function/sapsim_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>


extern char** environ;

namespace rfc_function_test {

namespace {

int PortAfter(const std::string& text, const std::string& prefix) {
  const size_t at = text.find(prefix);
  return at == std::string::npos ? 0 : std::atoi(text.c_str() + at + prefix.size());
}

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

}  // namespace

std::string BuildFile(const std::string& relative) {
  const char* from_environment = std::getenv("BS_BUILD_DIR");
  const std::string build = from_environment != nullptr ? from_environment : BS_TEST_BUILD_DIR;
  return build + "/" + relative;
}

SapsimRunner::SapsimRunner(const std::string& system_json, bool message_server) {
  static int counter = 0;
  dir_ = (std::filesystem::temp_directory_path() /
          ("rfc_function_e2e_" + std::to_string(getpid()) + "_" + std::to_string(counter++)))
             .string();
  std::filesystem::create_directories(dir_);
  const std::string system_file = dir_ + "/system.json";
  std::ofstream(system_file, std::ios::binary) << system_json;
  const std::string log = dir_ + "/sapsim.log";

  std::vector<std::string> args = {BuildFile("bin/sapsim"), "serve", "--system", system_file,
                                   "--port", "0"};
  if (message_server) {
    args.push_back("--ms-port");
    args.push_back("0");
  }
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);

  int out[2];
  if (pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_addopen(&actions, 2, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  const int rc = posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  if (rc != 0) {
    close(out[0]);
    pid_ = -1;
    throw std::runtime_error("cannot start " + args[0] + ": " + std::strerror(rc));
  }

  // Wait for the ports to be announced (each on a line of its own).
  std::string text;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  auto complete = [&] {
    if (text.empty() || text.back() != '\n') return false;
    if (text.find("listening on port ") == std::string::npos) return false;
    return !message_server || text.find("message server on port ") != std::string::npos;
  };
  while (!complete() && std::chrono::steady_clock::now() < deadline) {
    pollfd p{out[0], POLLIN, 0};
    if (poll(&p, 1, 200) <= 0) continue;
    char buffer[256];
    const ssize_t got = read(out[0], buffer, sizeof buffer);
    if (got <= 0) break;
    text.append(buffer, static_cast<size_t>(got));
  }
  close(out[0]);
  port_ = PortAfter(text, "sapsim: listening on port ");
  ms_port_ = PortAfter(text, "sapsim: message server on port ");
  if (port_ == 0 || (message_server && ms_port_ == 0)) {
    Kill();
    throw std::runtime_error("sapsim did not come up: " + text + " / " + ReadAll(log));
  }
}

SapsimRunner::~SapsimRunner() {
  if (pid_ > 0) {
    kill(pid_, SIGCONT);
    kill(pid_, SIGTERM);
    for (int i = 0; i < 500 && pid_ > 0; ++i) {
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) == pid_) pid_ = -1;
      if (pid_ > 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    Kill();
  }
  std::error_code ignored;
  std::filesystem::remove_all(dir_, ignored);
}

void SapsimRunner::Pause() {
  if (pid_ <= 0) return;
  kill(pid_, SIGSTOP);
  // The signal arrives asynchronously; wait until the process is stopped.
  int status = 0;
  waitpid(pid_, &status, WUNTRACED);
}

void SapsimRunner::Kill() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  Reap();
}

void SapsimRunner::Reap() {
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
}

std::string SapsimRunner::Log() const { return ReadAll(dir_ + "/sapsim.log"); }

}  // namespace rfc_function_test
