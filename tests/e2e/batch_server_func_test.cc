// The batch functions: the descriptor array built from the dictionary,
// the refusal of columns outside the structure, batch ids, and one batch's
// processing. librfcsim.so is loaded for its local parts (structure
// registry, internal tables); no SAP system is needed.

#include "app/batch_server_func.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "access/sap_table.h"
#include "app/batch_app.h"
#include "app/batch_server_app.h"
#include "platform/clock.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/sapsim/support/rfc_library.h"

namespace {

using Columns = CBatchServerFunc::DdColumns;

void AddColumn(Columns& columns, uint16_t key, const std::string& name, int column, int type,
               int length, int decimals = 0) {
  columns[key] = std::make_unique<CSapColumn>(name, column, 0, type, length, decimals);
}

// Three CHAR fields of 10, 8 and 3 bytes at positions 1, 2, 3.
Columns ThreeCharFields() {
  Columns columns;
  AddColumn(columns, 1, "FIRST", 1, TYPE_CHAR, 10);
  AddColumn(columns, 2, "SECOND", 2, TYPE_CHAR, 8);
  AddColumn(columns, 3, "THIRD", 3, TYPE_CHAR, 3);
  return columns;
}

bool IsZeroRecord(const CRfcFieldInfo& record) {
  static const CRfcFieldInfo zero{};
  return std::memcmp(&record, &zero, sizeof record) == 0;
}

class BatchFunctionTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_TRUE(LoadRfcLibrary(sapsim::testing::LibraryPath().c_str()));
  }
};

// (Names, BATCH_TABLE, BATCH_RC and the listen callback at work: the batch
// server end to end.)
TEST_F(BatchFunctionTest, DescriptorArrayHoldsTheFieldsByColumnAlignedThenTwoZeroRecords) {
  CRfcConnection connection;
  CBatchServerApp app(&connection, nullptr);
  // Delivered out of order; columns decide the place.
  Columns columns;
  AddColumn(columns, 3, "COUNT", 3, TYPE_INT, 4);
  AddColumn(columns, 1, "CODE", 1, TYPE_CHAR, 3);
  AddColumn(columns, 2, "WEIGHT", 2, TYPE_FLOAT, 8);
  AddColumn(columns, 4, "LEVEL", 4, TYPE_INT2, 2);
  CBatchServerFunc function(&app, "z_mixed", "ZMIXED", columns, nullptr);
  EXPECT_STREQ(function.GetName(), "Z_MIXED");
  EXPECT_EQ(function.GetReturnCodeParam()->IsActive(), 0);
  // The dictionary's own records now count from 0.
  for (uint16_t key = 1; key <= 4; ++key) EXPECT_EQ(columns[key]->GetColumn(), key - 1);

  // The plain sum is the row width; the line is laid out naturally aligned.
  EXPECT_EQ(function.GetRowWidth(), 17);
  const std::vector<CRfcFieldInfo>& array = function.GetFieldInfos();
  ASSERT_EQ(array.size(), 6u);
  const std::pair<const char*, int> placed[] = {{"CODE", 0}, {"WEIGHT", 8}, {"COUNT", 16}, {"LEVEL", 20}};
  for (int i = 0; i < 4; ++i) {
    EXPECT_STREQ(array[i].name, placed[i].first);
    EXPECT_EQ(array[i].column, i);
    EXPECT_EQ(array[i].offset, placed[i].second);
  }
  EXPECT_EQ(function.GetTableParam()->GetLineLength(), 24);
  EXPECT_TRUE(IsZeroRecord(array[4]));
  EXPECT_TRUE(IsZeroRecord(array[5]));

  // A structure without fields still offers its function.
  Columns none;
  CBatchServerFunc empty(&app, "Z_EMPTY", "ZEMPTY", none, nullptr);
  EXPECT_EQ(empty.GetRowWidth(), 0);
  ASSERT_EQ(empty.GetFieldInfos().size(), 2u);
  EXPECT_TRUE(IsZeroRecord(empty.GetFieldInfos()[0]));
}

TEST_F(BatchFunctionTest, ColumnOutsideTheStructureIsRefusedBeforeAnythingChanges) {
  CRfcConnection connection;
  CBatchServerApp app(&connection, nullptr);
  for (const int bad_column : {0, 4, -1, 65537, 3000}) {
    Columns columns;
    AddColumn(columns, 1, "FIRST", 1, TYPE_CHAR, 10);
    AddColumn(columns, 2, "SECOND", bad_column, TYPE_CHAR, 8);
    AddColumn(columns, 3, "THIRD", 3, TYPE_CHAR, 3);
    std::string message;
    try {
      CBatchServerFunc function(&app, "Z_BAD", "ZBROKEN", columns, nullptr);
    } catch (const std::string& text) {
      message = text;
    }
    EXPECT_EQ(message, "Structure ZBROKEN: column " + std::to_string(bad_column) +
                           " of field SECOND is outside 1..3");
    EXPECT_EQ(columns[1]->GetColumn(), 1);
    EXPECT_EQ(columns[2]->GetColumn(), bad_column);
    EXPECT_EQ(columns[3]->GetColumn(), 3);
  }
  // Two fields on one position leave another position empty: refused too.
  Columns twice;
  AddColumn(twice, 1, "FIRST", 1, TYPE_CHAR, 10);
  AddColumn(twice, 2, "SECOND", 1, TYPE_CHAR, 8);
  EXPECT_THROW(CBatchServerFunc(&app, "Z_TWICE", "ZTWICE", twice, nullptr), std::string);
  EXPECT_EQ(app.GetFunctionCount(), 0);
}

