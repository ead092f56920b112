// The two ways the class library raises a failure.

#include "rfc/core/rfc_error.h"

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_trace.h"

RFC_ERROR_INFO GetRfcLastError() {
  RFC_ERROR_INFO error{};
  RfcLastError(&error);
  return error;
}

void ThrowRfcLastError(bool write_to_trace) {
  const RFC_ERROR_INFO error = GetRfcLastError();
  if (write_to_trace) GetRfcTrace().WriteError(error);
  throw error;
}

void ThrowRfcFailure(const char* operation, std::initializer_list<const char*> lines,
                     const char* thrown) {
  CRfcTrace& trace = GetRfcTrace();
  trace.WriteHeader();
  trace.WriteLine(operation);
  for (const char* line : lines) trace.WriteLine(line);
  throw thrown;
}
