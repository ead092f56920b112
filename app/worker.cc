#include "app/worker.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "access/client_connection.h"
#include "access/dd_info.h"
#include "access/read_table.h"
#include "app/batch_app.h"
#include "app/batch_server_app.h"
#include "app/batch_server_func.h"
#include "app/decimal_text.h"
#include "app/gateway_connection.h"
#include "app/globals.h"
#include "app/log_failure_notice.h"
#include "output/xml_batch_document.h"
#include "platform/clock.h"
#include "platform/path.h"
#include "rfc/binding/rfc_binding.h"

namespace {

// A record filled by a foreign library may lack its terminator; never read
// past the field.
template <std::size_t N>
std::string FieldText(const char (&field)[N]) {
  return std::string(field, std::find(field, field + N, '\0'));
}

// The only place where the worker ends normally.
bool StopRequested(const CWorkerContext& context) {
  return context.running == 0 || CBatchApp::IsRunning(ProcessSettings().GetInstanceName()) == 0;
}

// A fresh header for every cycle, in the day's file when a log
// directory is configured.
void PrepareLog() {
  CLogFile& log = ProcessLog();
  const std::string directory = ProcessSettings().GetLogDirectory();
  if (!directory.empty()) log.SetPath(directory + platform::kPathSeparator + CLogFile::GetDate() + ".log");
  log.SetDescription(ProcessSettings().GetInstanceName());
  log.WriteHeader();
}

// The library is loaded again in every cycle and never unloaded. A
// library that cannot be loaded is the one failure not worth retrying.
bool LoadLibrary(CWorkerStatus* status) {
  const std::string library = ProcessSettings().GetLibrary();
  if (LoadRfcLibrary(library.c_str())) return true;
  const std::string text = "Failed to load dll: '" + library + "'";
  ProcessLog().WriteFormat(LOG_TIME | LOG_NEWLINE1, "Exception: %s", text.c_str());
  if (status != nullptr) status->Ended(text);
  return false;
}

// The cycle's batch functions; the server application lists them but does
// not own them.
using BatchFunctions = std::vector<std::unique_ptr<CBatchServerFunc>>;

// The registration comes before the client logon; a stale registration of
// the same program id is cancelled first.
void RegisterAtGateway(CGatewayConnection& gateway) {
  if (gateway.IsRegistered()) gateway.CancelRegistration();
  gateway.Register();
}

// The client logon: through the message server when load balancing is
// exactly "Yes", else to the one application server.
void LogOn(CClientConnection& client) {
  const CSettings& settings = ProcessSettings();
  const int trace = DecimalTextToInt(settings.GetTrace());
  if (LogonThroughMessageServer()) {
    client.SetLoadBalancingLogon(1, settings.GetMessageServer(), settings.GetSystem(),
                                 settings.GetGroup(), settings.GetClient(), settings.GetUser(),
                                 settings.GetPassword(), settings.GetLanguage(), trace);
    client.OpenLoadBalanced();
  } else {
    client.SetAppServerLogon(settings.GetClientHost(), DecimalTextToInt(settings.GetSystemNumber()),
                             settings.GetClient(), settings.GetUser(), settings.GetPassword(),
                             settings.GetLanguage(), settings.GetGatewayService(), trace);
    client.Open();
  }
}

// One batch function per row whose ACTIVE is exactly "Y" and whose structure
// the dictionary describes; other rows are skipped without a word.
void AddBatchFunctions(CClientConnection& client, CReadTable& batches, CBatchServerApp& app,
                       BatchFunctions& functions) {
  const int rows = static_cast<int>(batches.GetRowCount());
  for (int row = 0; row < rows; ++row) {
    std::string active, program, function_name, structure;
    if (batches.GetCell("ACTIVE", row, active) == 0 || active != "Y") continue;
    // The program id of the row must be there; its value is not used.
    if (batches.GetCell("PROGRAMM", row, program) == 0) continue;
    if (batches.GetCell("FUNCTION", row, function_name) == 0) continue;
    if (batches.GetCell("STRUCTURE", row, structure) == 0) continue;

    CDdInfo info(&client, structure);
    if (info.IsComplete() == 0) continue;
    std::unique_ptr<CBatchServerFunc> function;
    try {
      function = std::make_unique<CBatchServerFunc>(&app, function_name, structure,
                                                     info.GetColumns(), &OnReceiveData);
    } catch (const std::string& reason) {
      // A structure the batch function cannot lay out costs only that
      // function, not the other rows.
      ProcessLog().Write(LOG_TIME | LOG_NEWLINE1,
                         "Skip Server Function: " + function_name + " (" + reason + ")");
      continue;
    }
    app.AddFunction(function.get());
    functions.push_back(std::move(function));
    ProcessLog().Write(LOG_NEWLINE1, "Add Server Function: " + function_name);
  }
}

// The status of the worker that serves `function`, if it keeps one.
CWorkerStatus* StatusOf(const CBatchServerFunc& function) {
  const CBatchServerApp* app = function.GetServerApp();
  CWorkerContext* context = app != nullptr ? app->GetWorkerContext() : nullptr;
  return context != nullptr ? context->status.get() : nullptr;
}

// The lines that say the cycle is ready to serve.
void WriteWaitingLines() {
  CLogFile& log = ProcessLog();
  log.WriteFormat(LOG_NEWLINE1, "%s", "");
  log.WriteFormat(LOG_NEWLINE1, "%s", "");
  log.WriteFormat(LOG_NEWLINE1, "%s", "...WAITING FOR BATCHES...");
  log.WriteFormat(LOG_NEWLINE1, "%s", "");
  log.WriteFormat(LOG_NEWLINE1, "%s", "");
}

void TellStandardError(const std::string& line) {
  if (line.empty()) return;
  std::fputs(line.c_str(), stderr);
  std::fflush(stderr);
}

// One service cycle. Returns false when the worker must end for good. The
// cycle's objects are destroyed on the way out, also by an exception, which
// ends the registration and the logon before the next cycle.
bool RunServiceCycle(CWorkerContext& context, CLogFailureNotice& notice) {
  CWorkerStatus* status = context.status.get();
  if (status != nullptr) status->CycleStarting();
  PrepareLog();
  TellStandardError(notice.Recovered(ProcessSettings().GetInstanceName()));
  if (!LoadLibrary(status)) return false;

  // The batch functions go last, after the gateway connection has closed:
  // the library lets go of a received table only once its connection is gone.
  BatchFunctions functions;
  const CSettings& settings = ProcessSettings();
  CGatewayConnection gateway(settings.GetProgramId(), settings.GetGatewayHost(),
                             settings.GetGatewayService());
  RegisterAtGateway(gateway);

  CClientConnection client;
  LogOn(client);

  CBatchServerApp app(&gateway, &context);
  app.SetListenCallback(&ListenCallback);

  CReadTable batches(&client);
  batches.ReadTable("ZKTZ_BATCHES", " ", " ", "0", "0");
  AddBatchFunctions(client, batches, app, functions);
  WriteWaitingLines();

  app.SetListenCallback(&ListenCallback);
  if (status != nullptr) status->Serving();
  app.Run(0);
  return true;
}

// A report that the log cannot take (its directory is gone, the disk is
// full) goes to standard error instead, held back to a line a minute while
// the failure lasts, and the worker waits one idle pause before the next
// cycle: that cycle would fail on the same log at once, and without the pause
// the retries would become a busy loop.
void ReportFailure(const std::string& entry, CLogFailureNotice& notice) {
  const std::string instance = ProcessSettings().GetInstanceName();
  try {
    ProcessLog().WriteFormat(LOG_TIME | LOG_NEWLINE1, "%s", entry.c_str());
  } catch (const std::string& log_error) {
    TellStandardError(notice.Failed(instance, log_error, entry));
    platform::Sleep(IdlePauseMs());
    return;
  }
  TellStandardError(notice.Recovered(instance));
}

}  // namespace

