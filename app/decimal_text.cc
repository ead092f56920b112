#include "app/decimal_text.h"

#include <climits>
#include <cstdint>

namespace {

// The white space the C runtime skips in the "C" locale.
bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

}  // namespace

int DecimalTextToInt(const std::string& text) {
  std::size_t i = 0;
  while (i < text.size() && IsSpace(text[i])) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
    negative = text[i] == '-';
    ++i;
  }
  // Accumulate the magnitude and stop growing it once it is past the range,
  // so no arithmetic ever overflows however many digits follow.
  const int64_t limit = negative ? -static_cast<int64_t>(INT_MIN) : INT_MAX;
  int64_t magnitude = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    if (magnitude <= limit) magnitude = magnitude * 10 + (text[i] - '0');
  }
  if (magnitude > limit) magnitude = limit;
  return static_cast<int>(negative ? -magnitude : magnitude);
}
