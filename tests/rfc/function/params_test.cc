// Simple, structure and table parameters, structure layouts and the metadata dump.

#include <climits>

#include "tests/rfc/function/function_transcript.h"

namespace {

using fn_test::Seen;
using fn_test::Traced;
using test_support::Field;

std::string Bytes(const unsigned char* data, int length) {
  return data == nullptr ? "no buffer" : "'" + testutil::Escaped(std::string(reinterpret_cast<const char*>(data), static_cast<size_t>(length))) + "'";
}

// The entry handed to the library: name type/length, and whether it points at the buffer.
std::string Entry(CRfcImpExpParam& param) {
  RfcParameterEntry entry{};
  param.FillParameter(entry);
  return std::string(static_cast<const char*>(entry.name), entry.name_length) + " " + std::to_string(entry.type) + "/" +
         std::to_string(entry.length) + (entry.address == param.GetBuffer() ? " at the buffer" : " elsewhere");
}

class ParamTest : public fn_test::TranscriptTest {};

// Per type/given length: length, flags (simple, active, auto-created), the
// entry, and the cleared buffer; then values, and buffers that fail.
TEST_F(ParamTest, SimpleParametersTakeTheLengthOfTheirTypeAndStartCleared) {
  const std::pair<int, int> cases[] = {{TYPE_INT, 0}, {TYPE_DATE, 3}, {TYPE_CHAR, 5}, {TYPE_NUM, 4},
                                       {TYPE_TIME, 0}, {TYPE_CHAR, 0}, {9999, 12}};
  for (const auto& [type, given] : cases) {
    CRfcSimpleParam param("query_table  ", type, given, 0, 1);
    out << type << "/" << given << " -> " << param.GetLength() << " " << param.IsSimple() << param.IsActive()
        << param.IsAutoCreated() << " " << Entry(param) << " " << Bytes(param.GetBuffer(), param.GetLength()) << "\n";
    param.ResetValue();  // nothing to clear without a buffer
    // The block holds two bytes more (the sanitizer build sees an overrun).
    if (param.GetBuffer() != nullptr) std::memset(param.GetBuffer(), 0x5A, static_cast<size_t>(param.GetLength()) + 2);
  }
  // A value reset and turned around.
  CRfcSimpleParam amount("AMOUNT", TYPE_BCD, 5, 2, 0);
  amount.Value() = "12.5";
  out << amount.GetDecimals() << " " << static_cast<CSTR>(amount.Value()) << " ";
  amount.ResetValue();
  out << Bytes(amount.GetBuffer(), 5) << "\n";
  CRfcSimpleParam count("COUNT", TYPE_INT, 4, 0, 0);
  const unsigned char big_endian[4] = {0x00, 0x00, 0x01, 0x02};
  std::memcpy(count.GetBuffer(), big_endian, 4);
  count.Value().SetNativeOrder(0);
  count.AfterReceive();
  count.AfterReceive();  // once native, left alone
  out << static_cast<RFC_INT>(count.Value()) << "\n";
  // Buffers that cannot be allocated: the old one is gone, its length kept, nothing
  // handed to the library to write through; a structure without one has no fields.
  CRfcSimpleParam param("P", TYPE_CHAR, 4, 0, 0);
  out << Traced(rfc_test::RunTraced([&] {
    rfc::testing::FailNextAllocation();
    param.SetLength(10);
  }));
  out << param.GetLength() << " " << Bytes(param.GetBuffer(), 4) << " " << Entry(param) << "\n";
  CRfcStructParam s("S", 0, 0, nullptr, nullptr);
  CRfcFieldInfo n = Field("N", 0, TYPE_INT, 4);
  s.AddFieldInfo(&n, 1);
  rfc::testing::FailNextAllocation();
  out << rfc_test::Thrown([&] { s.SetLength(8); }) << "\n" << Traced(rfc_test::RunTraced([&] { s.FieldValue(0); }));
  out << Traced(rfc_test::RunTraced([] {
    rfc::testing::FailAllocations(1, 1);  // the name's buffer, then the value's
    CRfcStructParam failed("P", 16, 0, nullptr, nullptr);
  }));
}

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

// An owned table is created once, cleared, and deleted by the destructor or
// when a received one takes its place (the position stays); a received table
// is forgotten, never deleted. Then failures and lines out of range.
TEST_F(TableParamTest, OwnedTablesAreDeletedReceivedOnesForgottenFailuresLeaveThemUsable) {
  const TableHandle received = fake().NewTable(8);
  std::vector<TableHandle> owned(2);
  {
    CRfcTableParam table("lines", 512, 0, 0, nullptr, nullptr);
    Describe(table);
    out << table.GetName() << " line " << table.GetLineLength() << ": " << State(table) << "\n";
    table.Create();
    owned[0] = table.GetTableHandle();
    table.Create();
    table.TakeTableHandle(owned[0]);  // the same table: nothing changes
    EXPECT_EQ(fake().Find(owned[0])->line_length, 8u);
    table.GotoLine(2);
    out << State(table) << "\n";
    table.SetNativeLines(0);
    table.Clear();
    out << State(table) << ", native " << table.GetNativeLines() << "\n";
  }
  {
    CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
    table.TakeTableHandle(received);
    out << State(table) << "; ";
    table.Delete();
    out << State(table) << "\n";
    table.Create();
    owned[1] = table.GetTableHandle();
    table.GotoLine(1);
    void* const line = table.GetCurrentLine();
    table.TakeTableHandle(received);
    EXPECT_EQ(table.GetCurrentLine(), line);
    out << State(table) << "\n";
  }
  out << Seen() << "\n";
  EXPECT_EQ(fake().deleted, owned);
  // Each failure is traced and thrown; the table stays as it was (emptied
  // before a failed delete) and usable.
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
  // GotoLine(n) positions on line n+1, growing the table; beyond the
  // library's lines or below 0 it positions nowhere.
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
  out << static_cast<RFC_INT>(count) << " " << Bytes(line, 8) << " ";
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
  // Columns -1, 1 (undescribed) and 3, and a line of none.
  CRfcTableParam gap("T", 0, 0, 0, nullptr, nullptr);
  gap.SetTypeHandle(5);
  Describe(gap, true);
  gap.Create();
  ASSERT_EQ(gap.GotoLine(0), 1);
  for (int column : {-1, 1, 3}) out << Traced(rfc_test::RunTraced([&] { gap.GetData(gap.GetCurrentLine(), column); }));
  out << rfc_test::Thrown([&] { gap.GetData(nullptr, 0); }) << "\n";
}

// A structure description of its own that records the lengths it is given.
class RecordingStruct : public CRfcStructInfo {
 public:
  explicit RecordingStruct(const char* name) : name_(name) {}
  void SetLength(int nLength) override {
    lengths += " " + std::to_string(nLength);
    SetTotalLength(nLength);
  }
  const char* GetName() const override { return name_.c_str(); }
  std::string lengths;

