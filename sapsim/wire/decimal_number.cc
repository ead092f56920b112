#include "sapsim/wire/decimal_number.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace sapsim::wire {

namespace {
constexpr int kMaxScale = 255;
constexpr size_t kMaxDigits = 1024;

bool IsBlank(char c) { return c == ' ' || c == '\t'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
}  // namespace

void DecimalNumber::Normalise() {
  size_t first = 0;
  // Leading zeros of the integer part carry nothing.
  size_t integer_digits = digits_.size() > static_cast<size_t>(scale_) ? digits_.size() - scale_ : 0;
  while (first < integer_digits && digits_[first] == '0') ++first;
  digits_.erase(0, first);
  if (digits_.find_first_not_of('0') == std::string::npos) {
    digits_.clear();
    negative_ = false;
  }
  // Keep the digits at least as long as the scale so the point has a place.
  if (!digits_.empty() && digits_.size() < static_cast<size_t>(scale_)) {
    digits_.insert(0, static_cast<size_t>(scale_) - digits_.size(), '0');
  }
}

DecimalNumber DecimalNumber::FromInt(int64_t value) {
  DecimalNumber number;
  uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
  number.negative_ = value < 0;
  number.digits_ = magnitude == 0 ? "" : std::to_string(magnitude);
  number.Normalise();
  return number;
}

bool DecimalNumber::FromDouble(double value, DecimalNumber* out) {
  if (!std::isfinite(value)) return false;
  char text[64];
  std::snprintf(text, sizeof text, "%.15g", value);
  std::string error;
  return Parse(text, true, out, &error);
}

bool DecimalNumber::Parse(std::string_view text, bool allow_exponent, DecimalNumber* out,
                          std::string* error) {
  size_t begin = 0;
  size_t end = text.size();
  while (begin < end && IsBlank(text[begin])) ++begin;
  while (end > begin && IsBlank(text[end - 1])) --end;
  std::string_view body = text.substr(begin, end - begin);
  DecimalNumber number;
  if (body.empty()) {
    *out = number;
    return true;
  }
  bool negative = false;
  if (body.front() == '+' || body.front() == '-') {
    negative = body.front() == '-';
    body.remove_prefix(1);
  } else if (body.back() == '-' || body.back() == '+') {
    negative = body.back() == '-';
    body.remove_suffix(1);
  }
  std::string digits;
  int scale = 0;
  bool point = false;
  bool any_digit = false;
  size_t i = 0;
  for (; i < body.size(); ++i) {
    char c = body[i];
    if (IsDigit(c)) {
      digits += c;
      any_digit = true;
      if (point) ++scale;
    } else if (c == '.' && !point) {
      point = true;
    } else {
      break;
    }
  }
  long exponent = 0;
  if (i < body.size() && allow_exponent && (body[i] == 'E' || body[i] == 'e') && any_digit) {
    ++i;
    bool exp_negative = false;
    if (i < body.size() && (body[i] == '+' || body[i] == '-')) exp_negative = body[i++] == '-';
    size_t exp_start = i;
    while (i < body.size() && IsDigit(body[i]) && exponent < 100000) exponent = exponent * 10 + (body[i++] - '0');
    if (i == exp_start) {
      *error = "'" + std::string(text) + "' is not a number";
      return false;
    }
    if (exp_negative) exponent = -exponent;
  }
  if (i != body.size() || !any_digit) {
    *error = "'" + std::string(text) + "' is not a number";
    return false;
  }
  // Apply the exponent by moving the point.
  long new_scale = static_cast<long>(scale) - exponent;
  if (new_scale < 0) {
    if (digits.size() + static_cast<size_t>(-new_scale) > kMaxDigits) {
      *error = "'" + std::string(text) + "' is too large";
      return false;
    }
    digits.append(static_cast<size_t>(-new_scale), '0');
    new_scale = 0;
  }
  if (new_scale > kMaxScale || digits.size() > kMaxDigits) {
    *error = "'" + std::string(text) + "' has too many digits";
    return false;
  }
  number.negative_ = negative;
  number.digits_ = digits;
  number.scale_ = static_cast<int>(new_scale);
  number.Normalise();
  *out = number;
  return true;
}

bool DecimalNumber::FromPacked(const uint8_t* data, size_t length, int decimals, DecimalNumber* out,
                               std::string* error) {
  if (length == 0) {
    *error = "packed number of length 0";
    return false;
  }
  std::string digits;
  digits.reserve(2 * length);
  for (size_t i = 0; i < length; ++i) {
    uint8_t high = data[i] >> 4;
    uint8_t low = data[i] & 0x0F;
    if (high > 9 || (i + 1 < length && low > 9)) {
      *error = "invalid digit in packed number";
      return false;
    }
    digits += static_cast<char>('0' + high);
    if (i + 1 < length) digits += static_cast<char>('0' + low);
  }
  DecimalNumber number;
  number.negative_ = (data[length - 1] & 0x0F) == 0x0D;
  number.digits_ = digits;
  number.scale_ = decimals < 0 ? 0 : decimals;
  if (static_cast<size_t>(number.scale_) > digits.size()) {
    *error = "more decimals than digits in packed number";
    return false;
  }
  number.Normalise();
  *out = number;
  return true;
}

std::string DecimalNumber::IntegerDigits() const {
  if (digits_.size() <= static_cast<size_t>(scale_)) return "";
  return digits_.substr(0, digits_.size() - scale_);
}

DecimalNumber DecimalNumber::Rescaled(int scale) const {
  DecimalNumber result = *this;
  if (scale < 0) scale = 0;
  if (scale >= scale_) {
    if (!result.digits_.empty()) result.digits_.append(static_cast<size_t>(scale - scale_), '0');
    result.scale_ = scale;
    result.Normalise();
    return result;
  }
  size_t drop = static_cast<size_t>(scale_ - scale);
  bool round_up = false;
  if (drop <= result.digits_.size()) {
    round_up = result.digits_[result.digits_.size() - drop] >= '5';
    result.digits_.erase(result.digits_.size() - drop);
  } else {
    result.digits_.clear();
  }
  result.scale_ = scale;
  if (round_up) {
    // Add one to the last kept digit, carrying to the left.
    std::string& d = result.digits_;
    int i = static_cast<int>(d.size()) - 1;
    while (i >= 0 && d[static_cast<size_t>(i)] == '9') d[static_cast<size_t>(i--)] = '0';
    if (i >= 0) {
      ++d[static_cast<size_t>(i)];
    } else {
      d.insert(0, 1, '1');
    }
  }
  result.Normalise();
  return result;
}

std::string DecimalNumber::ToText() const {
  std::string integer = IntegerDigits();
  if (integer.empty()) integer = "0";
  std::string text = negative_ ? "-" : "";
  text += integer;
  if (scale_ > 0) {
    std::string fraction = digits_.empty() ? std::string(static_cast<size_t>(scale_), '0')
                                           : digits_.substr(digits_.size() - scale_);
    text += '.';
    text += fraction;
  }
  return text;
}

bool DecimalNumber::ToInt(int64_t* out) const {
  DecimalNumber whole = Rescaled(0);
  if (whole.digits_.size() > 19) return false;
  uint64_t magnitude = 0;
  for (char c : whole.digits_) magnitude = magnitude * 10 + static_cast<uint64_t>(c - '0');
  if (!whole.negative_ && magnitude > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return false;
  if (whole.negative_ && magnitude > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) + 1) return false;
  *out = whole.negative_ ? static_cast<int64_t>(0 - magnitude) : static_cast<int64_t>(magnitude);
  return true;
}

double DecimalNumber::ToDouble() const { return std::strtod(ToText().c_str(), nullptr); }

bool DecimalNumber::ToPacked(uint8_t* out, size_t length, int decimals, std::string* error) const {
  if (length == 0) {
    *error = "packed number of length 0";
    return false;
  }
  if (decimals < 0) decimals = 0;
  DecimalNumber rounded = Rescaled(decimals);
  size_t capacity = 2 * length - 1;
  if (rounded.digits_.size() > capacity) {
    *error = ToText() + " does not fit a packed number of " + std::to_string(length) + " bytes with " +
             std::to_string(decimals) + " decimals";
    return false;
  }
  std::string digits(capacity - rounded.digits_.size(), '0');
  digits += rounded.digits_;
  for (size_t i = 0; i < length; ++i) {
    uint8_t high = static_cast<uint8_t>(digits[2 * i] - '0');
    uint8_t low = i + 1 < length ? static_cast<uint8_t>(digits[2 * i + 1] - '0')
                                 : static_cast<uint8_t>(rounded.negative_ ? 0x0D : 0x0C);
    out[i] = static_cast<uint8_t>(high << 4 | low);
  }
  return true;
}

}  // namespace sapsim::wire
