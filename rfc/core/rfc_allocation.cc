// Planned allocation failures, for tests of the out-of-memory paths.

#include "rfc/core/rfc_allocation.h"

#include <mutex>

namespace rfc {
namespace internal {

std::atomic<bool> g_allocation_faults_planned{false};

namespace {

struct FaultPlan {
  std::mutex mutex;
  int skip = 0;
  int fail = 0;
};

FaultPlan& Plan() {
  static FaultPlan plan;
  return plan;
}

}  // namespace

bool TakeAllocationFault() {
  FaultPlan& plan = Plan();
  std::lock_guard<std::mutex> lock(plan.mutex);
  if (plan.skip > 0) {
    --plan.skip;
    return false;
  }
  if (plan.fail > 0) {
    if (--plan.fail == 0) g_allocation_faults_planned.store(false, std::memory_order_relaxed);
    return true;
  }
  g_allocation_faults_planned.store(false, std::memory_order_relaxed);
  return false;
}

}  // namespace internal

namespace testing {

void FailAllocations(int after, int count) {
  internal::FaultPlan& plan = internal::Plan();
  std::lock_guard<std::mutex> lock(plan.mutex);
  plan.skip = after > 0 ? after : 0;
  plan.fail = count > 0 ? count : 0;
  internal::g_allocation_faults_planned.store(plan.fail > 0, std::memory_order_relaxed);
}

void ClearAllocationFaults() { FailAllocations(0, 0); }

int PendingAllocationFaults() {
  internal::FaultPlan& plan = internal::Plan();
  std::lock_guard<std::mutex> lock(plan.mutex);
  return plan.fail;
}

}  // namespace testing
}  // namespace rfc
