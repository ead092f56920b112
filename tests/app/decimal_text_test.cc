#include "app/decimal_text.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

TEST(DecimalTextTest, ReadsLeadingDigitsAfterWhiteSpaceAndSignClampedToTheRange) {
  const struct {
    const char* text;
    int value;
  } cases[] = {
      {"250", 250}, {"  250", 250}, {"\t\r\n 7", 7}, {"250ms", 250}, {"00", 0}, {"08", 8}, {"-5", -5},
      {"+12", 12}, {"1 2", 1},
      // No digits give 0.
      {"", 0}, {"abc", 0}, {"   ", 0}, {"-", 0}, {"- 5", 0}, {"x250", 0},
      {"2147483647", INT_MAX}, {"2147483648", INT_MAX}, {"-2147483648", INT_MIN}, {"-2147483649", INT_MIN},
      {"99999999999999999999999999999999", INT_MAX}, {"-99999999999999999999999999999999", INT_MIN},
  };
  for (const auto& c : cases) EXPECT_EQ(DecimalTextToInt(c.text), c.value) << "'" << c.text << "'";
}

}  // namespace
