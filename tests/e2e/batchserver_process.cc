#include "tests/e2e/batchserver_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "tests/sapsim/support/rfc_library.h"

extern char** environ;

namespace e2e {
namespace {

pid_t Spawn(const std::vector<std::string>& arguments, const std::string& directory,
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
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err_path.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  pid_t pid = -1;
  const int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) throw std::runtime_error("cannot start " + arguments[0]);
  return pid;
}

}  // namespace

BatchServerProcess::BatchServerProcess(const std::vector<std::string>& arguments,
                                       const std::string& directory, const std::string& out_path,
                                       const std::string& err_path) {
  std::vector<std::string> words{sapsim::testing::BuildDir() + "/bin/batchserver"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  pid_ = Spawn(words, directory, out_path, err_path);
}

BatchServerProcess::~BatchServerProcess() {
  if (pid_ > 0 && !status_) {
    kill(pid_, SIGKILL);
    int status = 0;
    waitpid(pid_, &status, 0);
  }
}

std::optional<int> BatchServerProcess::Poll() {
  if (!status_ && pid_ > 0) {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) status_ = status;
  }
  return status_;
}

std::optional<int> BatchServerProcess::Terminate(int timeout_ms) {
  if (pid_ <= 0) return std::nullopt;
  if (!Poll()) kill(pid_, SIGTERM);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  while (!Poll() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return status_;
}

std::size_t BatchServerProcess::ThreadCount() const {
  std::size_t count = 0;
  std::error_code error;
  for (std::filesystem::directory_iterator it("/proc/" + std::to_string(pid_) + "/task", error), end;
       !error && it != end; it.increment(error)) {
    ++count;
  }
  return count;
}

BackgroundCommand::BackgroundCommand(const std::vector<std::string>& argv,
                                     const std::string& out_path)
    : pid_(Spawn(argv, "", out_path, out_path + ".err")) {}

BackgroundCommand::~BackgroundCommand() {
  if (pid_ > 0) Kill(SIGKILL);
}

int BackgroundCommand::Kill(int signal) {
  if (pid_ <= 0) return -1;
  kill(pid_, signal);
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return status;
}

}  // namespace e2e
