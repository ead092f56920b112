// The system's function modules seen through librfcsim.so: RFC_READ_TABLE,
// Z_KTZ_BAPI_GET_DD_INFO and the repository modules in their short and long
// line layouts, and structures converted between different layouts.

#include <cstring>
#include <map>

#include <gtest/gtest.h>

#include "tests/sapsim/support/rfc_calls.h"
#include "tests/sapsim/support/rfc_library.h"
#include "tests/sapsim/support/sapsim_process.h"
#include "tests/sapsim/support/system_files.h"

namespace sapsim::testing {
namespace {

class RepositoryTest : public ::testing::Test {
 protected:
  void TearDown() override {
    if (handle_ != 0) lib.RfcClose(handle_);
    if (sapsim_) {
      EXPECT_EQ(0, sapsim_->Stop()) << sapsim_->Log();
    }
  }

  void Start(const std::string& system_file) {
    SapsimProcess::Options options;
    options.system_file = system_file;
    sapsim_ = std::make_unique<SapsimProcess>(options);
    std::string port = sapsim_->port_text();
    GatewayLogonOptions gateway{"127.0.0.1", port.c_str()};
    OpenOptions open{"", RFC_MODE_GATEWAY, &gateway, "100", "BATCH", "secret", "E", 0};
    handle_ = lib.RfcOpen(&open);
    ASSERT_NE(0u, handle_) << lib.LastError();
  }
  void StartExample() { Start(SourceDir() + "/examples/system.json"); }
  void StartWithRelease(const std::string& release) { Start(dir_.Write("system.json", SmallSystem(release))); }

  // Calls and receives; returns the code and leaves the exception in *exception.
  int CallReceive(const char* function, RfcParameterEntry* imports, RfcParameterEntry* exports,
                  RfcTableEntry* tables, std::string* exception = nullptr) {
    int rc = lib.RfcCall(handle_, function, imports, tables);
    if (rc != RFC_OK) return rc;
    char* raised = nullptr;
    rc = lib.RfcReceive(handle_, exports, tables, &raised);
    if (exception != nullptr) *exception = raised != nullptr ? raised : "";
    return rc;
  }

  const RfcLibrary& lib = RfcLibrary::Get();
  TempDir dir_;
  std::unique_ptr<SapsimProcess> sapsim_;
  ConnectionHandle handle_ = 0;
};

// RFC_READ_TABLE's result lines, read raw: FIELDS 103 bytes, DATA 512.
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
      if (f.name == name) {
        const std::string& line = rows.at(row);
        if (static_cast<size_t>(f.offset) >= line.size()) return "";
        std::string cell = line.substr(f.offset, f.length);
        size_t end = cell.find_last_not_of(' ');
        return end == std::string::npos ? "" : cell.substr(0, end + 1);
      }
    }
    return "<no field " + name + ">";
  }
};

class ReadTable : public RepositoryTest {
 protected:
  int Read(const std::string& table, const std::string& delimiter, std::vector<std::string> options,
           ReadTableResult* result, std::string* exception, int32_t rowcount = 0) {
    Chars<30> query(table);
    Chars<1> delim(delimiter);
    Chars<1> no_data;
    RfcParameterEntry imports[] = {Param("QUERY_TABLE", RFCTYPE_CHAR, query.text, 30),
                                   Param("DELIMITER", RFCTYPE_CHAR, delim.text, 1),
                                   Param("NO_DATA", RFCTYPE_CHAR, no_data.text, 1),
                                   Param("ROWCOUNT", RFCTYPE_INT, &rowcount, 4), EndParam()};
    TableHandle options_table = lib.ItCreate("OPTIONS", 72, 0, 0);
    for (size_t i = 0; i < options.size(); ++i) {
      Chars<72> line(options[i]);
      std::memcpy(lib.ItGupLine(options_table, static_cast<unsigned>(i + 1)), line.text, 72);
    }
    RfcTableEntry tables[] = {Table("OPTIONS", RFCTYPE_CHAR, 72, options_table),
                              Table("FIELDS", RFCTYPE_CHAR, 103), Table("DATA", RFCTYPE_CHAR, 512), EndTable()};
    RfcParameterEntry none[] = {EndParam()};
    int rc = CallReceive("RFC_READ_TABLE", imports, none, tables, exception);
    lib.ItDelete(options_table);
    if (rc != RFC_OK) return rc;
    for (unsigned n = 1; n <= lib.ItFill(tables[1].handle); ++n) {
      const char* line = static_cast<const char*>(lib.ItGetLine(tables[1].handle, n));
      result->fields.push_back({LineText(line, 0, 30), std::atoi(std::string(line + 30, 6).c_str()),
                                std::atoi(std::string(line + 36, 6).c_str())});
    }
    for (unsigned n = 1; n <= lib.ItFill(tables[2].handle); ++n) {
      result->rows.push_back(LineText(lib.ItGetLine(tables[2].handle, n), 0, 512));
    }
    return rc;
  }
};

