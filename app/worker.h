#pragma once
// The worker thread: repeats the service cycle until the instance's stop
// event is set.

#include <cstdint>
#include <string>

#include "rfc/binding/rfc_library_api.h"

class CWorkerContext;

// Thread procedure; `context` is the CWorkerContext made by CBatchApp::Start.
// Always returns 0.
uint32_t WorkerThread(void* context);

// The text the worker logs for a library error record:
// "Key: %s\nStatus: %s\nMessage: %s\nInitstate: %s".
std::string DescribeRfcError(const RFC_ERROR_INFO& error);

// The idle pause of the server loop: listen timer + 1 ms (never negative).
uint32_t IdlePauseMs();

// True when the client logs on through a message server: the load-balancing
// setting is exactly "Yes".
bool LogonThroughMessageServer();
