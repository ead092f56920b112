#pragma once
// Table and structure parameters of the class library filled by hand, in the
// RFC library's own internal tables (librfcsim.so, no SAP system needed), so
// that the text conversions can be fed any content.

#include <memory>
#include <string>
#include <vector>

#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"

namespace access_test {

struct Field {
  std::string name;
  int type;
  int length;
  int decimals = 0;
  int column = -1;  // -1: its place in the list
};

// Loads librfcsim.so of this build through the binding, once per process.
void LoadLocalLibrary();

// A table parameter with the given fields and an internal table of its own.
std::unique_ptr<CRfcTableParam> MakeTable(const std::string& name, const std::vector<Field>& fields);
// Appends a line; each text is assigned to its column's value (integers are
// assigned as numbers for the integer and byte types).
void AddLine(CRfcTableParam& table, const std::vector<std::string>& texts);
// A table whose lines are the given texts, with the fields given.
std::unique_ptr<CRfcTableParam> MakeFilledTable(const std::string& name,
                                                const std::vector<Field>& fields,
                                                const std::vector<std::vector<std::string>>& lines);

// A structure parameter with the given fields and values.
std::unique_ptr<CRfcStructParam> MakeStructure(const std::string& name,
                                               const std::vector<Field>& fields,
                                               const std::vector<std::string>& values);

// RFC_READ_TABLE's FIELDS and DATA layouts.
std::vector<Field> ReadTableFields();
std::vector<Field> ReadTableData();

}  // namespace access_test