 private:
  std::string name_;
};

// The kept records (column, name, length/decimals; - for none) and the total length.
std::string Kept(const CRfcStructInfo& info) {
  std::string text;
  for (int i = -1; i <= info.GetFieldCount(); ++i) {
    const CRfcFieldInfo* f = info.GetFieldInfo(i);
    text += f == nullptr ? " -" : " " + std::string(f->name) + " " + std::to_string(f->length) + "/" + std::to_string(f->decimals);
  }
  return text + " total " + std::to_string(info.GetTotalLength());
}

class StructInfoTest : public fn_test::TranscriptTest {};

// Per record: type/length -> offset; then the lengths handed to SetLength.
// Then the records installed, and what installs nothing.
TEST_F(StructInfoTest, NaturalAlignmentAndInstallation) {
  const std::vector<std::pair<int, int>> cases[] = {
      {{TYPE_CHAR, 3}, {TYPE_FLOAT, 8}, {TYPE_INT2, 2}, {TYPE_INT, 4}},
      {{TYPE_CHAR, 1}, {TYPE_INT1, 1}},  // nothing aligned: no rounding
      {{TYPE_BCD, 5}, {TYPE_DATE, 8}, {TYPE_TIME, 6}, {TYPE_NUM, 3}, {TYPE_BYTE, 1}},
      {{TYPE_CHAR, 3}, {TYPE_INT, 4}, {TYPE_CHAR, 1}},
      {{TYPE_CHAR, 3}, {TYPE_FLOAT, 8}, {TYPE_CHAR, 1}},
      {{TYPE_CHAR, 2}, {9999, -1}, {TYPE_CHAR, 2}},  // -1 takes no room
      {},
  };
  for (const auto& c : cases) {
    RecordingStruct info("S");
    std::vector<CRfcFieldInfo> fields;
    for (const auto& [type, length] : c) {
      fields.push_back(Field("F", static_cast<int>(fields.size()), type, length));
      fields.back().offset = -99;  // whatever the caller says, the layout decides
    }
    info.ComputeLayout(fields.data(), static_cast<int>(fields.size()));
    for (const CRfcFieldInfo& f : fields) out << f.type << "/" << f.length << "@" << f.offset << " ";
    out << "->" << info.lengths << "\n";
  }
  // No record may exceed a 32-bit length, within the fields or by the last rounding.
  for (const auto& [type, length] : {std::pair{TYPE_CHAR, INT_MAX}, std::pair{TYPE_FLOAT, INT_MAX - 8}}) {
    RecordingStruct info("S");
    CRfcFieldInfo fields[] = {Field("A", 0, type == TYPE_CHAR ? TYPE_CHAR : TYPE_FLOAT, type == TYPE_CHAR ? 1 : 8),
                              Field("B", 1, TYPE_CHAR, length)};
    out << rfc_test::Thrown([&] { info.ComputeLayout(fields, 2); }) << "\n";
  }
  // Names keep at most 31 characters and lose trailing blanks; none is empty.
  CRfcFieldInfo field{};
  for (const char* given : {static_cast<const char*>(nullptr), "   ", "AB  ", "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"}) {
    SetFieldName(field, given);
    out << "'" << std::string(field.name, FieldNameLength(field)) << "' ";
  }
  std::memset(field.name, 'N', sizeof field.name);  // no terminator at all
  out << FieldNameLength(field) << "\n";
  // Laid out with the lengths as given, kept as copies with the fixed lengths,
  // installed once under its name; a second description keeps the handle.
  RecordingStruct info("MYSTRUCT");
  std::vector<CRfcFieldInfo> fields = {Field("NAME    ", 0, TYPE_CHAR, 3), Field("WHEN", 1, TYPE_DATE, 99),
                                       Field("COUNT", 2, TYPE_INT, 17), Field("AMOUNT", 3, TYPE_BCD, 5, 2)};
  info.AddFieldInfo(fields.data(), 4);
  fields[0].name[0] = 'X';
  out << "offsets " << fields[2].offset << " " << fields[3].offset << ", kept" << Kept(info) << "\n";
  const stand_in::Install& install = fake().installs.at(0);
  out << install.name << ":";
  for (const stand_in::Element& e : install.elements) out << " " << e.name << " " << e.type << "/" << e.length << "/" << e.decimals;
  EXPECT_EQ(info.EntryType(), install.handle);
  std::vector<CRfcFieldInfo> more = {Field("C", 4, TYPE_INT, 4)};
  info.AddFieldInfo(more.data(), 1);
  out << "\n" << Seen() << "\n";
  fake().install_result = 1;  // refused: passed as BYTE, or as CHAR when character-only
  RecordingStruct refused("REFUSED");
  std::vector<CRfcFieldInfo> one = {Field("A", 0, TYPE_CHAR, 3)};
  refused.AddFieldInfo(one.data(), 1);
  out << "refused: handle " << refused.GetTypeHandle() << " type " << refused.EntryType();
  refused.SetCharacterOnly(1);
  out << " character-only " << refused.EntryType() << "\n";
  fake().Reset();
  // An adopted handle, or a column left undescribed, installs nothing.
  RecordingStruct adopted("ADOPTED");
  adopted.SetTypeHandle(4711);
  std::vector<CRfcFieldInfo> gap = {Field("A", 0, TYPE_CHAR, 3), Field("C", 2, TYPE_INT, 4)};
  adopted.AddFieldInfo(gap.data(), 2);
  out << "adopted: handle " << adopted.GetTypeHandle() << Kept(adopted) << "\n";
  RecordingStruct with_gap("GAP");
  with_gap.AddFieldInfo(gap.data(), 2);
  // A record without a column is not kept but still takes its place.
  RecordingStruct dropped("NEG");
  std::vector<CRfcFieldInfo> negative = {Field("A", 0, TYPE_CHAR, 3), Field("B", -1, TYPE_CHAR, 4)};
  dropped.AddFieldInfo(negative.data(), 2);
  out << "no column:" << Kept(dropped) << "\n";
  RecordingStruct none("NONE");
  none.SetTypeHandle(1);
  none.AddFieldInfo(nullptr, 2);  // no records: none kept, no room taken
  out << "no records:" << Kept(none) << "\ncalled:" << Seen() << "\n";
  // Allocation 2 (copy of B) and 3 (storage for B) fail; A stays described.
  for (int skip : {2, 3}) {
    RecordingStruct info("S");
    out << Traced(rfc_test::RunTraced([&] {
      info.SetTypeName("ZTYPE");
      info.SetTypeHandle(1);
      std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3), Field("B", 1, TYPE_CHAR, 4)};
      rfc::testing::FailAllocations(skip, 1);
      info.AddFieldInfo(fields.data(), 2);
    })) << "kept" << Kept(info) << "\n";
  }
}

