// The server application: catch-all dispatcher, single-threaded loop and
// thread pool.

#include "rfc/server/rfc_server_app.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/critical_section.h"
#include "platform/thread.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/core/rfc_error.h"
#include "rfc/core/rfc_trace.h"
#include "rfc/server/rfc_server_func.h"

namespace {

constexpr const char* kOnlyOneInstance = "Only one instance can be created!";
constexpr const char* kThreadsFailed =
    "In CRfcServerApp::Run,  some threads failed in this RFC server.";
constexpr const char* kCloneMissing =
    "In CRfcServerApp::Invoke, the clone function CRfcServerApp::clone() has not been "
    "implemented in the derived class of CRfcServerFunc.";
constexpr const char* kFunctionMissing = "RFC function does not exist!";
constexpr const char* kNoConnection =
    "In CRfcServerApp::StartThreadServer, no RFC connection established yet for the "
    "application!";
constexpr const char* kDispatchDocu =
    "The RFC library will call this function if any unknown\n"
    "RFC function should be executed in this RFC server program.\n";

// The reports of Dispatch and PrintLastError are composed in texts of this
// size; a longer report is cut, never overrun.
constexpr size_t kReportSize = 1024;

// Guards the instance counter, the function lists, the installation of the
// catch-all and every accept of the pool. Re-entrant: the constructor holds it
// while DispatchDocu takes it again.
platform::CriticalSection& ServerLock() {
  static platform::CriticalSection lock;
  return lock;
}
// Built before main like the other process-wide objects of the library.
platform::CriticalSection& g_server_lock_at_start = ServerLock();

int g_instances = 0;  // under the server lock
std::atomic<CRfcServerApp*> g_current_app{nullptr};
std::atomic<bool> g_multi_threaded{false};
std::atomic<char**> g_accept_arguments{nullptr};
// Pool thread numbers by connection handle; 0 is the main thread. Each pool
// thread writes only the entries of the handles it accepted.
std::array<std::atomic<int>, CRfcServerApp::kThreadTableSize> g_thread_table{};
// The pool's start-up message.
std::string g_message;

// A field filled by the library may lack its terminator.
template <size_t N>
std::string FieldText(const char (&field)[N]) {
  return std::string(field, std::find(field, field + N, '\0'));
}

// Pool thread number of a handle; handles beyond the table count as the
// main thread's.
int ThreadNumberOf(ConnectionHandle handle) {
  return handle < g_thread_table.size() ? g_thread_table[handle].load() : 0;
}

void PrintWithPrefix(int thread_number, const char* text) {
  if (thread_number == 0) {
    std::printf("\n Main Thread  %s", text);
  } else {
    std::printf("\n Thread %3d:  %s", thread_number, text);
  }
  std::fflush(stdout);
}

void ReportLibraryError(int thread_number, const RFC_ERROR_INFO& error) {
  char report[kReportSize];
  std::snprintf(report, sizeof report,
                "\nRFC call/exception during Invoke of CRfcServerApp\n"
                "Key         %s\n"
                "Message     %s\n",
                FieldText(error.key).c_str(), FieldText(error.message).c_str());
  PrintWithPrefix(thread_number, report);
}

// Answers a call that no function of the application serves.
[[noreturn]] void RaiseUnknownFunction(ConnectionHandle handle) {
  RfcRaise(handle, kFunctionMissing);
  ThrowRfcFailure("CRfcServerApp::Invoke called", {kFunctionMissing}, kFunctionMissing);
}

}  // namespace

CRfcServerApp::CRfcServerApp(CRfcConnection* connection) {
  platform::CriticalSectionLock hold(ServerLock());
  if (++g_instances != 1) {
    // The failed object is never destroyed, so it gives its count back here;
    // otherwise no application could ever be built again.
    --g_instances;
    ThrowRfcFailure("CRfcServerApp::CRfcServerApp (CRfcConnection*) called", {kOnlyOneInstance},
                    kOnlyOneInstance);
  }
  try {
    connection_ = connection;
    RfcInstallFunction(RFC_GLOBAL_SERVER_NAME, &CRfcServerApp::Dispatch, DispatchDocu());
  } catch (...) {
    --g_instances;
    throw;
  }
  g_current_app = this;
}

CRfcServerApp::~CRfcServerApp() {
  platform::CriticalSectionLock hold(ServerLock());
  --g_instances;
  // A call that arrives after this must not reach a destroyed application.
  CRfcServerApp* self = this;
  g_current_app.compare_exchange_strong(self, nullptr);
}

void CRfcServerApp::CloseConnection() {
  if (connection_ != nullptr) connection_->Close();
}

int CRfcServerApp::OnIdle() { return 0; }

