// The server application in its single-threaded mode, against the stand-in
// RFC library: the catch-all, the function list, the listen loop and its
// endings, and what Dispatch reports for failing calls.

#include "rfc/server/rfc_server_app.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_table_param.h"
#include "rfc/server/rfc_server_func.h"
#include "tests/e2e/server_test_support.h"
#include "tests/rfc/rfc_test_support.h"

namespace {

using server_test::Contains;
using server_test::CountOf;
using server_test::EchoFunc;

constexpr const char* kMissing = "RFC function does not exist!";

class ServerAppTest : public ::testing::Test {
 protected:
  void SetUp() override {
    script().Reset();
    stand_in::State::Fill(script().attributes.partner_release, 5, "46C");
  }

  static stand_in::State& script() { return rfc_test::Fake(); }

  // A connection that owns handle 1, as an accepted registration does.
  static void Accept(CRfcConnection& connection) {
    std::vector<char> word{'-', 'a', 'P', 'R', 'O', 'G', '\0'};
    char* argv[] = {word.data(), nullptr};
    connection.Accept(argv);
    ASSERT_EQ(connection.GetHandle(), 1u);
    script().log.clear();
  }

  static std::vector<std::string> Entries() { return script().Entries(); }
};

TEST_F(ServerAppTest, SecondApplicationIsRefusedUntilTheFirstIsGone) {
  CRfcConnection connection;
  auto first = std::make_unique<CRfcServerApp>(&connection);
  EXPECT_EQ(CRfcServerApp::InstanceCount(), 1);

  const rfc_test::TracedRun run = rfc_test::RunTraced([&] { CRfcServerApp second(&connection); });
  EXPECT_TRUE(run.threw_text);
  EXPECT_EQ(run.thrown, "Only one instance can be created!");
  ASSERT_EQ(run.lines.size(), 6u) << run.content;
  EXPECT_EQ(run.lines[3].rfind("Rfc Class Library Trace at   ", 0), 0u) << run.lines[3];
  EXPECT_EQ(run.lines[4], "CRfcServerApp::CRfcServerApp (CRfcConnection*) called");
  EXPECT_EQ(run.lines[5], "Only one instance can be created!");
  EXPECT_EQ(CRfcServerApp::InstanceCount(), 1);

  first.reset();
  EXPECT_EQ(CRfcServerApp::InstanceCount(), 0);
  CRfcServerApp third(&connection);
  EXPECT_EQ(CRfcServerApp::InstanceCount(), 1);
}

TEST_F(ServerAppTest, CatchAllIsInstalledWithItsDocumentation) {
  CRfcConnection connection;
  std::unique_ptr<CRfcServerApp> app;
  const rfc_test::TracedRun run =
      rfc_test::RunTraced([&] { app = std::make_unique<CRfcServerApp>(&connection); });
  ASSERT_EQ(script().installed.size(), 1u);
  EXPECT_EQ(script().installed[0].first, "%%USER_GLOBAL_SERVER");
  EXPECT_EQ(script().installed[0].second,
            "The RFC library will call this function if any unknown\n"
            "RFC function should be executed in this RFC server program.\n");
  EXPECT_NE(script().catch_all, nullptr);
  // A note without header.
  EXPECT_EQ(run.lines, std::vector<std::string>{"CRfcServerApp::DispatchDocu called"});
  EXPECT_STREQ(CRfcServerApp::DispatchDocu(), script().installed[0].second.c_str());
}

TEST_F(ServerAppTest, FunctionsAreInstalledByNameAndFoundExactly) {
  CRfcConnection connection;
  CRfcServerApp app(&connection);
  EchoFunc first("z_first", "the first one");
  EchoFunc second("Z_SECOND");
  EchoFunc same_name("Z_FIRST");
  app.AddFunction(&first);
  app.AddFunction(&second);
  app.AddFunction(&same_name);
  EXPECT_EQ(app.GetFunctionCount(), 3);
  // Only names and documentation: every call still comes through the catch-all.
  ASSERT_EQ(script().installed.size(), 4u);
  EXPECT_EQ(script().installed[1], (std::pair<std::string, std::string>("Z_FIRST", "the first one")));
  EXPECT_EQ(script().installed[2], (std::pair<std::string, std::string>("Z_SECOND", "(null)")));

  int index = -1;
  EXPECT_EQ(app.FindFunction("Z_FIRST", &index), &first);
  EXPECT_EQ(index, 0);
  EXPECT_EQ(app.FindFunction("Z_SECOND", &index), &second);
  EXPECT_EQ(index, 1);
  index = -1;
  EXPECT_EQ(app.FindFunction("z_first", &index), nullptr);
  EXPECT_EQ(app.FindFunction("Z_FIRST ", &index), nullptr);
  EXPECT_EQ(app.FindFunction("", &index), nullptr);
  EXPECT_EQ(app.FindFunction(nullptr, &index), nullptr);
  EXPECT_EQ(index, -1);
  EXPECT_EQ(app.FindFunction("Z_SECOND"), &second);
  EXPECT_EQ(first.GetServerApp(), &app);
}

TEST_F(ServerAppTest, CallRunsReceiveProcessAndReturnOnTheCallsHandle) {
  CRfcConnection connection;
  Accept(connection);
  CRfcServerApp app(&connection);
  EchoFunc echo("Z_ECHO");
  EchoFunc tables_only("Z_TABLES", nullptr, /*with_scalars=*/false);
  app.AddFunction(&echo);
  app.AddFunction(&tables_only);
  script().log.clear();
  script().listen_results = {RFC_OK, RFC_OK, RFC_OK, RFC_CLOSED};
  script().pending_calls = {"Z_ECHO", "Z_ECHO", "Z_TABLES"};

  testing::internal::CaptureStdout();
  EXPECT_EQ(app.Run(0), RFC_CLOSED);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");

  EXPECT_EQ(echo.processed, 2);
  // During the call the function used a connection of its own on the call's
  // handle; afterwards it points nowhere.
  EXPECT_EQ(echo.handle_seen, 1u);
  EXPECT_NE(echo.connection_seen, &connection);
  EXPECT_EQ(echo.GetConnection(), nullptr);
  // The borrowed handle was never closed.
  EXPECT_EQ(CountOf(Entries(), "RfcClose"), 0);
  EXPECT_EQ(connection.GetHandle(), 1u);

  const std::vector<std::string> expected{
      "RfcListen",  "RfcDispatch", "RfcGetName", "RfcGetData", "RfcGetAttributes",
      "RfcSendData", "RfcListen",  "RfcDispatch", "RfcGetName", "RfcGetData",
      "RfcSendData", "RfcListen",  "RfcDispatch", "RfcGetName", "RfcGetData",
      "RfcSendData", "RfcListen"};
  EXPECT_EQ(Entries(), expected);
  // The release is learnt once, at the first call.
  EXPECT_STREQ(connection.GetRelease(), "46C");

  const std::vector<stand_in::Record> received = script().CallsOf("RfcGetData");
  ASSERT_EQ(received.size(), 3u);
  EXPECT_EQ(received[0].handle, 1u);
  EXPECT_EQ(received[0].names, (std::vector<std::string>{"IN_VALUE", "|", "LINES"}));
  // A function without imports still receives its tables.
  EXPECT_EQ(tables_only.processed, 1);
  EXPECT_EQ(received[2].names, (std::vector<std::string>{"|", "LINES"}));
  const std::vector<stand_in::Record> sent = script().CallsOf("RfcSendData");
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0].names, (std::vector<std::string>{"OUT_VALUE", "|", "LINES"}));
}

