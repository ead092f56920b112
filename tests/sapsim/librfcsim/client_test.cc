// The client side of librfcsim.so against a running sapsim: logon, modes,
// attributes, calls, failures. (An empty release and the system parameters
// that tell it: the class library's tests against sapsim.)

#include <signal.h>

#include <cstdlib>
#include <cstring>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "tests/sapsim/support/library_test.h"

namespace sapsim::testing {
namespace {

class ClientTest : public LibraryTest {
 protected:
  void SetUp() override { Start(); }
  bool LastErrorHas(const std::string& part) const { return lib.LastError().find(part) != std::string::npos; }
};

TEST_F(ClientTest, LogsOnInEitherModeAndReportsTheSystemInTheAttributes) {
  ConnectionHandle handle = Open();
  ASSERT_NE(0u, handle) << lib.LastError();
  EXPECT_EQ(RFC_OK, Ping(handle)) << lib.LastError();
  ConnectionAttributes attributes;
  std::memset(&attributes, 'x', sizeof attributes);
  ASSERT_EQ(RFC_OK, lib.RfcGetAttributes(handle, &attributes));
  const char* raw = reinterpret_cast<const char*>(&attributes);
  EXPECT_STREQ("46C", raw + RFC_ATTRIBUTES_PARTNER_RELEASE_OFFSET);
  EXPECT_STREQ("46D", raw + RFC_ATTRIBUTES_KERNEL_RELEASE_OFFSET);
  EXPECT_STREQ("DEV", attributes.system_id);
  EXPECT_STREQ("simhost", attributes.partner_host);
  EXPECT_STREQ("100", attributes.client);
  EXPECT_EQ('C', attributes.rfc_role);
  EXPECT_EQ('3', attributes.partner_type);
  lib.RfcClose(handle);
  EXPECT_EQ(RFC_FAILURE, Ping(handle));
  EXPECT_TRUE(LastErrorHas("not an open connection"));

  // Mode 0 reaches the application server through the gateway; user names
  // are not case-sensitive.
  const std::string port = sapsim_->port_text();
  ApplicationServerOptions server{"simhost", 0, "127.0.0.1", port.c_str()};
  OpenOptions options{"DEV", RFC_MODE_APPLICATION_SERVER, &server, "100", "batch", "secret", "D", 0};
  handle = Keep(lib.RfcOpen(&options));
  ASSERT_NE(0u, handle) << lib.LastError();
  lib.RfcGetAttributes(handle, &attributes);
  EXPECT_STREQ("BATCH", attributes.user);
  EXPECT_STREQ("D", attributes.language);
}

TEST_F(ClientTest, RefusedLogonNamesClientAndUser) {
  EXPECT_EQ(0u, Open("wrong"));
  RFC_ERROR_INFO info{};
  lib.RfcLastError(&info);
  EXPECT_STREQ("RFC_ERROR_LOGON_FAILURE", info.key);
  EXPECT_NE(nullptr, std::strstr(info.message, "client 100, user BATCH on system DEV: name or password"));
  EXPECT_EQ(0u, Open("secret", "200"));
  EXPECT_TRUE(LastErrorHas("client does not exist"));
  EXPECT_NE(std::string::npos, sapsim_->Log().find("logon failed for client 100, user BATCH"));
}

TEST_F(ClientTest, OpenThatCannotConnectSaysWhy) {
  const std::string closed = std::to_string(UnusedPort());
  GatewayLogonOptions unreachable{"127.0.0.1", closed.c_str()};
  GatewayLogonOptions empty_gateway{"", "sapgw00"};
  GatewayLogonOptions odd_service{"127.0.0.1", "no-such-service-here"};
  ServerLogonOptions no_host{"", 0, 0, nullptr, nullptr, nullptr, 0, 0};
  const struct {
    const char* destination;
    int mode;
    void* block;
    std::string message;
    int group;  // 0: not looked at
  } cases[] = {
      {"", RFC_MODE_GATEWAY, &unreachable, "127.0.0.1:" + closed, 101},
      {"", RFC_MODE_NONE, nullptr, "mode 2 opens no connection", 0},
      {"DEV_DEST", RFC_MODE_DESTINATION, nullptr, "destination 'DEV_DEST'", 0},
      {"DEV_DEST", RFC_MODE_DESTINATION, nullptr, "no destinations file", 0},
      {"", RFC_MODE_SERVER_LOGON, &no_host, "host is empty", 0},
      {"", RFC_MODE_GATEWAY, &empty_gateway, "gateway host is empty", 0},
      {"", RFC_MODE_GATEWAY, &odd_service, "gateway service no-such-service-here is unknown", 0},
      {"", 9, nullptr, "", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    OpenOptions options{c.destination, c.mode, c.block, "100", "BATCH", "secret", "E", 0};
    EXPECT_EQ(0u, lib.RfcOpen(&options));
    EXPECT_TRUE(LastErrorHas(c.message)) << lib.LastError();
    if (c.group != 0) {
      EXPECT_EQ(c.group, lib.LastErrorGroup());
    }
  }
  EXPECT_EQ(RFC_FAILURE, lib.RfcGetAttributes(0, nullptr));
}

TEST_F(ClientTest, SystemNumberMeansPort33NN) {
  // A system number whose port is free on this machine.
  std::unique_ptr<SapsimProcess> numbered;
  int number = 99;
  for (; number >= 0 && !numbered; --number) {
    try {
      SapsimProcess::Options options;
      options.system_file = dir_.Write("numbered.json", SmallSystem());
      options.port = static_cast<uint16_t>(3300 + number);
      numbered = std::make_unique<SapsimProcess>(options);
    } catch (const std::runtime_error&) {
      // taken by something else
    }
  }
  ASSERT_TRUE(numbered) << "no port 3300..3399 free";
  ServerLogonOptions block{"127.0.0.1", number + 1, 0, nullptr, nullptr, nullptr, 0, 0};
  OpenOptions options{"", RFC_MODE_SERVER_LOGON, &block, "100", "BATCH", "secret", "E", 0};
  const ConnectionHandle handle = Keep(lib.RfcOpen(&options));
  ASSERT_NE(0u, handle) << lib.LastError();
  EXPECT_EQ(RFC_OK, Ping(handle));
  block.system_number = 100;
  EXPECT_EQ(0u, lib.RfcOpen(&options));
  EXPECT_TRUE(LastErrorHas("system number 100"));
  EXPECT_EQ(0, numbered->Stop());
}

TEST_F(ClientTest, LoadBalancingAsksTheMessageServerForTheGroup) {
  Start(SmallSystem(), true);
  ASSERT_EQ(0, setenv("RFCSIM_MS_PORT", std::to_string(sapsim_->ms_port()).c_str(), 1));
  ServerLogonOptions block{nullptr, 0, 1, "127.0.0.1", "DEV", "SPACE", 0, 0};
  OpenOptions options{"", RFC_MODE_SERVER_LOGON, &block, "100", "BATCH", "secret", "E", 0};
  const ConnectionHandle handle = Keep(lib.RfcOpen(&options));
  ASSERT_NE(0u, handle) << lib.LastError();
  EXPECT_EQ(RFC_OK, Ping(handle));

  block.group = "NOSUCHGROUP";
  EXPECT_EQ(0u, lib.RfcOpen(&options));
  EXPECT_TRUE(LastErrorHas("logon group NOSUCHGROUP is not known")) << lib.LastError();
  block.group = "PUBLIC";
  block.system_name = "PRD";
  EXPECT_EQ(0u, lib.RfcOpen(&options));
  EXPECT_TRUE(LastErrorHas("does not serve system PRD"));
  unsetenv("RFCSIM_MS_PORT");
}

TEST_F(ClientTest, UnknownFunctionModuleIsASystemFailureAndTheConnectionStaysGood) {
  const ConnectionHandle handle = Open();
  ASSERT_NE(0u, handle);
  NoArgs none;
  EXPECT_EQ(RFC_SYS_EXCEPTION, CallReceive(handle, "Z_DOES_NOT_EXIST", none.params, none.params, none.tables));
  EXPECT_TRUE(LastErrorHas("Z_DOES_NOT_EXIST\" not found")) << lib.LastError();
  EXPECT_EQ(RFC_OK, Ping(handle));
  // A receive without a call is a mistake of the caller.
  char* exception = nullptr;
  EXPECT_EQ(RFC_FAILURE, lib.RfcReceive(handle, none.params, none.tables, &exception));
}

TEST_F(ClientTest, PartnerThatDisappearsDuringReceiveGivesAFailureNotAHang) {
  const ConnectionHandle handle = Open();
  ASSERT_NE(0u, handle);
  // Stopped, the system cannot answer; the receive waits until the process is gone.
  ASSERT_TRUE(sapsim_->Pause());
  NoArgs none;
  ASSERT_EQ(RFC_OK, lib.RfcCall(handle, "RFCPING", none.params, none.tables));
  std::future<std::pair<int, std::string>> outcome = std::async(std::launch::async, [&] {
    char* exception = nullptr;
    const int rc = lib.RfcReceive(handle, none.params, none.tables, &exception);
    return std::make_pair(rc, lib.LastError());
  });
  EXPECT_EQ(std::future_status::timeout, outcome.wait_for(std::chrono::milliseconds(200)));
  sapsim_->Signal(SIGKILL);
  ASSERT_EQ(std::future_status::ready, outcome.wait_for(std::chrono::seconds(20)));
  const auto [rc, error] = outcome.get();
  EXPECT_EQ(RFC_CLOSED, rc);
  EXPECT_NE(std::string::npos, error.find("closed by partner during the call of RFCPING")) << error;
  EXPECT_EQ(RFC_CLOSED, lib.RfcCall(handle, "RFCPING", none.params, none.tables));
  sapsim_->Stop();
  sapsim_.reset();
}

TEST_F(ClientTest, SeveralClientsCallAtOnceEachOnItsOwnHandle) {
  std::vector<std::future<int>> clients;
  for (int c = 0; c < 4; ++c) {
    clients.push_back(std::async(std::launch::async, [this] {
      const std::string port = sapsim_->port_text();
      GatewayLogonOptions gateway{"127.0.0.1", port.c_str()};
      OpenOptions open{"", RFC_MODE_GATEWAY, &gateway, "100", "BATCH", "secret", "E", 0};
      const ConnectionHandle handle = lib.RfcOpen(&open);
      int good = 0;
      for (int i = 0; handle != 0 && i < 20; ++i) {
        Chars<30> query("ZORDERS");
        RfcParameterEntry imports[] = {Param("QUERY_TABLE", RFCTYPE_CHAR, query.text, 30), EndParam()};
        RfcTableEntry tables[] = {Table("DATA", RFCTYPE_CHAR, 512), EndTable()};
        NoArgs none;
        if (CallReceive(handle, "RFC_READ_TABLE", imports, none.params, tables) == RFC_OK &&
            lib.ItFill(tables[0].handle) == 3) {
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
