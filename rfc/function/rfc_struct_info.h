#pragma once
// The description of a flat structure: a column-indexed list of owned field
// records, the total length, and the type handle under which the structure is
// installed with the RFC library. Base of CRfcStructParam (its second base)
// and CRfcTableParam, which supply the length setter and the name.
//
// The fields are laid out like a naturally aligned record (FLOAT on 8, INT on
// 4, INT2 on 2 bytes, everything else unaligned), whatever offsets the
// records came with.

#include "rfc/binding/rfc_library_api.h"
#include "rfc/core/rfc_list.h"
#include "rfc/core/rfc_string.h"
#include "rfc/function/rfc_field_info.h"

class CRfcStructInfo {
 public:
  // The type handle while no structure is installed.
  static constexpr RfcTypeHandle kNoTypeHandle = -1;

  // Deletes every field record.
  virtual ~CRfcStructInfo() = 0;
  // Takes the total length computed by ComputeLayout.
  virtual void SetLength(int nLength) = 0;
  // The name under which the structure is installed and passed.
  virtual const char* GetName() const = 0;

  CRfcStructInfo(const CRfcStructInfo&) = delete;
  CRfcStructInfo& operator=(const CRfcStructInfo&) = delete;

  // Lays the records out (rewriting the offsets in the caller's array), keeps
  // a copy of each under its column (lengths by the type's fixed length,
  // names right-trimmed), and installs the structure when no type handle is
  // set. A record for a column already described replaces the earlier one. A
  // record with a negative column is laid out but not kept, and the structure
  // is then not installed (see InstallStructure).
  void AddFieldInfo(CRfcFieldInfo* fields, int count);
  // The layout rule alone: offsets into `fields`, then SetLength(total).
  void ComputeLayout(CRfcFieldInfo* fields, int count);
  // Installs the described fields under GetName(). Installation fails quietly
  // (no handle; the structure then travels as CHAR or BYTE); it is not tried
  // at all while a column is undescribed, because the library would lay the
  // remaining fields out differently from this description.
  void InstallStructure();
  // Adopts a handle installed elsewhere; no installation follows.
  void SetTypeHandle(RfcTypeHandle handle) { type_handle_ = handle; }

  RfcTypeHandle GetTypeHandle() const { return type_handle_; }
  // The record of `column`, or null (outside the list, or never described).
  const CRfcFieldInfo* GetFieldInfo(int column) const { return fields_.GetAt(column); }
  // Largest described column + 1.
  int GetFieldCount() const { return fields_.GetCount(); }
  int GetTotalLength() const { return total_length_; }

  int GetLongNames() const { return long_names_; }
  void SetLongNames(int long_names) { long_names_ = long_names; }
  const CRfcString& GetTypeName() const { return type_name_; }
  void SetTypeName(const char* type_name) { type_name_ = type_name; }
  const CRfcString& GetRelease() const { return release_; }
  void SetRelease(const CRfcString& release) { release_ = release; }
  int GetCharacterOnly() const { return character_only_; }
  void SetCharacterOnly(int character_only) { character_only_ = character_only; }

  // The type member of a parameter or table entry: the installed handle, else
  // CHAR for a character-only structure, else BYTE.
  int EntryType() const;

 protected:
  CRfcStructInfo();
  // The plain length setter the constructors use.
  void SetTotalLength(int length) { total_length_ = length; }
  // The record of `column` when it lies whole inside `available` bytes, else
  // null. Guards every binding of a value accessor into a buffer or a line.
  const CRfcFieldInfo* FieldInside(int column, int available) const;

 private:
  // Trace lines and throw for a record that cannot be allocated.
  [[noreturn]] void FailAllocation() const;
  // Stores `record` at its column, freeing a record it replaces.
  void StoreField(CRfcFieldInfo* record);

  CRfcList<CRfcFieldInfo> fields_;
  int total_length_ = 0;
  RfcTypeHandle type_handle_ = kNoTypeHandle;
  int long_names_ = 0;
  CRfcString type_name_;
  CRfcString release_;
  int character_only_ = 0;
  // A record was laid out but could not be kept.
  bool incomplete_ = false;
};