TEST_F(ServerAppTest, UnknownFunctionIsRaisedToTheCallerAndTheLoopGoesOn) {
  CRfcConnection connection;
  Accept(connection);
  CRfcServerApp app(&connection);
  EchoFunc echo("Z_ECHO");
  app.AddFunction(&echo);
  script().listen_results = {RFC_OK, RFC_OK, RFC_CLOSED};
  script().pending_calls = {"Z_NOWHERE", "Z_ECHO"};

  int rc = -1;
  testing::internal::CaptureStdout();
  const rfc_test::TracedRun run = rfc_test::RunTraced([&] { rc = app.Run(0); });
  EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string("\n Main Thread  ") + kMissing);
  EXPECT_EQ(rc, RFC_CLOSED);
  EXPECT_EQ(echo.processed, 1);

  const std::vector<stand_in::Record> raised = script().CallsOf("RfcRaise");
  ASSERT_EQ(raised.size(), 1u);
  EXPECT_EQ(raised[0].handle, 1u);
  EXPECT_EQ(raised[0].text, kMissing);
  EXPECT_TRUE(Contains(run.lines, {"CRfcServerApp::Dispatch called", "", "", ""}));
  EXPECT_TRUE(Contains(run.lines, {"CRfcServerApp::Invoke called", kMissing})) << run.content;
}

