#pragma once
// Comma-separated values: fields separated by commas, a field in double
// quotes may hold commas, line breaks and doubled quotes (""), lines end with
// LF or CR LF. Each record remembers the line it starts on, for messages.

#include <string>
#include <vector>

namespace sapsim::tool {

struct CsvRecord {
  int line = 0;
  std::vector<std::string> fields;
};

// False with *error ("line 4: quoted field not closed") for text that is
// not CSV. Empty lines are skipped.
bool ParseCsv(const std::string& text, std::vector<CsvRecord>* records, std::string* error);

}  // namespace sapsim::tool
