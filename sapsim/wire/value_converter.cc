#include "sapsim/wire/value_converter.h"

#include <cstdio>
#include <cstring>
#include <limits>
#include <string_view>

#include "sapsim/wire/decimal_number.h"
#include "sapsim/wire/rfc_types.h"

namespace sapsim::wire {

namespace {

std::string_view AsText(const uint8_t* data, size_t length) {
  return std::string_view(reinterpret_cast<const char*>(data), length);
}

std::string_view TrimBlanks(std::string_view text) {
  size_t begin = text.find_first_not_of(' ');
  if (begin == std::string_view::npos) return {};
  size_t end = text.find_last_not_of(' ');
  return text.substr(begin, end - begin + 1);
}

bool AllDigits(std::string_view text) {
  for (char c : text) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

// Copies text into a CHAR field: cut or blank-padded.
void PutChars(std::string_view text, uint8_t* dst, size_t length) {
  size_t n = text.size() < length ? text.size() : length;
  if (n > 0) std::memcpy(dst, text.data(), n);  // an empty view may have no data at all
  std::memset(dst + n, ' ', length - n);
}

bool PutTextStrict(std::string_view text, uint8_t* dst, size_t length, std::string* error) {
  if (text.size() > length) {
    *error = "'" + std::string(text) + "' does not fit into " + std::to_string(length) + " characters";
    return false;
  }
  PutChars(text, dst, length);
  return true;
}

bool IsTextType(int32_t type) {
  return type == kTypeChar || type == kTypeNum || type == kTypeDate || type == kTypeTime;
}

bool IsNumericType(int32_t type) {
  return type == kTypeBcd || type == kTypeFloat || type == kTypeInt || type == kTypeInt2 ||
         type == kTypeInt1;
}

int64_t ReadInt(int32_t type, const uint8_t* data) {
  switch (type) {
    case kTypeInt: {
      int32_t v;
      std::memcpy(&v, data, 4);
      return v;
    }
    case kTypeInt2: {
      int16_t v;
      std::memcpy(&v, data, 2);
      return v;
    }
    default:
      return data[0];
  }
}

int ScaleOf(const SimpleType& own, const SimpleType& other) {
  if (own.decimals != kDecimalsUnknown) return own.decimals;
  if (other.decimals != kDecimalsUnknown && other.type == kTypeBcd) return other.decimals;
  return 0;
}

// The sender's value as a number; false for values that are not numbers.
bool ReadNumber(const SimpleType& from, const uint8_t* src, const SimpleType& to, DecimalNumber* out,
                std::string* error) {
  switch (from.type) {
    case kTypeChar:
    case kTypeNum:
      return DecimalNumber::Parse(AsText(src, from.length), to.type == kTypeFloat, out, error);
    case kTypeBcd:
      return DecimalNumber::FromPacked(src, from.length, ScaleOf(from, to), out, error);
    case kTypeInt:
    case kTypeInt2:
    case kTypeInt1:
      *out = DecimalNumber::FromInt(ReadInt(from.type, src));
      return true;
    case kTypeFloat: {
      double v;
      std::memcpy(&v, src, 8);
      if (!DecimalNumber::FromDouble(v, out)) {
        *error = "FLOAT value is not finite";
        return false;
      }
      return true;
    }
    default:
      *error = std::string("a ") + TypeName(from.type) + " value is not a number";
      return false;
  }
}

bool WriteNumber(const DecimalNumber& number, const SimpleType& from, const SimpleType& to, uint8_t* dst,
                 std::string* error) {
  switch (to.type) {
    case kTypeBcd:
      return number.ToPacked(dst, to.length, ScaleOf(to, from), error);
    case kTypeFloat: {
      double v = number.ToDouble();
      std::memcpy(dst, &v, 8);
      return true;
    }
    case kTypeInt:
    case kTypeInt2:
    case kTypeInt1: {
      int64_t v = 0;
      int64_t low = to.type == kTypeInt ? std::numeric_limits<int32_t>::min()
                    : to.type == kTypeInt2 ? std::numeric_limits<int16_t>::min() : 0;
      int64_t high = to.type == kTypeInt ? std::numeric_limits<int32_t>::max()
                     : to.type == kTypeInt2 ? std::numeric_limits<int16_t>::max() : 255;
      if (!number.ToInt(&v) || v < low || v > high) {
        *error = number.ToText() + " is outside the range of " + TypeName(to.type);
        return false;
      }
      if (to.type == kTypeInt) {
        int32_t x = static_cast<int32_t>(v);
        std::memcpy(dst, &x, 4);
      } else if (to.type == kTypeInt2) {
        int16_t x = static_cast<int16_t>(v);
        std::memcpy(dst, &x, 2);
      } else {
        dst[0] = static_cast<uint8_t>(v);
      }
      return true;
    }
    case kTypeNum: {
      if (number.negative()) {
        *error = number.ToText() + " is negative and cannot be a NUM";
        return false;
      }
      std::string digits = number.Rescaled(0).IntegerDigits();
      if (digits.size() > to.length) {
        *error = number.ToText() + " has more than " + std::to_string(to.length) + " digits";
        return false;
      }
      std::memset(dst, '0', to.length - digits.size());
      std::memcpy(dst + (to.length - digits.size()), digits.data(), digits.size());
      return true;
    }
    case kTypeChar: {
      std::string text = number.ToText();
      return PutTextStrict(text, dst, to.length, error);
    }
    default:
      *error = std::string("no conversion from ") + TypeName(from.type) + " to " + TypeName(to.type);
      return false;
  }
}

const char kHex[] = "0123456789ABCDEF";

std::string ToHex(const uint8_t* data, size_t length) {
  std::string text;
  text.reserve(2 * length);
  for (size_t i = 0; i < length; ++i) {
    text += kHex[data[i] >> 4];
    text += kHex[data[i] & 0x0F];
  }
  return text;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// Digits of a DATE or TIME from text: blank means initial, otherwise exactly
// the type's number of digits.
bool PutDigitsField(std::string_view text, const SimpleType& to, uint8_t* dst, std::string* error) {
  std::string_view trimmed = TrimBlanks(text);
  if (trimmed.empty()) {
    std::memset(dst, '0', to.length);
    return true;
  }
  if (trimmed.size() != to.length || !AllDigits(trimmed)) {
    *error = "'" + std::string(trimmed) + "' is not a " + TypeName(to.type) + " (" +
             std::to_string(to.length) + " digits)";
    return false;
  }
  std::memcpy(dst, trimmed.data(), to.length);
  return true;
}

}  // namespace

bool ConvertValue(const SimpleType& from, const uint8_t* src, const SimpleType& to, uint8_t* dst,
                  std::string* error) {
  if (!IsValueType(from.type) || !IsValueType(to.type)) {
    *error = std::string("no conversion from ") + TypeName(from.type) + " to " + TypeName(to.type);
    return false;
  }
  // Same type and length: the bytes are the value (packed numbers only when
  // the decimals agree or one side leaves them open).
  if (from.type == to.type && from.length == to.length &&
      (from.type != kTypeBcd || from.decimals == to.decimals || from.decimals == kDecimalsUnknown ||
       to.decimals == kDecimalsUnknown)) {
    std::memcpy(dst, src, to.length);
    return true;
  }
  std::string_view text = AsText(src, from.length);
  switch (to.type) {
    case kTypeChar:
      if (IsTextType(from.type)) {
        PutChars(from.type == kTypeChar ? text : TrimBlanks(text), dst, to.length);
        return true;
      }
      if (from.type == kTypeByte) return PutTextStrict(ToHex(src, from.length), dst, to.length, error);
      break;
    case kTypeNum:
      if (IsTextType(from.type)) {
        std::string_view digits = TrimBlanks(text);
        if (!AllDigits(digits)) {
          *error = "'" + std::string(digits) + "' is not a NUM (digits only)";
          return false;
        }
        size_t first = digits.find_first_not_of('0');
        digits = first == std::string_view::npos ? std::string_view() : digits.substr(first);
        if (digits.size() > to.length) {
          *error = "'" + std::string(digits) + "' has more than " + std::to_string(to.length) + " digits";
          return false;
        }
        std::memset(dst, '0', to.length - digits.size());
        if (!digits.empty()) std::memcpy(dst + (to.length - digits.size()), digits.data(), digits.size());
        return true;
      }
      break;
    case kTypeDate:
    case kTypeTime:
      if (IsTextType(from.type)) return PutDigitsField(text, to, dst, error);
      *error = std::string("no conversion from ") + TypeName(from.type) + " to " + TypeName(to.type);
      return false;
    case kTypeByte:
      if (from.type == kTypeByte) {
        size_t n = from.length < to.length ? from.length : to.length;
        std::memcpy(dst, src, n);
        std::memset(dst + n, 0, to.length - n);
        return true;
      }
      if (from.type == kTypeChar) {
        std::string_view hex = TrimBlanks(text);
        if (hex.size() % 2 != 0 || hex.size() / 2 > to.length) {
          *error = "'" + std::string(hex) + "' is not a hex value of at most " + std::to_string(to.length) +
                   " bytes";
          return false;
        }
        std::string bytes(to.length, '\0');
        for (size_t i = 0; i < hex.size(); i += 2) {
          int high = HexDigit(hex[i]);
          int low = HexDigit(hex[i + 1]);
          if (high < 0 || low < 0) {
            *error = "'" + std::string(hex) + "' is not a hex value";
            return false;
          }
          bytes[i / 2] = static_cast<char>(high << 4 | low);
        }
        std::memcpy(dst, bytes.data(), to.length);
        return true;
      }
      *error = std::string("no conversion from ") + TypeName(from.type) + " to BYTE";
      return false;
    default:
      break;
  }
  if (from.type == kTypeDate || from.type == kTypeTime || from.type == kTypeByte) {
    *error = std::string("no conversion from ") + TypeName(from.type) + " to " + TypeName(to.type);
    return false;
  }
  // Everything left is numeric on at least one side.
  if (!IsNumericType(to.type) && !IsNumericType(from.type)) {
    *error = std::string("no conversion from ") + TypeName(from.type) + " to " + TypeName(to.type);
    return false;
  }
  DecimalNumber number;
  if (!ReadNumber(from, src, to, &number, error)) return false;
  return WriteNumber(number, from, to, dst, error);
}

std::string ValueToText(const SimpleType& type, const uint8_t* data) {
  std::string_view text = AsText(data, type.length);
  switch (type.type) {
    case kTypeChar:
    case kTypeNum:
    case kTypeDate:
    case kTypeTime: {
      size_t end = text.find_last_not_of(' ');
      return end == std::string_view::npos ? std::string() : std::string(text.substr(0, end + 1));
    }
    case kTypeByte:
      return ToHex(data, type.length);
    case kTypeBcd:
    case kTypeFloat:
    case kTypeInt:
    case kTypeInt2:
    case kTypeInt1: {
      DecimalNumber number;
      std::string error;
      SimpleType as_text{kTypeChar, 64, 0};
      if (!ReadNumber(type, data, as_text, &number, &error)) return "<" + error + ">";
      return number.ToText();
    }
    default:
      return "<" + std::string(TypeName(type.type)) + ">";
  }
}

}  // namespace sapsim::wire
