// A stand-in RFC library for the binding's tests: every entry point records
// how it was called and answers with a value that names the entry point and
// the library it came from (STUB_ID), so a test can tell which library's
// function a forwarder reached and what it handed over.
// Built once complete and once without RfcCheckRegisterServer
// (STUB_WITHOUT_CHECK_REGISTER_SERVER).

#define RFC_LIBRARY_IMPLEMENTATION
#include "tests/rfc/rfc_stub_library.h"

#include <cstring>
#include <initializer_list>

namespace {

StubCall g_last_call;
char g_lines[4][16];

void Record(const char* function, std::initializer_list<const void*> pointers,
            std::initializer_list<long long> numbers) {
  std::memset(&g_last_call, 0, sizeof g_last_call);
  g_last_call.function = function;
  g_last_call.stub_id = STUB_ID;
  int i = 0;
  for (const void* p : pointers) g_last_call.pointers[i++] = p;
  i = 0;
  for (long long n : numbers) g_last_call.numbers[i++] = n;
}

int Result(int entry) { return StubResult(STUB_ID, entry); }

}  // namespace

extern "C" {

RFC_LIBRARY_EXPORT const StubCall* StubLastCall(void) { return &g_last_call; }

ConnectionHandle RfcOpen(OpenOptions* options) {
  Record("RfcOpen", {options}, {});
  return static_cast<ConnectionHandle>(Result(kStubRfcOpen));
}
ConnectionHandle RfcAccept(char** argv) {
  Record("RfcAccept", {argv}, {});
  return static_cast<ConnectionHandle>(Result(kStubRfcAccept));
}
void RfcClose(ConnectionHandle handle) { Record("RfcClose", {}, {handle}); }
int RfcCall(ConnectionHandle handle, const char* function, RfcParameterEntry* imports,
            RfcTableEntry* tables) {
  Record("RfcCall", {function, imports, tables}, {handle});
  return Result(kStubRfcCall);
}
int RfcReceive(ConnectionHandle handle, RfcParameterEntry* exports, RfcTableEntry* tables,
               char** exception) {
  Record("RfcReceive", {exports, tables, exception}, {handle});
  return Result(kStubRfcReceive);
}
int RfcInstallStructure(const char* name, RfcTypeElement* elements, unsigned count,
                        RfcTypeHandle* type_handle) {
  Record("RfcInstallStructure", {name, elements, type_handle}, {count});
  return Result(kStubRfcInstallStructure);
}
int RfcInstallFunction(const char* name, RfcServerFunction function, const char* documentation) {
  Record("RfcInstallFunction", {name, reinterpret_cast<const void*>(function), documentation}, {});
  return Result(kStubRfcInstallFunction);
}
int RfcListen(ConnectionHandle handle) {
  Record("RfcListen", {}, {handle});
  return Result(kStubRfcListen);
}
int RfcDispatch(ConnectionHandle handle) {
  Record("RfcDispatch", {}, {handle});
  return Result(kStubRfcDispatch);
}
int RfcGetName(ConnectionHandle handle, char* name) {
  Record("RfcGetName", {name}, {handle});
  return Result(kStubRfcGetName);
}
int RfcGetData(ConnectionHandle handle, RfcParameterEntry* imports, RfcTableEntry* tables) {
  Record("RfcGetData", {imports, tables}, {handle});
  return Result(kStubRfcGetData);
}
int RfcSendData(ConnectionHandle handle, RfcParameterEntry* exports, RfcTableEntry* tables) {
  Record("RfcSendData", {exports, tables}, {handle});
  return Result(kStubRfcSendData);
}
int RfcRaise(ConnectionHandle handle, const char* exception) {
  Record("RfcRaise", {exception}, {handle});
  return Result(kStubRfcRaise);
}
int RfcGetAttributes(ConnectionHandle handle, ConnectionAttributes* attributes) {
  Record("RfcGetAttributes", {attributes}, {handle});
  return Result(kStubRfcGetAttributes);
}
int RfcLastError(RFC_ERROR_INFO* error) {
  Record("RfcLastError", {error}, {});
  std::memset(error, 0, sizeof *error);
  std::strcpy(error->key, "STUB_KEY_WITH_24_CHARSXY");
  std::strcpy(error->status, "stub status");
  std::strcpy(error->message, "stub message");
  std::strcpy(error->intstat, "stub internal");
  return Result(kStubRfcLastError);
}
int RfcLastErrorEx(ErrorInfoEx* error) {
  Record("RfcLastErrorEx", {error}, {});
  return Result(kStubRfcLastErrorEx);
}
TableHandle ItCreate(const char* name, unsigned line_length, unsigned occurs, unsigned memory) {
  Record("ItCreate", {name}, {line_length, occurs, memory});
  return reinterpret_cast<TableHandle>(g_lines[STUB_ID % 4]);
}
int ItFree(TableHandle table) {
  Record("ItFree", {table}, {});
  return Result(kStubItFree);
}
int ItDelete(TableHandle table) {
  Record("ItDelete", {table}, {});
  return Result(kStubItDelete);
}
unsigned ItFill(TableHandle table) {
  Record("ItFill", {table}, {});
  return static_cast<unsigned>(Result(kStubItFill));
}
void* ItGetLine(TableHandle table, unsigned line) {
  Record("ItGetLine", {table}, {line});
  return g_lines[line % 4];
}
void* ItGupLine(TableHandle table, unsigned line) {
  Record("ItGupLine", {table}, {line});
  return g_lines[(line + 1) % 4];
}
#ifndef STUB_WITHOUT_CHECK_REGISTER_SERVER
int RfcCheckRegisterServer(const char* program_id, const char* gateway_host,
                           const char* gateway_service, int* total, int* initialising, int* ready,
                           int* busy, ErrorInfoEx* error) {
  Record("RfcCheckRegisterServer",
         {program_id, gateway_host, gateway_service, total, initialising, ready, busy, error}, {});
  return Result(kStubRfcCheckRegisterServer);
}
#endif
int RfcCancelRegisterServer(const char* program_id, const char* gateway_host,
                            const char* gateway_service, int* total, int* cancelled,
                            ErrorInfoEx* error) {
  Record("RfcCancelRegisterServer",
         {program_id, gateway_host, gateway_service, total, cancelled, error}, {});
  return Result(kStubRfcCancelRegisterServer);
}

}  // extern "C"
