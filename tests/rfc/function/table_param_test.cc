// Table parameters: the internal table's life cycle (owned and received
// tables), positioning, cell access and its bounds, and the table entry.

#include "rfc/function/rfc_table_param.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_data.h"
#include "rfc/function/rfc_byte_order.h"
#include "tests/rfc/function/fake_library_fixture.h"
#include "tests/rfc/trace_capture.h"

namespace {

using rfc_function_test::FakeLibraryTest;
using ::testing::ElementsAre;

CRfcFieldInfo Field(const char* name, int column, int type, int length) {
  CRfcFieldInfo field{};
  std::strncpy(field.name, name, sizeof field.name - 1);
  field.column = column;
  field.type = type;
  field.length = length;
  return field;
}

class TableParamTest : public FakeLibraryTest {
 protected:
  // A table of lines {CHAR 3, INT 4}: 8 bytes.
  static void Describe(CRfcTableParam& table) {
    std::vector<CRfcFieldInfo> fields = {Field("NAME", 0, TYPE_CHAR, 3),
                                         Field("COUNT", 1, TYPE_INT, 4)};
    table.AddFieldInfo(fields.data(), 2);
  }
};

TEST_F(TableParamTest, ConstructionDescribesTheLineButCreatesNoTable) {
  CRfcTableParam table("data", 512, 0, 0, nullptr, nullptr);
  EXPECT_STREQ(table.GetName(), "DATA");
  EXPECT_EQ(table.GetLineLength(), 512);
  EXPECT_EQ(table.GetTotalLength(), 512);
  EXPECT_EQ(table.GetTableHandle(), nullptr);
  EXPECT_EQ(table.GetCurrentIndex(), -1);
  EXPECT_EQ(table.GetNativeLines(), 1);
  EXPECT_EQ(table.IsAutoCreated(), 0);
  EXPECT_EQ(fake().Count("ItCreate"), 0u);
}

TEST_F(TableParamTest, AddFieldInfoSetsTheLineLengthAndInstallsUnderTheTableName) {
  CRfcTableParam table("lines", 1, 0, 0, nullptr, nullptr);
  Describe(table);
  EXPECT_EQ(table.GetLineLength(), 8);
  ASSERT_EQ(fake().installs.size(), 1u);
  EXPECT_EQ(fake().installs[0].name, "LINES");
}

TEST_F(TableParamTest, CreateTwiceMakesOneOwnedTable) {
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
  table.Create();
  const TableHandle first = table.GetTableHandle();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(table.OwnsTable(), 1);
  table.Create();
  EXPECT_EQ(table.GetTableHandle(), first);
  EXPECT_EQ(fake().Count("ItCreate"), 1u);
  ASSERT_EQ(fake().tables.size(), 1u);
  EXPECT_EQ(fake().tables.begin()->second.name, "T");
  EXPECT_EQ(fake().tables.begin()->second.line_length, 8u);
}

TEST_F(TableParamTest, ClearWithoutTableDoesNothing) {
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
  table.Clear();
  table.Delete();
  EXPECT_EQ(fake().Count("ItFree"), 0u);
  EXPECT_EQ(fake().Count("ItDelete"), 0u);
}

TEST_F(TableParamTest, ClearEmptiesAndResetsThePosition) {
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
  table.Create();
  ASSERT_EQ(table.GotoLine(2), 1);
  EXPECT_EQ(ItFill(table.GetTableHandle()), 3u);
  table.SetNativeLines(0);
  table.Clear();
  EXPECT_EQ(ItFill(table.GetTableHandle()), 0u);
  EXPECT_EQ(table.GetCurrentIndex(), -1);
  EXPECT_EQ(table.GetCurrentLine(), nullptr);
  EXPECT_EQ(table.GetNativeLines(), 1);
  EXPECT_NE(table.GetTableHandle(), nullptr);
}

TEST_F(TableParamTest, DeleteDestroysAnOwnedTable) {
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
  table.Create();
  const TableHandle handle = table.GetTableHandle();
  table.Delete();
  EXPECT_EQ(table.GetTableHandle(), nullptr);
  EXPECT_EQ(table.OwnsTable(), 0);
  EXPECT_THAT(fake().deleted, ElementsAre(handle));
  EXPECT_THAT(fake().log, ElementsAre("ItCreate", "ItFree", "ItDelete"));
}

TEST_F(TableParamTest, DeleteForgetsAReceivedTableWithoutDeletingIt) {
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
  const TableHandle received = fake().NewTable("T", 8, true);
  table.TakeTableHandle(received);
  EXPECT_EQ(table.OwnsTable(), 0);
  table.Delete();
  EXPECT_EQ(table.GetTableHandle(), nullptr);
  EXPECT_EQ(fake().Count("ItDelete"), 0u);
  EXPECT_EQ(fake().Count("ItFree"), 1u);
  EXPECT_NE(fake().Find(received), nullptr);  // still the library's
}

TEST_F(TableParamTest, DestructionDeletesOnlyAnOwnedTable) {
  TableHandle owned = nullptr;
  {
    CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
    table.Create();
    owned = table.GetTableHandle();
  }
  EXPECT_THAT(fake().deleted, ElementsAre(owned));
  const TableHandle received = fake().NewTable("T", 8, true);
  {
    CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
    table.TakeTableHandle(received);
  }
  EXPECT_THAT(fake().deleted, ElementsAre(owned));
  EXPECT_NE(fake().Find(received), nullptr);
}

TEST_F(TableParamTest, ADifferentHandleFromTheLibraryReplacesAnOwnedTable) {
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
  table.Create();
  const TableHandle owned = table.GetTableHandle();
  table.TakeTableHandle(owned);  // the same table: nothing changes
  EXPECT_EQ(table.OwnsTable(), 1);
  const TableHandle other = fake().NewTable("T", 8, true);
  table.TakeTableHandle(other);
  EXPECT_THAT(fake().deleted, ElementsAre(owned));
  EXPECT_EQ(table.GetTableHandle(), other);
  EXPECT_EQ(table.OwnsTable(), 0);
}

TEST_F(TableParamTest, FailuresOfTheLibraryAreReportedAndLeaveTheTableUsable) {
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);

