#include "access/decimal_prefix.h"

#include <limits>

int32_t DecimalPrefix(const std::string& text) {
  constexpr int64_t kLargest = std::numeric_limits<int32_t>::max();
  int64_t value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') break;
    value = value * 10 + (c - '0');
    if (value > kLargest) return static_cast<int32_t>(kLargest);
  }
  return static_cast<int32_t>(value);
}