// A structure parameter of type ZPAIR {KEY CHAR 5, COUNT INT}; `gap`: only COUNT.
std::unique_ptr<CRfcStructParam> Pair(const char* name, bool gap = false) {
  auto param = std::make_unique<CRfcStructParam>(name, 0, 0, nullptr, nullptr);
  param->SetTypeName("ZPAIR");
  param->SetRelease(CRfcString("46C"));
  param->SetTypeHandle(1);
  CRfcFieldInfo fields[2] = {{"KEY", 0, 0, TYPE_CHAR, 5, 0}, {"COUNT", 1, 0, TYPE_INT, 4, 0}};
  param->AddFieldInfo(gap ? fields + 1 : fields, gap ? 1 : 2);
  return param;
}

// Per sink: the Dump results, the line count (no line after the last), the text.
TEST_F(ParamTest, WhatEachMetaDumpSinkHolds) {
  CRfcSimpleParam count("COUNT", TYPE_INT, 4, 0, 0);
  CRfcSimpleParam amount("amount", TYPE_BCD, 7, 2, 0);
  auto first = Pair("first");
  auto second = Pair("second");
  // Only IMPORT itself is an import, no direction an export; the type once per sink.
  CRfcMetaDump sink;
  out << count.Dump(sink, "EXPORT") << amount.Dump(sink, "IMPORT") << amount.Dump(sink, "import")
      << amount.Dump(sink, nullptr) << first->Dump(sink, "IMPORT") << second->Dump(sink, nullptr) << " ";
  out << sink.GetLineCount() << (sink.GetLine(sink.GetLineCount()) == nullptr ? " end" : " more") << "\n" << sink.GetText();
  // An undescribed column makes the type incomplete: its field lines are left out.
  CRfcMetaDump gap;
  out << Pair("P", true)->Dump(gap, "EXPORT") << " " << gap.GetLineCount() << "\n" << gap.GetText();
  // Not open: nothing is taken; tables write nothing.
  CRfcMetaDump closed;
  closed.SetState(41008);
  out << count.Dump(closed, "EXPORT") << first->Dump(closed, "EXPORT") << closed.WriteStructType(*first)
      << closed.WriteLine(CRfcMetaDump::kFunctionName, "F") << closed.HasWrittenType("ZPAIR") << " ";
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
  closed.SetState(CRfcMetaDump::kOpen);
  table.Dump(closed, "IMPORT");
  out << closed.GetLineCount() << "\n";
}

}  // namespace
