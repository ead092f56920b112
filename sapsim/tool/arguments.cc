#include "sapsim/tool/arguments.h"

#include <cstdlib>

namespace sapsim::tool {

bool Arguments::Parse(int argc, char** argv, const std::set<std::string>& with_value,
                      const std::set<std::string>& flags, std::string* error) {
  for (int i = 0; i < argc; ++i) {
    std::string name = argv[i];
    if (flags.count(name) > 0) {
      flags_.insert(name);
      continue;
    }
    if (with_value.count(name) == 0) {
      *error = "unknown option " + name;
      return false;
    }
    if (i + 1 >= argc) {
      *error = name + " needs a value";
      return false;
    }
    if (!values_.emplace(name, argv[++i]).second) {
      *error = name + " given twice";
      return false;
    }
  }
  return true;
}

std::string Arguments::Value(const std::string& name, const std::string& fallback) const {
  auto it = values_.find(name);
  return it == values_.end() ? fallback : it->second;
}

bool Arguments::Port(const std::string& name, uint16_t* port, std::string* error) const {
  if (!Has(name)) return true;
  std::string text = Value(name);
  char* end = nullptr;
  long value = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || value < 0 || value > 65535) {
    *error = name + " wants a port number (0 to 65535), not \"" + text + "\"";
    return false;
  }
  *port = static_cast<uint16_t>(value);
  return true;
}

bool Arguments::Count(const std::string& name, long* count, std::string* error) const {
  if (!Has(name)) return true;
  std::string text = Value(name);
  char* end = nullptr;
  long value = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || value < 1) {
    *error = name + " wants a positive number, not \"" + text + "\"";
    return false;
  }
  *count = value;
  return true;
}

}  // namespace sapsim::tool
