// Functions and client calls, and functions and parameters that describe
// themselves from the partner's dictionary in the short and long layouts.

#include "rfc/function/rfc_get_function_interface.h"
#include "rfc/function/rfc_get_structure_definition.h"
#include "tests/rfc/function/function_transcript.h"

namespace {

using fn_test::Entries;
using rfc_test::Answer;
using rfc_test::Fake;

class FunctionTest : public fn_test::TranscriptTest {
 protected:
  FunctionTest() { connection_.AttachHandle(42); }
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

  CRfcClientFunc function(&connection_, "F");
  CRfcSimpleParam a("A", TYPE_CHAR, 3, 0, 0), b("B", TYPE_INT, 4, 0, 0);
  CRfcStructParam s("S", 6, 0, nullptr, nullptr);
  CRfcSimpleParam e1("E1", TYPE_CHAR, 2, 0, 0), e2("E2", TYPE_NUM, 3, 0, 0);
  CRfcTableParam t1("T1", 10, 0, 0, nullptr, nullptr), t2("T2", 20, 0, 0, nullptr, nullptr);
  for (CRfcImpExpParam* import : std::initializer_list<CRfcImpExpParam*>{&a, &b, &s}) function.AddImport(import);
  for (CRfcSimpleParam* exported : {&e1, &e2}) function.AddExport(exported);
  for (CRfcTableParam* table : {&t1, &t2}) function.AddTable(table);
  EXPECT_TRUE(a.GetOwner() == &function && t1.GetOwner() == &function);
  t1.Create();
  a.Value() = "xy";
  a.SetActive(1);
  // Active simple imports and structures go; a passed simple import turns
  // inactive, a structure stays active; exports never touch the flag.
  Call(function);
  out << "active A S E1: " << a.IsActive() << s.IsActive() << e1.IsActive() << "\n";
  EXPECT_EQ(fake().receives[1].tables[0].handle, t1.GetTableHandle());
  // Without setting A only the structure goes; every import with bAll.
  Call(function);
  Call(function, 1);
  a.SetActive(1);
  b.SetActive(1);
  Call(function);
  // A list that changes gets a new array.
  CRfcSimpleParam e3("E3", TYPE_INT, 4, 0, 0);
  function.AddExport(&e3);
  Call(function);
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
  for (CRfcSimpleParam* import : {&a, &b}) function.AddImport(import);
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
}

// Per code (-1: RfcCall itself fails): what CallReceive answered or threw, the
// exception, what was taken over (table handle, structure values), the trace.
TEST_F(FunctionTest, EveryReturnCodeOfTheReceive) {
  static char raised[] = "TABLE_NOT_AVAILABLE";
  for (const int code : {0, 2, 4, 1, 3, 6, -1}) {
    fake().Reset();
    fake().SetLastError("KEY", "", "");
    fake().call_result = code == -1 ? 1 : 0;
    SetRfcByteOrderSwitch(1);
    CRfcClientFunc function(&connection_, "Z_CALL");
    // RAW's lines are never turned around.
    CRfcTableParam data("DATA", 4, 0, 0, nullptr, nullptr), raw("RAW", 4, 1, 0, nullptr, nullptr);
    CRfcStructParam s("S", 0, 0, nullptr, nullptr);
    CRfcFieldInfo field{"N", 0, 0, TYPE_INT, 4, 0};
    s.AddFieldInfo(&field, 1);
    for (CRfcTableParam* table : {&data, &raw}) function.AddTable(table);
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
    out << fn_test::Seen() << "\n" << fn_test::Traced(run);
  }
}

// A self-described function owns what it made, not what the application added
// (the sanitizer build sees a leak or a double free).
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
}

// RFC_READ_TABLE as a partner describes it, in part.
rfc_test::Dictionary ReadTableDictionary(bool long_layout) {
  return {{{"I", "QUERY_TABLE", "SIMPLE", "QUERY_TABLE", "C", 30},
           {"I", "DELIMITER", "SIMPLE", "DELIMITER", "C", 1},
           {"I", "ROWCOUNT", "SIMPLE", "ROWCOUNT", "I", 4},
           {"T", "OPTIONS", "RS_OPTION", "", "h", 72},
           {"T", "FIELDS", "RS_DBFIELD", "", "h", 999},
           {"X", "TABLE_NOT_AVAILABLE", "", "", "", 0}},
          {{"RS_OPTION", {{"RS_OPTION", "TEXT", 1, 0, 72, 0, "C"}}},
           {"RS_DBFIELD",
            {{"RS_DBFIELD", "FIELDNAME", 1, 0, 30, 0, "C"}, {"RS_DBFIELD", "OFFSET", 2, 30, 6, 0, "N"},
             {"RS_DBFIELD", "LENGTH", 3, 36, 6, 0, "N"}, {"RS_DBFIELD", "TYPE", 4, 42, 1, 0, "C"}}}},
          long_layout};
}

