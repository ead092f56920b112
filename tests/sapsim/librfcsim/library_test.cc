// librfcsim.so against a running sapsim, for what the batch server's own runs cannot provoke: refused
// logons, broken partners, calls that end badly, concurrent clients; and `sapsim` run as users run it.

#include <sys/socket.h>

#include <cstring>
#include <functional>
#include <future>
#include <map>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "sapsim/wire/control_messages.h"
#include "sapsim/wire/frame_channel.h"
#include "tests/sapsim/support/rfc_library.h"
#include "tests/sapsim/support/sapsim_process.h"
#include "tests/sapsim/support/system_files.h"
#include "tests/support/expected_file.h"
#include "tests/support/polling.h"

namespace sapsim::testing {
namespace {

const std::string kExamples = testutil::SourceDir() + "/examples/";

RfcParameterEntry Param(const char* name, int32_t type, void* address, uint32_t length) {
  return RfcParameterEntry{name, static_cast<uint32_t>(std::strlen(name)), type, length, address};
}
RfcTableEntry Table(const char* name, int32_t type, uint32_t line_length, TableHandle handle = nullptr) {
  return RfcTableEntry{name, static_cast<uint32_t>(std::strlen(name)), type, line_length, handle, 0, 0};
}
// Empty parameter and table arrays, for calls that pass nothing.
RfcParameterEntry g_no_params[1] = {};
RfcTableEntry g_no_tables[1] = {};

// Set before any thread that dispatches starts: no lock.
std::map<std::string, std::function<int(ConnectionHandle)>> g_handlers;

int CatchAll(ConnectionHandle handle) {
  char name[RFC_FUNCTION_NAME_SIZE];
  if (RfcGetName(handle, name) != RFC_OK) return RFC_FAILURE;
  const auto handler = g_handlers.find(name);
  return handler != g_handlers.end() ? handler->second(handle) : RfcRaise(handle, "NO_HANDLER_IN_TEST");
}

// Until `calls` calls, the end of the connection, or no call within the patience. The last
// result: RFC_CLOSED when the connection ended, RFC_NOTHING_WAITING at the time limit.
int Serve(ConnectionHandle handle, int calls) {
  int rc = RFC_OK;
  for (int dispatched = 0; rc == RFC_OK && dispatched < calls; ++dispatched) {
    testutil::Eventually([&] { return (rc = RfcListen(handle)) != RFC_NOTHING_WAITING; });
    if (rc == RFC_OK) rc = RfcDispatch(handle);
  }
  return rc;
}

std::string Sapsim(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), SapsimPath());
  return testutil::RunTranscript("sapsim", arguments);
}

// A running system; client logons and registrations are closed at the end.
class Library : public ::testing::Test {
 protected:
  void SetUp() override { Start(SmallSystem()); }
  void TearDown() override {
    for (ConnectionHandle handle : handles_) RfcClose(handle);
    EXPECT_EQ(0, sapsim_->Stop()) << sapsim_->Log();
  }
  void Start(const std::string& system) {
    ASSERT_TRUE(LoadRfcLibrary(LibraryPath().c_str()));
    sapsim_ = std::make_unique<SapsimProcess>(SapsimProcess::Options{dir_.Write("system.json", system), 0, false, {}});
    RfcInstallFunction(RFC_GLOBAL_SERVER_NAME, &CatchAll, "tests");
  }

  // 0 when refused. Not kept, so that threads can log on.
  ConnectionHandle Logon(const char* password = "secret", const char* client = "100") {
    const std::string port = sapsim_->port_text();
    GatewayLogonOptions gateway{"127.0.0.1", port.c_str()};
    OpenOptions options{"", RFC_MODE_GATEWAY, &gateway, client, "BATCH", password, "E", 0};
    return RfcOpen(&options);
  }
  ConnectionHandle Accept(const std::string& program_id = "TESTPROG") {
    std::string a = "-a" + program_id, g = "-g127.0.0.1", x = "-x" + sapsim_->port_text();
    char* argv[] = {a.data(), g.data(), x.data(), nullptr};
    return Keep(RfcAccept(argv));
  }
  ConnectionHandle Keep(ConnectionHandle handle) {
    if (handle != 0) handles_.push_back(handle);
    return handle;
  }

