#include "sapsim/wire/value_description.h"

#include <unordered_set>

#include "sapsim/wire/decode_error.h"
#include "sapsim/wire/frame_writer.h"
#include "sapsim/wire/payload_reader.h"
#include "sapsim/wire/rfc_types.h"

namespace sapsim::wire {

ValueDesc ValueDesc::Simple(int32_t type, uint32_t length, int32_t decimals) {
  ValueDesc desc;
  desc.kind = Kind::kSimple;
  desc.type = type;
  desc.length = length;
  desc.decimals = decimals;
  return desc;
}

ValueDesc ValueDesc::Raw(int32_t type, uint32_t length) {
  ValueDesc desc;
  desc.kind = Kind::kRaw;
  desc.type = type;
  desc.length = length;
  return desc;
}

ValueDesc ValueDesc::Structure(std::vector<FieldDesc> fields, uint32_t line_length) {
  ValueDesc desc;
  desc.kind = Kind::kStructure;
  desc.length = line_length;
  desc.fields = std::move(fields);
  return desc;
}

uint32_t LayOut(std::vector<FieldDesc>& fields) {
  uint64_t offset = 0;
  uint32_t largest = 0;
  for (FieldDesc& field : fields) {
    uint32_t align = Alignment(field.type);
    if (align > 1) {
      offset = (offset + align - 1) / align * align;
      if (align > largest) largest = align;
    }
    field.offset = static_cast<uint32_t>(offset);
    offset += field.length;
  }
  if (largest > 0) offset = (offset + largest - 1) / largest * largest;
  return static_cast<uint32_t>(offset);
}

namespace {

std::string ValidateSimple(const std::string& what, int32_t type, uint32_t length, int32_t decimals) {
  if (!IsValueType(type)) return what + ": type " + std::to_string(type) + " is not a value type";
  if (length == 0) return what + ": length 0";
  if (length > kMaxValueLength) return what + ": length " + std::to_string(length) + " too large";
  uint32_t fixed = FixedLength(type);
  if (fixed != 0 && length != fixed) {
    return what + ": a " + TypeName(type) + " has " + std::to_string(fixed) + " bytes, not " +
           std::to_string(length);
  }
  if (decimals < kDecimalsUnknown) return what + ": negative decimals";
  if (type == kTypeBcd && decimals != kDecimalsUnknown &&
      static_cast<uint64_t>(decimals) > 2ull * length - 1) {
    return what + ": " + std::to_string(decimals) + " decimals do not fit " +
           std::to_string(2ull * length - 1) + " digits";
  }
  if (decimals > 255) return what + ": " + std::to_string(decimals) + " decimals";
  return {};
}

}  // namespace

std::string Validate(const ValueDesc& desc) {
  switch (desc.kind) {
    case ValueDesc::Kind::kSimple:
      return ValidateSimple("value", desc.type, desc.length, desc.decimals);
    case ValueDesc::Kind::kRaw:
      if (desc.type != kTypeChar && desc.type != kTypeByte) return "raw lines must be CHAR or BYTE";
      if (desc.length == 0 || desc.length > kMaxValueLength) {
        return "raw line length " + std::to_string(desc.length) + " out of range";
      }
      return {};
    case ValueDesc::Kind::kStructure: {
      if (desc.length == 0 || desc.length > kMaxValueLength) {
        return "line length " + std::to_string(desc.length) + " out of range";
      }
      if (desc.fields.empty()) return "structure without fields";
      if (desc.fields.size() > kMaxFields) return "too many fields";
      std::unordered_set<std::string> names;
      for (const FieldDesc& field : desc.fields) {
        if (field.name.empty()) return "field without a name";
        if (!names.insert(field.name).second) return "field " + field.name + " appears twice";
        std::string problem = ValidateSimple("field " + field.name, field.type, field.length, field.decimals);
        if (!problem.empty()) return problem;
        if (static_cast<uint64_t>(field.offset) + field.length > desc.length) {
          return "field " + field.name + " ends beyond the line of " + std::to_string(desc.length) + " bytes";
        }
      }
      return {};
    }
  }
  return "unknown kind of description";
}

bool SameLayout(const ValueDesc& a, const ValueDesc& b) {
  if (a.kind != b.kind || a.length != b.length) return false;
  switch (a.kind) {
    case ValueDesc::Kind::kSimple:
      return a.type == b.type && (a.type != kTypeBcd || a.decimals == b.decimals ||
                                  a.decimals == kDecimalsUnknown || b.decimals == kDecimalsUnknown);
    case ValueDesc::Kind::kRaw:
      return a.type == b.type;
    case ValueDesc::Kind::kStructure:
      if (a.fields.size() != b.fields.size()) return false;
      for (size_t i = 0; i < a.fields.size(); ++i) {
        const FieldDesc& x = a.fields[i];
        const FieldDesc& y = b.fields[i];
        if (x.name != y.name || x.type != y.type || x.length != y.length || x.offset != y.offset) return false;
        if (x.type == kTypeBcd && x.decimals != y.decimals) return false;
      }
      return true;
  }
  return false;
}

std::string Describe(const ValueDesc& desc) {
  switch (desc.kind) {
    case ValueDesc::Kind::kSimple: {
      std::string text = std::string(TypeName(desc.type)) + " " + std::to_string(desc.length);
      if (desc.type == kTypeBcd && desc.decimals > 0) text += " decimals " + std::to_string(desc.decimals);
      return text;
    }
    case ValueDesc::Kind::kRaw:
      return std::string("raw ") + TypeName(desc.type) + " lines of " + std::to_string(desc.length) + " bytes";
    case ValueDesc::Kind::kStructure:
      return "structure of " + std::to_string(desc.fields.size()) + " fields, " +
             std::to_string(desc.length) + " bytes";
  }
  return "?";
}

void EncodeValueDesc(FrameWriter& writer, const ValueDesc& desc) {
  writer.U8(static_cast<uint8_t>(desc.kind));
  switch (desc.kind) {
    case ValueDesc::Kind::kSimple:
      writer.I32(desc.type);
      writer.U32(desc.length);
      writer.I32(desc.decimals);
      break;
    case ValueDesc::Kind::kRaw:
      writer.I32(desc.type);
      writer.U32(desc.length);
      break;
    case ValueDesc::Kind::kStructure:
      writer.U32(desc.length);
      writer.U32(static_cast<uint32_t>(desc.fields.size()));
      for (const FieldDesc& field : desc.fields) {
        writer.String(field.name);
        writer.I32(field.type);
        writer.U32(field.length);
        writer.I32(field.decimals);
        writer.U32(field.offset);
      }
      break;
  }
}

ValueDesc DecodeValueDesc(PayloadReader& reader) {
  ValueDesc desc;
  uint8_t kind = reader.U8();
  switch (kind) {
    case static_cast<uint8_t>(ValueDesc::Kind::kSimple):
      desc.kind = ValueDesc::Kind::kSimple;
      desc.type = reader.I32();
      desc.length = reader.U32();
      desc.decimals = reader.I32();
      break;
    case static_cast<uint8_t>(ValueDesc::Kind::kRaw):
      desc.kind = ValueDesc::Kind::kRaw;
      desc.type = reader.I32();
      desc.length = reader.U32();
      break;
    case static_cast<uint8_t>(ValueDesc::Kind::kStructure): {
      desc.kind = ValueDesc::Kind::kStructure;
      desc.length = reader.U32();
      // A field takes at least 20 bytes: name length and four numbers.
      uint32_t count = reader.Count(kMaxFields, 20);
      desc.fields.resize(count);
      for (FieldDesc& field : desc.fields) {
        field.name = reader.String(kMaxNameLength);
        field.type = reader.I32();
        field.length = reader.U32();
        field.decimals = reader.I32();
        field.offset = reader.U32();
      }
      break;
    }
    default:
      throw DecodeError("unknown kind of value description " + std::to_string(kind));
  }
  std::string problem = Validate(desc);
  if (!problem.empty()) throw DecodeError("bad value description: " + problem);
  return desc;
}

}  // namespace sapsim::wire
