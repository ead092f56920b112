// Runs the batchserver binary as users do, with a stand-in library whose
// logon fails so that the worker cycles without a SAP system: the command
// line, the INI file, the named stop event and termination signals. (The
// stop event against a real system: tests/e2e.)

#include <signal.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>

#include "platform/event.h"
#include "tests/support/log_reading.h"
#include "tests/support/polling.h"
#include "tests/support/processes.h"
#include "tests/support/temp_dir.h"

namespace {

using testutil::CountOf;
using testutil::Eventually;

class BatchServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    name_ = testutil::UniqueName("SRVE");
    logs_ = dir_.File("logs");
    std::filesystem::create_directory(logs_);
    // A blank in the path is part of the command line.
    ini_ = dir_.Write("batch server.ini", "A line without an equals sign is ignored\r\n[" + name_ +
                                              "]\r\nsap.server.listen.timer=10\r\n"
                                              "sap.library=" RFC_STUB_COMPLETE "\r\nsap.path=" + logs_ + "\r\n");
  }

  std::unique_ptr<testutil::ChildProcess> Start(const std::string& ini, const std::string& output) {
    return std::make_unique<testutil::ChildProcess>(
        std::vector<std::string>{testutil::BuildDir() + "/bin/batchserver", name_, ini}, "", dir_.File(output), "");
  }
  std::string LogText() const { return testutil::FilesText(logs_); }
  // Every service cycle writes a header block.
  int Headers() const { return CountOf(LogText(), "# DESCRIPTION: " + name_ + "\r\n# CLOCKS_PER_SEC: 1000\r\n"); }
  static void ExpectCleanExit(testutil::ChildProcess& server) {
    const std::optional<int> status = server.Terminate(20000, 0);
    ASSERT_TRUE(status.has_value()) << "still running";
    EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << *status;
  }

  testutil::TempDir dir_;
  std::string name_;
  std::string logs_;
  std::string ini_;
};

TEST_F(BatchServerTest, SecondProcessUnderTheSameNameLeavesTheFirstRunningAndSigintSetsTheStopEvent) {
  auto first = Start(ini_, "first.txt");
  ASSERT_TRUE(Eventually([&] { return Headers() >= 1; })) << LogText();
  const std::vector<std::string> names = testutil::FileNames(logs_);
  ASSERT_EQ(names.size(), 1u);
  EXPECT_EQ(names[0].size(), 12u);
  EXPECT_EQ(names[0].find_first_not_of("0123456789"), 8u) << names[0];
  EXPECT_EQ(names[0].substr(8), ".log");
  // Keep the event alive past the process to see that termination set it.
  std::unique_ptr<platform::Event> watch = platform::Event::Open(name_);
  ASSERT_TRUE(watch);
  ASSERT_EQ(watch->Wait(0), platform::WaitResult::kTimeout);

  const size_t threads = first->ThreadCount();
  auto second = Start(ini_, "second.txt");
  ASSERT_TRUE(Eventually([&] { return Headers() >= 2; })) << LogText();
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(first->ThreadCount(), threads);
  EXPECT_FALSE(first->Poll().has_value());
  ASSERT_EQ(kill(first->pid(), SIGINT), 0);
  ExpectCleanExit(*first);
  EXPECT_EQ(watch->Wait(0), platform::WaitResult::kSignaled);
  EXPECT_EQ(testutil::ReadBytes(dir_.File("first.txt")), "");
  ASSERT_EQ(kill(second->pid(), SIGTERM), 0);
  ExpectCleanExit(*second);
}

TEST_F(BatchServerTest, LibraryThatCannotBeLoadedEndsTheWorkerForGood) {
  const std::string missing = dir_.File("no-such-rfc-library.so");
  const std::string ini = dir_.Write("missing.ini", "[" + name_ + "]\r\nsap.server.listen.timer=10\r\nsap.library=" +
                                                        missing + "\r\nsap.path=" + logs_ + "\r\n");
  auto server = Start(ini, "output.txt");
  const std::string entry = " - Exception: Failed to load dll: '" + missing + "'\r\n";
  ASSERT_TRUE(Eventually([&] { return CountOf(LogText(), entry) == 1; })) << LogText();
  // The worker thread ends; only the sleeping entry thread is left.
  ASSERT_TRUE(Eventually([&] { return server->ThreadCount() == 1; })) << server->ThreadCount();

  // No retry: one header block, then "MM/DD/YY hh:mm:ss" and the entry; the process lives on.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const std::vector<std::string> cycles = testutil::ServiceCycles(LogText());
  ASSERT_EQ(cycles.size(), 1u) << LogText();
  ASSERT_EQ(cycles[0].size(), 17 + entry.size()) << cycles[0];
  EXPECT_TRUE(testutil::StartsWithLogTime(cycles[0])) << cycles[0];
  EXPECT_EQ(cycles[0].substr(17), entry);
  EXPECT_FALSE(server->Poll().has_value());
}

TEST_F(BatchServerTest, MissingIniFileEndsTheProcessWithItsMessage) {
  const std::string missing = dir_.File("missing dir name.ini");
  auto server = Start(missing, "output.txt");
  const std::optional<int> status = server->Terminate(20000, 0);
  ASSERT_TRUE(status.has_value());
  EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) != 0) << *status;
  EXPECT_EQ(testutil::ReadBytes(dir_.File("output.txt")), "File I/O error: 2 for file: " + missing + "\n");
  EXPECT_TRUE(testutil::FileNames(logs_).empty());
}

}  // namespace
