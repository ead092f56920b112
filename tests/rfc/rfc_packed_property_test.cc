// Packed decimals over every length 1..16 and every number of decimals
// 0..2L-2: random texts and random packed bytes survive the round trip, and
// the numeric readings agree with the text. Fixed seeds, so a failure repeats.

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "rfc/core/rfc_data.h"

namespace {

constexpr int kCasesPerShape = 300;

struct Packed {
  Packed(int length, int decimals) : bytes(static_cast<size_t>(length)), data(1) {
    data.Init(bytes.data(), TYPE_BCD, length, decimals);
  }
  std::vector<unsigned char> bytes;
  CRfcData data;
};

// A decimal text as the packed-to-text conversion writes it: no leading
// zeros, "0" before a point with no integer digits, exactly D fraction
// digits, a minus sign only for values other than zero.
std::string RandomCanonicalText(std::mt19937& random, int length, int decimals) {
  const int integer_places = 2 * length - 1 - decimals;
  std::uniform_int_distribution<int> digit(0, 9);
  std::uniform_int_distribution<int> nonzero(1, 9);
  std::uniform_int_distribution<int> places(0, integer_places);
  const int integer_digits = places(random);
  std::string integer;
  for (int i = 0; i < integer_digits; ++i) {
    integer += static_cast<char>('0' + (i == 0 ? nonzero(random) : digit(random)));
  }
  std::string fraction;
  for (int i = 0; i < decimals; ++i) fraction += static_cast<char>('0' + digit(random));
  const bool zero = integer.empty() && fraction.find_first_not_of('0') == std::string::npos;
  const bool negative = !zero && random() % 2 == 0;
  std::string text = negative ? "-" : "";
  text += integer.empty() ? "0" : integer;
  if (decimals > 0) text += "." + fraction;
  return text;
}

class PackedShapes : public ::testing::TestWithParam<int> {};

TEST_P(PackedShapes, TextRoundTripsThroughPackedBytes) {
  const int length = GetParam();
  std::mt19937 random(1000u + static_cast<unsigned>(length));
  for (int decimals = 0; decimals <= 2 * length - 2; ++decimals) {
    for (int i = 0; i < kCasesPerShape; ++i) {
      const std::string text = RandomCanonicalText(random, length, decimals);
      Packed value(length, decimals);
      std::vector<char> input(text.begin(), text.end());
      input.push_back('\0');
      ASSERT_EQ(value.data.Str2BCD(input.data(), value.bytes.data()), 1)
          << text << " L=" << length << " D=" << decimals;
      std::vector<char> output(2 * static_cast<size_t>(length) + 2);
      ASSERT_EQ(value.data.BCD2Str(output.data(), value.bytes.data()), 1);
      ASSERT_EQ(std::string(output.data()), text) << "L=" << length << " D=" << decimals;

      // The same through the assignment and reading operators, with a plus
      // sign and leading zeros that the assignment drops.
      Packed again(length, decimals);
      const std::string decorated =
          text[0] == '-' ? text : (text.size() + 2 <= 2 * static_cast<size_t>(length) + 2
                                       ? "+0" + text
                                       : text);
      again.data = decorated.c_str();
      ASSERT_EQ(again.bytes, value.bytes) << decorated;
      ASSERT_EQ(std::string(static_cast<CSTR>(again.data)), text);

      ASSERT_EQ(static_cast<RFC_FLOAT>(value.data), std::strtod(text.c_str(), nullptr)) << text;
      const long long integer_part = std::strtoll(text.c_str(), nullptr, 10);
      if (integer_part >= INT32_MIN && integer_part <= INT32_MAX) {
        ASSERT_EQ(static_cast<RFC_INT>(value.data), integer_part) << text;
      }
    }
  }
}

TEST_P(PackedShapes, PackedBytesRoundTripThroughText) {
  const int length = GetParam();
  std::mt19937 random(2000u + static_cast<unsigned>(length));
  std::uniform_int_distribution<int> digit(0, 9);
  for (int decimals = 0; decimals <= 2 * length - 2; ++decimals) {
    for (int i = 0; i < kCasesPerShape; ++i) {
      Packed value(length, decimals);
      for (int b = 0; b < length; ++b) {
        value.bytes[static_cast<size_t>(b)] = static_cast<unsigned char>(digit(random) << 4 | digit(random));
      }
      // Mostly sparse values, so that leading zeros and zero values occur.
      for (int b = 0; b < length; ++b) {
        if (random() % 3 == 0) value.bytes[static_cast<size_t>(b)] = 0;
      }
      unsigned char& last = value.bytes.back();
      last = static_cast<unsigned char>((last & 0xF0) | (random() % 2 == 0 ? 0x0C : 0x0D));
      const std::vector<unsigned char> original = value.bytes;

      std::vector<char> text(2 * static_cast<size_t>(length) + 2);
      ASSERT_EQ(value.data.BCD2Str(text.data(), value.bytes.data()), 1);
      Packed back(length, decimals);
      ASSERT_EQ(back.data.Str2BCD(text.data(), back.bytes.data()), 1) << text.data();
      ASSERT_EQ(back.bytes, original) << text.data() << " L=" << length << " D=" << decimals;
    }
  }
}

TEST_P(PackedShapes, ExtraFractionDigitsAreCutNotRounded) {
  const int length = GetParam();
  std::mt19937 random(3000u + static_cast<unsigned>(length));
  for (int decimals = 0; decimals <= 2 * length - 2; ++decimals) {
    for (int i = 0; i < kCasesPerShape / 10; ++i) {
      const std::string text = RandomCanonicalText(random, length, decimals);
      const std::string longer = text + (decimals == 0 ? ".99" : "99");
      Packed exact(length, decimals);
      Packed cut(length, decimals);
      std::vector<char> a(text.begin(), text.end());
      a.push_back('\0');
      std::vector<char> b(longer.begin(), longer.end());
      b.push_back('\0');
      ASSERT_EQ(exact.data.Str2BCD(a.data(), exact.bytes.data()), 1);
      ASSERT_EQ(cut.data.Str2BCD(b.data(), cut.bytes.data()), 1) << longer;
      ASSERT_EQ(cut.bytes, exact.bytes) << longer;
    }
  }
}

TEST_P(PackedShapes, OneIntegerDigitTooManyFails) {
  const int length = GetParam();
  for (int decimals = 0; decimals <= 2 * length - 2; ++decimals) {
    const std::string text(static_cast<size_t>(2 * length - decimals), '7');
    Packed value(length, decimals);
    std::fill(value.bytes.begin(), value.bytes.end(), 0x11);
    std::vector<char> input(text.begin(), text.end());
    input.push_back('\0');
    EXPECT_EQ(value.data.Str2BCD(input.data(), value.bytes.data()), 0) << text;
    EXPECT_EQ(value.bytes, std::vector<unsigned char>(static_cast<size_t>(length), 0x11));
    const std::string fits = text.substr(1);
    input.assign(fits.begin(), fits.end());
    input.push_back('\0');
    EXPECT_EQ(value.data.Str2BCD(input.data(), value.bytes.data()), 1) << fits;
  }
}

INSTANTIATE_TEST_SUITE_P(Lengths1To16, PackedShapes, ::testing::Range(1, 17));

}  // namespace
