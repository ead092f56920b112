#pragma once
// Reads the fields of a dictionary structure from the SAP system
// (RFC_GET_STRUCTURE_DEFINITION) into a structure description: a structure
// parameter or a table parameter that is being auto-created. Everything
// happens in the constructor; the creator deletes the reader right after.
//
// The answer's lines (FIELDS) come in the short layout from partners below
// release 40A and in the long one from the others; the line structure is
// registered once per process as "FIELDStypes", and again whenever the layout
// needed changes.

#include <memory>

#include "rfc/binding/rfc_library_api.h"
#include "rfc/function/rfc_client_func.h"
#include "rfc/function/rfc_field_info.h"

class CRfcConnection;
class CRfcDictionaryLine;
class CRfcSimpleParam;
class CRfcStructInfo;
class CRfcTableParam;

class CRfcGetStructureDefinition : public CRfcClientFunc {
 public:
  static constexpr int kFieldsFieldCount = 7;
  static constexpr int kFieldsLineShort = 40;
  static constexpr int kFieldsLineLong = 80;
  // The FIELDS line, as field records and as the library's type elements.
  static const CRfcFieldInfo kFieldsFieldsShort[kFieldsFieldCount];
  static const CRfcFieldInfo kFieldsFieldsLong[kFieldsFieldCount];
  static const RfcTypeElement kFieldsElementsShort[kFieldsFieldCount];
  static const RfcTypeElement kFieldsElementsLong[kFieldsFieldCount];

  // Describes the dictionary structure `structName` (not copied) into
  // `target`: its fields are added, laid out, and installed under the
  // target's name.
  CRfcGetStructureDefinition(CRfcStructInfo* target, const char* structName,
                             CRfcConnection* connection);
  ~CRfcGetStructureDefinition() override;

  // Registers FIELDStypes in the layout asked for (unless it is installed in
  // that layout already) and returns its handle; "RfcInstallStructure
  // failed!" when the library refuses.
  static RfcTypeHandle RegisterFieldsTypes(bool long_layout);

 private:
  // FIELDStypes and its process-wide registration.
  static CRfcDictionaryLine& FieldsLine();
  // The call: TABNAME in, TABLENGTH and FIELDS back.
  void ReadDefinition(bool long_layout);
  // The target's fields from the FIELDS lines.
  void BuildFields();

  const char* struct_name_;
  std::unique_ptr<CRfcTableParam> fields_;
  CRfcStructInfo* target_;
  std::unique_ptr<CRfcSimpleParam> tabname_;
  std::unique_ptr<CRfcSimpleParam> tablength_;
};
