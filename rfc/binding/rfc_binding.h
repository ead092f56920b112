#pragma once
// The run-time binding of the SAP RFC library.
//
// The library is never linked: LoadRfcLibrary loads it by file name, and every
// entry point the class library uses is reached through a forwarding function
// of the same name and argument list, so the class library calls RfcOpen(...)
// exactly as it would call the library itself. The library's own C symbols
// live only inside the loaded file; the forwarders here have C++ linkage, so
// the two never meet.
//
// A forwarder resolves its entry point on its first call and keeps the address
// for the life of the process (also across a second LoadRfcLibrary). An entry
// point the library does not export throws the const char* text
// "Failed to get pointer to function: <name>" on every call; nothing is traced.

#include "rfc/binding/rfc_library_api.h"

#ifdef RFC_LIBRARY_IMPLEMENTATION
#error "A library implementing the entry points cannot use the forwarders of the same names."
#endif

// Loads the library (the dynamic loader's search order applies to a bare
// name) and keeps its handle for the rest of the process; the handle is never
// released. A failed load stores the null handle. True when a handle was
// obtained.
bool LoadRfcLibrary(const char* file_name);

// Every entry point: result, name, parameter list, argument list. The
// signatures match the library's *_t pointer types (checked where defined).
#define RFC_ENTRY_POINTS(X)                                                                  \
  X(ConnectionHandle, RfcOpen, (OpenOptions * options), (options))                           \
  X(ConnectionHandle, RfcAccept, (char** argv), (argv))                                      \
  X(void, RfcClose, (ConnectionHandle handle), (handle))                                     \
  X(int, RfcCall,                                                                            \
    (ConnectionHandle handle, const char* function, RfcParameterEntry* imports,              \
     RfcTableEntry* tables),                                                                 \
    (handle, function, imports, tables))                                                     \
  X(int, RfcReceive,                                                                         \
    (ConnectionHandle handle, RfcParameterEntry * exports, RfcTableEntry * tables,           \
     char** exception),                                                                      \
    (handle, exports, tables, exception))                                                    \
  X(int, RfcInstallStructure,                                                                \
    (const char* name, RfcTypeElement* elements, unsigned count, RfcTypeHandle* type_handle), \
    (name, elements, count, type_handle))                                                    \
  X(int, RfcInstallFunction,                                                                 \
    (const char* name, RfcServerFunction function, const char* documentation),               \
    (name, function, documentation))                                                         \
  X(int, RfcListen, (ConnectionHandle handle), (handle))                                     \
  X(int, RfcDispatch, (ConnectionHandle handle), (handle))                                   \
  X(int, RfcGetName, (ConnectionHandle handle, char* name), (handle, name))                  \
  X(int, RfcGetData,                                                                         \
    (ConnectionHandle handle, RfcParameterEntry * imports, RfcTableEntry * tables),          \
    (handle, imports, tables))                                                               \
  X(int, RfcSendData,                                                                        \
    (ConnectionHandle handle, RfcParameterEntry * exports, RfcTableEntry * tables),          \
    (handle, exports, tables))                                                               \
  X(int, RfcRaise, (ConnectionHandle handle, const char* exception), (handle, exception))    \
  X(int, RfcGetAttributes, (ConnectionHandle handle, ConnectionAttributes* attributes),      \
    (handle, attributes))                                                                    \
  X(int, RfcLastError, (RFC_ERROR_INFO * error), (error))                                    \
  X(int, RfcLastErrorEx, (ErrorInfoEx * error), (error))                                     \
  X(TableHandle, ItCreate,                                                                   \
    (const char* name, unsigned line_length, unsigned occurs, unsigned memory),              \
    (name, line_length, occurs, memory))                                                     \
  X(int, ItFree, (TableHandle table), (table))                                               \
  X(int, ItDelete, (TableHandle table), (table))                                             \
  X(unsigned, ItFill, (TableHandle table), (table))                                          \
  X(void*, ItGetLine, (TableHandle table, unsigned line), (table, line))                     \
  X(void*, ItGupLine, (TableHandle table, unsigned line), (table, line))                     \
  X(int, RfcCheckRegisterServer,                                                             \
    (const char* program_id, const char* gateway_host, const char* gateway_service,          \
     int* total, int* initialising, int* ready, int* busy, ErrorInfoEx* error),              \
    (program_id, gateway_host, gateway_service, total, initialising, ready, busy, error))    \
  X(int, RfcCancelRegisterServer,                                                            \
    (const char* program_id, const char* gateway_host, const char* gateway_service,          \
     int* total, int* cancelled, ErrorInfoEx* error),                                        \
    (program_id, gateway_host, gateway_service, total, cancelled, error))

#define RFC_DECLARE_FORWARDER(result, name, parameters, arguments) result name parameters;
RFC_ENTRY_POINTS(RFC_DECLARE_FORWARDER)
#undef RFC_DECLARE_FORWARDER
