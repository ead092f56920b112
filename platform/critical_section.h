#pragma once
// Re-entrant critical sections: the owning thread may enter again.

#include <cstddef>

namespace platform {

class CriticalSection {
 public:
  CriticalSection();
  ~CriticalSection();
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  void Enter();
  void Leave();
  bool TryEnter();

 private:
  // The system's own lock object lives here, without a system type in
  // this header and without an allocation.
  alignas(alignof(std::max_align_t)) unsigned char storage_[64];
};

// Holds a critical section for the lifetime of the guard.
class CriticalSectionLock {
 public:
  explicit CriticalSectionLock(CriticalSection& section) : section_(section) { section_.Enter(); }
  ~CriticalSectionLock() { section_.Leave(); }
  CriticalSectionLock(const CriticalSectionLock&) = delete;
  CriticalSectionLock& operator=(const CriticalSectionLock&) = delete;

 private:
  CriticalSection& section_;
};

}  // namespace platform
