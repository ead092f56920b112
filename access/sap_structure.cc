#include "access/sap_structure.h"

#include <algorithm>
#include <cstdio>
#include <limits>

#include "rfc/core/rfc_data.h"
#include "rfc/function/rfc_struct_param.h"

namespace {

// The refusal names a fixed source place rather than this file's, so that its
// text stays the same in every build and log entries remain comparable.
constexpr char kSourceFile[] = "SAPTABLE";
constexpr int kSourceLine = 331;
constexpr int kLastPosition = std::numeric_limits<uint16_t>::max();

}  // namespace

CSapFieldValue::CSapFieldValue(const CRfcFieldInfo& info, const std::string& value)
    : CSapColumn(info), value_(value) {}

CSapFieldValue::~CSapFieldValue() = default;

std::string CSapStructure::UnmappedTypeMessage(int32_t type) {
  const char* format = "Unmapped data type '%d' received from SAP in file: %s line %d";
  const int size = std::snprintf(nullptr, 0, format, type, kSourceFile, kSourceLine);
  std::string message(static_cast<size_t>(std::max(size, 0)) + 1, '\0');
  std::snprintf(message.data(), message.size(), format, type, kSourceFile, kSourceLine);
  message.resize(static_cast<size_t>(std::max(size, 0)));
  return message;
}

CSapStructure::CSapStructure(CRfcStructParam* structure) {
  if (structure == nullptr) return;
  field_count_ = structure->GetFieldCount();
  name_ = structure->GetName() != nullptr ? structure->GetName() : "";
  values_.resize(static_cast<size_t>(std::max(field_count_, 0)));
  for (int32_t i = 0; i < field_count_; ++i) {
    const CRfcFieldInfo* info = structure->GetFieldInfo(i);
    // A field the description leaves out has no value and no name.
    if (info == nullptr) continue;
    if (info->type != TYPE_CHAR && info->type != TYPE_NUM) {
      throw UnmappedTypeMessage(info->type);
    }
    const char* text = static_cast<CSTR>(structure->FieldValue(i));
    values_[static_cast<size_t>(i)] =
        std::make_unique<CSapFieldValue>(*info, text != nullptr ? text : "");
    if (i <= kLastPosition) {
      field_index_[values_[static_cast<size_t>(i)]->GetName()] =
          std::make_unique<CSapIndexHolder>(static_cast<uint16_t>(i));
    }
  }
}

CSapStructure::~CSapStructure() = default;

const CSapFieldValue* CSapStructure::GetField(int32_t position) const {
  if (position < 0 || static_cast<size_t>(position) >= values_.size()) return nullptr;
  return values_[static_cast<size_t>(position)].get();
}

std::string CSapStructure::GetValue(int32_t position) const {
  const CSapFieldValue* field = GetField(position);
  return field != nullptr ? field->GetValue() : std::string();
}

std::string CSapStructure::GetValue(const std::string& name) const {
  const auto found = field_index_.find(name);
  if (found == field_index_.end()) return std::string();
  return GetValue(static_cast<int32_t>(found->second->GetIndex()));
}
