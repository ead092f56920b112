#pragma once
// The small function modules every system has: RFCPING,
// RFC_GET_SAP_SYSTEM_PARAMETERS and RFC_SYSTEM_INFO.

#include "sapsim/server/function_module.h"

namespace sapsim::server {

class RfcPingModule : public FunctionModule {
 public:
  std::string Name() const override { return "RFCPING"; }
  FunctionInterface Interface(const SimulatedSystem& system) const override;
  void Execute(CallContext& call) const override;
};

class SystemParametersModule : public FunctionModule {
 public:
  std::string Name() const override { return "RFC_GET_SAP_SYSTEM_PARAMETERS"; }
  FunctionInterface Interface(const SimulatedSystem& system) const override;
  void Execute(CallContext& call) const override;
};

class SystemInfoModule : public FunctionModule {
 public:
  std::string Name() const override { return "RFC_SYSTEM_INFO"; }
  FunctionInterface Interface(const SimulatedSystem& system) const override;
  void Execute(CallContext& call) const override;
};

}  // namespace sapsim::server
