// The call wrapper's rules, with real calls of sapsim's function modules.

#include "access/sap_call_set.h"

#include <gtest/gtest.h>

#include "access/client_connection.h"
#include "tests/access/local_parameters.h"
#include "tests/sapsim/support/sapsim_process.h"
#include "tests/sapsim/support/system_files.h"
#include "tests/support/polling.h"

namespace access_test {
namespace {

using testutil::Join;
constexpr uint16_t kRead = 0;

class SapCallTest : public ::testing::Test {
 protected:
  void SetUp() override {
    LoadLocalLibrary();
    sapsim::testing::SapsimProcess::Options options;
    options.system_file = dir_.Write("system.json", sapsim::testing::SmallSystem());
    sapsim_ = std::make_unique<sapsim::testing::SapsimProcess>(options);
    connection_ = std::make_unique<CClientConnection>();
    connection_->SetAppServerLogon("127.0.0.1", 0, "100", "BATCH", "secret", "E", sapsim_->port_text(), 0);
    connection_->Open();
    ASSERT_NE(0u, connection_->GetHandle());
  }
  void TearDown() override {
    connection_.reset();
    if (sapsim_) {
      EXPECT_EQ(0, sapsim_->Stop()) << sapsim_->Log();
    }
  }

  // RFC_READ_TABLE as call kRead, with DATA and FIELDS read back and, unless
  // `table` is empty, QUERY_TABLE declared and set.
  std::unique_ptr<CSapCallSet> ReadTableSet(const std::string& table = "ZORDERS") {
    auto set = std::make_unique<CSapCallSet>(connection_.get(), "ReadTable");
    EXPECT_EQ(1, set->AddFunction("ReadTable", kRead, "RFC_READ_TABLE"));
    set->AddTable(kRead, "FIELDS");
    set->AddTable(kRead, "DATA");
    if (!table.empty()) {
      set->AddImport(kRead, "QUERY_TABLE");
      EXPECT_EQ(1, set->SetImport(kRead, "QUERY_TABLE", table));
    }
    return set;
  }
  // Runs the call; the text it raised, or "" without.
  static std::string RaisedText(CSapCallSet& set, uint16_t number) {
    try {
      set.Call(number);
    } catch (const char* text) {
      return text;
    }
    return "";
  }
  // Row count and the first characters of one cell.
  static std::string Rows(CSapTable* table, int row, const std::string& column, size_t width = 3) {
    if (table == nullptr) return "<no table>";
    const size_t rows = table->GetRowCount();
    return Join(rows, table->SetRow(row) == 1 ? table->GetValue(column).substr(0, width) : "<no row>");
  }

