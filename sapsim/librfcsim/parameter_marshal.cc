#include "sapsim/librfcsim/parameter_marshal.h"

#include <cstring>

#include "sapsim/librfcsim/structure_registry.h"
#include "sapsim/librfcsim/table_registry.h"
#include "sapsim/wire/line_converter.h"
#include "sapsim/wire/rfc_types.h"

namespace rfcsim {

namespace w = sapsim::wire;

namespace {

// An array without its end entry would run on for ever.
constexpr size_t kMaxEntries = w::kMaxCallItems;

// Keeps the fields of a structure that fit `length` bytes.
w::ValueDesc FitStructure(const w::ValueDesc& layout, uint32_t length) {
  std::vector<w::FieldDesc> fields;
  for (const w::FieldDesc& field : layout.fields) {
    if (static_cast<uint64_t>(field.offset) + field.length <= length) fields.push_back(field);
  }
  if (fields.empty()) return w::ValueDesc::Raw(w::kTypeByte, length);
  return w::ValueDesc::Structure(std::move(fields), length);
}

bool TooMany(size_t count, const char* what, std::string* error) {
  if (count < kMaxEntries) return false;
  *error = std::string("more than ") + std::to_string(kMaxEntries) + " " + what +
           " entries: is the array missing its end entry (name null)?";
  return true;
}

}  // namespace

std::string EntryName(const void* name, uint32_t length) {
  if (name == nullptr) return {};
  const char* text = static_cast<const char*>(name);
  std::string result = length == 0 ? std::string(text) : std::string(text, length);
  size_t end = result.find_last_not_of(' ');
  result.erase(end == std::string::npos ? 0 : end + 1);
  size_t nul = result.find('\0');
  if (nul != std::string::npos) result.erase(nul);
  return result;
}

bool DescribeValue(const RfcParameterEntry& entry, w::ValueDesc* desc, std::string* error) {
  std::string name = EntryName(entry.name, entry.name_length);
  if (StructureRegistry::LooksLikeStructure(entry.type)) {
    auto layout = StructureRegistry::Instance().Find(entry.type);
    if (!layout) {
      *error = "parameter " + name + ": type " + std::to_string(entry.type) + " is not an installed structure";
      return false;
    }
    if (entry.length == 0 || entry.length > w::kMaxValueLength) {
      *error = "parameter " + name + ": length " + std::to_string(entry.length);
      return false;
    }
    *desc = FitStructure(layout->desc, entry.length);
    return true;
  }
  if (!w::IsValueType(entry.type)) {
    *error = "parameter " + name + ": type " + std::to_string(entry.type) + " is not a value type";
    return false;
  }
  uint32_t fixed = w::FixedLength(entry.type);
  uint32_t length = fixed != 0 ? fixed : entry.length;
  if (entry.length < length || length == 0 || length > w::kMaxValueLength) {
    *error = "parameter " + name + ": a " + w::TypeName(entry.type) + " value cannot have length " +
             std::to_string(entry.length);
    return false;
  }
  // Entries carry no decimals: packed values keep whatever the partner has.
  *desc = w::ValueDesc::Simple(entry.type, length, entry.type == w::kTypeBcd ? w::kDecimalsUnknown : 0);
  return true;
}

bool DescribeTable(const RfcTableEntry& entry, uint32_t line_length, w::ValueDesc* desc, std::string* error) {
  std::string name = EntryName(entry.name, entry.name_length);
  if (line_length == 0 || line_length > w::kMaxValueLength) {
    *error = "table " + name + ": line length " + std::to_string(line_length);
    return false;
  }
  if (StructureRegistry::LooksLikeStructure(entry.type)) {
    auto layout = StructureRegistry::Instance().Find(entry.type);
    if (!layout) {
      *error = "table " + name + ": type " + std::to_string(entry.type) + " is not an installed structure";
      return false;
    }
    *desc = FitStructure(layout->desc, line_length);
    return true;
  }
  if (entry.type != w::kTypeChar && entry.type != w::kTypeByte) {
    *error = "table " + name + ": type " + std::to_string(entry.type) +
             " (a table is described by an installed structure, CHAR or BYTE)";
    return false;
  }
  *desc = w::ValueDesc::Raw(entry.type, line_length);
  return true;
}

bool EncodeValues(w::FrameWriter& writer, const RfcParameterEntry* entries, std::string* error) {
  size_t count = 0;
  while (entries != nullptr && entries[count].name != nullptr) {
    if (TooMany(count, "parameter", error)) return false;
    ++count;
  }
  writer.U32(static_cast<uint32_t>(count));
  for (size_t i = 0; i < count; ++i) {
    const RfcParameterEntry& entry = entries[i];
    w::ValueDesc desc;
    if (!DescribeValue(entry, &desc, error)) return false;
    if (entry.address == nullptr) {
      *error = "parameter " + EntryName(entry.name, entry.name_length) + " has no address";
      return false;
    }
    w::EncodeValue(writer, EntryName(entry.name, entry.name_length), desc, static_cast<const uint8_t*>(entry.address));
  }
  return true;
}

bool EncodeTables(w::FrameWriter& writer, const RfcTableEntry* entries, TableKeepAlive* keep, std::string* error) {
  size_t count = 0;
  while (entries != nullptr && entries[count].name != nullptr) {
    if (TooMany(count, "table", error)) return false;
    ++count;
  }
  writer.U32(static_cast<uint32_t>(count));
  for (size_t i = 0; i < count; ++i) {
    const RfcTableEntry& entry = entries[i];
    std::string name = EntryName(entry.name, entry.name_length);
    std::shared_ptr<InternalTable> table;
    if (entry.handle != nullptr) {
      table = TableRegistry::Instance().Find(entry.handle);
      if (!table) {
        *error = "table " + name + ": unknown or deleted table handle";
        return false;
      }
    }
    uint32_t line_length = table ? static_cast<uint32_t>(table->line_length()) : entry.line_length;
    if (line_length == 0) line_length = 1;  // no table and no length: an empty table of nothing
    w::ValueDesc desc;
    if (!DescribeTable(entry, line_length, &desc, error)) return false;
    uint32_t rows = table ? static_cast<uint32_t>(table->fill()) : 0;
    w::EncodeTableHead(writer, name, desc, rows);
    if (table) {
      for (const InternalTable::Run& run : table->Runs()) writer.Borrow(run.data, run.lines * line_length);
      keep->push_back(std::move(table));
    }
  }
  return true;
}

bool ReceiveValues(const std::vector<w::WireValue>& incoming, RfcParameterEntry* entries, std::string* error) {
  for (size_t i = 0; entries != nullptr && entries[i].name != nullptr; ++i) {
    if (TooMany(i, "parameter", error)) return false;
    RfcParameterEntry& entry = entries[i];
    std::string name = EntryName(entry.name, entry.name_length);
    w::ValueDesc desc;
    if (!DescribeValue(entry, &desc, error)) return false;
    if (entry.address == nullptr) {
      *error = "parameter " + name + " has no address";
      return false;
    }
    auto* target = static_cast<uint8_t*>(entry.address);
    const w::WireValue* value = nullptr;
    for (const w::WireValue& candidate : incoming) {
      if (candidate.name == name) value = &candidate;
    }
    if (value == nullptr) {
      std::vector<uint8_t> initial = w::InitialLine(desc);
      std::memcpy(target, initial.data(), initial.size());
      continue;
    }
    w::LineConverter converter(value->desc, desc);
    std::string why;
    if (!converter.Convert(value->data, target, &why)) {
      *error = "parameter " + name + ": " + why;
      return false;
    }
  }
  return true;
}

bool ReceiveTables(const std::vector<w::WireTable>& incoming, RfcTableEntry* entries, ConnectionHandle owner,
                   bool empty_missing, std::string* error) {
  for (size_t i = 0; entries != nullptr && entries[i].name != nullptr; ++i) {
    if (TooMany(i, "table", error)) return false;
    RfcTableEntry& entry = entries[i];
    std::string name = EntryName(entry.name, entry.name_length);
    const w::WireTable* source = nullptr;
    for (const w::WireTable& candidate : incoming) {
      if (candidate.name == name) source = &candidate;
    }
    std::shared_ptr<InternalTable> table;
    if (entry.handle != nullptr) {
      table = TableRegistry::Instance().Find(entry.handle);
      if (!table) {
        *error = "table " + name + ": unknown or deleted table handle";
        return false;
      }
    }
    if (source == nullptr) {
      if (table && empty_missing) table->Clear();
      continue;
    }
    if (!table) {
      uint32_t line_length = entry.line_length != 0 ? entry.line_length : source->desc.length;
      TableHandle created = TableRegistry::Instance().Create(name, line_length, owner);
      table = TableRegistry::Instance().Find(created);
      if (!table) {
        *error = "table " + name + ": out of memory";
        return false;
      }
      entry.handle = created;
    }
    w::ValueDesc desc;
    if (!DescribeTable(entry, static_cast<uint32_t>(table->line_length()), &desc, error)) return false;
    table->Clear();
    if (!table->AppendForWriting(source->row_count)) {
      table->Clear();
      *error = "table " + name + ": no memory for " + std::to_string(source->row_count) + " lines";
      return false;
    }
    w::LineConverter converter(source->desc, desc);
    if (converter.identity() && source->desc.length == table->line_length()) {
      // Same layout: whole runs of lines at once.
      const uint8_t* from = source->rows;
      for (const InternalTable::Run& run : table->Runs()) {
        size_t bytes = run.lines * table->line_length();
        std::memcpy(run.data, from, bytes);
        from += bytes;
      }
      continue;
    }
    const uint8_t* line = source->rows;
    for (uint32_t row = 1; row <= source->row_count; ++row, line += source->desc.length) {
      std::string why;
      if (!converter.Convert(line, table->Line(row), &why)) {
        table->Clear();  // half a table would be worse than none
        *error = "table " + name + ", line " + std::to_string(row) + ": " + why;
        return false;
      }
    }
  }
  return true;
}

}  // namespace rfcsim