TEST_F(ServerAppTest, DispatchRefusesWithoutApplicationAndHandsBackAFailedNameLookup) {
  script().current_names.emplace_back(5, "Z_ECHO");
  testing::internal::CaptureStdout();
  EXPECT_EQ(CRfcServerApp::Dispatch(5), RFC_OK);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string("\n Main Thread  ") + kMissing);
  ASSERT_EQ(script().CallsOf("RfcRaise").size(), 1u);
  EXPECT_EQ(script().CallsOf("RfcRaise")[0].handle, 5u);

  CRfcConnection connection;
  CRfcServerApp app(&connection);
  EchoFunc echo("Z_ECHO");
  app.AddFunction(&echo);
  script().current_names.emplace_back(3, "Z_ECHO");
  script().get_name_result = RFC_FAILURE;
  EXPECT_EQ(CRfcServerApp::Dispatch(3), RFC_FAILURE);
  EXPECT_EQ(echo.processed, 0);
  EXPECT_TRUE(script().CallsOf("RfcGetData").empty());
}

TEST_F(ServerAppTest, IdleHookThatClosesTheConnectionEndsTheLoopWithSix) {
  struct ClosingApp : CRfcServerApp {
    using CRfcServerApp::CRfcServerApp;
    int OnIdle() override {
      if (++idles == 3) CloseConnection();
      return 0;
    }
    int idles = 0;
  };
  CRfcConnection connection;
  Accept(connection);
  ClosingApp app(&connection);
  EXPECT_EQ(app.Run(0), RFC_CLOSED);
  EXPECT_EQ(app.idles, 3);
  EXPECT_EQ(connection.GetHandle(), 0u);
  const std::vector<stand_in::Record> closed = script().CallsOf("RfcClose");
  ASSERT_EQ(closed.size(), 1u);
  EXPECT_EQ(closed[0].handle, 1u);
  EXPECT_EQ(CountOf(Entries(), "RfcListen"), 3);
  EXPECT_EQ(CountOf(Entries(), "RfcDispatch"), 0);
}

TEST_F(ServerAppTest, LoopFailuresAreThrownAsTheLibrarysError) {
  CRfcConnection connection;
  Accept(connection);
  CRfcServerApp app(&connection);
  script().SetLastError("RFC_ERROR_COMMUNICATION", "CONNECT failed", "partner gone");

  // A failing listen, then a failing dispatch.
  for (int step = 0; step < 2; ++step) {
    if (step == 0) {
      script().listen_results = {RFC_FAILURE};
    } else {
      script().listen_results = {RFC_OK};
      script().dispatch_default = RFC_SYS_EXCEPTION;
    }
    std::string key;
    const rfc_test::TracedRun run = rfc_test::RunTraced([&] {
      try {
        app.Run(0);
      } catch (const RFC_ERROR_INFO& error) {
        key = error.key;
      }
    });
    EXPECT_EQ(key, "RFC_ERROR_COMMUNICATION") << step;
    EXPECT_STREQ(app.GetLastError().message, "partner gone");
    ASSERT_EQ(run.lines.size(), 8u) << run.content;
    EXPECT_EQ(run.lines[4], "CRfcServerApp::Run(void) called");
    EXPECT_EQ(run.lines[5], "Key:    RFC_ERROR_COMMUNICA");
    EXPECT_EQ(run.lines[6], "Status: CONNECT faile");
    EXPECT_EQ(run.lines[7], "Message:partner gone");
  }

  // A closed connection during dispatch is no failure.
  script().listen_results = {RFC_OK};
  script().dispatch_default = RFC_CLOSED;
  EXPECT_EQ(app.Run(0), RFC_CLOSED);
}

