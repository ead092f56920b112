// Runs the batchserver binary as users do: a command line, an INI file, the
// named stop event and termination signals.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "platform/event.h"
#include "tests/support/temp_dir.h"

extern char** environ;

namespace {

constexpr auto kPatience = std::chrono::seconds(20);

template <typename Predicate>
bool Eventually(Predicate done) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

std::size_t CountOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

// One run of the binary, killed and reaped if the test leaves it running.
class ServerProcess {
 public:
  ServerProcess(const std::vector<std::string>& arguments, const std::string& output_path) {
    const char* build = std::getenv("BS_BUILD_DIR");
    const std::string binary = std::string(build != nullptr ? build : "build") + "/bin/batchserver";
    std::vector<std::string> words{binary};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output_path.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    started_ = posix_spawn(&pid_, binary.c_str(), &actions, nullptr, argv.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
  }

  ~ServerProcess() {
    if (started_ && !status_) {
      kill(pid_, SIGKILL);
      int status = 0;
      waitpid(pid_, &status, 0);
    }
  }

  bool started() const { return started_; }
  pid_t pid() const { return pid_; }

  // The wait status once the process has ended; nothing while it runs.
  std::optional<int> Poll() {
    if (!status_) {
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) == pid_) status_ = status;
    }
    return status_;
  }

  std::optional<int> WaitForExit() {
    Eventually([&] { return Poll().has_value(); });
    return Poll();
  }

  // Threads of the running process.
  std::size_t ThreadCount() const {
    std::size_t count = 0;
    std::error_code error;
    for (std::filesystem::directory_iterator it("/proc/" + std::to_string(pid_) + "/task", error), end;
         !error && it != end; it.increment(error)) {
      ++count;
    }
    return count;
  }

 private:
  pid_t pid_ = -1;
  bool started_ = false;
  std::optional<int> status_;
};

class BatchServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    name_ = testutil::UniqueName("SRVE");
    logs_ = dir_.File("logs");
    std::filesystem::create_directory(logs_);
    ini_ = dir_.File("batch server.ini");  // a blank in the path is part of the command line
    testutil::WriteBytes(ini_,
                         "A line without an equals sign is ignored\r\n"
                         "[" + name_ + "]\r\n"
                         "sap.server.listen.timer=10\r\n"
                         "sap.library=" RFC_STUB_COMPLETE "\r\n"
                         "sap.path=" + logs_ + "\r\n");
  }

  std::string LogText() const {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(logs_)) files.push_back(entry.path());
    if (files.size() != 1) return std::string();
    return testutil::ReadBytes(files[0].string());
  }

  std::vector<std::string> LogNames() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(logs_)) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }

  // The stub library accepts the registration but fails the logon, so every
  // service cycle writes a header block and starts again: count at least.
  std::size_t Headers() const {
    return CountOf(LogText(), "# DESCRIPTION: " + name_ + "\r\n# CLOCKS_PER_SEC: 1000\r\n");
  }
  bool HeadersWritten(std::size_t count) const { return Headers() >= count; }

  testutil::TempDir dir_;
  std::string name_;
  std::string logs_;
  std::string ini_;
};

TEST_F(BatchServerTest, StopEventEndsTheWorkerButNotTheProcessAndSigtermEndsIt) {
  ServerProcess server({name_, ini_}, dir_.File("output.txt"));
  ASSERT_TRUE(server.started());
  ASSERT_TRUE(Eventually([&] { return HeadersWritten(1); })) << LogText();
  ASSERT_EQ(LogNames().size(), 1u);
  EXPECT_TRUE(std::regex_match(LogNames()[0], std::regex("\\d{8}\\.log"))) << LogNames()[0];
  const std::size_t threads = server.ThreadCount();
  ASSERT_GE(threads, 2u);

  std::unique_ptr<platform::Event> stop = platform::Event::Open(name_);
  ASSERT_TRUE(stop);
  ASSERT_TRUE(stop->Set());
  ASSERT_TRUE(Eventually([&] { return server.ThreadCount() == threads - 1; }))
      << server.ThreadCount() << " threads";

  // The worker is gone, the process stays and starts nothing new.
  const std::size_t headers = Headers();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_FALSE(server.Poll().has_value());
  EXPECT_EQ(Headers(), headers) << LogText();

  ASSERT_EQ(kill(server.pid(), SIGTERM), 0);
  const std::optional<int> status = server.WaitForExit();
  ASSERT_TRUE(status.has_value()) << "still running after SIGTERM";
  EXPECT_TRUE(WIFEXITED(*status)) << *status;
  EXPECT_EQ(WEXITSTATUS(*status), 0);
  EXPECT_EQ(testutil::ReadBytes(dir_.File("output.txt")), "");
}

