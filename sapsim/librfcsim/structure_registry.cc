#include "sapsim/librfcsim/structure_registry.h"

#include <limits>
#include <new>
#include <unordered_set>

#include "sapsim/wire/rfc_types.h"

namespace rfcsim {

namespace w = sapsim::wire;

namespace {

std::string TrimRight(const char* text) {
  std::string s(text);
  size_t end = s.find_last_not_of(' ');
  return end == std::string::npos ? std::string() : s.substr(0, end + 1);
}

}  // namespace

StructureRegistry& StructureRegistry::Instance() {
  static StructureRegistry registry;
  return registry;
}

bool StructureRegistry::Install(const char* name, const RfcTypeElement* elements, unsigned count,
                                RfcTypeHandle* handle, std::string* error) {
  if (handle == nullptr) {
    *error = "RfcInstallStructure: no place for the handle";
    return false;
  }
  if (name == nullptr || TrimRight(name).empty()) {
    *error = "RfcInstallStructure: structure without a name";
    return false;
  }
  std::string structure = TrimRight(name);
  if (elements == nullptr || count == 0) {
    *error = "RfcInstallStructure: structure " + structure + " has no fields";
    return false;
  }
  if (count > w::kMaxFields) {
    *error = "RfcInstallStructure: structure " + structure + " has " + std::to_string(count) + " fields, at most " +
             std::to_string(w::kMaxFields) + " are supported";
    return false;
  }
  try {
    std::vector<w::FieldDesc> fields;
    fields.reserve(count);
    std::unordered_set<std::string> names;
    for (unsigned i = 0; i < count; ++i) {
      const RfcTypeElement& element = elements[i];
      std::string where = "RfcInstallStructure: structure " + structure + ", field " + std::to_string(i + 1);
      if (element.name == nullptr || TrimRight(element.name).empty()) {
        *error = where + " has no name";
        return false;
      }
      w::FieldDesc field;
      field.name = TrimRight(element.name);
      where = "RfcInstallStructure: structure " + structure + ", field " + field.name;
      if (!w::IsValueType(element.type)) {
        *error = where + " has type " + std::to_string(element.type) + ", which is not a value type";
        return false;
      }
      uint32_t fixed = w::FixedLength(element.type);
      if (element.length <= 0 || static_cast<uint32_t>(element.length) > w::kMaxValueLength ||
          (fixed != 0 && static_cast<uint32_t>(element.length) != fixed)) {
        *error = where + " has length " + std::to_string(element.length) + ", not valid for a " +
                 w::TypeName(element.type);
        return false;
      }
      if (element.decimals < 0 ||
          (element.type == w::kTypeBcd && element.decimals > 2 * element.length - 1)) {
        *error = where + " has " + std::to_string(element.decimals) + " decimals";
        return false;
      }
      if (!names.insert(field.name).second) {
        *error = where + " appears twice";
        return false;
      }
      field.type = element.type;
      field.length = static_cast<uint32_t>(element.length);
      field.decimals = element.type == w::kTypeBcd ? element.decimals : 0;
      fields.push_back(std::move(field));
    }
    uint32_t length = w::LayOut(fields);
    auto layout = std::make_shared<StructureLayout>();
    layout->name = structure;
    layout->desc = w::ValueDesc::Structure(std::move(fields), length);
    std::lock_guard<std::mutex> lock(mutex_);
    if (layouts_.size() >= static_cast<size_t>(std::numeric_limits<RfcTypeHandle>::max() - kFirstHandle)) {
      *error = "RfcInstallStructure: no handles left";
      return false;
    }
    layouts_.push_back(std::move(layout));
    *handle = kFirstHandle + static_cast<RfcTypeHandle>(layouts_.size() - 1);
    return true;
  } catch (const std::bad_alloc&) {
    *error = "RfcInstallStructure: out of memory";
    return false;
  }
}

std::shared_ptr<const StructureLayout> StructureRegistry::Find(RfcTypeHandle handle) const {
  if (handle < kFirstHandle) return nullptr;
  std::lock_guard<std::mutex> lock(mutex_);
  size_t index = static_cast<size_t>(handle - kFirstHandle);
  return index < layouts_.size() ? layouts_[index] : nullptr;
}

}  // namespace rfcsim
