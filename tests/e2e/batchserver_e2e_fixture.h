#pragma once
// The batch server against a simulated SAP system, as a user runs them: a
// system file and an INI file written by the test, sapsim serve on a free
// port, and sapsim call playing SAP. Who runs the worker (the batchserver
// binary, or the test's own process) is the deriving test's choice.

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
inline constexpr const char* kSmall = "H_IDENT,NAME\nK1,x\n";  // one row for Z_E2E_SMALL
using testutil::CountOf;
using testutil::Eventually;
inline const std::string kWaiting = "\r\n...WAITING FOR BATCHES...\r\n";

// ZKTZ_BATCHES offers two functions (a row with every field type, a small
// one); rows with ACTIVE y and blank and one naming a structure that does not
// exist offer nothing.
inline std::string TestSystem() {
  return R"({
  "system_id": "E2E", "release": "46C", "kernel_release": "46D", "host": "e2ehost",
  "logon": [{"client": "100", "user": "BATCH", "password": "secret"}],
  "groups": ["PUBLIC"],
  "structures": {
    "ZKTZ_BATCHES": [
      {"name": "MANDT", "type": "C", "length": 3}, {"name": "PROGRAMM", "type": "C", "length": 40},
      {"name": "FUNCTION", "type": "C", "length": 30}, {"name": "STRUCTURE", "type": "C", "length": 30},
      {"name": "ACTIVE", "type": "C", "length": 1}
    ],
    "ZE2E_ALL": [
      {"name": "H_IDENT", "type": "C", "length": 10}, {"name": "T_IDENT", "type": "C", "length": 10},
      {"name": "IDENT", "type": "C", "length": 8}, {"name": "NOTE", "type": "C", "length": 40},
      {"name": "DAY", "type": "D"}, {"name": "AT", "type": "T"},
      {"name": "AMOUNT", "type": "P", "length": 5, "decimals": 2}, {"name": "CODE", "type": "N", "length": 4},
      {"name": "QTY", "type": "I"}, {"name": "WEIGHT", "type": "F"}, {"name": "PRIO", "type": "s"},
      {"name": "FLAGS", "type": "b"}, {"name": "RAW", "type": "X", "length": 2},
      {"name": "SHARE", "type": "P", "length": 2, "decimals": 3}
    ],
    "ZE2E_SMALL": [{"name": "H_IDENT", "type": "C", "length": 10}, {"name": "NAME", "type": "C", "length": 20}]
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

// One service cycle as the log shows it: the entries after a header block.
struct LoggedCycle {
  std::string body;
  int Errors() const { return CountOf(body, " - RFC_ERROR_INFO\nKey: "); }
  int Unknown() const { return CountOf(body, " - UNKNOWN EXEPTION\n\r\n"); }
  bool Serving() const { return body.find(kWaiting) != std::string::npos; }
  // Nothing but one time-stamped library error: "MM/DD/YY hh:mm:ss - RFC_ERROR_INFO",
  // the Key, Status, Message and Initstate lines, then CR LF.
  bool IsOneLibraryError() const {
    if (!testutil::StartsWithLogTime(body)) return false;
    size_t at = 17;
    for (const std::string label : {" - RFC_ERROR_INFO\nKey: ", "\nStatus: ", "\nMessage: ", "\nInitstate: "}) {
      if (body.compare(at, label.size(), label) != 0) return false;
      if ((at = body.find_first_of("\n\r", at + label.size())) == std::string::npos) return false;
    }
    return body.compare(at, std::string::npos, "\r\n") == 0;
  }
};

class BatchServerE2eTest : public ::testing::Test {
 protected:
  void SetUp() override {
    instance_ = testutil::UniqueName("H7E2E");
    for (const std::string& d : {logs_, xml_, work_}) std::filesystem::create_directory(d);
    StartSapsim();
    settings_ = {
        {"sap.server.gateway.host", "127.0.0.1"}, {"sap.server.gateway.service", sapsim_->port_text()},
        {"sap.server.programm.id", kProgramId},   {"sap.server.listen.timer", "20"},
        {"sap.client.loadbalancing", "No"},       {"sap.client.host", "127.0.0.1"},
        {"sap.client.sysnumber", "00"},           {"sap.client.client", "100"},
        {"sap.client.user.id", "BATCH"},          {"sap.client.user.password", "secret"},
        {"sap.client.language", "EN"},            {"sap.client.trace", "0"},
        {"sap.library", sapsim::testing::LibraryPath()}, {"sap.path", logs_}, {"xml.path", xml_},
    };
  }

  // sapsim serving `system` on `port` (0: a free one); the settings follow it.
  void StartSapsim(uint16_t port = 0, const std::vector<std::string>& extra = {}, bool message_server = false,
                   const std::string& system = TestSystem()) {
    sapsim_.reset();
    sapsim::testing::SapsimProcess::Options options{dir_.Write("system.json", system), port, message_server, extra};
    sapsim_ = std::make_unique<sapsim::testing::SapsimProcess>(options);
    settings_["sap.server.gateway.service"] = sapsim_->port_text();
  }

  // The INI (CR LF) of `instance` with `settings`; its path.
  std::string WriteIni(const std::string& instance, const std::map<std::string, std::string>& settings,
                       const std::string& tag = "") {
    std::string ini = "[" + instance + "]\r\n";
    for (const auto& [key, value] : settings) ini += key + "=" + value + "\r\n";
    return dir_.Write("batch server" + tag + ".ini", ini);
  }

  std::string LogText() const { return testutil::FilesText(logs_); }
  // The log's service cycles: what each wrote after its header block.
  std::vector<LoggedCycle> Cycles() const {
    std::vector<LoggedCycle> cycles;
    for (std::string& body : testutil::ServiceCycles(LogText())) cycles.push_back({std::move(body)});
    return cycles;
  }
  int Waits() const { return CountOf(LogText(), kWaiting); }
  bool WaitForServing(int times = 1) {
    return Eventually([&] { return Waits() >= times; });
  }
  int Receipts() const { return CountOf(LogText(), " - Receive data: "); }
  std::vector<std::string> XmlFiles() const { return testutil::FileNames(xml_); }

  // sapsim call with `csv` as the batch.
  testutil::RunResult Call(const std::string& csv, const std::string& function = "Z_E2E_SMALL",
                                  const std::string& structure = "ZE2E_SMALL",
                                  const std::string& program_id = kProgramId) {
    const std::string csv_file = dir_.Write("batch" + std::to_string(++calls_) + ".csv", csv);
    return testutil::RunCommand({sapsim::testing::SapsimPath(), "call", "--port", sapsim_->port_text(),
                                        "--program-id", program_id, "--function", function, "--structure",
                                        structure, "--csv", csv_file});
  }

  testutil::TempDir dir_;
  std::string instance_;
  const std::string logs_ = dir_.File("logs"), xml_ = dir_.File("xml"), work_ = dir_.File("work");
  std::map<std::string, std::string> settings_;
  std::unique_ptr<sapsim::testing::SapsimProcess> sapsim_;
  int calls_ = 0;
};

}  // namespace e2e
