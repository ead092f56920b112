// Exact decimal numbers: parsing, rounding and packed decimals.

#include <cstring>
#include <limits>

#include <gtest/gtest.h>

#include "sapsim/wire/decimal_number.h"

namespace sapsim::wire {
namespace {

DecimalNumber Parse(const char* text, bool exponent = false) {
  DecimalNumber number;
  std::string error;
  EXPECT_TRUE(DecimalNumber::Parse(text, exponent, &number, &error)) << text << ": " << error;
  return number;
}

std::string Packed(const char* text, size_t length, int decimals) {
  std::vector<uint8_t> bytes(length);
  std::string error;
  if (!Parse(text).ToPacked(bytes.data(), length, decimals, &error)) return "error: " + error;
  std::string hex;
  char buf[4];
  for (uint8_t b : bytes) {
    std::snprintf(buf, sizeof buf, "%02X", b);
    hex += buf;
  }
  return hex;
}

TEST(DecimalNumber, ParsesTheFormsTextValuesComeIn) {
  EXPECT_EQ("12.50", Parse("  12.50 ").ToText());
  EXPECT_EQ("-12", Parse("12-").ToText());  // trailing sign, as ABAP writes it
  EXPECT_EQ("-0.5", Parse("-.5").ToText());
  EXPECT_EQ("0", Parse("").ToText());
  EXPECT_EQ("0", Parse("-0").ToText());
  EXPECT_EQ("7", Parse("0007").ToText());
  EXPECT_EQ("1500", Parse("1.5E3", true).ToText());
  EXPECT_EQ("0.00025", Parse("2.5e-4", true).ToText());

  DecimalNumber out;
  std::string error;
  for (const char* bad : {"abc", "1.2.3", "-", ".", "1 2", "1e5", "12x"}) {
    EXPECT_FALSE(DecimalNumber::Parse(bad, false, &out, &error)) << bad;
    EXPECT_NE(std::string::npos, error.find("not a number")) << bad << ": " << error;
  }
  EXPECT_FALSE(DecimalNumber::Parse("1e", true, &out, &error));
}

TEST(DecimalNumber, RoundsHalfAwayFromZero) {
  EXPECT_EQ("1.24", Parse("1.235").Rescaled(2).ToText());
  EXPECT_EQ("-1.24", Parse("-1.235").Rescaled(2).ToText());
  EXPECT_EQ("1.23", Parse("1.2349").Rescaled(2).ToText());
  EXPECT_EQ("10.0", Parse("9.95").Rescaled(1).ToText());
  EXPECT_EQ("1", Parse("0.5").Rescaled(0).ToText());
  EXPECT_EQ("5.00", Parse("5").Rescaled(2).ToText());
  EXPECT_EQ("0", Parse("0.4").Rescaled(0).ToText());
}

TEST(DecimalNumber, PacksDigitsWithTheSignNibble) {
  EXPECT_EQ("00123C", Packed("1.23", 3, 2));
  EXPECT_EQ("00314D", Packed("-3.14159", 3, 2));
  EXPECT_EQ("00500C", Packed("5", 3, 2));
  EXPECT_EQ("012C", Packed("12.4", 2, 0));
  EXPECT_EQ("013C", Packed("12.5", 2, 0));  // rounded, not cut
  EXPECT_EQ("00000C", Packed("", 3, 2));
  EXPECT_EQ(0u, Packed("1234", 3, 2).find("error: 1234 does not fit"));
  EXPECT_EQ("99999C", Packed("999.99", 3, 2));
  EXPECT_EQ(0u, Packed("999.995", 3, 2).find("error:"));  // rounding overflows
}

TEST(DecimalNumber, UnpacksAndRefusesBadNibbles) {
  const uint8_t value[] = {0x00, 0x12, 0x3C};
  DecimalNumber number;
  std::string error;
  ASSERT_TRUE(DecimalNumber::FromPacked(value, 3, 2, &number, &error));
  EXPECT_EQ("1.23", number.ToText());
  const uint8_t negative[] = {0x00, 0x1D};
  ASSERT_TRUE(DecimalNumber::FromPacked(negative, 2, 0, &number, &error));
  EXPECT_EQ("-1", number.ToText());
  const uint8_t bad[] = {0x0A, 0x1C};
  EXPECT_FALSE(DecimalNumber::FromPacked(bad, 2, 0, &number, &error));
  EXPECT_NE(std::string::npos, error.find("invalid digit"));
  const uint8_t bad_last[] = {0xA1};  // the last byte's high nibble is a digit too
  EXPECT_FALSE(DecimalNumber::FromPacked(bad_last, 1, 0, &number, &error));
}

TEST(DecimalNumber, IntegersAndDoubles) {
  int64_t v = 0;
  EXPECT_TRUE(Parse("-9223372036854775808").ToInt(&v));
  EXPECT_EQ(std::numeric_limits<int64_t>::min(), v);
  EXPECT_FALSE(Parse("9223372036854775808").ToInt(&v));
  EXPECT_TRUE(Parse("2.5").ToInt(&v));
  EXPECT_EQ(3, v);
  EXPECT_EQ("-2147483648", DecimalNumber::FromInt(std::numeric_limits<int32_t>::min()).ToText());

  DecimalNumber number;
  ASSERT_TRUE(DecimalNumber::FromDouble(1.005, &number));
  EXPECT_EQ("1.01", number.Rescaled(2).ToText());  // what the user wrote, not the binary neighbour
  ASSERT_TRUE(DecimalNumber::FromDouble(-2.5e-7, &number));
  EXPECT_DOUBLE_EQ(-2.5e-7, number.ToDouble());
  EXPECT_FALSE(DecimalNumber::FromDouble(std::numeric_limits<double>::infinity(), &number));
}

}  // namespace
}  // namespace sapsim::wire
