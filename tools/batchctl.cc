// batchctl: signals or reports a batch server's stop event, the one channel
// into a running server. The server names the event after its instance.

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "platform/event.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitNotRunning = 3;

const char kUsage[] =
    "Usage: batchctl stop NAME\n"
    "       batchctl status NAME\n"
    "\n"
    "NAME is the batch server's instance name, the first word of its command line.\n"
    "\n"
    "  stop    set the instance's stop event: the server's worker ends at its next check.\n"
    "          Exit 0 when signalled, 1 when no server of that name is running.\n"
    "  status  print \"running\" (exit 0), \"stopping\" (exit 0: told to stop or\n"
    "          stopped; the process may still live) or \"not running\" (exit 3).\n";

int Usage(FILE* out, int code) {
  std::fputs(kUsage, out);
  return code;
}

int Stop(const std::string& name) {
  std::unique_ptr<platform::Event> event = platform::Event::Open(name);
  if (event == nullptr) {
    std::fprintf(stderr, "batchctl: no running batch server named '%s'\n", name.c_str());
    return kExitFailure;
  }
  if (!event->Set()) {
    std::fprintf(stderr, "batchctl: cannot signal the stop event of '%s'\n", name.c_str());
    return kExitFailure;
  }
  std::printf("batchctl: stop signalled to %s\n", name.c_str());
  return kExitOk;
}

int Status(const std::string& name) {
  std::unique_ptr<platform::Event> event = platform::Event::Open(name);
  if (event == nullptr) {
    std::puts("not running");
    return kExitNotRunning;
  }
  switch (event->Wait(0)) {
    case platform::WaitResult::kTimeout:
      std::puts("running");
      return kExitOk;
    case platform::WaitResult::kSignaled:
      std::puts("stopping");
      return kExitOk;
    case platform::WaitResult::kFailed:
      break;
  }
  std::fprintf(stderr, "batchctl: cannot read the stop event of '%s'\n", name.c_str());
  return kExitFailure;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
    return Usage(stdout, kExitOk);
  }
  if (argc != 3 || argv[2][0] == '\0') return Usage(stderr, kExitUsage);
  const std::string command = argv[1];
  const std::string name = argv[2];
  if (command == "stop") return Stop(name);
  if (command == "status") return Status(name);
  return Usage(stderr, kExitUsage);
}
