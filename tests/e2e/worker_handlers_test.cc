// The worker's two handlers: OnReceiveData (the XML file and the log entry
// of a batch, and what happens when their directories are missing) and
// ListenCallback (the stop event seen at an idle moment).

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <regex>
#include <string>

#include "access/sap_table.h"
#include "app/batch_app.h"
#include "app/batch_server_app.h"
#include "app/batch_server_func.h"
#include "app/globals.h"
#include "app/worker.h"
#include "platform/event.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/sapsim/support/rfc_library.h"
#include "tests/support/temp_dir.h"

namespace {

class WorkerHandlersTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_TRUE(LoadRfcLibrary(sapsim::testing::LibraryPath().c_str()));
  }

  void SetUp() override {
    instance_ = testutil::UniqueName("H7HANDLER");
    logs_ = dir_.File("logs");
    xml_ = dir_.File("xml");
    std::filesystem::create_directory(logs_);
    std::filesystem::create_directory(xml_);
    ProcessSettings() = CSettings();
    ProcessSettings().Set(CSettings::kInstanceName, instance_);
    ProcessSettings().Set(CSettings::kLogDirectory, logs_);
    ProcessSettings().Set(CSettings::kXmlDirectory, xml_);
    ProcessSettings().Set(CSettings::kListenTimer, "5");

    CBatchServerFunc::DdColumns columns;
    columns[1] = std::make_unique<CSapColumn>("H_IDENT", 1, 0, TYPE_CHAR, 10, 0);
    columns[2] = std::make_unique<CSapColumn>("NAME", 2, 0, TYPE_CHAR, 20, 0);
    app_ = std::make_unique<CBatchServerApp>(&connection_, nullptr);
    function_ = std::make_unique<CBatchServerFunc>(app_.get(), "Z_HANDLED", "ZHANDLED", columns,
                                                   &OnReceiveData);
    CRfcTableParam& table = *function_->GetTableParam();
    table.Create();
    table.GotoLine(0);
    table.GetData(table.GetCurrentLine(), 0) = "K1";
    table.GetData(table.GetCurrentLine(), 1) = "Jones & Co";
  }

  void TearDown() override {
    ProcessSettings() = CSettings();
    ProcessLog().SetPath("/tmp/" + CLogFile::MakeUniqueName() + ".log");
  }

  std::string LogPath() const { return logs_ + "/" + CLogFile::GetDate() + ".log"; }
  std::string XmlPath() const { return xml_ + "/" + function_->GetBatchId() + ".xml"; }
  std::string EntryOf(const std::string& id) const { return " - Receive data: " + id + ".xml\r\n"; }

  testutil::TempDir dir_;
  std::string instance_;
  std::string logs_;
  std::string xml_;
  CRfcConnection connection_;
  std::unique_ptr<CBatchServerApp> app_;
  std::unique_ptr<CBatchServerFunc> function_;
};

TEST_F(WorkerHandlersTest, BatchBecomesAnXmlFileAndALogEntry) {
  ASSERT_EQ(function_->Process(), 0);
  const std::string id = function_->GetBatchId();
  const std::string xml = testutil::ReadBytes(XmlPath());
  EXPECT_NE(xml.find("<Z_HANDLED TIMESTAMP=\"" + id + "\" BEGIN=\"1\" TABLE=\"ZHANDLED\">"),
            std::string::npos)
      << xml;
  EXPECT_NE(xml.find("      <NAME>Jones &amp; Co</NAME>\n"), std::string::npos) << xml;

  const std::string log = testutil::ReadBytes(LogPath());
  EXPECT_TRUE(std::regex_match(log, std::regex(R"(\d\d/\d\d/\d\d \d\d:\d\d:\d\d)" +
                                               std::string(" - Receive data: ") + id +
                                               R"(\.xml\r\n)")))
      << log;
  EXPECT_EQ(ProcessLog().GetPath(), LogPath());
  EXPECT_EQ(ProcessLog().GetDescription(), instance_);
  EXPECT_EQ(static_cast<RFC_INT>(function_->GetReturnCodeParam()->Value()), 1);
}

TEST_F(WorkerHandlersTest, MissingXmlDirectoryLosesTheFileButNotTheBatch) {
  std::filesystem::remove(xml_);
  ASSERT_EQ(function_->Process(), 0);
  EXPECT_FALSE(std::filesystem::exists(XmlPath()));
  EXPECT_FALSE(std::filesystem::exists(xml_));
  EXPECT_NE(testutil::ReadBytes(LogPath()).find(EntryOf(function_->GetBatchId())),
            std::string::npos);
  EXPECT_EQ(static_cast<RFC_INT>(function_->GetReturnCodeParam()->Value()), 1);
}

TEST_F(WorkerHandlersTest, TrailingSeparatorOfTheXmlDirectoryIsKept) {
  ProcessSettings().Set(CSettings::kXmlDirectory, xml_ + "/");
  ASSERT_EQ(function_->Process(), 0);
  EXPECT_TRUE(std::filesystem::exists(xml_ + "//" + function_->GetBatchId() + ".xml"));
}

TEST_F(WorkerHandlersTest, MissingLogDirectoryThrowsTheLogsMessageAfterTheXmlIsWritten) {
  std::filesystem::remove(logs_);
  std::string message;
  try {
    function_->Process();
  } catch (const std::string& text) {
    message = text;
  }
  EXPECT_EQ(message, "Error in log file for: '" + instance_ + "', file name: '" + LogPath() +
                         "', cause: '3'");
  EXPECT_TRUE(std::filesystem::exists(XmlPath()));
  // The batch is not answered.
  EXPECT_EQ(function_->GetReturnCodeParam()->IsActive(), 0);
}

TEST_F(WorkerHandlersTest, EmptyLogDirectoryKeepsTheLogWhereItWas) {
  const std::string elsewhere = dir_.File("elsewhere.log");
  ProcessLog().SetPath(elsewhere);
  ProcessSettings().Set(CSettings::kLogDirectory, "");
  ASSERT_EQ(function_->Process(), 0);
  EXPECT_EQ(ProcessLog().GetPath(), elsewhere);
  EXPECT_NE(testutil::ReadBytes(elsewhere).find(EntryOf(function_->GetBatchId())),
            std::string::npos);
}

TEST_F(WorkerHandlersTest, ListenCallbackGoesOnUntilTheStopEventIsSet) {
  std::unique_ptr<platform::Event> stop = platform::Event::Create(instance_, false);
  ASSERT_TRUE(stop);
  CWorkerContext context;
  CRfcConnection connection;
  EXPECT_EQ(ListenCallback(&connection, &context), 1);
  EXPECT_EQ(context.running, 1);

  ASSERT_TRUE(stop->Set());
  EXPECT_EQ(ListenCallback(&connection, &context), 0);
  EXPECT_EQ(context.running, 0);

  // Without the event at all the worker counts as stopped as well.
  stop.reset();
  CWorkerContext other;
  EXPECT_EQ(ListenCallback(nullptr, &other), 0);
  EXPECT_EQ(other.running, 0);
}

}  // namespace
