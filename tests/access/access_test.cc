// The data-access layer on parameters filled by hand (no SAP system).

#include <cstring>

#include <gtest/gtest.h>

#include "access/client_connection.h"
#include "access/dd_info.h"
#include "access/read_table.h"
#include "access/sap_structure.h"
#include "access/sap_table.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_data.h"
#include "rfc/core/rfc_trace.h"
#include "tests/access/local_parameters.h"
#include "tests/support/polling.h"
#include "tests/support/temp_dir.h"

namespace access_test {
namespace {

using testutil::Join;

TEST(SapTableTest, RowsAndColumnsFollowTheLinesAndTheFirstLinesFields) {
  CRfcTableParam uncreated("BARE", 0, 0, 0, nullptr, "");  // no internal table behind it
  CSapTable bare(&uncreated);
  EXPECT_EQ(Join(bare.GetName(), bare.GetRowCount(), bare.GetColumn(-1) == nullptr, bare.GetColumn(1 << 20) == nullptr),
            "BARE|0|1|1|");
  auto param = MakeTable("ORDERS", {{"IDENT", TYPE_CHAR, 10}, {"QTY", TYPE_NUM, 6}});
  for (const char* line : {"A-1 5", "B-2 17", "C-3 0"}) AddLine(*param, {std::string(line, 3), line + 4});
  CSapTable table(param.get());
  const CSapColumn* qty = table.GetColumn(1);
  EXPECT_EQ(Join(table.GetName(), table.GetRowCount(), table.GetTotalLength(), table.GetColumnName(1),
                 table.GetColumnName(2) == nullptr, table.GetColumnName(-1) == nullptr, qty->GetType() == TYPE_NUM,
                 qty->GetLength(), qty->GetOffset(), qty->GetColumn(), table.GetValue(std::string("IDENT"))),
            "ORDERS|3|16|QTY|1|1|1|6|10|1|C-3|");  // the last line built stays current
  ASSERT_EQ(1, table.SetRow(1));
  EXPECT_EQ(Join(table.GetValue(0), table.GetValue(std::string("QTY")), table.GetValue(2), table.GetValue(-1),
                 table.GetValue(std::string("qty"))),
            "B-2|000017||||");
  EXPECT_EQ(0, table.SetRow(-1));
  EXPECT_EQ(0, table.SetRow(3));
  EXPECT_EQ("", table.GetValue(std::string("IDENT")));  // no current row

}

// Texts read in place in the line equal the data value's own conversion, whatever the bytes.
TEST(SapTableTest, TextFieldsReadInPlaceMatchTheValuesConversion) {
  const std::vector<std::string> raws = {"ab  ", std::string("a\0b ", 4), "    ", "",
                                         std::string("\0   ", 4), " x y", "1234"};
  const int lengths[] = {4, 4, 8, 6};
  auto param = MakeTable("T", {{"C", TYPE_CHAR, 4}, {"N", TYPE_NUM, 4}, {"D", TYPE_DATE, 8},
                               {"TM", TYPE_TIME, 6}});
  for (const std::string& raw : raws) {
    AddLine(*param, {});
    void* line = param->GetCurrentLine();
    for (int c = 0; c < 4; ++c) std::memcpy(param->GetData(line, c).GetData(), (raw + "        ").data(), lengths[c]);
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

TEST(SapTableTest, UnreadableValuesAbandonTheTableAndColumnNamesAreCut) {
  auto packed = MakeTable("T", {{"IDENT", TYPE_CHAR, 2}, {"AMOUNT", TYPE_BCD, 2}}, {{"a", "1"}, {"b", "2"}});
  ASSERT_EQ(1, packed->GotoLine(1));
  std::memcpy(packed->GetData(packed->GetCurrentLine(), 1).GetData(), "\x0A\x1C", 2);  // a digit nibble above 9
  try {
    CSapTable abandoned(packed.get());
    ADD_FAILURE() << "a broken packed value was read";
  } catch (const char* text) {
    EXPECT_STREQ("CRfcData: Conversion from PACK type (BCD) failed", text);
  }

  // Column names follow the field records' rule (31 characters, trailing blanks gone).
  EXPECT_STREQ("A_NAME_LONGER_THAN_THIRTY_ONE_C",
               CSapColumn("A_NAME_LONGER_THAN_THIRTY_ONE_CHARACTERS  ", 3, 14, TYPE_NUM, 6, 0).GetName());
  CRfcFieldInfo record{};  // a name filling the record, with no terminator
  std::memset(record.name, 'N', sizeof record.name);
  EXPECT_EQ(31u, std::strlen(CSapColumn(record).GetName()));
}

const std::vector<Field> kReturn = {
    {"TYPE", TYPE_CHAR, 1}, {"ID", TYPE_CHAR, 20}, {"NUMBER", TYPE_NUM, 3}, {"MESSAGE", TYPE_CHAR, 220}};

TEST(SapStructureTest, CharacterAndNumericFieldsAreTextsEveryOtherTypeIsRefused) {
  auto param = MakeStructure("return", kReturn, {"E", "", "7", "  Structure X does not exist  "});
  CSapStructure s(param.get());
  EXPECT_EQ(Join(s.GetName(), s.GetFieldCount(), s.GetValue(std::string("ID")), s.GetValue(std::string("NUMBER")),
                 s.GetValue(std::string("MESSAGE")), s.GetValue(2), s.GetValue(4), s.GetValue(-1),
                 s.GetValue(std::string("type")), s.GetValue(std::string("MISSING")), s.GetField(3)->GetLength()),
            "RETURN|4||007|  Structure X does not exist|007|||||220|");
  auto gap = MakeStructure("S", {{"A", TYPE_CHAR, 1, 0, 0}, {"C", TYPE_NUM, 2, 0, 2}}, {});
  const CSapStructure gapped(gap.get());  // no field at position 1
  EXPECT_EQ(Join(gapped.GetFieldCount(), gapped.GetValue(1), gapped.GetValue(std::string("C"))), "3||00|");

  for (const Field& field : std::vector<Field>{{"D", TYPE_DATE, 8}, {"P", TYPE_BCD, 3, 1}, {"T", TYPE_TIME, 6},
                                               {"X", TYPE_BYTE, 2}, {"F", TYPE_FLOAT, 8}, {"I", TYPE_INT, 4},
                                               {"S", TYPE_INT2, 2}, {"B", TYPE_INT1, 1}}) {
    auto odd = MakeStructure("S", {{"OK", TYPE_NUM, 2}, field}, {});
    try {
      CSapStructure mapped(odd.get());
      ADD_FAILURE() << "type " << field.type << " was mapped";
    } catch (const std::string& message) {
      EXPECT_EQ("Unmapped data type '" + std::to_string(field.type) + "' received from SAP in file: SAPTABLE line 331",
                message);
    }
  }
}

// FIELDS records and DATA lines cut into a table that may already hold columns.
struct Cut {
  Cut(const std::vector<std::vector<std::string>>& fields, const std::vector<std::string>& lines,
      std::vector<Field> field_layout = ReadTableFields(), const char* earlier_column = nullptr) {
    fields_param = MakeTable("FIELDS", field_layout, fields);
    data_param = MakeTable("DATA", {{"WA", TYPE_CHAR, 512}});
    for (const auto& line : lines) AddLine(*data_param, {line});
    CSapTable fields_text(fields_param.get());
    CSapTable data_text(data_param.get());
    if (earlier_column != nullptr) table.AddColumn(earlier_column);
    CReadTable::FillFromResult(table, infos, &fields_text, &data_text);
  }
  // The cell's text, or "<none>" when the table has no such cell.
  std::string operator()(const std::string& column, int row) const {
    std::string text = "stale";
    if (table.GetCell(column, row, text) == 1) return text;
    return text.empty() ? "<none>" : "<stale>";
  }
  std::unique_ptr<CRfcTableParam> fields_param, data_param;
  CTextTable table;
  std::vector<std::unique_ptr<CColumnInfo>> infos;
};

TEST(ReadTableCutTest, LinesAreCutByOffsetAndLengthAndTrimmedAndOddRecordsReadAsTheyCome) {
  const std::vector<std::vector<std::string>> fields = {
      {"MANDT", "0", "3", "C", "Client"}, {"FUNCTION", "3", "30", "C", "Batch function"}, {"ACTIVE", "33", "1", "C", ""}};
  // The third line ends before ACTIVE: an empty cell.
  const auto pad = [](std::string text) { return text + std::string(30 - text.size(), ' '); };
  const Cut cut(fields, {"100" + pad("Z_BATCH_ORDERS") + "Y", "100" + pad("  Z_PADDED") + "y", "100Z_BATCH_INACTIVE"});
  const CColumnInfo* function = cut.table.GetColumnInfo(1);
  EXPECT_EQ(Join(cut.table.GetColumnCount(), cut("FUNCTION", 0), cut("ACTIVE", 0), cut("FUNCTION", 1),
                 cut("ACTIVE", 1), cut("FUNCTION", 2), cut("ACTIVE", 2), cut("ACTIVE", 3), cut("PROGRAMM", 0),
                 function->offset, function->length, function->text, function->type, cut.infos.size()),
            "3|Z_BATCH_ORDERS|Y|Z_PADDED|y|Z_BATCH_INACTIVE||<none>|<none>|3|30|Batch function||3|");

  // Offsets and lengths that are no numbers count as 0 (or as their leading digits).
  std::vector<Field> text_numbers = ReadTableFields();
  text_numbers[1].type = text_numbers[2].type = TYPE_CHAR;
  text_numbers[1].length = 12;
  const Cut odd({{"FROM_START", "abc", "3", "", ""}, {"NO_LENGTH", "2", "x1", "", ""},
                 {"DIGITS_FIRST", "4x", "2z", "", ""}, {"FAR", "99999999999", "2", "", ""}},
                {"abcdefgh"}, text_numbers);
  EXPECT_EQ(Join(odd("FROM_START", 0), odd("NO_LENGTH", 0), odd("DIGITS_FIRST", 0), odd("FAR", 0)), "abc||ef||");
  // A column nobody described has no cells.
  const Cut earlier({{"A", "0", "1", "", ""}}, {"ab"}, ReadTableFields(), "EARLIER");
  EXPECT_EQ(Join(earlier("EARLIER", 0), earlier("A", 0)), "<none>|a|");

  // The text table refuses places outside its columns and rows (a braced list runs left to right).
  CTextTable t;
  std::string text;
  const std::vector<int> answers = {
      t.AddColumn("A"), t.AddColumn("A"), t.AddColumn("B"), t.SetColumnInfo(-1, nullptr), t.SetColumnInfo(2, nullptr),
      t.GetColumnInfo(-1) == nullptr, t.GetColumnInfo(0) == nullptr, t.SetCell(-1, 0, "x"), t.SetCell(2, 0, "x"),
      t.SetCell(0, -1, "x"), t.SetCell(1, 2, "x"), t.SetCell(0, 3, "y"), t.GetCell(-1, 2, text), t.GetCell(2, 2, text),
      t.GetCell(0, -1, text), t.GetCell(0, 9, text), t.GetCell(0, 1, text), t.GetCell(0, 2, text),
      t.GetCell(1, 3, text), t.GetRowCount(), t.GetCell("B", 2, text)};
  EXPECT_EQ(answers, (std::vector<int>{0, -1, 1, 0, 0, 1, 1, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 4, 1}));
  EXPECT_EQ(text, "x");
  EXPECT_EQ(Join(t.SetColumnInfo(1, nullptr), t.SetColumnInfo(0, nullptr)), "1|1|");
  EXPECT_EQ(1, t.SetCell(0, 2, "z"));
  EXPECT_EQ(1, t.GetCell(0, 2, text));
  EXPECT_EQ(text, "z");
}

// CDdInfo's columns as "position|name|type|offset|length|decimals|;", or "refused: message".
std::string DdInfo(const std::string& type, const std::vector<std::vector<std::string>>& rows,
                   bool text_numbers = false, bool no_table = false) {
  std::vector<Field> meta = {{"FIELDNAME", TYPE_CHAR, 30}, {"POS", TYPE_NUM, 4}, {"DATATYPE", TYPE_NUM, 2},
                             {"LENGTH", TYPE_NUM, 6},     {"DECIMALS", TYPE_NUM, 6}};
  for (size_t i = 1; text_numbers && i < meta.size(); ++i) meta[i].type = TYPE_CHAR;
  auto return_param = MakeStructure("RETURN", kReturn, {type, "", "0", "Structure ZX does not exist"});
  auto meta_param = MakeTable("META_TAB", meta, rows);
  CSapStructure result(return_param.get());
  CSapTable meta_table(meta_param.get());
  CDdInfo info(result, no_table ? nullptr : &meta_table);
  if (info.IsComplete() == 0) return "refused: " + info.GetMessage() + (info.GetColumns().empty() ? "" : " + columns");
  std::string text;
  for (const auto& [position, c] : info.GetColumns()) {
    text += Join(position, c->GetName(), c->GetType(), c->GetOffset(), c->GetLength(), c->GetDecimals()) + ";";
  }
  return text;
}

TEST(DdInfoTest, OnlyCapitalSIsSuccessAndOffsetsAreTheRunningSumsOfTheLengths) {
  EXPECT_EQ("", DdInfo("S", {}));
  EXPECT_EQ("", DdInfo("S", {}, false, true));
  // A later row at the same position (IDENT) replaces the earlier, but both lengths count.
  EXPECT_EQ("1|IDENT|0|5|10|0|;2|QTY|8|15|4|0|;3|AMOUNT|2|19|8|2|;",
            DdInfo("S", {{"FIRST", "1", "0", "5", "0"}, {"IDENT", "1", "0", "10", "0"}, {"QTY", "2", "8", "4", "0"},
                         {"AMOUNT", "3", "2", "8", "2"}}));
  // Numbers that are no numbers count as zero.
  EXPECT_EQ("0|ODD|0|0|0|0|;2|NEXT|0|0|4|0|;", DdInfo("S", {{"ODD", "x", "C", "", "-1"}, {"NEXT", "2", "0", "4", "0"}}, true));
  for (const std::string type : {"s", "E", "W", "I", "A", ""}) {
    EXPECT_EQ("refused: Structure ZX does not exist", DdInfo(type, {{"F", "1", "0", "1", "0"}})) << type;
  }
}

TEST(ClientConnectionTest, TraceSwitchAndWhatTheTwoLogonSetUpsLeaveOfEachOther) {
  // The class-library trace is process-wide: a folder of our own, off again afterwards.
  testutil::TempDir dir;
  const std::string saved_directory = GetRfcTrace().GetDirectory();
  GetRfcTrace().SetDirectory(dir.path());
  CClientConnection connection;
  connection.SetTraceFlag(1);
  connection.SetAppServerLogon("apphost", 12, "100", "BATCH", "secret", "E", "sapgw12", 1);
  EXPECT_NE(0, GetRfcTrace().IsTraceOn());
  EXPECT_EQ(0, connection.GetTraceFlag());  // only the class library's trace is switched
  EXPECT_EQ(1, connection.SetLoadBalancingLogon(1, "mshost", "DEV", "PUBLIC", "200", "OTHER", "pw", "D", 0));
  EXPECT_EQ(0, GetRfcTrace().IsTraceOn());
  GetRfcTrace().SetDirectory(saved_directory);
  const CRfcConnInfo& i = connection.GetConnection();
  EXPECT_EQ(Join(i.release, i.message_server_host, i.system_name, i.group, i.mode, i.host, i.gateway_host,
                 i.gateway_service, i.system_number),
            "RELEASEUNKNOWN|mshost|DEV|PUBLIC|0|apphost|apphost|sapgw12|12|");
  const CRfcLogonInfo& logon = connection.GetLogonInfo();
  EXPECT_EQ(Join(logon.client, logon.user, logon.password, logon.language), "200|OTHER|pw|D|");
  // The other way round the message server's fields stay as well.
  connection.SetAppServerLogon("other", 0, "100", "BATCH", "secret", "E", "3300", 0);
  EXPECT_EQ(Join(connection.GetConnInfo().message_server_host, connection.GetConnInfo().host), "mshost|other|");
}

}  // namespace
}  // namespace access_test
