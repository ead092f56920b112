// Functions and client calls: the arrays handed to the RFC library, their
// terminators and reuse, the active flags, look-up by name, every return
// code of CallReceive, and who deletes which parameters.

#include "rfc/function/rfc_client_func.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/function/rfc_byte_order.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/rfc/function/fake_library_fixture.h"
#include "tests/rfc/trace_capture.h"

namespace {

using rfc_function_test::FakeLibraryTest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> Names(const std::vector<fake_rfc::Param>& params) {
  std::vector<std::string> names;
  for (const fake_rfc::Param& param : params) names.push_back(param.name);
  return names;
}

std::vector<std::string> Names(const std::vector<fake_rfc::Table>& tables) {
  std::vector<std::string> names;
  for (const fake_rfc::Table& table : tables) names.push_back(table.name);
  return names;
}

class FunctionTest : public FakeLibraryTest {
 protected:
  void SetUp() override {
    FakeLibraryTest::SetUp();
    connection_.AttachHandle(42);
  }
  CRfcConnection connection_;
};

TEST_F(FunctionTest, AFunctionWithoutParametersPassesOnlyTerminators) {
  CRfcClientFunc function(&connection_, "rfcping");
  EXPECT_STREQ(function.GetName(), "RFCPING");
  char* exception = nullptr;
  EXPECT_EQ(function.CallReceive(exception, 0), 0);

  ASSERT_EQ(fake().calls.size(), 1u);
  const fake_rfc::Call& call = fake().calls[0];
  EXPECT_EQ(call.handle, 42u);
  EXPECT_EQ(call.function, "RFCPING");
  ASSERT_NE(call.import_array, nullptr);
  ASSERT_NE(call.table_array, nullptr);
  EXPECT_EQ(call.import_array[0].name, nullptr);
  EXPECT_EQ(call.table_array[0].name, nullptr);
  ASSERT_EQ(fake().receives.size(), 1u);
  ASSERT_NE(fake().receives[0].export_array, nullptr);
  EXPECT_EQ(fake().receives[0].export_array[0].name, nullptr);
  EXPECT_EQ(fake().receives[0].table_array, call.table_array);
}

TEST_F(FunctionTest, WithoutActiveImportsTheImportArrayStartsWithItsTerminator) {
  CRfcClientFunc function(&connection_, "F");
  CRfcSimpleParam a("A", TYPE_CHAR, 3, 0, 0);
  CRfcSimpleParam b("B", TYPE_INT, 4, 0, 0);
  function.AddImport(&a);
  function.AddImport(&b);
  char* exception = nullptr;
  function.CallReceive(exception, 0);
  EXPECT_EQ(fake().calls[0].import_array[0].name, nullptr);

  // With bAll every import goes, active or not.
  function.CallReceive(exception, 1);
  EXPECT_THAT(Names(fake().calls[1].imports), ElementsAre("A", "B"));
}

TEST_F(FunctionTest, ActiveSimpleImportsArePassedOnceAndStructuresStayActive) {
  CRfcClientFunc function(&connection_, "F");
  CRfcSimpleParam a("A", TYPE_CHAR, 3, 0, 0);
  CRfcSimpleParam b("B", TYPE_INT, 4, 0, 0);
  CRfcStructParam s("S", 6, 0, nullptr, nullptr);
  function.AddImport(&a);
  function.AddImport(&b);
  function.AddImport(&s);
  a.Value() = "xy";
  a.SetActive(1);

  char* exception = nullptr;
  function.CallReceive(exception, 0);
  const fake_rfc::Call& first = fake().calls[0];
  EXPECT_THAT(Names(first.imports), ElementsAre("A", "S"));
  EXPECT_EQ(first.imports[0].bytes, "xy ");
  EXPECT_EQ(first.imports[0].type, TYPE_CHAR);
  EXPECT_EQ(first.imports[0].length, 3u);
  EXPECT_EQ(first.imports[1].type, TYPE_BYTE);
  EXPECT_EQ(first.imports[1].length, 6u);
  EXPECT_EQ(a.IsActive(), 0);
  EXPECT_EQ(s.IsActive(), 1);

  // The second call without setting A again passes only the structure.
  function.CallReceive(exception, 0);
  EXPECT_THAT(Names(fake().calls[1].imports), ElementsAre("S"));
}

TEST_F(FunctionTest, ImportsThatBecomeActiveLaterStillFitTheArray) {
  CRfcClientFunc function(&connection_, "F");
  std::vector<std::unique_ptr<CRfcSimpleParam>> params;
  for (const char* name : {"A", "B", "C", "D"}) {
    params.push_back(std::make_unique<CRfcSimpleParam>(name, TYPE_CHAR, 2, 0, 0));
    function.AddImport(params.back().get());
  }
  char* exception = nullptr;
  function.CallReceive(exception, 0);  // none active: the array is made now
  const RfcParameterEntry* array = fake().calls[0].import_array;
  for (auto& param : params) param->SetActive(1);
  function.CallReceive(exception, 0);
  EXPECT_EQ(fake().calls[1].import_array, array);  // unchanged list: same array
  EXPECT_THAT(Names(fake().calls[1].imports), ElementsAre("A", "B", "C", "D"));
}

TEST_F(FunctionTest, ArraysAreKeptUntilTheirListChanges) {
  CRfcClientFunc function(&connection_, "F");
  CRfcSimpleParam e("E", TYPE_INT, 4, 0, 0);
  CRfcTableParam t("T", 8, 0, 0, nullptr, nullptr);
  function.AddExport(&e);
  function.AddTable(&t);
  char* exception = nullptr;
  function.CallReceive(exception, 0);
  function.CallReceive(exception, 0);
  EXPECT_EQ(fake().receives[0].export_array, fake().receives[1].export_array);
  EXPECT_EQ(fake().calls[0].table_array, fake().calls[1].table_array);

  CRfcSimpleParam f("F2", TYPE_INT, 4, 0, 0);
  function.AddExport(&f);
  function.CallReceive(exception, 0);
  EXPECT_THAT(Names(fake().receives[2].exports), ElementsAre("E", "F2"));
  EXPECT_EQ(fake().receives[2].export_array[2].name, nullptr);
  EXPECT_EQ(e.GetOwner(), &function);
  EXPECT_EQ(t.GetOwner(), &function);
}

TEST_F(FunctionTest, ExportsAndTablesAreAlwaysPassedWhole) {
  CRfcClientFunc function(&connection_, "F");
  CRfcSimpleParam e1("E1", TYPE_CHAR, 2, 0, 0);
  CRfcSimpleParam e2("E2", TYPE_NUM, 3, 0, 0);
  CRfcTableParam t1("T1", 10, 0, 0, nullptr, nullptr);
  CRfcTableParam t2("T2", 20, 0, 0, nullptr, nullptr);
  function.AddExport(&e1);
  function.AddExport(&e2);
  function.AddTable(&t1);
  function.AddTable(&t2);
  t1.Create();
  char* exception = nullptr;
  function.CallReceive(exception, 0);
  EXPECT_EQ(e1.IsActive(), 0);  // exports never touch the flag
  const fake_rfc::Receive& receive = fake().receives[0];
  EXPECT_THAT(Names(receive.exports), ElementsAre("E1", "E2"));
  EXPECT_EQ(receive.exports[1].bytes, "000");
  EXPECT_THAT(Names(receive.tables), ElementsAre("T1", "T2"));
  EXPECT_EQ(receive.tables[0].handle, t1.GetTableHandle());
  EXPECT_EQ(receive.tables[0].line_length, 10u);
  EXPECT_EQ(receive.tables[1].handle, nullptr);
  EXPECT_EQ(receive.tables[1].mode, 0);
  EXPECT_EQ(receive.tables[1].new_table, 0);
}

TEST_F(FunctionTest, FindsParametersByTrimmedUpperCaseName) {
  CRfcClientFunc function(&connection_, "F");
  CRfcSimpleParam a("Query_Table", TYPE_CHAR, 30, 0, 0);
  CRfcSimpleParam b("delimiter", TYPE_CHAR, 1, 0, 0);
  CRfcTableParam t("fields", 8, 0, 0, nullptr, nullptr);
  function.AddImport(&a);
  function.AddImport(&b);
  function.AddTable(&t);

  int index = -1;
  EXPECT_EQ(function.FindImpExp(function.GetImports(), "query_table  ", &index), &a);
  EXPECT_EQ(index, 0);
  EXPECT_EQ(function.FindImpExp(function.GetImports(), "DELIMITER", &index), &b);
  EXPECT_EQ(index, 1);
  index = 7;
  EXPECT_EQ(function.FindImpExp(function.GetImports(), "NO_DATA", &index), nullptr);
  EXPECT_EQ(index, 7);
  EXPECT_EQ(function.FindImpExp(function.GetImports(), "", &index), nullptr);
  EXPECT_EQ(function.FindImpExp(function.GetImports(), "   "), nullptr);
  EXPECT_EQ(function.FindImpExp(function.GetImports(), nullptr), nullptr);
  EXPECT_EQ(function.FindImpExp(function.GetExports(), "DELIMITER"), nullptr);
  EXPECT_EQ(function.FindTable(function.GetTables(), "Fields ", &index), &t);
  EXPECT_EQ(index, 0);
  EXPECT_EQ(function.FindTable(function.GetTables(), "DATA"), nullptr);
}

TEST_F(FunctionTest, AReceivedTableBecomesTheParametersTableButNotItsOwn) {
  CRfcClientFunc function(&connection_, "F");
  CRfcTableParam data("DATA", 4, 0, 0, nullptr, nullptr);
  function.AddTable(&data);
  fake().receive = rfc_function_test::FillTable("DATA", {"abcd", "efgh"});
  char* exception = nullptr;
  EXPECT_EQ(function.CallReceive(exception, 0), 0);
  ASSERT_NE(data.GetTableHandle(), nullptr);
  EXPECT_EQ(data.OwnsTable(), 0);
  EXPECT_EQ(ItFill(data.GetTableHandle()), 2u);
  EXPECT_EQ(std::string(static_cast<char*>(ItGetLine(data.GetTableHandle(), 2)), 4), "efgh");
}

TEST_F(FunctionTest, AnExceptionOfThePartnerIsReturnedWithoutTakingAnythingOver) {
  CRfcClientFunc function(&connection_, "F");
  CRfcTableParam data("DATA", 4, 0, 0, nullptr, nullptr);
  function.AddTable(&data);
  static char name[] = "TABLE_NOT_AVAILABLE";
  fake().receive = [](RfcParameterEntry* exports, RfcTableEntry* tables, char** exception) {
    rfc_function_test::FillTable("DATA", {"abcd"})(exports, tables, exception);
    *exception = name;
    return RFC_EXCEPTION;
  };
  char* exception = nullptr;
  EXPECT_EQ(function.CallReceive(exception, 0), 2);
  EXPECT_STREQ(exception, "TABLE_NOT_AVAILABLE");
  EXPECT_EQ(data.GetTableHandle(), nullptr);
}

TEST_F(FunctionTest, OtherReceiveCodesRunThePostProcessing) {
  CRfcClientFunc function(&connection_, "F");
  CRfcTableParam data("DATA", 4, 0, 0, nullptr, nullptr);
  function.AddTable(&data);
  fake().receive = [](RfcParameterEntry* exports, RfcTableEntry* tables, char** exception) {
    rfc_function_test::FillTable("DATA", {"abcd"})(exports, tables, exception);
    return 4;
  };
  char* exception = nullptr;
  EXPECT_EQ(function.CallReceive(exception, 0), 4);
  EXPECT_NE(data.GetTableHandle(), nullptr);
}

TEST_F(FunctionTest, StructureExportsAreTurnedAroundAfterTheReceive) {
  CRfcClientFunc function(&connection_, "F");
  CRfcStructParam s("S", 0, 0, nullptr, nullptr);
  CRfcFieldInfo field{};
  std::strcpy(field.name, "N");
  field.type = TYPE_INT;
  field.length = 4;
  s.AddFieldInfo(&field, 1);
  function.AddExport(&s);
  fake().receive = [](RfcParameterEntry* exports, RfcTableEntry*, char**) {
    const unsigned char big_endian[4] = {0, 0, 1, 2};
    std::memcpy(exports[0].address, big_endian, 4);
    return 0;
  };
  SetRfcByteOrderSwitch(1);
  char* exception = nullptr;
  function.CallReceive(exception, 0);
  EXPECT_EQ(static_cast<RFC_INT>(s.FieldValue(0)), 258);
}

TEST_F(FunctionTest, AFailedRfcCallThrowsTheLibrarysError) {
  CRfcClientFunc function(&connection_, "Z_FAIL");
  fake().call_result = 1;
  std::strcpy(fake().last_error.key, "RFC_ERROR_COMMUNICATION");
  std::strcpy(fake().last_error.message, "partner not reached");
  RFC_ERROR_INFO caught{};
  auto run = rfc_test::RunTraced([&] {
    char* exception = nullptr;
    try {
      function.CallReceive(exception, 0);
    } catch (const RFC_ERROR_INFO& error) {
      caught = error;
    }
  });
  EXPECT_STREQ(caught.key, "RFC_ERROR_COMMUNICATION");
  EXPECT_STREQ(caught.message, "partner not reached");
  EXPECT_EQ(fake().Count("RfcReceive"), 0u);
  EXPECT_EQ(function.GetLastReturnCode(), 1);
  ASSERT_EQ(run.lines.size(), 12u);
  EXPECT_EQ(run.lines[4], "CRfcClientFunc::CallReceive called");
  EXPECT_EQ(run.lines[5], "Z_FAIL");
  EXPECT_EQ(run.lines[10], "CRfcClientFunc::CallReceive called");
  EXPECT_EQ(run.lines[11], "Z_FAIL");
}

TEST_F(FunctionTest, ReceiveFailuresThrowTheLibrarysErrorAndTheFunctionStaysUsable) {
  CRfcClientFunc function(&connection_, "Z_FAIL");
  CRfcSimpleParam a("A", TYPE_CHAR, 1, 0, 0);
  function.AddImport(&a);
  std::strcpy(fake().last_error.key, "KEY");
  for (int code : {1, 3, 6}) {
    fake().receive = [code](RfcParameterEntry*, RfcTableEntry*, char**) { return code; };
    RFC_ERROR_INFO caught{};
    auto run = rfc_test::RunTraced([&] {
      char* exception = nullptr;
      try {
        function.CallReceive(exception, 0);
      } catch (const RFC_ERROR_INFO& error) {
        caught = error;
      }
    });
    EXPECT_STREQ(caught.key, "KEY") << code;
    EXPECT_EQ(function.GetLastReturnCode(), code);
    ASSERT_EQ(run.lines.size(), 12u) << code;
    EXPECT_EQ(run.lines[10], "CRfcClientFunc::CallReceive failed");
    EXPECT_EQ(run.lines[11], "Z_FAIL");
  }
  fake().receive = nullptr;
  a.SetActive(1);
  char* exception = nullptr;
  EXPECT_EQ(function.CallReceive(exception, 0), 0);
  EXPECT_THAT(Names(fake().calls.back().imports), ElementsAre("A"));
}

TEST_F(FunctionTest, AnArrayThatCannotBeAllocatedIsReportedAndRetried) {
  CRfcSimpleParam a("A", TYPE_CHAR, 1, 0, 0);
  struct Case {
    int skip;
    const char* line;
  };
  // Imports, exports, tables: the arrays are made in that order.
  for (const Case& c : {Case{0, "CRfcFunction::SetUpImports called"},
                        Case{1, "CRfcFunction::SetUpExports called"},
                        Case{2, "CRfcFunction::SetUpTables called"}}) {
    CRfcClientFunc fresh(&connection_, "F");
    fresh.AddImport(&a);
    auto run = rfc_test::RunTraced([&] {
      fresh.SetUpImports(0);  // an array that the changed list replaces below
      CRfcSimpleParam more("B", TYPE_CHAR, 1, 0, 0);
      fresh.AddImport(&more);
      fresh.AddExport(&more);
      CRfcTableParam table("T", 1, 0, 0, nullptr, nullptr);
      fresh.AddTable(&table);
      rfc::testing::FailAllocations(c.skip, 1);
      fresh.SetUpImports(0);
      fresh.SetUpExports();
      fresh.SetUpTables();
    });
    EXPECT_EQ(run.thrown, "Failed to allocate memory!");
    ASSERT_GE(run.lines.size(), 6u);
    EXPECT_EQ(run.lines[run.lines.size() - 2], c.line);
    EXPECT_EQ(run.lines.back(), "Failed to allocate memory!");
  }
}

TEST_F(FunctionTest, AListThatCannotGrowIsReported) {
  CRfcClientFunc function(&connection_, "F");
  std::vector<std::unique_ptr<CRfcSimpleParam>> params;
  for (int i = 0; i < 11; ++i) {
    params.push_back(std::make_unique<CRfcSimpleParam>(("P" + std::to_string(i)).c_str(),
                                                       TYPE_CHAR, 1, 0, 0));
  }
  auto run = rfc_test::RunTraced([&] {
    for (int i = 0; i < 10; ++i) function.AddImport(params[static_cast<size_t>(i)].get());
    rfc::testing::FailNextAllocation();
    function.AddImport(params[10].get());
  });
  EXPECT_EQ(run.thrown, "Failed to allocate memory!");
  ASSERT_EQ(run.lines.size(), 6u);
  EXPECT_EQ(run.lines[4], "CRfcList<ObjType>::InitList (int nMaxSize) called");
  EXPECT_EQ(run.lines[5], "Memory Allocation Failure");
  EXPECT_EQ(params[10]->GetOwner(), nullptr);
}

TEST_F(FunctionTest, DestructionDeletesOnlyAutoCreatedParameters) {
  // A function that described itself owns what it made; what the
  // application added later stays the application's.
  rfc_function_test::Dictionary dictionary;
  dictionary.params = {{"I", "QUERY", "SIMPLE", "QUERY", "C", 10},
                       {"E", "COUNT", "SIMPLE", "COUNT", "I", 4},
                       {"T", "LINES", "ZLINE", "", "h", 3}};
  dictionary.structures = {{"ZLINE", {{"ZLINE", "TEXT", 1, 0, 3, 0, "C"}}}};
  rfc_function_test::Answer(dictionary);
  CRfcConnection connection;
  connection.AttachHandle(5);

  auto own = std::make_unique<CRfcSimpleParam>("MINE", TYPE_CHAR, 3, 0, 0);
  auto own_table = std::make_unique<CRfcTableParam>("MYTAB", 4, 0, 0, nullptr, nullptr);
  {
    CRfcClientFunc function(&connection, "Z_DESCRIBED", 1);
    ASSERT_EQ(function.IsAutoCreatedFunction(), 1);
    ASSERT_EQ(function.GetImports().GetCount(), 1);
    function.AddImport(own.get());
    function.AddTable(own_table.get());
    function.GetTables().GetAt(0)->Create();
  }
  // The auto-created table was owned by its parameter and is gone with it.
  EXPECT_EQ(fake().created.size(), 1u + 1u + 1u);  // PARAMS, FIELDS, LINES
  EXPECT_EQ(fake().deleted.size(), 3u);
  // The application's parameters are intact (the sanitizer build would see
  // a use after free here).
  EXPECT_STREQ(own->GetName(), "MINE");
  EXPECT_STREQ(own_table->GetName(), "MYTAB");
}

TEST_F(FunctionTest, AnApplicationFunctionDeletesNothing) {
  auto a = std::make_unique<CRfcSimpleParam>("A", TYPE_CHAR, 3, 1, 1);  // flagged, not owned
  {
    CRfcClientFunc function(&connection_, "F");
    function.AddImport(a.get());
  }
  EXPECT_STREQ(a->GetName(), "A");
}

}  // namespace
