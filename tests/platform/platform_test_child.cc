// The second process of the cross-process platform tests. Each sub-command
// does one thing with an event or a file and reports through its output and
// exit code; "hold" commands keep what they hold until their release file
// (the last argument) exists.

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/clock.h"
#include "platform/event.h"
#include "platform/file.h"
#include "platform/process.h"

namespace {

void Say(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

void HoldUntil(const std::string& release) {
  while (access(release.c_str(), F_OK) != 0) usleep(2000);
}

int EventWait(const std::string& name, uint32_t timeout_ms) {
  auto event = platform::Event::Open(name);
  if (event == nullptr) return 2;
  Say("waiting");
  const platform::WaitResult result = event->Wait(timeout_ms);
  return result == platform::WaitResult::kSignaled ? 0 : result == platform::WaitResult::kTimeout ? 1 : 3;
}

int EventHold(const std::string& name, const std::string& release) {
  bool existed = false;
  auto event = platform::Event::Create(name, false, &existed);
  if (event == nullptr) return 2;
  Say(existed ? "ready existed=1" : "ready existed=0");
  HoldUntil(release);
  return 0;
}

// Creates and closes the event over and over. With `held`, the test keeps the
// event open and set all along, so every create must find it, set.
int EventChurn(const std::string& name, int count, bool held) {
  for (int i = 0; i < count; ++i) {
    bool existed = false;
    auto event = platform::Event::Create(name, false, &existed);
    if (event == nullptr) return 2;
    if (held && (!existed || event->Wait(0) != platform::WaitResult::kSignaled)) return 1;
    if (!held && i % 3 == 0 && platform::Event::Open(name) == nullptr) return 1;  // ours keeps it alive
  }
  return 0;
}

int AppendHold(const std::string& path, const std::string& release) {
  int cause = 0;
  auto file = platform::File::Open(path, platform::File::Mode::kAppendExclusive, &cause);
  if (file == nullptr) return cause;
  Say("ready");
  HoldUntil(release);
  return file->Write("child\n", 6) != platform::kFileOk ? 1 : file->Close();
}

int Append(const std::string& path, const std::string& text) {
  return platform::AppendToFile(path, text.data(), text.size());
}

int OpenLimited(const std::string& path) {
  // Only the standard descriptors fit: the next open meets the limit.
  rlimit old_limit{};
  if (getrlimit(RLIMIT_NOFILE, &old_limit) != 0) return 100;
  const rlimit limit{3, old_limit.rlim_max};
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) return 100;
  int cause = 0;
  auto file = platform::File::Open(path, platform::File::Mode::kAppendExclusive, &cause);
  setrlimit(RLIMIT_NOFILE, &old_limit);  // the leak checker opens files at exit
  Say(std::to_string(cause));
  return file == nullptr ? cause : 0;
}

int AsNobodyAppend(const std::string& path, const std::string& text) {
  // The superuser passes every permission check; drop to an ordinary user.
  if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) return 100;
  return Append(path, text);
}

int Termination(const std::string& which) {
  platform::InstallTerminationHandler();
  Say(platform::TerminationRequested() ? "before=1" : "before=0");
  raise(which == "INT" ? SIGINT : SIGTERM);
  Say(platform::TerminationRequested() ? "after=1" : "after=0");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 64;
  const std::string command = argv[1];
  auto arg = [&](int i) { return i < argc ? std::string(argv[i]) : std::string(); };
  if (command == "event-set") {
    auto event = platform::Event::Open(arg(2));
    return event == nullptr ? 2 : event->Set() ? 0 : 3;
  }
  if (command == "event-wait") return EventWait(arg(2), static_cast<uint32_t>(std::atoi(arg(3).c_str())));
  if (command == "event-hold") return EventHold(arg(2), arg(3));
  if (command == "event-churn") return EventChurn(arg(2), std::atoi(arg(3).c_str()), arg(4) == "held");
  if (command == "append-hold") return AppendHold(arg(2), arg(3));
  if (command == "append") return Append(arg(2), arg(3));
  if (command == "open-limited") return OpenLimited(arg(2));
  if (command == "as-nobody-append") return AsNobodyAppend(arg(2), arg(3));
  if (command == "process-clock") {
    Say(std::to_string(platform::ProcessClock()));
    return 0;
  }
  if (command == "termination") return Termination(arg(2));
  return 64;
}
