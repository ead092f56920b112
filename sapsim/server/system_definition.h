#pragma once
// The simulated system as its system file describes it.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "sapsim/wire/value_description.h"

namespace sapsim::server {

struct LogonEntry {
  std::string client;
  std::string user;
  std::string password;
};

// A dictionary structure: fields laid out with natural alignment, plus the
// optional description texts of the fields (by field name).
struct StructureDefinition {
  std::string name;
  wire::ValueDesc layout;
  std::map<std::string, std::string> field_texts;
};

// The rows of a table, in the layout of the structure of the same name.
struct TableContent {
  std::string name;
  uint32_t line_length = 0;
  uint32_t row_count = 0;
  std::vector<uint8_t> rows;  // row_count * line_length bytes
};

struct SystemDefinition {
  std::string system_id;
  std::string release;         // may be empty
  std::string kernel_release;
  std::string host;
  std::vector<LogonEntry> logons;
  std::vector<std::string> groups;
  std::map<std::string, StructureDefinition> structures;  // from the file only
  std::map<std::string, TableContent> tables;             // every structure of the file has one
};

}  // namespace sapsim::server
