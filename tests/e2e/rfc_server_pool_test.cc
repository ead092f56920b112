// The server application's thread pool against the stand-in RFC library:
// accepts that fail, the thread limit, a clone per call, functions without
// clone, and the monitor's report. Once Run started a pool the process stays
// in pool mode, so these tests live apart from the single-threaded ones.

#include <gtest/gtest.h>

#include <regex>
#include <tuple>
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

  std::vector<char> word_{'-', 'a', 'P', 'O', 'O', 'L', '\0'};
  char* argv_[2] = {word_.data(), nullptr};  // kept by the connection
  CRfcConnection connection_;
};

// Among several threads the one whose accept failed is named and the others
// end well; of any number asked for, at most 1001 threads are started. (The
// report's texts with one thread are in the transcript below.)
TEST_F(ServerPoolTest, FailedAcceptsAreNamedAndAtMostOneThousandAndOneThreadsStart) {
  // Threads asked for, whether every accept fails, texts printed or traced: how often.
  const std::tuple<int, bool, std::vector<std::pair<std::string, int>>> cases[] = {
      {3, false,
       {{"RfcAccept          handle = ", 3}, {"RFC-ERROR OCCURS", 1},
        {"\n\n Main Thread:  2 thread(s) successfully terminated.\n", 1},
        {"\n\n Main Thread:  1 thread(s) terminated with an error.\n", 1},
        {"Wait for next RFC call with RfcDispatch..........", 2}}},
      {2000, true,
       {{"RfcAccept          handle = 0", 1001}, {"RFC-ERROR OCCURS", 1001}, {"\n Thread 1001:  RfcAccept", 1},
        {"Thread 1002", 0}, {"\r\n2000 threads failed in this server.\r\n", 1}, {"successfully terminated", 0},
        {"\n\n Main Thread:  1001 thread(s) terminated with an error.\n", 1}}},
  };
  for (const auto& [threads, every_accept_fails, counts] : cases) {
    SCOPED_TRACE(threads);
    Arm(10);
    script().failing_accepts = {2};
    script().fail_every_accept = every_accept_fails;
    CRfcServerApp app(&connection_);
    testing::internal::CaptureStdout();
    const rfc_test::TracedRun run = rfc_test::RunTraced([&, threads = threads] { app.Run(threads); });
    const std::string out = testing::internal::GetCapturedStdout() + run.content;
    EXPECT_EQ(run.thrown, kThreadsFailed);
    for (const auto& [text, times] : counts) EXPECT_EQ(CountOf(out, text), times) << text << "\n" << out;
    std::smatch failed;
    ASSERT_TRUE(std::regex_search(out, failed, std::regex("\n Thread +([0-9]+):  RfcAccept          handle = 0"))) << out;
    EXPECT_EQ(CountOf(out, "\n\n Main Thread:  RFC-ERROR OCCURS  ==>  Thread " + failed[1].str() + " exited\n"), 1);
  }
  EXPECT_TRUE(CRfcServerApp::IsMultiThreaded());
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
