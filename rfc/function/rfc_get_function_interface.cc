#include "rfc/function/rfc_get_function_interface.h"

#include <string>

#include "platform/critical_section.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/core/rfc_error.h"
#include "rfc/core/rfc_thrown_text.h"
#include "rfc/core/rfc_trace.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"

namespace {

constexpr const char* kParamsTypes = "PARAMStypes";
constexpr const char* kCreateFailed = "Failure to create parameters for RFC_GET_FUNCTION_INTERFACE";
constexpr const char* kSimpleImportFailed = "Failure to create parameters";
constexpr const char* kCallFailed = "RFC_GET_FUNCTION_INTERFACE CallReceive failed";
constexpr const char* kLongNamesRelease = "40A";

// Columns of a PARAMS line.
enum ParamsColumn {
  kParamClass = 0,
  kParameter = 1,
  kTabName = 2,
  kFieldName = 3,
  kExid = 4,
  kIntLength = 7,
};

// The process-wide registration of a dictionary line structure.
struct LineRegistration {
  platform::CriticalSection lock;
  RfcTypeHandle handle = 0;
  int layout = -1;  // 0 short, 1 long, -1 never installed
};

LineRegistration& ParamsRegistration() {
  static LineRegistration registration;
  return registration;
}

const char* TextOrEmpty(const char* text) { return text != nullptr ? text : ""; }

}  // namespace

const CRfcFieldInfo CRfcGetFunctionInterface::kParamsFieldsShort[kParamsFieldCount] = {
    {"PARAMCLASS", 0, 0, TYPE_CHAR, 1, 0},  {"PARAMETER", 1, 1, TYPE_CHAR, 30, 0},
    {"TABNAME", 2, 31, TYPE_CHAR, 10, 0},   {"FIELDNAME", 3, 41, TYPE_CHAR, 10, 0},
    {"EXID", 4, 51, TYPE_CHAR, 1, 0},       {"POSITION", 5, 52, TYPE_INT, 4, 0},
    {"OFFSET", 6, 56, TYPE_INT, 4, 0},      {"INTLENGTH", 7, 60, TYPE_INT, 4, 0},
    {"DECIMALS", 8, 64, TYPE_INT, 4, 0},    {"DEFAULT", 9, 68, TYPE_CHAR, 21, 0},
    {"PARAMTEXT", 10, 89, TYPE_CHAR, 79, 0},
};

const CRfcFieldInfo CRfcGetFunctionInterface::kParamsFieldsLong[kParamsFieldCount] = {
    {"PARAMCLASS", 0, 0, TYPE_CHAR, 1, 0},   {"PARAMETER", 1, 1, TYPE_CHAR, 30, 0},
    {"TABNAME", 2, 31, TYPE_CHAR, 30, 0},    {"FIELDNAME", 3, 61, TYPE_CHAR, 30, 0},
    {"EXID", 4, 91, TYPE_CHAR, 1, 0},        {"POSITION", 5, 92, TYPE_INT, 4, 0},
    {"OFFSET", 6, 96, TYPE_INT, 4, 0},       {"INTLENGTH", 7, 100, TYPE_INT, 4, 0},
    {"DECIMALS", 8, 104, TYPE_INT, 4, 0},    {"DEFAULT", 9, 108, TYPE_CHAR, 21, 0},
    {"PARAMTEXT", 10, 129, TYPE_CHAR, 79, 0},
};

const RfcTypeElement CRfcGetFunctionInterface::kParamsElementsShort[kParamsFieldCount] = {
    {"PARAMCLASS", TYPE_CHAR, 1, 0, 0}, {"PARAMETER", TYPE_CHAR, 30, 0, 0},
    {"TABNAME", TYPE_CHAR, 10, 0, 0},   {"FIELDNAME", TYPE_CHAR, 10, 0, 0},
    {"EXID", TYPE_CHAR, 1, 0, 0},       {"POSITION", TYPE_INT, 4, 0, 0},
    {"OFFSET", TYPE_INT, 4, 0, 0},      {"INTLENGTH", TYPE_INT, 4, 0, 0},
    {"DECIMALS", TYPE_INT, 4, 0, 0},    {"DEFAULT", TYPE_CHAR, 21, 0, 0},
    {"PARAMTEXT", TYPE_CHAR, 79, 0, 0},
};

