// CClientConnection's records where the end-to-end logons cannot see them:
// the trace switch and what the two logon set-ups leave of each other.

#include "access/client_connection.h"

#include <gtest/gtest.h>

#include "rfc/core/rfc_trace.h"
#include "tests/support/temp_dir.h"

namespace {

// The class-library trace is process-wide: send it to a folder of the test's
// own and switch it off again afterwards.
class ClientConnectionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_directory_ = GetRfcTrace().GetDirectory();
    GetRfcTrace().SetDirectory(dir_.path());
    GetRfcTrace().SetTraceOn(0);
  }
  void TearDown() override {
    GetRfcTrace().SetTraceOn(0);
    GetRfcTrace().SetDirectory(saved_directory_);
  }

  testutil::TempDir dir_;
  std::string saved_directory_;
};

TEST_F(ClientConnectionTest, TheTraceSwitchReachesOnlyTheClassLibrarysTrace) {
  CClientConnection connection;
  connection.SetTraceFlag(1);
  connection.SetAppServerLogon("h", 0, "100", "BATCH", "secret", "E", "3300", 1);
  EXPECT_NE(0, GetRfcTrace().IsTraceOn());
  EXPECT_EQ(0, connection.GetTraceFlag());

  connection.SetTraceFlag(1);
  connection.SetLoadBalancingLogon(1, "ms", "DEV", "PUBLIC", "100", "BATCH", "secret", "E", 0);
  EXPECT_EQ(0, GetRfcTrace().IsTraceOn());
  EXPECT_EQ(0, connection.GetTraceFlag());

  connection.SetLoadBalancingLogon(1, "ms", "DEV", "PUBLIC", "100", "BATCH", "secret", "E", 1);
  EXPECT_NE(0, GetRfcTrace().IsTraceOn());
  EXPECT_EQ(0, connection.GetTraceFlag());
}

TEST_F(ClientConnectionTest, LoadBalancingLogonKeepsWhatTheFirstSetUpWrote) {
  CClientConnection connection;
  connection.SetAppServerLogon("apphost", 12, "100", "BATCH", "secret", "E", "sapgw12", 0);
  EXPECT_EQ(1, connection.SetLoadBalancingLogon(1, "mshost", "DEV", "PUBLIC", "200", "OTHER",
                                                "pw", "D", 0));
  EXPECT_STREQ("RELEASEUNKNOWN", connection.GetConnection().release);
  for (const CRfcConnInfo* info : {&connection.GetConnection(), &connection.GetConnInfo()}) {
    EXPECT_STREQ("mshost", info->message_server_host);
    EXPECT_STREQ("DEV", info->system_name);
    EXPECT_STREQ("PUBLIC", info->group);
    EXPECT_EQ(0, info->mode);
    EXPECT_STREQ("apphost", info->host);
    EXPECT_STREQ("apphost", info->gateway_host);
    EXPECT_STREQ("sapgw12", info->gateway_service);
    EXPECT_EQ(12, info->system_number);
  }
  EXPECT_STREQ("200", connection.GetLogonInfo().client);
  EXPECT_STREQ("OTHER", connection.GetLogonInfo().user);
  EXPECT_STREQ("pw", connection.GetLogonInfo().password);
  EXPECT_STREQ("D", connection.GetLogonInfo().language);

  // The other way round the message server's fields stay as well.
  connection.SetAppServerLogon("other", 0, "100", "BATCH", "secret", "E", "3300", 0);
  EXPECT_STREQ("mshost", connection.GetConnInfo().message_server_host);
  EXPECT_STREQ("PUBLIC", connection.GetConnInfo().group);
  EXPECT_STREQ("other", connection.GetConnInfo().host);
}

}  // namespace
