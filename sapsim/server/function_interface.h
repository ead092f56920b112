#pragma once
// The interface of a function module, as RFC_GET_FUNCTION_INTERFACE
// describes it and as the system converts incoming values to.

#include <cstdint>
#include <string>
#include <vector>

namespace sapsim::server {

struct ParameterDefinition {
  enum class Class : char { kImport = 'I', kExport = 'E', kTable = 'T' };

  Class param_class = Class::kImport;
  std::string name;
  // Structure and table parameters: the dictionary structure. Empty for a
  // simple parameter, which has the type, length and decimals below.
  std::string structure;
  int32_t type = 0;
  uint32_t length = 0;
  int32_t decimals = 0;
  std::string default_value;
  std::string text;

  bool IsSimple() const { return structure.empty(); }

  static ParameterDefinition Simple(Class param_class, std::string name, char letter, uint32_t length,
                                    std::string text, int32_t decimals = 0);
  static ParameterDefinition Structured(Class param_class, std::string name, std::string structure,
                                        std::string text);
};

struct FunctionInterface {
  std::vector<ParameterDefinition> parameters;
  std::vector<std::string> exceptions;

  const ParameterDefinition* Find(ParameterDefinition::Class param_class, const std::string& name) const;
};

}  // namespace sapsim::server
