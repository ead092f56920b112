#pragma once
// A typed view of one RFC value (a parameter, a field of a structure, a cell of
// a table line) in the library's own layout, with its conversions to and from
// the system's values. The view does not own the value's bytes.
//
// Packed decimals (TYPE_BCD) of L bytes with D decimals hold 2L-1 digits, two
// per byte, high nibble first; the last byte holds the last digit and the sign
// (0xC written for positive, 0xD for negative; only 0xD reads as negative).
// The last D digits are the fraction. L is 1 to 64 and D 0 to 2L-1; the text
// (sign, a 0 before the point when all digits are decimals, point, digits,
// terminator) takes at most 2L+3 characters.
//
// Failed conversions write their trace lines and throw const char* texts:
//   "CRfcData: Conversion to PACK type (BCD) failed"
//   "CRfcData: Conversion from PACK type (BCD) failed"
//   "CRfcData:operator=(CSTR) Input string too long, exceeding "
//   "Failed to allocate memory!"
// and leave the value's bytes as they were.

#include <cstddef>
#include <cstdint>
#include <memory>

// The value types of the conversions.
using RFC_INT = int32_t;
using RFC_INT2 = int16_t;
using RFC_INT1 = uint8_t;
using RFC_FLOAT = double;
using CSTR = const char*;

// RFC type codes.
constexpr int TYPE_CHAR = 0;   // text, blank-padded on the right
constexpr int TYPE_DATE = 1;   // YYYYMMDD
constexpr int TYPE_BCD = 2;    // packed decimal
constexpr int TYPE_TIME = 3;   // HHMMSS
constexpr int TYPE_BYTE = 4;   // raw bytes
constexpr int TYPE_ITAB = 5;   // internal table, no value of its own
constexpr int TYPE_NUM = 6;    // digits, zero-padded on the left
constexpr int TYPE_FLOAT = 7;  // 64-bit floating point
constexpr int TYPE_INT = 8;    // 32-bit signed
constexpr int TYPE_INT2 = 9;   // 16-bit signed
constexpr int TYPE_INT1 = 10;  // 8-bit unsigned

// The length a value of `type` has: the given one for CHAR, BCD, BYTE and NUM,
// the type's own for the others, -1 for ITAB and unknown codes.
int RfcFixedLength(int type, int length);

class CRfcData {
 public:
  // `native_order` nonzero: integers and floats are in the machine's order;
  // zero: they are big-endian and reversed when read or written.
  explicit CRfcData(int native_order);
  ~CRfcData();
  CRfcData(const CRfcData&) = delete;
  CRfcData& operator=(const CRfcData&) = delete;
  CRfcData(CRfcData&& other) noexcept;

  // Binds the view; the length follows the type's fixed length where it has one.
  void Init(void* data, int type, int length, int decimals);
  void GetInfo(int& type, int& length, int& decimals) const;

  // The type's cleared form: blanks (CHAR), digit 0 (DATE, TIME, NUM), zero
  // bytes (the others); nothing for ITAB and unknown codes.
  void ClearValue();
  // Copy with conversion, chosen by this value's type: raw bytes for CHAR,
  // DATE, BCD, TIME, BYTE and NUM (no more than the other value has); FLOAT
  // takes the other's INT1, INT2, INT or FLOAT reading by the other's type;
  // INT takes its RFC_INT reading, INT2 its RFC_INT2 reading, INT1 one byte.
  void Assign(const CRfcData& other);
  // Reverses a big-endian FLOAT, INT or INT2 in place, once.
  void ToNativeOrder();

  // Assignment with conversion. An integer to CHAR, DATE, TIME, ITAB or FLOAT
  // stores nothing; a text to BYTE, ITAB, FLOAT or the integers neither.
  CRfcData& operator=(RFC_INT value);
  CRfcData& operator=(CSTR text);

  // Reading with conversion; types without a reading give 0 (see the .cc for
  // the table, whose gaps are deliberate).
  operator RFC_INT() const;
  operator RFC_INT1() const;
  operator RFC_INT2() const;
  operator RFC_FLOAT() const;
  // The text stays valid until the next text conversion of this value or its
  // destruction. CHAR and NUM lose their trailing blanks; all-blank DATE and
  // TIME read as empty; INT, INT2 and INT1 as signed (INT1 unsigned) decimal;
  // FLOAT as the shortest text that reads back the same (INF, -INF, NaN for
  // the values without digits); BYTE as two upper-case hex digits per byte;
  // ITAB and unknown types as the empty text.
  operator CSTR();

  // Packed to text with this value's length and decimals; `text` must hold
  // 2L+3 characters. 1 on success, 0 on failure.
  int BCD2Str(char* text, const unsigned char* bcd) const;
  // Text to packed. Blanks in `text` are taken as the digit 0 and overwritten
  // with it. 1 on success; 0 on failure with `bcd` untouched.
  int Str2BCD(char* text, unsigned char* bcd) const;

  int GetNativeOrder() const { return native_order_; }
  void SetNativeOrder(int native_order) { native_order_ = native_order; }
  void* GetData() const { return data_; }

 private:
  // Reads the packed value as text into `text` (2L+3 characters) or reports
  // the failure of `operation` and throws.
  void PackedText(char* text, const char* operation) const;

  int native_order_;
  int type_ = 0;
  int length_ = 0;
  int decimals_ = 0;
  unsigned char* data_ = nullptr;
  std::unique_ptr<char[]> text_;
  size_t text_size_ = 0;  // characters text_ holds
};
