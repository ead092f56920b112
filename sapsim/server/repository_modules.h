#pragma once
// The repository function modules: RFC_GET_FUNCTION_INTERFACE and
// RFC_GET_STRUCTURE_DEFINITION. Both answer in the short line layouts when
// the system's release is below "40A" and in the long ones otherwise.

#include "sapsim/server/function_module.h"

namespace sapsim::server {

class FunctionInterfaceModule : public FunctionModule {
 public:
  std::string Name() const override { return "RFC_GET_FUNCTION_INTERFACE"; }
  FunctionInterface Interface(const SimulatedSystem& system) const override;
  void Execute(CallContext& call) const override;
};

class StructureDefinitionModule : public FunctionModule {
 public:
  std::string Name() const override { return "RFC_GET_STRUCTURE_DEFINITION"; }
  FunctionInterface Interface(const SimulatedSystem& system) const override;
  void Execute(CallContext& call) const override;
};

}  // namespace sapsim::server
