// The gateway connection's accept string and the argument vector cut from it.

#include "app/gateway_connection.h"

#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::ElementsAre;

namespace {

TEST(GatewayConnectionTest, TheAcceptStringNamesProgramHostAndService) {
  CGatewayConnection gateway("BATCHSRV", "sapgw1", "sapgw00");
  EXPECT_EQ(0, gateway.GetGatewayTraceFlag());
  EXPECT_EQ("-aBATCHSRV -gsapgw1 -xsapgw00", gateway.BuildAcceptString());
  EXPECT_EQ("-aBATCHSRV -gsapgw1 -xsapgw00", gateway.GetAcceptString());
  gateway.BuildArgv();
  EXPECT_THAT(gateway.GetArguments(), ElementsAre("-aBATCHSRV", "-gsapgw1", "-xsapgw00"));
  ASSERT_EQ(4u, gateway.GetArgumentVector().size());
  EXPECT_EQ(nullptr, gateway.GetArgumentVector().back());
}

TEST(GatewayConnectionTest, ATraceFlagAddsAFourthOption) {
  CGatewayConnection gateway("BATCHSRV", "sapgw1", "sapgw00");
  gateway.SetGatewayTraceFlag(1);
  const std::string accept = gateway.BuildAcceptString();
  ASSERT_GE(accept.size(), 4u);
  EXPECT_EQ(" -t1", accept.substr(accept.size() - 4));
  gateway.BuildArgv();
  EXPECT_THAT(gateway.GetArguments(), ElementsAre("-aBATCHSRV", "-gsapgw1", "-xsapgw00", "-t1"));
  EXPECT_EQ(5u, gateway.GetArgumentVector().size());
}

TEST(GatewayConnectionTest, EmptySettingsGiveThreeBareOptions) {
  CGatewayConnection gateway("", "", "");
  EXPECT_EQ("-a -g -x", gateway.BuildAcceptString());
  gateway.BuildArgv();
  EXPECT_THAT(gateway.GetArguments(), ElementsAre("-a", "-g", "-x"));
}

TEST(GatewayConnectionTest, AHyphenInsideAValueSplitsItAndEatsTheCharacterBefore) {
  CGatewayConnection gateway("BATCHSRV", "sap-gw1", "sapgw00");
  gateway.BuildArgv();
  EXPECT_THAT(gateway.GetArguments(), ElementsAre("-aBATCHSRV", "-gsa", "-gw1", "-xsapgw00"));
  EXPECT_EQ(5u, gateway.GetArgumentVector().size());
}

TEST(GatewayConnectionTest, HyphensInARowLeaveEmptyArguments) {
  CGatewayConnection gateway("A--B", "h", "s");
  gateway.BuildArgv();
  // "-aA--B": the second hyphen ends the first argument at "-a", the third
  // turns the second hyphen into the terminator of an empty argument.
  EXPECT_THAT(gateway.GetArguments(), ElementsAre("-a", "", "-B", "-gh", "-xs"));
}

TEST(GatewayConnectionTest, BuildingAgainReplacesBufferAndVector) {
  CGatewayConnection gateway("ONE", "h", "s");
  gateway.BuildArgv();
  gateway.SetGatewayTraceFlag(3);
  gateway.BuildArgv();
  EXPECT_THAT(gateway.GetArguments(), ElementsAre("-aONE", "-gh", "-xs", "-t3"));
  // Every pointer lies in the one buffer of the last build.
  const std::vector<char*>& vector = gateway.GetArgumentVector();
  for (size_t i = 1; i + 1 < vector.size(); ++i) EXPECT_GT(vector[i], vector[i - 1]);
}

}  // namespace
