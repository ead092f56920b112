// The second process of the cross-process platform tests: opens and sets an
// event, or appends to a file, and reports through its exit code.

#include <string>

#include "platform/event.h"
#include "platform/file.h"

int main(int argc, char** argv) {
  if (argc < 3) return 64;
  const std::string command = argv[1], name = argv[2];
  const std::string more = argc > 3 ? argv[3] : "";
  if (command == "event-set") {
    auto event = platform::Event::Open(name);
    return event == nullptr ? 2 : event->Set() ? 0 : 3;
  }
  if (command == "append") return platform::AppendToFile(name, more.data(), more.size());
  return 64;
}
