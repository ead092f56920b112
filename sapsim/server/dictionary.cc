#include "sapsim/server/dictionary.h"

#include "sapsim/server/builtin_structures.h"

namespace sapsim::server {

Dictionary::Dictionary(const SystemDefinition& system)
    : long_names_(UsesLongNames(system.release)), structures_(system.structures) {
  for (StructureDefinition& builtin : BuiltInStructures(long_names_)) {
    std::string name = builtin.name;
    structures_[name] = std::move(builtin);
  }
}

const StructureDefinition* Dictionary::Find(const std::string& name) const {
  auto it = structures_.find(name);
  return it == structures_.end() ? nullptr : &it->second;
}

}  // namespace sapsim::server
