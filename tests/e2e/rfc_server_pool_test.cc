// The server application's thread pool against the stand-in RFC library:
// accepts that fail, the thread limit, a clone per call, functions without
// clone, and the monitor's report. Once Run started a pool the process stays
// in pool mode, so these tests live apart from the single-threaded ones.

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "platform/path.h"
#include "platform/thread.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/server/rfc_server_app.h"
#include "tests/e2e/server_test_support.h"
#include "tests/support/log_reading.h"

namespace {

using server_test::EchoFunc;
using testutil::CountOf;
using testutil::Join;

constexpr const char* kThreadsFailed = "In CRfcServerApp::Run,  some threads failed in this RFC server.";

class ServerPoolTest : public server_test::TranscriptTest {
 protected:
  void SetUp() override {
    script().Reset();
    // The pool's threads accept with the vector the application's connection
    // was last given.
    connection_.Accept(argv_);
    ASSERT_EQ(connection_.GetHandle(), 1u);
    Arm(10);
  }
  // A fresh script whose connections get handles from `first_handle` on.
  static void Arm(ConnectionHandle first_handle) {
    script().Reset();
    script().first_handle = first_handle;
    // Threads whose accept failed read this from RfcLastErrorEx.
    stand_in::State::SetErrorEx(script().accept_error_ex, 101, "RFC_ERROR_COMMUNICATION", "gateway refused");
    // Connections the pool was cancelled on end the threads well.
    script().dispatch_default = RFC_CLOSED;
    stand_in::State::SetErrorEx(script().last_error_ex, 109, "RFC_ERROR_CANCELLED", "registration cancelled");
  }
  // Runs the pool; the text it throws (or "") and what it printed.
  struct PoolRun {
    int rc = -1;
    std::string thrown, out;
  };
  PoolRun RunPool(CRfcServerApp& app, int threads) {
    PoolRun run;
    testing::internal::CaptureStdout();
    try {
      run.rc = app.Run(threads);
    } catch (const char* text) {
      run.thrown = text;
    }
    run.out = testing::internal::GetCapturedStdout();
    return run;
  }

  std::vector<char> word_{'-', 'a', 'P', 'O', 'O', 'L', '\0'};
  char* argv_[2] = {word_.data(), nullptr};  // kept by the connection
  CRfcConnection connection_;
};

// Among several threads the one whose accept failed is named; the others end
// well. (The report's texts with one thread are in the transcript below.)
TEST_F(ServerPoolTest, ThreadWhoseAcceptFailsEndsWith99AndRunReportsIt) {
  CRfcServerApp app(&connection_);
  script().failing_accepts = {2};
  const PoolRun run = RunPool(app, 3);
  const std::string& out = run.out;
  std::smatch failed;
  ASSERT_TRUE(std::regex_search(out, failed, std::regex("\n Thread +([0-9]+):  RfcAccept          handle = 0"))) << out;
  EXPECT_EQ(Join(run.thrown, CountOf(out, "RfcAccept          handle = "),
                 CountOf(out, "\n\n Main Thread:  RFC-ERROR OCCURS  ==>  Thread " + failed[1].str() + " exited\n"),
                 CountOf(out, "\n\n Main Thread:  2 thread(s) successfully terminated.\n"),
                 CountOf(out, "\n\n Main Thread:  1 thread(s) terminated with an error.\n"),
                 CountOf(out, "Wait for next RFC call with RfcDispatch..........")),
            Join(kThreadsFailed, 3, 1, 1, 1, 2))
      << out;
  // Every accept used the application connection's vector.
  for (const stand_in::Record& accept : script().CallsOf("RfcAccept")) EXPECT_EQ(accept.text, "-aPOOL");
  EXPECT_TRUE(CRfcServerApp::IsMultiThreaded());
}

TEST_F(ServerPoolTest, AtMostOneThousandAndOneThreadsAreStarted) {
  CRfcServerApp app(&connection_);
  script().fail_every_accept = true;
  PoolRun run;
  const rfc_test::TracedRun traced = rfc_test::RunTraced([&] { run = RunPool(app, 2000); });
  EXPECT_EQ(Join(run.thrown, CountOf(traced.content, "\r\n2000 threads failed in this server.\r\n"),
                 CountOf(run.out, "RfcAccept          handle = 0"), CountOf(run.out, "RFC-ERROR OCCURS"),
                 script().CallsOf("RfcAccept").size(), CountOf(run.out, "\n Thread 1001:  RfcAccept"),
                 CountOf(run.out, "Thread 1002"), CountOf(run.out, "successfully terminated"),
                 CountOf(run.out, "\n\n Main Thread:  1001 thread(s) terminated with an error.\n")),
            Join(kThreadsFailed, 1, 1001, 1001, 1001, 1, 0, 0, 1));
}

// One thread: a connection closed without cancellation, or whose dispatch
// failed, is accepted again (here the second accept fails). A function without
// clone is refused on every call: the calling thread prints the short text,
// its trace gets the long one; handles beyond the thread table report as the
// main thread. A pool of no threads, or without connection, starts nothing.
TEST_F(ServerPoolTest, OneThreadPoolsAndPoolsThatStartNothing) {
  for (const auto dispatch : {RFC_CLOSED, RFC_FAILURE}) {
    Arm(10);
    stand_in::State::SetErrorEx(script().last_error_ex, 104, "RFC_ERROR_CLOSED", "partner left");
    script().dispatch_default = dispatch;
    script().failing_accepts = {2};
    CRfcServerApp app(&connection_);
    Step(dispatch == RFC_CLOSED ? "connection closed" : "dispatch failing", [&] { return Join(app.Run(1)); });
  }
  for (const int first_handle : {10, CRfcServerApp::kThreadTableSize}) {
    Arm(first_handle);
    script().pending_calls = {"Z_ECHO", "Z_ECHO"};
    CRfcServerApp app(&connection_);
    EchoFunc echo("Z_ECHO");
    app.AddFunction(&echo);
    Step("no clone, handles from " + std::to_string(first_handle), [&] {
      const int rc = app.Run(1);
      // The pool thread's trace: the files beside the calling thread's own.
      const std::string dir = GetRfcTrace().GetDirectory();
      std::string traces;
      for (const std::string& name : testutil::FileNames(dir)) {
        const std::string path = dir + platform::kPathSeparator + name;
        if (path != rfc_test::TraceFileOf(dir, platform::CurrentThreadId())) traces += testutil::ReadBytes(path);
      }
      return Join(rc, echo.processed) + "\npool trace:\n" + traces;
    });
  }
  {
    CRfcServerApp app(&connection_);
    Step("no threads", [&] { return Join(app.StartThreadServer(0), app.StartThreadServer(-5)); });
  }
  CRfcServerApp app(nullptr);
  Step("no connection", [&] { return Join(app.StartThreadServer(2)); });
  EXPECT_TRUE(TranscriptMatches("tests/e2e/expected/server_pool.txt"));
}

}  // namespace
