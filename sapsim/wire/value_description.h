#pragma once
// The description that travels with every value: a simple value's type,
// length and decimals, a structure's fields with their offsets, or a block of
// raw bytes. The receiver converts from the sender's description into its own.

#include <cstdint>
#include <string>
#include <vector>

namespace sapsim::wire {

class FrameWriter;
class PayloadReader;

// Decimals of a packed value whose sender does not know them (the library's
// parameter entries carry no decimals): the receiver's count is used.
constexpr int32_t kDecimalsUnknown = -1;

// Limits every description read from the network is checked against.
constexpr uint32_t kMaxFields = 4096;
constexpr uint32_t kMaxNameLength = 256;
constexpr uint32_t kMaxValueLength = 16u * 1024u * 1024u;

struct FieldDesc {
  std::string name;
  int32_t type = 0;
  uint32_t length = 0;
  int32_t decimals = 0;
  uint32_t offset = 0;
};

struct ValueDesc {
  enum class Kind : uint8_t { kSimple = 0, kStructure = 1, kRaw = 2 };

  Kind kind = Kind::kSimple;
  int32_t type = 0;     // simple: the value's type; raw: CHAR (0) or BYTE (4)
  uint32_t length = 0;  // simple: the value's length; structure and raw: the line length
  int32_t decimals = 0; // simple only
  std::vector<FieldDesc> fields;  // structure only

  static ValueDesc Simple(int32_t type, uint32_t length, int32_t decimals = 0);
  static ValueDesc Raw(int32_t type, uint32_t length);
  // Fields with their offsets already set; `line_length` covers all of them.
  static ValueDesc Structure(std::vector<FieldDesc> fields, uint32_t line_length);
};

// Lays the fields out one after the other with natural alignment (FLOAT 8,
// INT 4, INT2 2, others 1), writes their offsets and returns the total length,
// rounded up to the largest alignment that occurs.
uint32_t LayOut(std::vector<FieldDesc>& fields);

// Empty when the description is consistent: known types, fixed lengths where
// the type has one, fields inside the line, sane sizes. Otherwise the reason.
std::string Validate(const ValueDesc& desc);

// True when both describe the same bytes the same way, so a line can be
// copied as it is.
bool SameLayout(const ValueDesc& a, const ValueDesc& b);

// Human-readable, for messages and logs: "CHAR 10", "structure of 3 fields, 24 bytes".
std::string Describe(const ValueDesc& desc);

void EncodeValueDesc(FrameWriter& writer, const ValueDesc& desc);
// Throws DecodeError for a malformed or inconsistent description.
ValueDesc DecodeValueDesc(PayloadReader& reader);

}  // namespace sapsim::wire
