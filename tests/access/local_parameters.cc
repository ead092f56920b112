#include "tests/access/local_parameters.h"

#include <stdexcept>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_data.h"
#include "tests/sapsim/support/rfc_library.h"

namespace access_test {
namespace {

std::vector<CRfcFieldInfo> Records(const std::vector<Field>& fields) {
  std::vector<CRfcFieldInfo> records(fields.size());
  for (size_t i = 0; i < fields.size(); ++i) {
    SetFieldName(records[i], fields[i].name.c_str());
    records[i].column = fields[i].column >= 0 ? fields[i].column : static_cast<int>(i);
    records[i].offset = 0;
    records[i].type = fields[i].type;
    records[i].length = fields[i].length;
    records[i].decimals = fields[i].decimals;
  }
  return records;
}

void Assign(CRfcData& value, int type, const std::string& text) {
  switch (type) {
    case TYPE_INT:
    case TYPE_INT2:
    case TYPE_INT1:
    case TYPE_BYTE:
      value = static_cast<RFC_INT>(std::stol(text));
      break;
    default:
      value = text.c_str();
  }
}

}  // namespace

void LoadLocalLibrary() {
  static const bool loaded = LoadRfcLibrary(sapsim::testing::LibraryPath().c_str());
  if (!loaded) throw std::runtime_error("cannot load " + sapsim::testing::LibraryPath());
}

std::unique_ptr<CRfcTableParam> MakeTable(const std::string& name, const std::vector<Field>& fields) {
  LoadLocalLibrary();
  auto table = std::make_unique<CRfcTableParam>(name.c_str(), 0, 0, 0, nullptr, "");
  std::vector<CRfcFieldInfo> records = Records(fields);
  table->AddFieldInfo(records.data(), static_cast<int>(records.size()));
  table->Create();
  return table;
}

void AddLine(CRfcTableParam& table, const std::vector<std::string>& texts) {
  const int line = static_cast<int>(ItFill(table.GetTableHandle()));
  if (table.GotoLine(line) == 0) throw std::runtime_error("no line");
  for (size_t c = 0; c < texts.size(); ++c) {
    const CRfcFieldInfo* info = table.GetFieldInfo(static_cast<int>(c));
    if (info == nullptr) continue;
    Assign(table.GetData(table.GetCurrentLine(), static_cast<int>(c)), info->type, texts[c]);
  }
}

std::unique_ptr<CRfcTableParam> MakeFilledTable(const std::string& name,
                                                const std::vector<Field>& fields,
                                                const std::vector<std::vector<std::string>>& lines) {
  std::unique_ptr<CRfcTableParam> table = MakeTable(name, fields);
  for (const auto& line : lines) AddLine(*table, line);
  return table;
}

std::unique_ptr<CRfcStructParam> MakeStructure(const std::string& name,
                                               const std::vector<Field>& fields,
                                               const std::vector<std::string>& values) {
  LoadLocalLibrary();
  auto structure = std::make_unique<CRfcStructParam>(name.c_str(), 0, 0, nullptr, "");
  std::vector<CRfcFieldInfo> records = Records(fields);
  structure->AddFieldInfo(records.data(), static_cast<int>(records.size()));
  structure->ResetValue();
  for (size_t i = 0; i < values.size() && i < fields.size(); ++i) {
    Assign(structure->FieldValue(static_cast<int>(i)), fields[i].type, values[i]);
  }
  return structure;
}

std::vector<Field> ReadTableFields() {
  return {{"FIELDNAME", TYPE_CHAR, 30}, {"OFFSET", TYPE_NUM, 6}, {"LENGTH", TYPE_NUM, 6},
          {"TYPE", TYPE_CHAR, 1},       {"FIELDTEXT", TYPE_CHAR, 60}};
}

std::vector<Field> ReadTableData() { return {{"WA", TYPE_CHAR, 512}}; }

}  // namespace access_test
