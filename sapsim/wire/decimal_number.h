#pragma once
// An exact decimal number: the common ground of every numeric conversion
// (text, NUM, packed BCD, integers, floating point).

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace sapsim::wire {

class DecimalNumber {
 public:
  DecimalNumber() = default;
  static DecimalNumber FromInt(int64_t value);
  // The shortest text with 15 significant digits that reads back as the
  // value; false for infinities and NaN.
  static bool FromDouble(double value, DecimalNumber* out);
  // Blanks around the number are ignored; a sign may lead or trail ("12-"
  // is the ABAP way of writing minus twelve); one decimal point; an exponent
  // (E or e) only when `allow_exponent`. The empty text is zero.
  static bool Parse(std::string_view text, bool allow_exponent, DecimalNumber* out, std::string* error);
  // Packed decimal of `length` bytes with `decimals` implied fraction digits:
  // 2 * length - 1 digit nibbles and a sign nibble (D negative, else positive).
  static bool FromPacked(const uint8_t* data, size_t length, int decimals, DecimalNumber* out,
                         std::string* error);

  bool negative() const { return negative_; }
  bool IsZero() const { return digits_.empty(); }
  int scale() const { return scale_; }
  // Digits of the integer part, without leading zeros ("" for zero).
  std::string IntegerDigits() const;

  // Rounded half away from zero, or extended with zeros, to `scale` fraction digits.
  DecimalNumber Rescaled(int scale) const;
  // Plain text: "-12.50", "0", "0.05"; as many fraction digits as the scale.
  std::string ToText() const;
  // Rounds to an integer first; false when outside the int64 range.
  bool ToInt(int64_t* out) const;
  double ToDouble() const;
  // Rounds to `decimals` and packs into `length` bytes; false when the
  // digits do not fit.
  bool ToPacked(uint8_t* out, size_t length, int decimals, std::string* error) const;

 private:
  void Normalise();

  bool negative_ = false;
  std::string digits_;  // all digits, integer and fraction, no leading zeros
  int scale_ = 0;       // how many of the digits are the fraction
};

}  // namespace sapsim::wire
