// Threads on Windows: CreateThread, whose exit code the kernel keeps and
// reports as STILL_ACTIVE while the thread runs.

#include "platform/thread.h"

#include <windows.h>

#include <new>

namespace platform {
namespace {

static_assert(kStillActive == STILL_ACTIVE, "the running thread's exit code is the kernel's");

struct StartArguments {
  Thread::Procedure proc;
  void* arg;
};

DWORD WINAPI RunThread(LPVOID parameter) {
  const StartArguments start = *static_cast<StartArguments*>(parameter);
  delete static_cast<StartArguments*>(parameter);
  return start.proc(start.arg);
}

class Win32Thread final : public Thread {
 public:
  // Closing the handle neither stops nor waits for the thread.
  ~Win32Thread() override {
    if (handle_ != nullptr) CloseHandle(handle_);
  }

  bool GetExitCode(uint32_t* code) const override {
    DWORD value = 0;
    if (code == nullptr || GetExitCodeThread(handle_, &value) == 0) return false;
    *code = value;
    return true;
  }

  bool Join(uint32_t timeout_ms) override {
    return WaitForSingleObject(handle_, timeout_ms) == WAIT_OBJECT_0;
  }

  HANDLE handle_ = nullptr;
};

}  // namespace

std::unique_ptr<Thread> Thread::Start(Procedure proc, void* arg) {
  if (proc == nullptr) return nullptr;
  // Everything that can fail comes before the thread exists.
  std::unique_ptr<Win32Thread> thread(new (std::nothrow) Win32Thread());
  std::unique_ptr<StartArguments> start(new (std::nothrow) StartArguments{proc, arg});
  if (thread == nullptr || start == nullptr) return nullptr;
  thread->handle_ = CreateThread(nullptr, 0, RunThread, start.get(), 0, nullptr);
  if (thread->handle_ == nullptr) return nullptr;
  start.release();  // the new thread owns it now
  return thread;
}

uint32_t CurrentThreadId() { return GetCurrentThreadId(); }

}  // namespace platform
