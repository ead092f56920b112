// Registration at sapsim's gateway through CGatewayConnection: check, cancel,
// register again, and the refusals.

#include <gtest/gtest.h>

#include "app/gateway_connection.h"
#include "tests/access/local_parameters.h"
#include "tests/sapsim/support/rfc_library.h"
#include "tests/sapsim/support/sapsim_process.h"
#include "tests/sapsim/support/system_files.h"
#include "tests/support/polling.h"

namespace {

TEST(GatewayRegistrationTest, RegisterCheckCancelAndTheRefusals) {
  access_test::LoadLocalLibrary();
  sapsim::testing::TempDir dir;
  sapsim::testing::SapsimProcess::Options options;
  options.system_file = dir.Write("system.json", sapsim::testing::SmallSystem());
  sapsim::testing::SapsimProcess sapsim(options);
  const std::string port = sapsim.port_text();
  std::string program_id = testutil::UniqueName("GWTEST");
  // Registrations of the program id as the gateway counts them.
  const auto total = [&] {
    int count = -1, initialising = 0, ready = 0, busy = 0;
    ErrorInfoEx error{};
    sapsim::testing::RfcLibrary::Get().RfcCheckRegisterServer(program_id.c_str(), "127.0.0.1", port.c_str(), &count,
                                                              &initialising, &ready, &busy, &error);
    return count;
  };
  auto gateway = std::make_unique<CGatewayConnection>(program_id, "127.0.0.1", port);
  EXPECT_FALSE(gateway->IsRegistered());
  EXPECT_EQ(1, gateway->Register());
  EXPECT_NE(0u, gateway->GetHandle());
  EXPECT_EQ(gateway->GetArgumentVector().data(), gateway->GetArgv());
  CGatewayConnection observer(program_id, "127.0.0.1", port);
  EXPECT_TRUE(observer.IsRegistered());
  EXPECT_TRUE(observer.CancelRegistration());
  EXPECT_FALSE(observer.IsRegistered());
  EXPECT_FALSE(observer.CancelRegistration());  // nothing left to cancel
  EXPECT_EQ(1, gateway->Register());
  EXPECT_EQ(1, total());
  // Destroying the connection ends the registration; the gateway learns of it a moment after.
  gateway.reset();
  EXPECT_TRUE(testutil::Eventually([&] { return total() == 0; }));

  // "-aGWCUT-ID" is cut to "-aGWCU" and "-ID"; the library ignores the
  // latter and registers the program id GWCU.
  program_id = testutil::UniqueName("GWCU");
  CGatewayConnection hyphenated(program_id + "X-ID", "127.0.0.1", port);
  hyphenated.Register();
  EXPECT_FALSE(hyphenated.IsRegistered());
  EXPECT_EQ(1, total());

  CGatewayConnection unreachable(program_id, "127.0.0.1", std::to_string(sapsim::testing::UnusedPort()));
  EXPECT_FALSE(unreachable.IsRegistered());
  EXPECT_FALSE(unreachable.CancelRegistration());
  CGatewayConnection empty("", "", "");
  EXPECT_THROW(empty.Register(), RFC_ERROR_INFO);
  EXPECT_EQ(0u, empty.GetHandle());
  EXPECT_EQ(0, sapsim.Stop()) << sapsim.Log();
}

}  // namespace
