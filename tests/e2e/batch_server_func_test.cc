// The batch functions, the XML document of a batch and the worker's handlers
// where the batch server end to end cannot reach them. librfcsim.so is loaded
// for its local parts (internal tables); no SAP system is needed.

#include "app/batch_server_func.h"

#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <set>
#include <thread>
#include <tuple>

#include "access/sap_table.h"
#include "app/batch_server_app.h"
#include "app/globals.h"
#include "app/worker.h"
#include "output/xml_batch_document.h"
#include "platform/clock.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/sapsim/support/rfc_library.h"
#include "tests/support/expected_file.h"
#include "tests/support/field_info.h"
#include "tests/support/polling.h"
#include "tests/support/temp_dir.h"

namespace {

using testutil::CountOf;
using testutil::Join;
using Columns = CBatchServerFunc::DdColumns;
// Dictionary fields: name, column, type, length.
Columns Make(std::initializer_list<std::tuple<const char*, int, int, int>> list) {
  Columns columns;
  uint16_t key = 0;
  for (const auto& [name, column, type, length] : list) {
    columns[++key] = std::make_unique<CSapColumn>(name, column, 0, type, length, 0);
  }
  return columns;
}

class BatchFunctionTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(LoadRfcLibrary(sapsim::testing::LibraryPath().c_str())); }
  void TearDown() override { ProcessSettings() = CSettings(); }

  CRfcConnection connection_;
  CBatchServerApp app_{&connection_, nullptr};
};

std::string g_seen;  // what the handler saw: id, answer flag
bool g_fail = false;
int32_t RecordingHandler(CBatchServerFunc* function) {
  g_seen = testutil::Join(function->GetBatchId(), function->GetReturnCodeParam()->IsActive());
  if (g_fail) throw std::string("log unavailable");
  return 1;
}

std::string g_document;
int32_t BuildDocument(CBatchServerFunc* function) {
  CXmlBatchDocument document(*function, 1);
  document.Build();
  g_document = document.BuildInMemory();
  return 1;
}

// The descriptor array: name, column and offset of each record ("zero" for
// an all-zero one); then the row width and the table's line length.
std::string Descriptors(const CBatchServerFunc& function) {
  static const CRfcFieldInfo zero{};
  std::string text;
  for (const CRfcFieldInfo& record : function.GetFieldInfos()) {
    const bool is_zero = std::memcmp(&record, &zero, sizeof record) == 0;
    text += is_zero ? " zero" : " " + Join(record.name, record.column, record.offset);
  }
  return text + " width " + std::to_string(function.GetRowWidth()) + "\n";
}

