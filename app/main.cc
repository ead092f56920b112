// The batch server's entry point: read the settings named on the command
// line, start the worker, then sleep until told to terminate.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "app/batch_app.h"
#include "app/globals.h"
#include "app/settings.h"
#include "platform/clock.h"
#include "platform/process.h"

namespace {

// On SIGTERM/SIGINT the worker gets this long to finish the batch in hand.
constexpr uint32_t kTerminationWaitMs = 5000;

// The command line as one text, the way the settings expect it.
std::string JoinArguments(int argc, char** argv) {
  std::string text;
  for (int i = 1; i < argc; ++i) {
    if (i > 1) text += ' ';
    text += argv[i];
  }
  return text;
}

// Stops every worker through its event; true when all of them ended in time.
bool StopWorkers() {
  bool all_ended = true;
  for (const std::unique_ptr<CWorkerContext>& context : ProcessWorkerContexts()) {
    if (!context) continue;
    if (context->event_handle) context->event_handle->Set();
    if (context->thread_handle && !context->thread_handle->Join(kTerminationWaitMs)) {
      all_ended = false;
    }
  }
  return all_ended;
}

}  // namespace

int main(int argc, char** argv) {
  platform::InstallTerminationHandler();

  CSettings settings;
  try {
    settings = CSettings(JoinArguments(argc, argv));
  } catch (const std::string& message) {
    // Nothing is running yet; say why and end.
    std::fprintf(stderr, "%s\n", message.c_str());
    return EXIT_FAILURE;
  }

  CBatchApp app(settings);
  app.Start();

  // The process never ends by itself; the stop event only ends the worker.
  while (!platform::TerminationRequested()) platform::Sleep(50);

  if (!StopWorkers()) {
    // A worker still busy would use the process-wide objects while they are
    // destroyed; leave without running any destructor.
    std::fflush(nullptr);
    std::_Exit(0);
  }
  return 0;
}
