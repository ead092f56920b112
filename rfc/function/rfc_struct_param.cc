#include "rfc/function/rfc_struct_param.h"

#include <cstring>
#include <memory>

#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/core/rfc_error.h"
#include "rfc/core/rfc_trace.h"
#include "rfc/function/rfc_byte_order.h"
#include "rfc/function/rfc_get_structure_definition.h"
#include "rfc/function/rfc_meta_dump.h"

namespace {

constexpr const char* kConstructed = "CRfcStructParam::CRfcStructParam(CSTR paramName...) called";
constexpr const char* kAutoCreateFailed = "Failure to auto-create structure parameter";
// The release from which the dictionary answers with long names.
constexpr const char* kLongNamesRelease = "40A";

}  // namespace

const CRfcFieldInfo* CRfcStructParam::BoundField(int column) const {
  // Without a buffer (a failed SetLength) no field lies inside it.
  const CRfcFieldInfo* field = FieldInside(column, GetBuffer() != nullptr ? GetLength() : 0);
  if (field == nullptr || GetBuffer() == nullptr) return nullptr;
  Value().Init(GetBuffer() + field->offset, field->type, field->length, field->decimals);
  return field;
}

CRfcStructParam::CRfcStructParam(const char* paramName, int length, int autoCreate,
                                 CRfcConnection* connection, const char* structName)
    : CRfcImpExpParam(paramName, autoCreate != 0 ? 0 : length), auto_created_(autoCreate) {
  GetRfcTrace().WriteLine(kConstructed);
  if (autoCreate == 0) {
    SetTotalLength(length);
  } else {
    const CRfcString release = connection != nullptr ? connection->GetRelease() : CRfcString("");
    SetLongNames(release >= kLongNamesRelease ? 1 : 0);
    // The reader describes this parameter while it is constructed.
    std::unique_ptr<CRfcGetStructureDefinition> reader =
        rfc::RfcAllocate<CRfcGetStructureDefinition>(this, structName, connection);
    if (!reader) ThrowRfcFailure(kConstructed, {kAutoCreateFailed}, kAutoCreateFailed);
    reader.reset();
    SetRelease(release);
    SetTypeName(structName);
  }
  ResetValue();
}

CRfcStructParam::~CRfcStructParam() = default;

void CRfcStructParam::ResetValue() {
  CRfcImpExpParam::ResetValue();
  for (int i = 0; i < GetFieldCount(); ++i) {
    if (BoundField(i) != nullptr) Value().ClearValue();
  }
}

int CRfcStructParam::Dump(CRfcMetaDump& sink, const char* direction) {
  const bool import = direction != nullptr && std::strcmp(direction, "IMPORT") == 0;
  const char* type_name = GetTypeName();
  if (!sink.WriteLine(import ? CRfcMetaDump::kStructImportName : CRfcMetaDump::kStructExportName,
                      GetName()) ||
      !sink.WriteLine(CRfcMetaDump::kStructParamType, type_name)) {
    return 0;
  }
  return sink.WriteStructType(*this);
}

void CRfcStructParam::SetLength(int nLength) {
  SetTotalLength(nLength);
  CRfcImpExpParam::SetLength(nLength);
}

void CRfcStructParam::FillParameter(RfcParameterEntry& entry) {
  CRfcImpExpParam::FillParameter(entry);
  entry.type = EntryType();
}

void CRfcStructParam::AfterReceive() {
  if (GetRfcByteOrderSwitch() == 0) return;
  CRfcData& value = Value();
  for (int i = 0; i < GetFieldCount(); ++i) {
    if (BoundField(i) == nullptr) continue;
    value.SetNativeOrder(0);
    value.ToNativeOrder();
  }
}

CRfcData& CRfcStructParam::FieldValue(int nIndex) const {
  if (BoundField(nIndex) == nullptr) {
    ThrowRfcFailure("CRfcStructParam::FieldValue(int nIndex) const called",
                    {"Field not found in structure"}, "Failed to find corresponding field info!");
  }
  return Value();
}
