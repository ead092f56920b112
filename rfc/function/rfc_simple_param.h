#pragma once
// An import or export parameter holding one value of an RFC type. Created
// inactive: the owner or the application marks it active together with
// setting its value, and a call clears the flag again after passing it.

#include "rfc/function/rfc_imp_exp_param.h"

class CRfcSimpleParam : public CRfcImpExpParam {
 public:
  // Type 0 with length 0 makes a parameter without a buffer. Otherwise the
  // buffer's length follows the type (CHAR, BCD, BYTE, NUM keep `length`,
  // the others take their fixed length, unknown types -1 and no buffer) and
  // the value starts cleared.
  CRfcSimpleParam(const char* name, int type, int length, int decimals, int autoCreated);
  ~CRfcSimpleParam() override;

  int IsSimple() const override { return 1; }
  // The type's cleared form (blanks, '0' digits or zero bytes).
  void ResetValue() override;
  int IsAutoCreated() const override { return auto_created_; }
  int Dump(CRfcMetaDump& sink, const char* direction) override;
  void FillParameter(RfcParameterEntry& entry) override;
  void AfterReceive() override;

  // Re-types the parameter: new buffer by the same length rule, value cleared.
  void SetType(int type, int length, int decimals);

  int GetType() const { return type_; }
  int GetDecimals() const { return decimals_; }

 private:
  int type_;
  int decimals_;
  int auto_created_;
};