  fake().itcreate_failures = 1;
  auto create = rfc_test::RunTraced([&] { table.Create(); });
  EXPECT_EQ(create.thrown, "ItCreate Failure!");
  ASSERT_EQ(create.lines.size(), 6u);
  EXPECT_EQ(create.lines[4], "CRfcTableParam::Create() called");
  EXPECT_EQ(create.lines[5], "ItCreate Failure!");
  EXPECT_EQ(table.GetTableHandle(), nullptr);

  table.Create();
  ASSERT_EQ(table.GotoLine(1), 1);
  void* line = table.GetCurrentLine();
  const TableHandle handle = table.GetTableHandle();

  fake().itfree_result = 1;
  auto clear = rfc_test::RunTraced([&] { table.Clear(); });
  EXPECT_EQ(clear.thrown, "ItFree Failure!");
  ASSERT_EQ(clear.lines.size(), 6u);
  EXPECT_EQ(clear.lines[4], "CRfcTableParam::Clear() called");
  EXPECT_EQ(clear.lines[5], "ItFree Failure!");
  EXPECT_EQ(table.GetTableHandle(), handle);
  EXPECT_EQ(table.GetCurrentIndex(), 1);
  EXPECT_EQ(table.GetCurrentLine(), line);

  fake().itfree_result = 0;
  fake().itdelete_result = 5;
  auto remove = rfc_test::RunTraced([&] { table.Delete(); });
  EXPECT_EQ(remove.thrown, "ItDelete Failure!");
  ASSERT_EQ(remove.lines.size(), 6u);
  EXPECT_EQ(remove.lines[4], "CRfcTableParam::Delete() called");
  EXPECT_EQ(remove.lines[5], "ItDelete Failure!");
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
  EXPECT_EQ(table.GetCurrentIndex(), -1);
  table.Create();
  ASSERT_EQ(table.GotoLine(0), 1);
  EXPECT_EQ(table.GetCurrentIndex(), 0);
  EXPECT_EQ(table.GetCurrentLine(), ItGetLine(table.GetTableHandle(), 1));
  ASSERT_EQ(table.GotoLine(4), 1);
  EXPECT_EQ(ItFill(table.GetTableHandle()), 5u);
}

TEST_F(TableParamTest, GotoLineBeyondTheLastLineGivesZero) {
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
  table.Create();
  fake().max_lines = 3;
  ASSERT_EQ(table.GotoLine(2), 1);
  EXPECT_EQ(table.GotoLine(3), 0);
  EXPECT_EQ(table.GetCurrentIndex(), -1);
  EXPECT_EQ(table.GetCurrentLine(), nullptr);
  EXPECT_EQ(table.GotoLine(-1), 0);
  EXPECT_EQ(table.GetCurrentIndex(), -1);
}

