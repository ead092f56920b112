#pragma once
// Table and structure parameters filled by hand in librfcsim.so's internal
// tables (no SAP system), so that the text conversions can be fed any content.

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_data.h"
#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/sapsim/support/rfc_library.h"
#include "tests/support/field_info.h"

namespace access_test {

struct Field {
  std::string name;
  int type;
  int length;
  int decimals = 0;
  int column = -1;  // -1: its place in the list
};

inline void LoadLocalLibrary() {
  static const bool loaded = LoadRfcLibrary(sapsim::testing::LibraryPath().c_str());
  if (!loaded) throw std::runtime_error("cannot load " + sapsim::testing::LibraryPath());
}

template <typename Param>
void AddFields(Param& param, const std::vector<Field>& fields) {
  LoadLocalLibrary();
  std::vector<CRfcFieldInfo> records;
  for (const Field& f : fields) {
    const int column = f.column >= 0 ? f.column : static_cast<int>(records.size());
    records.push_back(test_support::Field(f.name.c_str(), column, f.type, f.length, f.decimals));
  }
  param.AddFieldInfo(records.data(), static_cast<int>(records.size()));
}

// Appends a line, one text per column.
inline void AddLine(CRfcTableParam& table, const std::vector<std::string>& texts) {
  if (table.GotoLine(static_cast<int>(ItFill(table.GetTableHandle()))) == 0) throw std::runtime_error("no line");
  for (size_t c = 0; c < texts.size(); ++c) {
    if (table.GetFieldInfo(static_cast<int>(c)) != nullptr) {
      table.GetData(table.GetCurrentLine(), static_cast<int>(c)) = texts[c].c_str();
    }
  }
}

inline std::unique_ptr<CRfcTableParam> MakeTable(const std::string& name, const std::vector<Field>& fields,
                                                 const std::vector<std::vector<std::string>>& lines = {}) {
  auto table = std::make_unique<CRfcTableParam>(name.c_str(), 0, 0, 0, nullptr, "");
  AddFields(*table, fields);
  table->Create();
  for (const auto& line : lines) AddLine(*table, line);
  return table;
}

inline std::unique_ptr<CRfcStructParam> MakeStructure(const std::string& name, const std::vector<Field>& fields,
                                                      const std::vector<std::string>& values) {
  auto structure = std::make_unique<CRfcStructParam>(name.c_str(), 0, 0, nullptr, "");
  AddFields(*structure, fields);
  structure->ResetValue();
  for (size_t i = 0; i < values.size() && i < fields.size(); ++i) {
    structure->FieldValue(static_cast<int>(i)) = values[i].c_str();
  }
  return structure;
}

// RFC_READ_TABLE's FIELDS layout.
inline std::vector<Field> ReadTableFields() {
  return {{"FIELDNAME", TYPE_CHAR, 30}, {"OFFSET", TYPE_NUM, 6}, {"LENGTH", TYPE_NUM, 6},
          {"TYPE", TYPE_CHAR, 1},       {"FIELDTEXT", TYPE_CHAR, 60}};
}

}  // namespace access_test
