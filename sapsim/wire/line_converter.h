#pragma once
// Converts lines (structure values, table lines, simple values) from the
// sender's description into the receiver's. A structure is converted field by
// field, matched by name; receiver fields the sender lacks get their initial
// value. A line described as raw bytes on either side is copied byte for byte,
// cut or padded to the receiver's length. The plan is made once per table.

#include <cstdint>
#include <string>
#include <vector>

#include "sapsim/wire/value_converter.h"
#include "sapsim/wire/value_description.h"

namespace sapsim::wire {

class LineConverter {
 public:
  LineConverter(const ValueDesc& from, const ValueDesc& to);

  // True when lines are copied unchanged (same layout on both sides).
  bool identity() const { return mode_ == Mode::kIdentity; }
  uint32_t source_length() const { return source_length_; }
  uint32_t target_length() const { return target_length_; }

  // `src` holds source_length() bytes, `dst` target_length() bytes. On
  // failure `error` names the field and the reason; `dst` may be partly written.
  bool Convert(const uint8_t* src, uint8_t* dst, std::string* error) const;

 private:
  enum class Mode { kIdentity, kRaw, kSimple, kFields };
  struct Step {
    bool matched = false;
    bool copy = false;  // same type, length and decimals: plain copy
    SimpleType from;
    uint32_t from_offset = 0;
    SimpleType to;
    uint32_t to_offset = 0;
    std::string name;
  };

  Mode mode_ = Mode::kRaw;
  uint32_t source_length_ = 0;
  uint32_t target_length_ = 0;
  SimpleType simple_from_;
  SimpleType simple_to_;
  std::vector<Step> steps_;
  std::vector<uint8_t> initial_;  // the receiver's initial line
};

// The initial line of a description: each field (or the simple value, or the
// raw line) filled with its type's initial value.
std::vector<uint8_t> InitialLine(const ValueDesc& desc);

}  // namespace sapsim::wire
