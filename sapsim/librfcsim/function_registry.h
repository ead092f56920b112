#pragma once
// Server functions installed with RfcInstallFunction, by name. A name
// installed without a function pointer is only made known: its calls go to
// the catch-all "%%USER_GLOBAL_SERVER".

#include <mutex>
#include <string>
#include <unordered_map>

#include "rfc/binding/rfc_library_api.h"

namespace rfcsim {

class FunctionRegistry {
 public:
  static FunctionRegistry& Instance();

  // False for a missing or blank name. Installing a name again replaces it.
  bool Install(const char* name, RfcServerFunction function, const char* documentation);
  // The function that serves `name`: its own when it has one, else the
  // catch-all's, else null.
  RfcServerFunction Resolve(const std::string& name) const;

 private:
  struct Entry {
    RfcServerFunction function;
    std::string documentation;
  };
  mutable std::mutex mutex_;
  std::unordered_map<std::string, Entry> functions_;
};

}  // namespace rfcsim
