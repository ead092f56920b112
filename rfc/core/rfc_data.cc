// Typed RFC values and their conversions, packed decimals included.
//
// Reading table (0: the type gives 0 without looking at the data):
//
//   type      RFC_INT               RFC_INT2             RFC_INT1          RFC_FLOAT
//   CHAR,DATE,TIME,ITAB  0          0                    0                 0
//   BCD       text, integer part    text as 16-bit       16-bit, low byte  text as float
//   BYTE      last 4 bytes, BE      last 2 bytes, BE     first byte        0
//   NUM       digits as integer     0                    0                 0
//   FLOAT     0                     0                    0                 the value
//   INT       the value             0                    0                 0
//   INT2      the value (*)         the value            0                 0
//   INT1      the byte              the byte             the byte          0
//
// (*) sign-extended in native order; byte-reversed without sign extension
// otherwise. Callers that need more convert through Assign or RFC_INT.

#include "rfc/core/rfc_data.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_error.h"
#include "rfc/core/rfc_trace.h"

namespace {

constexpr int kMaxPackedLength = 64;
// Sign, a 0 before the point, the point, every digit and the terminator of
// the largest packed value.
constexpr size_t kPackedTextSize = 2 * kMaxPackedLength + 3;
// A text assigned to a packed value may also carry a leading plus sign.
constexpr size_t kPackedInputSize = 2 * kMaxPackedLength + 3;

constexpr const char kToPackFailed[] = "CRfcData: Conversion to PACK type (BCD) failed";
constexpr const char kFromPackFailed[] = "CRfcData: Conversion from PACK type (BCD) failed";
constexpr const char kTooLong[] = "CRfcData:operator=(CSTR) Input string too long, exceeding ";

bool ValidPacked(int length, int decimals) {
  return length >= 1 && length <= kMaxPackedLength && decimals >= 0 &&
         decimals <= 2 * length - 1;
}

// The longest text of a double as std::to_chars writes it shortest
// (-2.2250738585072014e-308 is 24 characters), with room to spare.
constexpr size_t kFloatTextSize = 32;
// The smallest text buffer kept, so that the short cells of a line share one.
constexpr size_t kMinTextSize = 64;

// The characters operator CSTR needs for a value of `type` and `length`,
// terminator included.
size_t TextSize(int type, size_t length) {
  switch (type) {
    case TYPE_BCD:
      return 2 * length + 3;
    case TYPE_BYTE:
      return 2 * length + 1;
    case TYPE_FLOAT:
      return kFloatTextSize;
    case TYPE_INT:
      return sizeof "-2147483648";
    case TYPE_INT2:
      return sizeof "-32768";
    case TYPE_INT1:
      return sizeof "255";
    default:
      return length + 1;
  }
}

// A double as the shortest text that reads back as the same value; the two
// kinds that have no digits take XML Schema's forms, which a schema-aware
// reader and strtod both accept: INF, -INF, NaN (whatever its sign or payload).
void FloatText(char* text, double value) {
  if (std::isnan(value)) {
    std::memcpy(text, "NaN", sizeof "NaN");
  } else if (std::isinf(value)) {
    const char* form = value < 0 ? "-INF" : "INF";
    std::memcpy(text, form, std::strlen(form) + 1);
  } else {
    *std::to_chars(text, text + kFloatTextSize - 1, value).ptr = '\0';
  }
}

void IntegerText(char* text, size_t size, long value) {
  *std::to_chars(text, text + size - 1, value).ptr = '\0';
}

template <typename T>
T Load(const unsigned char* bytes, bool reversed) {
  unsigned char copy[sizeof(T)];
  std::memcpy(copy, bytes, sizeof(T));
  if (reversed) std::reverse(copy, copy + sizeof(T));
  T value;
  std::memcpy(&value, copy, sizeof(T));
  return value;
}

template <typename T>
void Save(unsigned char* bytes, T value, bool reversed) {
  std::memcpy(bytes, &value, sizeof(T));
  if (reversed) std::reverse(bytes, bytes + sizeof(T));
}

// Formatted integer input: leading white space skipped, an optional sign,
// digits up to the first other character; nothing readable gives 0 and a
// value out of range gives the nearest limit.
long long ReadInteger(const char* text, size_t length, long long lowest, long long highest) {
  size_t i = 0;
  while (i < length && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r'))) ++i;
  bool negative = false;
  if (i < length && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  long long value = 0;
  const long long limit = negative ? -lowest : highest;
  for (; i < length && text[i] >= '0' && text[i] <= '9'; ++i) {
    value = std::min(value * 10 + (text[i] - '0'), limit);
  }
  return negative ? -value : value;
}

long long ReadInteger(const char* text, long long lowest, long long highest) {
  return ReadInteger(text, std::strlen(text), lowest, highest);
}

double ReadFloat(const char* text) {
  double value = 0.0;
  const char* end = text + std::strlen(text);
  if (std::from_chars(text, end, value).ec != std::errc()) return 0.0;
  return value;
}

}  // namespace

int RfcFixedLength(int type, int length) {
  switch (type) {
    case TYPE_CHAR:
    case TYPE_BCD:
    case TYPE_BYTE:
    case TYPE_NUM:
      return length;
    case TYPE_DATE:
    case TYPE_FLOAT:
      return 8;
    case TYPE_TIME:
      return 6;
    case TYPE_INT:
      return 4;
    case TYPE_INT2:
      return 2;
    case TYPE_INT1:
      return 1;
    default:
      return -1;
  }
}

CRfcData::CRfcData(int native_order) : native_order_(native_order) {}

CRfcData::~CRfcData() = default;

CRfcData::CRfcData(CRfcData&& other) noexcept
    : native_order_(other.native_order_),
      type_(other.type_),
      length_(other.length_),
      decimals_(other.decimals_),
      data_(std::exchange(other.data_, nullptr)),
      text_(std::move(other.text_)),
      text_size_(std::exchange(other.text_size_, 0)) {}

void CRfcData::Init(void* data, int type, int length, int decimals) {
  data_ = static_cast<unsigned char*>(data);
  type_ = type;
  length_ = RfcFixedLength(type, length);
  decimals_ = decimals;
}

void CRfcData::GetInfo(int& type, int& length, int& decimals) const {
  type = type_;
  length = length_;
  decimals = decimals_;
}

void CRfcData::ClearValue() {
  if (data_ == nullptr || length_ <= 0) return;
  const size_t length = static_cast<size_t>(length_);
  switch (type_) {
    case TYPE_CHAR:
      std::memset(data_, ' ', length);
      break;
    case TYPE_DATE:
    case TYPE_TIME:
    case TYPE_NUM:
      std::memset(data_, '0', length);
      break;
    case TYPE_BCD:
    case TYPE_BYTE:
    case TYPE_FLOAT:
    case TYPE_INT:
    case TYPE_INT2:
    case TYPE_INT1:
      std::memset(data_, 0, length);
      break;
    default:
      break;
  }
}

void CRfcData::Assign(const CRfcData& other) {
  if (data_ == nullptr || other.data_ == nullptr) return;
  switch (type_) {
    case TYPE_CHAR:
    case TYPE_DATE:
    case TYPE_BCD:
    case TYPE_TIME:
    case TYPE_BYTE:
    case TYPE_NUM: {
      // Never read past the other value's bytes.
      const int length = std::min(length_, other.length_);
      if (length > 0) std::memmove(data_, other.data_, static_cast<size_t>(length));
      break;
    }
    case TYPE_FLOAT: {
      RFC_FLOAT value;
      switch (other.type_) {
        case TYPE_INT1:
          value = static_cast<RFC_INT1>(other);
          break;
        case TYPE_INT2:
          value = static_cast<RFC_INT2>(other);
          break;
        case TYPE_INT:
          value = static_cast<RFC_INT>(other);
          break;
        case TYPE_FLOAT:
          value = static_cast<RFC_FLOAT>(other);
          break;
        default:
          return;
      }
      Save(data_, value, native_order_ == 0);
      break;
    }
    case TYPE_INT:
      *this = static_cast<RFC_INT>(other);
      break;
    case TYPE_INT2:
      *this = static_cast<RFC_INT>(static_cast<RFC_INT2>(other));
      break;
    case TYPE_INT1:
      if (other.length_ >= 1) *data_ = *other.data_;
      break;
    default:
      break;
  }
}

void CRfcData::ToNativeOrder() {
  if (native_order_ != 0) return;
  if (data_ != nullptr) {
    switch (type_) {
      case TYPE_FLOAT:
        std::reverse(data_, data_ + 8);
        break;
      case TYPE_INT:
        std::reverse(data_, data_ + 4);
        break;
      case TYPE_INT2:
        std::reverse(data_, data_ + 2);
        break;
      default:
        break;
    }
  }
  native_order_ = 1;
}

CRfcData& CRfcData::operator=(RFC_INT value) {
  if (data_ == nullptr) return *this;
  switch (type_) {
    case TYPE_BCD: {
      char text[16];
      std::snprintf(text, sizeof text, "%d", static_cast<int>(value));
      if (Str2BCD(text, data_) == 0) {
        ThrowRfcFailure("CRfcData::operator=(RFC_INT) called", {kToPackFailed}, kToPackFailed);
      }
      break;
    }
    case TYPE_BYTE: {
      // Big-endian for v >= 0; a negative v keeps the remainders' low bytes
      // (-1 gives 00 00 00 FF).
      RFC_INT rest = value;
      for (int i = 1; i <= 4 && i <= length_; ++i) {
        data_[length_ - i] = static_cast<unsigned char>(rest % 256);
        rest /= 256;
      }
      break;
    }
    case TYPE_NUM: {
      if (length_ <= 0) break;
      char digits[16];
      const int written = std::snprintf(digits, sizeof digits, "%d", static_cast<int>(value));
      const size_t text_length = static_cast<size_t>(written);
      const size_t length = static_cast<size_t>(length_);
      if (text_length >= length) {
        // A longer text keeps its leftmost characters.
        std::memcpy(data_, digits, length);
      } else {
        // Zeros after the minus sign: -12 in five places is -0012.
        const size_t sign = value < 0 ? 1 : 0;
        const size_t zeros = length - text_length;
        if (sign != 0) data_[0] = '-';
        std::memset(data_ + sign, '0', zeros);
        std::memcpy(data_ + sign + zeros, digits + sign, text_length - sign);
      }
      break;
    }
    case TYPE_INT:
      Save(data_, value, native_order_ == 0);
      break;
    case TYPE_INT2:
      Save(data_, static_cast<uint16_t>(static_cast<uint32_t>(value) & 0xFFFFu),
           native_order_ == 0);
      break;
    case TYPE_INT1:
      *data_ = static_cast<unsigned char>(static_cast<uint32_t>(value) & 0xFFu);
      break;
    default:
      // CHAR, DATE, TIME, ITAB and FLOAT take no integer.
      break;
  }
  return *this;
}

CRfcData& CRfcData::operator=(CSTR text) {
  if (data_ == nullptr) return *this;
  if (text == nullptr) text = "";
  const size_t text_length = std::strlen(text);
  switch (type_) {
    case TYPE_CHAR:
    case TYPE_NUM: {
      if (length_ < 0 || text_length > static_cast<size_t>(length_)) {
        const std::string line = kTooLong + std::to_string(length_);
        ThrowRfcFailure("CRfcData::operator=(CSTR) called", {line.c_str()}, kTooLong);
      }
      const size_t length = static_cast<size_t>(length_);
      const size_t fill = length - text_length;
      if (type_ == TYPE_NUM) {
        std::memset(data_, '0', fill);
        std::memcpy(data_ + fill, text, text_length);
      } else {
        std::memset(data_, ' ', length);
        std::memcpy(data_, text, text_length);
      }
      break;
    }
    case TYPE_DATE:
    case TYPE_TIME:
      if (length_ > 0) {
        std::memcpy(data_, text, std::min(text_length, static_cast<size_t>(length_)));
      }
      break;
    case TYPE_BCD: {
      // The working copy holds sign, digits, point and terminator of this
      // value; a longer text cannot be a valid packed value of this length.
      std::array<char, kPackedInputSize> work{};
      const size_t bound = length_ >= 1 && length_ <= kMaxPackedLength
                               ? 2 * static_cast<size_t>(length_) + 3
                               : 0;
      if (text_length + 1 > bound) {
        ThrowRfcFailure("CRfcData::operator=(CSTR) called", {kToPackFailed}, kToPackFailed);
      }
      // Leading zeros after an optional sign go: -007 is -7, 000 is empty.
      size_t from = 0;
      size_t to = 0;
      if (text[0] == '+' || text[0] == '-') work[to++] = text[from++];
      while (text[from] == '0') ++from;
      std::memcpy(work.data() + to, text + from, text_length - from + 1);
      if (Str2BCD(work.data(), data_) == 0) {
        ThrowRfcFailure("CRfcData::operator=(CSTR) called", {kToPackFailed}, kToPackFailed);
      }
      break;
    }
    default:
      // BYTE, ITAB, FLOAT and the integers take no text.
      break;
  }
  return *this;
}

void CRfcData::PackedText(char* text, const char* operation) const {
  if (BCD2Str(text, data_) == 0) ThrowRfcFailure(operation, {kToPackFailed}, kFromPackFailed);
}

CRfcData::operator RFC_INT() const {
  if (data_ == nullptr) return 0;
  switch (type_) {
    case TYPE_BCD: {
      char text[kPackedTextSize];
      PackedText(text, "CRfcData::operator RFC_INT(void) called");
      return static_cast<RFC_INT>(ReadInteger(text, INT32_MIN, INT32_MAX));
    }
    case TYPE_BYTE: {
      uint32_t value = 0;
      for (int i = std::max(length_ - 4, 0); i < length_; ++i) value = value << 8 | data_[i];
      return static_cast<RFC_INT>(value);
    }
    case TYPE_NUM:
      return length_ > 0 ? static_cast<RFC_INT>(ReadInteger(reinterpret_cast<const char*>(data_),
                                                            static_cast<size_t>(length_),
                                                            INT32_MIN, INT32_MAX))
                         : 0;
    case TYPE_INT:
      return Load<RFC_INT>(data_, native_order_ == 0);
    case TYPE_INT2:
      if (native_order_ != 0) return Load<RFC_INT2>(data_, false);
      return Load<uint16_t>(data_, true);
    case TYPE_INT1:
      return *data_;
    default:
      return 0;
  }
}

CRfcData::operator RFC_INT2() const {
  GetRfcTrace().WriteLine("CRfcData::operator RFC_INT2(void) called");
  if (data_ == nullptr) return 0;
  switch (type_) {
    case TYPE_BCD: {
      char text[kPackedTextSize];
      PackedText(text, "CRfcData::operator RFC_INT2(void) called");
      return static_cast<RFC_INT2>(ReadInteger(text, INT16_MIN, INT16_MAX));
    }
    case TYPE_BYTE: {
      uint32_t value = 0;
      for (int i = std::max(length_ - 2, 0); i < length_; ++i) value = value << 8 | data_[i];
      return static_cast<RFC_INT2>(static_cast<uint16_t>(value));
    }
    case TYPE_INT2:
      return Load<RFC_INT2>(data_, native_order_ == 0);
    case TYPE_INT1:
      return *data_;
    default:
      return 0;
  }
}

CRfcData::operator RFC_INT1() const {
  GetRfcTrace().WriteLine("CRfcData::operator RFC_INT1(void) called");
  if (data_ == nullptr) return 0;
  switch (type_) {
    case TYPE_BCD: {
      char text[kPackedTextSize];
      PackedText(text, "CRfcData::operator RFC_INT1(void) called");
      const auto value = static_cast<RFC_INT2>(ReadInteger(text, INT16_MIN, INT16_MAX));
      return static_cast<RFC_INT1>(static_cast<uint16_t>(value) & 0xFFu);
    }
    case TYPE_BYTE:
      return length_ >= 1 ? *data_ : 0;
    case TYPE_INT1:
      return *data_;
    default:
      return 0;
  }
}

CRfcData::operator RFC_FLOAT() const {
  if (data_ == nullptr) return 0.0;
  switch (type_) {
    case TYPE_BCD: {
      char text[kPackedTextSize];
      PackedText(text, "CRfcData::operator RFC_FLOAT(void) called");
      return ReadFloat(text);
    }
    case TYPE_FLOAT:
      return Load<RFC_FLOAT>(data_, native_order_ == 0);
    default:
      return 0.0;
  }
}

CRfcData::operator CSTR() {
  const size_t length = static_cast<size_t>(std::max(length_, 0));
  const size_t size = TextSize(type_, length);
  // The buffer is kept while it is large enough: a table is read through one
  // value, cell after cell, and a fresh buffer per cell cost more than most
  // conversions do.
  if (size > text_size_) {
    text_.reset();
    text_size_ = 0;
    text_ = rfc::RfcAllocateArray<char>(std::max(size, kMinTextSize));
    if (!text_) {
      ThrowRfcFailure("CRfcData::operator CSTR(void) called", {kToPackFailed, kRfcAllocationFailed},
                      kRfcAllocationFailed);
    }
    text_size_ = std::max(size, kMinTextSize);
  }
  char* text = text_.get();
  // ITAB and unknown types read as the empty text.
  text[0] = '\0';
  if (data_ == nullptr) return text;
  switch (type_) {
    case TYPE_CHAR:
    case TYPE_NUM: {
      size_t used = length;
      while (used > 0 && data_[used - 1] == ' ') --used;
      std::memcpy(text, data_, used);
      text[used] = '\0';
      break;
    }
    case TYPE_DATE:
    case TYPE_TIME: {
      // All blanks is the empty date or time.
      const bool blank = std::all_of(data_, data_ + length, [](unsigned char c) { return c == ' '; });
      if (!blank) {
        std::memcpy(text, data_, length);
        text[length] = '\0';
      }
      break;
    }
    case TYPE_BCD:
      PackedText(text, "CRfcData::operator CSTR(void) called");
      break;
    case TYPE_INT:
      IntegerText(text, size, static_cast<RFC_INT>(*this));
      break;
    case TYPE_INT2:
      // Signed in either byte order (RFC_INT would not sign-extend a
      // reversed one, and RFC_INT2 traces every call).
      IntegerText(text, size, Load<RFC_INT2>(data_, native_order_ == 0));
      break;
    case TYPE_INT1:
      IntegerText(text, size, *data_);
      break;
    case TYPE_FLOAT:
      FloatText(text, static_cast<RFC_FLOAT>(*this));
      break;
    case TYPE_BYTE: {
      // Every byte as two upper-case hexadecimal digits, leading zeros kept.
      static constexpr char kHex[] = "0123456789ABCDEF";
      for (size_t i = 0; i < length; ++i) {
        text[2 * i] = kHex[data_[i] >> 4];
        text[2 * i + 1] = kHex[data_[i] & 0x0F];
      }
      text[2 * length] = '\0';
      break;
    }
    default:
      break;
  }
  return text;
}

int CRfcData::BCD2Str(char* text, const unsigned char* bcd) const {
  if (!ValidPacked(length_, decimals_)) {
    GetRfcTrace().WriteLine("CRfcData::BCD2Str called");
    return 0;
  }
  const int digits = 2 * length_ - 1;
  // The point follows this digit (counted from 1; 0 means before the first).
  const int point_after = decimals_ > 0 ? digits - decimals_ : -1;
  size_t out = 0;
  bool started = false;  // a digit or the point has been written
  if ((bcd[length_ - 1] & 0x0F) == 0x0D) text[out++] = '-';
  auto write_point = [&] {
    if (!started) text[out++] = '0';
    text[out++] = '.';
    started = true;
  };
  if (point_after == 0) write_point();
  for (int i = 1; i <= digits; ++i) {
    const unsigned char byte = bcd[(i - 1) / 2];
    const int nibble = (i - 1) % 2 == 0 ? byte >> 4 : byte & 0x0F;
    if (nibble > 9) {
      GetRfcTrace().WriteLine("CRfcData::BCD2Str called");
      return 0;
    }
    if (nibble != 0 || started) {
      text[out++] = static_cast<char>('0' + nibble);
      started = true;
    }
    if (i == point_after) write_point();
  }
  // Only an empty text gets its 0: a negative zero without decimals stays "-".
  if (out == 0) text[out++] = '0';
  text[out] = '\0';
  return 1;
}

int CRfcData::Str2BCD(char* text, unsigned char* bcd) const {
  if (!ValidPacked(length_, decimals_)) return 0;
  const size_t length = static_cast<size_t>(length_);
  const int digits = 2 * length_ - 1;
  const size_t text_length = std::strlen(text);
  if (text_length == 0) {
    std::memset(bcd, 0, length);
    bcd[length - 1] = 0x0C;
    return 1;
  }
  const char* point = std::strchr(text, '.');
  const size_t fraction = point != nullptr ? text_length - static_cast<size_t>(point - text) - 1 : 0;
  const bool signed_text = text[0] == '+' || text[0] == '-';
  const size_t integer = text_length - (signed_text ? 1 : 0) - (point != nullptr ? 1 : 0) - fraction;
  if (integer > static_cast<size_t>(digits - decimals_)) return 0;

  std::array<unsigned char, kMaxPackedLength> work{};
  work[length - 1] = text[0] == '-' ? 0x0D : 0x0C;

  // The last character to convert, and the nibble it goes to (counted from
  // the last digit leftwards).
  const size_t decimals = static_cast<size_t>(decimals_);
  long last;
  size_t nibble = 0;
  if (decimals_ == 0) {
    last = point != nullptr ? static_cast<long>(point - text) - 1 : static_cast<long>(text_length) - 1;
  } else if (fraction >= decimals) {
    // Fraction digits beyond the decimals are dropped, not rounded.
    last = static_cast<long>(point - text) + static_cast<long>(decimals);
  } else {
    last = static_cast<long>(text_length) - 1;
    nibble = decimals - fraction;
  }

  // Only a sign at the very start ends the walk; anywhere else it is an
  // invalid character (so "12-" fails).
  for (long i = last; i >= 0; --i) {
    char& c = text[i];
    if (i == 0 && signed_text) break;
    if (c == '.') continue;
    if (c == ' ') c = '0';
    if (c < '0' || c > '9') return 0;
    if (nibble >= static_cast<size_t>(digits)) return 0;
    const size_t index = static_cast<size_t>(digits) - 1 - nibble;  // digit index from 0
    unsigned char& byte = work[index / 2];
    const unsigned char value = static_cast<unsigned char>(c - '0');
    byte = index % 2 == 0 ? static_cast<unsigned char>((byte & 0x0F) | value << 4)
                          : static_cast<unsigned char>((byte & 0xF0) | value);
    ++nibble;
  }
  std::memcpy(bcd, work.data(), length);
  return 1;
}
