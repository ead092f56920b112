#include "access/sap_call.h"

#include <cstring>

#include "rfc/core/rfc_string.h"
#include "rfc/core/rfc_thrown_text.h"
#include "rfc/function/rfc_client_func.h"
#include "rfc/function/rfc_imp_exp_param.h"
#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"

namespace {

// The class library's lookup rule for a name that is compared as given:
// right-trimmed, then in upper case; an empty name matches nothing.
CRfcString LookupName(const std::string& name) {
  CRfcString key(name.c_str());
  if (key.GetLength() > 0) key.MakeUpper();
  return key;
}

bool SameName(const CRfcString& key, const char* name) {
  return key.GetLength() > 0 && name != nullptr && std::strcmp(key, name) == 0;
}

}  // namespace

CSapImportValue::~CSapImportValue() = default;

CSapCall::CSapCall() = default;

CSapCall::~CSapCall() = default;

int CSapCall::Init(CRfcConnection* connection, const std::string& call_name,
                   const std::string& function_module) {
  if (function_) return 1;
  call_name_ = call_name;
  function_ = std::make_unique<CRfcClientFunc>(connection, function_module.c_str(), 1);
  return 1;
}

int CSapCall::AddImport(const std::string& name) {
  // A name declared again starts over with an empty value.
  imports_[name] = std::make_unique<CSapImportValue>();
  return 1;
}

int CSapCall::SetImport(const std::string& name, const std::string& value) {
  const auto found = imports_.find(name);
  if (found == imports_.end()) return 0;
  found->second->SetValue(value);
  return 1;
}

int CSapCall::AddTable(const std::string& name) {
  tables_.emplace(name, nullptr);
  return 1;
}

int CSapCall::SetReturnName(const std::string& name) {
  return_name_ = name;
  return 1;
}

int CSapCall::SetOutTableName(const std::string& name) {
  out_table_name_ = name;
  return 1;
}

int CSapCall::Call() {
  out_table_.reset();
  return_.reset();
  for (auto& table : tables_) table.second.reset();
  // Without a function (Init never ran) there is nothing to call.
  if (!function_) return 0;

  for (const auto& import : imports_) {
    CRfcImpExpParam* param = function_->FindImpExp(function_->GetImports(), import.first.c_str());
    if (param == nullptr) {
      throw BAPI_ERROR_INFO{std::string(), call_name_, import.first, kImportFailed};
    }
    param->SetActive(1);
    param->Value() = import.second->GetValue().c_str();
  }

  char* exception = nullptr;
  if (function_->CallReceive(exception, 0) != 0) {
    // The library's buffer behind the name is reused by the next call.
    throw KeepThrownText(exception);
  }

  for (auto& table : tables_) {
    CRfcTableParam* param = function_->FindTable(function_->GetTables(), table.first.c_str());
    table.second = std::make_unique<CSapTable>(param);
  }
  return 1;
}

CSapStructure* CSapCall::GetReturn() {
  if (return_) return return_.get();
  CRfcStructParam* found = nullptr;
  if (function_) {
    const CRfcString key = LookupName(return_name_);
    const CRfcList<CRfcImpExpParam>& exports = function_->GetExports();
    for (int i = 0; i < exports.GetCount(); ++i) {
      CRfcImpExpParam* param = exports.GetAt(i);
      if (param == nullptr || !SameName(key, param->GetName())) continue;
      // A simple export of that name is no structure to read.
      found = dynamic_cast<CRfcStructParam*>(param);
      break;
    }
  }
  return_ = std::make_unique<CSapStructure>(found);
  return return_.get();
}

CSapTable* CSapCall::GetOutTable() {
  if (out_table_) return out_table_.get();
  CRfcTableParam* found = nullptr;
  if (function_) {
    const CRfcString key = LookupName(out_table_name_);
    const CRfcList<CRfcTableParam>& tables = function_->GetTables();
    for (int i = 0; i < tables.GetCount(); ++i) {
      CRfcTableParam* table = tables.GetAt(i);
      if (table != nullptr && SameName(key, table->GetName())) {
        found = table;
        break;
      }
    }
  }
  out_table_ = std::make_unique<CSapTable>(found);
  return out_table_.get();
}

CSapTable* CSapCall::GetTable(const std::string& name) const {
  const auto found = tables_.find(name);
  return found == tables_.end() ? nullptr : found->second.get();
}
