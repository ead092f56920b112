#pragma once
// Where a named event lives in the system. Internal to the POSIX
// implementation; visible to its tests.

#include <string>

namespace platform {
namespace posix {

// The shared-memory object name ("/..." as shm_open takes it) for an event
// name. Any text gives a valid object name of bounded length; short names map
// one to one, long ones through a hash (the object keeps the full name so a
// collision is detected rather than shared).
std::string EventObjectName(const std::string& name);
// The same for the status record that lives beside the event.
std::string StatusObjectName(const std::string& name);

}  // namespace posix
}  // namespace platform
