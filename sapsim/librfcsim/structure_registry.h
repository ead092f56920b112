#pragma once
// Structures installed with RfcInstallStructure. Every installation gets a
// new handle (0x10000 + n, so it is never mistaken for a type code, 0 or -1)
// and a layout that never changes; installing a name again makes a new handle
// with the new layout while the old handle keeps describing the old one.

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "rfc/binding/rfc_library_api.h"
#include "sapsim/wire/value_description.h"

namespace rfcsim {

struct StructureLayout {
  std::string name;
  // Fields with offsets laid out by natural alignment, and the total length.
  sapsim::wire::ValueDesc desc;
};

class StructureRegistry {
 public:
  static constexpr RfcTypeHandle kFirstHandle = 0x10000;

  static StructureRegistry& Instance();

  // False (and *error) for a missing name, no or too many fields, a field
  // without a name, a type that is not a value type, a length that does not
  // suit the type, a name that appears twice. Offsets in `elements` are not read.
  bool Install(const char* name, const RfcTypeElement* elements, unsigned count, RfcTypeHandle* handle,
               std::string* error);
  // Null for anything that is not an installed structure's handle.
  std::shared_ptr<const StructureLayout> Find(RfcTypeHandle handle) const;
  static bool LooksLikeStructure(RfcTypeHandle handle) { return handle >= kFirstHandle; }

 private:
  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<const StructureLayout>> layouts_;  // index = handle - kFirstHandle
};

}  // namespace rfcsim
