// Entry points that work on connections: opening, accepting, calling,
// serving, attributes, registration check and cancel.
#define RFC_LIBRARY_IMPLEMENTATION
#include "rfc/binding/rfc_library_api.h"

#include <memory>
#include <new>
#include <string>

#include "sapsim/librfcsim/connection.h"
#include "sapsim/librfcsim/connection_registry.h"
#include "sapsim/librfcsim/connector.h"
#include "sapsim/librfcsim/last_error.h"
#include "sapsim/librfcsim/table_registry.h"
#include "sapsim/wire/error_codes.h"

namespace w = sapsim::wire;
using rfcsim::Connection;
using rfcsim::ConnectionRegistry;

namespace {

std::shared_ptr<Connection> Find(ConnectionHandle handle, const char* where) {
  std::shared_ptr<Connection> connection = ConnectionRegistry::Instance().Find(handle);
  if (!connection) {
    rfcsim::SetLastError(w::kGroupProgram, w::kKeyProgram,
                         std::string(where) + ": handle " + std::to_string(handle) + " is not an open connection",
                         where);
  }
  return connection;
}

int OutOfMemory(const char* where) {
  rfcsim::SetLastError(w::kGroupMemory, w::kKeyMemory, std::string(where) + ": out of memory", where);
  return RFC_FAILURE;
}

}  // namespace

extern "C" {

ConnectionHandle RfcOpen(OpenOptions* options) { return rfcsim::OpenClient(options); }

ConnectionHandle RfcAccept(char** argv) { return rfcsim::AcceptServer(argv); }

void RfcClose(ConnectionHandle handle) {
  std::shared_ptr<Connection> connection = ConnectionRegistry::Instance().Remove(handle);
  if (!connection) return;
  connection->Close();
  // Tables the library made for this connection's callers stay theirs: a
  // server function still holds its received table when it is torn down.
  rfcsim::TableRegistry::Instance().ReleaseOwner(handle);
}

int RfcCall(ConnectionHandle handle, const char* function, RfcParameterEntry* imports, RfcTableEntry* tables) {
  auto connection = Find(handle, "RfcCall");
  if (!connection) return RFC_FAILURE;
  try {
    return connection->Call(function, imports, tables);
  } catch (const std::bad_alloc&) {
    return OutOfMemory("RfcCall");
  }
}

int RfcReceive(ConnectionHandle handle, RfcParameterEntry* exports, RfcTableEntry* tables, char** exception) {
  auto connection = Find(handle, "RfcReceive");
  if (!connection) return RFC_FAILURE;
  try {
    return connection->Receive(exports, tables, exception);
  } catch (const std::bad_alloc&) {
    return OutOfMemory("RfcReceive");
  }
}

int RfcListen(ConnectionHandle handle) {
  auto connection = Find(handle, "RfcListen");
  if (!connection) return RFC_FAILURE;
  try {
    return connection->Listen();
  } catch (const std::bad_alloc&) {
    return OutOfMemory("RfcListen");
  }
}

// The server function may throw: its exceptions pass through to the caller
// of RfcDispatch (after the connection has answered the call).
int RfcDispatch(ConnectionHandle handle) {
  auto connection = Find(handle, "RfcDispatch");
  if (!connection) return RFC_FAILURE;
  return connection->Dispatch();
}

int RfcGetName(ConnectionHandle handle, char* name) {
  auto connection = Find(handle, "RfcGetName");
  if (!connection) return RFC_FAILURE;
  return connection->GetName(name);
}

int RfcGetData(ConnectionHandle handle, RfcParameterEntry* imports, RfcTableEntry* tables) {
  auto connection = Find(handle, "RfcGetData");
  if (!connection) return RFC_FAILURE;
  try {
    return connection->GetData(imports, tables);
  } catch (const std::bad_alloc&) {
    return OutOfMemory("RfcGetData");
  }
}

int RfcSendData(ConnectionHandle handle, RfcParameterEntry* exports, RfcTableEntry* tables) {
  auto connection = Find(handle, "RfcSendData");
  if (!connection) return RFC_FAILURE;
  try {
    return connection->SendData(exports, tables);
  } catch (const std::bad_alloc&) {
    return OutOfMemory("RfcSendData");
  }
}

int RfcRaise(ConnectionHandle handle, const char* exception) {
  auto connection = Find(handle, "RfcRaise");
  if (!connection) return RFC_FAILURE;
  try {
    return connection->Raise(exception);
  } catch (const std::bad_alloc&) {
    return OutOfMemory("RfcRaise");
  }
}

int RfcGetAttributes(ConnectionHandle handle, ConnectionAttributes* attributes) {
  auto connection = Find(handle, "RfcGetAttributes");
  if (!connection) return RFC_FAILURE;
  return connection->GetAttributes(attributes);
}

int RfcCheckRegisterServer(const char* program_id, const char* gateway_host, const char* gateway_service, int* total,
                           int* initialising, int* ready, int* busy, ErrorInfoEx* error) {
  return rfcsim::CheckRegistration(program_id, gateway_host, gateway_service, total, initialising, ready, busy, error);
}

int RfcCancelRegisterServer(const char* program_id, const char* gateway_host, const char* gateway_service, int* total,
                            int* cancelled, ErrorInfoEx* error) {
  return rfcsim::CancelRegistration(program_id, gateway_host, gateway_service, total, cancelled, error);
}

}  // extern "C"
