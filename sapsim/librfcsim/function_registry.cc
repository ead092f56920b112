#include "sapsim/librfcsim/function_registry.h"

namespace rfcsim {

namespace {
std::string TrimRight(const std::string& s) {
  size_t end = s.find_last_not_of(' ');
  return end == std::string::npos ? std::string() : s.substr(0, end + 1);
}
}  // namespace

FunctionRegistry& FunctionRegistry::Instance() {
  static FunctionRegistry registry;
  return registry;
}

bool FunctionRegistry::Install(const char* name, RfcServerFunction function, const char* documentation) {
  if (name == nullptr) return false;
  std::string key = TrimRight(name);
  if (key.empty()) return false;
  std::lock_guard<std::mutex> lock(mutex_);
  functions_[key] = Entry{function, documentation != nullptr ? documentation : ""};
  return true;
}

RfcServerFunction FunctionRegistry::Resolve(const std::string& name) const {
  std::lock_guard<std::mutex> lock(mutex_);
  auto own = functions_.find(TrimRight(name));
  if (own != functions_.end() && own->second.function != nullptr) return own->second.function;
  auto global = functions_.find(RFC_GLOBAL_SERVER_NAME);
  if (global != functions_.end()) return global->second.function;
  return nullptr;
}

}  // namespace rfcsim
