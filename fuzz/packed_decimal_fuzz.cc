// Packed decimals on arbitrary input: no crash, no read or write outside the
// value, and the round trips that must hold do.
//
// Input: byte 0 picks the length (1..70, so lengths beyond 64 occur), byte 1
// the decimals (also out of range), byte 2 the operation; the rest is the
// text or the packed bytes.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "rfc/core/rfc_data.h"

namespace {

void Check(bool condition) {
  if (!condition) std::abort();
}

bool Valid(int length, int decimals) {
  return length >= 1 && length <= 64 && decimals >= 0 && decimals <= 2 * length - 1;
}

struct Packed {
  Packed(int length, int decimals) : bytes(static_cast<size_t>(length), 0x5A), data(1) {
    data.Init(bytes.data(), TYPE_BCD, length, decimals);
  }
  // Assigns a text the packed-to-text conversion wrote. Through the operator,
  // which drops the 0 before the point that an all-fraction value reads with
  // and Str2BCD would count as an integer digit.
  bool Assign(const char* text) {
    try {
      data = text;
    } catch (const char*) {
      return false;
    }
    return true;
  }
  std::vector<unsigned char> bytes;
  CRfcData data;
};

// Sign, a 0 before the point, the point, every digit, the terminator.
size_t TextSize(int length) { return 2 * static_cast<size_t>(length) + 3; }

// Text to packed, then back: the text the packed value reads as must give
// the same bytes again.
void TextToPacked(int length, int decimals, const std::string& input) {
  Packed value(length, decimals);
  std::vector<char> text(input.begin(), input.end());
  text.push_back('\0');
  const std::vector<unsigned char> before = value.bytes;
  if (value.data.Str2BCD(text.data(), value.bytes.data()) == 0) {
    Check(value.bytes == before);
    return;
  }
  Check(Valid(length, decimals));
  std::vector<char> out(TextSize(length), '\x7F');
  Check(value.data.BCD2Str(out.data(), value.bytes.data()) == 1);
  Check(std::memchr(out.data(), '\0', out.size()) != nullptr);
  Packed again(length, decimals);
  Check(again.Assign(out.data()));
  Check(again.bytes == value.bytes);
}

// Packed bytes to text, then back: equal bytes, the sign nibble normalised.
void PackedToText(int length, int decimals, const uint8_t* data, size_t size) {
  Packed value(length, decimals);
  for (size_t i = 0; i < value.bytes.size() && i < size; ++i) value.bytes[i] = data[i];
  std::vector<char> out(TextSize(length), '\x7F');
  if (value.data.BCD2Str(out.data(), value.bytes.data()) == 0) return;
  Check(std::memchr(out.data(), '\0', out.size()) != nullptr);
  Packed again(length, decimals);
  Check(again.Assign(out.data()));
  std::vector<unsigned char> expected = value.bytes;
  unsigned char& last = expected.back();
  last = static_cast<unsigned char>((last & 0xF0) | ((last & 0x0F) == 0x0D ? 0x0D : 0x0C));
  Check(again.bytes == expected);
}

// The operators: a failed assignment throws and leaves the bytes; a
// successful one reads back as a text that assigns to the same bytes.
void Operators(int length, int decimals, const std::string& input) {
  Packed value(length, decimals);
  const std::vector<unsigned char> before = value.bytes;
  try {
    value.data = input.c_str();
  } catch (const char*) {
    Check(value.bytes == before);
    return;
  }
  std::string text;
  try {
    text = static_cast<CSTR>(value.data);
  } catch (const char*) {
    // An empty assignment may still leave unreadable bytes only if nothing was
    // stored; anything stored must read back.
    Check(value.bytes == before);
    return;
  }
  Check(text.size() < TextSize(length));
  Packed again(length, decimals);
  again.data = text.c_str();
  Check(again.bytes == value.bytes);
  static_cast<void>(static_cast<RFC_INT>(value.data));
  static_cast<void>(static_cast<RFC_FLOAT>(value.data));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const int length = 1 + data[0] % 70;
  const int decimals = static_cast<int>(data[1] % 140) - 2;
  const int operation = data[2] % 4;
  const uint8_t* rest = data + 3;
  const size_t rest_size = size - 3;
  const std::string text(reinterpret_cast<const char*>(rest),
                         strnlen(reinterpret_cast<const char*>(rest), rest_size));
  switch (operation) {
    case 0:
      TextToPacked(length, decimals, text);
      break;
    case 1:
      PackedToText(length, decimals, rest, rest_size);
      break;
    case 2:
      Operators(length, decimals, text);
      break;
    default: {
      // An integer: stored exactly when it fits, and read back unchanged.
      Packed value(length, decimals);
      const std::vector<unsigned char> before = value.bytes;
      const RFC_INT number = static_cast<RFC_INT>(
          rest_size >= 4 ? static_cast<uint32_t>(rest[0] | rest[1] << 8 | rest[2] << 16) |
                               static_cast<uint32_t>(rest[3]) << 24
                         : static_cast<uint32_t>(rest_size));
      try {
        value.data = number;
      } catch (const char*) {
        Check(value.bytes == before);
        break;
      }
      Check(static_cast<RFC_INT>(value.data) == number);
      break;
    }
  }
  return 0;
}