// Each step writes a line (or a document); the text is compared whole.
TEST_F(BatchFunctionTest, DescriptorsRefusalsIdsAnswersAndDocumentAsOneApprovedText) {
  // Delivered out of order; columns decide the place. The plain sum is the
  // row width; the line is laid out naturally aligned.
  Columns columns = Make({{"COUNT", 3, TYPE_INT, 4}, {"CODE", 1, TYPE_CHAR, 3}, {"WEIGHT", 2, TYPE_FLOAT, 8},
                          {"LEVEL", 4, TYPE_INT2, 2}});
  columns[9] = nullptr;  // an empty entry is no field
  CBatchServerFunc function(&app_, "z_mixed", "ZMIXED", columns, nullptr);
  std::string text = std::string(function.GetName()) + " answers " + std::to_string(function.GetReturnCodeParam()->IsActive());
  // The dictionary's own records now count from 0.
  for (uint16_t key = 1; key <= 4; ++key) text += " " + std::to_string(columns[key]->GetColumn());
  text += Descriptors(function) + "line length " + std::to_string(function.GetTableParam()->GetLineLength()) + "\n";
  // A structure without fields still offers its function.
  Columns none;
  text += Descriptors(CBatchServerFunc(&app_, "Z_EMPTY", "ZEMPTY", none, nullptr));

  // A column outside the structure is refused before anything changes; so
  // are two fields on one position, which leave another position empty.
  text += "== refused\n";
  for (const int bad_column : {0, 4, -1, 65537, 3000, 1}) {
    Columns bad = Make({{"FIRST", 1, TYPE_CHAR, 10}, {"SECOND", bad_column, TYPE_CHAR, 8}, {"THIRD", 3, TYPE_CHAR, 3}});
    if (bad_column == 1) bad.erase(3);
    try {
      CBatchServerFunc refused(&app_, "Z_BAD", "ZBROKEN", bad, nullptr);
    } catch (const std::string& message) {
      text += message;
    }
    for (const auto& [key, column] : bad) text += " " + std::to_string(column->GetColumn());
    text += "\n";
  }
  text += "functions offered: " + std::to_string(app_.GetFunctionCount()) + "\n== batch ids\n";
  text += CBatchServerFunc::FormatBatchId(1047032436, 7) + " " + CBatchServerFunc::FormatBatchId(0, 0) + " " +
          CBatchServerFunc::FormatBatchId(1795387013, 999) + "\n";

  // The id is stamped before the handler runs, the answer set after it; a
  // handler failure leaves Process unchanged and nothing is answered; without
  // handler a batch is still answered. OnIdle tells whether a batch came.
  text += "== process: rc, handler saw, answer, active, idle\n";
  Columns one = Make({{"FIRST", 1, TYPE_CHAR, 10}});
  CBatchServerFunc batch(&app_, "Z_BATCH", "ZONE", one, &RecordingHandler);
  CBatchServerFunc silent(&app_, "Z_SILENT", "ZONE", one = Make({{"FIRST", 1, TYPE_CHAR, 10}}), nullptr);
  text += "fresh idle " + std::to_string(app_.OnIdle());
  text += " then " + std::to_string(app_.OnIdle()) + "\n";
  const std::pair<CBatchServerFunc*, bool> runs[] = {{&batch, false}, {&batch, true}, {&silent, false}};
  for (const auto& [processed, fail] : runs) {
    g_fail = fail;
    g_seen.clear();
    CRfcSimpleParam* rc = processed->GetReturnCodeParam();
    rc->Value() = 0;
    rc->SetActive(0);
    try {
      text += std::to_string(processed->Process());
    } catch (const std::string& failure) {
      text += failure;
    }
    const std::string id = processed->GetBatchId() + "|";
    text += " saw " + (g_seen.rfind(id, 0) == 0 ? "<id>|" + g_seen.substr(id.size()) : "'" + g_seen + "'") + " ";
    text += testutil::Join(static_cast<RFC_INT>(rc->Value()), rc->IsActive(), app_.OnIdle()) + "\n";
  }
  g_fail = false;

  // A column the received table has no descriptor for has no name either; it
  // is left out of every row instead of breaking the document.
  Columns gap = Make({{"H_IDENT", 1, TYPE_CHAR, 4}, {"X", 2, TYPE_CHAR, 3}});
  CBatchServerFunc document(&app_, "Z_GAP", "ZGAP_LINE", gap, &BuildDocument);
  CRfcTableParam& table = *document.GetTableParam();
  table.Create();
  table.GotoLine(0);
  table.GetData(table.GetCurrentLine(), 0) = "R1";
  table.GetData(table.GetCurrentLine(), 1) = "v";
  // Describe column 3 but not column 2; describing rewrites the line length,
  // which the lines already filled keep.
  const int width = table.GetTotalLength();
  CRfcFieldInfo extra = test_support::Field("LAST", 3, TYPE_CHAR, 1);
  table.AddFieldInfo(&extra, 1);
  table.SetLength(width);
  text += "== document, column 2 without a name: " + testutil::Join(table.GetFieldInfo(2) == nullptr);
  text += testutil::Join(document.Process());
  text += "\n" + std::regex_replace(g_document, std::regex(document.GetBatchId()), "<id>") + "\n";
  EXPECT_TRUE(testutil::MatchesExpectedFile(text, "tests/e2e/expected/batch_function.txt"));
}

