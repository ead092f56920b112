// The second process of the cross-process platform tests. Each sub-command
// does one thing with an event or a file and reports through its output and
// exit code; "hold" commands keep what they hold until their input closes.

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
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

// Returns when the test closes our input (or dies).
void HoldUntilInputCloses() {
  char buffer[64];
  while (read(0, buffer, sizeof buffer) != 0) {
  }
}

int EventSet(const std::string& name) {
  auto event = platform::Event::Open(name);
  if (event == nullptr) return 2;
  return event->Set() ? 0 : 3;
}

int EventWait(const std::string& name, uint32_t timeout_ms) {
  auto event = platform::Event::Open(name);
  if (event == nullptr) return 2;
  Say("waiting");
  switch (event->Wait(timeout_ms)) {
    case platform::WaitResult::kSignaled:
      return 0;
    case platform::WaitResult::kTimeout:
      return 1;
    case platform::WaitResult::kFailed:
      break;
  }
  return 3;
}

int EventHold(const std::string& name, bool set_it) {
  bool existed = false;
  auto event = platform::Event::Create(name, false, &existed);
  if (event == nullptr) return 2;
  if (set_it) event->Set();
  Say(existed ? "ready existed=1" : "ready existed=0");
  HoldUntilInputCloses();
  return 0;
}

// Creates and closes the event over and over. With `held`, the test keeps the
// event open and set all along, so every create must find it, set.
int EventChurn(const std::string& name, int count, bool held) {
  Say("ready");
  for (int i = 0; i < count; ++i) {
    bool existed = false;
    auto event = platform::Event::Create(name, false, &existed);
    if (event == nullptr) return 2;
    if (held && (!existed || event->Wait(0) != platform::WaitResult::kSignaled)) return 1;
    if (!held && i % 3 == 0) {
      auto opened = platform::Event::Open(name);
      if (opened == nullptr) return 1;  // our own handle keeps it alive
    }
  }
  return 0;
}

int AppendHold(const std::string& path) {
  int cause = 0;
  auto file = platform::File::Open(path, platform::File::Mode::kAppendExclusive, &cause);
  if (file == nullptr) {
    Say("failed " + std::to_string(cause));
    return cause;
  }
  Say("ready");
  HoldUntilInputCloses();
  const char text[] = "child\n";
  if (file->Write(text, sizeof text - 1) != platform::kFileOk) return 1;
  return file->Close();
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
  // Put the limit back for whatever runs at exit (the leak checker opens files).
  setrlimit(RLIMIT_NOFILE, &old_limit);
  Say(std::to_string(cause));
  return file == nullptr ? cause : 0;
}

int AsNobodyAppend(const std::string& path, const std::string& text) {
  // The superuser passes every permission check; drop to an ordinary user.
  if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) return 100;
  return Append(path, text);
}

int Termination(const std::string& which) {
  const int signal_number = which == "INT" ? SIGINT : SIGTERM;
  platform::InstallTerminationHandler();
  Say(platform::TerminationRequested() ? "before=1" : "before=0");
  raise(signal_number);
  Say(platform::TerminationRequested() ? "after=1" : "after=0");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 64;
  const std::string command = argv[1];
  auto arg = [&](int i) { return i < argc ? std::string(argv[i]) : std::string(); };
  if (command == "event-set") return EventSet(arg(2));
  if (command == "event-wait") return EventWait(arg(2), static_cast<uint32_t>(std::atoi(arg(3).c_str())));
  if (command == "event-hold") return EventHold(arg(2), false);
  if (command == "crash-holding") return EventHold(arg(2), true);
  if (command == "event-churn") return EventChurn(arg(2), std::atoi(arg(3).c_str()), arg(4) == "held");
  if (command == "append-hold") return AppendHold(arg(2));
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
