// The client side of librfcsim.so against a running sapsim: logon, modes,
// attributes, calls, failures.

#include <signal.h>

#include <cstdlib>
#include <cstring>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "tests/sapsim/support/rfc_calls.h"
#include "tests/sapsim/support/rfc_library.h"
#include "tests/sapsim/support/sapsim_process.h"
#include "tests/sapsim/support/system_files.h"

namespace sapsim::testing {
namespace {

class ClientTest : public ::testing::Test {
 protected:
  void SetUp() override { Start(SmallSystem()); }
  void TearDown() override {
    if (sapsim_) {
      EXPECT_EQ(0, sapsim_->Stop()) << sapsim_->Log();
    }
  }
  void Start(const std::string& system, bool message_server = false) {
    if (sapsim_) sapsim_->Stop();
    SapsimProcess::Options options;
    options.system_file = dir_.Write("system.json", system);
    options.message_server = message_server;
    sapsim_ = std::make_unique<SapsimProcess>(options);
  }

  // Logs on through the gateway (mode 1).
  ConnectionHandle Open(const char* password = "secret", const char* client = "100") {
    std::string port = sapsim_->port_text();
    GatewayLogonOptions gateway{"127.0.0.1", port.c_str()};
    OpenOptions options{"", RFC_MODE_GATEWAY, &gateway, client, "BATCH", password, "E", 0};
    return lib.RfcOpen(&options);
  }

  int Ping(ConnectionHandle handle) {
    RfcParameterEntry none[] = {EndParam()};
    RfcTableEntry no_tables[] = {EndTable()};
    int rc = lib.RfcCall(handle, "RFCPING", none, no_tables);
    if (rc != RFC_OK) return rc;
    char* exception = nullptr;
    return lib.RfcReceive(handle, none, no_tables, &exception);
  }

