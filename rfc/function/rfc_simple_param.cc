#include "rfc/function/rfc_simple_param.h"

#include <cstring>

#include "rfc/function/rfc_meta_dump.h"

CRfcSimpleParam::CRfcSimpleParam(const char* name, int type, int length, int decimals,
                                 int autoCreated)
    : CRfcImpExpParam(name, 0), type_(type), decimals_(0), auto_created_(autoCreated) {
  SetActive(0);
  if (type == TYPE_CHAR && length == 0) return;
  SetType(type, length, decimals);
}

CRfcSimpleParam::~CRfcSimpleParam() = default;

void CRfcSimpleParam::SetType(int type, int length, int decimals) {
  type_ = type;
  decimals_ = decimals;
  SetLength(RfcFixedLength(type, length));
  Value().Init(GetBuffer(), type, length, decimals);
  Value().ClearValue();
}

void CRfcSimpleParam::ResetValue() {
  if (GetLength() != 0) Value().ClearValue();
}

int CRfcSimpleParam::Dump(CRfcMetaDump& sink, const char* direction) {
  const bool import = direction != nullptr && std::strcmp(direction, "IMPORT") == 0;
  if (!sink.WriteLine(import ? CRfcMetaDump::kSimpleImportName : CRfcMetaDump::kSimpleExportName,
                      GetName()) ||
      !sink.WriteLine(CRfcMetaDump::kSimpleType, type_) ||
      !sink.WriteLine(CRfcMetaDump::kSimpleLength, GetLength()) ||
      !sink.WriteLine(CRfcMetaDump::kSimpleDecimals, decimals_)) {
    return 0;
  }
  return 1;
}

void CRfcSimpleParam::FillParameter(RfcParameterEntry& entry) {
  CRfcImpExpParam::FillParameter(entry);
  entry.type = type_;
}

void CRfcSimpleParam::AfterReceive() { Value().ToNativeOrder(); }
