// Entry points that never leave the process: internal tables, the structure
// and function registries, the last error.
#define RFC_LIBRARY_IMPLEMENTATION
#include "rfc/binding/rfc_library_api.h"

#include <new>
#include <string>

#include "sapsim/librfcsim/function_registry.h"
#include "sapsim/librfcsim/last_error.h"
#include "sapsim/librfcsim/structure_registry.h"
#include "sapsim/librfcsim/table_registry.h"
#include "sapsim/wire/error_codes.h"
#include "sapsim/wire/value_description.h"

namespace w = sapsim::wire;
using rfcsim::SetLastError;
using rfcsim::TableRegistry;

namespace {

void UnknownTable(const char* where) {
  SetLastError(w::kGroupProgram, w::kKeyProgram, std::string(where) + ": unknown or deleted table handle", where);
}

}  // namespace

extern "C" {

TableHandle ItCreate(const char* name, unsigned line_length, unsigned /*occurs*/, unsigned /*memory*/) {
  if (line_length == 0 || line_length > w::kMaxValueLength) {
    SetLastError(w::kGroupProgram, w::kKeyProgram,
                 "ItCreate: line length " + std::to_string(line_length) + " is not between 1 and " +
                     std::to_string(w::kMaxValueLength),
                 "ItCreate");
    return nullptr;
  }
  TableHandle handle = nullptr;
  try {
    handle = TableRegistry::Instance().Create(name != nullptr ? name : "", line_length, 0);
  } catch (const std::bad_alloc&) {
    handle = nullptr;
  }
  if (handle == nullptr) SetLastError(w::kGroupMemory, w::kKeyMemory, "ItCreate: out of memory", "ItCreate");
  return handle;
}

int ItFree(TableHandle table) {
  if (!TableRegistry::Instance().Free(table)) {
    UnknownTable("ItFree");
    return RFC_FAILURE;
  }
  return RFC_OK;
}

int ItDelete(TableHandle table) {
  if (!TableRegistry::Instance().Delete(table)) {
    UnknownTable("ItDelete");
    return RFC_FAILURE;
  }
  return RFC_OK;
}

unsigned ItFill(TableHandle table) {
  auto found = TableRegistry::Instance().Find(table);
  return found ? static_cast<unsigned>(found->fill()) : 0u;
}

void* ItGetLine(TableHandle table, unsigned line) {
  auto found = TableRegistry::Instance().Find(table);
  return found ? found->Line(line) : nullptr;
}

void* ItGupLine(TableHandle table, unsigned line) {
  auto found = TableRegistry::Instance().Find(table);
  if (!found) {
    UnknownTable("ItGupLine");
    return nullptr;
  }
  if (line == 0) {
    SetLastError(w::kGroupProgram, w::kKeyProgram, "ItGupLine: lines are numbered from 1", "ItGupLine");
    return nullptr;
  }
  void* result = found->LineForUpdate(line);
  if (result == nullptr) {
    SetLastError(w::kGroupMemory, w::kKeyMemory,
                 "ItGupLine: no memory for line " + std::to_string(line) + " of table " + found->name(),
                 "ItGupLine");
  }
  return result;
}

int RfcInstallStructure(const char* name, RfcTypeElement* elements, unsigned count, RfcTypeHandle* type_handle) {
  std::string error;
  if (!rfcsim::StructureRegistry::Instance().Install(name, elements, count, type_handle, &error)) {
    SetLastError(w::kGroupProgram, w::kKeyProgram, error, "RfcInstallStructure");
    return RFC_FAILURE;
  }
  return RFC_OK;
}

int RfcInstallFunction(const char* name, RfcServerFunction function, const char* documentation) {
  bool installed = false;
  try {
    installed = rfcsim::FunctionRegistry::Instance().Install(name, function, documentation);
  } catch (const std::bad_alloc&) {
    SetLastError(w::kGroupMemory, w::kKeyMemory, "RfcInstallFunction: out of memory", "RfcInstallFunction");
    return RFC_FAILURE;
  }
  if (!installed) {
    SetLastError(w::kGroupProgram, w::kKeyProgram, "RfcInstallFunction: function without a name",
                 "RfcInstallFunction");
    return RFC_FAILURE;
  }
  return RFC_OK;
}

int RfcLastError(RFC_ERROR_INFO* error) {
  if (error == nullptr) return RFC_FAILURE;
  rfcsim::FillErrorInfo(error);
  return RFC_OK;
}

int RfcLastErrorEx(ErrorInfoEx* error) {
  if (error == nullptr) return RFC_FAILURE;
  rfcsim::FillErrorInfoEx(error);
  return RFC_OK;
}

}  // extern "C"