TEST_F(ReadTable, DeliversZktzBatchesCutAtTheReportedOffsets) {
  StartExample();
  ReadTableResult result;
  std::string exception;
  ASSERT_EQ(RFC_OK, Read("ZKTZ_BATCHES", " ", {}, &result, &exception)) << lib.LastError();
  ASSERT_EQ(5u, result.fields.size());
  EXPECT_EQ("MANDT", result.fields[0].name);
  EXPECT_EQ(0, result.fields[0].offset);
  EXPECT_EQ(3, result.fields[0].length);
  EXPECT_EQ("PROGRAMM", result.fields[1].name);
  EXPECT_EQ(3, result.fields[1].offset);  // no delimiter: the fields follow each other
  EXPECT_EQ("ACTIVE", result.fields[4].name);
  EXPECT_EQ(103, result.fields[4].offset);
  ASSERT_EQ(5u, result.rows.size());
  EXPECT_EQ("Z_BATCH_ORDERS", result.Cell(0, "FUNCTION"));
  EXPECT_EQ("ZBATCH_ORDER", result.Cell(0, "STRUCTURE"));
  EXPECT_EQ("Y", result.Cell(0, "ACTIVE"));
  EXPECT_EQ("y", result.Cell(2, "ACTIVE"));
  EXPECT_EQ("", result.Cell(3, "ACTIVE"));
  EXPECT_EQ("ZBATCH_MISSING", result.Cell(4, "STRUCTURE"));
}

TEST_F(ReadTable, PutsANonBlankDelimiterBetweenTheFields) {
  StartExample();
  ReadTableResult result;
  std::string exception;
  ASSERT_EQ(RFC_OK, Read("ZKTZ_BATCHES", "|", {}, &result, &exception));
  EXPECT_EQ(4, result.fields[1].offset);
  EXPECT_EQ('|', result.rows[0][3]);
  EXPECT_EQ("BATCHSRV", result.Cell(0, "PROGRAMM"));
  EXPECT_EQ("Y", result.Cell(1, "ACTIVE"));
}

TEST_F(ReadTable, SelectsWithOptionsAndCountsRows) {
  StartExample();
  ReadTableResult active;
  std::string exception;
  ASSERT_EQ(RFC_OK, Read("ZKTZ_BATCHES", " ", {"ACTIVE = 'Y'"}, &active, &exception));
  ASSERT_EQ(3u, active.rows.size());
  EXPECT_EQ("Z_BATCH_UNKNOWN", active.Cell(2, "FUNCTION"));
  ReadTableResult first;
  ASSERT_EQ(RFC_OK, Read("ZKTZ_BATCHES", " ", {"ACTIVE EQ 'Y' AND", "STRUCTURE <> 'ZBATCH_ORDER'"}, &first,
                         &exception, 1));
  ASSERT_EQ(1u, first.rows.size());
  EXPECT_EQ("Z_BATCH_CUSTOMERS", first.Cell(0, "FUNCTION"));
  ReadTableResult bad;
  EXPECT_EQ(RFC_EXCEPTION, Read("ZKTZ_BATCHES", " ", {"ACTIVE LIKE 'Y%'"}, &bad, &exception));
  EXPECT_EQ("OPTION_NOT_VALID", exception);
}

TEST_F(ReadTable, UnknownTableRaisesTableNotAvailable) {
  StartExample();
  ReadTableResult result;
  std::string exception;
  EXPECT_EQ(RFC_EXCEPTION, Read("ZNO_SUCH_TABLE", " ", {}, &result, &exception));
  EXPECT_EQ("TABLE_NOT_AVAILABLE", exception);
  EXPECT_EQ(RFC_EXCEPTION, Read("RS_PARAMS", " ", {}, &result, &exception));  // a structure, not a table
}

