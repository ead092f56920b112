#pragma once
// Z_KTZ_BAPI_GET_DD_INFO: the field list of a dictionary structure, one
// META_TAB row per field with its position (from 1), its RFC type code, its
// length in bytes and its decimals, all as numeric text. RETURN says "S" on
// success and "E" with a message for a structure the dictionary lacks.

#include "sapsim/server/function_module.h"

namespace sapsim::server {

class DdInfoModule : public FunctionModule {
 public:
  std::string Name() const override { return "Z_KTZ_BAPI_GET_DD_INFO"; }
  FunctionInterface Interface(const SimulatedSystem& system) const override;
  void Execute(CallContext& call) const override;
};

}  // namespace sapsim::server
