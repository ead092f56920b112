#pragma once
// A value or a table in the system's own layout: lines of one description.
// A simple value or a structure is a block of exactly one line.

#include <cstdint>
#include <string>
#include <vector>

#include "sapsim/wire/value_description.h"

namespace sapsim::server {

class DataBlock {
 public:
  DataBlock() = default;
  // An empty table of lines described by `desc` (simple, structure or raw).
  explicit DataBlock(wire::ValueDesc desc);
  // A value: one line holding the initial value.
  static DataBlock Value(wire::ValueDesc desc);

  const wire::ValueDesc& desc() const { return desc_; }
  uint32_t line_length() const { return desc_.length; }
  uint32_t rows() const { return rows_; }
  const std::vector<uint8_t>& bytes() const { return bytes_; }

  const uint8_t* Line(uint32_t row) const { return bytes_.data() + static_cast<size_t>(row) * desc_.length; }
  uint8_t* Line(uint32_t row) { return bytes_.data() + static_cast<size_t>(row) * desc_.length; }
  // Appends a line holding the initial value of every field; returns its row.
  uint32_t AppendLine();
  void Clear();

  // Replaces the content with lines sent by a partner in its own description,
  // converted field by field. False (and *error) when a value cannot be converted.
  bool Assign(const wire::ValueDesc& from, const uint8_t* lines, uint32_t count, std::string* error);

  // A field's value as text ("" names the value of a simple block): CHAR
  // without trailing blanks, numbers in plain notation.
  std::string Text(uint32_t row, const std::string& field) const;
  // Sets a field from text; throws ModuleError when the text does not fit.
  void SetText(uint32_t row, const std::string& field, const std::string& text);
  // The field's place: false when the block has no such field.
  bool FindField(const std::string& field, wire::FieldDesc* out) const;

 private:
  wire::ValueDesc desc_;
  std::vector<uint8_t> initial_;
  std::vector<uint8_t> bytes_;
  uint32_t rows_ = 0;
};

}  // namespace sapsim::server