TEST_F(RepositoryTest, DdInfoDescribesEveryFieldAsNumericText) {
  StartExample();
  Chars<30> name("ZBATCH_ORDER");
  RfcParameterEntry imports[] = {Param("TABNAME", RFCTYPE_CHAR, name.text, 30), EndParam()};
  struct Return {
    char type[1], id[20], number[3], message[220];
  } result;
  std::memset(&result, '#', sizeof result);
  // The export structure is received raw: TYPE C1, ID C20, NUMBER N3, MESSAGE C220.
  RfcParameterEntry exports[] = {Param("RETURN", RFCTYPE_CHAR, &result, sizeof result), EndParam()};
  RfcTableEntry tables[] = {Table("META_TAB", RFCTYPE_CHAR, 48), EndTable()};
  ASSERT_EQ(RFC_OK, CallReceive("Z_KTZ_BAPI_GET_DD_INFO", imports, exports, tables)) << lib.LastError();
  EXPECT_EQ('S', result.type[0]);
  TableHandle meta = tables[0].handle;
  ASSERT_EQ(13u, lib.ItFill(meta));
  std::map<std::string, std::string> by_name;
  for (unsigned n = 1; n <= 13; ++n) {
    const char* line = static_cast<const char*>(lib.ItGetLine(meta, n));
    // FIELDNAME C30, POS N4, DATATYPE N2, LENGTH N6, DECIMALS N6
    by_name[LineText(line, 0, 30)] = std::string(line + 30, 18);
  }
  EXPECT_EQ("0001" "00" "000010" "000000", by_name["H_IDENT"]);
  EXPECT_EQ("0005" "01" "000008" "000000", by_name["ORDER_DATE"]);
  EXPECT_EQ("0007" "02" "000008" "000002", by_name["AMOUNT"]);
  EXPECT_EQ("0008" "08" "000004" "000000", by_name["QUANTITY"]);
  EXPECT_EQ("0010" "09" "000002" "000000", by_name["PRIORITY"]);
  EXPECT_EQ("0011" "10" "000001" "000000", by_name["FLAGS"]);
  EXPECT_EQ("0012" "04" "000004" "000000", by_name["CHECKSUM"]);

  Chars<30> missing("ZBATCH_MISSING");
  RfcParameterEntry missing_imports[] = {Param("TABNAME", RFCTYPE_CHAR, missing.text, 30), EndParam()};
  ASSERT_EQ(RFC_OK, CallReceive("Z_KTZ_BAPI_GET_DD_INFO", missing_imports, exports, tables));
  EXPECT_EQ('E', result.type[0]);
  EXPECT_NE(std::string::npos, std::string(result.message, 220).find("ZBATCH_MISSING does not exist"));
  EXPECT_EQ(0u, lib.ItFill(tables[0].handle));
}

// PARAMS lines of RFC_GET_FUNCTION_INTERFACE, received raw in the line
// length the layout has, and read at the layout's offsets.
struct ParamsLayout {
  unsigned line;
  size_t tabname, name_length, fieldname, exid, intlength;
};
constexpr ParamsLayout kShortParams{168, 31, 10, 41, 51, 60};
constexpr ParamsLayout kLongParams{208, 31, 30, 61, 91, 100};

