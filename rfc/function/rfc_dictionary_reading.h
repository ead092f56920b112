#pragma once
// What the two readers of the SAP dictionary share (CRfcGetFunctionInterface
// and CRfcGetStructureDefinition): the line structure of their answer table,
// registered with the RFC library in the layout the partner needs; the answer
// table itself; the choice of layout by the partner's release; and the call
// with its failure reports.

#include <memory>

#include "platform/critical_section.h"
#include "rfc/binding/rfc_library_api.h"
#include "rfc/function/rfc_field_info.h"

class CRfcClientFunc;
class CRfcConnection;
class CRfcSimpleParam;
class CRfcTableParam;

// One layout of a dictionary line, as the field records handed to
// AddFieldInfo and as the type elements handed to RfcInstallStructure.
struct CRfcDictionaryLayout {
  const CRfcFieldInfo* fields;
  const RfcTypeElement* elements;
  int line_length;
};

// A dictionary line structure (PARAMStypes, FIELDStypes) in its short and
// long layouts. It is registered once per process, and again whenever the
// layout needed changes; the lock keeps readers on several threads from
// registering at the same time.
class CRfcDictionaryLine {
 public:
  // Both layouts have `count` fields; `name` is the registered name.
  CRfcDictionaryLine(const char* name, int count, CRfcDictionaryLayout short_layout,
                     CRfcDictionaryLayout long_layout);
  CRfcDictionaryLine(const CRfcDictionaryLine&) = delete;
  CRfcDictionaryLine& operator=(const CRfcDictionaryLine&) = delete;

  // Registers the structure in the layout asked for unless it is installed
  // in that layout already, and returns its handle. A refusal of the library
  // throws "RfcInstallStructure failed!" and keeps the earlier registration.
  RfcTypeHandle Register(bool long_layout);

  // The answer table `table_name` in the layout: registered first, then
  // given the registered handle and the layout's field records. Failures
  // are thrown as texts.
  std::unique_ptr<CRfcTableParam> MakeTable(const char* table_name, bool long_layout);

 private:
  const char* name_;
  int count_;
  CRfcDictionaryLayout layouts_[2];  // short, long
  platform::CriticalSection lock_;
  RfcTypeHandle handle_ = 0;  // 0 while never installed
  int installed_ = -1;        // index of the installed layout
};

// True when the partner of `connection` gets the long layouts: its release
// compares at or above "40A".
bool RfcUsesLongLayouts(const CRfcConnection* connection);

// A simple parameter of a reader's own (not auto-created); "Failed to
// allocate memory!" when it cannot be made.
std::unique_ptr<CRfcSimpleParam> NewDictionaryParam(const char* name, int type, int length);

// Calls the reader's function module with its active imports. A library
// error is traced as a header, `failed_line`, `subject` and the error's
// lines and thrown on; an exception raised by the partner is traced as a
// header, `failed_line`, `subject` and its name, and its name is thrown.
void CallDictionaryFunction(CRfcClientFunc& reader, const char* failed_line, const char* subject);
