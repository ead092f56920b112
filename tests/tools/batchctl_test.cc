// Runs the built batchctl against events this test creates.

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/worker_status.h"
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

TEST(BatchctlTest, StopSetsTheEvent) {
  const std::string name = UniqueName("srv");
  auto event = Event::Create(name, false);
  ASSERT_NE(event, nullptr);

  RunResult status = Batchctl({"status", name});
  EXPECT_EQ(status.exit_code, 1);
  EXPECT_EQ(status.out, "running, state unknown: the server publishes no status\n");
  EXPECT_EQ(event->Wait(0), WaitResult::kTimeout) << "asking must not stop the server";

  RunResult stop = Batchctl({"stop", name});
  EXPECT_EQ(stop.exit_code, 0);
  EXPECT_EQ(stop.out, "batchctl: stop signalled to " + name + "\n");
  EXPECT_EQ(stop.err, "");
  EXPECT_EQ(event->Wait(0), WaitResult::kSignaled);
  EXPECT_EQ(Batchctl({"stop", name}).exit_code, 0) << "stopping twice is no error";
  EXPECT_EQ(Batchctl({"status", "--json", name}).out,
            "{\"instance\":\"" + name + "\",\"state\":\"stopping\"}\n");
  event.reset();
  EXPECT_EQ(Batchctl({"status", "--json", name}).out,
            "{\"instance\":\"" + name + "\",\"state\":\"not running\"}\n");
}

// Each state the worker publishes, as a person and a monitor read it.
TEST(BatchctlTest, StatusReportsTheWorkersStateWithItsExitCode) {
  const std::string name = UniqueName("state");
  auto event = Event::Create(name, false);
  ASSERT_NE(event, nullptr);
  CWorkerStatus worker(name, "BATCHSRV", "sapgw1", "sapgw00");
  const WorkerStatusData& data = worker.data();
  auto at = [&] { return FormatLocalTime(data.since_ms); };
  const std::string tail = "process id:     " + std::to_string(getpid()) +
                           "\nprogram id:     BATCHSRV\ngateway:        sapgw1 sapgw00\n";
  const std::string none = "batches:        none since start\n";
  auto one = [&] {
    return "batches:        1 since start, the last 001047032436007 at " +
           FormatLocalTime(data.last_batch_ms) + "\n";
  };
  const struct {
    const char* what;
    std::function<void()> change;
    std::function<std::string()> person;
    const char* state;
    int exit_code;
  } cases[] = {
      {"start", [] {}, [&] { return "preparing since " + at() + "\n" + tail + none; }, "preparing",
       1},
      {"failure", [&] { worker.CycleFailed("RFC_ERROR_COMMUNICATION", "partner \"gone\""); },
       [&] {
         return "retrying since " + at() + ": RFC_ERROR_COMMUNICATION: partner \"gone\"\n" +
                "failed cycles:  1 since the last good one\n" + tail + none;
       },
       "retrying", 1},
      {"serving",
       [&] {
         worker.Serving();
         worker.BatchReceived("001047032436007");
       },
       [&] {
         return "serving since " + at() + " (program id BATCHSRV, gateway sapgw1 sapgw00)\n" +
                tail + one();
       },
       "serving", 0},
      {"stop unseen", [&] { event->Set(); },
       [&] {
         return "stopping: the stop event is set; the worker ends at its next idle moment\n" +
                tail + one();
       },
       "stopping", 2},
      {"ended", [&] { worker.Ended("stopped through the stop event"); },
       [&] { return "ended at " + at() + ": stopped through the stop event\n" + tail + one(); },
       "ended", 2},
  };
  for (const auto& c : cases) {
    c.change();
    RunResult person = Batchctl({"status", name});
    EXPECT_EQ(person.out, c.person()) << c.what;
    EXPECT_EQ(person.exit_code, c.exit_code) << c.what;
    RunResult json = Batchctl({"status", "--json", name});
    EXPECT_EQ(json.exit_code, c.exit_code) << c.what;
    EXPECT_EQ(
        json.out.rfind("{\"instance\":\"" + name + "\",\"state\":\"" + c.state + "\",\"since\":\"" +
                           at() + "\",\"since_ms\":" + std::to_string(data.since_ms) +
                           ",\"process_id\":" + std::to_string(getpid()) +
                           ",\"program_id\":\"BATCHSRV\",\"gateway_host\":\"sapgw1\","
                           "\"gateway_service\":\"sapgw00\",\"batches\":",
                       0),
        0u)
        << c.what << json.out;
  }
  // One report in full: texts escaped (Latin-1 read as such), fields that do
  // not apply null.
  event->Reset();
  worker.CycleFailed("K", std::string("line\nbreak \\ \xe4", 14));
  const std::string json = Batchctl({"status", "--json", name}).out;
  EXPECT_EQ(json.substr(json.find(",\"batches\":")),
            ",\"batches\":1,\"last_batch_id\":\"001047032436007\",\"last_batch_time\":\"" +
                FormatLocalTime(data.last_batch_ms) +
                "\",\"failed_cycles\":1,\"last_error_key\":\"K\",\"last_error_message\":"
                "\"line\\u000abreak \\\\ \\u00e4\",\"ended_reason\":null}\n");
}

TEST(BatchctlTest, OddNamesWork) {
  const std::string base = UniqueName("odd");
  const std::vector<std::string> names = {
      base + "/a/b",
      base + "..",
      base + ".ini",
      "." + base,
      base + "\xc3\xa4\xe2\x82\xac",  // umlaut and euro sign in UTF-8
      base + std::string(300, 'L'),
      base + "\\c:\\x"};
  for (const std::string& name : names) {
    auto event = Event::Create(name, false);
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(Batchctl({"status", name}).exit_code, 1) << name;
    EXPECT_EQ(Batchctl({"stop", name}).exit_code, 0) << name;
    EXPECT_EQ(event->Wait(0), WaitResult::kSignaled) << name;
    EXPECT_EQ(Batchctl({"status", name}).exit_code, 2) << name;
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
  const std::vector<std::vector<std::string>> wrong = {{},
                                                       {"stop"},
                                                       {"status"},
                                                       {"stop", "a", "b"},
                                                       {"stop", ""},
                                                       {"status", ""},
                                                       {"halt", "x"},
                                                       {"STOP", "x"},
                                                       {"--help", "x"},
                                                       {"status", "--json"},
                                                       {"stop", "--json", "x"},
                                                       {"status", "--jsn", "x"},
                                                       {"status", "--json", "x", "y"}};
  for (const auto& args : wrong) {
    RunResult result = Batchctl(args);
    EXPECT_EQ(result.exit_code, 2) << args.size();
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.rfind("Usage: batchctl stop NAME\n", 0), 0u) << result.err;
  }
  RunResult help = Batchctl({"--help"});
  EXPECT_EQ(help.exit_code, 0);
  EXPECT_EQ(help.out.rfind("Usage: batchctl stop NAME\n", 0), 0u);
  EXPECT_NE(help.out.find("batchctl status [--json] NAME"), std::string::npos);
  EXPECT_EQ(help.err, "");
}

}  // namespace
