#include "sapsim/server/function_interface.h"

#include "sapsim/wire/rfc_types.h"

namespace sapsim::server {

ParameterDefinition ParameterDefinition::Simple(Class param_class, std::string name, char letter, uint32_t length,
                                                std::string text, int32_t decimals) {
  ParameterDefinition p;
  p.param_class = param_class;
  p.name = std::move(name);
  p.type = wire::TypeFromLetter(letter);
  uint32_t fixed = wire::FixedLength(p.type);
  p.length = fixed != 0 ? fixed : length;
  p.decimals = decimals;
  p.text = std::move(text);
  return p;
}

ParameterDefinition ParameterDefinition::Structured(Class param_class, std::string name, std::string structure,
                                                    std::string text) {
  ParameterDefinition p;
  p.param_class = param_class;
  p.name = std::move(name);
  p.structure = std::move(structure);
  p.text = std::move(text);
  return p;
}

const ParameterDefinition* FunctionInterface::Find(ParameterDefinition::Class param_class,
                                                   const std::string& name) const {
  for (const ParameterDefinition& p : parameters) {
    if (p.param_class == param_class && p.name == name) return &p;
  }
  return nullptr;
}

}  // namespace sapsim::server