TEST_F(BatchServerTest, SigtermStopsARunningWorkerAndExitsWithZero) {
  ServerProcess server({name_, ini_}, dir_.File("output.txt"));
  ASSERT_TRUE(server.started());
  ASSERT_TRUE(Eventually([&] { return HeadersWritten(1); })) << LogText();
  // Keep the event alive past the process to see that termination set it.
  std::unique_ptr<platform::Event> watch = platform::Event::Open(name_);
  ASSERT_TRUE(watch);
  ASSERT_EQ(watch->Wait(0), platform::WaitResult::kTimeout);

  ASSERT_EQ(kill(server.pid(), SIGINT), 0);
  const std::optional<int> status = server.WaitForExit();
  ASSERT_TRUE(status.has_value()) << "still running after SIGINT";
  EXPECT_TRUE(WIFEXITED(*status)) << *status;
  EXPECT_EQ(WEXITSTATUS(*status), 0);
  EXPECT_EQ(watch->Wait(0), platform::WaitResult::kSignaled);
  EXPECT_TRUE(HeadersWritten(1)) << LogText();
}

TEST_F(BatchServerTest, SecondProcessUnderTheSameNameLeavesTheFirstOneRunning) {
  ServerProcess first({name_, ini_}, dir_.File("first.txt"));
  ASSERT_TRUE(first.started());
  ASSERT_TRUE(Eventually([&] { return HeadersWritten(1); })) << LogText();
  const std::size_t threads = first.ThreadCount();

  ServerProcess second({name_, ini_}, dir_.File("second.txt"));
  ASSERT_TRUE(second.started());
  ASSERT_TRUE(Eventually([&] { return HeadersWritten(2); })) << LogText();
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(first.ThreadCount(), threads);
  EXPECT_FALSE(first.Poll().has_value());

  ASSERT_EQ(kill(second.pid(), SIGTERM), 0);
  ASSERT_EQ(kill(first.pid(), SIGTERM), 0);
  for (ServerProcess* server : {&first, &second}) {
    const std::optional<int> status = server->WaitForExit();
    ASSERT_TRUE(status.has_value());
    EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << *status;
  }
}

TEST_F(BatchServerTest, LibraryThatCannotBeLoadedEndsTheWorkerForGood) {
  const std::string missing = dir_.File("no-such-rfc-library.so");
  testutil::WriteBytes(ini_, "[" + name_ + "]\r\n"
                             "sap.server.listen.timer=10\r\n"
                             "sap.library=" + missing + "\r\n"
                             "sap.path=" + logs_ + "\r\n");
  ServerProcess server({name_, ini_}, dir_.File("output.txt"));
  ASSERT_TRUE(server.started());
  const std::string entry = " - Exception: Failed to load dll: '" + missing + "'\r\n";
  ASSERT_TRUE(Eventually([&] { return CountOf(LogText(), entry) == 1; })) << LogText();
  // The worker thread ends; only the sleeping entry thread is left.
  ASSERT_TRUE(Eventually([&] { return server.ThreadCount() == 1; })) << server.ThreadCount();

  // No retry: still one header block and one entry, and the process lives on.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const std::string text = LogText();
  EXPECT_TRUE(HeadersWritten(1)) << text;
  EXPECT_EQ(CountOf(text, entry), 1u) << text;
  // After the header block: "MM/DD/YY hh:mm:ss" and the entry, nothing else.
  const std::string after = text.substr(text.find("\r\n\r\n") + 4);
  ASSERT_EQ(after.size(), 17 + entry.size()) << after;
  EXPECT_TRUE(std::regex_match(after.substr(0, 17),
                               std::regex(R"(\d\d/\d\d/\d\d \d\d:\d\d:\d\d)")))
      << after;
  EXPECT_EQ(after.substr(17), entry);
  EXPECT_FALSE(server.Poll().has_value());
}

TEST_F(BatchServerTest, MissingIniFileEndsTheProcessWithItsMessage) {
  const std::string missing = dir_.File("missing dir name.ini");
  ServerProcess server({name_, missing}, dir_.File("output.txt"));
  ASSERT_TRUE(server.started());
  const std::optional<int> status = server.WaitForExit();
  ASSERT_TRUE(status.has_value());
  EXPECT_TRUE(WIFEXITED(*status)) << *status;
  EXPECT_NE(WEXITSTATUS(*status), 0);
  EXPECT_EQ(testutil::ReadBytes(dir_.File("output.txt")),
            "File I/O error: 2 for file: " + missing + "\n");
  EXPECT_TRUE(LogNames().empty());
}

}  // namespace
