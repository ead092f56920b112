#include "sapsim/server/builtin_structures.h"

#include "sapsim/wire/rfc_types.h"

namespace sapsim::server {

bool UsesLongNames(const std::string& release) { return release.compare("40A") >= 0; }

StructureDefinition MakeStructure(const std::string& name, const std::vector<FieldRow>& rows) {
  std::vector<wire::FieldDesc> fields;
  for (const FieldRow& row : rows) {
    wire::FieldDesc field;
    field.name = row.name;
    field.type = wire::TypeFromLetter(row.letter);
    uint32_t fixed = wire::FixedLength(field.type);
    field.length = fixed != 0 ? fixed : row.length;
    field.decimals = row.decimals;
    fields.push_back(field);
  }
  uint32_t length = wire::LayOut(fields);
  StructureDefinition structure;
  structure.name = name;
  structure.layout = wire::ValueDesc::Structure(std::move(fields), length);
  return structure;
}

std::vector<StructureDefinition> BuiltInStructures(bool long_names) {
  uint32_t name_length = long_names ? 30 : 10;
  return {
      MakeStructure(kReadTableOption, {{"TEXT", 'C', 72, 0}}),
      MakeStructure(kReadTableField, {{"FIELDNAME", 'C', 30, 0},
                                      {"OFFSET", 'N', 6, 0},
                                      {"LENGTH", 'N', 6, 0},
                                      {"TYPE", 'C', 1, 0},
                                      {"FIELDTEXT", 'C', 60, 0}}),
      MakeStructure(kReadTableData, {{"WA", 'C', 512, 0}}),
      MakeStructure(kInterfaceLine, {{"PARAMCLASS", 'C', 1, 0},
                                     {"PARAMETER", 'C', 30, 0},
                                     {"TABNAME", 'C', name_length, 0},
                                     {"FIELDNAME", 'C', name_length, 0},
                                     {"EXID", 'C', 1, 0},
                                     {"POSITION", 'I', 4, 0},
                                     {"OFFSET", 'I', 4, 0},
                                     {"INTLENGTH", 'I', 4, 0},
                                     {"DECIMALS", 'I', 4, 0},
                                     {"DEFAULT", 'C', 21, 0},
                                     {"PARAMTEXT", 'C', 79, 0}}),
      MakeStructure(kStructureLine, {{"TABNAME", 'C', name_length, 0},
                                     {"FIELDNAME", 'C', name_length, 0},
                                     {"POSITION", 'I', 4, 0},
                                     {"OFFSET", 'I', 4, 0},
                                     {"INTLENGTH", 'I', 4, 0},
                                     {"DECIMALS", 'I', 4, 0},
                                     {"EXID", 'C', 1, 0}}),
      MakeStructure(kDdInfoMeta, {{"FIELDNAME", 'C', 30, 0},
                                  {"POS", 'N', 4, 0},
                                  {"DATATYPE", 'N', 2, 0},
                                  {"LENGTH", 'N', 6, 0},
                                  {"DECIMALS", 'N', 6, 0}}),
      MakeStructure(kDdInfoReturn, {{"TYPE", 'C', 1, 0}, {"ID", 'C', 20, 0}, {"NUMBER", 'N', 3, 0},
                                    {"MESSAGE", 'C', 220, 0}}),
      MakeStructure(kSystemInfo, {{"SYSID", 'C', 8, 0},
                                  {"SAPREL", 'C', 4, 0},
                                  {"KERNELREL", 'C', 4, 0},
                                  {"HOST", 'C', 32, 0},
                                  {"DBSYS", 'C', 10, 0},
                                  {"OPSYS", 'C', 10, 0},
                                  {"CODEPAGE", 'C', 4, 0},
                                  {"TIMEZONE", 'C', 6, 0}}),
  };
}

bool IsBuiltInStructure(const std::string& name) {
  for (const StructureDefinition& structure : BuiltInStructures(true)) {
    if (structure.name == name) return true;
  }
  return false;
}

}  // namespace sapsim::server
