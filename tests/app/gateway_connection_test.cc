// The gateway connection's accept string and the argument vector cut from it.
// Each connection writes one line "accept string -> arguments, then the
// arguments after building again with trace 3", compared with an expected file.

#include "app/gateway_connection.h"

#include <gtest/gtest.h>

#include <tuple>

#include "tests/support/expected_file.h"

namespace {

TEST(GatewayConnectionTest, TheAcceptStringIsCutIntoArgumentsAtEveryHyphen) {
  const std::tuple<const char*, const char*, const char*, int> cases[] = {  // program, host, service, trace
      {"BATCHSRV", "sapgw1", "sapgw00", 0},
      {"BATCHSRV", "sapgw1", "sapgw00", 1},
      {"", "", "", 0},
      // A hyphen inside a value splits it and eats the character before.
      {"BATCHSRV", "sap-gw1", "sapgw00", 0},
      // In a row, the second hyphen ends "-a", the third turns the second
      // into the terminator of an empty argument.
      {"A--B", "h", "s", 0},
  };
  std::string text;
  for (const auto& [program, host, service, trace_flag] : cases) {
    CGatewayConnection gateway(program, host, service);
    text += std::to_string(gateway.GetGatewayTraceFlag()) + " ";
    gateway.SetGatewayTraceFlag(trace_flag);
    text += gateway.BuildAcceptString();
    text += " (" + gateway.GetAcceptString() + ") ->";
    // Building again replaces buffer and vector; the vector ends in a null.
    for (const int trace : {trace_flag, 3}) {
      gateway.SetGatewayTraceFlag(trace);
      gateway.BuildArgv();
      std::vector<std::string> words;
      for (const char* argument : gateway.GetArgumentVector()) {
        text += argument != nullptr ? " '" + words.emplace_back(argument) + "'" : " null";
      }
      text += words == gateway.GetArguments() ? "" : " (the lists differ)";
    }
    text += "\n";
  }
  EXPECT_TRUE(testutil::MatchesExpectedFile(text, "tests/app/expected/gateway_connection.txt"));
}

}  // namespace
