#pragma once
// A function module of the simulated system.

#include <string>

#include "sapsim/server/function_interface.h"

namespace sapsim::server {

class CallContext;
class SimulatedSystem;

class FunctionModule {
 public:
  virtual ~FunctionModule() = default;
  virtual std::string Name() const = 0;
  // The interface can depend on the system (its release decides the length
  // of dictionary names).
  virtual FunctionInterface Interface(const SimulatedSystem& system) const = 0;
  // Runs one call: reads the imports and tables of `call`, fills its exports
  // and tables or raises an exception through it. A ModuleError ends the call
  // with a system failure.
  virtual void Execute(CallContext& call) const = 0;
};

}  // namespace sapsim::server
