#include "sapsim/server/data_block.h"

#include <cstring>

#include "sapsim/server/module_error.h"
#include "sapsim/wire/line_converter.h"
#include "sapsim/wire/rfc_types.h"
#include "sapsim/wire/value_converter.h"

namespace sapsim::server {

DataBlock::DataBlock(wire::ValueDesc desc) : desc_(std::move(desc)), initial_(wire::InitialLine(desc_)) {}

DataBlock DataBlock::Value(wire::ValueDesc desc) {
  DataBlock block(std::move(desc));
  block.AppendLine();
  return block;
}

uint32_t DataBlock::AppendLine() {
  bytes_.insert(bytes_.end(), initial_.begin(), initial_.end());
  return rows_++;
}

void DataBlock::Clear() {
  bytes_.clear();
  rows_ = 0;
}

bool DataBlock::Assign(const wire::ValueDesc& from, const uint8_t* lines, uint32_t count, std::string* error) {
  wire::LineConverter converter(from, desc_);
  std::vector<uint8_t> converted(static_cast<size_t>(count) * desc_.length);
  for (uint32_t i = 0; i < count; ++i) {
    std::string why;
    if (!converter.Convert(lines + static_cast<size_t>(i) * from.length,
                           converted.data() + static_cast<size_t>(i) * desc_.length, &why)) {
      *error = (count > 1 ? "line " + std::to_string(i + 1) + ", " : std::string()) + why;
      return false;
    }
  }
  bytes_ = std::move(converted);
  rows_ = count;
  return true;
}

bool DataBlock::FindField(const std::string& field, wire::FieldDesc* out) const {
  if (desc_.kind != wire::ValueDesc::Kind::kStructure) {
    if (!field.empty()) return false;
    *out = wire::FieldDesc{"", desc_.kind == wire::ValueDesc::Kind::kRaw ? wire::kTypeChar : desc_.type,
                           desc_.length, desc_.decimals, 0};
    return true;
  }
  for (const wire::FieldDesc& candidate : desc_.fields) {
    if (candidate.name == field) {
      *out = candidate;
      return true;
    }
  }
  return false;
}

std::string DataBlock::Text(uint32_t row, const std::string& field) const {
  wire::FieldDesc place;
  if (row >= rows_ || !FindField(field, &place)) return {};
  return wire::ValueToText(wire::SimpleType{place.type, place.length, place.decimals}, Line(row) + place.offset);
}

void DataBlock::SetText(uint32_t row, const std::string& field, const std::string& text) {
  wire::FieldDesc place;
  if (row >= rows_ || !FindField(field, &place)) {
    throw ModuleError("no field " + field + " in row " + std::to_string(row + 1));
  }
  // An empty text is the initial value; a blank keeps the conversions simple.
  std::string value = text.empty() ? std::string(" ") : text;
  if (place.type == wire::kTypeChar && text.size() > place.length) {
    throw ModuleError("'" + text + "' does not fit into " + field + " (" + std::to_string(place.length) +
                      " characters)");
  }
  std::string error;
  if (!wire::ConvertValue(wire::SimpleType{wire::kTypeChar, static_cast<uint32_t>(value.size()), 0},
                          reinterpret_cast<const uint8_t*>(value.data()),
                          wire::SimpleType{place.type, place.length, place.decimals}, Line(row) + place.offset,
                          &error)) {
    throw ModuleError("field " + field + ": " + error);
  }
}

}  // namespace sapsim::server
