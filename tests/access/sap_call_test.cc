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

  // RFC_READ_TABLE as call kRead, with DATA and FIELDS read back.
  std::unique_ptr<CSapCallSet> ReadTableSet() {
    auto set = std::make_unique<CSapCallSet>(connection_.get(), "ReadTable");
    EXPECT_EQ(1, set->AddFunction("ReadTable", kRead, "RFC_READ_TABLE"));
    set->AddTable(kRead, "FIELDS");
    set->AddTable(kRead, "DATA");
    return set;
  }

  // Runs the call and returns the exception text it raised, or "" without.
  static std::string RaisedText(CSapCallSet& set, uint16_t number) {
    try {
      set.Call(number);
    } catch (const char* text) {
      return text;
    }
    return "";
  }

  std::unique_ptr<CClientConnection> connection_;
};

TEST_F(SapCallTest, AnUndeclaredImportIsDroppedAndNotSupplied) {
  auto set = ReadTableSet();
  EXPECT_EQ(0, set->SetImport(kRead, "QUERY_TABLE", "ZORDERS"));
  // Without QUERY_TABLE the module finds no table.
  EXPECT_EQ("TABLE_NOT_AVAILABLE", RaisedText(*set, kRead));

  EXPECT_EQ(1, set->AddImport(kRead, "QUERY_TABLE"));
  EXPECT_EQ(1, set->SetImport(kRead, "QUERY_TABLE", "ZORDERS"));
  ASSERT_EQ(1, set->Call(kRead));
  ASSERT_NE(nullptr, set->GetTable(kRead, "DATA"));
  EXPECT_EQ(3u, set->GetTable(kRead, "DATA")->GetRowCount());
}

TEST_F(SapCallTest, DeclaredNamesMatchTheInterfaceWhateverTheirCase) {
  auto set = std::make_unique<CSapCallSet>(connection_.get(), "ReadTable");
  set->AddFunction("ReadTable", kRead, "RFC_READ_TABLE");
  set->AddImport(kRead, "query_table ");
  set->AddTable(kRead, "data");
  set->SetImport(kRead, "query_table ", "ZORDERS");
  ASSERT_EQ(1, set->Call(kRead));
  CSapTable* data = set->GetTable(kRead, "data");
  ASSERT_NE(nullptr, data);
  EXPECT_EQ(3u, data->GetRowCount());
  EXPECT_EQ(nullptr, set->GetTable(kRead, "DATA"));  // kept under the declared name
}

TEST_F(SapCallTest, AnImportTheModuleLacksFailsEveryCallNamingCallAndImport) {
  auto set = ReadTableSet();
  set->AddImport(kRead, "QUERY_TABLE");
  set->SetImport(kRead, "QUERY_TABLE", "ZORDERS");
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
}

TEST_F(SapCallTest, AModulesExceptionIsRaisedAsItsNameAndLeavesNoResults) {
  auto set = ReadTableSet();
  set->AddImport(kRead, "QUERY_TABLE");
  set->SetImport(kRead, "QUERY_TABLE", "ZORDERS");
  ASSERT_EQ(1, set->Call(kRead));
  ASSERT_NE(nullptr, set->GetTable(kRead, "DATA"));

  set->SetImport(kRead, "QUERY_TABLE", "ZNOWHERE");
  EXPECT_EQ("TABLE_NOT_AVAILABLE", RaisedText(*set, kRead));
  EXPECT_EQ(nullptr, set->GetTable(kRead, "DATA"));
}

