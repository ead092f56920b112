#pragma once
// Re-entrant critical sections: the owning thread may enter again.

#include <mutex>

namespace platform {

class CriticalSection {
 public:
  void Enter() { mutex_.lock(); }
  void Leave() { mutex_.unlock(); }
  bool TryEnter() { return mutex_.try_lock(); }

 private:
  std::recursive_mutex mutex_;
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