  sapsim::testing::TempDir dir_;
  std::unique_ptr<sapsim::testing::SapsimProcess> sapsim_;
  std::unique_ptr<CClientConnection> connection_;
};

TEST_F(SapCallTest, OnlyDeclaredImportsAreSuppliedAndTablesAreReadBackFreshAfterEachCall) {
  auto set = ReadTableSet("");
  EXPECT_EQ(0, set->SetImport(kRead, "QUERY_TABLE", "ZORDERS"));  // undeclared: dropped
  EXPECT_EQ(nullptr, set->GetTable(kRead, "DATA"));                // no call yet
  EXPECT_EQ("TABLE_NOT_AVAILABLE", RaisedText(*set, kRead));       // nothing was supplied

  // Declared names match the interface whatever their case, and are kept as declared.
  EXPECT_EQ(1, set->AddImport(kRead, "query_table "));
  EXPECT_EQ(1, set->AddTable(kRead, "fields "));
  EXPECT_EQ(1, set->SetImport(kRead, "query_table ", "ZORDERS"));
  ASSERT_EQ(1, set->Call(kRead));
  EXPECT_EQ(Rows(set->GetTable(kRead, "DATA"), 0, "WA") + Rows(set->GetTable(kRead, "fields "), 0, "FIELDNAME", 5),
            "3|A-1|3|IDENT|");
  EXPECT_EQ(nullptr, set->GetTable(kRead, "OPTIONS"));  // never declared

  // The value stays set for the next call, which builds the results anew.
  ASSERT_EQ(1, set->Call(kRead));
  EXPECT_EQ(Rows(set->GetTable(kRead, "DATA"), 2, "WA"), "3|C-3|");
  // A module's exception is raised as its name and leaves no results.
  set->SetImport(kRead, "query_table ", "ZNOWHERE");
  EXPECT_EQ("TABLE_NOT_AVAILABLE", RaisedText(*set, kRead));
  EXPECT_EQ(nullptr, set->GetTable(kRead, "DATA"));
  // Declaring a name again empties its value.
  set->SetImport(kRead, "query_table ", "ZORDERS");
  EXPECT_EQ("", RaisedText(*set, kRead));
  EXPECT_EQ(1, set->AddImport(kRead, "query_table "));
  EXPECT_EQ("TABLE_NOT_AVAILABLE", RaisedText(*set, kRead));
}

TEST_F(SapCallTest, ASecondCallSendsTheTablesOfTheFirstBack) {
  // FIELDS as the first call returned it now names the fields to read, and
  // ZBATCH_LINE has none of them; a set of its own reads that table in full.
  auto set = ReadTableSet();
  ASSERT_EQ(1, set->Call(kRead));
  set->SetImport(kRead, "QUERY_TABLE", "ZBATCH_LINE");
  EXPECT_EQ("FIELD_NOT_VALID", RaisedText(*set, kRead));
  auto fresh = ReadTableSet("ZBATCH_LINE");
  ASSERT_EQ(1, fresh->Call(kRead));
  EXPECT_EQ(Rows(fresh->GetTable(kRead, "DATA"), 0, "WA") + Rows(fresh->GetTable(kRead, "FIELDS"), 0, "FIELDNAME", 9),
            "0|<no row>|4|NAME|");
}

TEST_F(SapCallTest, ImportsTheModuleCannotTakeFailTheCallBeforeItIsMade) {
  auto set = ReadTableSet();
  set->AddImport(kRead, "No_Such_Import");
  for (int attempt = 0; attempt < 2; ++attempt) {
    try {
      set->Call(kRead);
      FAIL() << "the call ran with an import the module does not have";
    } catch (const BAPI_ERROR_INFO& error) {
      EXPECT_EQ(Join(error.Key, error.Function, error.Parameter, error.Message),
                "|ReadTable|No_Such_Import|Error while importing parameter|");
    }
  }
  EXPECT_EQ(nullptr, set->GetTable(kRead, "DATA"));

  auto too_long = ReadTableSet();
  too_long->AddImport(kRead, "DELIMITER");  // CHAR 1
  too_long->SetImport(kRead, "DELIMITER", "ab");
  EXPECT_EQ("CRfcData:operator=(CSTR) Input string too long, exceeding ", RaisedText(*too_long, kRead));
}

TEST_F(SapCallTest, ReturnAndOutTableAreCachedUntilTheNextCallAndEmptyWhenAbsent) {
  CSapCallSet set(connection_.get(), "TABLE_INFO");
  set.AddFunction("GET_INFO", 0, "Z_KTZ_BAPI_GET_DD_INFO");
  set.AddImport(0, "TABNAME");
  set.SetReturnName(0, "RETURN");
  set.SetOutTableName(0, "META_TAB");
  set.SetImport(0, "TABNAME", "ZORDERS");
  ASSERT_EQ(1, set.Call(0));
  CSapStructure* first = set.GetReturn(0);
  CSapTable* meta = set.GetOutTable(0);
  ASSERT_TRUE(first != nullptr && meta != nullptr);
  EXPECT_EQ(Join(first == set.GetReturn(0), first->GetValue(std::string("TYPE")), meta == set.GetOutTable(0),
                 meta->GetRowCount()),
            "1|S|1|3|");
  set.SetImport(0, "TABNAME", "ZNOWHERE");
  ASSERT_EQ(1, set.Call(0));
  EXPECT_EQ("E", set.GetReturn(0)->GetValue(std::string("TYPE")));
  EXPECT_NE(std::string::npos, set.GetReturn(0)->GetValue(std::string("MESSAGE")).find("ZNOWHERE"));
  EXPECT_EQ(0u, set.GetOutTable(0)->GetRowCount());

  // A simple export of the return name is no structure to read.
  CSapCallSet definition(connection_.get(), "DEFINITION");
  definition.AddFunction("DEF", 0, "RFC_GET_STRUCTURE_DEFINITION");
  definition.AddImport(0, "TABNAME");
  definition.SetImport(0, "TABNAME", "ZORDERS");
  definition.SetReturnName(0, "TABLENGTH");
  definition.SetOutTableName(0, "FIELDS");
  ASSERT_EQ(1, definition.Call(0));
  EXPECT_EQ(Join(definition.GetReturn(0)->GetFieldCount(), definition.GetOutTable(0)->GetRowCount()), "0|3|");

  // RFC_READ_TABLE has no RETURN export and no OUT_TABLE.
  auto read = ReadTableSet();
  ASSERT_EQ(1, read->Call(kRead));
  ASSERT_TRUE(read->GetReturn(kRead) != nullptr && read->GetOutTable(kRead) != nullptr);
  EXPECT_EQ(Join(read->GetReturn(kRead)->GetFieldCount(), read->GetOutTable(kRead)->GetRowCount(),
                 read->GetOutTable(kRead)->GetName()),
            "0|0||");
  read->SetReturnName(kRead, "");
  read->SetOutTableName(kRead, "");
  ASSERT_EQ(1, read->Call(kRead));
  EXPECT_EQ(Join(read->GetReturn(kRead)->GetFieldCount(), read->GetOutTable(kRead)->GetRowCount()), "0|0|");
  // A new name takes effect with the next call's results.
  read->SetOutTableName(kRead, "fields  ");
  ASSERT_EQ(1, read->Call(kRead));
  EXPECT_EQ(Join(read->GetOutTable(kRead)->GetName(), read->GetOutTable(kRead)->GetRowCount()), "FIELDS|3|");
}

TEST_F(SapCallTest, TheSetAddressesCallsByNumberAndName) {
  CSapCallSet set(connection_.get(), "Mixed");
  // An unknown number does nothing and answers 0 or none.
  const uint16_t unknown = 7;
  EXPECT_EQ(Join(set.AddImport(unknown, "QUERY_TABLE"), set.AddTable(unknown, "DATA"),
                 set.SetImport(unknown, "QUERY_TABLE", "ZORDERS"), set.SetReturnName(unknown, "RETURN"),
                 set.SetOutTableName(unknown, "DATA"), set.Call(unknown), set.GetReturn(unknown) == nullptr,
                 set.GetOutTable(unknown) == nullptr, set.GetTable(unknown, "DATA") == nullptr),
            "0|0|0|0|0|0|1|1|1|");

  // Adding under a taken number or name replaces the earlier call.
  set.AddFunction("READ", 0, "RFC_READ_TABLE");
  set.AddFunction("INFO", 1, "Z_KTZ_BAPI_GET_DD_INFO");
  set.AddFunction("PING", 0, "RFCPING");
  EXPECT_EQ(Join(set.GetCallCount(), set.GetCall("READ") == nullptr, set.GetCall("PING") == set.GetCall(uint16_t{0}),
                 set.Call(0)),
            "2|1|1|1|");
  set.AddFunction("INFO", 5, "RFC_READ_TABLE");
  EXPECT_EQ(Join(set.GetCallCount(), set.GetCall(uint16_t{1}) == nullptr, set.GetCall("INFO") == set.GetCall(uint16_t{5})),
            "2|1|1|");
  set.AddFunction("PING", 5, "RFCPING");  // both at once: one call left
  EXPECT_EQ(Join(set.GetCallCount(), set.GetCall("INFO") == nullptr, set.Call(5)), "1|1|1|");

  // A module the system lacks is refused and the set stays as it was.
  CSapCall* before = set.GetCall(uint16_t{5});
  try {
    set.AddFunction("MISSING", 5, "Z_NO_SUCH_MODULE");
    FAIL() << "a module the system does not have was prepared";
  } catch (const char* text) {
    EXPECT_STREQ("FU_NOT_FOUND", text);
  }
  EXPECT_EQ(Join(before == set.GetCall(uint16_t{5}), set.GetCall("MISSING") == nullptr), "1|1|");

  // A call never initialised calls nothing and finds no results; a second
  // initialisation changes nothing.
  CSapCall bare;
  EXPECT_EQ(Join(bare.Call(), bare.GetReturn()->GetFieldCount(), bare.GetOutTable()->GetRowCount()), "0|0|0|");
  EXPECT_EQ(1, bare.Init(connection_.get(), "PING", "RFCPING"));
  EXPECT_EQ(1, bare.Init(connection_.get(), "READ", "RFC_READ_TABLE"));
  EXPECT_EQ(1, bare.Call());

  // A communication failure passes through as the library's record.
  EXPECT_EQ(0, sapsim_->Stop());
  sapsim_.reset();
  try {
    set.Call(5);
    FAIL() << "a call over a closed connection succeeded";
  } catch (const RFC_ERROR_INFO& error) {
    EXPECT_NE('\0', error.message[0]);
  }
}

}  // namespace
}  // namespace access_test
