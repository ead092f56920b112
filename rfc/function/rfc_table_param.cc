#include "rfc/function/rfc_table_param.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/core/rfc_error.h"
#include "rfc/function/rfc_byte_order.h"
#include "rfc/function/rfc_get_structure_definition.h"

namespace {

constexpr int kNameCapacity = 30;
constexpr const char* kLongNamesRelease = "40A";
constexpr const char* kFieldNotFound = "Failed to find corresponding field info!";

}  // namespace

CRfcTableParam::CRfcTableParam(const char* name, int lineLength, int noConversion, int autoCreate,
                               CRfcConnection* connection, const char* structName)
    : no_conversion_(noConversion), name_(name, kNameCapacity), value_(1),
      auto_created_(autoCreate) {
  name_.MakeUpper();
  name_.SetUpperCase(1);
  if (autoCreate == 0) {
    SetTotalLength(lineLength);
    line_length_ = lineLength;
    return;
  }
  const CRfcString release = connection != nullptr ? connection->GetRelease() : CRfcString("");
  SetLongNames(release >= kLongNamesRelease ? 1 : 0);
  std::unique_ptr<CRfcGetStructureDefinition> reader =
      rfc::RfcAllocate<CRfcGetStructureDefinition>(this, structName, connection);
  if (!reader) throw "Failure to auto-create table parameter";
  reader.reset();
  SetRelease(release);
  SetTypeName(structName);
}

CRfcTableParam::~CRfcTableParam() {
  try {
    Delete();
  } catch (...) {
    // Already traced; a destructor cannot report further.
  }
}

void CRfcTableParam::SetLength(int nLength) {
  SetTotalLength(nLength);
  line_length_ = nLength;
}

void CRfcTableParam::Dump(CRfcMetaDump&, const char*) {}

void CRfcTableParam::Create() {
  if (table_ != nullptr) return;
  TableHandle table =
      ItCreate(name_, static_cast<unsigned>(std::max(line_length_, 0)), 0, 0);
  if (table == nullptr) {
    ThrowRfcFailure("CRfcTableParam::Create() called", {"ItCreate Failure!"}, "ItCreate Failure!");
  }
  table_ = table;
  current_line_ = nullptr;
  current_index_ = -1;
  owns_table_ = 1;
}

void CRfcTableParam::Clear() {
  if (table_ == nullptr) return;
  if (ItFree(table_) != 0) {
    ThrowRfcFailure("CRfcTableParam::Clear() called", {"ItFree Failure!"}, "ItFree Failure!");
  }
  current_index_ = -1;
  current_line_ = nullptr;
  native_lines_ = 1;
}

void CRfcTableParam::Delete() {
  Clear();
  if (owns_table_ != 0) {
    if (ItDelete(table_) != 0) {
      ThrowRfcFailure("CRfcTableParam::Delete() called", {"ItDelete Failure!"},
                      "ItDelete Failure!");
    }
    owns_table_ = 0;
  }
  table_ = nullptr;
}

int CRfcTableParam::GotoLine(int n) {
  void* line = nullptr;
  if (table_ != nullptr && n >= 0) line = ItGupLine(table_, static_cast<unsigned>(n) + 1);
  if (line == nullptr) {
    current_line_ = nullptr;
    current_index_ = -1;
    return 0;
  }
  current_line_ = line;
  current_index_ = n;
  return 1;
}

CRfcData& CRfcTableParam::GetData(void* pLine, int nCol) const {
  const CRfcFieldInfo* field = FieldInside(nCol, line_length_);
  if (field == nullptr) {
    ThrowRfcFailure("CRfcTableParam::GetData(void* pLine, int nCol) const called",
                    {"Field info not found"}, kFieldNotFound);
  }
  if (pLine == nullptr) {
    ThrowRfcFailure("CRfcTableParam::GetData(void* pLine, int nCol) const called",
                    {"ItGetLine Failure!"}, "ItGetLine Failure!");
  }
  value_.Init(static_cast<unsigned char*>(pLine) + field->offset, field->type, field->length,
              field->decimals);
  const bool reversed = GetRfcByteOrderSwitch() != 0 && native_lines_ == 0;
  value_.SetNativeOrder(reversed ? 0 : 1);
  return value_;
}

void CRfcTableParam::FillTable(RfcTableEntry& entry) const {
  const char* name = name_;
  entry.name = name;
  entry.name_length = name != nullptr ? static_cast<uint32_t>(std::strlen(name)) : 0;
  entry.type = EntryType();
  entry.line_length = static_cast<uint32_t>(std::max(line_length_, 0));
  entry.handle = table_;
  entry.mode = 0;
  entry.new_table = 0;
}

// The position survives a call, also onto another table: callers position
// with GotoLine or read lines directly, so it is theirs to renew.
void CRfcTableParam::TakeTableHandle(TableHandle handle) {
  if (handle == table_) return;
  if (table_ != nullptr && owns_table_ != 0) ItDelete(table_);
  owns_table_ = 0;
  table_ = handle;
}
