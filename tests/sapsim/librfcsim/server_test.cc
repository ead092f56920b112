// The server side of librfcsim.so: registration, listen and dispatch, the
// data of a call, answers, exceptions, callbacks, several servers at once.

#include <sys/socket.h>

#include <atomic>
#include <cstring>
#include <future>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "sapsim/wire/control_messages.h"
#include "sapsim/wire/frame_channel.h"
#include "tests/sapsim/support/rfc_calls.h"
#include "tests/sapsim/support/rfc_library.h"
#include "tests/sapsim/support/sap_caller.h"
#include "tests/sapsim/support/sapsim_process.h"
#include "tests/sapsim/support/server_harness.h"
#include "tests/sapsim/support/system_files.h"

namespace sapsim::testing {
namespace {

constexpr const char* kBatch = "NAME,COUNT,AMOUNT,WHEN\nfirst <&>,1,12.50,20240131\n\"with, comma\",2,-0.05,\n";

class ServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SapsimProcess::Options options;
    options.system_file = dir_.Write("system.json", SmallSystem());
    sapsim_ = std::make_unique<SapsimProcess>(options);
  }
  void TearDown() override {
    for (ConnectionHandle handle : handles_) lib.RfcClose(handle);
    if (sapsim_) {
      EXPECT_EQ(0, sapsim_->Stop()) << sapsim_->Log();
    }
  }
  ConnectionHandle Accept(const std::string& program_id = "TESTPROG") {
    ConnectionHandle handle = Register(program_id, sapsim_->port());
    if (handle != 0) handles_.push_back(handle);
    return handle;
  }
  // Calls from the SAP side in the background.
  std::future<CallOutcome> CallLater(const std::string& function, const std::string& structure = "",
                                     const std::string& csv = "", const std::string& program_id = "TESTPROG") {
    uint16_t port = sapsim_->port();
    return std::async(std::launch::async, [=] {
      return SapCaller(port).Call(program_id, function, structure, csv);
    });
  }