const RfcTypeElement CRfcGetFunctionInterface::kParamsElementsLong[kParamsFieldCount] = {
    {"PARAMCLASS", TYPE_CHAR, 1, 0, 0}, {"PARAMETER", TYPE_CHAR, 30, 0, 0},
    {"TABNAME", TYPE_CHAR, 30, 0, 0},   {"FIELDNAME", TYPE_CHAR, 30, 0, 0},
    {"EXID", TYPE_CHAR, 1, 0, 0},       {"POSITION", TYPE_INT, 4, 0, 0},
    {"OFFSET", TYPE_INT, 4, 0, 0},      {"INTLENGTH", TYPE_INT, 4, 0, 0},
    {"DECIMALS", TYPE_INT, 4, 0, 0},    {"DEFAULT", TYPE_CHAR, 21, 0, 0},
    {"PARAMTEXT", TYPE_CHAR, 79, 0, 0},
};

int CRfcGetFunctionInterface::TypeOfExid(char exid) {
  switch (exid) {
    case 'C':
      return TYPE_CHAR;
    case 'D':
      return TYPE_DATE;
    case 'P':
      return TYPE_BCD;
    case 'T':
      return TYPE_TIME;
    case 'X':
      return TYPE_BYTE;
    case 'N':
      return TYPE_NUM;
    case 'F':
      return TYPE_FLOAT;
    case 'I':
      return TYPE_INT;
    case 's':
      return TYPE_INT2;
    case 'b':
      return TYPE_INT1;
    default:
      return 9999;
  }
}

RfcTypeHandle CRfcGetFunctionInterface::RegisterParamsTypes(bool long_layout) {
  LineRegistration& registration = ParamsRegistration();
  platform::CriticalSectionLock hold(registration.lock);
  const int layout = long_layout ? 1 : 0;
  if (registration.handle == 0 || registration.layout != layout) {
    // The library takes a modifiable array; hand it a copy of the constants.
    RfcTypeElement elements[kParamsFieldCount];
    const RfcTypeElement* source = long_layout ? kParamsElementsLong : kParamsElementsShort;
    for (int i = 0; i < kParamsFieldCount; ++i) elements[i] = source[i];
    RfcTypeHandle handle = 0;
    if (RfcInstallStructure(kParamsTypes, elements, kParamsFieldCount, &handle) != 0) {
      throw "RfcInstallStructure failed!";
    }
    registration.handle = handle;
    registration.layout = layout;
  }
  return registration.handle;
}

CRfcGetFunctionInterface::CRfcGetFunctionInterface(CRfcClientFunc* target,
                                                   const char* functionName,
                                                   CRfcConnection* connection)
    : CRfcClientFunc(connection, "RFC_GET_FUNCTION_INTERFACE", 0),
      function_name_(functionName),
      connection_(connection),
      target_(target) {
  ReadInterface();
  BuildParameters();
}

CRfcGetFunctionInterface::~CRfcGetFunctionInterface() = default;

void CRfcGetFunctionInterface::ReadInterface() {
  CRfcTrace& trace = GetRfcTrace();
  const bool long_layout = connection_ != nullptr && connection_->GetRelease() >= kLongNamesRelease;
  try {
    const RfcTypeHandle handle = RegisterParamsTypes(long_layout);
    params_ = rfc::RfcAllocate<CRfcTableParam>("PARAMS",
                                               long_layout ? kParamsLineLong : kParamsLineShort, 0,
                                               0, nullptr, nullptr);
    if (!params_) throw kRfcAllocationFailed;
    params_->SetTypeHandle(handle);
    // AddFieldInfo rewrites the offsets of the array it is given.
    CRfcFieldInfo fields[kParamsFieldCount];
    const CRfcFieldInfo* source = long_layout ? kParamsFieldsLong : kParamsFieldsShort;
    for (int i = 0; i < kParamsFieldCount; ++i) fields[i] = source[i];
    params_->AddFieldInfo(fields, kParamsFieldCount);

    funcname_ = rfc::RfcAllocate<CRfcSimpleParam>("FUNCNAME", TYPE_CHAR, 30, 0, 0);
    if (!funcname_) throw kRfcAllocationFailed;
    language_ = rfc::RfcAllocate<CRfcSimpleParam>("LANGUAGE", TYPE_CHAR, 1, 0, 0);
    if (!language_) throw kRfcAllocationFailed;
    AddImport(funcname_.get());
    AddImport(language_.get());
    AddTable(params_.get());
    params_->Create();
  } catch (const char*) {
    trace.WriteHeader();
    trace.WriteLine(kCreateFailed);
    trace.WriteLine(TextOrEmpty(function_name_));
    language_.reset();
    funcname_.reset();
    params_.reset();
    throw kCreateFailed;
  }

  funcname_->Value() = function_name_;
  funcname_->SetActive(1);
  language_->Value() = "E";
  language_->SetActive(1);

  char* exception = nullptr;
  int rc = 0;
  try {
    rc = CallReceive(exception, 0);
  } catch (const RFC_ERROR_INFO& error) {
    trace.WriteHeader();
    trace.WriteLine(kCallFailed);
    trace.WriteLine(TextOrEmpty(function_name_));
    trace.WriteError(error);
    language_.reset();
    funcname_.reset();
    params_.reset();
    throw;
  }
  if (rc != 0) {
    // The library reuses the name's buffer; keep a copy before going on.
    const char* name = KeepThrownText(exception);
    trace.WriteHeader();
    trace.WriteLine(kCallFailed);
    trace.WriteLine(TextOrEmpty(function_name_));
    trace.WriteLine(name);
    language_.reset();
    funcname_.reset();
    params_.reset();
    throw name;
  }
  // FUNCNAME and LANGUAGE have done their work; they go with the reader.
}

