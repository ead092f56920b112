// Runs the built batchctl against events this test creates.

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "platform/event.h"
#include "tests/platform/child_process.h"

namespace {

using platform::Event;
using platform::WaitResult;
using platform_test::RunResult;

std::string BatchctlPath() {
  if (const char* build = getenv("BS_BUILD_DIR")) return std::string(build) + "/bin/batchctl";
  return BS_BATCHCTL;
}

RunResult Batchctl(const std::vector<std::string>& args) {
  std::vector<std::string> argv{BatchctlPath()};
  argv.insert(argv.end(), args.begin(), args.end());
  return platform_test::Run(argv);
}

std::string UniqueName(const std::string& stem) {
  static int counter = 0;
  return "bs_ctl_" + stem + "_" + std::to_string(getpid()) + "_" + std::to_string(++counter);
}

TEST(BatchctlTest, NoEventMeansNotRunning) {
  const std::string name = UniqueName("none");
  RunResult status = Batchctl({"status", name});
  EXPECT_EQ(status.exit_code, 3);
  EXPECT_EQ(status.out, "not running\n");
  EXPECT_EQ(status.err, "");

  RunResult stop = Batchctl({"stop", name});
  EXPECT_EQ(stop.exit_code, 1);
  EXPECT_EQ(stop.out, "");
  EXPECT_EQ(stop.err, "batchctl: no running batch server named '" + name + "'\n");
  EXPECT_EQ(Event::Open(name), nullptr) << "a refused stop must not leave an event behind";
}

TEST(BatchctlTest, StopSetsTheEventAndStatusFollows) {
  const std::string name = UniqueName("srv");
  auto event = Event::Create(name, false);
  ASSERT_NE(event, nullptr);

  RunResult status = Batchctl({"status", name});
  EXPECT_EQ(status.exit_code, 0);
  EXPECT_EQ(status.out, "running\n");
  EXPECT_EQ(event->Wait(0), WaitResult::kTimeout) << "asking must not stop the server";

  RunResult stop = Batchctl({"stop", name});
  EXPECT_EQ(stop.exit_code, 0);
  EXPECT_EQ(stop.out, "batchctl: stop signalled to " + name + "\n");
  EXPECT_EQ(stop.err, "");
  EXPECT_EQ(event->Wait(0), WaitResult::kSignaled);

  status = Batchctl({"status", name});
  EXPECT_EQ(status.exit_code, 0);
  EXPECT_EQ(status.out, "stopping\n");
  EXPECT_EQ(Batchctl({"stop", name}).exit_code, 0) << "stopping twice is no error";

  // The server resets its event when it starts again.
  event->Reset();
  EXPECT_EQ(Batchctl({"status", name}).out, "running\n");
  event.reset();
  EXPECT_EQ(Batchctl({"status", name}).out, "not running\n");
}

TEST(BatchctlTest, OddNamesWork) {
  const std::string base = UniqueName("odd");
  const std::vector<std::string> names = {
      base + "/a/b", base + "..", base + ".ini", "." + base,
      base + "\xc3\xa4\xe2\x82\xac",  // umlaut and euro sign in UTF-8
      base + std::string(300, 'L'), base + "\\c:\\x"};
  for (const std::string& name : names) {
    auto event = Event::Create(name, false);
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(Batchctl({"status", name}).out, "running\n") << name;
    EXPECT_EQ(Batchctl({"stop", name}).exit_code, 0) << name;
    EXPECT_EQ(event->Wait(0), WaitResult::kSignaled) << name;
    EXPECT_EQ(Batchctl({"status", name}).out, "stopping\n") << name;
  }
}

TEST(BatchctlTest, ServerThatDiedIsNotRunning) {
  const std::string name = UniqueName("dead");
  // The child takes the event and ends without closing it, as a crash would.
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    auto event = Event::Create(name, false);
    _exit(event != nullptr ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  ASSERT_EQ(WEXITSTATUS(status), 0);

  RunResult result = Batchctl({"status", name});
  EXPECT_EQ(result.exit_code, 3);
  EXPECT_EQ(result.out, "not running\n");
  EXPECT_EQ(Batchctl({"stop", name}).exit_code, 1);
}

TEST(BatchctlTest, WrongUseShowsTheUsage) {
  const std::vector<std::vector<std::string>> wrong = {
      {}, {"stop"}, {"status"}, {"stop", "a", "b"}, {"stop", ""}, {"status", ""},
      {"halt", "x"}, {"STOP", "x"}, {"--help", "x"}};
  for (const auto& args : wrong) {
    RunResult result = Batchctl(args);
    EXPECT_EQ(result.exit_code, 2) << args.size();
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.rfind("Usage: batchctl stop NAME\n", 0), 0u) << result.err;
  }
  RunResult help = Batchctl({"--help"});
  EXPECT_EQ(help.exit_code, 0);
  EXPECT_EQ(help.out.rfind("Usage: batchctl stop NAME\n", 0), 0u);
  EXPECT_NE(help.out.find("batchctl status NAME"), std::string::npos);
  EXPECT_EQ(help.err, "");
}

}  // namespace