class InterfaceLayouts : public RepositoryTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(InterfaceLayouts, ParamsLinesFollowTheSystemsRelease) {
  std::string release = GetParam();
  StartWithRelease(release);
  const ParamsLayout& layout = release.compare("40A") >= 0 ? kLongParams : kShortParams;
  Chars<30> function("RFC_GET_STRUCTURE_DEFINITION");
  Chars<1> language("E");
  RfcParameterEntry imports[] = {Param("FUNCNAME", RFCTYPE_CHAR, function.text, 30),
                                 Param("LANGUAGE", RFCTYPE_CHAR, language.text, 1), EndParam()};
  RfcParameterEntry none[] = {EndParam()};
  RfcTableEntry tables[] = {Table("PARAMS", RFCTYPE_BYTE, layout.line), EndTable()};
  ASSERT_EQ(RFC_OK, CallReceive("RFC_GET_FUNCTION_INTERFACE", imports, none, tables)) << lib.LastError();
  TableHandle params = tables[0].handle;
  ASSERT_EQ(4u, lib.ItFill(params));  // TABNAME, TABLENGTH, FIELDS, exception TABLE_NOT_ACTIVE
  std::map<std::string, const char*> lines;
  for (unsigned n = 1; n <= 4; ++n) {
    const char* line = static_cast<const char*>(lib.ItGetLine(params, n));
    lines[LineText(line, 1, 30)] = line;
  }
  auto int_at = [](const char* line, size_t offset) {
    int32_t v;
    std::memcpy(&v, line + offset, 4);
    return v;
  };
  const char* tabname = lines.at("TABNAME");
  EXPECT_EQ('I', tabname[0]);
  EXPECT_FALSE(LineText(tabname, layout.fieldname, layout.name_length).empty());  // simple: FIELDNAME set
  EXPECT_EQ('C', tabname[layout.exid]);
  // The import TABNAME itself has the dictionary's name length.
  EXPECT_EQ(static_cast<int32_t>(layout.name_length), int_at(tabname, layout.intlength));
  const char* tablength = lines.at("TABLENGTH");
  EXPECT_EQ('E', tablength[0]);
  EXPECT_EQ('I', tablength[layout.exid]);
  EXPECT_EQ(4, int_at(tablength, layout.intlength));
  const char* fields = lines.at("FIELDS");
  EXPECT_EQ('T', fields[0]);
  EXPECT_EQ("RS_FIELDS", LineText(fields, layout.tabname, layout.name_length));
  EXPECT_EQ("", LineText(fields, layout.fieldname, layout.name_length));  // structured: FIELDNAME empty
  EXPECT_EQ(static_cast<int32_t>(release.compare("40A") >= 0 ? 80 : 40), int_at(fields, layout.intlength));
  EXPECT_EQ('X', lines.at("TABLE_NOT_ACTIVE")[0]);
}

TEST_P(InterfaceLayouts, FieldsLinesFollowTheSystemsRelease) {
  std::string release = GetParam();
  StartWithRelease(release);
  bool long_names = release.compare("40A") >= 0;
  unsigned line_length = long_names ? 80 : 40;
  size_t name = long_names ? 30 : 10;
  Chars<30> tabname("ZORDERS");
  RfcParameterEntry imports[] = {Param("TABNAME", RFCTYPE_CHAR, tabname.text, name), EndParam()};
  int32_t tablength = 0;
  RfcParameterEntry exports[] = {Param("TABLENGTH", RFCTYPE_INT, &tablength, 4), EndParam()};
  RfcTableEntry tables[] = {Table("FIELDS", RFCTYPE_BYTE, line_length), EndTable()};
  ASSERT_EQ(RFC_OK, CallReceive("RFC_GET_STRUCTURE_DEFINITION", imports, exports, tables)) << lib.LastError();
  EXPECT_EQ(22, tablength);  // IDENT C10, QTY N6, PRICE P6
  ASSERT_EQ(3u, lib.ItFill(tables[0].handle));
  const char* price = static_cast<const char*>(lib.ItGetLine(tables[0].handle, 3));
  size_t position = long_names ? 60 : 20;
  auto int_at = [&](size_t offset) {
    int32_t v;
    std::memcpy(&v, price + offset, 4);
    return v;
  };
  EXPECT_EQ("ZORDERS", LineText(price, 0, name));
  EXPECT_EQ("PRICE", LineText(price, name, name));
  EXPECT_EQ(3, int_at(position));       // POSITION
  EXPECT_EQ(16, int_at(position + 4));  // OFFSET
  EXPECT_EQ(6, int_at(position + 8));   // INTLENGTH
  EXPECT_EQ(2, int_at(position + 12));  // DECIMALS
  EXPECT_EQ('P', price[position + 16]); // EXID

  Chars<30> unknown("ZNOTHING");
  RfcParameterEntry unknown_imports[] = {Param("TABNAME", RFCTYPE_CHAR, unknown.text, name), EndParam()};
  std::string exception;
  EXPECT_EQ(RFC_EXCEPTION, CallReceive("RFC_GET_STRUCTURE_DEFINITION", unknown_imports, exports, tables, &exception));
  EXPECT_EQ("TABLE_NOT_ACTIVE", exception);
}

INSTANTIATE_TEST_SUITE_P(Releases, InterfaceLayouts, ::testing::Values("31I", "46C"));

