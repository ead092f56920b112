// The server application's thread pool against the stand-in RFC library:
// accepts that fail, the thread limit, a clone per call, functions without
// clone, and the monitor's report. Once Run started a pool the process stays
// in pool mode, so these tests live apart from the single-threaded ones.

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/server/rfc_server_app.h"
#include "tests/e2e/server_test_support.h"
#include "tests/rfc/rfc_test_support.h"
#include "tests/support/log_reading.h"

namespace {

using server_test::CountOf;
using server_test::EchoFunc;

constexpr const char* kThreadsFailed = "In CRfcServerApp::Run,  some threads failed in this RFC server.";

class ServerPoolTest : public ::testing::Test {
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
  static stand_in::State& script() { return rfc_test::Fake(); }

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

TEST_F(ServerPoolTest, ThreadWhoseAcceptFailsEndsWith99AndRunReportsIt) {
  CRfcServerApp app(&connection_);
  script().failing_accepts = {2};
  PoolRun run;
  const rfc_test::TracedRun traced = rfc_test::RunTraced([&] { run = RunPool(app, 3); });
  EXPECT_EQ(run.thrown, kThreadsFailed);
  // The count goes to the trace of the thread that ran the pool.
  EXPECT_TRUE(server_test::Contains(traced.lines,
                                    {"CRfcServerApp::Run(void) called", "   1 threads failed in this server.", ""}))
      << traced.content;
  const std::string& out = run.out;
  EXPECT_EQ(out.rfind("\n Main Thread  StartThreadServer", 0), 0u) << out;
  EXPECT_EQ(CountOf(out, "RfcAccept          handle = "), 3) << out;
  std::smatch failed;
  ASSERT_TRUE(std::regex_search(out, failed, std::regex("\n Thread +([0-9]+):  RfcAccept          handle = 0"))) << out;
  const std::string number = failed[1];
  char prefix[32];
  std::snprintf(prefix, sizeof prefix, "\n Thread %3d:  ", std::stoi(number));
  for (const std::string& part :
       {std::string(prefix) + "\n RfcLastErrorEx\n\n\nRFC call/exception: RfcAccept\nGroup       Error group 101\n"
                              "Key         RFC_ERROR_COMMUNICATION\nMessage     gateway refused\n",
        "\n\n Main Thread:  RFC-ERROR OCCURS  ==>  Thread " + number + " exited\n",
        std::string("\n\n Main Thread:  2 thread(s) successfully terminated.\n"),
        std::string("\n\n Main Thread:  1 thread(s) terminated with an error.\n")}) {
    EXPECT_NE(out.find(part), std::string::npos) << part << "\nin:\n" << out;
  }
  EXPECT_EQ(CountOf(out, "Wait for next RFC call with RfcDispatch.........."), 2) << out;
  // The report closes the null handle, as the library's cleanup.
  const std::vector<stand_in::Record> closed = script().CallsOf("RfcClose");
  ASSERT_EQ(closed.size(), 1u);
  EXPECT_EQ(closed[0].handle, 0u);
  // Every accept used the application connection's vector.
  for (const stand_in::Record& accept : script().CallsOf("RfcAccept")) EXPECT_EQ(accept.text, "-aPOOL");
  EXPECT_TRUE(CRfcServerApp::IsMultiThreaded());
}

// A connection closed without cancellation, or whose dispatch failed, is
// accepted again (here the second accept fails).
TEST_F(ServerPoolTest, ConnectionEndedWithoutCancellationIsAcceptedAgain) {
  for (const auto dispatch : {RFC_CLOSED, RFC_FAILURE}) {
    Arm(10);
    stand_in::State::SetErrorEx(script().last_error_ex, 104, "RFC_ERROR_CLOSED", "partner left");
    script().dispatch_default = dispatch;
    script().failing_accepts = {2};
    CRfcServerApp app(&connection_);
    const PoolRun run = RunPool(app, 1);
    EXPECT_EQ(run.thrown, kThreadsFailed);
    for (const char* part : {"\n Thread   1:  RfcAccept          handle = 10", "\n Thread   1:  RfcAccept          handle = 0",
                             "RFC-ERROR OCCURS  ==>  Thread 1 exited"}) {
      EXPECT_NE(run.out.find(part), std::string::npos) << part << "\nin:\n" << run.out;
    }
  }
}

TEST_F(ServerPoolTest, AtMostOneThousandAndOneThreadsAreStarted) {
  CRfcServerApp app(&connection_);
  script().fail_every_accept = true;
  PoolRun run;
  const rfc_test::TracedRun traced = rfc_test::RunTraced([&] { run = RunPool(app, 2000); });
  EXPECT_EQ(run.thrown, kThreadsFailed);
  EXPECT_TRUE(server_test::Contains(traced.lines, {"2000 threads failed in this server."})) << traced.content;
  EXPECT_EQ(testutil::Join(CountOf(run.out, "RfcAccept          handle = 0"), CountOf(run.out, "RFC-ERROR OCCURS"),
                           script().CallsOf("RfcAccept").size()),
            "1001|1001|1001|");
  EXPECT_NE(run.out.find("\n Thread 1001:  RfcAccept"), std::string::npos);
  EXPECT_EQ(run.out.find("Thread 1002"), std::string::npos);
  EXPECT_NE(run.out.find("\n\n Main Thread:  1001 thread(s) terminated with an error.\n"), std::string::npos);
  EXPECT_EQ(run.out.find("successfully terminated"), std::string::npos);
}

// The calling thread prints the short text, its trace gets the long one;
// handles beyond the thread table report as the main thread.
TEST_F(ServerPoolTest, FunctionWithoutCloneIsRefusedOnEveryCall) {
  const struct {
    ConnectionHandle first_handle;
    const char* accepted;
    const char* prefix;
  } cases[] = {{10, "\n Thread   1:  RfcAccept          handle = 10", "\n Thread   1:  "},
               {CRfcServerApp::kThreadTableSize, "\n Thread   1:  RfcAccept          handle = 2499", "\n Main Thread  "}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.prefix);
    Arm(c.first_handle);
    script().pending_calls = {"Z_ECHO", "Z_ECHO"};
    CRfcServerApp app(&connection_);
    EchoFunc echo("Z_ECHO");
    app.AddFunction(&echo);
    testutil::TempDir traces;
    GetRfcTrace().SetDirectory(traces.path());
    GetRfcTrace().SetTraceOn(1);
    const PoolRun run = RunPool(app, 1);
    GetRfcTrace().SetTraceOn(0);
    EXPECT_EQ(testutil::Join(run.rc, echo.processed), "0|0|");
    EXPECT_NE(run.out.find(c.accepted), std::string::npos) << run.out;
    EXPECT_EQ(CountOf(run.out, std::string(c.prefix) +
                                   "You have to implement the clone function "
                                   "CRfcServerFunc::clone() in the derived class of CRfcServerFunc."),
              2)
        << run.out;
    EXPECT_EQ(CountOf(testutil::FilesText(traces.path()), server_test::CloneExplanationInTrace()), 2);
  }
}

TEST_F(ServerPoolTest, PoolOfNoThreadsOrWithoutConnectionStartsNothing) {
  {
    CRfcServerApp app(&connection_);
    for (int count : {0, -5}) {
      testing::internal::CaptureStdout();
      EXPECT_EQ(app.StartThreadServer(count), 0);
      EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n Main Thread  StartThreadServer");
    }
  }
  CRfcServerApp app(nullptr);
  const char* text = "In CRfcServerApp::StartThreadServer, no RFC connection established yet for the application!";
  const rfc_test::TracedRun run = rfc_test::RunTraced([&] { app.StartThreadServer(2); });
  EXPECT_EQ(run.thrown, text);
  EXPECT_TRUE(server_test::Contains(run.lines, {"CRfcServerApp::StartThreadServer called", text})) << run.content;
  EXPECT_TRUE(script().CallsOf("RfcAccept").empty());
}

}  // namespace
