// Threads with a readable exit code and a timed join, on POSIX.

#include "platform/thread.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

namespace platform {
namespace {

// What the thread and its handle share. The thread keeps its own reference,
// so the state outlives a handle that is dropped while the thread runs.
struct ThreadState {
  std::mutex mutex;
  std::condition_variable ended_signal;
  bool ended = false;
  uint32_t exit_code = kStillActive;
};

class PosixThread final : public Thread {
 public:
  explicit PosixThread(std::shared_ptr<ThreadState> state) : state_(std::move(state)) {}

  // Throws std::system_error when no thread can be made.
  void Launch(Procedure proc, void* arg);

  // Dropping the handle neither stops nor waits for the thread.
  ~PosixThread() override {
    if (thread_.joinable()) thread_.detach();
  }

  bool GetExitCode(uint32_t* code) const override {
    if (code == nullptr) return false;
    std::lock_guard<std::mutex> lock(state_->mutex);
    *code = state_->ended ? state_->exit_code : kStillActive;
    return true;
  }

  bool Join(uint32_t timeout_ms) override {
    {
      std::unique_lock<std::mutex> lock(state_->mutex);
      if (!state_->ended_signal.wait_for(lock, std::chrono::milliseconds(timeout_ms),
                                         [this] { return state_->ended; })) {
        return false;
      }
    }
    // The procedure has returned; the thread has only its last steps left.
    // Several threads may join the same handle; only one may reap it.
    std::lock_guard<std::mutex> reap(reap_mutex_);
    if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) thread_.join();
    return true;
  }

 private:
  std::shared_ptr<ThreadState> state_;
  std::mutex reap_mutex_;
  std::thread thread_;
};

void RunThread(std::shared_ptr<ThreadState> state, Thread::Procedure proc, void* arg) {
  const uint32_t code = proc(arg);
  std::lock_guard<std::mutex> lock(state->mutex);
  state->exit_code = code;
  state->ended = true;
  state->ended_signal.notify_all();
}

void PosixThread::Launch(Procedure proc, void* arg) {
  thread_ = std::thread(RunThread, state_, proc, arg);
}

}  // namespace

std::unique_ptr<Thread> Thread::Start(Procedure proc, void* arg) {
  if (proc == nullptr) return nullptr;
  try {
    // The handle exists before the thread, so nothing can fail after the start.
    auto handle = std::make_unique<PosixThread>(std::make_shared<ThreadState>());
    handle->Launch(proc, arg);
    return handle;
  } catch (const std::system_error&) {
    return nullptr;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

uint32_t CurrentThreadId() { return static_cast<uint32_t>(syscall(SYS_gettid)); }

}  // namespace platform