TEST_F(SapCallTest, TablesAreReadBackOnlyAfterACallAndFreshEachTime) {
  auto set = ReadTableSet();
  set->AddImport(kRead, "QUERY_TABLE");
  EXPECT_EQ(nullptr, set->GetTable(kRead, "DATA"));
  EXPECT_EQ(nullptr, set->GetTable(kRead, "OPTIONS"));  // never declared

  set->SetImport(kRead, "QUERY_TABLE", "ZORDERS");
  ASSERT_EQ(1, set->Call(kRead));
  CSapTable* data = set->GetTable(kRead, "DATA");
  ASSERT_NE(nullptr, data);
  EXPECT_EQ(3u, data->GetRowCount());
  ASSERT_EQ(1, data->SetRow(0));
  EXPECT_EQ(0u, data->GetValue(std::string("WA")).find("A-1"));
  EXPECT_EQ(3u, set->GetTable(kRead, "FIELDS")->GetRowCount());

  // The value stays set for the next call, which builds the results anew.
  ASSERT_EQ(1, set->Call(kRead));
  CSapTable* again = set->GetTable(kRead, "DATA");
  ASSERT_NE(nullptr, again);
  EXPECT_EQ(3u, again->GetRowCount());
  ASSERT_EQ(1, again->SetRow(2));
  EXPECT_EQ(0u, again->GetValue(std::string("WA")).find("C-3"));
}

TEST_F(SapCallTest, ASecondCallSendsTheTablesOfTheFirstBack) {
  // Tables travel both ways: FIELDS as the first call returned it now names
  // the fields to read, and ZBATCH_LINE has none of them.
  auto set = ReadTableSet();
  set->AddImport(kRead, "QUERY_TABLE");
  set->SetImport(kRead, "QUERY_TABLE", "ZORDERS");
  ASSERT_EQ(1, set->Call(kRead));
  set->SetImport(kRead, "QUERY_TABLE", "ZBATCH_LINE");
  EXPECT_EQ("FIELD_NOT_VALID", RaisedText(*set, kRead));

  // A set of its own reads the other table in full.
  auto fresh = ReadTableSet();
  fresh->AddImport(kRead, "QUERY_TABLE");
  fresh->SetImport(kRead, "QUERY_TABLE", "ZBATCH_LINE");
  ASSERT_EQ(1, fresh->Call(kRead));
  EXPECT_EQ(0u, fresh->GetTable(kRead, "DATA")->GetRowCount());
  CSapTable* fields = fresh->GetTable(kRead, "FIELDS");
  EXPECT_EQ(4u, fields->GetRowCount());
  ASSERT_EQ(1, fields->SetRow(0));
  EXPECT_EQ("NAME", fields->GetValue(std::string("FIELDNAME")));
}

TEST_F(SapCallTest, ReturnAndOutTableAreCachedUntilTheNextCall) {
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
  CSapStructure* second = set.GetReturn(0);
  EXPECT_EQ("E", second->GetValue(std::string("TYPE")));
  EXPECT_NE(std::string::npos, second->GetValue(std::string("MESSAGE")).find("ZNOWHERE"));
  EXPECT_EQ(0u, set.GetOutTable(0)->GetRowCount());
}

TEST_F(SapCallTest, AReturnOrOutTableTheInterfaceLacksIsEmpty) {
  auto set = ReadTableSet();
  set->AddImport(kRead, "QUERY_TABLE");
  set->SetImport(kRead, "QUERY_TABLE", "ZORDERS");
  ASSERT_EQ(1, set->Call(kRead));
  // RFC_READ_TABLE has no RETURN export and no OUT_TABLE.
  CSapStructure* result = set->GetReturn(kRead);
  ASSERT_NE(nullptr, result);
  EXPECT_EQ(0, result->GetFieldCount());
  CSapTable* out = set->GetOutTable(kRead);
  ASSERT_NE(nullptr, out);
  EXPECT_EQ(0u, out->GetRowCount());
  EXPECT_EQ("", out->GetName());

  // A new name takes effect with the next call's results.
  set->SetOutTableName(kRead, "fields  ");
  ASSERT_EQ(1, set->Call(kRead));
  EXPECT_EQ("FIELDS", set->GetOutTable(kRead)->GetName());
  EXPECT_EQ(3u, set->GetOutTable(kRead)->GetRowCount());
  set->SetOutTableName(kRead, "");
  ASSERT_EQ(1, set->Call(kRead));
  EXPECT_EQ(0u, set->GetOutTable(kRead)->GetRowCount());
}

