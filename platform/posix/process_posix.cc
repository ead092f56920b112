// Process facts and orderly termination on POSIX.

#include "platform/process.h"

#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <vector>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace platform {
namespace {

// Written from a signal handler, so it must be lock-free.
std::atomic<bool> g_termination_requested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler needs a lock-free flag");

extern "C" void OnTerminationSignal(int) {
  g_termination_requested.store(true, std::memory_order_relaxed);
}

// Beyond this a directory name is not worth reading; callers get empty text.
constexpr size_t kMaxDirectoryLength = 1 << 20;

}  // namespace

std::string CurrentDirectory() {
  std::vector<char> buffer(256);
  for (;;) {
    if (getcwd(buffer.data(), buffer.size()) != nullptr) return std::string(buffer.data());
    if (errno != ERANGE || buffer.size() >= kMaxDirectoryLength) return std::string();
    buffer.resize(buffer.size() * 2);
  }
}

int ToUpper(int c) {
  if (c == EOF) return EOF;
  // Plain char may be signed; toupper is only defined for unsigned char values.
  return std::toupper(static_cast<unsigned char>(c));
}

void ToUpperInPlace(char* text, size_t length) {
  if (text == nullptr) return;
  for (size_t i = 0; i < length; ++i) {
    text[i] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[i])));
  }
}

void InstallTerminationHandler() {
  struct sigaction action {};
  action.sa_handler = OnTerminationSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
}

bool TerminationRequested() { return g_termination_requested.load(std::memory_order_relaxed); }

void ReleaseFreeMemory() {
#if defined(__GLIBC__)
  // glibc keeps free memory inside its heaps (up to 64 MiB a heap) and trims
  // only their tops; this gives back every free page.
  malloc_trim(0);
#endif
}

}  // namespace platform