class AutoCreationTest : public fn_test::TranscriptTest {
 protected:
  // A connection with a known release and a handle it does not own.
  static std::unique_ptr<CRfcConnection> Connection(const char* release) {
    auto connection = std::make_unique<CRfcConnection>();
    CRfcConnInfo info;
    info.release = release;
    connection->SetConnInfo(info);
    connection->AttachHandle(3);
    return connection;
  }
};

// Per field of the four dictionary line layouts: name, offset, column, the
// type element's type and length; then the type of each letter.
TEST_F(AutoCreationTest, TheDictionaryLinesAndTypeLetters) {
  for (const auto& [records, elements, count] :
       {std::tuple{CRfcGetFunctionInterface::kParamsFieldsShort, CRfcGetFunctionInterface::kParamsElementsShort, 11},
        std::tuple{CRfcGetFunctionInterface::kParamsFieldsLong, CRfcGetFunctionInterface::kParamsElementsLong, 11},
        std::tuple{CRfcGetStructureDefinition::kFieldsFieldsShort, CRfcGetStructureDefinition::kFieldsElementsShort, 7},
        std::tuple{CRfcGetStructureDefinition::kFieldsFieldsLong, CRfcGetStructureDefinition::kFieldsElementsLong, 7}}) {
    // Laid out to their documented offsets; the type elements match the records.
    CRfcTableParam table("LAYOUT", 0, 0, 0, nullptr, nullptr);
    table.SetTypeHandle(1);
    std::vector<CRfcFieldInfo> fields(records, records + count);
    table.AddFieldInfo(fields.data(), count);
    out << "line " << table.GetLineLength() << ":";
    for (int i = 0; i < count; ++i) {
      const CRfcFieldInfo& f = records[i];
      const RfcTypeElement& e = elements[i];
      EXPECT_EQ(std::vector<int>({fields[static_cast<size_t>(i)].offset, f.type, f.length}),
                std::vector<int>({f.offset, e.type, e.length})) << f.name;
      EXPECT_STREQ(e.name, f.name);
      out << " " << f.name << "@" << f.offset << "#" << f.column << " " << e.type << "/" << e.length;
    }
    out << "\n";
  }
  for (char letter : std::string("CDPTXNFIsbgcSBh \0", 17)) {
    out << testutil::Escaped(std::string(1, letter)) << CRfcGetFunctionInterface::TypeOfExid(letter) << " ";
  }
}

// Partners below release 40A get the short layout; each change of layout
// registers both line structures anew, a repeated layout nothing. Per step:
// the questions (FUNCNAME, LANGUAGE always "E", PARAMS in the layout's line;
// then TABNAME and FIELDS), and what the function made of the answer.
TEST_F(AutoCreationTest, AFunctionDescribesItselfForOldAndNewPartnersInTurn) {
  auto modern = Connection("46C");
  auto old = Connection("31I");
  struct Step {
    CRfcConnection* connection;
    bool long_layout;
    int registrations;  // -1: the process may have registered before
  };
  for (const Step& step : {Step{modern.get(), true, -1}, Step{old.get(), false, 2},
                           Step{modern.get(), true, 2}, Step{modern.get(), true, 0}}) {
    fake().calls.clear();
    Answer(ReadTableDictionary(step.long_layout));
    const size_t installs = fake().installs.size();
    CRfcClientFunc function(step.connection, "rfc_read_table", 1);
    const auto params_types = fake().InstallsOf("PARAMStypes");
    const auto fields_types = fake().InstallsOf("FIELDStypes");
    if (step.registrations >= 0) {
      EXPECT_EQ(fake().installs.size() - installs, static_cast<size_t>(step.registrations) + 2);
    }
    const stand_in::Exchange& question = fake().calls.at(0);
    if (!params_types.empty()) {  // registered by this test: the handle registered last
      EXPECT_EQ(question.tables.at(0).type, params_types.back().handle);
      EXPECT_EQ(params_types.back().elements.at(2).length, step.long_layout ? 30 : 10);
      EXPECT_EQ(fields_types.back().elements.at(0).length, step.long_layout ? 30 : 10);
    }
    for (const stand_in::Exchange& call : fake().calls) out << call.function << ":" << Entries(call.params) << Entries(call.tables) << "\n";
    // The readers' tables are gone; the line length is computed, not INTLENGTH.
    CRfcTableParam* options = function.GetTables().GetAt(0);
    out << function.GetImports().GetCount() << " imports, " << function.GetTables().GetCount() << " tables, long names "
        << options->GetLongNames() << ", release " << static_cast<const char*>(options->GetRelease()) << ", FIELDS line "
        << function.GetTables().GetAt(1)->GetLineLength() << ", tables left " << fake().tables.size() << "\n";
  }
}

