#pragma once
// The dictionary structures of the function modules the system offers (the
// lines of OPTIONS, FIELDS, DATA, PARAMS, META_TAB, the RETURN structure and
// the system information). Their names and field names have at most 10
// characters, so that the short dictionary layout describes them whole.

#include <string>
#include <vector>

#include "sapsim/server/system_definition.h"

namespace sapsim::server {

// Structure names.
constexpr const char* kReadTableOption = "RS_OPTION";
constexpr const char* kReadTableField = "RS_DBFIELD";
constexpr const char* kReadTableData = "RS_DATA";
constexpr const char* kInterfaceLine = "RS_PARAMS";
constexpr const char* kStructureLine = "RS_FIELDS";
constexpr const char* kDdInfoMeta = "RS_META";
constexpr const char* kDdInfoReturn = "RS_RETURN";
constexpr const char* kSystemInfo = "RS_SYSINFO";

// Systems of a release below "40A" know table and field names of 10
// characters only; their repository lines are shorter.
bool UsesLongNames(const std::string& release);

// Every built-in structure as a system of that kind defines it.
std::vector<StructureDefinition> BuiltInStructures(bool long_names);
bool IsBuiltInStructure(const std::string& name);

// Builds a structure from (name, type letter, length, decimals) rows.
struct FieldRow {
  const char* name;
  char letter;
  uint32_t length;
  int32_t decimals;
};
StructureDefinition MakeStructure(const std::string& name, const std::vector<FieldRow>& fields);

}  // namespace sapsim::server
