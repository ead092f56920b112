#include "sapsim/server/function_library.h"

#include "sapsim/server/dd_info_module.h"
#include "sapsim/server/read_table_module.h"
#include "sapsim/server/repository_modules.h"
#include "sapsim/server/system_modules.h"

namespace sapsim::server {

FunctionLibrary FunctionLibrary::Standard() {
  FunctionLibrary library;
  library.Add(std::make_unique<RfcPingModule>());
  library.Add(std::make_unique<SystemParametersModule>());
  library.Add(std::make_unique<SystemInfoModule>());
  library.Add(std::make_unique<FunctionInterfaceModule>());
  library.Add(std::make_unique<StructureDefinitionModule>());
  library.Add(std::make_unique<ReadTableModule>());
  library.Add(std::make_unique<DdInfoModule>());
  return library;
}

void FunctionLibrary::Add(std::unique_ptr<FunctionModule> module) {
  std::string name = module->Name();
  modules_[name] = std::move(module);
}

const FunctionModule* FunctionLibrary::Find(const std::string& name) const {
  auto it = modules_.find(name);
  return it == modules_.end() ? nullptr : it->second.get();
}

}  // namespace sapsim::server
