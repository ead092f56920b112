#pragma once
// The batch server against a simulated SAP system, as a user runs them: a
// system file from tests/e2e/data/ and an INI file written by the test,
// sapsim serve on a free port, and sapsim call playing SAP. Who runs the
// worker (the batchserver binary, or the test's own process) is the deriving
// test's choice.

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <map>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "tests/sapsim/support/rfc_library.h"
#include "tests/sapsim/support/sapsim_process.h"
#include "tests/support/expected_file.h"
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

// A system file under tests/e2e/data/. In system.json ZKTZ_BATCHES offers two
// functions (a row with every field type, a small one); rows with ACTIVE y and
// blank and one naming a structure that does not exist offer nothing.
inline std::string DataFile(const std::string& name) { return testutil::SourceDir() + "/tests/e2e/data/" + name; }

// One service cycle as the log shows it: the entries after a header block.
struct LoggedCycle {
  std::string body;
  int Errors() const { return CountOf(body, " - RFC_ERROR_INFO\nKey: "); }
  int Unknown() const { return CountOf(body, " - UNKNOWN EXEPTION\n\r\n"); }
  bool Serving() const { return body.find(kWaiting) != std::string::npos; }
  // Nothing but one time-stamped library error: "MM/DD/YY hh:mm:ss - RFC_ERROR_INFO",
  // the Key, Status, Message and Initstate lines, then CR LF.
  bool IsOneLibraryError() const {
    return std::regex_match(body, std::regex("\\d\\d/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d - RFC_ERROR_INFO\nKey: [^\r\n]*\nStatus: "
                                             "[^\r\n]*\nMessage: [^\r\n]*\nInitstate: [^\r\n]*\r\n"));
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

  // sapsim serving the data file `system` on `port` (0: a free one); the
  // settings follow it.
  void StartSapsim(uint16_t port = 0, const std::vector<std::string>& extra = {}, bool message_server = false,
                   const std::string& system = "system.json") {
    sapsim_.reset();
    sapsim::testing::SapsimProcess::Options options{DataFile(system), port, message_server, extra};
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
  // `text` with what differs between runs as fixed placeholders: the test's
  // directory, the instance, log times and dates (the daily log's name too),
  // batch ids numbered as they appear.
  std::string Normalised(std::string text) const {
    text = testutil::WithPlaceholders(testutil::Normalised(text, {{dir_.path(), "<dir>"}, {instance_, "<instance>"}}),
                                      {{R"(/\d{8}\.log)", "/YYYYMMDD.log"}});
    std::map<std::string, size_t> ids;
    for (std::smatch id; std::regex_search(text, id, std::regex(R"(\b[0-9]{15}\b)"));) {
      const size_t number = ids.emplace(id.str(), ids.size() + 1).first->second;
      text.replace(static_cast<size_t>(id.position(0)), 15, "<id" + std::to_string(number) + ">");
    }
    return text;
  }

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
  std::atomic<int> calls_{0};  // callers may run on several threads
};

}  // namespace e2e
