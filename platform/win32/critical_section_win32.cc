// Re-entrant critical sections on Windows: CRITICAL_SECTION, re-entrant by
// nature.

#include "platform/critical_section.h"

#include <windows.h>

#include <new>

namespace platform {
namespace {

CRITICAL_SECTION* Get(unsigned char* storage) {
  return std::launder(reinterpret_cast<CRITICAL_SECTION*>(storage));
}

}  // namespace

CriticalSection::CriticalSection() {
  static_assert(sizeof(CRITICAL_SECTION) <= sizeof storage_ &&
                    alignof(CRITICAL_SECTION) <= alignof(std::max_align_t),
                "the critical section fits the storage");
  InitializeCriticalSection(new (storage_) CRITICAL_SECTION);
}

CriticalSection::~CriticalSection() { DeleteCriticalSection(Get(storage_)); }

void CriticalSection::Enter() { EnterCriticalSection(Get(storage_)); }
void CriticalSection::Leave() { LeaveCriticalSection(Get(storage_)); }
bool CriticalSection::TryEnter() { return TryEnterCriticalSection(Get(storage_)) != 0; }

}  // namespace platform
