#include "app/batch_app.h"

#include "app/globals.h"
#include "app/worker.h"

CBatchApp::CBatchApp(CSettings settings) {
  CSettings& process = ProcessSettings();
  for (std::size_t field = 0; field < CSettings::kFieldCount; ++field) {
    const auto which = static_cast<CSettings::Field>(field);
    process.Set(which, settings.Get(which));
  }
}

CBatchApp::~CBatchApp() {
  WorkerContextList& contexts = ProcessWorkerContexts();
  for (std::unique_ptr<CWorkerContext>& context : contexts) {
    if (context->event_handle) context->event_handle->Set();
    const bool ended = !context->thread_handle || context->thread_handle->Join(kStopWaitMs);
    // A worker that is still busy keeps using its context, so it must not be
    // freed under it: leave it to the end of the process instead.
    if (!ended) context.release();
  }
  contexts.clear();
}

int CBatchApp::Start() {
  auto context = std::make_unique<CWorkerContext>();
  const CSettings& settings = ProcessSettings();
  // Before the event, so that whoever finds the event finds a status too.
  context->status = std::make_unique<CWorkerStatus>(
      settings.GetInstanceName(), settings.GetProgramId(), settings.GetGatewayHost(),
      settings.GetGatewayService());

  // Open-or-create, then reset: a stop left over from an earlier run of the
  // same instance must not stop this one.
  context->event_handle =
      platform::Event::Create(ProcessSettings().GetInstanceName(), /*initially_set=*/false);
  if (!context->event_handle) return 0;
  context->event_handle->Reset();

  // The flags are set before the thread can look at them.
  context->finished = 0;
  context->running = 1;
  context->thread_handle = platform::Thread::Start(&WorkerThread, context.get());
  if (!context->thread_handle) return 0;

  ProcessWorkerContexts().push_back(std::move(context));
  return 1;
}

int CBatchApp::IsRunning(const std::string& name) {
  std::unique_ptr<platform::Event> event = platform::Event::Open(name);
  if (!event) return 0;
  return event->Wait(1) == platform::WaitResult::kTimeout ? 1 : 0;
}