TEST_F(RepositoryTest, UnknownFunctionRaisesFuNotFoundWithLibraryOwnedText) {
  StartExample();
  Chars<30> function("Z_NOT_THERE");
  Chars<1> language("E");
  RfcParameterEntry imports[] = {Param("FUNCNAME", RFCTYPE_CHAR, function.text, 30),
                                 Param("LANGUAGE", RFCTYPE_CHAR, language.text, 1), EndParam()};
  RfcParameterEntry none[] = {EndParam()};
  RfcTableEntry tables[] = {Table("PARAMS", RFCTYPE_CHAR, 208), EndTable()};
  ASSERT_EQ(RFC_OK, lib.RfcCall(handle_, "RFC_GET_FUNCTION_INTERFACE", imports, tables));
  char* exception = nullptr;
  ASSERT_EQ(RFC_EXCEPTION, lib.RfcReceive(handle_, none, tables, &exception));
  ASSERT_NE(nullptr, exception);
  EXPECT_STREQ("FU_NOT_FOUND", exception);
}

TEST_F(RepositoryTest, StructuresConvertBetweenDifferentLayoutsByFieldName) {
  StartExample();
  // The caller's FIELDS line differs from the system's in every way: other
  // order, OFFSET and LENGTH as integers, a shorter FIELDNAME, no FIELDTEXT,
  // and a field the system does not know.
  RfcTypeElement elements[] = {{"LENGTH", RFCTYPE_INT, 4, 0, 0},
                               {"TYPE", RFCTYPE_CHAR, 1, 0, 0},
                               {"FIELDNAME", RFCTYPE_CHAR, 6, 0, 0},
                               {"OFFSET", RFCTYPE_INT, 4, 0, 0},
                               {"EXTRA", RFCTYPE_NUM, 3, 0, 0}};
  RfcTypeHandle line_type = -1;
  ASSERT_EQ(RFC_OK, lib.RfcInstallStructure("ZMY_FIELDS", elements, 5, &line_type));
  // LENGTH 0..3, TYPE 4, FIELDNAME 5..10, OFFSET 12..15 (aligned), EXTRA 16..18, total 20.
  Chars<30> query("ZKTZ_BATCHES");
  Chars<1> delimiter("|");
  RfcParameterEntry imports[] = {Param("QUERY_TABLE", RFCTYPE_CHAR, query.text, 30),
                                 Param("DELIMITER", RFCTYPE_CHAR, delimiter.text, 1), EndParam()};
  RfcParameterEntry none[] = {EndParam()};
  RfcTableEntry tables[] = {Table("FIELDS", line_type, 20), Table("DATA", RFCTYPE_CHAR, 512), EndTable()};
  ASSERT_EQ(RFC_OK, CallReceive("RFC_READ_TABLE", imports, none, tables)) << lib.LastError();
  ASSERT_EQ(5u, lib.ItFill(tables[0].handle));
  const char* second = static_cast<const char*>(lib.ItGetLine(tables[0].handle, 2));
  int32_t length, offset;
  std::memcpy(&length, second, 4);
  std::memcpy(&offset, second + 12, 4);
  EXPECT_EQ(40, length);
  EXPECT_EQ(4, offset);
  EXPECT_EQ('C', second[4]);
  EXPECT_EQ("PROGRA", std::string(second + 5, 6));  // cut to the receiver's length
  EXPECT_EQ("000", std::string(second + 16, 3));    // unknown to the sender: initial
}

TEST_F(RepositoryTest, SystemInfoArrivesInAnInstalledStructure) {
  StartExample();
  RfcTypeElement elements[] = {{"HOST", RFCTYPE_CHAR, 8, 0, 0}, {"SYSID", RFCTYPE_CHAR, 3, 0, 0},
                               {"SAPREL", RFCTYPE_CHAR, 4, 0, 0}};
  RfcTypeHandle type = -1;
  ASSERT_EQ(RFC_OK, lib.RfcInstallStructure("ZSI", elements, 3, &type));
  char info[15];
  std::memset(info, '#', sizeof info);
  RfcParameterEntry none[] = {EndParam()};
  RfcParameterEntry exports[] = {Param("RFCSI_EXPORT", type, info, sizeof info), EndParam()};
  RfcTableEntry no_tables[] = {EndTable()};
  ASSERT_EQ(RFC_OK, CallReceive("RFC_SYSTEM_INFO", none, exports, no_tables)) << lib.LastError();
  EXPECT_EQ("sapdev  DEV46C ", std::string(info, 15));
}

}  // namespace
}  // namespace sapsim::testing
