#pragma once
// An import or export parameter holding one flat structure. The structure is
// described by the field records of its second base, either by the
// application (AddFieldInfo) or from the SAP system's dictionary
// (auto-creation). Structure parameters are created active and stay active
// across calls.

#include "rfc/function/rfc_imp_exp_param.h"
#include "rfc/function/rfc_struct_info.h"

class CRfcConnection;

class CRfcStructParam : public CRfcImpExpParam, public CRfcStructInfo {
 public:
  // Without auto-creation: a buffer of `length` bytes and no fields yet.
  // With it: the fields of `structName` are fetched over `connection`, laid
  // out and installed under the parameter's name; `length` is ignored. The
  // value starts cleared either way.
  CRfcStructParam(const char* paramName, int length, int autoCreate, CRfcConnection* connection,
                  const char* structName);
  ~CRfcStructParam() override;

  int IsSimple() const override { return 0; }
  // Zero bytes, then every described field in its cleared form.
  void ResetValue() override;
  int IsAutoCreated() const override { return auto_created_; }
  int Dump(CRfcMetaDump& sink, const char* direction) override;
  // The structure's total length and the buffer.
  void SetLength(int nLength) override;
  // Installed type handle, else CHAR or BYTE (character-only flag).
  void FillParameter(RfcParameterEntry& entry) override;
  // Reverses the fields' numbers while the byte-order switch is on.
  void AfterReceive() override;
  // The parameter's name (not the dictionary's type name).
  const char* GetName() const override { return CRfcImpExpParam::GetName(); }

  // The accessor bound to field nIndex. A negative index, one beyond the
  // described fields, an undescribed column, or a field that does not lie
  // inside the buffer throws "Failed to find corresponding field info!".
  CRfcData& FieldValue(int nIndex) const;

 private:
  // Binds the accessor to field `column` when it lies inside the buffer;
  // null (accessor untouched) otherwise.
  const CRfcFieldInfo* BoundField(int column) const;

  int auto_created_;
};
