#include "sapsim/server/code_page.h"

#include <cstdint>
#include <cstdio>

namespace sapsim::server {

const char kSystemCodePage[] = "ISO-8859-1";

namespace {

std::string CodePoint(uint32_t c) {
  char hex[16];
  std::snprintf(hex, sizeof hex, "U+%04X", static_cast<unsigned>(c));
  return hex;
}

}  // namespace

bool ToSystemCodePage(const std::string& utf8, std::string* out, std::string* why) {
  out->clear();
  out->reserve(utf8.size());
  size_t i = 0;
  size_t character = 0;  // 1-based position of the character being read
  while (i < utf8.size()) {
    ++character;
    const auto lead = static_cast<uint8_t>(utf8[i]);
    if (lead < 0x80) {
      out->push_back(static_cast<char>(lead));
      ++i;
      continue;
    }
    // The length of the sequence and the smallest code point it may carry
    // (a longer sequence than needed is not UTF-8).
    size_t length = 0;
    uint32_t code = 0;
    uint32_t least = 0;
    if ((lead & 0xE0) == 0xC0) {
      length = 2, code = lead & 0x1F, least = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
      length = 3, code = lead & 0x0F, least = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
      length = 4, code = lead & 0x07, least = 0x10000;
    }
    bool valid = length != 0 && i + length <= utf8.size();
    for (size_t k = 1; valid && k < length; ++k) {
      const auto next = static_cast<uint8_t>(utf8[i + k]);
      valid = (next & 0xC0) == 0x80;
      code = (code << 6) | (next & 0x3F);
    }
    if (!valid || code < least || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
      *why = "character " + std::to_string(character) + " is not UTF-8 (byte " + std::to_string(i + 1) + ")";
      return false;
    }
    if (code > 0xFF) {
      *why = "character " + std::to_string(character) + " \"" + utf8.substr(i, length) + "\" (" + CodePoint(code) +
             ") has no place in " + kSystemCodePage;
      return false;
    }
    out->push_back(static_cast<char>(code));
    i += length;
  }
  return true;
}

}  // namespace sapsim::server
