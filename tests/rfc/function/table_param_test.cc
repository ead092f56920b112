// Table parameters: the internal table's life cycle (owned and received
// tables) and its failures, positioning, cell access and its bounds, byte
// order, and the table entry.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_data.h"
#include "rfc/function/rfc_byte_order.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/rfc/function/function_transcript.h"
#include "tests/support/field_info.h"

namespace {

using fn_test::Seen;
using fn_test::Traced;
using test_support::Field;

class TableParamTest : public fn_test::TranscriptTest {
 protected:
  // Lines of {NAME CHAR 3, COUNT INT 4}: 8 bytes; `gap` leaves column 1 undescribed.
  static void Describe(CRfcTableParam& table, bool gap = false) {
    CRfcFieldInfo fields[] = {Field("NAME", 0, TYPE_CHAR, 3), Field("COUNT", gap ? 2 : 1, TYPE_INT, 4)};
    table.AddFieldInfo(fields, 2);
  }
  // Handle (owned or not), position and the current line's number in the library's table (0: none).
  std::string State(CRfcTableParam& table) {
    const TableHandle handle = table.GetTableHandle();
    std::string line = "0";
    for (unsigned n = 1; handle != nullptr && n <= ItFill(handle); ++n) {
      if (ItGetLine(handle, n) == table.GetCurrentLine()) line = std::to_string(n);
    }
    return (handle == nullptr ? "no table" : table.OwnsTable() != 0 ? "owned table" : "received table") + std::string(" at ") +
           std::to_string(table.GetCurrentIndex()) + " line " + line + " of " + std::to_string(handle != nullptr ? ItFill(handle) : 0);
  }
};

// Construction makes no table, Clear and Delete of none do nothing; created
// once, cleared, and deleted by the destructor.
TEST_F(TableParamTest, OwnedTablesAreCreatedOnceAndDeleted) {
  TableHandle owned = nullptr;
  {
    CRfcTableParam table("lines", 512, 0, 0, nullptr, nullptr);
    table.Clear();
    table.Delete();
    Describe(table);
    out << table.GetName() << " line " << table.GetLineLength() << ": " << State(table) << "\n";
    table.Create();
    owned = table.GetTableHandle();
    table.Create();
    EXPECT_EQ(table.GetTableHandle(), owned);
    EXPECT_EQ(fake().Find(owned)->line_length, 8u);
    table.GotoLine(2);
    out << State(table) << "\n";
    table.SetNativeLines(0);
    table.Clear();
    out << State(table) << ", native " << table.GetNativeLines() << "\n";
  }
  out << Seen() << "\n";
  EXPECT_EQ(fake().deleted, std::vector<TableHandle>{owned});
}

// A received table is forgotten, never deleted; one in place of an owned
// table makes the owned one go; a call does not move the position, even onto
// another table.
TEST_F(TableParamTest, ReceivedTablesAreForgottenNotDeleted) {
  const TableHandle received = fake().NewTable(8);
  {
    CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
    table.TakeTableHandle(received);
    out << State(table) << "; ";
    table.Delete();
    out << State(table) << "\n";
    table.TakeTableHandle(received);
  }
  EXPECT_NE(fake().Find(received), nullptr);
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
  table.Create();
  const TableHandle owned = table.GetTableHandle();
  table.TakeTableHandle(owned);  // the same table: nothing changes
  table.GotoLine(1);
  out << State(table) << "\n";
  void* const line = table.GetCurrentLine();
  table.TakeTableHandle(received);
  EXPECT_EQ(fake().deleted, std::vector<TableHandle>{owned});
  EXPECT_EQ(table.GetTableHandle(), received);
  EXPECT_EQ(table.GetCurrentLine(), line);
  out << State(table) << Seen() << "\n";
}

// Each failure is traced and thrown; the table stays as it was (emptied
// before a failed delete) and usable.
TEST_F(TableParamTest, FailuresOfTheLibraryAreReportedAndLeaveTheTableUsable) {
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
  fake().itcreate_failures = 1;
  out << Traced(rfc_test::RunTraced([&] { table.Create(); })) << State(table) << "\n";
  table.Create();
  table.GotoLine(1);
  fake().itfree_result = 1;
  out << Traced(rfc_test::RunTraced([&] { table.Clear(); })) << State(table) << "\n";
  fake().itfree_result = 0;
  fake().itdelete_result = 5;
  out << Traced(rfc_test::RunTraced([&] { table.Delete(); })) << State(table) << "\n";
  fake().itdelete_result = 0;
  table.Delete();
  out << State(table) << "\n";
}

// GotoLine(n) positions on line n+1, growing the table; beyond the library's
// lines or below 0 it positions nowhere.
TEST_F(TableParamTest, GotoLinePositionsAndGrowsTheTable) {
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
  out << table.GotoLine(0) << " " << State(table) << "\n";
  table.Create();
  out << table.GotoLine(4) << " " << State(table) << "\n";
  fake().max_lines = 5;
  for (int beyond : {5, -1}) out << table.GotoLine(beyond) << " " << State(table) << "\n";
}

// One accessor: a reference taken earlier follows the newest cell. Numbers of
// foreign lines are turned around only with the switch on.
TEST_F(TableParamTest, GetDataBindsTheOneAccessorToACell) {
  CRfcTableParam table("T", 0, 0, 0, nullptr, nullptr);
  Describe(table);
  table.Create();
  ASSERT_EQ(table.GotoLine(0), 1);
  unsigned char* line = static_cast<unsigned char*>(table.GetCurrentLine());
  table.GetData(line, 0) = "abc";
  CRfcData& count = table.GetData(line, 1);
  count = 4711;
  EXPECT_EQ(count.GetData(), line + 4);
  out << static_cast<RFC_INT>(count) << " '" << fn_test::Printable(std::string(reinterpret_cast<char*>(line), 8)) << "' ";
  EXPECT_EQ(&table.GetData(line, 0), &count);
  out << static_cast<CSTR>(count) << "\n";
  const unsigned char big_endian[4] = {0x00, 0x00, 0x01, 0x02};
  std::memcpy(line + 4, big_endian, 4);
  table.SetNativeLines(0);
  out << table.GetData(line, 1).GetNativeOrder() << " ";
  SetRfcByteOrderSwitch(1);
  out << static_cast<RFC_INT>(table.GetData(line, 1)) << " ";
  table.SetNativeLines(1);
  out << table.GetData(line, 1).GetNativeOrder() << "\n";
}

// Columns -1, 1 (undescribed) and 3, and a line of none.
TEST_F(TableParamTest, GetDataOutsideTheDescribedColumnsThrows) {
  CRfcTableParam table("T", 0, 0, 0, nullptr, nullptr);
  table.SetTypeHandle(5);
  Describe(table, true);
  table.Create();
  ASSERT_EQ(table.GotoLine(0), 1);
  for (int column : {-1, 1, 3}) out << Traced(rfc_test::RunTraced([&] { table.GetData(table.GetCurrentLine(), column); }));
  out << rfc_test::Thrown([&] { table.GetData(nullptr, 0); }) << "\n";
}

}  // namespace
