// The worker's two handlers where the batch server end to end cannot reach
// them: OnReceiveData with an empty log directory, and ListenCallback's
// answers to the stop event.

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
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

  std::string EntryOf(const std::string& id) const { return " - Receive data: " + id + ".xml\r\n"; }

  testutil::TempDir dir_;
  std::string instance_;
  std::string logs_;
  std::string xml_;
  CRfcConnection connection_;
  std::unique_ptr<CBatchServerApp> app_;
  std::unique_ptr<CBatchServerFunc> function_;
};

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
