// The data-access layer against a running sapsim, as the worker uses it: the
// customer table and the dictionary information of the structures it names.
// (The cutting of lines into cells: read_table_test.)
// (Logons, refused ones included, are the batch server end to end's.)

#include <sstream>

#include <gtest/gtest.h>

#include "access/dd_info.h"
#include "access/read_table.h"
#include "tests/access/sapsim_logon.h"
#include "tests/sapsim/support/rfc_library.h"

namespace access_test {
namespace {

class AccessE2eTest : public SapsimTest {};

// What the worker learns from the example system: the active batch rows and
// the field layout of each structure they name.
TEST_F(AccessE2eTest, TheExampleSystemsActiveBatchesAndTheirLayouts) {
  Start(sapsim::testing::ReadFile(sapsim::testing::SourceDir() + "/examples/system.json"));
  auto connection = Logon();
  CReadTable reader(connection.get());
  ASSERT_EQ(1, reader.ReadTable("ZKTZ_BATCHES", " ", " ", "0", "0"));
  ASSERT_EQ(5, reader.GetColumnCount());
  ASSERT_NE(nullptr, reader.GetColumnInfo(1));
  EXPECT_EQ(3, reader.GetColumnInfo(1)->offset);  // PROGRAMM after MANDT
  EXPECT_EQ(40, reader.GetColumnInfo(1)->length);
  std::string cell = "stale";
  EXPECT_EQ(1, reader.GetCell("ACTIVE", 3, cell));
  EXPECT_EQ("", cell);  // a blank ACTIVE is an empty cell

  std::ostringstream listing;
  for (int row = 0; row < reader.GetRowCount(); ++row) {
    std::string active, program, function, structure;
    if (reader.GetCell("ACTIVE", row, active) == 0 || active != "Y") continue;
    if (reader.GetCell("PROGRAMM", row, program) == 0 ||
        reader.GetCell("FUNCTION", row, function) == 0 ||
        reader.GetCell("STRUCTURE", row, structure) == 0) {
      continue;
    }
    listing << function << " " << structure;
    CDdInfo info(connection.get(), structure);
    if (info.IsComplete() == 0) {
      listing << " refused: " << info.GetMessage() << "\n";
      continue;
    }
    listing << "\n";
    for (const auto& entry : info.GetColumns()) {
      const CSapColumn& column = *entry.second;
      listing << "  " << entry.first << " " << column.GetName() << " type " << column.GetType()
              << " offset " << column.GetOffset() << " length " << column.GetLength()
              << " decimals " << column.GetDecimals() << "\n";
    }
  }
  EXPECT_EQ(
      "Z_BATCH_ORDERS ZBATCH_ORDER\n"
      "  1 H_IDENT type 0 offset 0 length 10 decimals 0\n"
      "  2 T_IDENT type 0 offset 10 length 10 decimals 0\n"
      "  3 IDENT type 6 offset 20 length 8 decimals 0\n"
      "  4 CUSTOMER type 0 offset 28 length 30 decimals 0\n"
      "  5 ORDER_DATE type 1 offset 58 length 8 decimals 0\n"
      "  6 ORDER_TIME type 3 offset 66 length 6 decimals 0\n"
      "  7 AMOUNT type 2 offset 72 length 8 decimals 2\n"
      "  8 QUANTITY type 8 offset 80 length 4 decimals 0\n"
      "  9 WEIGHT type 7 offset 84 length 8 decimals 0\n"
      "  10 PRIORITY type 9 offset 92 length 2 decimals 0\n"
      "  11 FLAGS type 10 offset 94 length 1 decimals 0\n"
      "  12 CHECKSUM type 4 offset 95 length 4 decimals 0\n"
      "  13 NOTE type 0 offset 99 length 60 decimals 0\n"
      "Z_BATCH_CUSTOMERS ZBATCH_CUSTOMER\n"
      "  1 IDENT type 0 offset 0 length 10 decimals 0\n"
      "  2 NAME type 0 offset 10 length 40 decimals 0\n"
      "  3 CITY type 0 offset 50 length 30 decimals 0\n"
      "  4 COUNTRY type 0 offset 80 length 2 decimals 0\n"
      "Z_BATCH_UNKNOWN ZBATCH_MISSING refused: Structure ZBATCH_MISSING does not exist in the "
      "dictionary\n",
      listing.str());
}

}  // namespace
}  // namespace access_test
