#include "sapsim/tool/batch_rows.h"

#include <set>

#include "sapsim/server/code_page.h"
#include "sapsim/wire/line_converter.h"
#include "sapsim/wire/rfc_types.h"
#include "sapsim/wire/value_converter.h"

namespace sapsim::tool {

bool BuildBatchRows(const std::vector<CsvRecord>& records, const std::string& structure,
                    const wire::ValueDesc& layout, BatchRows* rows, std::string* error) {
  if (records.empty()) {
    *error = "no header line (the first line names the fields of " + structure + ")";
    return false;
  }
  const CsvRecord& header = records.front();
  std::vector<const wire::FieldDesc*> columns;
  std::set<std::string> seen;
  for (size_t c = 0; c < header.fields.size(); ++c) {
    std::string name = header.fields[c];
    while (!name.empty() && name.back() == ' ') name.pop_back();
    while (!name.empty() && name.front() == ' ') name.erase(0, 1);
    const wire::FieldDesc* field = nullptr;
    for (const wire::FieldDesc& candidate : layout.fields) {
      if (candidate.name == name) field = &candidate;
    }
    std::string where = "line " + std::to_string(header.line) + ", column " + std::to_string(c + 1);
    if (field == nullptr) {
      *error = where + ": unknown column \"" + name + "\" (not a field of " + structure + ")";
      return false;
    }
    if (!seen.insert(name).second) {
      *error = where + ": column " + name + " appears twice";
      return false;
    }
    columns.push_back(field);
  }
  std::vector<uint8_t> initial = wire::InitialLine(layout);
  rows->line_length = layout.length;
  rows->row_count = 0;
  rows->bytes.clear();
  rows->bytes.reserve((records.size() - 1) * static_cast<size_t>(layout.length));
  for (size_t r = 1; r < records.size(); ++r) {
    const CsvRecord& record = records[r];
    if (record.fields.size() > columns.size()) {
      *error = "line " + std::to_string(record.line) + ": " + std::to_string(record.fields.size()) +
               " values, the header names " + std::to_string(columns.size()) + " columns";
      return false;
    }
    size_t start = rows->bytes.size();
    rows->bytes.insert(rows->bytes.end(), initial.begin(), initial.end());
    uint8_t* line = rows->bytes.data() + start;
    for (size_t c = 0; c < record.fields.size(); ++c) {
      if (record.fields[c].empty()) continue;
      const wire::FieldDesc& field = *columns[c];
      std::string where = "line " + std::to_string(record.line) + ", column " + std::to_string(c + 1) + " (" +
                          field.name + ")";
      // The system holds its text in its code page: lengths count its characters.
      std::string text;
      std::string why;
      if (!server::ToSystemCodePage(record.fields[c], &text, &why)) {
        *error = where + ": " + why;
        return false;
      }
      if (field.type == wire::kTypeChar && text.size() > field.length) {
        *error = where + ": value too long: " + std::to_string(text.size()) + " characters, the field holds " +
                 std::to_string(field.length);
        return false;
      }
      if (!wire::ConvertValue(wire::SimpleType{wire::kTypeChar, static_cast<uint32_t>(text.size()), 0},
                              reinterpret_cast<const uint8_t*>(text.data()),
                              wire::SimpleType{field.type, field.length, field.decimals}, line + field.offset,
                              &why)) {
        *error = where + ": " + why;
        return false;
      }
    }
    ++rows->row_count;
  }
  return true;
}

}  // namespace sapsim::tool
