#include "tests/access/sapsim_logon.h"

#include <cstring>

#include "tests/access/local_parameters.h"

namespace access_test {

void SapsimTest::TearDown() {
  if (sapsim_) {
    const int code = sapsim_->Stop();
    EXPECT_EQ(0, code) << sapsim_->Log();
  }
}

void SapsimTest::Start(const std::string& system, bool message_server) {
  LoadLocalLibrary();
  if (sapsim_) sapsim_->Stop();
  sapsim::testing::SapsimProcess::Options options;
  options.system_file = dir_.Write("system.json", system);
  options.message_server = message_server;
  sapsim_ = std::make_unique<sapsim::testing::SapsimProcess>(options);
}

std::unique_ptr<CClientConnection> SapsimTest::Logon() {
  auto connection = std::make_unique<CClientConnection>();
  connection->SetAppServerLogon("127.0.0.1", 0, "100", "BATCH", "secret", "E",
                                sapsim_->port_text(), 0);
  try {
    connection->Open();
  } catch (const RFC_ERROR_INFO& error) {
    ADD_FAILURE() << "logon refused: " << Describe(error);
  }
  EXPECT_NE(0u, connection->GetHandle());
  return connection;
}

std::string Describe(const RFC_ERROR_INFO& error) {
  return std::string(error.key, strnlen(error.key, sizeof error.key)) + ": " +
         std::string(error.message, strnlen(error.message, sizeof error.message));
}

}  // namespace access_test
