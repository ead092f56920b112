#include "rfc/function/rfc_meta_dump.h"

#include <cstdio>
#include <cstring>
#include <memory>

#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_error.h"
#include "rfc/function/rfc_struct_info.h"

namespace {

const char* TextOrEmpty(const char* text) { return text != nullptr ? text : ""; }

// The report of a list that cannot grow, for entries that cannot be made.
[[noreturn]] void FailEntry() {
  ThrowRfcFailure("CRfcList<ObjType>::InitList (int nMaxSize) called",
                  {"Memory Allocation Failure"}, kRfcAllocationFailed);
}

// Adds an owned entry; one the list cannot take is freed here.
template <typename ObjType>
void AddOwned(CRfcList<ObjType>& list, std::unique_ptr<ObjType> entry) {
  list.Add(entry.get());
  entry.release();
}

}  // namespace

CRfcMetaDump::CRfcMetaDump() = default;

CRfcMetaDump::~CRfcMetaDump() {
  for (int i = 0; i < lines_.GetCount(); ++i) delete lines_.GetAt(i);
  for (int i = 0; i < written_types_.GetCount(); ++i) delete written_types_.GetAt(i);
}

int CRfcMetaDump::WriteLine(const char* label, const char* value) {
  if (state_ != kOpen) return 0;
  std::string text = TextOrEmpty(label);
  text += TextOrEmpty(value);
  text += '\n';
  // Assigned, not constructed: construction would trim blanks at the end of
  // a value.
  std::unique_ptr<CRfcString> line = rfc::RfcAllocate<CRfcString>();
  if (!line) FailEntry();
  *line = text.c_str();
  AddOwned(lines_, std::move(line));
  return 1;
}

int CRfcMetaDump::WriteLine(const char* label, int value) {
  char number[64];
  std::snprintf(number, sizeof number, "%d", value);
  return WriteLine(label, number);
}

bool CRfcMetaDump::HasWrittenType(const char* type_name) const {
  const char* wanted = TextOrEmpty(type_name);
  for (int i = 0; i < written_types_.GetCount(); ++i) {
    const CRfcMetaDumpType* type = written_types_.GetAt(i);
    if (type != nullptr && std::strcmp(TextOrEmpty(type->name), wanted) == 0) return true;
  }
  return false;
}

int CRfcMetaDump::WriteStructType(const CRfcStructInfo& info) {
  const char* type_name = TextOrEmpty(info.GetTypeName());
  if (state_ != kOpen || HasWrittenType(type_name)) return 0;

  std::unique_ptr<CRfcMetaDumpType> written = rfc::RfcAllocate<CRfcMetaDumpType>();
  if (!written) FailEntry();
  written->name = type_name;
  AddOwned(written_types_, std::move(written));

  WriteLine(kStructType, type_name);
  WriteLine(kStructTypeRelease, info.GetRelease());
  WriteLine(kStructTypeLength, info.GetTotalLength());
  WriteLine(kStructFieldCount, info.GetFieldCount());
  int complete = 1;
  for (int i = 0; i < info.GetFieldCount(); ++i) {
    const CRfcFieldInfo* field = info.GetFieldInfo(i);
    if (field == nullptr) {
      complete = 0;
      continue;
    }
    const std::string name(field->name, FieldNameLength(*field));
    WriteLine(kFieldName, name.c_str());
    WriteLine(kFieldColumn, field->column);
    WriteLine(kFieldOffset, field->offset);
    WriteLine(kFieldType, field->type);
    WriteLine(kFieldLength, field->length);
    WriteLine(kFieldDecimals, field->decimals);
  }
  return complete;
}

const char* CRfcMetaDump::GetLine(int index) const {
  const CRfcString* line = lines_.GetAt(index);
  return line != nullptr ? static_cast<const char*>(*line) : nullptr;
}

std::string CRfcMetaDump::GetText() const {
  std::string text;
  for (int i = 0; i < lines_.GetCount(); ++i) text += TextOrEmpty(GetLine(i));
  return text;
}
