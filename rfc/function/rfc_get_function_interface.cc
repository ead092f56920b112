#include "rfc/function/rfc_get_function_interface.h"

#include <string>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_error.h"
#include "rfc/function/rfc_dictionary_reading.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"

namespace {

constexpr const char* kCreateFailed = "Failure to create parameters for RFC_GET_FUNCTION_INTERFACE";
constexpr const char* kSimpleImportFailed = "Failure to create parameters";
constexpr const char* kCallFailed = "RFC_GET_FUNCTION_INTERFACE CallReceive failed";

// Columns of a PARAMS line.
enum ParamsColumn {
  kParamClass = 0,
  kParameter = 1,
  kTabName = 2,
  kFieldName = 3,
  kExid = 4,
  kIntLength = 7,
};

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

CRfcDictionaryLine& CRfcGetFunctionInterface::ParamsLine() {
  static CRfcDictionaryLine line("PARAMStypes", kParamsFieldCount,
                                 {kParamsFieldsShort, kParamsElementsShort, kParamsLineShort},
                                 {kParamsFieldsLong, kParamsElementsLong, kParamsLineLong});
  return line;
}

RfcTypeHandle CRfcGetFunctionInterface::RegisterParamsTypes(bool long_layout) {
  return ParamsLine().Register(long_layout);
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
  try {
    params_ = ParamsLine().MakeTable("PARAMS", RfcUsesLongLayouts(connection_));
    funcname_ = NewDictionaryParam("FUNCNAME", TYPE_CHAR, 30);
    language_ = NewDictionaryParam("LANGUAGE", TYPE_CHAR, 1);
    AddImport(funcname_.get());
    AddImport(language_.get());
    AddTable(params_.get());
    params_->Create();
  } catch (const char*) {
    // What was made so far goes with the reader.
    ThrowRfcFailure(kCreateFailed, {TextOrEmpty(function_name_)}, kCreateFailed);
  }

  funcname_->Value() = function_name_;
  funcname_->SetActive(1);
  language_->Value() = "E";
  language_->SetActive(1);
  CallDictionaryFunction(*this, kCallFailed, TextOrEmpty(function_name_));
  // FUNCNAME and LANGUAGE have done their work; they go with the reader.
}

void CRfcGetFunctionInterface::BuildParameters() {
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
        ThrowRfcFailure("CRfcClienFunc, auto-creation of table param failed",
                        {target_->GetName(), parameter.c_str()}, kCreateFailed);
      }
      continue;
    }

    // An empty FIELDNAME means the parameter is typed by a whole structure.
    const bool is_structure = text(kFieldName).empty();
    const std::string exid = text(kExid);
    try {
      std::unique_ptr<CRfcImpExpParam> created;
      if (is_structure) {
        created = rfc::RfcAllocate<CRfcStructParam>(parameter.c_str(), int_length, 1, connection_,
                                                    tab_name.c_str());
      } else {
        created = rfc::RfcAllocate<CRfcSimpleParam>(
            parameter.c_str(), TypeOfExid(exid.empty() ? ' ' : exid[0]), int_length, 0, 1);
      }
      if (!created) throw kRfcAllocationFailed;
      if (is_import) {
        target_->AddImport(created.get());
      } else {
        target_->AddExport(created.get());
      }
      created.release();
    } catch (const char*) {
      if (is_structure) {
        ThrowRfcFailure("CRfcClienFunc, auto-creation of structure param failed",
                        {target_->GetName(), parameter.c_str()}, kCreateFailed);
      }
      ThrowRfcFailure("CRfcClienFunc, auto-creation of simple param failed",
                      {target_->GetName(), parameter.c_str()},
                      is_import ? kSimpleImportFailed : kCreateFailed);
    }
  }
}