std::string DescribeRfcError(const RFC_ERROR_INFO& error) {
  return "Key: " + FieldText(error.key) + "\nStatus: " + FieldText(error.status) +
         "\nMessage: " + FieldText(error.message) + "\nInitstate: " + FieldText(error.intstat);
}

uint32_t IdlePauseMs() {
  const int64_t pause = static_cast<int64_t>(DecimalTextToInt(ProcessSettings().GetListenTimer())) + 1;
  // A negative timer would otherwise become a pause of weeks.
  return pause < 0 ? 0 : static_cast<uint32_t>(pause);
}

bool LogonThroughMessageServer() { return ProcessSettings().GetLoadBalancing() == "Yes"; }

int32_t ListenCallback(CRfcConnection* connection, CWorkerContext* context) {
  platform::Sleep(IdlePauseMs());
  if (CBatchApp::IsRunning(ProcessSettings().GetInstanceName()) == 1) return 1;
  // Closing makes the server loop return; the cycle then ends, and the
  // worker with it.
  if (context != nullptr && context->status) context->status->Stopping();
  if (connection != nullptr) connection->Close();
  if (context != nullptr) context->running = 0;
  return 0;
}

int32_t OnReceiveData(CBatchServerFunc* function) {
  CXmlBatchDocument document(*function, 1);
  const CSettings& settings = ProcessSettings();
  // A failed save is not looked at: the batch is still logged and answered.
  document.Save(settings.GetXmlDirectory() + platform::kPathSeparator + function->GetBatchId() + ".xml");

  CLogFile& log = ProcessLog();
  const std::string directory = settings.GetLogDirectory();
  if (!directory.empty()) log.SetPath(directory + platform::kPathSeparator + CLogFile::GetDate() + ".log");
  log.SetDescription(settings.GetInstanceName());
  log.Write(LOG_TIME | LOG_NEWLINE1, "Receive data: " + function->GetBatchId() + ".xml");
  if (CWorkerStatus* status = StatusOf(*function)) status->BatchReceived(function->GetBatchId());
  return 1;
}

uint32_t WorkerThread(void* argument) {
  CWorkerContext& context = *static_cast<CWorkerContext*>(argument);
  CWorkerStatus* status = context.status.get();
  if (status != nullptr) status->Started();
  CLogFailureNotice notice(&platform::ProcessClock);
  for (;;) {
    if (StopRequested(context)) {
      if (status != nullptr) status->Ended("stopped through the stop event");
      context.finished = 1;
      return 0;
    }
    // Every failure ends only this cycle; the next one starts at once.
    try {
      if (!RunServiceCycle(context, notice)) {
        context.finished = 1;
        return 0;
      }
    } catch (RFC_ERROR_INFO error) {
      if (status != nullptr) status->CycleFailed(FieldText(error.key), FieldText(error.message));
      ReportFailure("RFC_ERROR_INFO\n" + DescribeRfcError(error), notice);
    } catch (...) {
      if (status != nullptr) status->CycleFailed("", DescribeCurrentException());
      ReportFailure("UNKNOWN EXEPTION\n", notice);
    }
  }
}
