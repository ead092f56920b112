#include "rfc/core/rfc_thrown_text.h"

#include <array>
#include <cstddef>
#include <string>

namespace {

constexpr size_t kRingSize = 8;

struct TextRing {
  std::array<std::string, kRingSize> texts;
  size_t next = 0;
};

}  // namespace

const char* KeepThrownText(const char* text) {
  thread_local TextRing ring;
  std::string& slot = ring.texts[ring.next];
  ring.next = (ring.next + 1) % kRingSize;
  slot = text != nullptr ? text : "";
  return slot.c_str();
}
