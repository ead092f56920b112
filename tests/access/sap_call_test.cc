// The call wrapper against sapsim's function modules: one scenario, "step: result" per line.

#include "access/sap_call_set.h"

#include <gtest/gtest.h>

#include <functional>

#include "tests/access/local_parameters.h"
#include "tests/support/expected_file.h"
#include "tests/support/polling.h"
#include "tests/support/sapsim_connection.h"

namespace access_test {
namespace {

using testutil::Join;
constexpr uint16_t kRead = 0;

// RFC_READ_TABLE reading back DATA and FIELDS; QUERY_TABLE declared and set unless `table` is empty.
std::unique_ptr<CSapCallSet> ReadTableSet(CClientConnection& connection, const std::string& table = "ZORDERS") {
  auto set = std::make_unique<CSapCallSet>(&connection, "ReadTable");
  EXPECT_EQ(1, set->AddFunction("ReadTable", kRead, "RFC_READ_TABLE"));
  set->AddTable(kRead, "FIELDS");
  set->AddTable(kRead, "DATA");
  if (!table.empty()) {
    set->AddImport(kRead, "QUERY_TABLE");
    EXPECT_EQ(1, set->SetImport(kRead, "QUERY_TABLE", table));
  }
  return set;
}

std::string Outcome(const std::function<int()>& call) {
  try {
    return Join(call());
  } catch (const char* text) {
    return std::string("thrown \"") + text + "\"";
  } catch (const BAPI_ERROR_INFO& e) {
    return "thrown BAPI_ERROR_INFO " + Join(e.Key, e.Function, e.Parameter, e.Message);
  } catch (const RFC_ERROR_INFO& e) {
    return std::string("thrown RFC_ERROR_INFO ") + (e.message[0] != '\0' ? "with a message" : "without one");
  }
}

// Row count and the first characters of one cell.
std::string Rows(CSapTable* table, int row, const std::string& column, size_t width = 3) {
  if (table == nullptr) return "<no table>";
  const size_t rows = table->GetRowCount();
  return Join(rows, table->SetRow(row) == 1 ? table->GetValue(column).substr(0, width) : "<no row>");
}

TEST(SapCallTest, CallSetsAgainstTheSystemStepByStep) {
  LoadLocalLibrary();
  testutil::SapsimConnection system;
  ASSERT_NE(0u, system.connection.GetHandle());
  std::string trace;
  // A braced list is evaluated in order: a step may call first and read after.
  const auto note = [&trace](const std::string& step, std::initializer_list<std::string> parts) {
    trace += step + ":";
    for (const std::string& part : parts) trace += " " + part;
    trace += "\n";
  };
  const auto call = [](CSapCallSet& set, uint16_t number) { return Outcome([&] { return set.Call(number); }); };

  auto set = ReadTableSet(system.connection, "");
  note("undeclared import set", {Join(set->SetImport(kRead, "QUERY_TABLE", "ZORDERS"))});
  note("call without the import", {call(*set, kRead)});
  // Declared names match the interface whatever their case, and are kept as declared.
  note("declare in lower case", {Join(set->AddImport(kRead, "query_table ")), Join(set->AddTable(kRead, "fields ")),
                                 Join(set->SetImport(kRead, "query_table ", "ZORDERS"))});
  note("call", {call(*set, kRead)});
  note("DATA, fields",
       {Rows(set->GetTable(kRead, "DATA"), 0, "WA"), Rows(set->GetTable(kRead, "fields "), 0, "FIELDNAME", 5)});
  note("OPTIONS never declared", {Rows(set->GetTable(kRead, "OPTIONS"), 0, "TEXT")});
  set->SetImport(kRead, "query_table ", "ZNOWHERE");
  note("call for ZNOWHERE", {call(*set, kRead), Rows(set->GetTable(kRead, "DATA"), 0, "WA")});
  note("declared again", {Join(set->AddImport(kRead, "query_table ")), call(*set, kRead)});

  // A second call sends the first one's FIELDS back, naming fields ZBATCH_LINE lacks.
  auto first = ReadTableSet(system.connection);
  note("ZORDERS", {call(*first, kRead)});
  first->SetImport(kRead, "QUERY_TABLE", "ZBATCH_LINE");
  note("ZBATCH_LINE with ZORDERS' fields", {call(*first, kRead)});
  auto fresh = ReadTableSet(system.connection, "ZBATCH_LINE");
  note("ZBATCH_LINE in a set of its own", {call(*fresh, kRead),
                                           Rows(fresh->GetTable(kRead, "DATA"), 0, "WA"),
                                           Rows(fresh->GetTable(kRead, "FIELDS"), 0, "FIELDNAME", 9)});

  auto unknown = ReadTableSet(system.connection);
  unknown->AddImport(kRead, "No_Such_Import");
  note("unknown import", {call(*unknown, kRead)});
  auto too_long = ReadTableSet(system.connection);
  too_long->AddImport(kRead, "DELIMITER");  // CHAR 1
  too_long->SetImport(kRead, "DELIMITER", "ab");
  note("two characters into CHAR 1", {call(*too_long, kRead)});

  // RETURN and the out table as the last call left them, empty when absent.
  // Call 0 of `module` for TABNAME ZORDERS with the given return and out table names.
  const auto by_tabname = [](CSapCallSet& set, const char* module, const char* name, const char* out) {
    set.AddFunction("F", 0, module);
    set.AddImport(0, "TABNAME");
    set.SetImport(0, "TABNAME", "ZORDERS");
    set.SetReturnName(0, name);
    set.SetOutTableName(0, out);
  };
  CSapCallSet info(&system.connection, "TABLE_INFO");
  by_tabname(info, "Z_KTZ_BAPI_GET_DD_INFO", "RETURN", "META_TAB");
  note("DD info of ZORDERS", {call(info, 0)});
  info.SetImport(0, "TABNAME", "ZNOWHERE");
  note("DD info of ZNOWHERE", {call(info, 0),
                               Join(info.GetReturn(0)->GetValue(std::string("TYPE")),
                                    info.GetReturn(0)->GetValue(std::string("MESSAGE")),
                                    info.GetOutTable(0)->GetRowCount())});
  // A simple export of the return name is no structure to read.
  CSapCallSet definition(&system.connection, "DEFINITION");
  by_tabname(definition, "RFC_GET_STRUCTURE_DEFINITION", "TABLENGTH", "FIELDS");
  note("TABLENGTH as return",
       {call(definition, 0), Join(definition.GetReturn(0)->GetFieldCount(), definition.GetOutTable(0)->GetRowCount())});
  // RFC_READ_TABLE has neither; a new name takes effect with the next call.
  auto read = ReadTableSet(system.connection);
  const auto results = [&](const std::string& step) {
    note(step, {call(*read, kRead),
                Join(read->GetReturn(kRead)->GetFieldCount(), read->GetOutTable(kRead)->GetRowCount(),
                     read->GetOutTable(kRead)->GetName())});
  };
  results("no return, no out table");
  read->SetReturnName(kRead, "");
  read->SetOutTableName(kRead, "");
  results("names emptied");
  read->SetOutTableName(kRead, "fields  ");
  results("FIELDS as out table");

  CSapCallSet mixed(&system.connection, "Mixed");
  const uint16_t seven = 7;
  note("unknown number", {Join(mixed.AddImport(seven, "QUERY_TABLE"), mixed.AddTable(seven, "DATA"),
                              mixed.SetImport(seven, "QUERY_TABLE", "ZORDERS"), mixed.SetReturnName(seven, "RETURN"),
                              mixed.SetOutTableName(seven, "DATA"), mixed.Call(seven),
                              mixed.GetReturn(seven) == nullptr, mixed.GetOutTable(seven) == nullptr,
                              mixed.GetTable(seven, "DATA") == nullptr)});
  mixed.AddFunction("READ", 0, "RFC_READ_TABLE");
  mixed.AddFunction("INFO", 1, "Z_KTZ_BAPI_GET_DD_INFO");
  mixed.AddFunction("PING", 0, "RFCPING");
  note("PING over READ", {Join(mixed.GetCallCount(), mixed.GetCall("READ") == nullptr,
                               mixed.GetCall("PING") == mixed.GetCall(uint16_t{0})),
                          call(mixed, 0)});
  mixed.AddFunction("INFO", 5, "RFC_READ_TABLE");
  note("INFO moved to 5", {Join(mixed.GetCallCount(), mixed.GetCall(uint16_t{1}) == nullptr,
                               mixed.GetCall("INFO") == mixed.GetCall(uint16_t{5}))});
  mixed.AddFunction("PING", 5, "RFCPING");  // both at once: one call left
  note("PING over INFO", {Join(mixed.GetCallCount(), mixed.GetCall("INFO") == nullptr), Join(mixed.Call(5))});
  // A module the system lacks is refused and the set stays as it was.
  CSapCall* before = mixed.GetCall(uint16_t{5});
  note("missing module", {Outcome([&] { return mixed.AddFunction("MISSING", 5, "Z_NO_SUCH_MODULE"); }),
                          Join(before == mixed.GetCall(uint16_t{5}), mixed.GetCall("MISSING") == nullptr)});
  CSapCall bare;
  note("bare call", {Join(bare.Call()), Join(bare.GetReturn()->GetFieldCount(), bare.GetOutTable()->GetRowCount())});
  note("initialised twice", {Join(bare.Init(&system.connection, "PING", "RFCPING")),
                             Join(bare.Init(&system.connection, "READ", "RFC_READ_TABLE")), Join(bare.Call())});
  note("system stopped", {Join(system.sapsim->Stop()), call(mixed, 5)});
  EXPECT_TRUE(testutil::MatchesExpectedFile(trace, "tests/access/expected/call_set_steps.txt"));
}

}  // namespace
}  // namespace access_test
