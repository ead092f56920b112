#pragma once
// The class library's allocations that have a reported failure path ("Failed
// to allocate memory!" with trace lines) go through these helpers. They return
// null instead of throwing, so the caller can report as it must. Tests make
// them fail on purpose through rfc::testing.
//
// When no failure is planned the check costs one relaxed atomic load.

#include <atomic>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace rfc {
namespace internal {

extern std::atomic<bool> g_allocation_faults_planned;
// True when the planned faults say this allocation must fail.
bool TakeAllocationFault();

inline bool AllocationFails() {
  return g_allocation_faults_planned.load(std::memory_order_relaxed) && TakeAllocationFault();
}

}  // namespace internal

// One object, or null when memory is exhausted (or a failure was planned).
template <typename T, typename... Args>
std::unique_ptr<T> RfcAllocate(Args&&... args) {
  if (internal::AllocationFails()) return nullptr;
  return std::unique_ptr<T>(new (std::nothrow) T(std::forward<Args>(args)...));
}

// `count` value-initialised elements, or null as above.
template <typename T>
std::unique_ptr<T[]> RfcAllocateArray(size_t count) {
  if (internal::AllocationFails()) return nullptr;
  return std::unique_ptr<T[]>(new (std::nothrow) T[count]());
}

namespace testing {

// The next `after` allocations succeed, the `count` after them fail; then all
// succeed again. Replaces any earlier plan. Counts allocations of all threads.
void FailAllocations(int after, int count);
inline void FailNextAllocation() { FailAllocations(0, 1); }
// Drops the plan.
void ClearAllocationFaults();
// Failures of the current plan that have not happened yet.
int PendingAllocationFaults();

}  // namespace testing
}  // namespace rfc
