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
  void Accept() {
    std::vector<char> word{'-', 'a', 'P', 'R', 'O', 'G', '\0'};
    char* argv[] = {word.data(), nullptr};
    connection_.Accept(argv);
    ASSERT_EQ(connection_.GetHandle(), 1u);
    script().log.clear();
  }
  // Runs the loop over `calls`; what it printed.
  std::string Serve(CRfcServerApp& app, const std::vector<std::string>& calls, int expected_rc = RFC_CLOSED) {
    script().listen_results.assign(calls.size(), RFC_OK);
    script().listen_results.push_back(RFC_CLOSED);
    script().pending_calls.assign(calls.begin(), calls.end());
    testing::internal::CaptureStdout();
    EXPECT_EQ(app.Run(0), expected_rc);
    return testing::internal::GetCapturedStdout();
  }

  CRfcConnection connection_;
};

TEST_F(ServerAppTest, SecondApplicationIsRefusedUntilTheFirstIsGone) {
  auto first = std::make_unique<CRfcServerApp>(&connection_);
  const rfc_test::TracedRun run = rfc_test::RunTraced([&] { CRfcServerApp second(&connection_); });
  EXPECT_TRUE(run.threw_text);
  EXPECT_EQ(run.thrown, "Only one instance can be created!");
  ASSERT_EQ(run.lines.size(), 6u) << run.content;
  EXPECT_EQ(run.lines[3].rfind("Rfc Class Library Trace at   ", 0), 0u) << run.lines[3];
  EXPECT_EQ(run.lines[4], "CRfcServerApp::CRfcServerApp (CRfcConnection*) called");
  EXPECT_EQ(run.lines[5], "Only one instance can be created!");
  EXPECT_EQ(CRfcServerApp::InstanceCount(), 1);
  first.reset();
  EXPECT_EQ(CRfcServerApp::InstanceCount(), 0);
  CRfcServerApp third(&connection_);
  EXPECT_EQ(CRfcServerApp::InstanceCount(), 1);
}

