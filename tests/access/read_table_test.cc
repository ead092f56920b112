// The table reader's cutting of RFC_READ_TABLE lines into trimmed cells by the
// offsets and lengths that FIELDS reports.

#include "access/read_table.h"

#include <gtest/gtest.h>

#include "access/sap_table.h"
#include "tests/access/local_parameters.h"

namespace access_test {
namespace {

struct Result {
  std::unique_ptr<CRfcTableParam> fields_param;
  std::unique_ptr<CRfcTableParam> data_param;
  std::unique_ptr<CSapTable> fields;
  std::unique_ptr<CSapTable> data;
};

// FIELDS lines: name, offset, length, type, text. DATA lines: the text line.
Result MakeResult(const std::vector<std::vector<std::string>>& fields,
                  const std::vector<std::string>& lines,
                  std::vector<Field> field_layout = ReadTableFields()) {
  Result result;
  result.fields_param = MakeFilledTable("FIELDS", field_layout, fields);
  std::vector<std::vector<std::string>> data;
  for (const auto& line : lines) data.push_back({line});
  result.data_param = MakeFilledTable("DATA", ReadTableData(), data);
  result.fields = std::make_unique<CSapTable>(result.fields_param.get());
  result.data = std::make_unique<CSapTable>(result.data_param.get());
  return result;
}

// A text line made of fields padded to their widths.
std::string Line(const std::vector<std::pair<std::string, size_t>>& fields) {
  std::string line;
  for (const auto& field : fields) line += field.first + std::string(field.second - field.first.size(), ' ');
  return line;
}

std::string Cell(const CTextTable& table, const std::string& column, int row) {
  std::string text = "stale";
  EXPECT_EQ(1, table.GetCell(column, row, text)) << column << " row " << row;
  return text;
}

const std::vector<std::vector<std::string>> kBatchFields = {
    {"MANDT", "0", "3", "C", "Client"},
    {"FUNCTION", "3", "30", "C", "Batch function"},
    {"ACTIVE", "33", "1", "C", "Y: offered"}};

TEST(ReadTableCutTest, LinesAreCutByOffsetAndLengthAndTrimmed) {
  Result result = MakeResult(kBatchFields,
                             {Line({{"100", 3}, {"Z_BATCH_ORDERS", 30}, {"Y", 1}}),
                              Line({{"100", 3}, {"  Z_PADDED", 30}, {"y", 1}}),
                              Line({{"100", 3}, {"Z_BATCH_INACTIVE", 30}, {" ", 1}})});
  CTextTable table;
  std::vector<std::unique_ptr<CColumnInfo>> infos;
  CReadTable::FillFromResult(table, infos, result.fields.get(), result.data.get());

  ASSERT_EQ(3, table.GetColumnCount());
  ASSERT_EQ(3, table.GetRowCount());
  EXPECT_EQ("100", Cell(table, "MANDT", 0));
  EXPECT_EQ("Z_BATCH_ORDERS", Cell(table, "FUNCTION", 0));
  EXPECT_EQ("Y", Cell(table, "ACTIVE", 0));
  EXPECT_EQ("Z_PADDED", Cell(table, "FUNCTION", 1));  // trimmed on both sides
  EXPECT_EQ("y", Cell(table, "ACTIVE", 1));
  // The third line ends before ACTIVE's offset (its trailing blanks were
  // removed on the way): an empty cell, not an error.
  EXPECT_EQ("Z_BATCH_INACTIVE", Cell(table, "FUNCTION", 2));
  EXPECT_EQ("", Cell(table, "ACTIVE", 2));

  ASSERT_NE(nullptr, table.GetColumnInfo(1));
  EXPECT_EQ(3, table.GetColumnInfo(1)->offset);
  EXPECT_EQ(30, table.GetColumnInfo(1)->length);
  EXPECT_EQ("Batch function", table.GetColumnInfo(1)->text);
  // The type is looked up under a column name FIELDS does not have.
  EXPECT_EQ("", table.GetColumnInfo(1)->type);
  EXPECT_EQ(3u, infos.size());
}

TEST(ReadTableCutTest, ReadingBeyondTheRowsGivesNoCell) {
  Result result = MakeResult(kBatchFields, {Line({{"100", 3}, {"Z_ONE", 30}, {"Y", 1}})});
  CTextTable table;
  std::vector<std::unique_ptr<CColumnInfo>> infos;
  CReadTable::FillFromResult(table, infos, result.fields.get(), result.data.get());
  std::string text = "stale";
  EXPECT_EQ(0, table.GetCell("ACTIVE", 1, text));
  EXPECT_EQ("", text);
  EXPECT_EQ(0, table.GetCell("PROGRAMM", 0, text));
  EXPECT_EQ("", text);
}

TEST(ReadTableCutTest, ARepeatedFieldNameKeepsItsFirstRecord) {
  Result result = MakeResult({{"A", "0", "2", "", ""}, {"B", "2", "2", "", ""},
                              {"A", "4", "2", "", ""}},
                             {"aabbcc"});
  CTextTable table;
  std::vector<std::unique_ptr<CColumnInfo>> infos;
  CReadTable::FillFromResult(table, infos, result.fields.get(), result.data.get());
  EXPECT_EQ(2, table.GetColumnCount());
  EXPECT_EQ("aa", Cell(table, "A", 0));
  EXPECT_EQ("bb", Cell(table, "B", 0));
  EXPECT_EQ(0, table.GetColumnInfo(0)->offset);
}

TEST(ReadTableCutTest, NonNumericOffsetsAndLengthsCountAsZero) {
  std::vector<Field> layout = ReadTableFields();
  layout[1].type = TYPE_CHAR;  // OFFSET
  layout[2].type = TYPE_CHAR;  // LENGTH
  Result result = MakeResult({{"FROM_START", "abc", "3", "", ""},
                              {"NO_LENGTH", "2", "x1", "", ""},
                              {"DIGITS_FIRST", "4x", "2z", "", ""}},
                             {"abcdefgh"}, layout);
  CTextTable table;
  std::vector<std::unique_ptr<CColumnInfo>> infos;
  CReadTable::FillFromResult(table, infos, result.fields.get(), result.data.get());
  EXPECT_EQ(0, table.GetColumnInfo(0)->offset);
  EXPECT_EQ("abc", Cell(table, "FROM_START", 0));
  EXPECT_EQ(0, table.GetColumnInfo(1)->length);
  EXPECT_EQ("", Cell(table, "NO_LENGTH", 0));
  EXPECT_EQ("ef", Cell(table, "DIGITS_FIRST", 0));
}

TEST(ReadTableCutTest, ALengthBeyondTheLineIsClippedToIt) {
  Result result = MakeResult({{"TAIL", "5", "100", "", ""}}, {"abcde  fg"});
  CTextTable table;
  std::vector<std::unique_ptr<CColumnInfo>> infos;
  CReadTable::FillFromResult(table, infos, result.fields.get(), result.data.get());
  EXPECT_EQ("fg", Cell(table, "TAIL", 0));
}

TEST(ReadTableCutTest, AnEmptyTableStillKnowsItsColumns) {
  Result result = MakeResult(kBatchFields, {});
  CTextTable table;
  std::vector<std::unique_ptr<CColumnInfo>> infos;
  CReadTable::FillFromResult(table, infos, result.fields.get(), result.data.get());
  EXPECT_EQ(0, table.GetRowCount());
  EXPECT_EQ(3, table.GetColumnCount());
  EXPECT_EQ(2, table.GetColumnIndex("ACTIVE"));
}

TEST(ReadTableCutTest, WithoutFieldsThereAreNoColumnsAndNoCells) {
  Result result = MakeResult({}, {"100Z_ONE"});
  CTextTable table;
  std::vector<std::unique_ptr<CColumnInfo>> infos;
  CReadTable::FillFromResult(table, infos, result.fields.get(), result.data.get());
  EXPECT_EQ(0, table.GetColumnCount());
  EXPECT_EQ(0, table.GetRowCount());
  std::string text = "stale";
  EXPECT_EQ(0, table.GetCell("ACTIVE", 0, text));
  EXPECT_EQ("", text);
}

TEST(ReadTableCutTest, AColumnWithoutRecordGetsNoCells) {
  Result result = MakeResult({{"A", "0", "1", "", ""}}, {"ab"});
  CTextTable table;
  table.AddColumn("EARLIER");  // a column nobody gave a record
  std::vector<std::unique_ptr<CColumnInfo>> infos;
  CReadTable::FillFromResult(table, infos, result.fields.get(), result.data.get());
  std::string text = "stale";
  EXPECT_EQ(0, table.GetCell("EARLIER", 0, text));
  EXPECT_EQ("a", Cell(table, "A", 0));
}

}  // namespace
}  // namespace access_test
