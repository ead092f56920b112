#include "rfc/function/rfc_function.h"

#include <cstring>

#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/core/rfc_error.h"
#include "rfc/function/rfc_byte_order.h"
#include "rfc/function/rfc_imp_exp_param.h"
#include "rfc/function/rfc_table_param.h"

namespace {

constexpr int kNameCapacity = 30;

// Fresh array of `slots` zeroed entries, or the operation's failure report.
template <typename Entry>
std::unique_ptr<Entry[]> NewArray(int slots, const char* operation) {
  std::unique_ptr<Entry[]> array = rfc::RfcAllocateArray<Entry>(static_cast<size_t>(slots));
  if (!array) ThrowRfcFailure(operation, {kRfcAllocationFailed}, kRfcAllocationFailed);
  return array;
}

}  // namespace

CRfcFunction::CRfcFunction(CRfcConnection* connection, const char* name)
    : name_(name, kNameCapacity), connection_(connection) {
  name_.MakeUpper();
  name_.SetUpperCase(1);
}

CRfcFunction::CRfcFunction(const CRfcFunction& other)
    : name_(other.name_), connection_(other.connection_) {}

CRfcFunction::~CRfcFunction() = default;

ConnectionHandle CRfcFunction::GetHandle() const {
  return connection_ != nullptr ? connection_->GetHandle() : 0;
}

void CRfcFunction::AddParam(CRfcList<CRfcImpExpParam>& list, CRfcImpExpParam* param,
                            int& changed) {
  if (param == nullptr) return;
  list.Add(param);
  changed = 1;
  param->SetOwner(this);
}

void CRfcFunction::AddImport(CRfcImpExpParam* param) { AddParam(imports_, param, imports_changed_); }

void CRfcFunction::AddExport(CRfcImpExpParam* param) { AddParam(exports_, param, exports_changed_); }

void CRfcFunction::AddTable(CRfcTableParam* table) {
  if (table == nullptr) return;
  tables_.Add(table);
  tables_changed_ = 1;
  table->SetOwner(this);
}

CRfcImpExpParam* CRfcFunction::FindImpExp(const CRfcList<CRfcImpExpParam>& list,
                                          const char* name, int* index) const {
  CRfcString wanted(name);
  wanted.MakeUpper();
  const char* key = wanted;
  if (key == nullptr || key[0] == '\0') return nullptr;
  for (int i = 0; i < list.GetCount(); ++i) {
    CRfcImpExpParam* param = list.GetAt(i);
    if (param == nullptr) continue;
    const char* param_name = param->GetName();
    if (param_name != nullptr && std::strcmp(param_name, key) == 0) {
      if (index != nullptr) *index = i;
      return param;
    }
  }
  return nullptr;
}

CRfcTableParam* CRfcFunction::FindTable(const CRfcList<CRfcTableParam>& list, const char* name,
                                        int* index) const {
  CRfcString wanted(name);
  wanted.MakeUpper();
  const char* key = wanted;
  if (key == nullptr || key[0] == '\0') return nullptr;
  for (int i = 0; i < list.GetCount(); ++i) {
    CRfcTableParam* table = list.GetAt(i);
    if (table == nullptr) continue;
    const char* table_name = table->GetName();
    if (table_name != nullptr && std::strcmp(table_name, key) == 0) {
      if (index != nullptr) *index = i;
      return table;
    }
  }
  return nullptr;
}

void CRfcFunction::SetUpParams(const CRfcList<CRfcImpExpParam>& list, int bAll, bool clear_simple,
                               std::unique_ptr<RfcParameterEntry[]>& array, int& slots,
                               int& changed, const char* operation) {
  // Room for the whole list, whatever is active now.
  const int needed = list.GetCount() + 1;
  if (changed != 0 || slots < needed || !array) {
    array.reset();
    slots = 0;
    array = NewArray<RfcParameterEntry>(needed, operation);
    slots = needed;
    changed = 0;
  }
  int entry = 0;
  for (int i = 0; i < list.GetCount(); ++i) {
    CRfcImpExpParam* param = list.GetAt(i);
    if (param == nullptr || (bAll == 0 && param->IsActive() == 0)) continue;
    RfcParameterEntry& filled = array[static_cast<size_t>(entry++)];
    filled = RfcParameterEntry{};
    param->FillParameter(filled);
    if (clear_simple && param->IsSimple() != 0) param->SetActive(0);
  }
  array[static_cast<size_t>(entry)] = RfcParameterEntry{};
}

void CRfcFunction::SetUpImports(int bAll) {
  SetUpParams(imports_, bAll, true, import_array_, import_slots_, imports_changed_,
              "CRfcFunction::SetUpImports called");
}

void CRfcFunction::SetUpExports() {
  SetUpParams(exports_, 1, false, export_array_, export_slots_, exports_changed_,
              "CRfcFunction::SetUpExports called");
}

void CRfcFunction::SetUpTables() {
  const int needed = tables_.GetCount() + 1;
  if (tables_changed_ != 0 || table_slots_ < needed || !table_array_) {
    table_array_.reset();
    table_slots_ = 0;
    table_entries_ = 0;
    table_array_ = NewArray<RfcTableEntry>(needed, "CRfcFunction::SetUpTables called");
    table_slots_ = needed;
    tables_changed_ = 0;
  }
  int entry = 0;
  for (int i = 0; i < tables_.GetCount(); ++i) {
    CRfcTableParam* table = tables_.GetAt(i);
    if (table == nullptr) continue;
    RfcTableEntry& filled = table_array_[static_cast<size_t>(entry++)];
    filled = RfcTableEntry{};
    table->FillTable(filled);
  }
  table_array_[static_cast<size_t>(entry)] = RfcTableEntry{};
  table_entries_ = entry;
}

void CRfcFunction::AfterCall() {
  if (!table_array_) return;
  const bool byte_order_switch = GetRfcByteOrderSwitch() != 0;
  int entry = 0;
  for (int i = 0; i < tables_.GetCount() && entry < table_entries_; ++i) {
    CRfcTableParam* table = tables_.GetAt(i);
    if (table == nullptr) continue;
    table->TakeTableHandle(table_array_[static_cast<size_t>(entry++)].handle);
    if (byte_order_switch && table->GetNoConversion() == 0) table->SetNativeLines(0);
  }
}
