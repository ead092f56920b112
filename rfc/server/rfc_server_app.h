#pragma once
// CRfcServerApp turns a process into an RFC server. It installs one catch-all
// function, "%%USER_GLOBAL_SERVER", with the RFC library, so that every
// incoming call reaches Dispatch, which finds the called server function in
// the application's list and runs it (Invoke).
//
// Two modes: Run(0) listens on the application's one connection and serves
// every call on the calling thread; Run(n > 0) starts a pool of n threads
// (at most 1,001), each accepting a connection of its own and serving it on
// a fresh clone of the called function.
//
// Only one application may exist at a time in a process. Dispatch and the
// pool report on standard output, which is their only report channel.

#include <cstdint>

#include "rfc/binding/rfc_library_api.h"
#include "rfc/core/rfc_list.h"

class CRfcConnection;
class CRfcServerFunc;

class CRfcServerApp {
 public:
  // Pool threads at most.
  static constexpr int kMaxThreads = 1001;
  // The thread table has room for connection handles 0 .. kThreadTableSize-1.
  static constexpr int kThreadTableSize = 2499;

  // Installs the catch-all. A second live application throws "Only one
  // instance can be created!" (const char*).
  explicit CRfcServerApp(CRfcConnection* connection);
  virtual ~CRfcServerApp();
  CRfcServerApp(const CRfcServerApp&) = delete;
  CRfcServerApp& operator=(const CRfcServerApp&) = delete;

  // Closes the application's connection.
  virtual void CloseConnection();
  // Called whenever the library reports that no call is waiting; the result
  // is not used by Run.
  virtual int OnIdle();

  // Makes the function's name known to the library and lists it; the list
  // does not own it.
  void AddFunction(CRfcServerFunc* function);
  // The first function whose (upper-case) name equals `name` exactly, or
  // null; its 0-based position goes to *index when given.
  CRfcServerFunc* FindFunction(const char* name, int* index = nullptr) const;

  // thread_count <= 0: the single-threaded loop on this thread; returns 1
  // without a connection, 6 once the connection is closed, and throws the
  // library's last error (RFC_ERROR_INFO) on any other failure.
  // thread_count > 0: the pool; returns 0 when every thread ended well and
  // otherwise throws "In CRfcServerApp::Run,  some threads failed in this RFC
  // server."
  int Run(int thread_count);

  // Serves one call of `name` on `handle`.
  void Invoke(ConnectionHandle handle, const char* name);

  // The catch-all the library calls for every incoming call.
  static int Dispatch(ConnectionHandle handle);
  static const char* DispatchDocu();

  // Starts the pool and waits until all its threads ended; returns the
  // number that ended successfully.
  int StartThreadServer(int thread_count);
  // Procedure of pool thread number `thread_number` (passed as the argument).
  static uint32_t ServerThread(void* thread_number);
  // Prints the library's extended last error with the thread's prefix.
  static void PrintLastError(const char* context, int thread_number);

  CRfcConnection* GetConnection() const { return connection_; }
  const RFC_ERROR_INFO& GetLastError() const { return last_error_; }
  int GetFunctionCount() const { return functions_.GetCount(); }

  // Live applications in the process.
  static int InstanceCount();
  // Whether Run was ever called with a positive thread count in this process.
  static bool IsMultiThreaded();

 private:
  CRfcConnection* connection_ = nullptr;
  CRfcList<CRfcServerFunc> functions_;
  RFC_ERROR_INFO last_error_{};
};