  const RfcLibrary& lib = RfcLibrary::Get();
  TempDir dir_;
  std::unique_ptr<SapsimProcess> sapsim_;
  std::vector<ConnectionHandle> handles_;
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

TEST_F(ServerTest, ListenReportsNothingThenTheCallWhichDispatchServes) {
  ConnectionHandle handle = Accept();
  ASSERT_NE(0u, handle) << lib.LastError();
  EXPECT_EQ(RFC_NOTHING_WAITING, lib.RfcListen(handle));

  RfcTypeHandle line_type = InstallServerLine();
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

  std::future<CallOutcome> outcome = CallLater("Z_BATCH", "ZBATCH_LINE", kBatch);
  ServeResult served = Serve(handle, 1);
  ASSERT_EQ(1, served.dispatched) << lib.LastError();
  CallOutcome reply = outcome.get();
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
  EXPECT_EQ(RFC_NOTHING_WAITING, lib.RfcListen(handle));
}

int InstalledFunction(ConnectionHandle handle) {
  int32_t rc = 7;
  RfcParameterEntry exports[] = {Param("BATCH_RC", RFCTYPE_INT, &rc, 4), EndParam()};
  RfcTableEntry none[] = {EndTable()};
  return RfcLibrary::Get().RfcSendData(handle, exports, none);
}

TEST_F(ServerTest, InstalledFunctionsRunThemselvesAndEverythingElseGoesToTheCatchAll) {
  ConnectionHandle handle = Accept();
  ASSERT_NE(0u, handle);
  ASSERT_EQ(RFC_OK, lib.RfcInstallFunction("Z_OWN", &InstalledFunction, "own"));
  ASSERT_EQ(RFC_OK, lib.RfcInstallFunction("Z_NAME_ONLY", nullptr, "known, served by the catch-all"));
  std::vector<std::string> caught;
  auto catch_all = [&](ConnectionHandle h) {
    char name[RFC_FUNCTION_NAME_SIZE];
    lib.RfcGetName(h, name);
    caught.push_back(name);
    return lib.RfcRaise(h, "CAUGHT");
  };
  SetHandler("Z_NAME_ONLY", catch_all);
  // The catch-all sees the name as RfcGetName gives it: 31 characters at most.
  SetHandler(std::string("Z_NEVER_INSTALLED_FUNCTION_WITH_A_LONG_NAME").substr(0, 31), catch_all);

  std::future<CallOutcome> own = CallLater("Z_OWN");
  ASSERT_EQ(1, Serve(handle, 1).dispatched);
  EXPECT_EQ("7", own.get().Export("BATCH_RC"));
  std::future<CallOutcome> known = CallLater("Z_NAME_ONLY");
  ASSERT_EQ(1, Serve(handle, 1).dispatched);
  EXPECT_EQ("CAUGHT", known.get().reply.key);
  std::future<CallOutcome> unknown = CallLater("Z_NEVER_INSTALLED_FUNCTION_WITH_A_LONG_NAME");
  ASSERT_EQ(1, Serve(handle, 1).dispatched);
  EXPECT_EQ(wire::ReplyStatus::kException, unknown.get().reply.status);
  // RfcGetName writes at most 31 characters and the terminator.
  ASSERT_EQ(2u, caught.size());
  EXPECT_EQ("Z_NAME_ONLY", caught[0]);
  EXPECT_EQ(std::string("Z_NEVER_INSTALLED_FUNCTION_WITH_A_LONG_NAME").substr(0, 31), caught[1]);
}

TEST_F(ServerTest, ValueThatCannotBeConvertedFailsGetDataWithTheReason) {
  ConnectionHandle handle = Accept();
  ASSERT_NE(0u, handle);
  RfcTypeHandle line_type = InstallServerLine();
  std::string error;
  SetHandler("Z_NEGATIVE", [&](ConnectionHandle h) {
    RfcParameterEntry no_imports[] = {EndParam()};
    RfcTableEntry tables[] = {Table("BATCH_TABLE", line_type, 32), EndTable()};
    if (lib.RfcGetData(h, no_imports, tables) != RFC_OK) error = lib.LastError();
    return lib.RfcRaise(h, "BAD_DATA");
  });
  // COUNT -2 cannot become this server's NUM field.
  std::future<CallOutcome> outcome = CallLater("Z_NEGATIVE", "ZBATCH_LINE", "NAME,COUNT\nx,1\ny,-2\n");
  ASSERT_EQ(1, Serve(handle, 1).dispatched);
  EXPECT_EQ("BAD_DATA", outcome.get().reply.key);
  EXPECT_EQ("RFC_ERROR_CONVERSION: call of Z_NEGATIVE: table BATCH_TABLE, line 2: field COUNT: -2 is negative and "
            "cannot be a NUM",
            error);
}

TEST_F(ServerTest, RaiseReachesTheCallerAndEndsTheCall) {
  ConnectionHandle handle = Accept();
  ASSERT_NE(0u, handle);
  int after_raise = RFC_OK;
  SetHandler("Z_REFUSE", [&](ConnectionHandle h) {
    int rc = lib.RfcRaise(h, "NOT_ALLOWED");
    RfcParameterEntry none[] = {EndParam()};
    RfcTableEntry no_tables[] = {EndTable()};
    after_raise = lib.RfcSendData(h, none, no_tables);  // the call is already answered
    return rc;
  });
  std::future<CallOutcome> outcome = CallLater("Z_REFUSE");
  ASSERT_EQ(1, Serve(handle, 1).dispatched);
  CallOutcome reply = outcome.get();
  EXPECT_EQ(wire::ReplyStatus::kException, reply.reply.status);
  EXPECT_EQ("NOT_ALLOWED", reply.reply.key);
  EXPECT_EQ(RFC_FAILURE, after_raise);
}

TEST_F(ServerTest, CallsEndingWithoutAnAnswerStillAnswerTheCaller) {
  ConnectionHandle handle = Accept();
  ASSERT_NE(0u, handle);
  SetHandler("Z_SILENT", [](ConnectionHandle) { return 0; });
  SetHandler("Z_THROWS", [](ConnectionHandle) -> int { throw std::runtime_error("server function failed"); });
  SetHandler("Z_FINE", [&](ConnectionHandle h) {
    RfcParameterEntry none[] = {EndParam()};
    RfcTableEntry no_tables[] = {EndTable()};
    return lib.RfcSendData(h, none, no_tables);
  });

  std::future<CallOutcome> silent = CallLater("Z_SILENT");
  ASSERT_EQ(1, Serve(handle, 1).dispatched);
  CallOutcome silent_reply = silent.get();
  EXPECT_EQ(wire::ReplyStatus::kSystemFailure, silent_reply.reply.status);
  EXPECT_NE(std::string::npos, silent_reply.reply.message.find("ended without sending data"));

  // The exception passes through RfcDispatch; the caller is answered anyway.
  std::future<CallOutcome> throws = CallLater("Z_THROWS");
  ASSERT_EQ(RFC_OK, [&] {
    while (lib.RfcListen(handle) == RFC_NOTHING_WAITING) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return RFC_OK;
  }());
  EXPECT_THROW(lib.RfcDispatch(handle), std::runtime_error);
  CallOutcome thrown_reply = throws.get();
  EXPECT_EQ(wire::ReplyStatus::kSystemFailure, thrown_reply.reply.status);
  EXPECT_NE(std::string::npos, thrown_reply.reply.message.find("ended with an exception"));

  // The connection goes on serving.
  std::future<CallOutcome> fine = CallLater("Z_FINE");
  ASSERT_EQ(1, Serve(handle, 1).dispatched);
  EXPECT_EQ(wire::ReplyStatus::kOk, fine.get().reply.status);
  // Outside a call there is nothing to read or answer.
  char name[RFC_FUNCTION_NAME_SIZE];
  EXPECT_EQ(RFC_FAILURE, lib.RfcGetName(handle, name));
  EXPECT_EQ(RFC_FAILURE, lib.RfcRaise(handle, "LATE"));
}

TEST_F(ServerTest, ServerCanCallBackDuringACall) {
  ConnectionHandle handle = Accept();
  ASSERT_NE(0u, handle);
  ConnectionAttributes attributes{};
  ASSERT_EQ(RFC_OK, lib.RfcGetAttributes(handle, &attributes));
  EXPECT_EQ('S', attributes.rfc_role);
  EXPECT_STREQ("46C", attributes.partner_release);
  std::string release;
  SetHandler("Z_ASKS_BACK", [&](ConnectionHandle h) {
    Chars<4> sap_release;
    RfcParameterEntry none[] = {EndParam()};
    RfcParameterEntry exports[] = {Param("SAP_SYSTEM_RELEASE", RFCTYPE_CHAR, sap_release.text, 4), EndParam()};
    RfcTableEntry no_tables[] = {EndTable()};
    EXPECT_EQ(RFC_OK, lib.RfcCall(h, "RFC_GET_SAP_SYSTEM_PARAMETERS", none, no_tables));
    char* exception = nullptr;
    EXPECT_EQ(RFC_OK, lib.RfcReceive(h, exports, no_tables, &exception)) << lib.LastError();
    release = sap_release.str();
    return lib.RfcSendData(h, none, no_tables);
  });
  std::future<CallOutcome> outcome = CallLater("Z_ASKS_BACK");
  ASSERT_EQ(1, Serve(handle, 1).dispatched);
  EXPECT_EQ(wire::ReplyStatus::kOk, outcome.get().reply.status);
  EXPECT_EQ("46C", release);
  // Outside a call a registered server has nobody to call.
  RfcParameterEntry none[] = {EndParam()};
  RfcTableEntry no_tables[] = {EndTable()};
  EXPECT_EQ(RFC_FAILURE, lib.RfcCall(handle, "RFCPING", none, no_tables));
}

TEST_F(ServerTest, AcceptReadsItsOptionsAndNamesWhatIsMissing) {
  std::string port = "-x" + sapsim_->port_text();
  char program[] = "/usr/bin/batchserver";
  char a[] = "-aTOLERANT";
  char g[] = "-g127.0.0.1";
  char t[] = "-t1";
  char unknown[] = "-Zsomething";
  char* full[] = {program, a, g, port.data(), t, unknown, nullptr};
  ConnectionHandle handle = lib.RfcAccept(full);
  ASSERT_NE(0u, handle) << lib.LastError();
  handles_.push_back(handle);

  char* no_service[] = {a, g, nullptr};
  EXPECT_EQ(0u, lib.RfcAccept(no_service));
  EXPECT_NE(std::string::npos, lib.LastError().find("missing or empty -x<gateway service>"));
  char empty_a[] = "-a";
  char empty_g[] = "-g";
  char empty_x[] = "-x";
  char* empty[] = {empty_a, empty_g, empty_x, nullptr};
  EXPECT_EQ(0u, lib.RfcAccept(empty));
  EXPECT_NE(std::string::npos, lib.LastError().find("-a<program id> -g<gateway host> -x<gateway service>"));
  EXPECT_EQ(0u, lib.RfcAccept(nullptr));

  std::string closed = "-x" + std::to_string(UnusedPort());
  char* unreachable[] = {a, g, closed.data(), nullptr};
  EXPECT_EQ(0u, lib.RfcAccept(unreachable));
  EXPECT_NE(std::string::npos, lib.LastError().find("registration of program TOLERANT at gateway 127.0.0.1:"));
}

TEST_F(ServerTest, ConnectionClosedBySystemEndsListenAndDispatch) {
  ConnectionHandle handle = Accept();
  ASSERT_NE(0u, handle);
  ConnectionHandle other = Accept();
  ASSERT_NE(0u, other);
  EXPECT_EQ(RFC_OK, sapsim_->Stop());
  sapsim_.reset();
  int rc = RFC_NOTHING_WAITING;
  for (int i = 0; i < 5000 && rc == RFC_NOTHING_WAITING; ++i) {
    rc = lib.RfcListen(handle);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(RFC_CLOSED, rc);
  EXPECT_EQ(RFC_CLOSED, lib.RfcDispatch(other));
  EXPECT_EQ(104, lib.LastErrorGroup());
}

TEST_F(ServerTest, RefusedCallLeavesTheCallersConnectionUsable) {
  ConnectionHandle handle = Accept();
  ASSERT_NE(0u, handle);
  SetHandler("Z_FINE", [&](ConnectionHandle h) {
    RfcParameterEntry none[] = {EndParam()};
    RfcTableEntry no_tables[] = {EndTable()};
    return lib.RfcSendData(h, none, no_tables);
  });
  SapCaller caller(sapsim_->port());
  // The table of the refused call is read and dropped by the system...
  CallOutcome refused = caller.Call("NOBODY", "Z_FINE", "ZORDERS", "IDENT\na\nb\n");
  EXPECT_NE(std::string::npos, refused.refused.find("no RFC server program is registered under program id NOBODY"));
  // ...so the next call on the same connection is understood.
  std::thread server([&] { Serve(handle, 1); });
  CallOutcome fine = caller.Call("TESTPROG", "Z_FINE", "ZORDERS", "IDENT\nc\n");
  server.join();
  ASSERT_TRUE(fine.replied()) << fine.refused;
  EXPECT_EQ(wire::ReplyStatus::kOk, fine.reply.status);
}

TEST_F(ServerTest, CallerThatBreaksOffMidCallCostsTheServerOnlyItsConnection) {
  ConnectionHandle handle = Accept();
  ASSERT_NE(0u, handle);
  // A caller announces a call of a megabyte, sends a little of it and goes.
  {
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
    uint32_t claimed = 1024 * 1024;
    std::memcpy(call.data() + 8, &claimed, 4);  // the header's payload length
    call.resize(call.size() + 1000, 'x');
    ASSERT_EQ(static_cast<ssize_t>(call.size()), ::send(channel.socket().fd(), call.data(), call.size(), 0));
  }
  // The server got a frame that never ends: its connection is closed, and
  // it can register again.
  EXPECT_EQ(RFC_CLOSED, Serve(handle, 1).last_rc);
  ConnectionHandle again = Accept();
  EXPECT_NE(0u, again) << lib.LastError();
}

TEST_F(ServerTest, SeveralServersServeAtOnceEachOnItsOwnHandle) {
  constexpr int kServers = 4;
  constexpr int kCallsEach = 5;
  std::atomic<int> served{0};
  SetHandler("Z_POOL", [&](ConnectionHandle h) -> int {
    RfcParameterEntry no_imports[] = {EndParam()};
    RfcTableEntry tables[] = {Table("BATCH_TABLE", RFCTYPE_CHAR, 40), EndTable()};
    if (lib.RfcGetData(h, no_imports, tables) != RFC_OK) return RFC_FAILURE;
    int32_t lines = static_cast<int32_t>(lib.ItFill(tables[0].handle));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));  // keep the others busy meanwhile
    ++served;
    RfcParameterEntry exports[] = {Param("LINES", RFCTYPE_INT, &lines, 4), EndParam()};
    RfcTableEntry none[] = {EndTable()};
    return lib.RfcSendData(h, exports, none);
  });
  std::vector<std::thread> servers;
  std::vector<ServeResult> results(kServers);
  std::vector<ConnectionHandle> handles(kServers);
  for (int i = 0; i < kServers; ++i) {
    handles[i] = Accept("POOL");
    ASSERT_NE(0u, handles[i]) << lib.LastError();
  }
  for (int i = 0; i < kServers; ++i) {
    servers.emplace_back([&, i] { results[i] = Serve(handles[i], kCallsEach * kServers, 1500); });
  }
  std::vector<std::future<std::vector<std::string>>> callers;
  for (int c = 0; c < kServers; ++c) {
    uint16_t port = sapsim_->port();
    callers.push_back(std::async(std::launch::async, [port] {
      SapCaller caller(port);
      std::vector<std::string> answers;
      for (int i = 0; i < kCallsEach; ++i) {
        CallOutcome outcome = caller.Call("POOL", "Z_POOL", "ZORDERS", "IDENT\na\nb\nc\n");
        answers.push_back(outcome.replied() ? outcome.Export("LINES") : outcome.refused);
      }
      return answers;
    }));
  }
  for (auto& caller : callers) {
    for (const std::string& answer : caller.get()) EXPECT_EQ("3", answer);
  }
  for (std::thread& server : servers) server.join();
  EXPECT_EQ(kServers * kCallsEach, served.load());
  int total = 0;
  for (const ServeResult& result : results) total += result.dispatched;
  EXPECT_EQ(kServers * kCallsEach, total);
}

