// CTextTable: columns by name and position, cells that exist only once set.

#include "access/text_table.h"

#include <gtest/gtest.h>

namespace {

TEST(TextTableTest, ColumnsGetTheNextPositionAndANameOnlyOnce) {
  CTextTable table;
  EXPECT_EQ(0, table.AddColumn("ACTIVE"));
  EXPECT_EQ(1, table.AddColumn("FUNCTION"));
  EXPECT_EQ(-1, table.AddColumn("ACTIVE"));
  EXPECT_EQ(2, table.AddColumn("active"));  // names are case-sensitive
  EXPECT_EQ(3, table.GetColumnCount());
  EXPECT_EQ(1, table.GetColumnIndex("FUNCTION"));
  EXPECT_EQ(-1, table.GetColumnIndex("STRUCTURE"));
}

TEST(TextTableTest, ColumnInfosAreStoredOnlyForExistingColumns) {
  CTextTable table;
  CColumnInfo first{0, 1, "", "first"};
  CColumnInfo second{1, 4, "", "second"};
  table.AddColumn("A");
  table.AddColumn("B");
  EXPECT_EQ(0, table.SetColumnInfo(-1, &first));
  EXPECT_EQ(0, table.SetColumnInfo(2, &first));
  EXPECT_EQ(1, table.SetColumnInfo(1, &second));
  EXPECT_EQ(&second, table.GetColumnInfo(1));
  EXPECT_EQ(nullptr, table.GetColumnInfo(0));  // never set
  EXPECT_EQ(nullptr, table.GetColumnInfo(2));
  EXPECT_EQ(nullptr, table.GetColumnInfo(-1));
  EXPECT_EQ(1, table.SetColumnInfo(0, &first));
  EXPECT_EQ(&first, table.GetColumnInfo(0));
}

TEST(TextTableTest, CellsAndRowsExistOnlyOnceSet) {
  CTextTable table;
  table.AddColumn("A");
  table.AddColumn("B");
  std::string text = "stale";

  EXPECT_EQ(1, table.SetCell(1, 2, "b2"));
  EXPECT_EQ(3, table.GetRowCount());
  EXPECT_EQ(1, table.GetCell(1, 2, text));
  EXPECT_EQ("b2", text);
  EXPECT_EQ(1, table.GetCell("B", 2, text));
  EXPECT_EQ("b2", text);

  // Rows before it were made as rows that do not exist; the cell before it
  // in its own row was never set.
  text = "stale";
  EXPECT_EQ(0, table.GetCell(1, 0, text));
  EXPECT_EQ("", text);
  text = "stale";
  EXPECT_EQ(0, table.GetCell(0, 2, text));
  EXPECT_EQ("", text);

  EXPECT_EQ(1, table.SetCell(0, 0, ""));
  text = "stale";
  EXPECT_EQ(1, table.GetCell("A", 0, text));  // an empty cell exists
  EXPECT_EQ("", text);
  EXPECT_EQ(1, table.SetCell(1, 2, "again"));  // setting again replaces the text
  EXPECT_EQ(1, table.GetCell(1, 2, text));
  EXPECT_EQ("again", text);
  EXPECT_EQ(3, table.GetRowCount());
}

TEST(TextTableTest, CellsOutsideTheTableAreRefused) {
  CTextTable table;
  table.AddColumn("A");
  std::string text = "stale";
  EXPECT_EQ(0, table.SetCell(1, 0, "x"));
  EXPECT_EQ(0, table.SetCell(-1, 0, "x"));
  EXPECT_EQ(0, table.SetCell(0, -1, "x"));
  EXPECT_EQ(0, table.GetRowCount());
  EXPECT_EQ(1, table.SetCell(0, 0, "a"));
  EXPECT_EQ(0, table.GetCell(0, 1, text));  // at the row count
  EXPECT_EQ("", text);
  text = "stale";
  EXPECT_EQ(0, table.GetCell(0, -1, text));
  EXPECT_EQ("", text);
  text = "stale";
  EXPECT_EQ(0, table.GetCell("MISSING", 0, text));
  EXPECT_EQ("", text);
}

}  // namespace
