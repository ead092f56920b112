#pragma once
// Reads the interface of a function module from the SAP system
// (RFC_GET_FUNCTION_INTERFACE) and gives the target client function one
// parameter per line of the answer: simple and structure imports and exports,
// and tables. Everything happens in the constructor; the creator deletes the
// reader right after.
//
// The answer's lines (PARAMS) come in the short layout from partners below
// release 40A and in the long one from the others. The line structure is
// registered with the RFC library once per process as "PARAMStypes", and
// again whenever the layout needed changes.

#include <memory>

#include "rfc/binding/rfc_library_api.h"
#include "rfc/function/rfc_client_func.h"
#include "rfc/function/rfc_field_info.h"

class CRfcConnection;
class CRfcDictionaryLine;
class CRfcSimpleParam;
class CRfcTableParam;

class CRfcGetFunctionInterface : public CRfcClientFunc {
 public:
  static constexpr int kParamsFieldCount = 11;
  static constexpr int kParamsLineShort = 168;
  static constexpr int kParamsLineLong = 208;
  // The PARAMS line, as field records and as the library's type elements.
  static const CRfcFieldInfo kParamsFieldsShort[kParamsFieldCount];
  static const CRfcFieldInfo kParamsFieldsLong[kParamsFieldCount];
  static const RfcTypeElement kParamsElementsShort[kParamsFieldCount];
  static const RfcTypeElement kParamsElementsLong[kParamsFieldCount];

  // Describes `functionName` (not copied) into `target`.
  CRfcGetFunctionInterface(CRfcClientFunc* target, const char* functionName,
                           CRfcConnection* connection);
  ~CRfcGetFunctionInterface() override;

  // Registers PARAMStypes in the layout asked for (unless it is installed in
  // that layout already) and returns its handle; "RfcInstallStructure
  // failed!" when the library refuses.
  static RfcTypeHandle RegisterParamsTypes(bool long_layout);

  // The RFC type code of a dictionary type letter; 9999 for any other.
  static int TypeOfExid(char exid);

 private:
  // PARAMStypes and its process-wide registration.
  static CRfcDictionaryLine& ParamsLine();
  // The call: FUNCNAME and LANGUAGE in, PARAMS back.
  void ReadInterface();
  // One target parameter per PARAMS line.
  void BuildParameters();

  const char* function_name_;
  CRfcConnection* connection_;
  std::unique_ptr<CRfcTableParam> params_;
  CRfcClientFunc* target_;
  std::unique_ptr<CRfcSimpleParam> funcname_;
  std::unique_ptr<CRfcSimpleParam> language_;
};
