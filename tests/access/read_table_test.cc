// The table reader's cutting of RFC_READ_TABLE lines into trimmed cells by the
// offsets and lengths that FIELDS reports.

#include "access/read_table.h"

#include <gtest/gtest.h>

#include "access/sap_table.h"
#include "tests/access/local_parameters.h"

namespace access_test {
namespace {

// FIELDS lines (name, offset, length, type, text) and DATA lines cut into
// `table`, which may already hold columns of its own.
struct Cut {
  Cut(const std::vector<std::vector<std::string>>& fields, const std::vector<std::string>& lines,
      std::vector<Field> field_layout = ReadTableFields(), std::vector<std::string> earlier_columns = {}) {
    fields_param = MakeFilledTable("FIELDS", field_layout, fields);
    std::vector<std::vector<std::string>> data;
    for (const auto& line : lines) data.push_back({line});
    data_param = MakeFilledTable("DATA", ReadTableData(), data);
    CSapTable fields_text(fields_param.get());
    CSapTable data_text(data_param.get());
    for (const std::string& column : earlier_columns) table.AddColumn(column);
    CReadTable::FillFromResult(table, infos, &fields_text, &data_text);
  }
  // The cell's text, or "<none>" when the table has no such cell.
  std::string operator()(const std::string& column, int row) const {
    std::string text = "stale";
    if (table.GetCell(column, row, text) == 1) return text;
    return text.empty() ? "<none>" : "<stale>";
  }

  std::unique_ptr<CRfcTableParam> fields_param;
  std::unique_ptr<CRfcTableParam> data_param;
  CTextTable table;
  std::vector<std::unique_ptr<CColumnInfo>> infos;
};

// A text line made of fields padded to their widths.
std::string Line(const std::vector<std::pair<std::string, size_t>>& fields) {
  std::string line;
  for (const auto& field : fields) line += field.first + std::string(field.second - field.first.size(), ' ');
  return line;
}

const std::vector<std::vector<std::string>> kBatchFields = {
    {"MANDT", "0", "3", "C", "Client"}, {"FUNCTION", "3", "30", "C", "Batch function"}, {"ACTIVE", "33", "1", "C", "Y: offered"}};

TEST(ReadTableCutTest, LinesAreCutByOffsetAndLengthAndTrimmed) {
  const Cut cut(kBatchFields, {Line({{"100", 3}, {"Z_BATCH_ORDERS", 30}, {"Y", 1}}),
                               Line({{"100", 3}, {"  Z_PADDED", 30}, {"y", 1}}),
                               Line({{"100", 3}, {"Z_BATCH_INACTIVE", 30}, {" ", 1}})});
  ASSERT_EQ(3, cut.table.GetColumnCount());
  ASSERT_EQ(3, cut.table.GetRowCount());
  EXPECT_EQ("100", cut("MANDT", 0));
  EXPECT_EQ("Z_BATCH_ORDERS", cut("FUNCTION", 0));
  EXPECT_EQ("Y", cut("ACTIVE", 0));
  EXPECT_EQ("Z_PADDED", cut("FUNCTION", 1));  // trimmed on both sides
  EXPECT_EQ("y", cut("ACTIVE", 1));
  // The third line ends before ACTIVE's offset (its trailing blanks were
  // removed on the way): an empty cell, not an error.
  EXPECT_EQ("Z_BATCH_INACTIVE", cut("FUNCTION", 2));
  EXPECT_EQ("", cut("ACTIVE", 2));
  // Beyond the rows and the columns there are no cells.
  EXPECT_EQ("<none>", cut("ACTIVE", 3));
  EXPECT_EQ("<none>", cut("PROGRAMM", 0));

  const CColumnInfo* function = cut.table.GetColumnInfo(1);
  ASSERT_NE(nullptr, function);
  EXPECT_EQ(3, function->offset);
  EXPECT_EQ(30, function->length);
  EXPECT_EQ("Batch function", function->text);
  EXPECT_EQ("", function->type);  // looked up under a column name FIELDS does not have
  EXPECT_EQ(3u, cut.infos.size());
}

TEST(ReadTableCutTest, OddFieldRecordsAreReadAsTheyCome) {
  // A repeated name keeps its first record.
  const Cut repeated({{"A", "0", "2", "", ""}, {"B", "2", "2", "", ""}, {"A", "4", "2", "", ""}}, {"aabbcc"});
  EXPECT_EQ(2, repeated.table.GetColumnCount());
  EXPECT_EQ("aa", repeated("A", 0));
  EXPECT_EQ("bb", repeated("B", 0));

  // Offsets and lengths that are no numbers count as 0 (or as their leading digits).
  std::vector<Field> text_numbers = ReadTableFields();
  text_numbers[1].type = TYPE_CHAR;
  text_numbers[2].type = TYPE_CHAR;
  const Cut odd({{"FROM_START", "abc", "3", "", ""}, {"NO_LENGTH", "2", "x1", "", ""},
                 {"DIGITS_FIRST", "4x", "2z", "", ""}},
                {"abcdefgh"}, text_numbers);
  EXPECT_EQ(0, odd.table.GetColumnInfo(0)->offset);
  EXPECT_EQ("abc", odd("FROM_START", 0));
  EXPECT_EQ(0, odd.table.GetColumnInfo(1)->length);
  EXPECT_EQ("", odd("NO_LENGTH", 0));
  EXPECT_EQ("ef", odd("DIGITS_FIRST", 0));

  // A length beyond the line is clipped to it.
  EXPECT_EQ("fg", Cut({{"TAIL", "5", "100", "", ""}}, {"abcde  fg"})("TAIL", 0));
}

TEST(ReadTableCutTest, ColumnsWithoutRowsAndRowsWithoutColumns) {
  const Cut empty(kBatchFields, {});
  EXPECT_EQ(0, empty.table.GetRowCount());
  EXPECT_EQ(3, empty.table.GetColumnCount());
  EXPECT_EQ(2, empty.table.GetColumnIndex("ACTIVE"));

  const Cut no_fields({}, {"100Z_ONE"});
  EXPECT_EQ(0, no_fields.table.GetColumnCount());
  EXPECT_EQ(0, no_fields.table.GetRowCount());
  EXPECT_EQ("<none>", no_fields("ACTIVE", 0));

  // A column nobody gave a record gets no cells.
  const Cut earlier({{"A", "0", "1", "", ""}}, {"ab"}, ReadTableFields(), {"EARLIER"});
  EXPECT_EQ("<none>", earlier("EARLIER", 0));
  EXPECT_EQ("a", earlier("A", 0));
}

}  // namespace
}  // namespace access_test
