// The server side of librfcsim.so: registration, listen and dispatch, the
// data of a call, answers, exceptions, callbacks, broken callers.

#include <sys/socket.h>

#include <cstring>
#include <future>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "sapsim/wire/control_messages.h"
#include "sapsim/wire/frame_channel.h"
#include "tests/sapsim/support/library_test.h"
#include "tests/support/polling.h"

namespace sapsim::testing {
namespace {

class ServerTest : public LibraryTest {
 protected:
  void SetUp() override {
    Start();
    handle_ = Accept();
    ASSERT_NE(0u, handle_) << lib.LastError();
  }
  // Serves one call of `function` from the SAP side; the caller's outcome.
  CallOutcome ServeOne(const std::string& function, const std::string& structure = "", const std::string& csv = "") {
    std::future<CallOutcome> outcome = CallLater(function, structure, csv);
    EXPECT_EQ(1, Serve(handle_, 1).dispatched) << lib.LastError();
    return outcome.get();
  }
  int Answer(ConnectionHandle h) {
    NoArgs none;
    return lib.RfcSendData(h, none.params, none.tables);
  }
  ConnectionHandle handle_ = 0;
};

// The batch line as this server lays it out: the system's fields in another
// order, other types and lengths.
struct ServerLine {
  char when[8];     // the system's DATE, here as CHAR 8
  double amount;    // the system's packed AMOUNT, here FLOAT
  char name[5];     // the system's NAME C12, cut
  char count[6];    // the system's INT, here NUM 6
};

RfcTypeHandle InstallServerLine() {
  RfcTypeElement elements[] = {{"WHEN", RFCTYPE_CHAR, 8, 0, 0},
                               {"AMOUNT", RFCTYPE_FLOAT, 8, 0, 0},
                               {"NAME", RFCTYPE_CHAR, 5, 0, 0},
                               {"COUNT", RFCTYPE_NUM, 6, 0, 0}};
  RfcTypeHandle handle = -1;
  RfcLibrary::Get().RfcInstallStructure("BATCH_TABLE", elements, 4, &handle);
  return handle;
}

TEST_F(ServerTest, ListenReportsNothingThenTheCallWhoseTableArrivesConverted) {
  EXPECT_EQ(RFC_NOTHING_WAITING, lib.RfcListen(handle_));
  const RfcTypeHandle line_type = InstallServerLine();
  ASSERT_GE(line_type, 0x10000);
  static_assert(offsetof(ServerLine, amount) == 8 && offsetof(ServerLine, count) == 21, "layout");
  std::vector<ServerLine> received;
  std::string called;
  SetHandler("Z_BATCH", [&](ConnectionHandle h) {
    char name[RFC_FUNCTION_NAME_SIZE];
    EXPECT_EQ(RFC_OK, lib.RfcGetName(h, name));
    called = name;
    RfcParameterEntry no_imports[] = {EndParam()};
    RfcTableEntry tables[] = {Table("BATCH_TABLE", line_type, 32), EndTable()};
    EXPECT_EQ(RFC_OK, lib.RfcGetData(h, no_imports, tables)) << lib.LastError();
    for (unsigned n = 1; n <= lib.ItFill(tables[0].handle); ++n) {
      ServerLine line;
      std::memcpy(&line, lib.ItGetLine(tables[0].handle, n), sizeof line - 3);
      received.push_back(line);
    }
    int32_t rc = 1;
    RfcParameterEntry exports[] = {Param("BATCH_RC", RFCTYPE_INT, &rc, 4), EndParam()};
    RfcTableEntry none[] = {EndTable()};
    return lib.RfcSendData(h, exports, none);
  });

  const CallOutcome reply = ServeOne(
      "Z_BATCH", "ZBATCH_LINE", "NAME,COUNT,AMOUNT,WHEN\nfirst <&>,1,12.50,20240131\n\"with, comma\",2,-0.05,\n");
  ASSERT_TRUE(reply.replied()) << reply.refused;
  EXPECT_EQ(wire::ReplyStatus::kOk, reply.reply.status);
  EXPECT_EQ("1", reply.Export("BATCH_RC"));
  EXPECT_EQ("Z_BATCH", called);
  ASSERT_EQ(2u, received.size());
  EXPECT_EQ("20240131", std::string(received[0].when, 8));
  EXPECT_DOUBLE_EQ(12.5, received[0].amount);
  EXPECT_EQ("first", std::string(received[0].name, 5));
  EXPECT_EQ("000001", std::string(received[0].count, 6));
  EXPECT_EQ("00000000", std::string(received[1].when, 8));  // empty in the batch: the DATE's initial value
  EXPECT_DOUBLE_EQ(-0.05, received[1].amount);
  EXPECT_EQ("with,", std::string(received[1].name, 5));
  EXPECT_EQ(RFC_NOTHING_WAITING, lib.RfcListen(handle_));
}

int InstalledFunction(ConnectionHandle handle) {
  int32_t rc = 7;
  RfcParameterEntry exports[] = {Param("BATCH_RC", RFCTYPE_INT, &rc, 4), EndParam()};
  RfcTableEntry none[] = {EndTable()};
  return RfcLibrary::Get().RfcSendData(handle, exports, none);
}

TEST_F(ServerTest, InstalledFunctionsRunThemselvesAndEverythingElseGoesToTheCatchAll) {
  ASSERT_EQ(RFC_OK, lib.RfcInstallFunction("Z_OWN", &InstalledFunction, "own"));
  ASSERT_EQ(RFC_OK, lib.RfcInstallFunction("Z_NAME_ONLY", nullptr, "known, served by the catch-all"));
  const std::string long_name = "Z_NEVER_INSTALLED_FUNCTION_WITH_A_LONG_NAME";
  std::vector<std::string> caught;
  auto catch_all = [&](ConnectionHandle h) {
    char name[RFC_FUNCTION_NAME_SIZE];
    lib.RfcGetName(h, name);
    caught.push_back(name);
    return lib.RfcRaise(h, "CAUGHT");
  };
  SetHandler("Z_NAME_ONLY", catch_all);
  // RfcGetName gives at most 31 characters and the terminator.
  SetHandler(long_name.substr(0, 31), catch_all);

  EXPECT_EQ("7", ServeOne("Z_OWN").Export("BATCH_RC"));
  EXPECT_EQ("CAUGHT", ServeOne("Z_NAME_ONLY").reply.key);
  EXPECT_EQ("CAUGHT", ServeOne(long_name).reply.key);
  EXPECT_EQ((std::vector<std::string>{"Z_NAME_ONLY", long_name.substr(0, 31)}), caught);
}

TEST_F(ServerTest, ValueThatCannotBeConvertedFailsGetDataWithTheReason) {
  const RfcTypeHandle line_type = InstallServerLine();
  std::string error;
  SetHandler("Z_NEGATIVE", [&](ConnectionHandle h) {
    RfcParameterEntry no_imports[] = {EndParam()};
    RfcTableEntry tables[] = {Table("BATCH_TABLE", line_type, 32), EndTable()};
    if (lib.RfcGetData(h, no_imports, tables) != RFC_OK) error = lib.LastError();
    return lib.RfcRaise(h, "BAD_DATA");
  });
  // COUNT -2 cannot become this server's NUM field.
  EXPECT_EQ("BAD_DATA", ServeOne("Z_NEGATIVE", "ZBATCH_LINE", "NAME,COUNT\nx,1\ny,-2\n").reply.key);
  EXPECT_EQ("RFC_ERROR_CONVERSION: call of Z_NEGATIVE: table BATCH_TABLE, line 2: field COUNT: -2 is negative and "
            "cannot be a NUM",
            error);
}

TEST_F(ServerTest, EveryCallIsAnsweredHoweverItsFunctionEnds) {
  int after_raise = RFC_OK;
  SetHandler("Z_REFUSE", [&](ConnectionHandle h) {
    const int rc = lib.RfcRaise(h, "NOT_ALLOWED");
    after_raise = Answer(h);  // the call is already answered
    return rc;
  });
  SetHandler("Z_SILENT", [](ConnectionHandle) { return 0; });
  SetHandler("Z_THROWS", [](ConnectionHandle) -> int { throw std::runtime_error("server function failed"); });
  SetHandler("Z_FINE", [&](ConnectionHandle h) { return Answer(h); });

  CallOutcome refused = ServeOne("Z_REFUSE");
  EXPECT_EQ(wire::ReplyStatus::kException, refused.reply.status);
  EXPECT_EQ("NOT_ALLOWED", refused.reply.key);
  EXPECT_EQ(RFC_FAILURE, after_raise);

  CallOutcome silent = ServeOne("Z_SILENT");
  EXPECT_EQ(wire::ReplyStatus::kSystemFailure, silent.reply.status);
  EXPECT_NE(std::string::npos, silent.reply.message.find("ended without sending data"));

  // The exception passes through RfcDispatch; the caller is answered anyway.
  std::future<CallOutcome> throws = CallLater("Z_THROWS");
  ASSERT_TRUE(testutil::Eventually([&] { return lib.RfcListen(handle_) != RFC_NOTHING_WAITING; }));
  EXPECT_THROW(lib.RfcDispatch(handle_), std::runtime_error);
  CallOutcome thrown = throws.get();
  EXPECT_EQ(wire::ReplyStatus::kSystemFailure, thrown.reply.status);
  EXPECT_NE(std::string::npos, thrown.reply.message.find("ended with an exception"));

  // The connection goes on serving; outside a call there is nothing to read or answer.
  EXPECT_EQ(wire::ReplyStatus::kOk, ServeOne("Z_FINE").reply.status);
  char name[RFC_FUNCTION_NAME_SIZE];
  EXPECT_EQ(RFC_FAILURE, lib.RfcGetName(handle_, name));
  EXPECT_EQ(RFC_FAILURE, lib.RfcRaise(handle_, "LATE"));
}

TEST_F(ServerTest, ServerCanCallBackDuringACallButNotOutsideOne) {
  ConnectionAttributes attributes{};
  ASSERT_EQ(RFC_OK, lib.RfcGetAttributes(handle_, &attributes));
  EXPECT_EQ('S', attributes.rfc_role);
  EXPECT_STREQ("46C", attributes.partner_release);
  std::string release;
  SetHandler("Z_ASKS_BACK", [&](ConnectionHandle h) {
    Chars<4> sap_release;
    RfcParameterEntry exports[] = {Param("SAP_SYSTEM_RELEASE", RFCTYPE_CHAR, sap_release.text, 4), EndParam()};
    NoArgs none;
    EXPECT_EQ(RFC_OK, CallReceive(h, "RFC_GET_SAP_SYSTEM_PARAMETERS", none.params, exports, none.tables))
        << lib.LastError();
    release = sap_release.str();
    return Answer(h);
  });
  EXPECT_EQ(wire::ReplyStatus::kOk, ServeOne("Z_ASKS_BACK").reply.status);
  EXPECT_EQ("46C", release);
  NoArgs none;
  EXPECT_EQ(RFC_FAILURE, lib.RfcCall(handle_, "RFCPING", none.params, none.tables));
}

TEST_F(ServerTest, AcceptReadsItsOptionsAndNamesWhatIsMissing) {
  std::string port = "-x" + sapsim_->port_text();
  std::string closed = "-x" + std::to_string(UnusedPort());
  char program[] = "/usr/bin/batchserver", a[] = "-aTOLERANT", g[] = "-g127.0.0.1", t[] = "-t1",
       unknown[] = "-Zsomething", empty_a[] = "-a", empty_g[] = "-g", empty_x[] = "-x";
  char* full[] = {program, a, g, port.data(), t, unknown, nullptr};
  EXPECT_NE(0u, Keep(lib.RfcAccept(full))) << lib.LastError();

  char* no_service[] = {a, g, nullptr};
  char* empty[] = {empty_a, empty_g, empty_x, nullptr};
  char* unreachable[] = {a, g, closed.data(), nullptr};
  const struct {
    char** argv;
    const char* message;
  } refused[] = {{no_service, "missing or empty -x<gateway service>"},
                 {empty, "-a<program id> -g<gateway host> -x<gateway service>"},
                 {nullptr, ""},
                 {unreachable, "registration of program TOLERANT at gateway 127.0.0.1:"}};
  for (const auto& c : refused) {
    EXPECT_EQ(0u, lib.RfcAccept(c.argv)) << c.message;
    EXPECT_NE(std::string::npos, lib.LastError().find(c.message)) << lib.LastError();
  }
}

TEST_F(ServerTest, ConnectionClosedBySystemEndsListenAndDispatch) {
  const ConnectionHandle other = Accept();
  ASSERT_NE(0u, other);
  EXPECT_EQ(0, sapsim_->Stop());
  sapsim_.reset();
  EXPECT_TRUE(testutil::Eventually([&] { return lib.RfcListen(handle_) != RFC_NOTHING_WAITING; }));
  EXPECT_EQ(RFC_CLOSED, lib.RfcListen(handle_));
  EXPECT_EQ(RFC_CLOSED, lib.RfcDispatch(other));
  EXPECT_EQ(104, lib.LastErrorGroup());
}

TEST_F(ServerTest, CallerThatBreaksOffMidCallCostsTheServerOnlyItsConnection) {
  {
    // A caller announces a call of a megabyte, sends a little of it and goes.
    std::string error;
    wire::Socket socket = wire::Socket::Connect("127.0.0.1", sapsim_->port(), &error);
    ASSERT_TRUE(socket.valid()) << error;
    wire::FrameChannel channel(std::move(socket));
    wire::Hello hello;
    hello.kind = wire::SessionKind::kCaller;
    wire::FrameWriter frame = hello.Encode();
    ASSERT_EQ(wire::IoStatus::kOk, channel.Send(frame, &error));
    wire::Frame welcome;
    ASSERT_EQ(wire::IoStatus::kOk, channel.Receive(&welcome, &error));
    wire::FrameWriter route = wire::BeginRouteCall("TESTPROG");
    route.String("Z_ANY");
    std::vector<uint8_t> call = route.Flatten();
    const uint32_t claimed = 1024 * 1024;
    std::memcpy(call.data() + 8, &claimed, 4);  // the header's payload length
    call.resize(call.size() + 1000, 'x');
    ASSERT_EQ(static_cast<ssize_t>(call.size()), ::send(channel.socket().fd(), call.data(), call.size(), 0));
  }
  // The server got a frame that never ends: its connection is closed, and
  // it can register again.
  EXPECT_EQ(RFC_CLOSED, Serve(handle_, 1).last_rc);
  EXPECT_NE(0u, Accept()) << lib.LastError();
}

}  // namespace
}  // namespace sapsim::testing
