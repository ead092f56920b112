#pragma once
// Making connections: RfcOpen in its modes (gateway, application server,
// message server), RfcAccept (registration at the gateway), and the
// registration check and cancel. Failures set the last error and return 0
// (handles) or RFC_FAILURE.

#include "rfc/binding/rfc_library_api.h"

namespace rfcsim {

ConnectionHandle OpenClient(const OpenOptions* options);
ConnectionHandle AcceptServer(char** argv);
int CheckRegistration(const char* program_id, const char* gateway_host, const char* gateway_service, int* total,
                      int* initialising, int* ready, int* busy, ErrorInfoEx* error);
int CancelRegistration(const char* program_id, const char* gateway_host, const char* gateway_service, int* total,
                       int* cancelled, ErrorInfoEx* error);

}  // namespace rfcsim
