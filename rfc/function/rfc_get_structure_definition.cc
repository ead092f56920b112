#include "rfc/function/rfc_get_structure_definition.h"

#include <cstdint>
#include <string>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_error.h"
#include "rfc/core/rfc_trace.h"
#include "rfc/function/rfc_dictionary_reading.h"
#include "rfc/function/rfc_get_function_interface.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_info.h"
#include "rfc/function/rfc_table_param.h"

namespace {

constexpr const char* kCreateFailed = "Failure to create parameters for RFC_GET_STRUCTURE_DEFINITION";
constexpr const char* kCallFailed = "RFC_GET_STRUCTURE_DEFINITION CallReceive failed";
constexpr const char* kAddFieldInfoFailed = "Failure from AddFieldInfo";

// Columns of a FIELDS line.
enum FieldsColumn {
  kFieldName = 1,
  kPosition = 2,
  kOffset = 3,
  kIntLength = 4,
  kDecimals = 5,
  kExid = 6,
};

const char* TextOrEmpty(const char* text) { return text != nullptr ? text : ""; }

}  // namespace

const CRfcFieldInfo CRfcGetStructureDefinition::kFieldsFieldsShort[kFieldsFieldCount] = {
    {"TABNAME", 0, 0, TYPE_CHAR, 10, 0},   {"FIELDNAME", 1, 10, TYPE_CHAR, 10, 0},
    {"POSITION", 2, 20, TYPE_INT, 4, 0},   {"OFFSET", 3, 24, TYPE_INT, 4, 0},
    {"INTLENGTH", 4, 28, TYPE_INT, 4, 0},  {"DECIMALS", 5, 32, TYPE_INT, 4, 0},
    {"EXID", 6, 36, TYPE_CHAR, 1, 0},
};

const CRfcFieldInfo CRfcGetStructureDefinition::kFieldsFieldsLong[kFieldsFieldCount] = {
    {"TABNAME", 0, 0, TYPE_CHAR, 30, 0},   {"FIELDNAME", 1, 30, TYPE_CHAR, 30, 0},
    {"POSITION", 2, 60, TYPE_INT, 4, 0},   {"OFFSET", 3, 64, TYPE_INT, 4, 0},
    {"INTLENGTH", 4, 68, TYPE_INT, 4, 0},  {"DECIMALS", 5, 72, TYPE_INT, 4, 0},
    {"EXID", 6, 76, TYPE_CHAR, 1, 0},
};

const RfcTypeElement CRfcGetStructureDefinition::kFieldsElementsShort[kFieldsFieldCount] = {
    {"TABNAME", TYPE_CHAR, 10, 0, 0}, {"FIELDNAME", TYPE_CHAR, 10, 0, 0},
    {"POSITION", TYPE_INT, 4, 0, 0},  {"OFFSET", TYPE_INT, 4, 0, 0},
    {"INTLENGTH", TYPE_INT, 4, 0, 0}, {"DECIMALS", TYPE_INT, 4, 0, 0},
    {"EXID", TYPE_CHAR, 1, 0, 0},
};

const RfcTypeElement CRfcGetStructureDefinition::kFieldsElementsLong[kFieldsFieldCount] = {
    {"TABNAME", TYPE_CHAR, 30, 0, 0}, {"FIELDNAME", TYPE_CHAR, 30, 0, 0},
    {"POSITION", TYPE_INT, 4, 0, 0},  {"OFFSET", TYPE_INT, 4, 0, 0},
    {"INTLENGTH", TYPE_INT, 4, 0, 0}, {"DECIMALS", TYPE_INT, 4, 0, 0},
    {"EXID", TYPE_CHAR, 1, 0, 0},
};

CRfcDictionaryLine& CRfcGetStructureDefinition::FieldsLine() {
  static CRfcDictionaryLine line("FIELDStypes", kFieldsFieldCount,
                                 {kFieldsFieldsShort, kFieldsElementsShort, kFieldsLineShort},
                                 {kFieldsFieldsLong, kFieldsElementsLong, kFieldsLineLong});
  return line;
}

RfcTypeHandle CRfcGetStructureDefinition::RegisterFieldsTypes(bool long_layout) {
  return FieldsLine().Register(long_layout);
}

CRfcGetStructureDefinition::CRfcGetStructureDefinition(CRfcStructInfo* target,
                                                       const char* structName,
                                                       CRfcConnection* connection)
    : CRfcClientFunc(connection, "RFC_GET_STRUCTURE_DEFINITION", 0),
      struct_name_(structName),
      target_(target) {
  ReadDefinition(RfcUsesLongLayouts(connection));
  BuildFields();
}

CRfcGetStructureDefinition::~CRfcGetStructureDefinition() = default;

void CRfcGetStructureDefinition::ReadDefinition(bool long_layout) {
  try {
    fields_ = FieldsLine().MakeTable("FIELDS", long_layout);
    tabname_ = NewDictionaryParam("TABNAME", TYPE_CHAR, long_layout ? 30 : 10);
    tablength_ = NewDictionaryParam("TABLENGTH", TYPE_INT, 4);
    AddImport(tabname_.get());
    AddExport(tablength_.get());
    AddTable(fields_.get());
    fields_->Create();
  } catch (const char*) {
    // What was made so far goes with the reader.
    ThrowRfcFailure(kCreateFailed, {}, kCreateFailed);
  }
  // A name longer than the layout's TABNAME fails with the value's own text,
  // before the call.
  tabname_->Value() = struct_name_;
  tabname_->SetActive(1);
  CallDictionaryFunction(*this, kCallFailed, TextOrEmpty(struct_name_));
  // TABLENGTH is not used: the length always follows from the fields.
}

void CRfcGetStructureDefinition::BuildFields() {
  const TableHandle table = fields_->GetTableHandle();
  const unsigned count = table != nullptr ? ItFill(table) : 0;
  // AddFieldInfo counts in 32 bits; no structure comes near that.
  if (count > static_cast<unsigned>(INT32_MAX)) throw kRfcAllocationFailed;
  std::unique_ptr<CRfcFieldInfo[]> records = rfc::RfcAllocateArray<CRfcFieldInfo>(count);
  if (!records) {
    ThrowRfcFailure("Memory Allocation Failure", {TextOrEmpty(struct_name_)}, kRfcAllocationFailed);
  }
  for (unsigned n = 1; n <= count; ++n) {
    void* line = ItGetLine(table, n);
    if (line == nullptr) throw "ItGetLine Failure!";
    CRfcFieldInfo& record = records[n - 1];
    SetFieldName(record, TextOrEmpty(fields_->GetData(line, kFieldName)));
    // POSITION counts from 1; anything below gives a column that is not kept.
    const RFC_INT position = static_cast<RFC_INT>(fields_->GetData(line, kPosition));
    record.column = position > 0 ? position - 1 : -1;
    record.offset = static_cast<RFC_INT>(fields_->GetData(line, kOffset));
    const char* exid = fields_->GetData(line, kExid);
    record.type = CRfcGetFunctionInterface::TypeOfExid(exid != nullptr && exid[0] != '\0' ? exid[0]
                                                                                          : ' ');
    record.length = static_cast<RFC_INT>(fields_->GetData(line, kIntLength));
    record.decimals = static_cast<RFC_INT>(fields_->GetData(line, kDecimals));
  }
  try {
    target_->AddFieldInfo(records.get(), static_cast<int>(count));
  } catch (const char*) {
    GetRfcTrace().WriteLine(kAddFieldInfoFailed);
    throw kAddFieldInfoFailed;
  }
}
