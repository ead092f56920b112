// librfcsim.so against a running sapsim, for what the batch server's own
// runs cannot provoke: refused and impossible logons, broken partners, calls
// that end badly, and concurrent clients.

#include <sys/socket.h>

#include <cstring>
#include <future>
#include <stdexcept>

#include <gtest/gtest.h>

#include "sapsim/wire/control_messages.h"
#include "sapsim/wire/frame_channel.h"
#include "tests/sapsim/support/library_test.h"
#include "tests/support/polling.h"

namespace sapsim::testing {
namespace {

class Library : public LibraryTest {
 protected:
  void SetUp() override { Start(); }
  bool LastErrorHas(const std::string& part) const { return lib.LastError().find(part) != std::string::npos; }
  int Answer(ConnectionHandle h) {
    NoArgs none;
    return lib.RfcSendData(h, none.params, none.tables);
  }
  // RFC_READ_TABLE of ZORDERS with the OPTIONS lines given: the IDENT of each
  // row read, or the exception raised.
  std::string ReadOrders(ConnectionHandle handle, const std::vector<std::string>& options,
                         int32_t rowcount = 0, const char* table = "ZORDERS") {
    Chars<30> query(table);
    RfcParameterEntry imports[] = {Param("QUERY_TABLE", RFCTYPE_CHAR, query.text, 30),
                                   Param("ROWCOUNT", RFCTYPE_INT, &rowcount, 4), EndParam()};
    TableHandle options_table = lib.ItCreate("OPTIONS", 72, 0, 0);
    for (size_t i = 0; i < options.size(); ++i) {
      std::memcpy(lib.ItGupLine(options_table, static_cast<unsigned>(i + 1)), Chars<72>(options[i]).text, 72);
    }
    RfcTableEntry tables[] = {Table("OPTIONS", RFCTYPE_CHAR, 72, options_table), Table("DATA", RFCTYPE_CHAR, 512),
                              EndTable()};
    NoArgs none;
    std::string exception, idents;
    const int rc = CallReceive(handle, "RFC_READ_TABLE", imports, none.params, tables, &exception);
    for (unsigned n = 1; rc == RFC_OK && n <= lib.ItFill(tables[1].handle); ++n) {
      idents += LineText(lib.ItGetLine(tables[1].handle, n), 0, 10) + ";";
    }
    lib.ItDelete(options_table);
    lib.ItDelete(tables[1].handle);
    return rc == RFC_OK ? idents : exception;
  }
  // What `sapsim call` reports of one call served here: "EXCEPTION=KEY" for
  // an exception, its error output for a failure, "" for success.
  std::string ServeOne(ConnectionHandle server, const std::string& function, const std::string& structure = "ZBATCH_LINE",
                       const std::string& csv = "NAME\n") {
    std::future<testutil::RunResult> call = CallLater(function, structure, csv);
    EXPECT_EQ(1, Serve(server, 1).dispatched) << lib.LastError();
    const testutil::RunResult result = call.get();
    return result.exit_code == 0 ? "" : result.out.empty() ? result.err : result.out;
  }
};

TEST_F(Library, LogonsThatCannotSucceedSayWhy) {
  EXPECT_EQ(0u, Open("wrong"));
  RFC_ERROR_INFO info{};
  lib.RfcLastError(&info);
  EXPECT_STREQ("RFC_ERROR_LOGON_FAILURE", info.key);
  EXPECT_NE(nullptr, std::strstr(info.message, "client 100, user BATCH on system DEV: name or password"));
  EXPECT_EQ(0u, Open("secret", "200"));
  EXPECT_TRUE(LastErrorHas("client does not exist"));

  const std::string closed = "1";  // nothing listens on port 1
  GatewayLogonOptions unreachable{"127.0.0.1", closed.c_str()};
  GatewayLogonOptions empty_gateway{"", "sapgw00"};
  GatewayLogonOptions odd_service{"127.0.0.1", "no-such-service-here"};
  ServerLogonOptions no_host{"", 0, 0, nullptr, nullptr, nullptr, 0, 0};
  ServerLogonOptions number_100{"127.0.0.1", 100, 0, nullptr, nullptr, nullptr, 0, 0};
  const struct { const char* destination; int mode; void* block; std::string message; } cases[] = {
      {"", RFC_MODE_GATEWAY, &unreachable, "127.0.0.1:" + closed},
      {"", RFC_MODE_NONE, nullptr, "mode 2 opens no connection"},
      {"DEV_DEST", RFC_MODE_DESTINATION, nullptr, "destination 'DEV_DEST'"},
      {"", RFC_MODE_SERVER_LOGON, &no_host, "host is empty"},
      {"", RFC_MODE_SERVER_LOGON, &number_100, "system number 100"},
      {"", RFC_MODE_GATEWAY, &empty_gateway, "gateway host is empty"},
      {"", RFC_MODE_GATEWAY, &odd_service, "gateway service no-such-service-here is unknown"},
      {"", 9, nullptr, ""},
  };
  for (const auto& c : cases) {
    OpenOptions options{c.destination, c.mode, c.block, "100", "BATCH", "secret", "E", 0};
    EXPECT_EQ(0u, lib.RfcOpen(&options)) << c.message;
    EXPECT_TRUE(LastErrorHas(c.message)) << lib.LastError();
  }
  OpenOptions unreachable_again{"", RFC_MODE_GATEWAY, &unreachable, "100", "BATCH", "secret", "E", 0};
  EXPECT_EQ(0u, lib.RfcOpen(&unreachable_again));
  EXPECT_EQ(101, lib.LastErrorGroup());
  EXPECT_EQ(RFC_FAILURE, lib.RfcGetAttributes(0, nullptr));
}

TEST_F(Library, ReadTableSelectsCountsAndRefusesBadQueries) {
  const ConnectionHandle handle = Open();
  ASSERT_NE(0u, handle) << lib.LastError();
  const struct {
    std::vector<std::string> options;
    int32_t rowcount;
    const char* table;
    const char* expected;
  } cases[] = {
      {{}, 0, "ZORDERS", "A-1;B-2;C-3;"},
      {{"IDENT = 'B-2'"}, 0, "ZORDERS", "B-2;"},
      {{"ident ne 'B-2' AND", "QTY <> '000005'"}, 0, "ZORDERS", "C-3;"},
      {{"IDENT EQ 'it''s'"}, 0, "ZORDERS", ""},
      {{}, 2, "ZORDERS", "A-1;B-2;"},
      {{"IDENT LIKE 'A%'"}, 0, "ZORDERS", "OPTION_NOT_VALID"},
      {{"IDENT = 'A-1' OR"}, 0, "ZORDERS", "OPTION_NOT_VALID"},
      {{"IDENT = 'A-1' AND"}, 0, "ZORDERS", "OPTION_NOT_VALID"},
      {{"NOFIELD = 'x'"}, 0, "ZORDERS", "OPTION_NOT_VALID"},
      {{"IDENT = 'open"}, 0, "ZORDERS", "OPTION_NOT_VALID"},
      {{"IDENT = A"}, 0, "ZORDERS", "OPTION_NOT_VALID"},
      {{}, 0, "ZNO_SUCH_TABLE", "TABLE_NOT_AVAILABLE"},
      {{}, 0, "RS_PARAMS", "TABLE_NOT_AVAILABLE"},  // a built-in structure, no table
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.expected, ReadOrders(handle, c.options, c.rowcount, c.table)) << c.options.size();
  }
  NoArgs none;
  EXPECT_EQ(RFC_SYS_EXCEPTION, CallReceive(handle, "Z_DOES_NOT_EXIST", none.params, none.params, none.tables));
  EXPECT_TRUE(LastErrorHas("Z_DOES_NOT_EXIST\" not found")) << lib.LastError();
  EXPECT_EQ(RFC_OK, Ping(handle));
  char* exception = nullptr;
  EXPECT_EQ(RFC_FAILURE, lib.RfcReceive(handle, none.params, none.tables, &exception));  // no call made
}

TEST_F(Library, SeveralClientsCallAtOnceEachOnItsOwnHandle) {
  std::vector<std::future<int>> clients;
  for (int c = 0; c < 4; ++c) {
    clients.push_back(std::async(std::launch::async, [this] {
      const ConnectionHandle handle = Logon();  // not kept: the list is not shared between threads
      int good = 0;
      for (int i = 0; handle != 0 && i < 20; ++i) good += ReadOrders(handle, {}) == "A-1;B-2;C-3;";
      lib.RfcClose(handle);
      return good;
    }));
  }
  for (auto& client : clients) EXPECT_EQ(20, client.get());
}

TEST_F(Library, EveryCallIsAnsweredHoweverItsFunctionEnds) {
  const ConnectionHandle server = Accept();
  ASSERT_NE(0u, server) << lib.LastError();
  RfcTypeElement elements[] = {{"COUNT", RFCTYPE_NUM, 6, 0, 0}};
  RfcTypeHandle line_type = -1;
  ASSERT_EQ(RFC_OK, lib.RfcInstallStructure("BATCH_TABLE", elements, 1, &line_type));
  int after_raise = RFC_OK;
  std::string conversion_error;
  SetHandler("Z_REFUSE", [&](ConnectionHandle h) {
    const int rc = lib.RfcRaise(h, "NOT_ALLOWED");
    after_raise = Answer(h);  // already answered
    return rc;
  });
  SetHandler("Z_SILENT", [](ConnectionHandle) { return 0; });
  SetHandler("Z_THROWS", [](ConnectionHandle) -> int { throw std::runtime_error("server function failed"); });
  SetHandler("Z_NEGATIVE", [&](ConnectionHandle h) {
    RfcParameterEntry no_imports[] = {EndParam()};
    RfcTableEntry tables[] = {Table("BATCH_TABLE", line_type, 6), EndTable()};
    if (lib.RfcGetData(h, no_imports, tables) != RFC_OK) conversion_error = lib.LastError();
    return lib.RfcRaise(h, "BAD_DATA");
  });
  SetHandler("Z_FINE", [&](ConnectionHandle h) { return Answer(h); });

  EXPECT_EQ("EXCEPTION=NOT_ALLOWED\n", ServeOne(server, "Z_REFUSE"));
  EXPECT_EQ(RFC_FAILURE, after_raise);
  EXPECT_NE(std::string::npos, ServeOne(server, "Z_SILENT").find("ended without sending data"));
  // COUNT -2 cannot become this server's NUM field.
  EXPECT_EQ("EXCEPTION=BAD_DATA\n", ServeOne(server, "Z_NEGATIVE", "ZBATCH_LINE", "NAME,COUNT\nx,1\ny,-2\n"));
  EXPECT_EQ("RFC_ERROR_CONVERSION: call of Z_NEGATIVE: table BATCH_TABLE, line 2: field COUNT: -2 is negative and "
            "cannot be a NUM",
            conversion_error);
  // The exception passes through RfcDispatch; the caller is answered anyway.
  std::future<testutil::RunResult> throws = CallLater("Z_THROWS");
  ASSERT_TRUE(testutil::Eventually([&] { return lib.RfcListen(server) != RFC_NOTHING_WAITING; }));
  EXPECT_THROW(lib.RfcDispatch(server), std::runtime_error);
  EXPECT_NE(std::string::npos, throws.get().err.find("ended with an exception"));
  // The connection goes on serving; outside a call there is nothing to read or answer.
  EXPECT_EQ("", ServeOne(server, "Z_FINE"));
  char name[RFC_FUNCTION_NAME_SIZE];
  EXPECT_EQ(RFC_FAILURE, lib.RfcGetName(server, name));
  EXPECT_EQ(RFC_FAILURE, lib.RfcRaise(server, "LATE"));
  NoArgs none;
  EXPECT_EQ(RFC_FAILURE, lib.RfcCall(server, "RFCPING", none.params, none.tables));
}

TEST_F(Library, CallerThatBreaksOffMidCallCostsTheServerOnlyItsConnection) {
  const ConnectionHandle server = Accept();
  ASSERT_NE(0u, server) << lib.LastError();
  {
    // A caller announces a call of a megabyte, sends a little of it and goes.
    std::string error;
    wire::FrameChannel channel(wire::Socket::Connect("127.0.0.1", sapsim_->port(), &error));
    wire::Hello hello;
    hello.kind = wire::SessionKind::kCaller;
    wire::FrameWriter frame = hello.Encode();
    ASSERT_EQ(wire::IoStatus::kOk, channel.Send(frame, &error)) << error;
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
  EXPECT_EQ(RFC_CLOSED, Serve(server, 1).last_rc);
  EXPECT_NE(0u, Accept()) << lib.LastError();
}

}  // namespace
}  // namespace sapsim::testing
