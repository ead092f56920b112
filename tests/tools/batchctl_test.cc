// Runs the built batchctl against events and status records this test creates.

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "app/worker_status.h"
#include "gtest/gtest.h"
#include "platform/event.h"
#include "tests/support/notify_socket.h"
#include "tests/support/processes.h"
#include "tests/support/temp_dir.h"

namespace {

using platform::Event;
using platform::WaitResult;
using testutil::RunResult;

RunResult Batchctl(const std::vector<std::string>& args) {
  std::vector<std::string> argv{getenv("BS_BUILD_DIR") != nullptr ? testutil::BuildDir() + "/bin/batchctl"
                                                                 : std::string(BS_BATCHCTL)};
  argv.insert(argv.end(), args.begin(), args.end());
  return testutil::RunCommand(argv);
}

// "exit code|output|error" of one run.
std::string Outcome(const std::vector<std::string>& args) {
  const RunResult result = Batchctl(args);
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
    EXPECT_EQ(Outcome({"status", name}), "1|running, state unknown: the server publishes no status\n|");
    const std::string unknown = Outcome({"status", "--json", name});
    EXPECT_TRUE(unknown.rfind("1|{\"instance\":", 0) == 0 && unknown.find(",\"state\":\"unknown\"}\n|") != std::string::npos)
        << unknown;
    EXPECT_EQ(event->Wait(0), WaitResult::kTimeout) << "asking must not stop the server";
    EXPECT_EQ(Outcome({"stop", name}), "0|batchctl: stop signalled to " + name + "\n|");
    EXPECT_EQ(event->Wait(0), WaitResult::kSignaled);
    EXPECT_EQ(Batchctl({"stop", name}).exit_code, 0) << "stopping twice is no error";
    std::string json_name = name;  // JSON doubles the backslash
    for (size_t at = 0; (at = json_name.find('\\', at)) != std::string::npos; at += 2) json_name.insert(at, 1, '\\');
    EXPECT_EQ(Outcome({"status", "--json", name}), "2|{\"instance\":\"" + json_name + "\",\"state\":\"stopping\"}\n|");
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
  EXPECT_EQ(Outcome({"status", "--json", dead}), "3|{\"instance\":\"" + dead + "\",\"state\":\"not running\"}\n|");
  EXPECT_EQ(Batchctl({"stop", dead}).exit_code, 1);
}

// Each state the worker publishes, as a person and a monitor read it, and
// as a service manager hears it: ready at once, then every changed line.
TEST(BatchctlTest, StatusReportsTheWorkersStateWithItsExitCode) {
  const std::string name = testutil::UniqueName("bs_ctl_state_");
  auto event = Event::Create(name, false);
  ASSERT_NE(event, nullptr);
  testutil::NotifySocket manager("@" + name);
  ASSERT_TRUE(manager.bound());
  setenv("NOTIFY_SOCKET", ("@" + name).c_str(), 1);
  CWorkerStatus worker(name, "BATCHSRV", "sapgw1", "sapgw00");
  unsetenv("NOTIFY_SOCKET");
  EXPECT_TRUE(manager.Received().empty()) << "nothing before the worker runs";
  const WorkerStatusData& data = worker.data();
  auto at = [&] { return FormatLocalTime(data.since_ms); };
  const std::string tail =
      "process id:     " + std::to_string(getpid()) + "\nprogram id:     BATCHSRV\ngateway:        sapgw1 sapgw00\n";
  const std::string none = "batches:        none since start\n";
  auto one = [&] {
    return "batches:        1 since start, the last 001047032436007 at " + FormatLocalTime(data.last_batch_ms) + "\n";
  };
  const std::string failure = "partner \"gone\"\r\nnow";  // one line for the summary
  const std::string ended = "stopped through the stop event" + std::string(600, '.');
  const struct {
    const char* what;
    std::function<void()> change;
    std::function<std::string()> line, rest;  // the first line; the others
    bool heard;                                // the manager hears the line
    const char* state;
    int exit_code;
  } cases[] = {
      {"start", [&] { worker.Started(); }, [&] { return "preparing since " + at(); }, [&] { return tail + none; },
       true, "preparing", 1},
      {"failure", [&] { worker.CycleFailed("", failure); }, [&] { return "retrying since " + at() + ": partner \"gone\"  now"; },
       [&] { return "failed cycles:  1 since the last good one\n" + tail + none; }, true, "retrying", 1},
      {"same failure",
       [&] {
         worker.CycleStarting();
         worker.CycleFailed("", failure);
       },
       [&] { return "retrying since " + at() + ": partner \"gone\"  now"; },
       [&] { return "failed cycles:  2 since the last good one\n" + tail + none; }, false, "retrying", 1},
      {"serving",
       [&] {
         worker.Serving();
         worker.BatchReceived("001047032436007");
       },
       [&] { return "serving since " + at() + " (program id BATCHSRV, gateway sapgw1 sapgw00)"; },
       [&] { return tail + one(); }, true, "serving", 0},
      {"stop unseen", [&] { event->Set(); },
       [&] { return std::string("stopping: the stop event is set; the worker ends at its next idle moment"); },
       [&] { return tail + one(); }, false, "stopping", 2},
      {"ended", [&] { worker.Ended(ended); }, [&] { return "ended at " + at() + ": " + ended.substr(0, 511); },
       [&] { return tail + one(); }, true, "ended", 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    c.change();
    EXPECT_EQ(manager.Received(), c.heard ? std::vector<std::string>{(c.what == std::string("start") ? "READY=1\nSTATUS=" : "STATUS=") + c.line()}
                                          : std::vector<std::string>{});
    RunResult person = Batchctl({"status", name});
    EXPECT_EQ(person.out, c.line() + "\n" + c.rest());
    EXPECT_EQ(person.exit_code, c.exit_code);
    RunResult json = Batchctl({"status", "--json", name});
    EXPECT_EQ(json.exit_code, c.exit_code);
    EXPECT_EQ(json.out.rfind("{\"instance\":\"" + name + "\",\"state\":\"" + c.state + "\",\"since\":\"" + at() +
                                 "\",\"since_ms\":" + std::to_string(data.since_ms) +
                                 ",\"process_id\":" + std::to_string(getpid()) +
                                 ",\"program_id\":\"BATCHSRV\",\"gateway_host\":\"sapgw1\","
                                 "\"gateway_service\":\"sapgw00\",\"batches\":",
                             0),
              0u)
        << json.out;
  }
  // One report in full: texts escaped (what is not UTF-8 read as Latin-1),
  // fields that do not apply null.
  event->Reset();
  worker.CycleFailed("K\xf0\x9f\x98\x80\xe2(x", "line\nbreak \\ \x80 \xe4");
  const std::string json = Batchctl({"status", "--json", name}).out;
  EXPECT_EQ(json.substr(json.find(",\"batches\":")),
            ",\"batches\":1,\"last_batch_id\":\"001047032436007\",\"last_batch_time\":\"" +
                FormatLocalTime(data.last_batch_ms) +
                "\",\"failed_cycles\":1,\"last_error_key\":\"K\\u00f0\\u009f\\u0098\\u0080\\u00e2(x\",\"last_error_message\":"
                "\"line\\u000abreak \\\\ \\u0080 \\u00e4\",\"ended_reason\":null}\n");
}

TEST(BatchctlTest, WrongUseShowsTheUsage) {
  const std::vector<std::vector<std::string>> wrong = {
      {},           {"stop"},          {"status"},          {"stop", "a", "b"},         {"stop", ""},
      {"status", ""}, {"halt", "x"},   {"STOP", "x"},       {"--help", "x"},            {"status", "--json"},
      {"stop", "--json", "x"},         {"status", "--jsn", "x"}, {"status", "--json", "x", "y"}};
  for (const auto& args : wrong) {
    RunResult result = Batchctl(args);
    EXPECT_EQ(result.exit_code, 2) << args.size();
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.rfind("Usage: batchctl stop NAME\n", 0), 0u) << result.err;
  }
  for (const char* option : {"--help", "-h"}) {
    RunResult help = Batchctl({option});
    EXPECT_EQ(help.exit_code, 0);
    EXPECT_EQ(help.out.rfind("Usage: batchctl stop NAME\n", 0), 0u);
    EXPECT_NE(help.out.find("batchctl status [--json] NAME"), std::string::npos);
    EXPECT_EQ(help.err, "");
  }
}

}  // namespace
