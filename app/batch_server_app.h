#pragma once
// CBatchServerApp: the worker's RFC server application for one service
// cycle. It carries the cycle's batch functions and gives the server loop a
// way back to the worker while no call waits: its idle hook runs the
// worker's listen callback, which sees the stop event. The batch functions
// mark every received batch as activity.

#include <cstdint>

#include "rfc/server/rfc_server_app.h"

class CRfcConnection;
class CWorkerContext;

class CBatchServerApp : public CRfcServerApp {
 public:
  using ListenCallback = int32_t (*)(CRfcConnection* connection, CWorkerContext* context);

  // Serves on `connection`; activity 1, no callback.
  CBatchServerApp(CRfcConnection* connection, CWorkerContext* context);
  ~CBatchServerApp() override;

  // A later call replaces the callback.
  void SetListenCallback(ListenCallback callback) { callback_ = callback; }
  void MarkActivity() { activity_ = 1; }

  // Runs the callback (if any) with the connection and the worker context,
  // then returns the activity flag as it was and clears it.
  int OnIdle() override;

  CWorkerContext* GetWorkerContext() const { return context_; }

 private:
  int32_t activity_ = 1;
  ListenCallback callback_ = nullptr;
  CWorkerContext* context_;
};