void CRfcServerApp::AddFunction(CRfcServerFunc* function) {
  if (function == nullptr) return;
  RfcInstallFunction(function->GetName(), nullptr, function->GetDocu());
  platform::CriticalSectionLock hold(ServerLock());
  functions_.Add(function);
  function->SetServerApp(this);
}

CRfcServerFunc* CRfcServerApp::FindFunction(const char* name, int* index) const {
  if (name == nullptr) return nullptr;
  for (int i = 0; i < functions_.GetCount(); ++i) {
    CRfcServerFunc* function = functions_.GetAt(i);
    if (function == nullptr) continue;
    const char* function_name = function->GetName();
    if (function_name != nullptr && std::strcmp(function_name, name) == 0) {
      if (index != nullptr) *index = i;
      return function;
    }
  }
  return nullptr;
}

int CRfcServerApp::Run(int thread_count) {
  if (thread_count > 0) {
    g_multi_threaded = true;
    const int succeeded = StartThreadServer(thread_count);
    if (succeeded != thread_count) {
      char text[64];
      std::snprintf(text, sizeof text, "%4d threads failed in this server.\n",
                    thread_count - succeeded);
      ThrowRfcFailure("CRfcServerApp::Run(void) called", {text}, kThreadsFailed);
    }
    return 0;
  }

  if (connection_ == nullptr) return 1;
  const ConnectionHandle handle = connection_->GetHandle();
  for (;;) {
    int rc = RfcListen(handle);
    if (rc == RFC_NOTHING_WAITING) {
      OnIdle();
      if (connection_->GetHandle() == 0) return RFC_CLOSED;
      continue;
    }
    if (rc == RFC_CLOSED) return RFC_CLOSED;
    if (rc == RFC_OK) {
      rc = RfcDispatch(handle);
      if (rc == RFC_OK) continue;
      if (rc == RFC_CLOSED) return RFC_CLOSED;
    }
    CRfcTrace& trace = GetRfcTrace();
    trace.WriteHeader();
    trace.WriteLine("CRfcServerApp::Run(void) called");
    last_error_ = GetRfcLastError();
    trace.WriteError(last_error_);
    throw last_error_;
  }
}

void CRfcServerApp::Invoke(ConnectionHandle handle, const char* name) {
  CRfcServerFunc* registered = FindFunction(name);
  if (registered == nullptr) RaiseUnknownFunction(handle);

  // In the pool every call works on a copy of its own.
  const bool multi_threaded = g_multi_threaded;
  std::unique_ptr<CRfcServerFunc> clone;
  CRfcServerFunc* function = registered;
  if (multi_threaded) {
    clone.reset(registered->clone());
    if (!clone) ThrowRfcFailure("CRfcServerApp::Invoke called", {kCloneMissing}, kCloneMissing);
    function = clone.get();
  }

  // A connection object that only borrows the call's handle: closing or
  // destroying it leaves the handle open.
  CRfcConnection call_connection;
  call_connection.Close();
  call_connection.AttachHandle(handle);
  function->SetConnection(&call_connection);
  // The function must not keep pointing at the borrowed connection.
  struct Detach {
    CRfcServerFunc* function;
    ~Detach() { function->SetConnection(nullptr); }
  } detach{function};

  function->ReceiveData();

  // The partner's release is learnt at the first call on a connection.
  CRfcConnection* checked = multi_threaded ? &call_connection : connection_;
  if (checked != nullptr && checked->GetHandle() != 0 &&
      checked->GetRelease() == "RELEASEUNKNOWN") {
    checked->GetR3Release();
  }

  function->Process();
  function->ReturnCall();
}

int CRfcServerApp::Dispatch(ConnectionHandle handle) {
  GetRfcTrace().WriteLine("CRfcServerApp::Dispatch called");
  // One byte more than the library writes, so the name always ends.
  char name[RFC_FUNCTION_NAME_SIZE + 1] = {};
  const int rc = RfcGetName(handle, name);
  if (rc != RFC_OK) return rc;
  try {
    CRfcServerApp* app = g_current_app;
    if (app == nullptr) RaiseUnknownFunction(handle);
    app->Invoke(handle, name);
  } catch (const char* text) {
    PrintWithPrefix(ThreadNumberOf(handle), text != nullptr ? text : "");
  } catch (const RFC_ERROR_INFO& error) {
    ReportLibraryError(ThreadNumberOf(handle), error);
  }
  return RFC_OK;
}

const char* CRfcServerApp::DispatchDocu() {
  GetRfcTrace().WriteLine("CRfcServerApp::DispatchDocu called");
  platform::CriticalSectionLock hold(ServerLock());
  return kDispatchDocu;
}

