#pragma once
// How the class library fails. Its own failures are thrown as const char*
// texts after their context went to the trace; a failed call into the SAP RFC
// library is thrown as the library's RFC_ERROR_INFO record, by value.
//
// Catchers tell the kinds apart by type:
//   catch (const RFC_ERROR_INFO& error) { ... error.key, error.message ... }
//   catch (const char* text) { ... }

#include <initializer_list>

#include "rfc/binding/rfc_library_api.h"

// Reads the library's last error (RfcLastError), writes it to the trace when
// `write_to_trace` is set (WriteError; a no-op while tracing is off) and
// throws a copy of the record.
[[noreturn]] void ThrowRfcLastError(bool write_to_trace);

// Reads the library's last error into a record, for callers that report it
// themselves before throwing.
RFC_ERROR_INFO GetRfcLastError();

// The usual failure of the class library: a trace header, the operation's own
// line ("CClass::Operation called"), the failure lines in order, then `thrown`
// is thrown. Texts must outlive the exception (literals, or per-thread buffers).
[[noreturn]] void ThrowRfcFailure(const char* operation, std::initializer_list<const char*> lines,
                                  const char* thrown);

// The class library's out-of-memory text.
inline constexpr const char* kRfcAllocationFailed = "Failed to allocate memory!";
