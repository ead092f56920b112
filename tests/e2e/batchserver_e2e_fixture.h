#pragma once
// The batch server against a simulated SAP system, as a user runs them: a
// system file and an INI file written by the test, sapsim serve on a free
// port, the batchserver binary, and sapsim call playing SAP.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/sapsim/support/rfc_library.h"
#include "tests/sapsim/support/sapsim_process.h"
#include "tests/support/log_reading.h"
#include "tests/support/polling.h"
#include "tests/support/processes.h"
#include "tests/support/temp_dir.h"

namespace e2e {

inline constexpr const char* kProgramId = "BATCHE2E";
using testutil::CountOf;
using testutil::CrLfLines;
using testutil::Eventually;
using testutil::kPatience;

// The system every test starts from: ZKTZ_BATCHES offers two functions (a
// row with every field type, a small one); rows with ACTIVE y and blank and
// one naming a structure that does not exist offer nothing.
inline std::string TestSystem() {
  return R"({
  "system_id": "E2E", "release": "46C", "kernel_release": "46D", "host": "e2ehost",
  "logon": [{"client": "100", "user": "BATCH", "password": "secret"}],
  "groups": ["PUBLIC"],
  "structures": {
    "ZKTZ_BATCHES": [
      {"name": "MANDT", "type": "C", "length": 3},
      {"name": "PROGRAMM", "type": "C", "length": 40},
      {"name": "FUNCTION", "type": "C", "length": 30},
      {"name": "STRUCTURE", "type": "C", "length": 30},
      {"name": "ACTIVE", "type": "C", "length": 1}
    ],
    "ZE2E_ALL": [
      {"name": "H_IDENT", "type": "C", "length": 10},
      {"name": "T_IDENT", "type": "C", "length": 10},
      {"name": "IDENT", "type": "C", "length": 8},
      {"name": "NOTE", "type": "C", "length": 40},
      {"name": "DAY", "type": "D"},
      {"name": "AT", "type": "T"},
      {"name": "AMOUNT", "type": "P", "length": 5, "decimals": 2},
      {"name": "CODE", "type": "N", "length": 4},
      {"name": "QTY", "type": "I"},
      {"name": "WEIGHT", "type": "F"},
      {"name": "PRIO", "type": "s"},
      {"name": "FLAGS", "type": "b"},
      {"name": "RAW", "type": "X", "length": 2},
      {"name": "SHARE", "type": "P", "length": 2, "decimals": 3}
    ],
    "ZE2E_ALL_TEXT": [
      {"name": "H_IDENT", "type": "C", "length": 10},
      {"name": "QTY", "type": "C", "length": 10}
    ],
    "ZE2E_SMALL": [
      {"name": "H_IDENT", "type": "C", "length": 10},
      {"name": "NAME", "type": "C", "length": 20}
    ]
  },
  "tables": {
    "ZKTZ_BATCHES": [
      {"MANDT": "100", "PROGRAMM": "BATCHE2E", "FUNCTION": "Z_E2E_ALL", "STRUCTURE": "ZE2E_ALL", "ACTIVE": "Y"},
      {"MANDT": "100", "PROGRAMM": "BATCHE2E", "FUNCTION": "Z_E2E_LOWER", "STRUCTURE": "ZE2E_SMALL", "ACTIVE": "y"},
      {"MANDT": "100", "PROGRAMM": "BATCHE2E", "FUNCTION": "Z_E2E_SMALL", "STRUCTURE": "ZE2E_SMALL", "ACTIVE": "Y"},
      {"MANDT": "100", "PROGRAMM": "BATCHE2E", "FUNCTION": "Z_E2E_BLANK", "STRUCTURE": "ZE2E_SMALL", "ACTIVE": ""},
      {"MANDT": "100", "PROGRAMM": "BATCHE2E", "FUNCTION": "Z_E2E_UNKNOWN", "STRUCTURE": "ZE2E_MISSING", "ACTIVE": "Y"}
    ]
  }
})";
}

