// The call wrapper's rules, with real calls of sapsim's function modules.

#include "access/sap_call_set.h"

#include <gtest/gtest.h>

#include "tests/access/sapsim_logon.h"
#include "tests/sapsim/support/system_files.h"

namespace access_test {
namespace {

constexpr uint16_t kRead = 0;

class SapCallTest : public SapsimTest {
 protected:
  void SetUp() override {
    Start(sapsim::testing::SmallSystem());
    connection_ = Logon();
  }
  void TearDown() override {
    connection_.reset();
    SapsimTest::TearDown();
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
  static std::string FirstCell(CSapTable* table, int row, const std::string& column) {
    return table != nullptr && table->SetRow(row) == 1 ? table->GetValue(column) : "<no row>";
  }

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
  ASSERT_NE(nullptr, set->GetTable(kRead, "DATA"));
  EXPECT_EQ(3u, set->GetTable(kRead, "DATA")->GetRowCount());
  EXPECT_EQ(0u, FirstCell(set->GetTable(kRead, "DATA"), 0, "WA").find("A-1"));
  ASSERT_NE(nullptr, set->GetTable(kRead, "fields "));
  EXPECT_EQ(3u, set->GetTable(kRead, "fields ")->GetRowCount());
  EXPECT_EQ(nullptr, set->GetTable(kRead, "OPTIONS"));  // never declared

  // The value stays set for the next call, which builds the results anew.
  ASSERT_EQ(1, set->Call(kRead));
  EXPECT_EQ(3u, set->GetTable(kRead, "DATA")->GetRowCount());
  EXPECT_EQ(0u, FirstCell(set->GetTable(kRead, "DATA"), 2, "WA").find("C-3"));
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
  // Tables travel both ways: FIELDS as the first call returned it now names
  // the fields to read, and ZBATCH_LINE has none of them.
  auto set = ReadTableSet();
  ASSERT_EQ(1, set->Call(kRead));
  set->SetImport(kRead, "QUERY_TABLE", "ZBATCH_LINE");
  EXPECT_EQ("FIELD_NOT_VALID", RaisedText(*set, kRead));

  // A set of its own reads the other table in full.
  auto fresh = ReadTableSet("ZBATCH_LINE");
  ASSERT_EQ(1, fresh->Call(kRead));
  EXPECT_EQ(0u, fresh->GetTable(kRead, "DATA")->GetRowCount());
  EXPECT_EQ(4u, fresh->GetTable(kRead, "FIELDS")->GetRowCount());
  EXPECT_EQ("NAME", FirstCell(fresh->GetTable(kRead, "FIELDS"), 0, "FIELDNAME"));
}

TEST_F(SapCallTest, ImportsTheModuleCannotTakeFailTheCallBeforeItIsMade) {
  auto set = ReadTableSet();
  set->AddImport(kRead, "No_Such_Import");
  for (int attempt = 0; attempt < 2; ++attempt) {
    try {
      set->Call(kRead);
      FAIL() << "the call ran with an import the module does not have";
    } catch (const BAPI_ERROR_INFO& error) {
      EXPECT_EQ("", error.Key);
      EXPECT_EQ("ReadTable", error.Function);
      EXPECT_EQ("No_Such_Import", error.Parameter);
      EXPECT_EQ("Error while importing parameter", error.Message);
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
  ASSERT_NE(nullptr, first);
  EXPECT_EQ(first, set.GetReturn(0));
  EXPECT_EQ("S", first->GetValue(std::string("TYPE")));
  CSapTable* meta = set.GetOutTable(0);
  ASSERT_NE(nullptr, meta);
  EXPECT_EQ(meta, set.GetOutTable(0));
  EXPECT_EQ(3u, meta->GetRowCount());
  set.SetImport(0, "TABNAME", "ZNOWHERE");
  ASSERT_EQ(1, set.Call(0));
  EXPECT_EQ("E", set.GetReturn(0)->GetValue(std::string("TYPE")));
  EXPECT_NE(std::string::npos, set.GetReturn(0)->GetValue(std::string("MESSAGE")).find("ZNOWHERE"));
  EXPECT_EQ(0u, set.GetOutTable(0)->GetRowCount());

  // RFC_READ_TABLE has no RETURN export and no OUT_TABLE.
  auto read = ReadTableSet();
  ASSERT_EQ(1, read->Call(kRead));
  ASSERT_NE(nullptr, read->GetReturn(kRead));
  EXPECT_EQ(0, read->GetReturn(kRead)->GetFieldCount());
  ASSERT_NE(nullptr, read->GetOutTable(kRead));
  EXPECT_EQ(0u, read->GetOutTable(kRead)->GetRowCount());
  EXPECT_EQ("", read->GetOutTable(kRead)->GetName());
  // A new name takes effect with the next call's results.
  read->SetOutTableName(kRead, "fields  ");
  ASSERT_EQ(1, read->Call(kRead));
  EXPECT_EQ("FIELDS", read->GetOutTable(kRead)->GetName());
  EXPECT_EQ(3u, read->GetOutTable(kRead)->GetRowCount());
}

TEST_F(SapCallTest, TheSetAddressesCallsByNumberAndName) {
  CSapCallSet set(connection_.get(), "Mixed");
  // An unknown number does nothing and answers 0 or none.
  const uint16_t unknown = 7;
  EXPECT_EQ(0, set.AddImport(unknown, "QUERY_TABLE"));
  EXPECT_EQ(0, set.AddTable(unknown, "DATA"));
  EXPECT_EQ(0, set.SetImport(unknown, "QUERY_TABLE", "ZORDERS"));
  EXPECT_EQ(0, set.SetReturnName(unknown, "RETURN"));
  EXPECT_EQ(0, set.SetOutTableName(unknown, "DATA"));
  EXPECT_EQ(0, set.Call(unknown));
  EXPECT_EQ(nullptr, set.GetReturn(unknown));
  EXPECT_EQ(nullptr, set.GetOutTable(unknown));
  EXPECT_EQ(nullptr, set.GetTable(unknown, "DATA"));

  // Adding under a taken number or name replaces the earlier call.
  set.AddFunction("READ", 0, "RFC_READ_TABLE");
  set.AddFunction("INFO", 1, "Z_KTZ_BAPI_GET_DD_INFO");
  set.AddFunction("PING", 0, "RFCPING");
  EXPECT_EQ(2u, set.GetCallCount());
  EXPECT_EQ(nullptr, set.GetCall("READ"));
  EXPECT_EQ(set.GetCall("PING"), set.GetCall(uint16_t{0}));
  EXPECT_EQ(1, set.Call(0));
  set.AddFunction("INFO", 5, "RFC_READ_TABLE");
  EXPECT_EQ(2u, set.GetCallCount());
  EXPECT_EQ(nullptr, set.GetCall(uint16_t{1}));
  EXPECT_EQ(set.GetCall("INFO"), set.GetCall(uint16_t{5}));
  set.AddFunction("PING", 5, "RFCPING");  // both at once: one call left
  EXPECT_EQ(1u, set.GetCallCount());
  EXPECT_EQ(nullptr, set.GetCall("INFO"));
  EXPECT_EQ(1, set.Call(5));

  // A module the system lacks is refused and the set stays as it was.
  CSapCall* before = set.GetCall(uint16_t{5});
  try {
    set.AddFunction("MISSING", 5, "Z_NO_SUCH_MODULE");
    FAIL() << "a module the system does not have was prepared";
  } catch (const char* text) {
    EXPECT_STREQ("FU_NOT_FOUND", text);
  }
  EXPECT_EQ(before, set.GetCall(uint16_t{5}));
  EXPECT_EQ(nullptr, set.GetCall("MISSING"));
}

TEST_F(SapCallTest, ACommunicationFailurePassesThroughAsTheLibrarysRecord) {
  auto set = ReadTableSet();
  ASSERT_EQ(1, set->Call(kRead));
  EXPECT_EQ(0, sapsim().Stop());
  sapsim_.reset();
  try {
    set->Call(kRead);
    FAIL() << "a call over a closed connection succeeded";
  } catch (const RFC_ERROR_INFO& error) {
    EXPECT_NE('\0', error.message[0]) << Describe(error);
  }
}

}  // namespace
}  // namespace access_test
