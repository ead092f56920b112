// The gateway connection's accept string and the argument vector cut from it.

#include "app/gateway_connection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::ElementsAreArray;

namespace {

TEST(GatewayConnectionTest, TheAcceptStringIsCutIntoArgumentsAtEveryHyphen) {
  const struct {
    const char* program, *host, *service;
    int trace;
    const char* accept;
    std::vector<std::string> arguments;
  } cases[] = {
      {"BATCHSRV", "sapgw1", "sapgw00", 0, "-aBATCHSRV -gsapgw1 -xsapgw00", {"-aBATCHSRV", "-gsapgw1", "-xsapgw00"}},
      {"BATCHSRV", "sapgw1", "sapgw00", 1, "-aBATCHSRV -gsapgw1 -xsapgw00 -t1",
       {"-aBATCHSRV", "-gsapgw1", "-xsapgw00", "-t1"}},
      {"", "", "", 0, "-a -g -x", {"-a", "-g", "-x"}},
      // A hyphen inside a value splits it and eats the character before.
      {"BATCHSRV", "sap-gw1", "sapgw00", 0, "-aBATCHSRV -gsap-gw1 -xsapgw00", {"-aBATCHSRV", "-gsa", "-gw1", "-xsapgw00"}},
      // In a row, the second hyphen ends "-a", the third turns the second
      // into the terminator of an empty argument.
      {"A--B", "h", "s", 0, "-aA--B -gh -xs", {"-a", "", "-B", "-gh", "-xs"}},
  };
  for (const auto& c : cases) {
    CGatewayConnection gateway(c.program, c.host, c.service);
    EXPECT_EQ(0, gateway.GetGatewayTraceFlag());
    gateway.SetGatewayTraceFlag(c.trace);
    EXPECT_EQ(c.accept, gateway.BuildAcceptString());
    EXPECT_EQ(c.accept, gateway.GetAcceptString());
    gateway.BuildArgv();
    EXPECT_THAT(gateway.GetArguments(), ElementsAreArray(c.arguments)) << c.accept;
    ASSERT_EQ(c.arguments.size() + 1, gateway.GetArgumentVector().size());
    EXPECT_EQ(nullptr, gateway.GetArgumentVector().back());
    // Building again replaces buffer and vector.
    gateway.SetGatewayTraceFlag(3);
    gateway.BuildArgv();
    EXPECT_EQ(c.arguments.size() + (c.trace == 0 ? 2 : 1), gateway.GetArgumentVector().size());
    EXPECT_EQ(std::string(gateway.GetArgumentVector().end()[-2]), "-t3");
  }
}

}  // namespace
