// Runs the built batchctl against events and status records this test creates
// and compares each whole transcript with a file under tests/tools/expected/.

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "app/worker_status.h"
#include "gtest/gtest.h"
#include "platform/event.h"
#include "tests/support/expected_file.h"
#include "tests/support/notify_socket.h"
#include "tests/support/processes.h"
#include "tests/support/temp_dir.h"

namespace {

using platform::Event;

std::string Transcript(std::vector<std::string> args) {
  args.insert(args.begin(), getenv("BS_BUILD_DIR") != nullptr ? testutil::BuildDir() + "/bin/batchctl" : BS_BATCHCTL);
  return testutil::RunTranscript("batchctl", args);
}

TEST(BatchctlTest, StatusAndStopFollowTheEventOfAnyName) {
  const std::string none = testutil::UniqueName("bs_ctl_none_");
  std::string text = Transcript({"status", none}) + Transcript({"stop", none});
  EXPECT_EQ(Event::Open(none), nullptr) << "a refused stop must not leave an event behind";

  const std::string base = testutil::UniqueName("bs_ctl_odd_");
  for (const std::string& name : {base, base + "/a/b", base + "..", "." + base,
                                  base + "\xc3\xa4\xe2\x82\xac", base + std::string(300, 'L'), base + "\\c:\\x"}) {
    auto event = Event::Create(name, false);
    ASSERT_NE(event, nullptr);
    text += Transcript({"status", name}) + Transcript({"status", "--json", name});
    text += Transcript({"stop", name});
    text += Transcript({"stop", name});  // stopping twice is no error
    text += Transcript({"status", "--json", name});  // after the stop: its own statement fixes the order
  }

  // A server that died without closing its event is not running.
  const std::string dead = testutil::UniqueName("bs_ctl_dead_");
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) _exit(Event::Create(dead, false) != nullptr ? 0 : 1);
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_EQ(testutil::ExitCode(status), 0);
  text += Transcript({"status", dead}) + Transcript({"status", "--json", dead}) + Transcript({"stop", dead});
  text = testutil::WithPlaceholders(text, {{testutil::Literal(none), "<none>"}, {testutil::Literal(base), "<odd>"},
                                           {testutil::Literal(dead), "<dead>"}});
  EXPECT_TRUE(testutil::MatchesExpectedFile(text, "tests/tools/expected/batchctl_names.txt"));
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
  const std::string failure = "partner \"gone\"\r\nnow";  // one line for the summary
  const std::pair<const char*, std::function<void()>> steps[] = {
      {"start", [&] { worker.Started(); }},
      {"failure", [&] { worker.CycleFailed("", failure); }},
      {"same failure, not heard again",
       [&] {
         worker.CycleStarting();
         worker.CycleFailed("", failure);
       }},
      {"serving",
       [&] {
         worker.Serving();
         worker.BatchReceived("001047032436007");
       }},
      {"stop, not yet seen by the worker", [&] { event->Set(); }},
      {"ended", [&] { worker.Ended("stopped through the stop event" + std::string(600, '.')); }},
      // Texts escaped (what is not UTF-8 read as Latin-1), fields that do not apply null.
      {"odd texts",
       [&] {
         event->Reset();
         worker.CycleFailed("K\xf0\x9f\x98\x80\xe2(x", "line\nbreak \\ \x80 \xe4");
       }},
  };
  std::string text;
  for (const auto& [what, change] : steps) {
    change();
    text += std::string("== ") + what + "\n";
    for (const std::string& heard : manager.Received()) text += "[heard]\n" + heard + "\n";
    const std::string person = Transcript({"status", name});
    EXPECT_NE(person.find(FormatLocalTime(worker.data().since_ms)), std::string::npos) << "the current state's time";
    text += person + Transcript({"status", "--json", name});
  }
  text = testutil::WithPlaceholders(
      text, {{testutil::Literal(name), "<name>"}, {R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)", "<time>"},
             {"\"since_ms\":\\d+", "\"since_ms\":<ms>"},
             {"(process id: +|\"process_id\":)" + std::to_string(getpid()), "$1<pid>"}});
  EXPECT_TRUE(testutil::MatchesExpectedFile(text, "tests/tools/expected/batchctl_states.txt"));
}

TEST(BatchctlTest, WrongUseShowsTheUsage) {
  const std::vector<std::vector<std::string>> runs = {
      {},           {"stop"},          {"status"},          {"stop", "a", "b"},         {"stop", ""},
      {"status", ""}, {"halt", "x"},   {"STOP", "x"},       {"--help", "x"},            {"status", "--json"},
      {"stop", "--json", "x"},         {"status", "--jsn", "x"}, {"status", "--json", "x", "y"},
      {"--help"},   {"-h"}};
  std::string text;
  for (const auto& args : runs) text += Transcript(args);
  EXPECT_TRUE(testutil::MatchesExpectedFile(text, "tests/tools/expected/batchctl_usage.txt"));
}

}  // namespace