int CRfcServerApp::StartThreadServer(int thread_count) {
  if (connection_ == nullptr) {
    ThrowRfcFailure("CRfcServerApp::StartThreadServer called", {kNoConnection}, kNoConnection);
  }
  g_accept_arguments = connection_->GetArgv();
  for (std::atomic<int>& entry : g_thread_table) entry = 0;
  // A count below 1 starts nothing (and reports nothing).
  const int count = std::clamp(thread_count, 0, kMaxThreads);

  g_message = "StartThreadServer";
  PrintWithPrefix(0, g_message.c_str());

  // Slot 0 stands for the main thread and stays empty.
  std::vector<std::unique_ptr<platform::Thread>> threads(static_cast<size_t>(count) + 1);
  std::vector<bool> finished(threads.size(), false);
  for (int i = 1; i <= count; ++i) {
    threads[static_cast<size_t>(i)] =
        platform::Thread::Start(&CRfcServerApp::ServerThread,
                                reinterpret_cast<void*>(static_cast<intptr_t>(i)));
  }

  int successes = 0;
  int errors = 0;
  for (;;) {
    bool running = false;
    for (int i = 1; i <= count; ++i) {
      const size_t slot = static_cast<size_t>(i);
      if (finished[slot]) continue;
      std::unique_ptr<platform::Thread>& thread = threads[slot];
      uint32_t code = 0;
      if (!thread || !thread->GetExitCode(&code)) {
        std::printf("\n\n Main Thread:  Thread %d returned %d\n", i, 3);
        ++errors;
      } else if (code == platform::kStillActive) {
        running = true;
        continue;
      } else if (code == 0) {
        ++successes;
      } else if (code == 99) {
        std::printf("\n\n Main Thread:  RFC-ERROR OCCURS  ==>  Thread %d exited\n", i);
        ++errors;
      } else {
        std::printf("\n\n Main Thread:  Thread %d exited with rc=%d\n", i, static_cast<int>(code));
        ++errors;
      }
      std::fflush(stdout);
      // The procedure has returned; reap the thread before its handle goes.
      if (thread) thread->Join(1000);
      thread.reset();
      finished[slot] = true;
    }
    if (!running) break;
    platform::Sleep(1000);
  }

  if (successes > 0) {
    std::printf("\n\n Main Thread:  %d thread(s) successfully terminated.\n", successes);
  }
  if (errors > 0) {
    std::printf("\n\n Main Thread:  %d thread(s) terminated with an error.\n", errors);
  }
  std::fflush(stdout);
  return successes;
}

uint32_t CRfcServerApp::ServerThread(void* argument) {
  const int number = static_cast<int>(reinterpret_cast<intptr_t>(argument));
  // No handler of its own: Dispatch answers every text and library error of
  // a call, and anything else that comes this far ends the process, as an
  // exception unhandled in any thread does.
  for (;;) {
    ConnectionHandle handle;
    {
      platform::CriticalSectionLock hold(ServerLock());
      handle = RfcAccept(g_accept_arguments.load());
    }
    char text[64];
    std::snprintf(text, sizeof text, "RfcAccept          handle = %d", static_cast<int>(handle));
    PrintWithPrefix(number, text);
    if (handle == 0) {
      PrintLastError("RfcAccept", number);
      return 99;
    }
    if (handle < g_thread_table.size()) g_thread_table[handle] = number;

    for (;;) {
      PrintWithPrefix(number, "Wait for next RFC call with RfcDispatch..........");
      const int rc = RfcDispatch(handle);
      if (rc == RFC_OK) continue;
      if (rc != RFC_CLOSED) break;
      ErrorInfoEx error{};
      RfcLastErrorEx(&error);
      // Group 109: the gateway cancelled the registration; stop for good.
      if (error.group == RFC_ERROR_GROUP_CANCELLED) return 0;
      break;
    }
  }
}

void CRfcServerApp::PrintLastError(const char* context, int thread_number) {
  ErrorInfoEx error{};
  RfcLastErrorEx(&error);
  char report[kReportSize];
  std::snprintf(report, sizeof report,
                "\n RfcLastErrorEx\n\n"
                "\nRFC call/exception: %s\n"
                "Group       Error group %d\n"
                "Key         %s\n"
                "Message     %s\n",
                context != nullptr ? context : "", static_cast<int>(error.group),
                FieldText(error.key).c_str(), FieldText(error.message).c_str());
  PrintWithPrefix(thread_number, report);
  RfcClose(0);
}

int CRfcServerApp::InstanceCount() {
  platform::CriticalSectionLock hold(ServerLock());
  return g_instances;
}

bool CRfcServerApp::IsMultiThreaded() { return g_multi_threaded; }