void CRfcGetFunctionInterface::BuildParameters() {
  CRfcTrace& trace = GetRfcTrace();
  const TableHandle table = params_->GetTableHandle();
  const unsigned count = table != nullptr ? ItFill(table) : 0;
  for (unsigned n = 1; n <= count; ++n) {
    // Every column is read from a fresh look-up of its line.
    auto line = [&]() {
      void* found = ItGetLine(table, n);
      if (found == nullptr) throw "ItGetLine Failure!";
      return found;
    };
    auto text = [&](int column) {
      return std::string(TextOrEmpty(params_->GetData(line(), column)));
    };
    const std::string param_class = text(kParamClass);
    const bool is_import = !param_class.empty() && param_class[0] == 'I';
    const bool is_export = param_class == "E";
    const bool is_table = param_class == "T";
    if (!is_import && !is_export && !is_table) continue;

    const std::string parameter = text(kParameter);
    const std::string tab_name = text(kTabName);
    const RFC_INT int_length = static_cast<RFC_INT>(params_->GetData(line(), kIntLength));

    if (is_table) {
      try {
        std::unique_ptr<CRfcTableParam> created = rfc::RfcAllocate<CRfcTableParam>(
            parameter.c_str(), int_length, 0, 1, connection_, tab_name.c_str());
        if (!created) throw kRfcAllocationFailed;
        CRfcTableParam* added = created.get();
        target_->AddTable(added);
        created.release();
        added->Create();
      } catch (const char*) {
        trace.WriteHeader();
        trace.WriteLine("CRfcClienFunc, auto-creation of table param failed");
        trace.WriteLine(target_->GetName());
        trace.WriteLine(parameter.c_str());
        throw kCreateFailed;
      }
      continue;
    }

    const std::string field_name = text(kFieldName);
    const std::string exid = text(kExid);
    std::unique_ptr<CRfcImpExpParam> created;
    if (field_name.empty()) {
      try {
        created = rfc::RfcAllocate<CRfcStructParam>(parameter.c_str(), int_length, 1, connection_,
                                                    tab_name.c_str());
        if (!created) throw kRfcAllocationFailed;
        if (is_import) {
          target_->AddImport(created.get());
        } else {
          target_->AddExport(created.get());
        }
        created.release();
      } catch (const char*) {
        trace.WriteHeader();
        trace.WriteLine("CRfcClienFunc, auto-creation of structure param failed");
        trace.WriteLine(target_->GetName());
        trace.WriteLine(parameter.c_str());
        throw kCreateFailed;
      }
    } else {
      try {
        created = rfc::RfcAllocate<CRfcSimpleParam>(
            parameter.c_str(), TypeOfExid(exid.empty() ? ' ' : exid[0]), int_length, 0, 1);
        if (!created) throw kRfcAllocationFailed;
        if (is_import) {
          target_->AddImport(created.get());
        } else {
          target_->AddExport(created.get());
        }
        created.release();
      } catch (const char*) {
        trace.WriteHeader();
        trace.WriteLine("CRfcClienFunc, auto-creation of simple param failed");
        trace.WriteLine(target_->GetName());
        trace.WriteLine(parameter.c_str());
        throw is_import ? kSimpleImportFailed : kCreateFailed;
      }
    }
  }
}
