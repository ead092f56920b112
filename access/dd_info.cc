#include "access/dd_info.h"

#include <algorithm>
#include <limits>

#include "access/decimal_prefix.h"
#include "access/sap_call_set.h"
#include "access/sap_structure.h"

namespace {

constexpr uint16_t kInfoCall = 0;

}  // namespace

CDdInfo::CDdInfo(CRfcConnection* connection, const std::string& structure_name) {
  CSapCallSet calls(connection, "TABLE_INFO");
  calls.AddFunction("GET_INFO", kInfoCall, "Z_KTZ_BAPI_GET_DD_INFO");
  calls.AddImport(kInfoCall, "TABNAME");
  calls.SetReturnName(kInfoCall, "RETURN");
  calls.SetOutTableName(kInfoCall, "META_TAB");
  calls.SetImport(kInfoCall, "TABNAME", structure_name);
  calls.Call(kInfoCall);
  const CSapStructure* result = calls.GetReturn(kInfoCall);
  if (result == nullptr || !Accepted(*result)) return;
  Evaluate(calls.GetOutTable(kInfoCall));
}

CDdInfo::CDdInfo(const CSapStructure& result, CSapTable* meta_tab) {
  if (Accepted(result)) Evaluate(meta_tab);
}

CDdInfo::~CDdInfo() = default;

bool CDdInfo::Accepted(const CSapStructure& result) {
  // Only an exact "S" is success; "s", "W", "I", "E", "A" and blank refuse.
  if (result.GetValue(std::string("TYPE")) == "S") return true;
  message_ = result.GetValue(std::string("MESSAGE"));
  return false;
}

void CDdInfo::Evaluate(CSapTable* meta_tab) {
  const uint32_t rows = meta_tab != nullptr ? meta_tab->GetRowCount() : 0;
  // Summed wide so that absurd lengths clamp instead of overflowing.
  int64_t offset = 0;
  for (uint32_t r = 0; r < rows; ++r) {
    meta_tab->SetRow(static_cast<int32_t>(r));
    const int32_t decimals = DecimalPrefix(meta_tab->GetValue(std::string("DECIMALS")));
    const int32_t length = DecimalPrefix(meta_tab->GetValue(std::string("LENGTH")));
    const int32_t type = DecimalPrefix(meta_tab->GetValue(std::string("DATATYPE")));
    const int32_t position = DecimalPrefix(meta_tab->GetValue(std::string("POS")));
    const std::string name = meta_tab->GetValue(std::string("FIELDNAME"));
    const auto column_offset = static_cast<int32_t>(
        std::min<int64_t>(offset, std::numeric_limits<int32_t>::max()));
    // A later row at the same position replaces the earlier column.
    columns_[static_cast<uint16_t>(position)] =
        std::make_unique<CSapColumn>(name, position, column_offset, type, length, decimals);
    offset += length;
  }
  complete_ = 1;
}
