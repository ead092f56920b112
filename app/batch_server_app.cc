#include "app/batch_server_app.h"

CBatchServerApp::CBatchServerApp(CRfcConnection* connection, CWorkerContext* context)
    : CRfcServerApp(connection), context_(context) {}

CBatchServerApp::~CBatchServerApp() = default;

int CBatchServerApp::OnIdle() {
  // The callback stops the loop by closing the connection; its result is
  // not needed here.
  if (callback_ != nullptr) callback_(GetConnection(), context_);
  const int32_t activity = activity_;
  activity_ = 0;
  return activity;
}
