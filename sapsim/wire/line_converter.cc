#include "sapsim/wire/line_converter.h"

#include <cstring>
#include <unordered_map>

#include "sapsim/wire/rfc_types.h"

namespace sapsim::wire {

std::vector<uint8_t> InitialLine(const ValueDesc& desc) {
  std::vector<uint8_t> line(desc.length, 0);
  switch (desc.kind) {
    case ValueDesc::Kind::kSimple:
    case ValueDesc::Kind::kRaw:
      FillInitial(desc.type, line.data(), line.size());
      break;
    case ValueDesc::Kind::kStructure:
      for (const FieldDesc& field : desc.fields) {
        if (static_cast<uint64_t>(field.offset) + field.length <= line.size()) {
          FillInitial(field.type, line.data() + field.offset, field.length);
        }
      }
      break;
  }
  return line;
}

LineConverter::LineConverter(const ValueDesc& from, const ValueDesc& to)
    : source_length_(from.length), target_length_(to.length) {
  if (SameLayout(from, to)) {
    mode_ = Mode::kIdentity;
    return;
  }
  initial_ = InitialLine(to);
  if (from.kind == ValueDesc::Kind::kSimple && to.kind == ValueDesc::Kind::kSimple) {
    mode_ = Mode::kSimple;
    simple_from_ = SimpleType{from.type, from.length, from.decimals};
    simple_to_ = SimpleType{to.type, to.length, to.decimals};
    return;
  }
  if (from.kind != ValueDesc::Kind::kStructure || to.kind != ValueDesc::Kind::kStructure) {
    mode_ = Mode::kRaw;
    return;
  }
  mode_ = Mode::kFields;
  std::unordered_map<std::string, const FieldDesc*> by_name;
  for (const FieldDesc& field : from.fields) by_name.emplace(field.name, &field);
  for (const FieldDesc& field : to.fields) {
    if (static_cast<uint64_t>(field.offset) + field.length > to.length) continue;
    Step step;
    step.name = field.name;
    step.to = SimpleType{field.type, field.length, field.decimals};
    step.to_offset = field.offset;
    auto it = by_name.find(field.name);
    if (it != by_name.end() &&
        static_cast<uint64_t>(it->second->offset) + it->second->length <= from.length) {
      const FieldDesc& source = *it->second;
      step.matched = true;
      step.from = SimpleType{source.type, source.length, source.decimals};
      step.from_offset = source.offset;
      step.copy = source.type == field.type && source.length == field.length &&
                  (field.type != kTypeBcd || source.decimals == field.decimals);
    }
    if (step.matched) steps_.push_back(std::move(step));
  }
}

bool LineConverter::Convert(const uint8_t* src, uint8_t* dst, std::string* error) const {
  switch (mode_) {
    case Mode::kIdentity:
      std::memcpy(dst, src, target_length_);
      return true;
    case Mode::kRaw: {
      uint32_t n = source_length_ < target_length_ ? source_length_ : target_length_;
      std::memcpy(dst, src, n);
      if (n < target_length_) std::memcpy(dst + n, initial_.data() + n, target_length_ - n);
      return true;
    }
    case Mode::kSimple:
      return ConvertValue(simple_from_, src, simple_to_, dst, error);
    case Mode::kFields:
      std::memcpy(dst, initial_.data(), target_length_);
      for (const Step& step : steps_) {
        if (step.copy) {
          std::memcpy(dst + step.to_offset, src + step.from_offset, step.to.length);
          continue;
        }
        std::string why;
        if (!ConvertValue(step.from, src + step.from_offset, step.to, dst + step.to_offset, &why)) {
          *error = "field " + step.name + ": " + why;
          return false;
        }
      }
      return true;
  }
  return false;
}

}  // namespace sapsim::wire