  const RfcLibrary& lib = RfcLibrary::Get();
  TempDir dir_;
  std::unique_ptr<SapsimProcess> sapsim_;
};

TEST_F(ClientTest, LogsOnPingsAndReportsTheSystemsReleases) {
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
  EXPECT_STREQ("BATCH", attributes.user);
  EXPECT_EQ('C', attributes.rfc_role);
  EXPECT_EQ('3', attributes.partner_type);
  lib.RfcClose(handle);
  EXPECT_EQ(RFC_FAILURE, Ping(handle));  // the handle is gone
  EXPECT_NE(std::string::npos, lib.LastError().find("not an open connection"));
}

TEST_F(ClientTest, ApplicationServerModeGoesThroughTheGateway) {
  std::string port = sapsim_->port_text();
  ApplicationServerOptions server{"simhost", 0, "127.0.0.1", port.c_str()};
  OpenOptions options{"DEV", RFC_MODE_APPLICATION_SERVER, &server, "100", "batch", "secret", "D", 0};
  ConnectionHandle handle = lib.RfcOpen(&options);
  ASSERT_NE(0u, handle) << lib.LastError();
  ConnectionAttributes attributes{};
  lib.RfcGetAttributes(handle, &attributes);
  EXPECT_STREQ("BATCH", attributes.user);  // user names are not case-sensitive
  EXPECT_STREQ("D", attributes.language);
  lib.RfcClose(handle);
}

TEST_F(ClientTest, RefusedLogonNamesClientAndUser) {
  EXPECT_EQ(0u, Open("wrong"));
  RFC_ERROR_INFO info{};
  lib.RfcLastError(&info);
  EXPECT_STREQ("RFC_ERROR_LOGON_FAILURE", info.key);
  EXPECT_NE(nullptr, std::strstr(info.message, "client 100"));
  EXPECT_NE(nullptr, std::strstr(info.message, "user BATCH"));
  EXPECT_NE(nullptr, std::strstr(info.message, "password"));
  EXPECT_EQ(0u, Open("secret", "200"));
  EXPECT_NE(std::string::npos, lib.LastError().find("client does not exist"));
  EXPECT_NE(std::string::npos, sapsim_->Log().find("logon failed for client 100, user BATCH"));
}

TEST_F(ClientTest, UnreachablePartnerNamesHostAndPort) {
  uint16_t port = UnusedPort();
  std::string service = std::to_string(port);
  GatewayLogonOptions gateway{"127.0.0.1", service.c_str()};
  OpenOptions options{"", RFC_MODE_GATEWAY, &gateway, "100", "BATCH", "secret", "E", 0};
  EXPECT_EQ(0u, lib.RfcOpen(&options));
  EXPECT_NE(std::string::npos, lib.LastError().find("127.0.0.1:" + service)) << lib.LastError();
  EXPECT_EQ(101, lib.LastErrorGroup());
}

TEST_F(ClientTest, ModesThatCannotConnectSaySoClearly) {
  OpenOptions none{"", RFC_MODE_NONE, nullptr, "100", "BATCH", "secret", "E", 0};
  EXPECT_EQ(0u, lib.RfcOpen(&none));
  EXPECT_NE(std::string::npos, lib.LastError().find("mode 2 opens no connection"));

  OpenOptions destination{"DEV_DEST", RFC_MODE_DESTINATION, nullptr, "100", "BATCH", "secret", "E", 0};
  EXPECT_EQ(0u, lib.RfcOpen(&destination));
  EXPECT_NE(std::string::npos, lib.LastError().find("destination 'DEV_DEST'"));
  EXPECT_NE(std::string::npos, lib.LastError().find("no destinations file"));

  ServerLogonOptions no_host{"", 0, 0, nullptr, nullptr, nullptr, 0, 0};
  OpenOptions server{"", RFC_MODE_SERVER_LOGON, &no_host, "100", "BATCH", "secret", "E", 0};
  EXPECT_EQ(0u, lib.RfcOpen(&server));
  EXPECT_NE(std::string::npos, lib.LastError().find("host is empty"));

  GatewayLogonOptions empty_gateway{"", "sapgw00"};
  OpenOptions gateway{"", RFC_MODE_GATEWAY, &empty_gateway, "100", "BATCH", "secret", "E", 0};
  EXPECT_EQ(0u, lib.RfcOpen(&gateway));
  EXPECT_NE(std::string::npos, lib.LastError().find("gateway host is empty"));

  GatewayLogonOptions odd_service{"127.0.0.1", "no-such-service-here"};
  OpenOptions odd{"", RFC_MODE_GATEWAY, &odd_service, "100", "BATCH", "secret", "E", 0};
  EXPECT_EQ(0u, lib.RfcOpen(&odd));
  EXPECT_NE(std::string::npos, lib.LastError().find("gateway service no-such-service-here is unknown"));

  OpenOptions unknown{"", 9, nullptr, "100", "BATCH", "secret", "E", 0};
  EXPECT_EQ(0u, lib.RfcOpen(&unknown));
  EXPECT_EQ(RFC_FAILURE, lib.RfcGetAttributes(0, nullptr));
}

TEST_F(ClientTest, SystemNumberMeansPort33NN) {
  // Find a system number whose port is free on this machine and serve it.
  std::unique_ptr<SapsimProcess> numbered;
  int number = -1;
  std::string system = dir_.Write("numbered.json", SmallSystem());
  for (int candidate = 99; candidate >= 0 && !numbered; --candidate) {
    try {
      SapsimProcess::Options options;
      options.system_file = system;
      options.port = static_cast<uint16_t>(3300 + candidate);
      numbered = std::make_unique<SapsimProcess>(options);
      number = candidate;
    } catch (const std::runtime_error&) {
      // taken by something else; try the next number
    }
  }
  ASSERT_TRUE(numbered) << "no port 3300..3399 free";
  ServerLogonOptions block{"127.0.0.1", number, 0, nullptr, nullptr, nullptr, 0, 0};
  OpenOptions options{"", RFC_MODE_SERVER_LOGON, &block, "100", "BATCH", "secret", "E", 0};
  ConnectionHandle handle = lib.RfcOpen(&options);
  ASSERT_NE(0u, handle) << lib.LastError();
  EXPECT_EQ(RFC_OK, Ping(handle));
  lib.RfcClose(handle);
  block.system_number = 100;
  EXPECT_EQ(0u, lib.RfcOpen(&options));
  EXPECT_NE(std::string::npos, lib.LastError().find("system number 100"));
  EXPECT_EQ(0, numbered->Stop());
}

TEST_F(ClientTest, LoadBalancingAsksTheMessageServerForTheGroup) {
  Start(SmallSystem(), true);
  std::string ms_port = std::to_string(sapsim_->ms_port());
  ASSERT_EQ(0, setenv("RFCSIM_MS_PORT", ms_port.c_str(), 1));
  ServerLogonOptions block{nullptr, 0, 1, "127.0.0.1", "DEV", "SPACE", 0, 0};
  OpenOptions options{"", RFC_MODE_SERVER_LOGON, &block, "100", "BATCH", "secret", "E", 0};
  ConnectionHandle handle = lib.RfcOpen(&options);
  ASSERT_NE(0u, handle) << lib.LastError();
  EXPECT_EQ(RFC_OK, Ping(handle));
  lib.RfcClose(handle);

  block.group = "NOSUCHGROUP";
  EXPECT_EQ(0u, lib.RfcOpen(&options));
  EXPECT_NE(std::string::npos, lib.LastError().find("logon group NOSUCHGROUP is not known")) << lib.LastError();
  block.group = "PUBLIC";
  block.system_name = "PRD";
  EXPECT_EQ(0u, lib.RfcOpen(&options));
  EXPECT_NE(std::string::npos, lib.LastError().find("does not serve system PRD"));
  unsetenv("RFCSIM_MS_PORT");
}

TEST_F(ClientTest, EmptyReleaseLeavesTheAttributeEmptyAndTheParametersTellIt) {
  Start(SmallSystem("", "46D"));
  ConnectionHandle handle = Open();
  ASSERT_NE(0u, handle) << lib.LastError();
  ConnectionAttributes attributes;
  std::memset(&attributes, 'x', sizeof attributes);
  lib.RfcGetAttributes(handle, &attributes);
  EXPECT_STREQ("", attributes.partner_release);
  EXPECT_STREQ("46D", attributes.kernel_release);

  Chars<30> date_format;
  Chars<1> decimal_sign;
  Chars<1> language;
  Chars<4> release("XXXX");
  Chars<12> user;
  RfcParameterEntry none[] = {EndParam()};
  RfcParameterEntry exports[] = {Param("DATE_FORMAT", RFCTYPE_CHAR, date_format.text, 30),
                                 Param("DECIMAL_SIGN", RFCTYPE_CHAR, decimal_sign.text, 1),
                                 Param("LANGUAGE", RFCTYPE_CHAR, language.text, 1),
                                 Param("SAP_SYSTEM_RELEASE", RFCTYPE_CHAR, release.text, 4),
                                 Param("USER_NAME", RFCTYPE_CHAR, user.text, 12), EndParam()};
  RfcTableEntry no_tables[] = {EndTable()};
  ASSERT_EQ(RFC_OK, lib.RfcCall(handle, "RFC_GET_SAP_SYSTEM_PARAMETERS", none, no_tables));
  char* exception = nullptr;
  ASSERT_EQ(RFC_OK, lib.RfcReceive(handle, exports, no_tables, &exception)) << lib.LastError();
  EXPECT_EQ("", release.str());
  EXPECT_EQ("BATCH", user.str());
  EXPECT_EQ("E", language.str());
  EXPECT_EQ(".", decimal_sign.str());
  lib.RfcClose(handle);
}

TEST_F(ClientTest, UnknownFunctionModuleIsASystemFailure) {
  ConnectionHandle handle = Open();
  ASSERT_NE(0u, handle);
  RfcParameterEntry none[] = {EndParam()};
  RfcTableEntry no_tables[] = {EndTable()};
  ASSERT_EQ(RFC_OK, lib.RfcCall(handle, "Z_DOES_NOT_EXIST", none, no_tables));
  char* exception = nullptr;
  EXPECT_EQ(RFC_SYS_EXCEPTION, lib.RfcReceive(handle, none, no_tables, &exception));
  EXPECT_NE(std::string::npos, lib.LastError().find("Z_DOES_NOT_EXIST\" not found")) << lib.LastError();
  // The connection is still good.
  EXPECT_EQ(RFC_OK, Ping(handle));
  // A receive without a call is a mistake of the caller.
  EXPECT_EQ(RFC_FAILURE, lib.RfcReceive(handle, none, no_tables, &exception));
  lib.RfcClose(handle);
}

TEST_F(ClientTest, PartnerThatDisappearsDuringReceiveGivesAFailureNotAHang) {
  ConnectionHandle handle = Open();
  ASSERT_NE(0u, handle);
  // Stopped, the system cannot answer; the call waits in RfcReceive until
  // the process is gone.
  ASSERT_TRUE(sapsim_->Pause());
  RfcParameterEntry none[] = {EndParam()};
  RfcTableEntry no_tables[] = {EndTable()};
  ASSERT_EQ(RFC_OK, lib.RfcCall(handle, "RFCPING", none, no_tables));
  std::promise<std::pair<int, std::string>> result;
  std::thread receiver([&] {
    char* exception = nullptr;
    int rc = lib.RfcReceive(handle, none, no_tables, &exception);
    result.set_value({rc, lib.LastError()});
  });
  std::future<std::pair<int, std::string>> outcome = result.get_future();
  EXPECT_EQ(std::future_status::timeout, outcome.wait_for(std::chrono::milliseconds(200)));
  sapsim_->Signal(SIGKILL);
  ASSERT_EQ(std::future_status::ready, outcome.wait_for(std::chrono::seconds(20)));
  receiver.join();
  auto [rc, error] = outcome.get();
  EXPECT_NE(RFC_OK, rc);
  EXPECT_NE(RFC_EXCEPTION, rc);
  EXPECT_NE(std::string::npos, error.find("closed by partner during the call of RFCPING")) << error;
  // Later calls report the closed connection at once.
  EXPECT_EQ(RFC_CLOSED, lib.RfcCall(handle, "RFCPING", none, no_tables));
  lib.RfcClose(handle);
  sapsim_->Stop();
  sapsim_.reset();
}

}  // namespace
}  // namespace sapsim::testing
