#pragma once
// The process-wide objects. They are built before main runs and on first use,
// whichever comes first, so other translation units' static initialisers may
// use them too.

#include "app/batch_app.h"
#include "app/settings.h"
#include "output/log_file.h"

// Written once at start-up by CBatchApp, read-only afterwards.
CSettings& ProcessSettings();
CLogFile& ProcessLog();
// The started workers' contexts, in start order.
WorkerContextList& ProcessWorkerContexts();
