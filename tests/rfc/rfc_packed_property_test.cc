// Packed decimals over every length 1..16 and every number of decimals
// 0..2L-2: random texts and random packed bytes survive the round trip, the
// numeric readings agree with the text, extra fraction digits are cut and one
// integer digit too many is refused. Fixed seeds, so a failure repeats.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "rfc/core/rfc_data.h"

namespace {

constexpr int kCasesPerShape = 300;

struct Packed {
  Packed(int length, int decimals) : bytes(static_cast<size_t>(length)), data(1) {
    data.Init(bytes.data(), TYPE_BCD, length, decimals);
  }
  // Str2BCD on a copy of `text`; 1 or 0.
  int Store(const std::string& text) {
    std::vector<char> input(text.begin(), text.end());
    input.push_back('\0');
    return data.Str2BCD(input.data(), bytes.data());
  }
  std::string Read() {
    std::vector<char> text(2 * bytes.size() + 2);
    return data.BCD2Str(text.data(), bytes.data()) == 1 ? std::string(text.data()) : "<failed>";
  }
  std::vector<unsigned char> bytes;
  CRfcData data;
};

// A decimal text as the packed-to-text conversion writes it: no leading
// zeros, "0" before a point with no integer digits, exactly D fraction
// digits, a minus sign only for values other than zero.
std::string RandomCanonicalText(std::mt19937& random, int length, int decimals) {
  std::uniform_int_distribution<int> digit(0, 9);
  const int integer_digits =
      std::uniform_int_distribution<int>(0, 2 * length - 1 - decimals)(random);
  std::string integer;
  for (int i = 0; i < integer_digits; ++i) {
    integer += static_cast<char>('0' + (i == 0 ? 1 + digit(random) % 9 : digit(random)));
  }
  std::string fraction;
  for (int i = 0; i < decimals; ++i) fraction += static_cast<char>('0' + digit(random));
  const bool zero = integer.empty() && fraction.find_first_not_of('0') == std::string::npos;
  std::string text = !zero && random() % 2 == 0 ? "-" : "";
  text += integer.empty() ? "0" : integer;
  if (decimals > 0) text += "." + fraction;
  return text;
}

class PackedShapes : public ::testing::TestWithParam<int> {};

TEST_P(PackedShapes, TextsRoundTripAndReadAsTheirNumbers) {
  const int length = GetParam();
  std::mt19937 random(1000u + static_cast<unsigned>(length));
  for (int decimals = 0; decimals <= 2 * length - 2; ++decimals) {
    SCOPED_TRACE("L=" + std::to_string(length) + " D=" + std::to_string(decimals));
    for (int i = 0; i < kCasesPerShape; ++i) {
      const std::string text = RandomCanonicalText(random, length, decimals);
      Packed value(length, decimals);
      ASSERT_EQ(value.Store(text), 1) << text;
      ASSERT_EQ(value.Read(), text);

      // The assignment drops a plus sign and leading zeros; the cut drops
      // fraction digits beyond D without rounding.
      Packed again(length, decimals);
      const bool room = text.size() + 2 <= 2 * static_cast<size_t>(length) + 2;
      const std::string decorated = text[0] != '-' && room ? "+0" + text : text;
      again.data = decorated.c_str();
      ASSERT_EQ(again.bytes, value.bytes) << decorated;
      Packed cut(length, decimals);
      ASSERT_EQ(cut.Store(text + (decimals == 0 ? ".99" : "99")), 1);
      ASSERT_EQ(cut.bytes, value.bytes) << text;

      ASSERT_EQ(static_cast<RFC_FLOAT>(value.data), std::strtod(text.c_str(), nullptr)) << text;
      const long long integer_part = std::strtoll(text.c_str(), nullptr, 10);
      if (integer_part >= INT32_MIN && integer_part <= INT32_MAX) {
        ASSERT_EQ(static_cast<RFC_INT>(value.data), integer_part) << text;
      }
    }
    // One integer digit more than 2L-1-D is refused and changes nothing.
    const std::string too_long(static_cast<size_t>(2 * length - decimals), '7');
    Packed value(length, decimals);
    std::fill(value.bytes.begin(), value.bytes.end(), 0x11);
    EXPECT_EQ(value.Store(too_long), 0);
    EXPECT_EQ(value.bytes, std::vector<unsigned char>(static_cast<size_t>(length), 0x11));
    EXPECT_EQ(value.Store(too_long.substr(1)), 1);
  }
}

TEST_P(PackedShapes, BytesRoundTripThroughText) {
  const int length = GetParam();
  std::mt19937 random(2000u + static_cast<unsigned>(length));
  std::uniform_int_distribution<int> digit(0, 9);
  for (int decimals = 0; decimals <= 2 * length - 2; ++decimals) {
    for (int i = 0; i < kCasesPerShape; ++i) {
      Packed value(length, decimals);
      // Mostly sparse values, so that leading zeros and zero values occur.
      for (unsigned char& byte : value.bytes) {
        byte =
            random() % 3 == 0 ? 0 : static_cast<unsigned char>(digit(random) << 4 | digit(random));
      }
      unsigned char& last = value.bytes.back();
      last = static_cast<unsigned char>((last & 0xF0) | (random() % 2 == 0 ? 0x0C : 0x0D));
      const std::string text = value.Read();
      Packed back(length, decimals);
      ASSERT_EQ(back.Store(text), 1) << text;
      ASSERT_EQ(back.bytes, value.bytes) << text << " L=" << length << " D=" << decimals;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Lengths1To16, PackedShapes, ::testing::Range(1, 17));

}  // namespace
