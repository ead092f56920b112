// Lazily resolved forwarding functions into the run-time loaded RFC library.

#include "rfc/binding/rfc_binding.h"

#include <atomic>
#include <cstdio>
#include <type_traits>

#include "platform/dynamic_library.h"

namespace {

// The library handle of the process; replaced by every LoadRfcLibrary and
// never released, so addresses resolved from an earlier handle stay valid.
std::atomic<platform::LibraryHandle> g_library{nullptr};

// Room for the longest entry point name with the message around it.
constexpr size_t kMessageSize = 100;

[[noreturn]] void ThrowMissingEntryPoint(const char* name) {
  // The catcher receives a pointer into this buffer; a per-thread buffer stays
  // valid while the exception is handled and cannot be overwritten by another
  // thread's failure.
  thread_local char message[kMessageSize];
  std::snprintf(message, sizeof message, "Failed to get pointer to function: %s", name);
  throw static_cast<const char*>(message);
}

// The address in `slot`, looked up by name on first use. Two threads that
// find the slot empty both look the name up and store the same address; no
// lock is needed. A failed lookup leaves the slot empty so the next call
// retries.
template <typename Function>
Function Resolve(std::atomic<void*>& slot, const char* name) {
  void* address = slot.load(std::memory_order_acquire);
  if (address == nullptr) {
    address = platform::GetLibrarySymbol(g_library.load(std::memory_order_acquire), name);
    if (address == nullptr) ThrowMissingEntryPoint(name);
    slot.store(address, std::memory_order_release);
  }
  return reinterpret_cast<Function>(address);
}

#define RFC_DEFINE_SLOT(result, name, parameters, arguments) \
  std::atomic<void*> name##_slot{nullptr};
RFC_ENTRY_POINTS(RFC_DEFINE_SLOT)
#undef RFC_DEFINE_SLOT

}  // namespace

bool LoadRfcLibrary(const char* file_name) {
  platform::LibraryHandle handle =
      file_name != nullptr ? platform::LoadDynamicLibrary(file_name) : nullptr;
  g_library.store(handle, std::memory_order_release);
  return handle != nullptr;
}

#define RFC_DEFINE_FORWARDER(result, name, parameters, arguments)                       \
  static_assert(std::is_same_v<result(*) parameters, name##_t>,                         \
                #name " must have the library's signature");                            \
  result name parameters { return Resolve<name##_t>(name##_slot, #name) arguments; }
RFC_ENTRY_POINTS(RFC_DEFINE_FORWARDER)
#undef RFC_DEFINE_FORWARDER
