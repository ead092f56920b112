#pragma once
// An import or export parameter of an RFC function: a name (kept in upper
// case), a value buffer that the RFC library reads on a call and writes on a
// receive, and one value accessor that is bound to the buffer or to a part of
// it. Simple and structure parameters derive from it.
//
// The buffer holds length + 2 bytes (none for a length of 0 or less). A
// buffer that cannot be allocated is reported with a trace header, the
// operation's line and "Memory Allocation Failure", and "Failed to allocate
// memory!" is thrown.

#include <memory>

#include "rfc/binding/rfc_library_api.h"
#include "rfc/core/rfc_data.h"
#include "rfc/core/rfc_string.h"

class CRfcFunction;
class CRfcMetaDump;

class CRfcImpExpParam {
 public:
  // Active from the start (the simple parameter clears it again).
  CRfcImpExpParam(const char* name, int length);
  virtual ~CRfcImpExpParam();
  virtual int IsSimple() const = 0;
  // Zero bytes over the whole value.
  virtual void ResetValue();
  virtual int IsAutoCreated() const = 0;
  // Writes the parameter's lines into `sink`; `direction` "IMPORT" selects
  // the import labels. 1 when everything was written.
  virtual int Dump(CRfcMetaDump& sink, const char* direction) = 0;
  // Frees the buffer and allocates nLength + 2 bytes when nLength > 0. On a
  // failed allocation the buffer is gone and the length keeps its old value.
  virtual void SetLength(int nLength);
  // Name, name length, length and address of one entry of the RFC library's
  // parameter array; the type is the derived class's. A parameter without a
  // buffer is handed over with length 0, so the library never writes through
  // a null address.
  virtual void FillParameter(RfcParameterEntry& entry);
  // Post-processing of a value the library wrote.
  virtual void AfterReceive() = 0;

  CRfcImpExpParam(const CRfcImpExpParam&) = delete;
  CRfcImpExpParam& operator=(const CRfcImpExpParam&) = delete;

  // The upper-case name.
  const char* GetName() const { return name_; }
  int GetLength() const { return length_; }
  // The value accessor as last bound (for a simple parameter: its value).
  CRfcData& Value() const { return value_; }
  unsigned char* GetBuffer() const { return buffer_.get(); }
  int IsActive() const { return active_; }
  void SetActive(int active) { active_ = active; }
  CRfcFunction* GetOwner() const { return owner_; }
  void SetOwner(CRfcFunction* owner) { owner_ = owner; }

 private:
  CRfcFunction* owner_ = nullptr;
  CRfcString name_;
  int length_ = 0;
  mutable CRfcData value_;
  std::unique_ptr<unsigned char[]> buffer_;
  int active_ = 1;
};
