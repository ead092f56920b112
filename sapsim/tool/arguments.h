#pragma once
// Command-line options of the form --name VALUE and --flag.

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace sapsim::tool {

class Arguments {
 public:
  // False with *error for an unknown option, a value missing, an option given twice.
  bool Parse(int argc, char** argv, const std::set<std::string>& with_value, const std::set<std::string>& flags,
             std::string* error);

  bool Has(const std::string& name) const { return values_.count(name) > 0; }
  bool Flag(const std::string& name) const { return flags_.count(name) > 0; }
  std::string Value(const std::string& name, const std::string& fallback = std::string()) const;
  // A port number 0..65535; absent leaves *port alone.
  bool Port(const std::string& name, uint16_t* port, std::string* error) const;
  // A positive count; absent leaves *count alone.
  bool Count(const std::string& name, long* count, std::string* error) const;

 private:
  std::map<std::string, std::string> values_;
  std::set<std::string> flags_;
};

}  // namespace sapsim::tool
