#pragma once
// A function module that cannot finish its work (a value that does not fit
// its own export, for example) answers the caller with a system failure.

#include <stdexcept>
#include <string>

namespace sapsim::server {

class ModuleError : public std::runtime_error {
 public:
  explicit ModuleError(const std::string& what) : std::runtime_error(what) {}
};

}  // namespace sapsim::server
