// Re-entrant critical sections on POSIX: a recursive mutex.

#include "platform/critical_section.h"

#include <mutex>
#include <new>

namespace platform {
namespace {

using Native = std::recursive_mutex;

Native& Get(unsigned char* storage) { return *std::launder(reinterpret_cast<Native*>(storage)); }

}  // namespace

CriticalSection::CriticalSection() {
  static_assert(sizeof(Native) <= sizeof storage_ && alignof(Native) <= alignof(std::max_align_t),
                "the mutex fits the storage");
  new (storage_) Native();
}

CriticalSection::~CriticalSection() { Get(storage_).~Native(); }

void CriticalSection::Enter() { Get(storage_).lock(); }
void CriticalSection::Leave() { Get(storage_).unlock(); }
bool CriticalSection::TryEnter() { return Get(storage_).try_lock(); }

}  // namespace platform
