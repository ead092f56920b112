// Table parameters: the internal table's life cycle (owned and received
// tables) and its failures, positioning, cell access and its bounds, byte
// order, and the table entry.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_data.h"
#include "rfc/function/rfc_byte_order.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/rfc/rfc_test_support.h"
#include "tests/support/field_info.h"

namespace {

using rfc_test::StandInTest;
using ::testing::ElementsAre;

using test_support::Field;

class TableParamTest : public StandInTest {
 protected:
  // Lines of {NAME CHAR 3, COUNT INT 4}: 8 bytes; `gap` leaves column 1 undescribed.
  static void Describe(CRfcTableParam& table, bool gap = false) {
    CRfcFieldInfo fields[] = {Field("NAME", 0, TYPE_CHAR, 3), Field("COUNT", gap ? 2 : 1, TYPE_INT, 4)};
    table.AddFieldInfo(fields, 2);
  }
};

TEST_F(TableParamTest, OwnedTablesAreCreatedOnceAndDeleted) {
  TableHandle owned = nullptr;
  {
    CRfcTableParam table("lines", 512, 0, 0, nullptr, nullptr);
    EXPECT_STREQ(table.GetName(), "LINES");
    EXPECT_EQ(table.GetTableHandle(), nullptr);  // construction makes no table
    table.Clear();                               // nothing to clear or delete
    table.Delete();
    Describe(table);
    EXPECT_EQ(table.GetLineLength(), 8);
    ASSERT_EQ(fake().installs.size(), 1u);
    EXPECT_EQ(fake().installs[0].name, "LINES");

    table.Create();
    owned = table.GetTableHandle();
    table.Create();
    EXPECT_EQ(table.GetTableHandle(), owned);
    EXPECT_EQ(table.OwnsTable(), 1);
    ASSERT_EQ(fake().tables.size(), 1u);
    EXPECT_EQ(fake().tables.begin()->second.line_length, 8u);

    ASSERT_EQ(table.GotoLine(2), 1);
    table.SetNativeLines(0);
    table.Clear();
    EXPECT_EQ(ItFill(owned), 0u);
    EXPECT_EQ(table.GetCurrentIndex() * 10 + table.GetNativeLines(), -9);
    EXPECT_EQ(table.GetCurrentLine(), nullptr);
    EXPECT_EQ(table.GetTableHandle(), owned);
  }
  // The destructor deletes the owned table.
  EXPECT_THAT(fake().Entries(),
              ElementsAre("RfcInstallStructure", "ItCreate", "ItFree", "ItFree", "ItDelete"));
  EXPECT_THAT(fake().deleted, ElementsAre(owned));
}

TEST_F(TableParamTest, ReceivedTablesAreForgottenNotDeleted) {
  const TableHandle received = fake().NewTable(8);
  {
    CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
    table.TakeTableHandle(received);
    EXPECT_EQ(table.OwnsTable(), 0);
    table.Delete();
    EXPECT_EQ(table.GetTableHandle(), nullptr);
    table.TakeTableHandle(received);
  }
  EXPECT_EQ(fake().Count("ItDelete"), 0u);
  EXPECT_NE(fake().Find(received), nullptr);  // still the library's

  // A table from the library in place of an owned one: the owned one goes.
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
  table.Create();
  const TableHandle owned = table.GetTableHandle();
  table.TakeTableHandle(owned);  // the same table: nothing changes
  EXPECT_EQ(table.OwnsTable(), 1);
  ASSERT_EQ(table.GotoLine(1), 1);
  void* const line = table.GetCurrentLine();
  table.TakeTableHandle(received);
  EXPECT_THAT(fake().deleted, ElementsAre(owned));
  EXPECT_EQ(table.GetTableHandle(), received);
  EXPECT_EQ(table.OwnsTable(), 0);
  // A call does not move the position, even onto another table.
  EXPECT_EQ(table.GetCurrentIndex(), 1);
  EXPECT_EQ(table.GetCurrentLine(), line);
}

TEST_F(TableParamTest, FailuresOfTheLibraryAreReportedAndLeaveTheTableUsable) {
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
  fake().itcreate_failures = 1;
  rfc_test::ExpectTracedFailure([&] { table.Create(); }, "CRfcTableParam::Create() called", "ItCreate Failure!");
  EXPECT_EQ(table.GetTableHandle(), nullptr);

  table.Create();
  ASSERT_EQ(table.GotoLine(1), 1);
  void* line = table.GetCurrentLine();
  const TableHandle handle = table.GetTableHandle();
  fake().itfree_result = 1;
  rfc_test::ExpectTracedFailure([&] { table.Clear(); }, "CRfcTableParam::Clear() called", "ItFree Failure!");
  EXPECT_EQ(table.GetTableHandle(), handle);
  EXPECT_EQ(table.GetCurrentLine(), line);

  fake().itfree_result = 0;
  fake().itdelete_result = 5;
  rfc_test::ExpectTracedFailure([&] { table.Delete(); }, "CRfcTableParam::Delete() called", "ItDelete Failure!");
  EXPECT_EQ(table.GetTableHandle(), handle);
  EXPECT_EQ(table.OwnsTable(), 1);
  EXPECT_EQ(ItFill(handle), 0u);  // emptied before the failed delete
  fake().itdelete_result = 0;
  table.Delete();
  EXPECT_EQ(table.GetTableHandle(), nullptr);
}

TEST_F(TableParamTest, GotoLinePositionsAndGrowsTheTable) {
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
  EXPECT_EQ(table.GotoLine(0), 0);  // no table yet
  table.Create();
  ASSERT_EQ(table.GotoLine(4), 1);
  EXPECT_EQ(table.GetCurrentIndex(), 4);
  EXPECT_EQ(table.GetCurrentLine(), ItGetLine(table.GetTableHandle(), 5));
  EXPECT_EQ(ItFill(table.GetTableHandle()), 5u);
  fake().max_lines = 5;
  for (int beyond : {5, -1}) {
    EXPECT_EQ(table.GotoLine(beyond), 0);
    EXPECT_EQ(table.GetCurrentIndex(), -1);
    EXPECT_EQ(table.GetCurrentLine(), nullptr);
  }
}

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
  EXPECT_EQ(static_cast<RFC_INT>(count), 4711);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(line), 3), "abc");
  // One accessor: a reference taken earlier follows the newest cell.
  EXPECT_EQ(&table.GetData(line, 0), &count);
  EXPECT_STREQ(static_cast<CSTR>(count), "abc");

  // Numbers of foreign lines are turned around only with the switch on.
  const unsigned char big_endian[4] = {0x00, 0x00, 0x01, 0x02};
  std::memcpy(line + 4, big_endian, 4);
  table.SetNativeLines(0);
  EXPECT_EQ(table.GetData(line, 1).GetNativeOrder(), 1);
  SetRfcByteOrderSwitch(1);
  EXPECT_EQ(static_cast<RFC_INT>(table.GetData(line, 1)), 258);
  table.SetNativeLines(1);
  EXPECT_EQ(table.GetData(line, 1).GetNativeOrder(), 1);
}

TEST_F(TableParamTest, GetDataOutsideTheDescribedColumnsThrows) {
  CRfcTableParam table("T", 0, 0, 0, nullptr, nullptr);
  table.SetTypeHandle(5);
  Describe(table, true);
  table.Create();
  ASSERT_EQ(table.GotoLine(0), 1);
  for (int column : {-1, 1, 3}) {
    rfc_test::ExpectTracedFailure([&] { table.GetData(table.GetCurrentLine(), column); },
                                  "CRfcTableParam::GetData(void* pLine, int nCol) const called", "Field info not found",
                                  "Failed to find corresponding field info!");
  }
  EXPECT_EQ(rfc_test::Thrown([&] { table.GetData(nullptr, 0); }), "ItGetLine Failure!");
}

}  // namespace
