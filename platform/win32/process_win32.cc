// Process facts and orderly termination on Windows.

#include "platform/process.h"

#include <windows.h>
#include <malloc.h>

#include <atomic>
#include <cctype>
#include <cstdio>
#include <vector>

namespace platform {
namespace {

// Set from the console control thread.
std::atomic<bool> g_termination_requested{false};

BOOL WINAPI OnConsoleControl(DWORD event) {
  switch (event) {
    case CTRL_C_EVENT:
    case CTRL_BREAK_EVENT:
      g_termination_requested.store(true, std::memory_order_relaxed);
      return TRUE;
    case CTRL_CLOSE_EVENT:
    case CTRL_SHUTDOWN_EVENT:
      // Windows ends the process as soon as this returns: wait here while the
      // main thread stops the worker and exits, or until the system's own
      // limit for closing ends the process anyway.
      g_termination_requested.store(true, std::memory_order_relaxed);
      ::Sleep(10000);
      return TRUE;
    default:
      return FALSE;
  }
}

}  // namespace

std::string CurrentDirectory() {
  const DWORD needed = GetCurrentDirectoryA(0, nullptr);
  if (needed == 0) return std::string();
  std::vector<char> buffer(needed + 1);
  const DWORD length = GetCurrentDirectoryA(static_cast<DWORD>(buffer.size()), buffer.data());
  if (length == 0 || length >= buffer.size()) return std::string();
  return std::string(buffer.data(), length);
}

int ToUpper(int c) {
  if (c == EOF) return EOF;
  return std::toupper(static_cast<unsigned char>(c));
}

void ToUpperInPlace(char* text, size_t length) {
  if (text == nullptr) return;
  for (size_t i = 0; i < length; ++i) {
    text[i] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[i])));
  }
}

void InstallTerminationHandler() { SetConsoleCtrlHandler(OnConsoleControl, TRUE); }

bool TerminationRequested() { return g_termination_requested.load(std::memory_order_relaxed); }

void ReleaseFreeMemory() {
  // The C runtime's heap keeps freed blocks; this hands back what it can.
  _heapmin();
}

}  // namespace platform