  int CallReceive(ConnectionHandle handle, const char* function, RfcParameterEntry* imports,
                  RfcParameterEntry* exports, RfcTableEntry* tables, std::string* exception = nullptr) {
    int rc = RfcCall(handle, function, imports, tables);
    if (rc != RFC_OK) return rc;
    char* raised = nullptr;
    rc = RfcReceive(handle, exports, tables, &raised);
    if (exception != nullptr) *exception = raised != nullptr ? raised : "";
    return rc;
  }
  int Answer(ConnectionHandle h) { return RfcSendData(h, g_no_params, g_no_tables); }
  // The IDENT of each row read, or the exception raised.
  std::string ReadOrders(ConnectionHandle handle, const std::vector<std::string>& options,
                         int32_t rowcount = 0, const std::string& table = "ZORDERS") {
    std::string query = table + std::string(30 - table.size(), ' ');
    RfcParameterEntry imports[] = {Param("QUERY_TABLE", RFCTYPE_CHAR, query.data(), 30),
                                   Param("ROWCOUNT", RFCTYPE_INT, &rowcount, 4), {}};
    TableHandle options_table = ItCreate("OPTIONS", 72, 0, 0);
    for (size_t i = 0; i < options.size(); ++i) {
      const std::string line = options[i] + std::string(72 - options[i].size(), ' ');
      std::memcpy(ItGupLine(options_table, static_cast<unsigned>(i + 1)), line.data(), 72);
    }
    RfcTableEntry tables[] = {Table("OPTIONS", RFCTYPE_CHAR, 72, options_table), Table("DATA", RFCTYPE_CHAR, 512), {}};
    std::string exception, idents;
    const int rc = CallReceive(handle, "RFC_READ_TABLE", imports, g_no_params, tables, &exception);
    for (unsigned n = 1; rc == RFC_OK && n <= ItFill(tables[1].handle); ++n) {
      const std::string ident(static_cast<const char*>(ItGetLine(tables[1].handle, n)), 10);
      idents += ident.substr(0, ident.find_last_not_of(' ') + 1) + ";";
    }
    ItDelete(options_table);
    ItDelete(tables[1].handle);
    return rc == RFC_OK ? idents : exception;
  }

  // `sapsim call` of TESTPROG's `function` in the background.
  std::future<testutil::RunResult> CallLater(const std::string& function, const std::string& csv = "NAME\n") {
    const std::vector<std::string> command = {SapsimPath(), "call", "--port", sapsim_->port_text(), "--program-id",
                                              "TESTPROG", "--function", function, "--structure", "ZBATCH_LINE",
                                              "--csv", dir_.Write(function + ".csv", csv)};
    return std::async(std::launch::async, [command] { return testutil::RunCommand(command); });
  }
  // "EXCEPTION=KEY", the error output of a failure, or "" for success.
  std::string ServeOne(ConnectionHandle server, const std::string& function, const std::string& csv = "NAME\n") {
    std::future<testutil::RunResult> call = CallLater(function, csv);
    EXPECT_EQ(RFC_OK, Serve(server, 1)) << LastError();
    const testutil::RunResult result = call.get();
    return result.exit_code == 0 ? "" : result.out.empty() ? result.err : result.out;
  }

  testutil::TempDir dir_;
  std::unique_ptr<SapsimProcess> sapsim_;
  std::vector<ConnectionHandle> handles_;
};

