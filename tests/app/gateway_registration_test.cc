// Registration at sapsim's gateway through CGatewayConnection: check, cancel,
// register again, and the refusals.

#include <gtest/gtest.h>

#include "app/gateway_connection.h"
#include "tests/access/local_parameters.h"
#include "tests/sapsim/support/rfc_library.h"
#include "tests/sapsim/support/sapsim_process.h"
#include "tests/sapsim/support/system_files.h"
#include "tests/support/polling.h"
#include "tests/support/temp_dir.h"

namespace {

using sapsim::testing::SapsimProcess;

class GatewayRegistrationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    access_test::LoadLocalLibrary();
    SapsimProcess::Options options;
    options.system_file = dir_.Write("system.json", sapsim::testing::SmallSystem());
    sapsim_ = std::make_unique<SapsimProcess>(options);
    program_id_ = testutil::UniqueName("GWTEST");
  }
  void TearDown() override { EXPECT_EQ(0, sapsim_->Stop()) << sapsim_->Log(); }

  std::unique_ptr<CGatewayConnection> Gateway(const std::string& program_id) {
    return std::make_unique<CGatewayConnection>(program_id, "127.0.0.1", sapsim_->port_text());
  }
  // Registrations of the program id as the gateway counts them.
  int Total() {
    int total = -1, initialising = 0, ready = 0, busy = 0;
    ErrorInfoEx error{};
    sapsim::testing::RfcLibrary::Get().RfcCheckRegisterServer(
        program_id_.c_str(), "127.0.0.1", sapsim_->port_text().c_str(), &total, &initialising,
        &ready, &busy, &error);
    return total;
  }

  sapsim::testing::TempDir dir_;
  std::unique_ptr<SapsimProcess> sapsim_;
  std::string program_id_;
};

TEST_F(GatewayRegistrationTest, RegisterCheckCancelAndRegisterAgain) {
  auto gateway = Gateway(program_id_);
  EXPECT_FALSE(gateway->IsRegistered());
  EXPECT_EQ(1, gateway->Register());
  EXPECT_NE(0u, gateway->GetHandle());
  EXPECT_EQ(gateway->GetArgumentVector().data(), gateway->GetArgv());

  auto observer = Gateway(program_id_);
  EXPECT_TRUE(observer->IsRegistered());
  EXPECT_TRUE(observer->CancelRegistration());
  EXPECT_FALSE(observer->IsRegistered());
  EXPECT_FALSE(observer->CancelRegistration());  // nothing left to cancel

  EXPECT_EQ(1, gateway->Register());
  EXPECT_TRUE(observer->IsRegistered());
  EXPECT_EQ(1, Total());

  // Destroying the connection ends the registration; the gateway learns of
  // it a moment after.
  gateway.reset();
  EXPECT_TRUE(testutil::Eventually([&] { return Total() == 0; }));
}

TEST_F(GatewayRegistrationTest, EmptySettingsAreRefusedWithTheLibrarysRecord) {
  CGatewayConnection gateway("", "", "");
  try {
    gateway.Register();
    FAIL() << "an empty registration was accepted";
  } catch (const RFC_ERROR_INFO& error) {
    EXPECT_NE('\0', error.message[0]);
  }
  EXPECT_EQ(0u, gateway.GetHandle());
}

TEST_F(GatewayRegistrationTest, AHyphenatedProgramIdRegistersUnderItsCutName) {
  // "-aGWCUT-ID" is cut to "-aGWCU" and "-ID"; the library ignores the
  // latter and registers the program id GWCU.
  program_id_ = testutil::UniqueName("GWCU");
  const std::string hyphenated = program_id_ + "X-ID";
  CGatewayConnection gateway(hyphenated, "127.0.0.1", sapsim_->port_text());
  gateway.Register();
  EXPECT_FALSE(gateway.IsRegistered());
  EXPECT_EQ(1, Total());
}

TEST_F(GatewayRegistrationTest, AnUnreachableGatewayReadsAsNotRegistered) {
  CGatewayConnection gateway(program_id_, "127.0.0.1", std::to_string(sapsim::testing::UnusedPort()));
  EXPECT_FALSE(gateway.IsRegistered());
  EXPECT_FALSE(gateway.CancelRegistration());
}

}  // namespace
