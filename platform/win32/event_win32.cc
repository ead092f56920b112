// Manual-reset events on Windows: kernel event objects. The kernel keeps a
// named event while any handle to it is open, in any process.

#include "platform/event.h"

#include <windows.h>

namespace platform {
namespace {

class Win32Event final : public Event {
 public:
  explicit Win32Event(HANDLE handle) : handle_(handle) {}
  ~Win32Event() override { CloseHandle(handle_); }

  bool Set() override { return SetEvent(handle_) != 0; }
  bool Reset() override { return ResetEvent(handle_) != 0; }

  WaitResult Wait(uint32_t timeout_ms) override {
    switch (WaitForSingleObject(handle_, timeout_ms)) {
      case WAIT_OBJECT_0:
        return WaitResult::kSignaled;
      case WAIT_TIMEOUT:
        return WaitResult::kTimeout;
      default:
        return WaitResult::kFailed;
    }
  }

 private:
  HANDLE handle_;
};

std::unique_ptr<Event> Wrap(HANDLE handle) {
  if (handle == nullptr) return nullptr;
  try {
    return std::make_unique<Win32Event>(handle);
  } catch (const std::bad_alloc&) {
    CloseHandle(handle);
    return nullptr;
  }
}

}  // namespace

std::unique_ptr<Event> Event::Create(const std::string& name, bool initially_set, bool* existed) {
  const HANDLE handle =
      CreateEventA(nullptr, TRUE, initially_set ? TRUE : FALSE, name.empty() ? nullptr : name.c_str());
  // Read before anything else can change the thread's last error.
  const bool already_there = handle != nullptr && GetLastError() == ERROR_ALREADY_EXISTS;
  if (existed != nullptr) *existed = already_there;
  return Wrap(handle);
}

std::unique_ptr<Event> Event::Open(const std::string& name) {
  if (name.empty()) return nullptr;
  return Wrap(OpenEventA(EVENT_MODIFY_STATE | SYNCHRONIZE, FALSE, name.c_str()));
}

}  // namespace platform
