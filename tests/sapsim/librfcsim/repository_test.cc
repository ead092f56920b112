// The system's function modules seen through librfcsim.so: RFC_READ_TABLE's
// selections and the repository modules in their short and long line
// layouts. (Fields, offsets and the delimiter of RFC_READ_TABLE are read by
// the class library's and the data-access layer's tests against sapsim.)

#include <algorithm>
#include <cstring>
#include <map>

#include <gtest/gtest.h>

#include "tests/sapsim/support/library_test.h"

namespace sapsim::testing {
namespace {

// RFC_READ_TABLE's result, read raw: FIELDS lines of 103 bytes, DATA of 512.
struct ReadTableResult {
  struct Field {
    std::string name;
    int offset;
    int length;
  };
  std::vector<Field> fields;
  std::vector<std::string> rows;

  std::string Cell(size_t row, const std::string& name) const {
    for (const Field& f : fields) {
      if (f.name != name) continue;
      const std::string& line = rows.at(row);
      return static_cast<size_t>(f.offset) >= line.size() ? "" : LineText(line.data(), f.offset,
                                                                           std::min<size_t>(f.length, line.size() - f.offset));
    }
    return "<no field " + name + ">";
  }
};

class ReadTable : public LibraryTest {
 protected:
  void SetUp() override {
    StartExample();
    handle_ = Open();
    ASSERT_NE(0u, handle_) << lib.LastError();
  }
  int Read(const std::string& table, const std::string& delimiter, std::vector<std::string> options,
           ReadTableResult* result, std::string* exception, int32_t rowcount = 0) {
    Chars<30> query(table);
    Chars<1> delim(delimiter), no_data;
    RfcParameterEntry imports[] = {Param("QUERY_TABLE", RFCTYPE_CHAR, query.text, 30),
                                   Param("DELIMITER", RFCTYPE_CHAR, delim.text, 1),
                                   Param("NO_DATA", RFCTYPE_CHAR, no_data.text, 1),
                                   Param("ROWCOUNT", RFCTYPE_INT, &rowcount, 4), EndParam()};
    TableHandle options_table = lib.ItCreate("OPTIONS", 72, 0, 0);
    for (size_t i = 0; i < options.size(); ++i) {
      std::memcpy(lib.ItGupLine(options_table, static_cast<unsigned>(i + 1)), Chars<72>(options[i]).text, 72);
    }
    RfcTableEntry tables[] = {Table("OPTIONS", RFCTYPE_CHAR, 72, options_table),
                              Table("FIELDS", RFCTYPE_CHAR, 103), Table("DATA", RFCTYPE_CHAR, 512), EndTable()};
    NoArgs none;
    const int rc = CallReceive(handle_, "RFC_READ_TABLE", imports, none.params, tables, exception);
    lib.ItDelete(options_table);
    for (unsigned n = 1; rc == RFC_OK && n <= lib.ItFill(tables[1].handle); ++n) {
      const char* line = static_cast<const char*>(lib.ItGetLine(tables[1].handle, n));
      result->fields.push_back({LineText(line, 0, 30), std::atoi(std::string(line + 30, 6).c_str()),
                                std::atoi(std::string(line + 36, 6).c_str())});
    }
    for (unsigned n = 1; rc == RFC_OK && n <= lib.ItFill(tables[2].handle); ++n) {
      result->rows.push_back(LineText(lib.ItGetLine(tables[2].handle, n), 0, 512));
    }
    return rc;
  }
  ConnectionHandle handle_ = 0;
};

TEST_F(ReadTable, SelectsWithOptionsCountsRowsAndRaisesForBadQueries) {
  ReadTableResult active;
  std::string exception;
  ASSERT_EQ(RFC_OK, Read("ZKTZ_BATCHES", " ", {"ACTIVE = 'Y'"}, &active, &exception));
  ASSERT_EQ(3u, active.rows.size());
  EXPECT_EQ("Z_BATCH_UNKNOWN", active.Cell(2, "FUNCTION"));
  ReadTableResult first;
  ASSERT_EQ(RFC_OK,
            Read("ZKTZ_BATCHES", " ", {"ACTIVE EQ 'Y' AND", "STRUCTURE <> 'ZBATCH_ORDER'"}, &first, &exception, 1));
  ASSERT_EQ(1u, first.rows.size());
  EXPECT_EQ("Z_BATCH_CUSTOMERS", first.Cell(0, "FUNCTION"));

  const struct {
    const char* table;
    std::vector<std::string> options;
    const char* exception;
  } refused[] = {{"ZKTZ_BATCHES", {"ACTIVE LIKE 'Y%'"}, "OPTION_NOT_VALID"},
                 {"ZNO_SUCH_TABLE", {}, "TABLE_NOT_AVAILABLE"},
                 {"RS_PARAMS", {}, "TABLE_NOT_AVAILABLE"}};  // a structure, not a table
  for (const auto& c : refused) {
    ReadTableResult none;
    EXPECT_EQ(RFC_EXCEPTION, Read(c.table, " ", c.options, &none, &exception)) << c.table;
    EXPECT_EQ(c.exception, exception) << c.table;
  }
}

// PARAMS and FIELDS lines of the repository modules, received raw in the
// line length of the release's layout and read at its offsets.
class InterfaceLayouts : public LibraryTest, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    Start(SmallSystem(GetParam()));
    handle_ = Open();
    ASSERT_NE(0u, handle_) << lib.LastError();
    long_names_ = std::string(GetParam()).compare("40A") >= 0;
  }
  ConnectionHandle handle_ = 0;
  bool long_names_ = false;
};

