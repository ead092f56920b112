#pragma once
// The function modules the system offers, by name.

#include <map>
#include <memory>
#include <string>

#include "sapsim/server/function_module.h"

namespace sapsim::server {

class FunctionLibrary {
 public:
  // Every module of the simulated system.
  static FunctionLibrary Standard();

  void Add(std::unique_ptr<FunctionModule> module);
  const FunctionModule* Find(const std::string& name) const;

 private:
  std::map<std::string, std::unique_ptr<FunctionModule>> modules_;
};

}  // namespace sapsim::server