// An id names the batch's file: ids taken back to back, from two threads at
// once, must never repeat, or a batch overwrites another one's document.
TEST_F(BatchFunctionTest, BatchIdIsTheCalendarsSecondsAndNeverRepeats) {
  const long long before = platform::CalendarSeconds();
  const std::string id = CBatchServerFunc::MakeBatchId();
  const long long after = platform::CalendarSeconds();
  ASSERT_TRUE(std::regex_match(id, std::regex("[0-9]{15}"))) << id;
  EXPECT_TRUE(std::stoll(id.substr(0, 12)) >= before && std::stoll(id.substr(0, 12)) <= after) << id;

  std::set<std::string> ids[2];
  auto take = [&ids](int t) {
    for (int i = 0; i < 40; ++i) ids[t].insert(CBatchServerFunc::MakeBatchId());
  };
  std::thread other(take, 1);
  take(0);
  other.join();
  ids[0].merge(ids[1]);
  EXPECT_EQ(ids[0].size(), 80u);
}

TEST_F(BatchFunctionTest, ADocumentThatOutgrowsItsFirstBufferComesOutWhole) {
  Columns columns = Make({{"H_IDENT", 1, TYPE_CHAR, 200}});
  CBatchServerFunc function(&app_, "Z_Q", "ZQ", columns, &BuildDocument);
  CRfcTableParam& table = *function.GetTableParam();
  table.Create();
  std::string quotes, rows;
  for (int i = 0; i < 200; ++i) quotes += "&quot;";  // every text byte escapes to six
  for (int r = 0; r < 50; ++r) {
    table.GotoLine(r);
    table.GetData(table.GetCurrentLine(), 0) = std::string(200, '"').c_str();
    rows += "\n    <" + quotes + ">\n      <H_IDENT>" + quotes + "</H_IDENT>\n    </" + quotes + ">";
  }
  ASSERT_EQ(function.Process(), 0);
  EXPECT_EQ(g_document, std::string(CXmlDocument::kDeclaration) + "\n\n\n<BATCH>\n  <Z_Q TIMESTAMP=\"" +
                            function.GetBatchId() + "\" BEGIN=\"1\" TABLE=\"ZQ\">" + rows + "\n  </Z_Q>\n</BATCH>");
}

// OnReceiveData with an empty log directory keeps the log where it was;
// ListenCallback goes on until the stop event is set or gone.
TEST_F(BatchFunctionTest, WorkerHandlersKeepTheLogWithoutDirectoryAndStopOnTheEvent) {
  testutil::TempDir dir;
  const std::string instance = testutil::UniqueName("H7HANDLER"), elsewhere = dir.File("elsewhere.log");
  ProcessSettings().Set(CSettings::kInstanceName, instance);
  ProcessSettings().Set(CSettings::kXmlDirectory, dir.path());
  ProcessSettings().Set(CSettings::kListenTimer, "5");
  Columns columns = Make({{"H_IDENT", 1, TYPE_CHAR, 10}});
  CBatchServerFunc function(nullptr, "Z_HANDLED", "ZHANDLED", columns, &OnReceiveData);  // no application either
  function.GetTableParam()->Create();
  ProcessLog().SetPath(elsewhere);
  ASSERT_EQ(function.Process(), 0);
  EXPECT_EQ(Join(ProcessLog().GetPath(),
                 CountOf(testutil::ReadBytes(elsewhere), " - Receive data: " + function.GetBatchId() + ".xml\r\n")),
            Join(elsewhere, 1));
  ProcessLog().SetPath("/tmp/" + CLogFile::MakeUniqueName() + ".log");

  std::unique_ptr<platform::Event> stop = platform::Event::Create(instance, false);
  ASSERT_TRUE(stop);
  CWorkerContext context, other;
  // Each answer, then the running flag it left (arguments have no order).
  std::string seen = Join(ListenCallback(&connection_, &context));
  seen += Join(context.running);
  ASSERT_TRUE(stop->Set());
  seen += Join(ListenCallback(&connection_, &context));
  seen += Join(context.running);
  // Without the event at all the worker counts as stopped as well.
  stop.reset();
  seen += Join(ListenCallback(nullptr, &other));
  seen += Join(other.running, ListenCallback(nullptr, nullptr));
  EXPECT_EQ(seen, "1|1|0|0|0|0|0|");
}

}  // namespace
