#pragma once
// The fixture of the tests that drive librfcsim.so against a running sapsim:
// the system, client logons and registrations closed again at the end, calls
// from the SAP side in the background.

#include <future>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/sapsim/support/rfc_calls.h"
#include "tests/sapsim/support/rfc_library.h"
#include "tests/sapsim/support/sapsim_process.h"
#include "tests/sapsim/support/server_harness.h"
#include "tests/sapsim/support/system_files.h"

namespace sapsim::testing {

class LibraryTest : public ::testing::Test {
 protected:
  void TearDown() override {
    for (ConnectionHandle handle : handles_) lib.RfcClose(handle);
    if (sapsim_) {
      EXPECT_EQ(0, sapsim_->Stop()) << sapsim_->Log();
    }
  }

  // Starts the system from a system file's text.
  void Start(const std::string& system = SmallSystem()) {
    SapsimProcess::Options options;
    options.system_file = dir_.Write("system.json", system);
    sapsim_ = std::make_unique<SapsimProcess>(options);
  }

  // A client logon through the gateway; 0 when refused. Open's handles are
  // closed at the end.
  ConnectionHandle Logon(const char* password = "secret", const char* client = "100") {
    const std::string port = sapsim_->port_text();
    GatewayLogonOptions gateway{"127.0.0.1", port.c_str()};
    OpenOptions options{"", RFC_MODE_GATEWAY, &gateway, client, "BATCH", password, "E", 0};
    return lib.RfcOpen(&options);
  }
  ConnectionHandle Open(const char* password = "secret", const char* client = "100") {
    return Keep(Logon(password, client));
  }
  // A registration of `program_id` at the system's gateway; 0 when refused.
  ConnectionHandle Accept(const std::string& program_id = "TESTPROG") {
    return Keep(Register(program_id, sapsim_->port()));
  }
  ConnectionHandle Keep(ConnectionHandle handle) {
    if (handle != 0) handles_.push_back(handle);
    return handle;
  }

  // RfcCall and RfcReceive; the exception the partner raised goes to *exception.
  int CallReceive(ConnectionHandle handle, const char* function, RfcParameterEntry* imports,
                  RfcParameterEntry* exports, RfcTableEntry* tables, std::string* exception = nullptr) {
    int rc = lib.RfcCall(handle, function, imports, tables);
    if (rc != RFC_OK) return rc;
    char* raised = nullptr;
    rc = lib.RfcReceive(handle, exports, tables, &raised);
    if (exception != nullptr) *exception = raised != nullptr ? raised : "";
    return rc;
  }
  int Ping(ConnectionHandle handle) {
    NoArgs none;
    return CallReceive(handle, "RFCPING", none.params, none.params, none.tables);
  }

  // The SAP side (`sapsim call`) calls `function` of `program_id` in the
  // background with the CSV's rows as lines of dictionary structure `structure`.
  std::future<RunResult> CallLater(const std::string& function, const std::string& structure = "ZBATCH_LINE",
                                   const std::string& csv = "NAME\n", const std::string& program_id = "TESTPROG") {
    const std::string file = dir_.Write(function + ".csv", csv);
    const std::vector<std::string> command = {SapsimPath(), "call", "--port", sapsim_->port_text(), "--program-id",
                                              program_id, "--function", function, "--structure", structure,
                                              "--csv", file};
    return std::async(std::launch::async, [command] { return RunCommand(command); });
  }

  const RfcLibrary& lib = RfcLibrary::Get();
  TempDir dir_;
  std::unique_ptr<SapsimProcess> sapsim_;
  std::vector<ConnectionHandle> handles_;
};

}  // namespace sapsim::testing
