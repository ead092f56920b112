#include "sapsim/server/repository_modules.h"

#include "sapsim/server/builtin_structures.h"
#include "sapsim/server/call_context.h"
#include "sapsim/server/simulated_system.h"
#include "sapsim/wire/rfc_types.h"

namespace sapsim::server {

using Class = ParameterDefinition::Class;

namespace {

// Names longer than a line's field are cut, as an old system shows them.
std::string Fit(const DataBlock& block, const std::string& field, const std::string& text) {
  wire::FieldDesc place;
  if (!block.FindField(field, &place)) return text;
  return text.substr(0, place.length);
}

void Put(DataBlock& block, uint32_t row, const std::string& field, const std::string& text) {
  block.SetText(row, field, Fit(block, field, text));
}

}  // namespace

FunctionInterface FunctionInterfaceModule::Interface(const SimulatedSystem&) const {
  FunctionInterface f;
  f.parameters = {
      ParameterDefinition::Simple(Class::kImport, "FUNCNAME", 'C', 30, "Name of the function module"),
      ParameterDefinition::Simple(Class::kImport, "LANGUAGE", 'C', 1, "Language of the texts"),
      ParameterDefinition::Structured(Class::kTable, "PARAMS", kInterfaceLine, "Parameters of the function"),
  };
  f.exceptions = {"FU_NOT_FOUND"};
  return f;
}

void FunctionInterfaceModule::Execute(CallContext& call) const {
  std::string name = call.Import("FUNCNAME");
  DataBlock& params = call.Table("PARAMS");
  params.Clear();  // tables come in as well as go out: start from nothing
  const FunctionModule* module = call.system().functions().Find(name);
  if (module == nullptr) {
    call.Raise("FU_NOT_FOUND");
    return;
  }
  FunctionInterface described = module->Interface(call.system());
  int position = 0;
  for (const ParameterDefinition& p : described.parameters) {
    uint32_t row = params.AppendLine();
    ++position;
    Put(params, row, "PARAMCLASS", std::string(1, static_cast<char>(p.param_class)));
    Put(params, row, "PARAMETER", p.name);
    if (p.IsSimple()) {
      // A simple parameter refers to a dictionary field; the interface
      // describes it by its own name.
      Put(params, row, "TABNAME", "SIMPLE");
      Put(params, row, "FIELDNAME", p.name);
      Put(params, row, "EXID", std::string(1, wire::TypeLetter(p.type)));
      Put(params, row, "INTLENGTH", std::to_string(p.length));
      Put(params, row, "DECIMALS", std::to_string(p.decimals));
    } else {
      const StructureDefinition* structure = call.system().dictionary().Find(p.structure);
      Put(params, row, "TABNAME", p.structure);
      Put(params, row, "EXID", p.param_class == Class::kTable ? "h" : "u");
      Put(params, row, "INTLENGTH", std::to_string(structure != nullptr ? structure->layout.length : 0));
    }
    Put(params, row, "POSITION", std::to_string(position));
    Put(params, row, "DEFAULT", p.default_value);
    Put(params, row, "PARAMTEXT", p.text);
  }
  for (const std::string& exception : described.exceptions) {
    uint32_t row = params.AppendLine();
    Put(params, row, "PARAMCLASS", "X");
    Put(params, row, "PARAMETER", exception);
  }
}

FunctionInterface StructureDefinitionModule::Interface(const SimulatedSystem& system) const {
  FunctionInterface f;
  f.parameters = {
      ParameterDefinition::Simple(Class::kImport, "TABNAME", 'C', system.dictionary().long_names() ? 30 : 10,
                                  "Name of the structure"),
      ParameterDefinition::Simple(Class::kExport, "TABLENGTH", 'I', 4, "Length of the structure in bytes"),
      ParameterDefinition::Structured(Class::kTable, "FIELDS", kStructureLine, "Fields of the structure"),
  };
  f.exceptions = {"TABLE_NOT_ACTIVE"};
  return f;
}

void StructureDefinitionModule::Execute(CallContext& call) const {
  std::string name = call.Import("TABNAME");
  DataBlock& fields = call.Table("FIELDS");
  fields.Clear();
  const StructureDefinition* structure = call.system().dictionary().Find(name);
  if (structure == nullptr) {
    call.Raise("TABLE_NOT_ACTIVE");
    return;
  }
  int position = 0;
  for (const wire::FieldDesc& field : structure->layout.fields) {
    uint32_t row = fields.AppendLine();
    ++position;
    Put(fields, row, "TABNAME", structure->name);
    Put(fields, row, "FIELDNAME", field.name);
    Put(fields, row, "POSITION", std::to_string(position));
    Put(fields, row, "OFFSET", std::to_string(field.offset));
    Put(fields, row, "INTLENGTH", std::to_string(field.length));
    Put(fields, row, "DECIMALS", std::to_string(field.decimals));
    Put(fields, row, "EXID", std::string(1, wire::TypeLetter(field.type)));
  }
  call.Export("TABLENGTH").SetText(0, "", std::to_string(structure->layout.length));
}

}  // namespace sapsim::server
