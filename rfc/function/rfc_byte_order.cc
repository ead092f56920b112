#include "rfc/function/rfc_byte_order.h"

#include <atomic>

namespace {

std::atomic<int> g_byte_order_switch{0};

}  // namespace

int GetRfcByteOrderSwitch() { return g_byte_order_switch.load(std::memory_order_relaxed); }

void SetRfcByteOrderSwitch(int on) {
  g_byte_order_switch.store(on != 0 ? 1 : 0, std::memory_order_relaxed);
}
