#pragma once
// A registered server program for tests, written against the C interface:
// one catch-all function that hands each call to the handler the test set
// for that function name, and a listen-and-dispatch loop.

#include <functional>
#include <string>

#include "rfc/binding/rfc_library_api.h"

namespace sapsim::testing {

using Handler = std::function<int(ConnectionHandle)>;

// Calls of `function` go to `handler` (installs the catch-all on first use).
void SetHandler(const std::string& function, Handler handler);

// RfcAccept with "-a<program id> -g127.0.0.1 -x<port>".
ConnectionHandle Register(const std::string& program_id, uint16_t port);

struct ServeResult {
  int dispatched = 0;
  int last_rc = RFC_OK;  // RFC_CLOSED when the connection ended, RFC_NOTHING_WAITING at the time limit
};
// Listens and dispatches until `calls` calls were served, the connection
// closed, or `timeout_ms` passed without a call.
ServeResult Serve(ConnectionHandle handle, int calls, int timeout_ms = 20000);

}  // namespace sapsim::testing
