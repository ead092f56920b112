#pragma once
// CBatchApp starts the one worker thread and owns the named stop event that
// ends it; CWorkerContext is what the worker is handed.

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "app/worker_status.h"
#include "platform/event.h"
#include "platform/thread.h"

class CSettings;

class CWorkerContext {
 public:
  CWorkerContext() = default;
  // The event goes before the status: whoever finds the event finds a status.
  ~CWorkerContext() { event_handle.reset(); }
  CWorkerContext(const CWorkerContext&) = delete;
  CWorkerContext& operator=(const CWorkerContext&) = delete;

  // Reserved for per-worker properties; nothing fills or reads it yet.
  std::map<std::string, std::string> properties;
  std::unique_ptr<platform::Thread> thread_handle;
  std::unique_ptr<platform::Event> event_handle;
  // Written by the worker only; read by whoever waits for it to end.
  std::atomic<int32_t> finished{0};
  std::atomic<int32_t> running{1};
  // What the worker publishes about itself; written by the worker only. May
  // be null (nothing is published then).
  std::unique_ptr<CWorkerStatus> status;
};

using WorkerContextList = std::vector<std::unique_ptr<CWorkerContext>>;

class CBatchApp {
 public:
  // Copies every field into the process-wide settings, in field order.
  explicit CBatchApp(CSettings settings);
  // Signals every worker's stop event, waits up to 1,000 ms for each worker
  // and deletes its context.
  virtual ~CBatchApp();
  CBatchApp(const CBatchApp&) = delete;
  CBatchApp& operator=(const CBatchApp&) = delete;

  // Creates (or opens) and resets the stop event named after the instance and
  // starts the worker. 1 on success, 0 when the event or the thread cannot be
  // made.
  int Start();

  // 1 while the named event exists and is not set; 0 otherwise.
  static int IsRunning(const std::string& name);

  // How long the destructor waits for each worker.
  static constexpr uint32_t kStopWaitMs = 1000;
};
