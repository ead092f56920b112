#pragma once
// Manual-reset events, optionally named and then shared between processes.
//
// A named event lives as long as any process holds a handle to it and is gone
// when the last handle closes, also when every holder crashed. Any text is a
// valid name. An empty name gives an unnamed event that nobody can open.

#include <cstdint>
#include <memory>
#include <string>

namespace platform {

enum class WaitResult { kSignaled, kTimeout, kFailed };

class Event {
 public:
  // Creates the event, or opens it when the name is already in use (then
  // `initially_set` is ignored and *existed becomes true). Null on failure.
  static std::unique_ptr<Event> Create(const std::string& name, bool initially_set,
                                       bool* existed = nullptr);
  // Opens an existing named event for waiting and setting. Null when there is
  // no event of that name (an empty name never opens).
  static std::unique_ptr<Event> Open(const std::string& name);

  Event() = default;
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;
  // Closes this handle; the event itself goes with the last handle.
  virtual ~Event() = default;

  virtual bool Set() = 0;
  virtual bool Reset() = 0;
  // Waits until the event is set or `timeout_ms` passed (0 only tests it).
  virtual WaitResult Wait(uint32_t timeout_ms) = 0;
};

}  // namespace platform
