#include "app/worker.h"

#include <algorithm>

#include "app/batch_app.h"
#include "app/decimal_text.h"
#include "app/globals.h"
#include "platform/clock.h"
#include "rfc/binding/rfc_binding.h"

namespace {

// A record filled by a foreign library may lack its terminator; never read
// past the field.
template <std::size_t N>
std::string FieldText(const char (&field)[N]) {
  return std::string(field, std::find(field, field + N, '\0'));
}

// Step 1: the only place where the worker ends normally.
bool StopRequested(const CWorkerContext& context) {
  return context.running == 0 || CBatchApp::IsRunning(ProcessSettings().GetInstanceName()) == 0;
}

// Step 3: a fresh header for every cycle, in the day's file when a log
// directory is configured.
void PrepareLog() {
  CLogFile& log = ProcessLog();
  const std::string directory = ProcessSettings().GetLogDirectory();
  if (!directory.empty()) log.SetPath(directory + "/" + CLogFile::GetDate() + ".log");
  log.SetDescription(ProcessSettings().GetInstanceName());
  log.WriteHeader();
}

// Stands in for the server loop until the RFC side exists: at every idle
// moment it does what the loop's idle callback will do, pausing and then
// testing the stop event; once stopped, it clears the running flag.
void IdleUntilStopped(CWorkerContext& context) {
  const std::string instance = ProcessSettings().GetInstanceName();
  for (;;) {
    platform::Sleep(IdlePauseMs());
    if (CBatchApp::IsRunning(instance) == 1) continue;
    context.running = 0;
    return;
  }
}

// Step 4: the library is loaded again in every cycle and never unloaded. A
// library that cannot be loaded is the one failure not worth retrying.
bool LoadLibrary() {
  const std::string library = ProcessSettings().GetLibrary();
  if (LoadRfcLibrary(library.c_str())) return true;
  const std::string text = "Failed to load dll: '" + library + "'";
  ProcessLog().WriteFormat(LOG_TIME | LOG_NEWLINE1, "Exception: %s", text.c_str());
  return false;
}

// Steps 3 to 12. Returns false when the worker must end for good.
bool RunServiceCycle(CWorkerContext& context) {
  PrepareLog();
  if (!LoadLibrary()) return false;
  // Steps 5 to 10 (register at the gateway, log on, read ZKTZ_BATCHES, add
  // the batch functions, write the waiting lines) come here; step 11 then
  // replaces the idle wait by the server loop.
  IdleUntilStopped(context);
  return true;
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

uint32_t WorkerThread(void* argument) {
  CWorkerContext& context = *static_cast<CWorkerContext*>(argument);
  for (;;) {
    if (StopRequested(context)) {
      context.finished = 1;
      return 0;
    }
    // Every failure ends only this cycle; the next one starts at once. A
    // failure while reporting one is not caught and ends the process.
    try {
      if (!RunServiceCycle(context)) {
        context.finished = 1;
        return 0;
      }
    } catch (RFC_ERROR_INFO error) {
      ProcessLog().WriteFormat(LOG_TIME | LOG_NEWLINE1, "RFC_ERROR_INFO\n%s",
                               DescribeRfcError(error).c_str());
    } catch (...) {
      ProcessLog().WriteFormat(LOG_TIME | LOG_NEWLINE1, "UNKNOWN EXEPTION\n");
    }
  }
}