// An unknown type letter gives type 9999 without a buffer; exception lines
// and unknown classes add nothing; a whole structure takes its computed length
// (CHAR 3, FLOAT at 8) and is registered under the parameter's name.
TEST_F(AutoCreationTest, OddLinesOfTheInterface) {
  Answer({{{"I", "WEIRD", "SIMPLE", "WEIRD", "g", 12}, {"X", "SOME_EXCEPTION", "", "", "", 0},
           {"Q", "UNKNOWN_CLASS", "SIMPLE", "X", "C", 1}, {"", "NO_CLASS", "SIMPLE", "X", "C", 1}, {"E", "RESULT", "ZRESULT", "", "u", 999}},
          {{"ZRESULT", {{"ZRESULT", "CODE", 1, 0, 3, 0, "C"}, {"ZRESULT", "RATE", 2, 3, 8, 0, "F"}}}}});
  auto connection = Connection("46C");
  CRfcClientFunc function(connection.get(), "Z_ODD", 1);
  ASSERT_EQ(function.GetImports().GetCount() * 10 + function.GetExports().GetCount(), 11);
  auto* weird = static_cast<CRfcSimpleParam*>(function.GetImports().GetAt(0));
  auto* result = static_cast<CRfcStructParam*>(function.GetExports().GetAt(0));
  out << weird->GetName() << " type " << weird->GetType() << (weird->GetBuffer() == nullptr ? " no buffer, " : " a buffer, ");
  out << result->GetName() << " length " << result->GetLength() << "\n";
  EXPECT_EQ(result->GetTypeHandle(), fake().InstallsOf("RESULT").at(0).handle);
  Answer({{}, {{"ZRESULT", {{"ZRESULT", "CODE", 1, 0, 3, 0, "C"}}}}, false});  // no partner: the short layout
  CRfcStructParam unconnected("P", 0, 1, nullptr, "ZRESULT");
  out << "unconnected length " << unconnected.GetLength() << "\n";
}

// Per failure: how the auto-created function failed (a text or the library's
// error), the trace, and that what was made so far is gone.
TEST_F(AutoCreationTest, FailuresOfTheRepositoryAreReportedAsDesigned) {
  auto connection = Connection("46C");
  static char not_found[] = "FU_NOT_FOUND";
  const std::function<void()> scripts[] = {
      [] {
        CRfcGetFunctionInterface::RegisterParamsTypes(false);  // the long one is needed: refused
        Fake().install_result = 1;
      },
      [] { Fake().itcreate_failures = 1; },
      [] { Fake().receive_by_function["RFC_GET_FUNCTION_INTERFACE"] = rfc_test::Raising(not_found); },
      [] {
        Fake().call_result = 1;
        Fake().SetLastError("RFC_ERROR_SYSTEM_FAILURE_X", "ST", "gone");
      },
      [] { Answer({{{"I", "FIRST", "SIMPLE", "FIRST", "C", 4}, {"I", "SETTINGS", "ZMISSING", "", "u", 10}}, {}}); },
      [] { Answer({{{"T", "ROWS", "ZMISSING", "", "h", 10}}, {}}); },
      [] {
        Answer(ReadTableDictionary(true));
        Fake().missing_lines.insert(2);
      },
  };
  for (const auto& script : scripts) {
    fake().Reset();
    script();
    auto run = rfc_test::RunTraced([&] {
      try {
        CRfcClientFunc function(connection.get(), "Z_ANY", 1);
      } catch (const RFC_ERROR_INFO&) {
        out << "the library's error\n";
      }
    });
    out << fn_test::Traced(run) << "tables left " << fake().tables.size() << "\n";
    fake().install_result = 0;
  }
  // A refused registration keeps the one there was.
  CRfcGetFunctionInterface::RegisterParamsTypes(false);
  fake().install_result = 1;
  out << rfc_test::Thrown([] { CRfcGetFunctionInterface::RegisterParamsTypes(true); }) << ", "
      << rfc_test::Thrown([] { CRfcGetStructureDefinition::RegisterFieldsTypes(false); });
  fake().install_result = 0;
  fake().installs.clear();
  CRfcGetFunctionInterface::RegisterParamsTypes(false);
  out << "; installed again: " << fake().installs.size() << "\n";

  // The structure reader fails the same way; a name too long for an old
  // partner's TABNAME fails as the value itself says, before any call.
  fake().Reset();
  fake().missing_lines.insert(3);
  Answer(ReadTableDictionary(true));
  out << rfc_test::Thrown([&] { CRfcStructParam param("P", 0, 1, connection.get(), "RS_DBFIELD"); }) << "\n";
  fake().Reset();
  auto old = Connection("31I");
  out << rfc_test::Thrown([&] { CRfcStructParam param("P", 0, 1, old.get(), "ZLONGERNAME"); }) << fn_test::Seen() << "\n";
}

}  // namespace
