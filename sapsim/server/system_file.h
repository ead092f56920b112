#pragma once
// Reads and checks a system file (JSON). A file with a mistake is refused as
// a whole, with the place of the mistake as a JSON pointer and what is wrong.

#include <stdexcept>
#include <string>

#include "sapsim/server/system_definition.h"

namespace sapsim::server {

class SystemFileError : public std::runtime_error {
 public:
  explicit SystemFileError(const std::string& what) : std::runtime_error(what) {}
};

// Throws SystemFileError: "<file>: <pointer>: <what is wrong>".
SystemDefinition LoadSystemFile(const std::string& path);
// The same for a text already in memory; `file_name` only appears in messages.
SystemDefinition ParseSystemText(const std::string& text, const std::string& file_name);

}  // namespace sapsim::server
