#include "rfc/function/rfc_struct_info.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <memory>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_data.h"
#include "rfc/core/rfc_error.h"
#include "rfc/core/rfc_trace.h"

namespace {

// Natural alignment of a type inside a record; 0 for unaligned types.
int Alignment(int type) {
  switch (type) {
    case TYPE_FLOAT:
      return 8;
    case TYPE_INT:
      return 4;
    case TYPE_INT2:
      return 2;
    default:
      return 0;
  }
}

int64_t AlignUp(int64_t value, int alignment) {
  return (value + alignment - 1) / alignment * alignment;
}

}  // namespace

CRfcStructInfo::CRfcStructInfo() = default;

CRfcStructInfo::~CRfcStructInfo() {
  for (int i = 0; i < fields_.GetCount(); ++i) delete fields_.GetAt(i);
}

void CRfcStructInfo::FailAllocation() const {
  CRfcTrace& trace = GetRfcTrace();
  trace.WriteHeader();
  trace.WriteLine("Memory Allocation Failure");
  const char* type_name = type_name_;
  trace.WriteLine(type_name != nullptr ? type_name : "");
  throw kRfcAllocationFailed;
}

void CRfcStructInfo::ComputeLayout(CRfcFieldInfo* fields, int count) {
  int64_t offset = 0;
  int largest = 0;
  for (int i = 0; fields != nullptr && i < count; ++i) {
    CRfcFieldInfo& field = fields[i];
    const int alignment = Alignment(field.type);
    if (alignment > 0) {
      offset = AlignUp(offset, alignment);
      largest = std::max(largest, alignment);
    }
    field.offset = static_cast<int>(offset);
    // A negative length (an unknown type's) takes no room.
    offset += std::max(field.length, 0);
    // No record (and no buffer) can be larger than a 32-bit length.
    if (offset > INT_MAX) FailAllocation();
  }
  if (largest != 0) offset = AlignUp(offset, largest);
  if (offset > INT_MAX) FailAllocation();
  SetLength(static_cast<int>(offset));
}

void CRfcStructInfo::StoreField(CRfcFieldInfo* record) {
  const int column = record->column;
  CRfcFieldInfo* replaced = fields_.GetAt(column);
  // A list that cannot grow keeps its records (the destructor frees them) and
  // leaves `record` with the caller.
  fields_.SetAtGrow(column, record);
  delete replaced;
}

void CRfcStructInfo::AddFieldInfo(CRfcFieldInfo* fields, int count) {
  ComputeLayout(fields, count);
  for (int i = 0; fields != nullptr && i < count; ++i) {
    std::unique_ptr<CRfcFieldInfo> copy = rfc::RfcAllocate<CRfcFieldInfo>(fields[i]);
    if (!copy) FailAllocation();
    copy->length = RfcFixedLength(copy->type, copy->length);
    SetFieldName(*copy, copy->name);
    if (copy->column < 0) {
      incomplete_ = true;
      continue;
    }
    StoreField(copy.get());
    copy.release();
  }
  if (type_handle_ == kNoTypeHandle) InstallStructure();
}

void CRfcStructInfo::InstallStructure() {
  const int count = fields_.GetCount();
  if (incomplete_) return;
  for (int i = 0; i < count; ++i) {
    if (fields_.GetAt(i) == nullptr) return;
  }
  std::unique_ptr<RfcTypeElement[]> elements =
      rfc::RfcAllocateArray<RfcTypeElement>(static_cast<size_t>(count));
  if (!elements) FailAllocation();
  for (int i = 0; i < count; ++i) {
    const CRfcFieldInfo* field = fields_.GetAt(i);
    RfcTypeElement& element = elements[static_cast<size_t>(i)];
    element.name = field->name;
    element.type = field->type;
    element.length = field->length;
    element.decimals = field->decimals;
  }
  // The handle is taken only from a successful installation.
  RfcTypeHandle handle = kNoTypeHandle;
  if (RfcInstallStructure(GetName(), elements.get(), static_cast<unsigned>(count), &handle) == 0) {
    type_handle_ = handle;
  }
}

int CRfcStructInfo::EntryType() const {
  if (type_handle_ != kNoTypeHandle) return type_handle_;
  return character_only_ != 0 ? TYPE_CHAR : TYPE_BYTE;
}

const CRfcFieldInfo* CRfcStructInfo::FieldInside(int column, int available) const {
  const CRfcFieldInfo* field = fields_.GetAt(column);
  if (field == nullptr) return nullptr;
  const int64_t end = static_cast<int64_t>(field->offset) + std::max(field->length, 0);
  if (field->offset < 0 || end > std::max(available, 0)) return nullptr;
  return field;
}
