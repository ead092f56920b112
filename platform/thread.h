#pragma once
// Threads with a readable exit code and a timed join.

#include <cstdint>
#include <memory>

namespace platform {

// Exit code reported while the thread is still running.
constexpr uint32_t kStillActive = 259;

class Thread {
 public:
  using Procedure = uint32_t (*)(void* arg);

  // Starts `proc(arg)` on a new thread. Null when the thread cannot be made.
  static std::unique_ptr<Thread> Start(Procedure proc, void* arg);

  Thread() = default;
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;
  // Releases the handle only: a running thread goes on to its end.
  virtual ~Thread() = default;

  // The procedure's result, or kStillActive while it runs. False when the
  // code cannot be read.
  virtual bool GetExitCode(uint32_t* code) const = 0;
  // Waits up to `timeout_ms` for the thread to end; true when it has ended.
  virtual bool Join(uint32_t timeout_ms) = 0;
};

// The calling thread's system-wide id (32 bits).
uint32_t CurrentThreadId();

}  // namespace platform
