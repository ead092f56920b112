// Runs the built batchctl against events this test creates.

#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "platform/event.h"
#include "tests/support/processes.h"

namespace {

using platform::Event;
using platform::WaitResult;

testutil::RunResult Batchctl(const std::vector<std::string>& args) {
  std::vector<std::string> argv{getenv("BS_BUILD_DIR") != nullptr ? testutil::BuildDir() + "/bin/batchctl"
                                                                 : std::string(BS_BATCHCTL)};
  argv.insert(argv.end(), args.begin(), args.end());
  return testutil::RunCommand(argv);
}

// "exit code|output|error" of one run.
std::string Outcome(const std::vector<std::string>& args) {
  const testutil::RunResult result = Batchctl(args);
  return std::to_string(result.exit_code) + "|" + result.out + "|" + result.err;
}

TEST(BatchctlTest, StatusAndStopFollowTheEventOfAnyName) {
  const std::string none = testutil::UniqueName("bs_ctl_none_");
  EXPECT_EQ(Outcome({"status", none}), "3|not running\n|");
  EXPECT_EQ(Outcome({"stop", none}), "1||batchctl: no running batch server named '" + none + "'\n");
  EXPECT_EQ(Event::Open(none), nullptr) << "a refused stop must not leave an event behind";

  const std::string base = testutil::UniqueName("bs_ctl_odd_");
  for (const std::string& name : {base, base + "/a/b", base + "..", "." + base,
                                  base + "\xc3\xa4\xe2\x82\xac", base + std::string(300, 'L'), base + "\\c:\\x"}) {
    auto event = Event::Create(name, false);
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(Outcome({"status", name}), "0|running\n|");
    EXPECT_EQ(event->Wait(0), WaitResult::kTimeout) << "asking must not stop the server";
    EXPECT_EQ(Outcome({"stop", name}), "0|batchctl: stop signalled to " + name + "\n|");
    EXPECT_EQ(event->Wait(0), WaitResult::kSignaled);
    EXPECT_EQ(Outcome({"status", name}), "0|stopping\n|");
    EXPECT_EQ(Batchctl({"stop", name}).exit_code, 0) << "stopping twice is no error";
    event->Reset();  // as a server starting again does
    EXPECT_EQ(Batchctl({"status", name}).out, "running\n");
  }

  // A server that died without closing its event is not running.
  const std::string dead = testutil::UniqueName("bs_ctl_dead_");
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) _exit(Event::Create(dead, false) != nullptr ? 0 : 1);
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_EQ(testutil::ExitCode(status), 0);
  EXPECT_EQ(Outcome({"status", dead}), "3|not running\n|");
  EXPECT_EQ(Batchctl({"stop", dead}).exit_code, 1);
}

TEST(BatchctlTest, WrongUseShowsTheUsage) {
  const std::vector<std::vector<std::string>> wrong = {
      {}, {"stop"}, {"status"}, {"stop", "a", "b"}, {"stop", ""}, {"status", ""},
      {"halt", "x"}, {"STOP", "x"}, {"--help", "x"}};
  for (const auto& args : wrong) {
    const testutil::RunResult result = Batchctl(args);
    EXPECT_EQ(result.exit_code, 2) << args.size();
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.rfind("Usage: batchctl stop NAME\n", 0), 0u) << result.err;
  }
  const testutil::RunResult help = Batchctl({"--help"});
  EXPECT_EQ(help.exit_code, 0);
  EXPECT_EQ(help.out.rfind("Usage: batchctl stop NAME\n", 0), 0u);
  EXPECT_NE(help.out.find("batchctl status NAME"), std::string::npos);
  EXPECT_EQ(help.err, "");
}

}  // namespace