TEST_F(TableParamTest, GetDataBindsTheSharedAccessorToACell) {
  CRfcTableParam table("T", 0, 0, 0, nullptr, nullptr);
  Describe(table);
  table.Create();
  ASSERT_EQ(table.GotoLine(0), 1);
  void* line = table.GetCurrentLine();
  table.GetData(line, 0) = "abc";
  table.GetData(line, 1) = 4711;
  CRfcData& count = table.GetData(line, 1);
  EXPECT_EQ(static_cast<RFC_INT>(count), 4711);
  EXPECT_EQ(count.GetData(), static_cast<unsigned char*>(line) + 4);
  EXPECT_EQ(std::string(static_cast<char*>(line), 3), "abc");
  // One accessor: a reference taken earlier follows the newest cell.
  CRfcData& name = table.GetData(line, 0);
  EXPECT_EQ(&name, &count);
  EXPECT_STREQ(static_cast<CSTR>(count), "abc");
}

TEST_F(TableParamTest, GetDataOutsideTheDescribedColumnsThrows) {
  CRfcTableParam table("T", 0, 0, 0, nullptr, nullptr);
  table.SetTypeHandle(5);
  std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3), Field("C", 2, TYPE_INT, 4)};
  table.AddFieldInfo(fields.data(), 2);
  table.Create();
  ASSERT_EQ(table.GotoLine(0), 1);
  for (int column : {-1, 1, 3}) {
    auto run = rfc_test::RunTraced([&] { table.GetData(table.GetCurrentLine(), column); });
    EXPECT_EQ(run.thrown, "Failed to find corresponding field info!") << column;
    ASSERT_EQ(run.lines.size(), 6u);
    EXPECT_EQ(run.lines[4], "CRfcTableParam::GetData(void* pLine, int nCol) const called");
    EXPECT_EQ(run.lines[5], "Field info not found");
  }
  auto missing = rfc_test::RunTraced([&] { table.GetData(nullptr, 0); });
  EXPECT_EQ(missing.thrown, "ItGetLine Failure!");
}

TEST_F(TableParamTest, GetDataReversesNumbersOfForeignLinesOnlyWithTheSwitch) {
  CRfcTableParam table("T", 0, 0, 0, nullptr, nullptr);
  Describe(table);
  table.Create();
  ASSERT_EQ(table.GotoLine(0), 1);
  unsigned char* line = static_cast<unsigned char*>(table.GetCurrentLine());
  const unsigned char big_endian[4] = {0x00, 0x00, 0x01, 0x02};
  std::memcpy(line + 4, big_endian, 4);
  table.SetNativeLines(0);
  EXPECT_EQ(table.GetData(line, 1).GetNativeOrder(), 1);  // switch off
  SetRfcByteOrderSwitch(1);
  EXPECT_EQ(table.GetData(line, 1).GetNativeOrder(), 0);
  EXPECT_EQ(static_cast<RFC_INT>(table.GetData(line, 1)), 258);
  table.SetNativeLines(1);
  EXPECT_EQ(table.GetData(line, 1).GetNativeOrder(), 1);
}

TEST_F(TableParamTest, FillTableDescribesTheTableForTheLibrary) {
  CRfcTableParam table("options", 72, 0, 0, nullptr, nullptr);
  RfcTableEntry entry{};
  entry.mode = 5;
  entry.new_table = 5;
  table.FillTable(entry);
  EXPECT_EQ(std::string(static_cast<const char*>(entry.name), entry.name_length), "OPTIONS");
  EXPECT_EQ(entry.name_length, 7u);
  EXPECT_EQ(entry.type, TYPE_BYTE);
  EXPECT_EQ(entry.line_length, 72u);
  EXPECT_EQ(entry.handle, nullptr);
  EXPECT_EQ(entry.mode, 0);
  EXPECT_EQ(entry.new_table, 0);
  table.SetCharacterOnly(1);
  table.Create();
  table.FillTable(entry);
  EXPECT_EQ(entry.type, TYPE_CHAR);
  EXPECT_EQ(entry.handle, table.GetTableHandle());
  table.SetTypeHandle(0x10001);
  table.FillTable(entry);
  EXPECT_EQ(entry.type, 0x10001);
}

}  // namespace
