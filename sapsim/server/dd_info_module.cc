#include "sapsim/server/dd_info_module.h"

#include "sapsim/server/builtin_structures.h"
#include "sapsim/server/call_context.h"
#include "sapsim/server/simulated_system.h"

namespace sapsim::server {

using Class = ParameterDefinition::Class;

FunctionInterface DdInfoModule::Interface(const SimulatedSystem&) const {
  FunctionInterface f;
  f.parameters = {
      ParameterDefinition::Simple(Class::kImport, "TABNAME", 'C', 30, "Structure or table"),
      ParameterDefinition::Structured(Class::kExport, "RETURN", kDdInfoReturn, "S: success, E: error with message"),
      ParameterDefinition::Structured(Class::kTable, "META_TAB", kDdInfoMeta, "One row per field"),
  };
  return f;
}

void DdInfoModule::Execute(CallContext& call) const {
  std::string name = call.Import("TABNAME");
  DataBlock& result = call.Export("RETURN");
  DataBlock& meta = call.Table("META_TAB");
  meta.Clear();  // tables come in as well as go out: start from nothing
  const StructureDefinition* structure = call.system().dictionary().Find(name);
  if (structure == nullptr) {
    result.SetText(0, "TYPE", "E");
    result.SetText(0, "ID", "DD");
    result.SetText(0, "NUMBER", "1");
    result.SetText(0, "MESSAGE", "Structure " + name + " does not exist in the dictionary");
    return;
  }
  int position = 0;
  for (const wire::FieldDesc& field : structure->layout.fields) {
    uint32_t row = meta.AppendLine();
    meta.SetText(row, "FIELDNAME", field.name);
    meta.SetText(row, "POS", std::to_string(++position));
    meta.SetText(row, "DATATYPE", std::to_string(field.type));
    meta.SetText(row, "LENGTH", std::to_string(field.length));
    meta.SetText(row, "DECIMALS", std::to_string(field.decimals));
  }
  result.SetText(0, "TYPE", "S");
  result.SetText(0, "MESSAGE", "Structure " + name + ": " + std::to_string(position) + " fields");
}

}  // namespace sapsim::server