TEST_F(ServerAppTest, CatchAllAndFunctionsAreInstalledWithTheirDocumentationAndFoundExactly) {
  std::unique_ptr<CRfcServerApp> owner;
  const rfc_test::TracedRun run = rfc_test::RunTraced([&] { owner = std::make_unique<CRfcServerApp>(&connection_); });
  CRfcServerApp& app = *owner;
  // A note without header.
  EXPECT_EQ(run.lines, std::vector<std::string>{"CRfcServerApp::DispatchDocu called"});
  EXPECT_NE(script().catch_all, nullptr);
  EchoFunc first("z_first", "the first one"), second("Z_SECOND"), same_name("Z_FIRST");
  for (EchoFunc* function : {&first, &second, static_cast<EchoFunc*>(nullptr), &same_name}) app.AddFunction(function);
  EXPECT_EQ(app.GetFunctionCount(), 3);
  // Only names and documentation: every call still comes through the catch-all.
  using Installed = std::vector<std::pair<std::string, std::string>>;
  const char* docu =
      "The RFC library will call this function if any unknown\nRFC function should be executed in this RFC server program.\n";
  EXPECT_EQ(script().installed, (Installed{{"%%USER_GLOBAL_SERVER", docu}, {"Z_FIRST", "the first one"},
                                           {"Z_SECOND", "(null)"}, {"Z_FIRST", "(null)"}}));
  EXPECT_STREQ(CRfcServerApp::DispatchDocu(), docu);

  int index = -1;
  EXPECT_EQ(app.FindFunction("Z_FIRST", &index), &first);
  EXPECT_EQ(index, 0);
  EXPECT_EQ(app.FindFunction("Z_SECOND", &index), &second);
  EXPECT_EQ(index, 1);
  index = -1;
  for (const char* name : {"z_first", "Z_FIRST ", "", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(app.FindFunction(name, &index), nullptr);
  }
  EXPECT_EQ(index, -1);
  EXPECT_EQ(app.FindFunction("Z_SECOND"), &second);
  EXPECT_EQ(first.GetServerApp(), &app);
}

TEST_F(ServerAppTest, DispatchRefusesWithoutApplicationAndHandsBackAFailedNameLookup) {
  script().current_names.emplace_back(5, "Z_ECHO");
  std::string out;
  const rfc_test::TracedRun run = rfc_test::RunTraced([&] {
    testing::internal::CaptureStdout();
    EXPECT_EQ(CRfcServerApp::Dispatch(5), RFC_OK);
    out = testing::internal::GetCapturedStdout();
  });
  EXPECT_EQ(out, std::string("\n Main Thread  ") + kMissing);
  EXPECT_TRUE(Contains(run.lines, {"CRfcServerApp::Dispatch called", "", "", ""})) << run.content;
  EXPECT_TRUE(Contains(run.lines, {"CRfcServerApp::Invoke called", kMissing})) << run.content;
  ASSERT_EQ(script().CallsOf("RfcRaise").size(), 1u);
  EXPECT_EQ(script().CallsOf("RfcRaise")[0].handle, 5u);

  CRfcServerApp app(&connection_);
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
  Accept();
  ClosingApp app(&connection_);
  EXPECT_EQ(app.Run(0), RFC_CLOSED);
  EXPECT_EQ(app.idles, 3);
  EXPECT_EQ(connection_.GetHandle(), 0u);
  const std::vector<stand_in::Record> closed = script().CallsOf("RfcClose");
  ASSERT_EQ(closed.size(), 1u);
  EXPECT_EQ(closed[0].handle, 1u);
  EXPECT_EQ(testutil::Join(CountOf(script().Entries(), "RfcListen"), CountOf(script().Entries(), "RfcDispatch")), "3|0|");
}

TEST_F(ServerAppTest, LoopFailuresAreThrownAsTheLibrarysError) {
  Accept();
  CRfcServerApp app(&connection_);
  script().SetLastError("RFC_ERROR_COMMUNICATION", "CONNECT failed", "partner gone");
  // A failing listen, then a failing dispatch.
  for (int step = 0; step < 2; ++step) {
    script().listen_results = {step == 0 ? RFC_FAILURE : RFC_OK};
    script().dispatch_default = RFC_SYS_EXCEPTION;
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
    EXPECT_EQ(std::vector<std::string>(run.lines.begin() + 4, run.lines.end()),
              (std::vector<std::string>{"CRfcServerApp::Run(void) called", "Key:    RFC_ERROR_COMMUNICA",
                                        "Status: CONNECT faile", "Message:partner gone"}));
  }
  // A closed connection during dispatch is no failure.
  script().listen_results = {RFC_OK};
  script().dispatch_default = RFC_CLOSED;
  EXPECT_EQ(app.Run(0), RFC_CLOSED);
}

// What goes wrong inside one call is reported and serving goes on; an
// application's own text leaves Run.
TEST_F(ServerAppTest, FailuresInsideACallAreReportedAndServingGoesOn) {
  Accept();
  CRfcServerApp app(&connection_);
  EchoFunc echo("Z_ECHO");
  app.AddFunction(&echo);
  script().SetLastError("RFC_ERROR_CONVERSION", "conversion", "field QTY of line 2");
  const std::string report =
      "\n Main Thread  \nRFC call/exception during Invoke of CRfcServerApp\nKey         RFC_ERROR_CONVERSION\n"
      "Message     field QTY of line 2\n";
  const struct {
    int get_data, send_data;
    const char* thrown;
    std::string out;
    int processed;
    std::vector<std::string> trace;
  } cases[] = {
      {RFC_FAILURE, RFC_OK, nullptr, report, 0,
       {"CRfcServerFunc::ReceiveData called", "Key:    RFC_ERROR_CONVER", "Status: conversio",
        "Message:field QTY of line 2"}},
      {RFC_OK, RFC_FAILURE, nullptr, report, 1, {"CRfcServerFunc::ReturnCall called"}},
      {RFC_OK, RFC_OK, "batch refused", "\n Main Thread  batch refused", 1, {}},
  };
  for (const auto& c : cases) {
    script().get_data_result = c.get_data;
    script().send_data_result = c.send_data;
    echo.throw_text = c.thrown;
    echo.processed = 0;
    std::string out;
    const rfc_test::TracedRun run = rfc_test::RunTraced([&] { out = Serve(app, {"Z_ECHO"}); });
    EXPECT_EQ(out, c.out);
    EXPECT_EQ(echo.processed, c.processed);
    EXPECT_EQ(script().CallsOf("RfcSendData").size(), c.send_data == RFC_OK ? 0u : 1u);
    script().log.clear();
    EXPECT_TRUE(c.trace.empty() || Contains(run.lines, c.trace)) << run.content;
    EXPECT_EQ(echo.GetConnection(), nullptr);
  }
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
  EXPECT_EQ(testutil::Join(echo.ReceiveData(), echo.ReturnCall(), echo.GetDocu() == nullptr), "1|1|1|");
  CRfcServerApp app(nullptr);
  EXPECT_EQ(testutil::Join(app.Run(0), app.Run(-3), app.OnIdle()), "1|1|0|");
  EXPECT_TRUE(script().CallsOf("RfcListen").empty());
  EXPECT_TRUE(script().CallsOf("RfcGetData").empty());
}

}  // namespace