TEST_F(Library, LogonsThatCannotSucceedSayWhyAndReadTableSelects) {
  GatewayLogonOptions unreachable{"127.0.0.1", "1"};  // nothing listens on port 1
  GatewayLogonOptions empty_gateway{"", "sapgw00"};
  GatewayLogonOptions odd_service{"127.0.0.1", "no-such-service-here"};
  ServerLogonOptions no_host{"", 0, 0, nullptr, nullptr, nullptr, 0, 0};
  ServerLogonOptions number_100{"127.0.0.1", 100, 0, nullptr, nullptr, nullptr, 0, 0};
  const struct { const char* what; const char* destination; int mode; void* block; } cases[] = {
      {"unreachable gateway", "", RFC_MODE_GATEWAY, &unreachable},
      {"mode none", "", RFC_MODE_NONE, nullptr},
      {"destination", "DEV_DEST", RFC_MODE_DESTINATION, nullptr},
      {"server without host", "", RFC_MODE_SERVER_LOGON, &no_host},
      {"system number 100", "", RFC_MODE_SERVER_LOGON, &number_100},
      {"gateway without host", "", RFC_MODE_GATEWAY, &empty_gateway},
      {"unknown gateway service", "", RFC_MODE_GATEWAY, &odd_service},
      {"mode 9", "", 9, nullptr},
  };
  const auto outcome = [&](const std::string& what, ConnectionHandle handle) {
    const std::string group = std::to_string(LastErrorGroup());
    return what + (Keep(handle) == 0 ? ": refused, group " : ": opened, group ") + group + "\n  " + LastError() + "\n";
  };
  std::string text = outcome("wrong password", Logon("wrong")) + outcome("unknown client", Logon("secret", "200"));
  for (const auto& c : cases) {
    OpenOptions options{c.destination, c.mode, c.block, "100", "BATCH", "secret", "E", 0};
    text += outcome(c.what, RfcOpen(&options));
  }
  EXPECT_EQ(RFC_FAILURE, RfcGetAttributes(0, nullptr));
  const ConnectionHandle handle = Keep(Logon());
  ASSERT_NE(0u, handle) << LastError();
  const struct {
    std::vector<std::string> options;
    int32_t rowcount = 0;
    const char* table = "ZORDERS";
  } reads[] = {
      {{}},  {{"IDENT = 'B-2'"}}, {{"ident ne 'B-2' AND", "QTY <> '000005'"}}, {{"IDENT EQ 'it''s'"}}, {{}, 2},
      {{"IDENT LIKE 'A%'"}},  {{"IDENT = 'A-1' OR"}}, {{"IDENT = 'A-1' AND"}}, {{"NOFIELD = 'x'"}},
      {{"IDENT = 'open"}}, {{"IDENT = A"}}, {{}, 0, "ZNO_SUCH_TABLE"},
      {{}, 0, "RS_PARAMS"},  // a built-in structure, no table
  };
  for (const auto& c : reads) {
    text += std::string(c.table) + " rows " + std::to_string(c.rowcount);
    for (const std::string& option : c.options) text += " [" + option + "]";
    text += " -> " + ReadOrders(handle, c.options, c.rowcount, c.table) + "\n";
  }
  for (const char* function : {"Z_DOES_NOT_EXIST", "RFCPING"}) {
    const int rc = CallReceive(handle, function, g_no_params, g_no_params, g_no_tables);
    text += std::string(function) + " -> " + std::to_string(rc) + " " + (rc != RFC_OK ? LastError() : "") + "\n";
  }
  char* exception = nullptr;
  text += "receive without a call -> " + std::to_string(RfcReceive(handle, g_no_params, g_no_tables, &exception));
  text = testutil::WithPlaceholders(text, {{"\\b" + sapsim_->port_text() + "\\b", "<port>"}});
  EXPECT_TRUE(testutil::MatchesExpectedFile(text + "\n", "tests/sapsim/expected/library_client.txt"));
}

TEST_F(Library, SeveralClientsCallAtOnceEachOnItsOwnHandle) {
  std::vector<std::future<int>> clients;
  for (int c = 0; c < 4; ++c) {
    clients.push_back(std::async(std::launch::async, [this] {
      const ConnectionHandle handle = Logon();
      int good = 0;
      for (int i = 0; handle != 0 && i < 20; ++i) good += ReadOrders(handle, {}) == "A-1;B-2;C-3;";
      RfcClose(handle);
      return good;
    }));
  }
  for (auto& client : clients) EXPECT_EQ(20, client.get());
}

