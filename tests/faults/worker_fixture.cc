#include "tests/faults/worker_fixture.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "app/settings.h"
#include "app/globals.h"
#include "platform/event.h"
#include "tests/sapsim/support/rfc_library.h"
#include "tests/support/log_reading.h"

namespace faults {

namespace {

// One batch function over a two-field structure; ZKTZ_BATCHES says so.
constexpr const char* kSystem = R"({
  "system_id": "FLT", "release": "46C", "kernel_release": "46D", "host": "faulthost",
  "logon": [{"client": "100", "user": "BATCH", "password": "secret"}],
  "structures": {
    "ZKTZ_BATCHES": [
      {"name": "MANDT", "type": "C", "length": 3},
      {"name": "PROGRAMM", "type": "C", "length": 40},
      {"name": "FUNCTION", "type": "C", "length": 30},
      {"name": "STRUCTURE", "type": "C", "length": 30},
      {"name": "ACTIVE", "type": "C", "length": 1}
    ],
    "ZFAULT_LINE": [
      {"name": "H_IDENT", "type": "C", "length": 10},
      {"name": "NAME", "type": "C", "length": 20}
    ]
  },
  "tables": {
    "ZKTZ_BATCHES": [
      {"MANDT": "100", "PROGRAMM": "BATCHFAULT", "FUNCTION": "Z_FAULT_BATCH", "STRUCTURE": "ZFAULT_LINE", "ACTIVE": "Y"}
    ]
  }
})";

}  // namespace

int LoggedCycle::ErrorEntries() const { return CountOf(body, " - RFC_ERROR_INFO\nKey: "); }
int LoggedCycle::UnknownEntries() const { return CountOf(body, " - UNKNOWN EXEPTION\n\r\n"); }
bool LoggedCycle::Serving() const { return body.find("\r\n...WAITING FOR BATCHES...\r\n") != std::string::npos; }

bool LoggedCycle::IsOneLibraryError() const {
  if (!testutil::StartsWithLogTime(body)) return false;
  // The record's four fields, one line each, and the entry's only line end.
  size_t at = 17;
  for (const char* label : {" - RFC_ERROR_INFO\nKey: ", "\nStatus: ", "\nMessage: ", "\nInitstate: "}) {
    if (body.compare(at, std::string(label).size(), label) != 0) return false;
    at = body.find_first_of("\n\r", at + std::string(label).size());
    if (at == std::string::npos) return false;
  }
  return body.compare(at, std::string::npos, "\r\n") == 0;
}

void WorkerFixture::SetUp() {
  instance_ = testutil::UniqueName("FAULT");
  logs_ = dir_.File("logs");
  xml_ = dir_.File("xml");
  std::filesystem::create_directory(logs_);
  std::filesystem::create_directory(xml_);
  system_file_ = dir_.Write("system.json", kSystem);
}

void WorkerFixture::TearDown() {
  EXPECT_TRUE(StopWorker());
  app_.reset();
  sapsim_.reset();
}

void WorkerFixture::StartSapsim(uint16_t port, const std::vector<std::string>& extra) {
  sapsim::testing::SapsimProcess::Options options;
  options.system_file = system_file_;
  options.port = port;
  options.extra = extra;
  sapsim_ = std::make_unique<sapsim::testing::SapsimProcess>(options);
}

void WorkerFixture::StartWorker() {
  const std::string ini = dir_.Write(
      "batch.ini", "[" + instance_ + "]\r\n"
                   "sap.server.gateway.host=127.0.0.1\r\n"
                   "sap.server.gateway.service=" + sapsim_->port_text() + "\r\n"
                   "sap.server.programm.id=" + kProgramId + "\r\n"
                   "sap.server.listen.timer=10\r\n"
                   "sap.client.loadbalancing=No\r\n"
                   "sap.client.host=127.0.0.1\r\n"
                   "sap.client.sysnumber=00\r\n"
                   "sap.client.client=100\r\n"
                   "sap.client.user.id=BATCH\r\n"
                   "sap.client.user.password=secret\r\n"
                   "sap.client.language=EN\r\n"
                   "sap.client.trace=0\r\n"
                   "sap.library=" + sapsim::testing::LibraryPath() + "\r\n"
                   "sap.path=" + logs_ + "\r\n"
                   "xml.path=" + xml_ + "\r\n");
  app_ = std::make_unique<CBatchApp>(CSettings(instance_ + " " + ini));
  ASSERT_EQ(app_->Start(), 1);
}

bool WorkerFixture::StopWorker() {
  if (!app_) return true;
  std::unique_ptr<platform::Event> stop = platform::Event::Open(instance_);
  if (!stop || !stop->Set()) return false;
  for (const auto& context : ProcessWorkerContexts()) {
    if (!context->thread_handle->Join(20000)) return false;
  }
  return true;
}

std::string WorkerFixture::LogText() const { return testutil::FilesText(logs_); }

std::vector<LoggedCycle> WorkerFixture::Cycles() const {
  std::vector<LoggedCycle> cycles;
  for (std::string& body : testutil::ServiceCycles(LogText())) cycles.push_back({std::move(body)});
  return cycles;
}

int WorkerFixture::Waits() const { return CountOf(LogText(), "\r\n...WAITING FOR BATCHES...\r\n"); }
int WorkerFixture::Receipts() const { return CountOf(LogText(), " - Receive data: "); }
bool WorkerFixture::WaitForServing(int times) { return Eventually([&] { return Waits() >= times; }); }

sapsim::testing::RunResult WorkerFixture::Call(int rows, const std::string& tag) {
  std::string csv = "H_IDENT,NAME\n";
  for (int i = 0; i < rows; ++i) csv += tag + std::to_string(i) + ",line " + std::to_string(i) + "\n";
  const std::string csv_file = dir_.Write("batch" + std::to_string(++calls_) + ".csv", csv);
  return sapsim::testing::RunCommand({sapsim::testing::SapsimPath(), "call", "--port", sapsim_->port_text(),
                                      "--program-id", kProgramId, "--function", kFunction, "--structure",
                                      kStructure, "--csv", csv_file});
}

std::vector<std::string> WorkerFixture::ReceivedIds() const {
  const std::string log = LogText();
  const std::string entry = " - Receive data: ";
  std::vector<std::string> ids;
  for (size_t at = log.find(entry); at != std::string::npos; at = log.find(entry, at + 1)) {
    // Fifteen digits, then ".xml" and the line end.
    const std::string id = log.substr(at + entry.size(), 15);
    const bool digits = id.size() == 15 && std::all_of(id.begin(), id.end(), [](char c) {
                          return std::isdigit(static_cast<unsigned char>(c)) != 0;
                        });
    if (digits && log.compare(at + entry.size() + 15, 6, ".xml\r\n") == 0) ids.push_back(id);
  }
  return ids;
}

std::string WorkerFixture::XmlPath(const std::string& batch_id) const { return xml_ + "/" + batch_id + ".xml"; }

}  // namespace faults