class BatchServerE2eTest : public ::testing::Test {
 protected:
  void SetUp() override {
    instance_ = testutil::UniqueName("H7E2E");
    logs_ = dir_.File("logs");
    xml_ = dir_.File("xml");
    work_ = dir_.File("work");
    for (const std::string& d : {logs_, xml_, work_}) std::filesystem::create_directory(d);
    system_file_ = dir_.Write("system.json", TestSystem());
    StartSapsim(0);
    settings_ = {
        {"sap.server.gateway.host", "127.0.0.1"},
        {"sap.server.gateway.service", sapsim_->port_text()},
        {"sap.server.programm.id", kProgramId},
        {"sap.server.listen.timer", "20"},
        {"sap.client.loadbalancing", "No"},
        {"sap.client.host", "127.0.0.1"},
        {"sap.client.sysnumber", "00"},
        {"sap.client.client", "100"},
        {"sap.client.user.id", "BATCH"},
        {"sap.client.user.password", "secret"},
        {"sap.client.language", "EN"},
        {"sap.client.trace", "0"},
        {"sap.library", sapsim::testing::LibraryPath()},
        {"sap.path", logs_},
        {"xml.path", xml_},
    };
  }

  void StartSapsim(uint16_t port, bool message_server = false) {
    sapsim::testing::SapsimProcess::Options options;
    options.system_file = system_file_;
    options.port = port;
    options.message_server = message_server;
    sapsim_ = std::make_unique<sapsim::testing::SapsimProcess>(options);
  }

  // Replaces the system by one described by `system_text`, on a new port.
  void RestartSapsimWith(const std::string& system_text, bool message_server = false) {
    sapsim_.reset();
    system_file_ = dir_.Write("system2.json", system_text);
    StartSapsim(0, message_server);
    settings_["sap.server.gateway.service"] = sapsim_->port_text();
  }

  // Writes the INI (CR LF) and starts the server in the work directory.
  void StartServer() {
    server_ = StartInstance(instance_, settings_);
    ASSERT_TRUE(server_->started());
  }
  // One more server process; `tag` keeps its INI and output files apart.
  std::unique_ptr<testutil::ChildProcess> StartInstance(const std::string& instance,
                                                        const std::map<std::string, std::string>& settings,
                                                        const std::string& tag = "") {
    std::string ini = "[" + instance + "]\r\n";
    for (const auto& [key, value] : settings) ini += key + "=" + value + "\r\n";
    const std::string path = dir_.Write("batch server" + tag + ".ini", ini);
    if (tag.empty()) ini_ = path;
    return std::make_unique<testutil::ChildProcess>(
        std::vector<std::string>{testutil::BuildDir() + "/bin/batchserver", instance, path}, work_,
        dir_.File("server" + tag + ".out"), dir_.File("server" + tag + ".err"));
  }

  // Every log file of the log directory, in name order.
  std::string LogText() const { return testutil::FilesText(logs_); }
  // The first log file (the server writes one a day).
  std::string LogPath() const {
    const std::vector<std::string> names = testutil::FileNames(logs_);
    return names.empty() ? std::string() : logs_ + "/" + names[0];
  }
  // The log's service cycles: what each wrote after its header block.
  std::vector<std::string> Cycles() const { return testutil::ServiceCycles(LogText()); }

  int Waits() const { return CountOf(LogText(), "\r\n...WAITING FOR BATCHES...\r\n"); }
  bool WaitForServing(int times = 1) {
    return Eventually([&] { return Waits() >= times; });
  }
  int Receipts() const { return CountOf(LogText(), " - Receive data: "); }

  std::string ServerOut() const { return testutil::ReadBytes(dir_.File("server.out")); }
  std::string ServerErr() const { return testutil::ReadBytes(dir_.File("server.err")); }

  // sapsim call with `csv` as the batch.
  sapsim::testing::RunResult Call(const std::string& function, const std::string& structure,
                                  const std::string& csv, const std::string& program_id = kProgramId) {
    const std::string csv_file = dir_.Write("batch" + std::to_string(++calls_) + ".csv", csv);
    return sapsim::testing::RunCommand({sapsim::testing::SapsimPath(), "call", "--port",
                                        sapsim_->port_text(), "--program-id", program_id,
                                        "--function", function, "--structure", structure, "--csv",
                                        csv_file});
  }

  sapsim::testing::RunResult Batchctl(const std::string& command) {
    return sapsim::testing::RunCommand(
        {sapsim::testing::BuildDir() + "/bin/batchctl", command, instance_});
  }

  std::vector<std::string> XmlFiles() const { return testutil::FileNames(xml_); }

  sapsim::testing::TempDir dir_;
  std::string instance_;
  std::string logs_;
  std::string xml_;
  std::string work_;
  std::string system_file_;
  std::string ini_;
  std::map<std::string, std::string> settings_;
  std::unique_ptr<sapsim::testing::SapsimProcess> sapsim_;
  std::unique_ptr<testutil::ChildProcess> server_;
  int calls_ = 0;
};

}  // namespace e2e
