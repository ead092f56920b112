#include "rfc/function/rfc_field_info.h"

#include <cstring>

namespace {

constexpr size_t kNameCapacity = sizeof(CRfcFieldInfo::name) - 1;

}  // namespace

void SetFieldName(CRfcFieldInfo& field, const char* text) {
  size_t length = 0;
  if (text != nullptr) {
    const void* end = std::memchr(text, '\0', kNameCapacity);
    length = end != nullptr ? static_cast<size_t>(static_cast<const char*>(end) - text)
                            : kNameCapacity;
  }
  while (length > 0 && text[length - 1] == ' ') --length;
  if (length > 0) std::memmove(field.name, text, length);
  std::memset(field.name + length, 0, sizeof field.name - length);
}

size_t FieldNameLength(const CRfcFieldInfo& field) {
  const void* end = std::memchr(field.name, '\0', sizeof field.name);
  return end != nullptr ? static_cast<size_t>(static_cast<const char*>(end) - field.name)
                        : sizeof field.name;
}
