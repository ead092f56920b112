#pragma once
// A table parameter: a named internal table of the RFC library (fixed-length
// lines) with the description of one line. Lines stay in the library's
// table; one value accessor is re-bound to each cell that is read or written.
//
// A table made with Create belongs to this object and is deleted by Delete; a
// table the partner created during a call (taken over by the function after
// the call) is only forgotten.

#include "rfc/binding/rfc_library_api.h"
#include "rfc/core/rfc_data.h"
#include "rfc/core/rfc_string.h"
#include "rfc/function/rfc_struct_info.h"

class CRfcConnection;
class CRfcFunction;
class CRfcMetaDump;

class CRfcTableParam : public CRfcStructInfo {
 public:
  // Without auto-creation the line is `lineLength` bytes and no columns are
  // described yet. With it, the columns of `structName` are fetched over
  // `connection`, laid out and installed under the table's name, and
  // `lineLength` is ignored. No internal table is created here.
  CRfcTableParam(const char* name, int lineLength, int noConversion, int autoCreate,
                 CRfcConnection* connection, const char* structName);
  // Delete; a table the library refuses to free or delete then is left to it.
  ~CRfcTableParam() override;
  // The structure's total length and the line length.
  void SetLength(int nLength) override;
  // The table's name.
  const char* GetName() const override { return name_; }
  // Tables write no dump lines.
  virtual void Dump(CRfcMetaDump& sink, const char* direction);

  // A new internal table (ItCreate) unless one exists; "ItCreate Failure!".
  void Create();
  // Empties the table (ItFree) if there is one; "ItFree Failure!".
  void Clear();
  // Clear, then ItDelete when this object created the table ("ItDelete
  // Failure!" leaves handle and ownership as they were); the handle is
  // forgotten in every other case.
  void Delete();
  // Makes line n (0-based) current, growing the table to hold it. 0 when
  // there is no table, n is negative, or the library has no such line.
  int GotoLine(int n);
  // The accessor bound to column nCol of `pLine` (a line of this table).
  // A column outside the described ones, an undescribed column or one that
  // does not lie inside the line throws "Failed to find corresponding field
  // info!"; a null line throws "ItGetLine Failure!".
  CRfcData& GetData(void* pLine, int nCol) const;
  // One entry of the library's table array.
  void FillTable(RfcTableEntry& entry) const;

  // Takes the handle the library left in the table entry after a call. A
  // different handle replaces the current table, which is deleted first if
  // this object made it; the new one is not owned.
  void TakeTableHandle(TableHandle handle);

  TableHandle GetTableHandle() const { return table_; }
  int GetLineLength() const { return line_length_; }
  void* GetCurrentLine() const { return current_line_; }
  int GetCurrentIndex() const { return current_index_; }
  int OwnsTable() const { return owns_table_; }
  int IsAutoCreated() const { return auto_created_; }
  int GetNoConversion() const { return no_conversion_; }
  int GetNativeLines() const { return native_lines_; }
  void SetNativeLines(int native_lines) { native_lines_ = native_lines; }
  CRfcFunction* GetOwner() const { return owner_; }
  void SetOwner(CRfcFunction* owner) { owner_ = owner; }

 private:
  int no_conversion_;
  int native_lines_ = 1;
  CRfcFunction* owner_ = nullptr;
  CRfcString name_;
  TableHandle table_ = nullptr;
  int line_length_ = 0;
  mutable CRfcData value_;
  void* current_line_ = nullptr;
  int current_index_ = -1;
  int owns_table_ = 0;
  int auto_created_;
};
