#pragma once
// The system's data dictionary: the built-in structures of its function
// modules (in the system's short or long form) and the structures of the
// system file.

#include <map>
#include <string>

#include "sapsim/server/system_definition.h"

namespace sapsim::server {

class Dictionary {
 public:
  explicit Dictionary(const SystemDefinition& system);

  // Null when the name is unknown.
  const StructureDefinition* Find(const std::string& name) const;
  bool long_names() const { return long_names_; }

 private:
  bool long_names_;
  std::map<std::string, StructureDefinition> structures_;
};

}  // namespace sapsim::server
