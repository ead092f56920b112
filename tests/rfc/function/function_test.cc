// Functions and client calls: the arrays handed to the RFC library, their
// terminators and reuse, the active flags, look-up by name, every return code
// of CallReceive, allocation failures, and who deletes which parameters.

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
#include "rfc/function/rfc_client_func.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/rfc/rfc_test_support.h"

namespace {

using ::testing::ElementsAre;

std::vector<std::string> Names(const std::vector<stand_in::Entry>& entries) {
  std::vector<std::string> names;
  for (const stand_in::Entry& entry : entries) names.push_back(entry.name);
  return names;
}

class FunctionTest : public rfc_test::StandInTest {
 protected:
  void SetUp() override {
    StandInTest::SetUp();
    connection_.AttachHandle(42);
  }
  int Call(CRfcClientFunc& function, int all = 0) {
    char* exception = nullptr;
    return function.CallReceive(exception, all);
  }
  CRfcConnection connection_;
};

TEST_F(FunctionTest, TheArraysAndWhatTheyPass) {
  CRfcClientFunc empty(&connection_, "rfcping");
  EXPECT_EQ(Call(empty), 0);
  ASSERT_EQ(fake().calls.size(), 1u);
  EXPECT_EQ(fake().CallsOf("RfcCall")[0].handle, 42u);
  EXPECT_EQ(fake().calls[0].function, "RFCPING");
  // Only terminators; the receive gets the same table array.
  EXPECT_EQ(fake().calls[0].params_array[0].name, nullptr);
  EXPECT_EQ(fake().calls[0].tables_array[0].name, nullptr);
  EXPECT_EQ(fake().receives[0].params_array[0].name, nullptr);
  EXPECT_EQ(fake().receives[0].tables_array, fake().calls[0].tables_array);

  CRfcClientFunc function(&connection_, "F");
  CRfcSimpleParam a("A", TYPE_CHAR, 3, 0, 0), b("B", TYPE_INT, 4, 0, 0);
  CRfcStructParam s("S", 6, 0, nullptr, nullptr);
  CRfcSimpleParam e1("E1", TYPE_CHAR, 2, 0, 0), e2("E2", TYPE_NUM, 3, 0, 0);
  CRfcTableParam t1("T1", 10, 0, 0, nullptr, nullptr), t2("T2", 20, 0, 0, nullptr, nullptr);
  function.AddImport(&a);
  function.AddImport(&b);
  function.AddImport(&s);
  function.AddExport(&e1);
  function.AddExport(&e2);
  function.AddTable(&t1);
  function.AddTable(&t2);
  EXPECT_EQ(a.GetOwner(), &function);
  EXPECT_EQ(t1.GetOwner(), &function);
  t1.Create();
  a.Value() = "xy";
  a.SetActive(1);

  // Active simple imports and structures go; a passed simple import turns
  // inactive, a structure stays active. Exports and tables go whole.
  Call(function);
  const stand_in::Exchange& first = fake().calls[1];
  EXPECT_THAT(Names(first.params), ElementsAre("A", "S"));
  EXPECT_EQ(first.params[0].bytes, "xy ");
  EXPECT_EQ(std::vector<unsigned>({unsigned(first.params[0].type), unsigned(first.params[1].type), first.params[1].length}),
            std::vector<unsigned>({TYPE_CHAR, TYPE_BYTE, 6}));
  EXPECT_EQ(a.IsActive() * 10 + s.IsActive(), 1);
  const stand_in::Exchange& receive = fake().receives[1];
  EXPECT_THAT(Names(receive.params), ElementsAre("E1", "E2"));
  EXPECT_EQ(receive.params[1].bytes, "000");
  EXPECT_EQ(e1.IsActive(), 0);  // exports never touch the flag
  EXPECT_THAT(Names(receive.tables), ElementsAre("T1", "T2"));
  EXPECT_EQ(receive.tables[0].handle, t1.GetTableHandle());
  EXPECT_EQ(receive.tables[1].length, 20u);

  // A second call without setting A passes only the structure; every import
  // goes with bAll. Imports that turn active later fit the kept array.
  Call(function);
  EXPECT_THAT(Names(fake().calls[2].params), ElementsAre("S"));
  Call(function, 1);
  EXPECT_THAT(Names(fake().calls[3].params), ElementsAre("A", "B", "S"));
  a.SetActive(1);
  b.SetActive(1);
  Call(function);
  EXPECT_THAT(Names(fake().calls[4].params), ElementsAre("A", "B", "S"));
  EXPECT_EQ(fake().calls[4].params_array, fake().calls[1].params_array);
  EXPECT_EQ(fake().receives[4].params_array, fake().receives[1].params_array);

  // A list that changes gets a new array with a new terminator.
  CRfcSimpleParam e3("E3", TYPE_INT, 4, 0, 0);
  function.AddExport(&e3);
  Call(function);
  EXPECT_THAT(Names(fake().receives[5].params), ElementsAre("E1", "E2", "E3"));
  EXPECT_EQ(fake().receives[5].params_array[3].name, nullptr);
}

TEST_F(FunctionTest, FindsParametersByTrimmedUpperCaseName) {
  CRfcClientFunc function(&connection_, "F");
  CRfcSimpleParam a("Query_Table", TYPE_CHAR, 30, 0, 0), b("delimiter", TYPE_CHAR, 1, 0, 0);
  CRfcTableParam t("fields", 8, 0, 0, nullptr, nullptr);
  function.AddImport(&a);
  function.AddImport(&b);
  function.AddTable(&t);
  int index = -1;
  EXPECT_EQ(function.FindImpExp(function.GetImports(), "query_table  ", &index), &a);
  EXPECT_EQ(index, 0);
  EXPECT_EQ(function.FindImpExp(function.GetImports(), "DELIMITER", &index), &b);
  EXPECT_EQ(index, 1);
  for (const char* missing : {"NO_DATA", "", "   "}) {
    EXPECT_EQ(function.FindImpExp(function.GetImports(), missing, &index), nullptr) << missing;
  }
  EXPECT_EQ(index, 1);  // untouched when nothing is found
  EXPECT_EQ(function.FindImpExp(function.GetImports(), nullptr), nullptr);
  EXPECT_EQ(function.FindImpExp(function.GetExports(), "DELIMITER"), nullptr);
  EXPECT_EQ(function.FindTable(function.GetTables(), "Fields ", &index), &t);
  EXPECT_EQ(index, 0);
  EXPECT_EQ(function.FindTable(function.GetTables(), "DATA"), nullptr);
  EXPECT_EQ(function.FindTable(function.GetTables(), ""), nullptr);
  EXPECT_EQ(function.FindTable(function.GetTables(), nullptr), nullptr);
  function.AddImport(nullptr);  // nothing to add
  function.AddTable(nullptr);
  EXPECT_EQ(function.GetImports().GetCount() * 10 + function.GetTables().GetCount(), 21);
  // Without a connection a call goes to handle 0.
  CRfcClientFunc unconnected(nullptr, "F");
  EXPECT_EQ(Call(unconnected), 0);
  EXPECT_EQ(fake().CallsOf("RfcCall").back().handle, 0u);
}

// Codes 0, 2 and 4 return, the others throw the library's error after the
// trace lines; a failed RfcCall is traced with the words of the entry.
TEST_F(FunctionTest, EveryReturnCodeOfTheReceive) {
  struct Case {
    int code;
    bool thrown;      // the library's error, after the trace lines
    bool taken_over;  // the table handle and the structure values
  };
  static char raised[] = "TABLE_NOT_AVAILABLE";
  for (const Case& c : {Case{0, false, true}, Case{2, false, false}, Case{4, false, true}, Case{1, true, false},
                        Case{3, true, false}, Case{6, true, false}, Case{-1, true, false}}) {
    SCOPED_TRACE(c.code);
    fake().Reset();
    fake().SetLastError("KEY", "", "");
    fake().call_result = c.code == -1 ? 1 : 0;  // -1: RfcCall itself fails
    SetRfcByteOrderSwitch(1);
    CRfcClientFunc function(&connection_, "Z_CALL");
    CRfcTableParam data("DATA", 4, 0, 0, nullptr, nullptr), raw("RAW", 4, 1, 0, nullptr, nullptr);
    CRfcStructParam s("S", 0, 0, nullptr, nullptr);
    CRfcFieldInfo field{"N", 0, 0, TYPE_INT, 4, 0};
    s.AddFieldInfo(&field, 1);
    function.AddTable(&data);
    function.AddTable(&raw);  // its lines are never turned around
    function.AddExport(&s);
    const int code = c.code;
    fake().receive = [code](RfcParameterEntry* exports, RfcTableEntry* tables, char** exception) {
      rfc_test::FillTable("DATA", {"abcd", "efgh"})(exports, tables, exception);
      const unsigned char big_endian[4] = {0, 0, 1, 2};
      std::memcpy(exports[0].address, big_endian, 4);
      if (code == 2) *exception = raised;
      return code;
    };
    char* exception = nullptr;
    RFC_ERROR_INFO caught{};
    int rc = -1;
    auto run = rfc_test::RunTraced([&] {
      try {
        rc = function.CallReceive(exception, 0);
      } catch (const RFC_ERROR_INFO& error) {
        caught = error;
      }
    });
    EXPECT_EQ(function.GetLastReturnCode(), c.code == -1 ? 1 : c.code);
    EXPECT_EQ(fake().Count("RfcReceive"), c.code == -1 ? 0u : 1u);
    if (c.thrown) {
      EXPECT_STREQ(caught.key, "KEY");
      EXPECT_THAT(rfc_test::Tail(run, 2), ElementsAre(c.code == -1 ? "CRfcClientFunc::CallReceive called"
                                                                   : "CRfcClientFunc::CallReceive failed",
                                                      "Z_CALL"));
    } else {
      EXPECT_EQ(rc, c.code);
    }
    EXPECT_STREQ(exception, c.code == 2 ? "TABLE_NOT_AVAILABLE" : nullptr);
    if (c.taken_over) {
      ASSERT_NE(data.GetTableHandle(), nullptr);
      EXPECT_EQ(data.OwnsTable(), 0);  // the partner's table, not the parameter's
      EXPECT_EQ(std::string(static_cast<char*>(ItGetLine(data.GetTableHandle(), 2)), 4), "efgh");
      EXPECT_EQ(static_cast<RFC_INT>(s.FieldValue(0)), 258);
      EXPECT_EQ(data.GetNativeLines() * 10 + raw.GetNativeLines(), 1);
    } else {
      EXPECT_EQ(data.GetTableHandle(), nullptr);
    }
  }
}

TEST_F(FunctionTest, AllocationFailuresAreReported) {
  CRfcSimpleParam a("A", TYPE_CHAR, 1, 0, 0);
  // The arrays are made in the order imports, exports, tables.
  const char* const lines[] = {"CRfcFunction::SetUpImports called", "CRfcFunction::SetUpExports called",
                               "CRfcFunction::SetUpTables called"};
  for (int skip = 0; skip < 3; ++skip) {
    CRfcClientFunc function(&connection_, "F");
    function.AddImport(&a);
    auto run = rfc_test::RunTraced([&] {
      function.SetUpImports(0);  // an array that the changed list replaces below
      CRfcSimpleParam more("B", TYPE_CHAR, 1, 0, 0);
      function.AddImport(&more);
      function.AddExport(&more);
      CRfcTableParam table("T", 1, 0, 0, nullptr, nullptr);
      function.AddTable(&table);
      rfc::testing::FailAllocations(skip, 1);
      function.SetUpImports(0);
      function.SetUpExports();
      function.SetUpTables();
    });
    EXPECT_EQ(run.thrown, "Failed to allocate memory!");
    EXPECT_THAT(rfc_test::Tail(run, 2), ElementsAre(lines[skip], "Failed to allocate memory!"));
  }

  // A list that cannot grow keeps its parameters; the refused one is not added.
  CRfcClientFunc function(&connection_, "F");
  std::vector<std::unique_ptr<CRfcSimpleParam>> params;
  for (int i = 0; i < 11; ++i) {
    params.push_back(std::make_unique<CRfcSimpleParam>(("P" + std::to_string(i)).c_str(), TYPE_CHAR, 1, 0, 0));
    if (i < 10) function.AddImport(params.back().get());
  }
  auto run = rfc_test::RunTraced([&] {
    rfc::testing::FailNextAllocation();
    function.AddImport(params[10].get());
  });
  EXPECT_EQ(run.thrown, "Failed to allocate memory!");
  EXPECT_EQ(run.lines.back(), "Memory Allocation Failure");
  EXPECT_EQ(params[10]->GetOwner(), nullptr);
  EXPECT_EQ(function.GetImports().GetCount(), 10);
  EXPECT_EQ(function.FindImpExp(function.GetImports(), "P9"), params[9].get());
}

// A function that described itself owns what it made; what the application
// added stays the application's (the sanitizer build sees a leak or a use
// after free).
TEST_F(FunctionTest, DestructionDeletesOnlyAutoCreatedParameters) {
  rfc_test::Answer({{{"I", "QUERY", "SIMPLE", "QUERY", "C", 10},
                     {"E", "COUNT", "SIMPLE", "COUNT", "I", 4},
                     {"T", "LINES", "ZLINE", "", "h", 3}},
                    {{"ZLINE", {{"ZLINE", "TEXT", 1, 0, 3, 0, "C"}}}}});
  auto own = std::make_unique<CRfcSimpleParam>("MINE", TYPE_CHAR, 3, 0, 0);
  auto own_table = std::make_unique<CRfcTableParam>("MYTAB", 4, 0, 0, nullptr, nullptr);
  auto flagged = std::make_unique<CRfcSimpleParam>("FLAGGED", TYPE_CHAR, 3, 0, 1);
  {
    CRfcClientFunc function(&connection_, "Z_DESCRIBED", 1);
    ASSERT_EQ(function.IsAutoCreatedFunction(), 1);
    function.AddImport(own.get());
    function.AddTable(own_table.get());
    CRfcClientFunc application(&connection_, "F");  // deletes nothing, flagged or not
    application.AddImport(flagged.get());
  }
  EXPECT_EQ(fake().Count("ItCreate"), 3u);  // PARAMS, FIELDS, LINES
  EXPECT_EQ(fake().deleted.size(), 3u);     // LINES went with its parameter
  EXPECT_EQ(std::string(own->GetName()) + own_table->GetName() + flagged->GetName(), "MINEMYTABFLAGGED");
}

}  // namespace