TEST_F(SapCallTest, AnUnknownNumberDoesNothingAndAnswersZeroOrNone) {
  auto set = ReadTableSet();
  const uint16_t unknown = 7;
  EXPECT_EQ(0, set->AddImport(unknown, "QUERY_TABLE"));
  EXPECT_EQ(0, set->AddTable(unknown, "DATA"));
  EXPECT_EQ(0, set->SetImport(unknown, "QUERY_TABLE", "ZORDERS"));
  EXPECT_EQ(0, set->SetReturnName(unknown, "RETURN"));
  EXPECT_EQ(0, set->SetOutTableName(unknown, "DATA"));
  EXPECT_EQ(0, set->Call(unknown));
  EXPECT_EQ(nullptr, set->GetReturn(unknown));
  EXPECT_EQ(nullptr, set->GetOutTable(unknown));
  EXPECT_EQ(nullptr, set->GetTable(unknown, "DATA"));
  EXPECT_EQ(1u, set->GetCallCount());
}

TEST_F(SapCallTest, AddingUnderATakenNumberOrNameReplacesTheEarlierCall) {
  CSapCallSet set(connection_.get(), "Mixed");
  set.AddFunction("READ", 0, "RFC_READ_TABLE");
  set.AddFunction("INFO", 1, "Z_KTZ_BAPI_GET_DD_INFO");
  ASSERT_EQ(2u, set.GetCallCount());

  set.AddFunction("PING", 0, "RFCPING");  // number 0 taken by READ
  EXPECT_EQ(2u, set.GetCallCount());
  EXPECT_EQ(nullptr, set.GetCall("READ"));
  EXPECT_EQ(set.GetCall("PING"), set.GetCall(uint16_t{0}));
  EXPECT_EQ(1, set.Call(0));

  set.AddFunction("INFO", 5, "RFC_READ_TABLE");  // name taken by number 1
  EXPECT_EQ(2u, set.GetCallCount());
  EXPECT_EQ(nullptr, set.GetCall(uint16_t{1}));
  EXPECT_EQ(set.GetCall("INFO"), set.GetCall(uint16_t{5}));
  EXPECT_EQ(0, set.Call(1));

  set.AddFunction("PING", 5, "RFCPING");  // both at once: one call left
  EXPECT_EQ(1u, set.GetCallCount());
  EXPECT_EQ(nullptr, set.GetCall("INFO"));
  EXPECT_EQ(nullptr, set.GetCall(uint16_t{0}));
  EXPECT_EQ(1, set.Call(5));
}

TEST_F(SapCallTest, AModuleTheSystemLacksIsRefusedAndTheSetStaysAsItWas) {
  CSapCallSet set(connection_.get(), "ReadTable");
  set.AddFunction("READ", 0, "RFC_READ_TABLE");
  CSapCall* before = set.GetCall(uint16_t{0});
  try {
    set.AddFunction("MISSING", 0, "Z_NO_SUCH_MODULE");
    FAIL() << "a module the system does not have was prepared";
  } catch (const char* text) {
    EXPECT_STREQ("FU_NOT_FOUND", text);
  }
  EXPECT_EQ(before, set.GetCall(uint16_t{0}));
  EXPECT_EQ(nullptr, set.GetCall("MISSING"));
}

TEST_F(SapCallTest, ACommunicationFailurePassesThroughAsTheLibrarysRecord) {
  auto set = ReadTableSet();
  set->AddImport(kRead, "QUERY_TABLE");
  set->SetImport(kRead, "QUERY_TABLE", "ZORDERS");
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

TEST_F(SapCallTest, ATextTooLongForItsImportIsTheDataValuesError) {
  auto set = ReadTableSet();
  set->AddImport(kRead, "DELIMITER");  // CHAR 1
  set->SetImport(kRead, "DELIMITER", "ab");
  try {
    set->Call(kRead);
    FAIL() << "two characters went into a one-character import";
  } catch (const char* text) {
    EXPECT_STREQ("CRfcData:operator=(CSTR) Input string too long, exceeding ", text);
  }
}

}  // namespace
}  // namespace access_test
