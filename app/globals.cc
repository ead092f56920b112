#include "app/globals.h"

CSettings& ProcessSettings() {
  static CSettings settings;
  return settings;
}

CLogFile& ProcessLog() {
  static CLogFile log;
  return log;
}

WorkerContextList& ProcessWorkerContexts() {
  static WorkerContextList contexts;
  return contexts;
}

namespace {

// Builds the objects during static initialisation, so they exist before main.
[[maybe_unused]] const bool kBuiltBeforeMain = (ProcessSettings(), ProcessLog(), ProcessWorkerContexts(), true);

}  // namespace
