// The server application in its single-threaded mode, against the stand-in
// RFC library: the catch-all, the function list, the listen loop and its
// endings, and what Dispatch reports for failing calls. One run of steps whose
// answers, output, traces and library calls are compared whole.

#include "rfc/server/rfc_server_app.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "rfc/core/rfc_connection.h"
#include "tests/e2e/server_test_support.h"

namespace {

using server_test::EchoFunc;
using testutil::Join;

class ServerAppTest : public server_test::TranscriptTest {
 protected:
  // A fresh library state and a connection that owns handle 1, as an
  // accepted registration does.
  void Accept() {
    script().Reset();
    stand_in::State::Fill(script().attributes.partner_release, 5, "46C");
    std::vector<char> word{'-', 'a', 'P', 'R', 'O', 'G', '\0'};
    char* argv[] = {word.data(), nullptr};
    connection_.Accept(argv);
    ASSERT_EQ(connection_.GetHandle(), 1u);
  }
  CRfcConnection connection_;
};

TEST_F(ServerAppTest, RefusalsCatchAllListenLoopAndFailingCalls) {
  Accept();
  auto first = std::make_unique<CRfcServerApp>(&connection_);
  Step("a second application", [&] {
    CRfcServerApp second(&connection_);
    return "";
  });
  Step("the first gone", [&] {
    const int during = CRfcServerApp::InstanceCount();
    first.reset();
    const int after = CRfcServerApp::InstanceCount();
    CRfcServerApp third(&connection_);
    return Join(during, after, CRfcServerApp::InstanceCount());
  });
  // Without application a call is refused; a failed name lookup is handed back.
  script().current_names.emplace_back(5, "Z_ECHO");
  Step("dispatch without application", [] { return Join(CRfcServerApp::Dispatch(5)); });
  std::unique_ptr<CRfcServerApp> app;
  Step("catch-all installed", [&] {
    script().installed.clear();
    app = std::make_unique<CRfcServerApp>(&connection_);
    return Join(script().catch_all != nullptr);
  });
  EchoFunc first_function("z_first", "the first one"), second("Z_SECOND"), same_name("Z_FIRST");
  Step("functions added", [&] {
    for (EchoFunc* function : {&first_function, &second, static_cast<EchoFunc*>(nullptr), &same_name}) {
      app->AddFunction(function);
    }
    // Only names and documentation: every call still comes through the catch-all.
    std::string answer = Join(app->GetFunctionCount(), first_function.GetServerApp() == app.get());
    for (const auto& [name, docu] : script().installed) answer += "\n  " + name + ": " + docu;
    answer += "\n  " + std::string(CRfcServerApp::DispatchDocu());
    for (const char* name : {"Z_FIRST", "Z_SECOND", "z_first", "Z_FIRST ", "", static_cast<const char*>(nullptr)}) {
      int index = -1;  // the name found and the index reported
      const CRfcServerFunc* found = app->FindFunction(name, &index);
      answer += "\n  " + Join(found != nullptr ? found->GetName() : "none", index);
    }
    return answer + "\n  " + Join(app->FindFunction("Z_SECOND") == &second);
  });
  script().current_names.emplace_back(3, "Z_FIRST");
  script().get_name_result = RFC_FAILURE;
  Step("name lookup failing", [&] { return Join(CRfcServerApp::Dispatch(3), first_function.processed); });
  app.reset();

  struct ClosingApp : CRfcServerApp {
    using CRfcServerApp::CRfcServerApp;
    int OnIdle() override {
      if (++idles == 3) CloseConnection();
      return 0;
    }
    int idles = 0;
  };
  Accept();
  Step("idle hook closing the connection", [&] {
    ClosingApp closing(&connection_);
    const int rc = closing.Run(0);
    return Join(rc, closing.idles, connection_.GetHandle());
  });

  // A failing listen, then a failing dispatch, throw the library's error; a
  // connection closed during dispatch is no failure.
  Accept();
  app = std::make_unique<CRfcServerApp>(&connection_);
  script().SetLastError("RFC_ERROR_COMMUNICATION", "CONNECT failed", "partner gone");
  script().dispatch_default = RFC_SYS_EXCEPTION;
  for (const int listen : {RFC_FAILURE, RFC_OK}) {
    script().listen_results = {listen};
    Step("loop failing", [&] {
      try {
        app->Run(0);
      } catch (const RFC_ERROR_INFO& error) {
        return Join(error.key, app->GetLastError().message);
      }
      return std::string("no error");
    });
  }
  script().listen_results = {RFC_OK};
  script().dispatch_default = RFC_CLOSED;
  Step("closed during dispatch", [&] { return Join(app->Run(0)); });

  // What goes wrong inside one call is reported and serving goes on; an
  // application's own text leaves Run.
  EchoFunc echo("Z_ECHO");
  app->AddFunction(&echo);
  script().SetLastError("RFC_ERROR_CONVERSION", "conversion", "field QTY of line 2");
  // One call of Z_ECHO, then the connection closes.
  auto failing = [&](const char* why, int get_data, int send_data, const char* text, const std::string& string = "") {
    script().get_data_result = get_data;
    script().send_data_result = send_data;
    echo.throw_text = text;
    echo.throw_string = string;
    echo.processed = 0;
    Step(why, [&] {
      script().listen_results = {RFC_OK, RFC_CLOSED};
      script().pending_calls = {"Z_ECHO"};
      try {
        const int rc = app->Run(0);
        return Join(rc, echo.processed, echo.GetConnection() == nullptr);
      } catch (const std::string& thrown) {
        return Join(thrown, echo.GetConnection() == nullptr);
      }
    });
  };
  failing("receiving failing", RFC_FAILURE, RFC_OK, nullptr);
  failing("returning failing", RFC_OK, RFC_FAILURE, nullptr);
  failing("the function throwing a text", RFC_OK, RFC_OK, "batch refused");
  failing("the function throwing a string", RFC_OK, RFC_OK, nullptr, "log file gone");
  app.reset();

  Step("without connection", [] {
    EchoFunc alone("Z_ECHO");
    CRfcServerApp unconnected(nullptr);
    return Join(alone.ReceiveData(), alone.ReturnCall(), alone.GetDocu() == nullptr, unconnected.Run(0),
                unconnected.Run(-3), unconnected.OnIdle());
  });
  EXPECT_TRUE(TranscriptMatches("tests/e2e/expected/server_app.txt"));
}

}  // namespace