TEST_F(ServerAppTest, ReceiveAndReplyFailuresAreReportedAndServingGoesOn) {
  CRfcConnection connection;
  Accept(connection);
  CRfcServerApp app(&connection);
  EchoFunc echo("Z_ECHO");
  app.AddFunction(&echo);
  script().SetLastError("RFC_ERROR_CONVERSION", "conversion", "field QTY of line 2");
  const std::string report =
      "\n Main Thread  \nRFC call/exception during Invoke of CRfcServerApp\n"
      "Key         RFC_ERROR_CONVERSION\n"
      "Message     field QTY of line 2\n";

  script().get_data_result = RFC_FAILURE;
  script().listen_results = {RFC_OK, RFC_CLOSED};
  script().pending_calls = {"Z_ECHO"};
  testing::internal::CaptureStdout();
  rfc_test::TracedRun run = rfc_test::RunTraced([&] { EXPECT_EQ(app.Run(0), RFC_CLOSED); });
  EXPECT_EQ(testing::internal::GetCapturedStdout(), report);
  EXPECT_EQ(echo.processed, 0);
  EXPECT_TRUE(script().CallsOf("RfcSendData").empty());
  EXPECT_TRUE(Contains(run.lines, {"CRfcServerFunc::ReceiveData called", "Key:    RFC_ERROR_CONVER",
                                   "Status: conversio", "Message:field QTY of line 2"}))
      << run.content;

  script().get_data_result = RFC_OK;
  script().send_data_result = RFC_FAILURE;
  script().listen_results = {RFC_OK, RFC_CLOSED};
  script().pending_calls = {"Z_ECHO"};
  testing::internal::CaptureStdout();
  run = rfc_test::RunTraced([&] { EXPECT_EQ(app.Run(0), RFC_CLOSED); });
  EXPECT_EQ(testing::internal::GetCapturedStdout(), report);
  EXPECT_EQ(echo.processed, 1);
  EXPECT_TRUE(Contains(run.lines, {"CRfcServerFunc::ReturnCall called"})) << run.content;
  EXPECT_EQ(echo.GetConnection(), nullptr);
}

TEST_F(ServerAppTest, TextsFromProcessArePrintedOtherExceptionsPassThrough) {
  CRfcConnection connection;
  Accept(connection);
  CRfcServerApp app(&connection);
  EchoFunc echo("Z_ECHO");
  app.AddFunction(&echo);

  echo.throw_text = "batch refused";
  script().listen_results = {RFC_OK, RFC_CLOSED};
  script().pending_calls = {"Z_ECHO"};
  testing::internal::CaptureStdout();
  EXPECT_EQ(app.Run(0), RFC_CLOSED);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n Main Thread  batch refused");
  EXPECT_TRUE(script().CallsOf("RfcSendData").empty());

  // An application text is not the dispatcher's to report: it leaves Run.
  echo.throw_text = nullptr;
  echo.throw_string = "log file gone";
  script().listen_results = {RFC_OK, RFC_CLOSED};
  script().pending_calls = {"Z_ECHO"};
  EXPECT_THROW(app.Run(0), std::string);
  EXPECT_EQ(echo.GetConnection(), nullptr);
}

TEST_F(ServerAppTest, WithoutConnectionNothingIsExchanged) {
  EchoFunc echo("Z_ECHO");
  EXPECT_EQ(echo.ReceiveData(), 1);
  EXPECT_EQ(echo.ReturnCall(), 1);
  EXPECT_EQ(echo.GetDocu(), nullptr);
  CRfcServerApp app(nullptr);
  EXPECT_EQ(app.Run(0), 1);
  EXPECT_EQ(app.Run(-3), 1);
  EXPECT_EQ(app.OnIdle(), 0);
  EXPECT_TRUE(script().CallsOf("RfcListen").empty());
  EXPECT_TRUE(script().CallsOf("RfcGetData").empty());
}

}  // namespace