TEST_P(InterfaceLayouts, ParamsLinesFollowTheSystemsRelease) {
  const size_t name = long_names_ ? 30 : 10;
  const unsigned line = long_names_ ? 208 : 168;
  const size_t fieldname = 31 + name, exid = 31 + 2 * name, intlength = exid + 9;
  Chars<30> function("RFC_GET_STRUCTURE_DEFINITION");
  Chars<1> language("E");
  RfcParameterEntry imports[] = {Param("FUNCNAME", RFCTYPE_CHAR, function.text, 30),
                                 Param("LANGUAGE", RFCTYPE_CHAR, language.text, 1), EndParam()};
  NoArgs none;
  RfcTableEntry tables[] = {Table("PARAMS", RFCTYPE_BYTE, line), EndTable()};
  ASSERT_EQ(RFC_OK, CallReceive(handle_, "RFC_GET_FUNCTION_INTERFACE", imports, none.params, tables))
      << lib.LastError();
  ASSERT_EQ(4u, lib.ItFill(tables[0].handle));  // TABNAME, TABLENGTH, FIELDS, exception TABLE_NOT_ACTIVE
  std::map<std::string, const char*> lines;
  for (unsigned n = 1; n <= 4; ++n) {
    const char* params = static_cast<const char*>(lib.ItGetLine(tables[0].handle, n));
    lines[LineText(params, 1, 30)] = params;
  }
  const char* tabname = lines.at("TABNAME");
  EXPECT_EQ('I', tabname[0]);
  EXPECT_EQ("TABNAME", LineText(tabname, fieldname, name));  // simple: FIELDNAME is its own name
  EXPECT_EQ('C', tabname[exid]);
  EXPECT_EQ(static_cast<int32_t>(name), IntAt(tabname, intlength));  // the dictionary's name length
  const char* tablength = lines.at("TABLENGTH");
  EXPECT_EQ('E', tablength[0]);
  EXPECT_EQ('I', tablength[exid]);
  EXPECT_EQ(4, IntAt(tablength, intlength));
  const char* fields = lines.at("FIELDS");
  EXPECT_EQ('T', fields[0]);
  EXPECT_EQ("RS_FIELDS", LineText(fields, 31, name));
  EXPECT_EQ("", LineText(fields, fieldname, name));  // structured: FIELDNAME empty
  EXPECT_EQ('h', fields[exid]);
  EXPECT_EQ(long_names_ ? 80 : 40, IntAt(fields, intlength));
  EXPECT_EQ('X', lines.at("TABLE_NOT_ACTIVE")[0]);
}

TEST_P(InterfaceLayouts, FieldsLinesFollowTheSystemsRelease) {
  const size_t name = long_names_ ? 30 : 10;
  const size_t position = 2 * name;
  Chars<30> tabname("ZORDERS");
  RfcParameterEntry imports[] = {Param("TABNAME", RFCTYPE_CHAR, tabname.text, name), EndParam()};
  int32_t tablength = 0;
  RfcParameterEntry exports[] = {Param("TABLENGTH", RFCTYPE_INT, &tablength, 4), EndParam()};
  RfcTableEntry tables[] = {Table("FIELDS", RFCTYPE_BYTE, long_names_ ? 80 : 40), EndTable()};
  ASSERT_EQ(RFC_OK, CallReceive(handle_, "RFC_GET_STRUCTURE_DEFINITION", imports, exports, tables))
      << lib.LastError();
  EXPECT_EQ(22, tablength);  // IDENT C10, QTY N6, PRICE P6
  ASSERT_EQ(3u, lib.ItFill(tables[0].handle));
  const char* price = static_cast<const char*>(lib.ItGetLine(tables[0].handle, 3));
  EXPECT_EQ("ZORDERS", LineText(price, 0, name));
  EXPECT_EQ("PRICE", LineText(price, name, name));
  EXPECT_EQ(3, IntAt(price, position));        // POSITION
  EXPECT_EQ(16, IntAt(price, position + 4));   // OFFSET
  EXPECT_EQ(6, IntAt(price, position + 8));    // INTLENGTH
  EXPECT_EQ(2, IntAt(price, position + 12));   // DECIMALS
  EXPECT_EQ('P', price[position + 16]);        // EXID

  Chars<30> unknown("ZNOTHING");
  RfcParameterEntry unknown_imports[] = {Param("TABNAME", RFCTYPE_CHAR, unknown.text, name), EndParam()};
  std::string exception;
  EXPECT_EQ(RFC_EXCEPTION,
            CallReceive(handle_, "RFC_GET_STRUCTURE_DEFINITION", unknown_imports, exports, tables, &exception));
  EXPECT_EQ("TABLE_NOT_ACTIVE", exception);
}

INSTANTIATE_TEST_SUITE_P(Releases, InterfaceLayouts, ::testing::Values("31I", "46C"));

}  // namespace
}  // namespace sapsim::testing