TEST_F(ServerTest, SeveralClientsCallAtOnceEachOnItsOwnHandle) {
  std::string port = sapsim_->port_text();
  std::vector<std::future<int>> clients;
  for (int c = 0; c < 4; ++c) {
    clients.push_back(std::async(std::launch::async, [&, port] {
      GatewayLogonOptions gateway{"127.0.0.1", port.c_str()};
      OpenOptions open{"", RFC_MODE_GATEWAY, &gateway, "100", "BATCH", "secret", "E", 0};
      ConnectionHandle handle = lib.RfcOpen(&open);
      if (handle == 0) return -1;
      int good = 0;
      for (int i = 0; i < 20; ++i) {
        Chars<30> query("ZORDERS");
        RfcParameterEntry imports[] = {Param("QUERY_TABLE", RFCTYPE_CHAR, query.text, 30), EndParam()};
        RfcParameterEntry none[] = {EndParam()};
        RfcTableEntry tables[] = {Table("DATA", RFCTYPE_CHAR, 512), EndTable()};
        char* exception = nullptr;
        if (lib.RfcCall(handle, "RFC_READ_TABLE", imports, tables) == RFC_OK &&
            lib.RfcReceive(handle, none, tables, &exception) == RFC_OK && lib.ItFill(tables[0].handle) == 3) {
          ++good;
        }
        lib.ItDelete(tables[0].handle);
      }
      lib.RfcClose(handle);
      return good;
    }));
  }
  for (auto& client : clients) EXPECT_EQ(20, client.get());
}

}  // namespace
}  // namespace sapsim::testing