TEST_F(BatchFunctionTest, BatchIdIsSecondsInTwelveDigitsAndMillisecondsInThree) {
  EXPECT_EQ(CBatchServerFunc::FormatBatchId(1047032436, 7), "001047032436007");
  EXPECT_EQ(CBatchServerFunc::FormatBatchId(0, 0), "000000000000000");
  EXPECT_EQ(CBatchServerFunc::FormatBatchId(1795387013, 999), "001795387013999");

  // The seconds are the calendar's, read between two clock readings.
  const long long before = platform::CalendarSeconds();
  const std::string id = CBatchServerFunc::MakeBatchId();
  const long long after = platform::CalendarSeconds();
  ASSERT_TRUE(std::regex_match(id, std::regex("[0-9]{15}"))) << id;
  EXPECT_GE(std::stoll(id.substr(0, 12)), before);
  EXPECT_LE(std::stoll(id.substr(0, 12)), after);
}

// An id names the batch's file: ids taken back to back, from two threads at
// once, must never repeat, or a batch overwrites another one's document.
TEST_F(BatchFunctionTest, BatchIdsTakenBackToBackNeverRepeat) {
  std::vector<std::string> ids[2];
  std::thread workers[2];
  for (int t = 0; t < 2; ++t) {
    workers[t] = std::thread([&ids, t] {
      for (int i = 0; i < 40; ++i) ids[t].push_back(CBatchServerFunc::MakeBatchId());
    });
  }
  for (std::thread& worker : workers) worker.join();
  std::set<std::string> distinct(ids[0].begin(), ids[0].end());
  distinct.insert(ids[1].begin(), ids[1].end());
  EXPECT_EQ(distinct.size(), 80u);
}

struct HandlerLog {
  int calls = 0;
  CBatchServerFunc* function = nullptr;
  std::string batch_id;
  int rc_active = -1;
  bool fail = false;
};
HandlerLog g_handler;

int32_t RecordingHandler(CBatchServerFunc* function) {
  ++g_handler.calls;
  g_handler.function = function;
  g_handler.batch_id = function->GetBatchId();
  g_handler.rc_active = function->GetReturnCodeParam()->IsActive();
  if (g_handler.fail) throw std::string("log unavailable");
  return 1;
}

TEST_F(BatchFunctionTest, ProcessStampsTheBatchCallsTheHandlerAndAnswersOne) {
  CRfcConnection connection;
  CBatchServerApp app(&connection, nullptr);
  Columns columns = ThreeCharFields();
  CBatchServerFunc function(&app, "Z_BATCH", "ZTHREE", columns, &RecordingHandler);
  EXPECT_EQ(app.OnIdle(), 1);  // the flag of a fresh application
  EXPECT_EQ(app.OnIdle(), 0);

  g_handler = HandlerLog{};
  EXPECT_EQ(function.Process(), 0);
  EXPECT_EQ(g_handler.calls, 1);
  EXPECT_EQ(g_handler.function, &function);
  // The id is stamped before the handler runs, the answer set after it.
  EXPECT_TRUE(std::regex_match(g_handler.batch_id, std::regex("[0-9]{15}")));
  EXPECT_EQ(g_handler.batch_id, function.GetBatchId());
  EXPECT_EQ(g_handler.rc_active, 0);
  CRfcSimpleParam* rc = function.GetReturnCodeParam();
  EXPECT_EQ(static_cast<RFC_INT>(rc->Value()), 1);
  EXPECT_EQ(rc->IsActive(), 1);
  EXPECT_EQ(app.OnIdle(), 1);

  // A handler failure leaves Process unchanged; nothing is answered.
  g_handler.fail = true;
  rc->Value() = 0;
  rc->SetActive(0);
  EXPECT_THROW(function.Process(), std::string);
  EXPECT_EQ(static_cast<RFC_INT>(rc->Value()), 0);
  EXPECT_EQ(rc->IsActive(), 0);
  EXPECT_EQ(app.OnIdle(), 0);

  // Without handler a batch is still answered.
  CBatchServerFunc silent(&app, "Z_SILENT", "ZTHREE", columns = ThreeCharFields(), nullptr);
  EXPECT_EQ(silent.Process(), 0);
  EXPECT_EQ(static_cast<RFC_INT>(silent.GetReturnCodeParam()->Value()), 1);
}

}  // namespace
