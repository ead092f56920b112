#include "sapsim/server/system_modules.h"

#include "sapsim/server/builtin_structures.h"
#include "sapsim/server/call_context.h"
#include "sapsim/server/simulated_system.h"

namespace sapsim::server {

using Class = ParameterDefinition::Class;

FunctionInterface RfcPingModule::Interface(const SimulatedSystem&) const { return {}; }

void RfcPingModule::Execute(CallContext&) const {}

FunctionInterface SystemParametersModule::Interface(const SimulatedSystem&) const {
  FunctionInterface f;
  f.parameters = {
      ParameterDefinition::Simple(Class::kExport, "DATE_FORMAT", 'C', 30, "Date format of the user"),
      ParameterDefinition::Simple(Class::kExport, "DECIMAL_SIGN", 'C', 1, "Decimal sign of the user"),
      ParameterDefinition::Simple(Class::kExport, "LANGUAGE", 'C', 1, "Logon language"),
      ParameterDefinition::Simple(Class::kExport, "SAP_SYSTEM_RELEASE", 'C', 4, "Release of the system"),
      ParameterDefinition::Simple(Class::kExport, "USER_NAME", 'C', 12, "Logon user"),
  };
  return f;
}

void SystemParametersModule::Execute(CallContext& call) const {
  call.Export("DATE_FORMAT").SetText(0, "", "DD.MM.YYYY");
  call.Export("DECIMAL_SIGN").SetText(0, "", ".");
  call.Export("LANGUAGE").SetText(0, "", call.session().language.substr(0, 1));
  call.Export("SAP_SYSTEM_RELEASE").SetText(0, "", call.system().definition().release);
  call.Export("USER_NAME").SetText(0, "", call.session().user.substr(0, 12));
}

FunctionInterface SystemInfoModule::Interface(const SimulatedSystem&) const {
  FunctionInterface f;
  f.parameters = {ParameterDefinition::Structured(Class::kExport, "RFCSI_EXPORT", kSystemInfo, "System information")};
  return f;
}

void SystemInfoModule::Execute(CallContext& call) const {
  const SystemDefinition& system = call.system().definition();
  DataBlock& info = call.Export("RFCSI_EXPORT");
  info.SetText(0, "SYSID", system.system_id);
  info.SetText(0, "SAPREL", system.release);
  info.SetText(0, "KERNELREL", system.kernel_release);
  info.SetText(0, "HOST", system.host);
  info.SetText(0, "DBSYS", "SIMDB");
  info.SetText(0, "OPSYS", "Linux");
  info.SetText(0, "CODEPAGE", "1100");
  info.SetText(0, "TIMEZONE", "UTC");
}

}  // namespace sapsim::server
