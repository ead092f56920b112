#pragma once
// Copies of a few bytes whose length is known only at run time, shared by the
// element tree and the row writer.

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace xml_output {

// memcpy of a run-time length is a library call, which costs more than the copy
// itself for the few bytes of a typical name or value: two overlapping word
// copies instead. Reads and writes exactly [from, from + n). Returns out + n.
inline char* CopyShort(char* out, const char* from, size_t n) {
  if (n > 16) {
    std::memcpy(out, from, n);
  } else if (n >= 8) {
    uint64_t head;
    uint64_t tail;
    std::memcpy(&head, from, 8);
    std::memcpy(&tail, from + n - 8, 8);
    std::memcpy(out, &head, 8);
    std::memcpy(out + n - 8, &tail, 8);
  } else if (n >= 4) {
    uint32_t head;
    uint32_t tail;
    std::memcpy(&head, from, 4);
    std::memcpy(&tail, from + n - 4, 4);
    std::memcpy(out, &head, 4);
    std::memcpy(out + n - 4, &tail, 4);
  } else {
    for (size_t i = 0; i < n; ++i) out[i] = from[i];
  }
  return out + n;
}

}  // namespace xml_output
