// CSapTable: a table parameter's lines as texts, with column descriptors
// taken from the first line.

#include "access/sap_table.h"

#include <cstring>

#include <gtest/gtest.h>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_data.h"
#include "tests/access/local_parameters.h"

namespace access_test {
namespace {

TEST(SapTableTest, NoParameterOrNoLinesGiveATableWithoutColumns) {
  CSapTable none(nullptr);
  EXPECT_EQ("", none.GetName());
  EXPECT_EQ(0, none.SetRow(0));
  EXPECT_EQ("", none.GetValue(0));
  auto param = MakeTable("ORDERS", {{"IDENT", TYPE_CHAR, 10}, {"QTY", TYPE_NUM, 6}});
  CSapTable empty(param.get());
  EXPECT_EQ("ORDERS", empty.GetName());
  for (const CSapTable* table : {&none, &empty}) {
    EXPECT_EQ(0u, table->GetRowCount());
    EXPECT_EQ(0, table->GetColumnCount());
    EXPECT_EQ(nullptr, table->GetColumnName(0));
  }
}

TEST(SapTableTest, RowsAndColumnsFollowTheLinesAndTheFirstLinesFields) {
  auto param = MakeFilledTable("orders", {{"IDENT", TYPE_CHAR, 10}, {"QTY", TYPE_NUM, 6}},
                               {{"A-1", "5"}, {"B-2", "17"}, {"C-3", "0"}});
  CSapTable table(param.get());
  EXPECT_EQ("ORDERS", table.GetName());  // parameter names are upper case
  EXPECT_EQ(3u, table.GetRowCount());
  EXPECT_EQ(2, table.GetColumnCount());
  EXPECT_EQ(16, table.GetTotalLength());
  EXPECT_STREQ("IDENT", table.GetColumnName(0));
  EXPECT_STREQ("QTY", table.GetColumnName(1));
  EXPECT_EQ(nullptr, table.GetColumnName(2));
  EXPECT_EQ(nullptr, table.GetColumnName(-1));
  ASSERT_NE(nullptr, table.GetColumn(1));
  EXPECT_EQ(TYPE_NUM, table.GetColumn(1)->GetType());
  EXPECT_EQ(6, table.GetColumn(1)->GetLength());
  EXPECT_EQ(10, table.GetColumn(1)->GetOffset());
  EXPECT_EQ(1, table.GetColumn(1)->GetColumn());

  // The last line built stays current.
  EXPECT_EQ("C-3", table.GetValue(std::string("IDENT")));
  ASSERT_EQ(1, table.SetRow(1));
  EXPECT_EQ("B-2", table.GetValue(0));
  EXPECT_EQ("000017", table.GetValue(std::string("QTY")));
  EXPECT_EQ("", table.GetValue(2));
  EXPECT_EQ("", table.GetValue(-1));
  EXPECT_EQ("", table.GetValue(std::string("qty")));  // names are case-sensitive
  ASSERT_EQ(1, table.SetRow(0));
  EXPECT_EQ("A-1", table.GetValue(std::string("IDENT")));
  // Beyond the rows there is no current row.
  for (int row : {3, -1}) {
    EXPECT_EQ(0, table.SetRow(row));
    EXPECT_EQ("", table.GetValue(0));
    EXPECT_EQ("", table.GetValue(std::string("IDENT")));
  }
}

// Texts read where they lie in the line must be the data value's own
// conversion, whatever bytes the line holds: blanks, NULs, all blank.
TEST(SapTableTest, TextFieldsReadInPlaceMatchTheValuesConversion) {
  const std::vector<std::string> raws = {"ab  ", std::string("a\0b ", 4), "    ", "",
                                         std::string("\0   ", 4), " x y", "1234"};
  const int lengths[] = {4, 4, 8, 6};
  auto param = MakeTable("T", {{"C", TYPE_CHAR, 4}, {"N", TYPE_NUM, 4}, {"D", TYPE_DATE, 8},
                               {"TM", TYPE_TIME, 6}});
  for (size_t r = 0; r < raws.size(); ++r) AddLine(*param, {});
  for (size_t r = 0; r < raws.size(); ++r) {
    void* line = ItGetLine(param->GetTableHandle(), static_cast<unsigned>(r + 1));
    for (int c = 0; c < 4; ++c) {
      std::memcpy(param->GetData(line, c).GetData(), (raws[r] + "        ").data(), lengths[c]);
    }
  }
  CSapTable table(param.get());
  for (size_t r = 0; r < raws.size(); ++r) {
    ASSERT_EQ(1, table.SetRow(static_cast<int32_t>(r)));
    void* line = ItGetLine(param->GetTableHandle(), static_cast<unsigned>(r + 1));
    for (int c = 0; c < 4; ++c) {
      EXPECT_EQ(static_cast<CSTR>(param->GetData(line, c)), table.GetValue(c)) << r << "/" << c;
    }
  }
}

TEST(SapTableTest, AFieldNameUsedTwiceFindsTheLaterFieldByName) {
  auto param = MakeFilledTable("T", {{"A", TYPE_CHAR, 2}, {"A", TYPE_CHAR, 2}}, {{"x", "y"}});
  CSapTable table(param.get());
  ASSERT_EQ(1, table.SetRow(0));
  EXPECT_EQ("y", table.GetValue(std::string("A")));
  EXPECT_EQ("x", table.GetValue(0));
  EXPECT_EQ("y", table.GetValue(1));
}

TEST(SapTableTest, AnUndescribedColumnHasNoDescriptorAndNoText) {
  auto param = MakeFilledTable(
      "T", {{"FIRST", TYPE_CHAR, 3, 0, 0}, {"THIRD", TYPE_CHAR, 5, 0, 2}}, {{"one", "", "three"}});
  CSapTable table(param.get());
  EXPECT_EQ(3, table.GetColumnCount());
  EXPECT_EQ(nullptr, table.GetColumnName(1));
  ASSERT_EQ(1, table.SetRow(0));
  EXPECT_EQ("one", table.GetValue(0));
  EXPECT_EQ("", table.GetValue(1));
  EXPECT_EQ("three", table.GetValue(std::string("THIRD")));
}

TEST(SapTableTest, AValueThatCannotBeReadAbandonsTheTable) {
  auto param = MakeFilledTable("T", {{"IDENT", TYPE_CHAR, 2}, {"AMOUNT", TYPE_BCD, 2}},
                               {{"a", "1"}, {"b", "2"}});
  // A digit nibble above 9 in the second line.
  ASSERT_EQ(1, param->GotoLine(1));
  CRfcData& amount = param->GetData(param->GetCurrentLine(), 1);
  const unsigned char broken[] = {0x0A, 0x1C};
  std::memcpy(amount.GetData(), broken, sizeof broken);

  try {
    CSapTable table(param.get());
    FAIL() << "a broken packed value was read";
  } catch (const char* text) {
    EXPECT_STREQ("CRfcData: Conversion from PACK type (BCD) failed", text);
  }
}

TEST(SapColumnTest, ColumnsFromValuesCutTheirNameLikeFieldRecords) {
  CSapColumn column("A_NAME_LONGER_THAN_THIRTY_ONE_CHARACTERS  ", 3, 14, TYPE_NUM, 6, 0);
  EXPECT_STREQ("A_NAME_LONGER_THAN_THIRTY_ONE_C", column.GetName());
  EXPECT_EQ(3, column.GetColumn());
  EXPECT_EQ(14, column.GetOffset());
  EXPECT_EQ(TYPE_NUM, column.GetType());
  EXPECT_EQ(6, column.GetLength());
  CSapColumn trimmed("QTY   ", 1, 0, TYPE_CHAR, 1, 0);
  EXPECT_STREQ("QTY", trimmed.GetName());
}

TEST(SapColumnTest, ACopiedRecordIsTerminatedEvenWhenItsNameFillsTheField) {
  CRfcFieldInfo record{};
  std::memset(record.name, 'N', sizeof record.name);
  record.type = TYPE_CHAR;
  record.length = 5;
  CSapColumn column(record);
  EXPECT_EQ(31u, std::strlen(column.GetName()));
  EXPECT_EQ(5, column.GetLength());
}

}  // namespace
}  // namespace access_test