TEST_F(Library, EveryCallIsAnsweredHoweverItsFunctionEndsOrItsCallerBreaksOff) {
  const ConnectionHandle server = Accept();
  ASSERT_NE(0u, server) << LastError();
  RfcTypeElement elements[] = {{"COUNT", RFCTYPE_NUM, 6, 0, 0}};
  RfcTypeHandle line_type = -1;
  ASSERT_EQ(RFC_OK, RfcInstallStructure("BATCH_TABLE", elements, 1, &line_type));
  int after_raise = RFC_OK;
  std::string conversion_error;
  g_handlers["Z_REFUSE"] = [&](ConnectionHandle h) {
    const int rc = RfcRaise(h, "NOT_ALLOWED");
    after_raise = Answer(h);  // already answered
    return rc;
  };
  g_handlers["Z_SILENT"] = [](ConnectionHandle) { return 0; };
  g_handlers["Z_THROWS"] = [](ConnectionHandle) -> int { throw std::runtime_error("server function failed"); };
  g_handlers["Z_NEGATIVE"] = [&](ConnectionHandle h) {
    RfcParameterEntry no_imports[] = {{}};
    RfcTableEntry tables[] = {Table("BATCH_TABLE", line_type, 6), {}};
    if (RfcGetData(h, no_imports, tables) != RFC_OK) conversion_error = LastError();
    return RfcRaise(h, "BAD_DATA");
  };
  g_handlers["Z_FINE"] = [&](ConnectionHandle h) { return Answer(h); };

  std::string text;
  for (const char* function : {"Z_REFUSE", "Z_SILENT", "Z_NEGATIVE"}) {  // COUNT -2 is no NUM
    text += std::string(function) + ": " + ServeOne(server, function, "NAME,COUNT\nx,1\ny,-2\n");
  }
  text += "answer after the raise: " + std::to_string(after_raise) + "\n" + conversion_error + "\n";
  // The exception passes through RfcDispatch; the caller is answered anyway.
  std::future<testutil::RunResult> throws = CallLater("Z_THROWS");
  ASSERT_TRUE(testutil::Eventually([&] { return RfcListen(server) != RFC_NOTHING_WAITING; }));
  EXPECT_THROW(RfcDispatch(server), std::runtime_error);
  text += "Z_THROWS: " + throws.get().err;
  text += "Z_FINE: " + ServeOne(server, "Z_FINE") + "\n";  // the connection goes on serving
  char name[RFC_FUNCTION_NAME_SIZE];  // outside a call there is nothing to read or answer
  text += "outside a call: " + std::to_string(RfcGetName(server, name)) + " ";
  text += std::to_string(RfcRaise(server, "LATE")) + " ";
  text += std::to_string(RfcCall(server, "RFCPING", g_no_params, g_no_tables)) + "\n";
  EXPECT_TRUE(testutil::MatchesExpectedFile(text, "tests/sapsim/expected/library_server.txt"));
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
  EXPECT_EQ(RFC_CLOSED, Serve(server, 1));
}

class SapsimCall : public Library {
 protected:
  void SetUp() override { Start(testutil::ReadBytes(kExamples + "system.json")); }
  std::string Call(const std::string& structure, const std::string& csv, std::vector<std::string> more = {}) {
    std::vector<std::string> arguments = {"call", "--port", sapsim_->port_text(), "--program-id", "BATCHSRV",
                                          "--function", "Z_BATCH_ORDERS", "--structure", structure, "--csv", csv};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Sapsim(arguments);
  }
};

TEST_F(SapsimCall, StartsCallsRepeatsAndRefusals) {
  const std::string file = dir_.Write("bad.json", R"({"system_id": "DEV", "release": "46C",
    "structures": {"ZS": [{"name": "A", "type": "C", "length": 2}]},
    "tables": {"ZS": [{"A": "ok"}, {"A": "too long"}]}})");
  std::string text;
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"serve", "--system", file, "--port", "0"}, {"serve", "--system", dir_.File("none.json")},
           {"serve", "--port", "0"}, {"serve", "--system", file, "--port", "70000"}, {},
           {"serve", "--system", kExamples + "system.json", "--port", sapsim_->port_text()}}) {
    text += Sapsim(arguments);
  }
  g_handlers["Z_BATCH_ORDERS"] = [&](ConnectionHandle h) { return Answer(h); };
  const ConnectionHandle handle = Accept("BATCHSRV");
  ASSERT_NE(0u, handle) << LastError();
  std::thread server([&] { Serve(handle, 5); });
  text += Call("ZBATCH_ORDER", kExamples + "batches/orders.csv", {"--repeat", "4"});
  // The other sample batch must fit the example system too.
  text += Call("ZBATCH_CUSTOMER", kExamples + "batches/customers.csv");
  server.join();
  text += Call("ZBATCH_ORDER", dir_.Write("unknown.csv", "H_IDENT,COLOUR\nx,red\n"));
  text += Call("ZBATCH_ORDER", dir_.Write("long.csv", "H_IDENT,T_IDENT\nH1,T1\nH2,T_IDENT_TOO_LONG\n"));
  text += Call("ZBATCH_ORDER", dir_.Write("number.csv", "IDENT,QUANTITY\n1,12\n2,twelve\n"));
  text += Call("ZBATCH_ORDER", dir_.File("absent.csv"));
  text += Call("ZNOPE", kExamples + "batches/orders.csv");
  text += Sapsim({"call", "--port", sapsim_->port_text()});
  text = testutil::WithPlaceholders(text, {{testutil::Literal(dir_.path()), "<dir>"},
                                           {testutil::Literal(kExamples), "<examples>/"},
                                           {"\\b" + sapsim_->port_text() + "\\b", "<port>"},
                                           {"(seconds|per_second)=[0-9.]+", "$1=<n>"}});
  EXPECT_TRUE(testutil::MatchesExpectedFile(text, "tests/sapsim/expected/sapsim_call.txt"));
}

}  // namespace
}  // namespace sapsim::testing
