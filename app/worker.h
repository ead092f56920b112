#pragma once
// The worker thread: repeats the service cycle until the instance's stop
// event is set.

#include <cstdint>
#include <string>

#include "rfc/binding/rfc_library_api.h"

class CBatchServerFunc;
class CRfcConnection;
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

// The server loop's idle callback: pauses for the listen timer + 1 ms, then
// returns 1 while the stop event is not set; once it is, closes `connection`
// (which ends the loop), clears the context's running flag and returns 0.
int32_t ListenCallback(CRfcConnection* connection, CWorkerContext* context);

// The receive handler of every batch function: writes the batch as
// <xml.path>/<batch id>.xml and logs "Receive data: <batch id>.xml". File
// errors of the log are thrown (std::string); a failed XML save is not
// looked at. Returns 1.
int32_t OnReceiveData(CBatchServerFunc* function);
