// Functions and client calls: the arrays handed to the RFC library, their
// terminators and reuse, the active flags, look-up by name, every return code
// of CallReceive, allocation failures, and who deletes which parameters.

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
#include "tests/rfc/function/function_transcript.h"

namespace {

using fn_test::Entries;
using fn_test::Traced;

class FunctionTest : public fn_test::TranscriptTest {
 protected:
  void SetUp() override {
    TranscriptTest::SetUp();
    connection_.AttachHandle(42);
  }
  int Call(CRfcClientFunc& function, int all = 0) {
    char* exception = nullptr;
    return function.CallReceive(exception, all);
  }
  CRfcConnection connection_;
};

// Per call: the imports handed to RfcCall, then the exports and tables to RfcReceive.
TEST_F(FunctionTest, TheArraysAndWhatTheyPass) {
  CRfcClientFunc empty(&connection_, "rfcping");
  out << Call(empty) << fn_test::Seen() << "\n";
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
  // inactive, a structure stays active; exports never touch the flag.
  Call(function);
  out << "active A S E1: " << a.IsActive() << s.IsActive() << e1.IsActive() << "\n";
  EXPECT_EQ(fake().receives[1].tables[0].handle, t1.GetTableHandle());
  // Without setting A only the structure goes; every import with bAll.
  // Imports that turn active later fit the kept arrays.
  Call(function);
  Call(function, 1);
  a.SetActive(1);
  b.SetActive(1);
  Call(function);
  EXPECT_EQ(fake().calls[4].params_array, fake().calls[1].params_array);
  EXPECT_EQ(fake().receives[4].params_array, fake().receives[1].params_array);
  // A list that changes gets a new array with a new terminator.
  CRfcSimpleParam e3("E3", TYPE_INT, 4, 0, 0);
  function.AddExport(&e3);
  Call(function);
  EXPECT_EQ(fake().receives[5].params_array[3].name, nullptr);
  for (size_t i = 1; i < fake().calls.size(); ++i) {
    out << fake().calls[i].function << ":" << Entries(fake().calls[i].params) << " ->"
        << Entries(fake().receives[i].params) << " |" << Entries(fake().receives[i].tables) << "\n";
  }
}

// Per look-up (0 imports, 1 exports, 2 tables): the name, what was found and
// the index written (-1: untouched).
TEST_F(FunctionTest, FindsParametersByTrimmedUpperCaseName) {
  CRfcClientFunc function(&connection_, "F");
  CRfcSimpleParam a("Query_Table", TYPE_CHAR, 30, 0, 0), b("delimiter", TYPE_CHAR, 1, 0, 0);
  CRfcTableParam t("fields", 8, 0, 0, nullptr, nullptr);
  function.AddImport(&a);
  function.AddImport(&b);
  function.AddTable(&t);
  function.AddImport(nullptr);  // nothing to add
  function.AddTable(nullptr);
  const std::pair<int, const char*> lookups[] = {
      {0, "query_table  "}, {0, "DELIMITER"}, {0, "NO_DATA"}, {0, ""}, {0, "   "}, {0, nullptr},
      {1, "DELIMITER"},     {2, "Fields "},   {2, "DATA"},    {2, ""}, {2, nullptr},
  };
  for (const auto& [list, name] : lookups) {
    int index = -1;
    const CRfcTableParam* table = list == 2 ? function.FindTable(function.GetTables(), name, &index) : nullptr;
    const CRfcImpExpParam* param =
        list == 2 ? nullptr : function.FindImpExp(list == 0 ? function.GetImports() : function.GetExports(), name, &index);
    const char* found = table != nullptr ? table->GetName() : param != nullptr ? param->GetName() : "none";
    out << list << " '" << (name != nullptr ? name : "null") << "' -> " << found << " " << index << "\n";
  }
  out << function.GetImports().GetCount() << " imports, " << function.GetTables().GetCount() << " table\n";
  // Without a connection a call goes to handle 0.
  CRfcClientFunc unconnected(nullptr, "F");
  out << Call(unconnected) << fn_test::Seen() << "\n";
}

// Per code: what CallReceive answered or threw, the exception, whether the
// table handle and structure values were taken over, and the trace. -1: RfcCall
// itself fails.
TEST_F(FunctionTest, EveryReturnCodeOfTheReceive) {
  static char raised[] = "TABLE_NOT_AVAILABLE";
  for (const int code : {0, 2, 4, 1, 3, 6, -1}) {
    fake().Reset();
    fake().SetLastError("KEY", "", "");
    fake().call_result = code == -1 ? 1 : 0;
    SetRfcByteOrderSwitch(1);
    CRfcClientFunc function(&connection_, "Z_CALL");
    CRfcTableParam data("DATA", 4, 0, 0, nullptr, nullptr), raw("RAW", 4, 1, 0, nullptr, nullptr);
    CRfcStructParam s("S", 0, 0, nullptr, nullptr);
    CRfcFieldInfo field{"N", 0, 0, TYPE_INT, 4, 0};
    s.AddFieldInfo(&field, 1);
    function.AddTable(&data);
    function.AddTable(&raw);  // its lines are never turned around
    function.AddExport(&s);
    fake().receive = [code](RfcParameterEntry* exports, RfcTableEntry* tables, char** exception) {
      rfc_test::FillTable("DATA", {"abcd", "efgh"})(exports, tables, exception);
      const unsigned char big_endian[4] = {0, 0, 1, 2};
      std::memcpy(exports[0].address, big_endian, 4);
      if (code == 2) *exception = raised;
      return code;
    };
    char* exception = nullptr;
    auto run = rfc_test::RunTraced([&] {
      try {
        const int rc = function.CallReceive(exception, 0);
        out << code << ": answers " << rc;
      } catch (const RFC_ERROR_INFO& error) {
        out << code << ": throws " << error.key;
      }
    });
    out << ", last " << function.GetLastReturnCode() << ", exception " << (exception != nullptr ? exception : "none");
    if (data.GetTableHandle() != nullptr) {
      out << ", taken over: owned " << data.OwnsTable() << " '" << std::string(static_cast<char*>(ItGetLine(data.GetTableHandle(), 2)), 4)
          << "' " << static_cast<RFC_INT>(s.FieldValue(0)) << " native " << data.GetNativeLines() << raw.GetNativeLines();
    }
    out << fn_test::Seen() << "\n" << Traced(run);
  }
}

TEST_F(FunctionTest, AllocationFailuresAreReported) {
  CRfcSimpleParam a("A", TYPE_CHAR, 1, 0, 0);
  // The arrays are made in the order imports, exports, tables.
  for (int skip = 0; skip < 3; ++skip) {
    CRfcClientFunc function(&connection_, "F");
    function.AddImport(&a);
    out << Traced(rfc_test::RunTraced([&] {
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
    }));
  }
  // A list that cannot grow keeps its parameters; the refused one is not added.
  CRfcClientFunc function(&connection_, "F");
  std::vector<std::unique_ptr<CRfcSimpleParam>> params;
  for (int i = 0; i < 11; ++i) {
    params.push_back(std::make_unique<CRfcSimpleParam>(("P" + std::to_string(i)).c_str(), TYPE_CHAR, 1, 0, 0));
    if (i < 10) function.AddImport(params.back().get());
  }
  out << Traced(rfc_test::RunTraced([&] {
    rfc::testing::FailNextAllocation();
    function.AddImport(params[10].get());
  }));
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
  // ItCreate for PARAMS, FIELDS, LINES; LINES is deleted with its parameter.
  out << fn_test::Seen() << "\n" << fake().deleted.size() << " deleted\n";
  EXPECT_EQ(std::string(own->GetName()) + own_table->GetName() + flagged->GetName(), "MINEMYTABFLAGGED");
}

}  // namespace
