#pragma once
// A sapsim started for one test, and client connections logged on to it the
// way the worker logs on (application server, the system's port as the
// gateway service).

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "access/client_connection.h"
#include "tests/sapsim/support/sapsim_process.h"

namespace access_test {

class SapsimTest : public ::testing::Test {
 protected:
  void TearDown() override;

  // Starts sapsim on the system file text (replacing a running one).
  void Start(const std::string& system, bool message_server = false);
  // An opened client connection; fails the test when the logon is refused.
  std::unique_ptr<CClientConnection> Logon();

  sapsim::testing::SapsimProcess& sapsim() { return *sapsim_; }

  sapsim::testing::TempDir dir_;
  std::unique_ptr<sapsim::testing::SapsimProcess> sapsim_;
};

// One line for an RFC_ERROR_INFO, for failure messages.
std::string Describe(const RFC_ERROR_INFO& error);

}  // namespace access_test
