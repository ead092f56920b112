// Interface auto-creation: client functions, structure and table parameters
// describe themselves from the dictionary answers that the stand-in library gives
// (RFC_GET_FUNCTION_INTERFACE, RFC_GET_STRUCTURE_DEFINITION) in the short and
// long line layouts, and every failure on the way is reported as designed.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/function/rfc_client_func.h"
#include "rfc/function/rfc_get_function_interface.h"
#include "rfc/function/rfc_get_structure_definition.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/rfc/rfc_test_support.h"

namespace {

using rfc_test::Answer;
using rfc_test::Dictionary;
using rfc_test::Fake;
using rfc_test::Tail;
using rfc_test::StandInTest;
using ::testing::Contains;
using ::testing::ElementsAre;

// RFC_READ_TABLE as a partner describes it, in part.
Dictionary ReadTableDictionary(bool long_layout) {
  Dictionary dictionary;
  dictionary.long_layout = long_layout;
  dictionary.params = {
      {"I", "QUERY_TABLE", "SIMPLE", "QUERY_TABLE", "C", 30},
      {"I", "DELIMITER", "SIMPLE", "DELIMITER", "C", 1},
      {"I", "ROWCOUNT", "SIMPLE", "ROWCOUNT", "I", 4},
      {"T", "OPTIONS", "RS_OPTION", "", "h", 72},
      {"T", "FIELDS", "RS_DBFIELD", "", "h", 999},
      {"X", "TABLE_NOT_AVAILABLE", "", "", "", 0},
  };
  dictionary.structures = {
      {"RS_OPTION", {{"RS_OPTION", "TEXT", 1, 0, 72, 0, "C"}}},
      {"RS_DBFIELD",
       {{"RS_DBFIELD", "FIELDNAME", 1, 0, 30, 0, "C"},
        {"RS_DBFIELD", "OFFSET", 2, 30, 6, 0, "N"},
        {"RS_DBFIELD", "LENGTH", 3, 36, 6, 0, "N"},
        {"RS_DBFIELD", "TYPE", 4, 42, 1, 0, "C"}}},
  };
  return dictionary;
}

class AutoCreationTest : public StandInTest {
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

  // Runs `code` with allocation k failing for k = 0, 1, ... until a run
  // satisfies `wanted`, or nothing once the code no longer reaches its k-th
  // allocation.
  static std::optional<rfc_test::TracedRun> FirstFailureWhere(
      const std::function<void()>& code,
      const std::function<bool(const rfc_test::TracedRun&)>& wanted) {
    for (int k = 0; k < 5000; ++k) {
      Fake().Reset();
      bool unused = false;
      rfc_test::TracedRun run = rfc_test::RunTraced([&] {
        rfc::testing::FailAllocations(k, 1);
        try {
          code();
        } catch (...) {
          rfc::testing::ClearAllocationFaults();
          throw;
        }
        unused = rfc::testing::PendingAllocationFaults() > 0;
        rfc::testing::ClearAllocationFaults();
      });
      if (wanted(run)) return run;
      if (unused) return std::nullopt;
    }
    return std::nullopt;
  }
  static std::function<bool(const rfc_test::TracedRun&)> Throws(const std::string& text) {
    return [text](const rfc_test::TracedRun& run) { return run.thrown == text; };
  }
};

TEST_F(AutoCreationTest, TheDictionaryLinesAndTypeLetters) {
  struct Layout {
    const CRfcFieldInfo* fields;
    const RfcTypeElement* elements;
    int count, line;
  };
  for (const Layout& layout : {Layout{CRfcGetFunctionInterface::kParamsFieldsShort,
                                      CRfcGetFunctionInterface::kParamsElementsShort, 11, 168},
                               Layout{CRfcGetFunctionInterface::kParamsFieldsLong,
                                      CRfcGetFunctionInterface::kParamsElementsLong, 11, 208},
                               Layout{CRfcGetStructureDefinition::kFieldsFieldsShort,
                                      CRfcGetStructureDefinition::kFieldsElementsShort, 7, 40},
                               Layout{CRfcGetStructureDefinition::kFieldsFieldsLong,
                                      CRfcGetStructureDefinition::kFieldsElementsLong, 7, 80}}) {
    // The records lay out to their documented offsets and line length, and
    // the type elements describe the same fields.
    CRfcTableParam table("LAYOUT", 0, 0, 0, nullptr, nullptr);
    table.SetTypeHandle(1);
    std::vector<CRfcFieldInfo> fields(layout.fields, layout.fields + layout.count);
    table.AddFieldInfo(fields.data(), layout.count);
    EXPECT_EQ(table.GetLineLength(), layout.line);
    for (int i = 0; i < layout.count; ++i) {
      SCOPED_TRACE(layout.fields[i].name);
      EXPECT_EQ(fields[static_cast<size_t>(i)].offset, layout.fields[i].offset);
      EXPECT_EQ(layout.fields[i].column, i);
      EXPECT_STREQ(layout.elements[i].name, layout.fields[i].name);
      EXPECT_EQ(layout.elements[i].type, layout.fields[i].type);
      EXPECT_EQ(layout.elements[i].length, layout.fields[i].length);
    }
  }
  const std::string letters = "CDPTXNFIsb";
  for (size_t i = 0; i < letters.size(); ++i) {
    EXPECT_EQ(CRfcGetFunctionInterface::TypeOfExid(letters[i]), i < 5 ? int(i) : int(i) + 1);
  }
  for (char other : {'g', 'c', 'S', 'B', 'h', ' ', '\0'}) {
    EXPECT_EQ(CRfcGetFunctionInterface::TypeOfExid(other), 9999) << other;
  }
}

TEST_F(AutoCreationTest, AFunctionDescribesItselfForOldAndNewPartnersInTurn) {
  auto modern = Connection("46C");
  auto old = Connection("31I");
  struct Step {
    CRfcConnection* connection;
    bool long_layout;
    size_t registrations;  // new ones of each line structure (the first one
  };                       // may have happened earlier in the process)
  size_t params = 0, fields = 0;
  for (const Step& step : {Step{modern.get(), true, 0}, Step{old.get(), false, 1},
                           Step{modern.get(), true, 1}, Step{modern.get(), true, 0}}) {
    SCOPED_TRACE(step.long_layout ? "long" : "short");
    fake().calls.clear();
    Answer(ReadTableDictionary(step.long_layout));
    CRfcClientFunc function(step.connection, "rfc_read_table", 1);
    const size_t names = step.long_layout ? 30 : 10;

    // The questions: FUNCNAME, LANGUAGE always "E", and PARAMS in the
    // layout's line under the handle registered last; then TABNAME and FIELDS.
    const auto params_types = fake().InstallsOf("PARAMStypes");
    const auto fields_types = fake().InstallsOf("FIELDStypes");
    params = params == 0 ? params_types.size() : params + step.registrations;
    fields = fields == 0 ? fields_types.size() : fields + step.registrations;
    ASSERT_EQ(params_types.size(), params);
    ASSERT_EQ(fields_types.size(), fields);
    const stand_in::Exchange& question = fake().calls.at(0);
    EXPECT_EQ(rfc_test::ImportText(question, "FUNCNAME"), "RFC_READ_TABLE");
    EXPECT_EQ(rfc_test::ImportText(question, "LANGUAGE"), "E");
    EXPECT_EQ(question.tables.at(0).length, step.long_layout ? 208u : 168u);
    if (!params_types.empty()) {
      EXPECT_EQ(params_types.back().elements.at(2).length, static_cast<int>(names));
      EXPECT_EQ(fields_types.back().elements.at(0).length, static_cast<int>(names));
      EXPECT_EQ(question.tables[0].type, params_types.back().handle);
    }
    const stand_in::Exchange& structure = fake().calls.at(1);
    EXPECT_EQ(structure.function, "RFC_GET_STRUCTURE_DEFINITION");
    EXPECT_EQ(structure.params.at(0).length, names);  // TABNAME
    EXPECT_EQ(structure.tables.at(0).length, step.long_layout ? 80u : 40u);

    // What the function made of the answer; the readers' tables are gone.
    EXPECT_EQ(function.IsAutoCreatedFunction(), 1);
    ASSERT_EQ(function.GetImports().GetCount(), 3);
    auto* query = static_cast<CRfcSimpleParam*>(function.GetImports().GetAt(0));
    EXPECT_STREQ(query->GetName(), "QUERY_TABLE");
    EXPECT_EQ(query->GetLength(), 30);
    EXPECT_EQ(query->IsAutoCreated(), 1);
    EXPECT_EQ(query->IsActive(), 0);
    EXPECT_EQ(static_cast<CRfcSimpleParam*>(function.GetImports().GetAt(2))->GetType(), TYPE_INT);
    EXPECT_EQ(function.GetExports().GetCount(), 0);  // the exception line adds nothing
    ASSERT_EQ(function.GetTables().GetCount(), 2);
    CRfcTableParam* options = function.GetTables().GetAt(0);
    EXPECT_EQ(options->OwnsTable(), 1);  // created at once
    EXPECT_EQ(options->IsAutoCreated(), 1);
    EXPECT_STREQ(static_cast<const char*>(options->GetTypeName()), "RS_OPTION");
    EXPECT_STREQ(static_cast<const char*>(options->GetRelease()),
                 static_cast<const char*>(step.connection->GetRelease()));
    EXPECT_EQ(options->GetLongNames(), step.long_layout ? 1 : 0);
    EXPECT_EQ(function.GetTables().GetAt(1)->GetLineLength(), 43);  // computed, not INTLENGTH
    EXPECT_EQ(function.GetTables().GetAt(1)->GetTypeHandle(),
              fake().InstallsOf("FIELDS").back().handle);
    EXPECT_EQ(fake().tables.size(), 2u);
  }
}

TEST_F(AutoCreationTest, OddLinesOfTheInterface) {
  Dictionary dictionary;
  dictionary.params = {
      {"I", "WEIRD", "SIMPLE", "WEIRD", "g", 12},  // unknown type letter
      {"X", "SOME_EXCEPTION", "", "", "", 0},      // exceptions add nothing
      {"Q", "UNKNOWN_CLASS", "SIMPLE", "X", "C", 1},
      {"E", "RESULT", "ZRESULT", "", "u", 999},  // a whole structure
      {"E", "AMOUNT", "SIMPLE", "AMOUNT", "P", 7, 2},
  };
  dictionary.structures = {{"ZRESULT",
                            {{"ZRESULT", "CODE", 1, 0, 3, 0, "C"},
                             {"ZRESULT", "RATE", 2, 3, 8, 0, "F"},
                             {"ZRESULT", "FLAG", 3, 11, 1, 0, "b"}}}};
  Answer(dictionary);
  auto connection = Connection("46C");
  CRfcClientFunc function(connection.get(), "Z_ODD", 1);
  ASSERT_EQ(function.GetImports().GetCount(), 1);
  auto* weird = static_cast<CRfcSimpleParam*>(function.GetImports().GetAt(0));
  EXPECT_EQ(weird->GetType(), 9999);
  EXPECT_EQ(weird->GetBuffer(), nullptr);
  EXPECT_EQ(weird->GetLength(), -1);
  ASSERT_EQ(function.GetExports().GetCount(), 2);
  auto* result = static_cast<CRfcStructParam*>(function.GetExports().GetAt(0));
  EXPECT_EQ(result->IsAutoCreated(), 1);
  EXPECT_EQ(result->GetLength(), 24);  // CHAR 3, FLOAT at 8, INT1 at 16, rounded to 8
  EXPECT_STREQ(static_cast<const char*>(result->GetTypeName()), "ZRESULT");
  ASSERT_EQ(fake().InstallsOf("RESULT").size(), 1u);  // under the parameter's name
  EXPECT_EQ(result->GetTypeHandle(), fake().InstallsOf("RESULT")[0].handle);
  auto* amount = static_cast<CRfcSimpleParam*>(function.GetExports().GetAt(1));
  EXPECT_EQ(amount->GetType(), TYPE_BCD);
  EXPECT_EQ(amount->GetDecimals(), 0);  // simple parameters always come with 0

  // Calling the described function passes what was described.
  fake().calls.clear();
  char* exception = nullptr;
  function.CallReceive(exception, 1);
  ASSERT_EQ(fake().calls.size(), 1u);
  ASSERT_EQ(fake().calls[0].params.size(), 1u);
  EXPECT_EQ(fake().calls[0].params[0].length, 0u);
  EXPECT_EQ(fake().calls[0].params[0].type, 9999);
}

TEST_F(AutoCreationTest, FailuresOfTheRepositoryAreReportedAsDesigned) {
  auto connection = Connection("46C");
  static char not_found[] = "FU_NOT_FOUND";
  struct Case {
    const char* what;
    std::function<void()> script;
    const char* thrown;  // nullptr: the library's RFC_ERROR_INFO
    std::vector<std::string> tail;
  };
  const Case cases[] = {
      {"refused registration",
       [] {
         CRfcGetFunctionInterface::RegisterParamsTypes(false);  // the long one is needed
         Fake().install_result = 1;
       },
       "Failure to create parameters for RFC_GET_FUNCTION_INTERFACE",
       {"Failure to create parameters for RFC_GET_FUNCTION_INTERFACE", "Z_ANY"}},
      {"PARAMS not created",
       [] { Fake().itcreate_failures = 1; },
       "Failure to create parameters for RFC_GET_FUNCTION_INTERFACE",
       {"Failure to create parameters for RFC_GET_FUNCTION_INTERFACE", "Z_ANY"}},
      {"exception",
       [] {
         Fake().receive_by_function["RFC_GET_FUNCTION_INTERFACE"] =
             [](RfcParameterEntry*, RfcTableEntry*, char** exception) {
               *exception = not_found;
               return RFC_EXCEPTION;
             };
       },
       "FU_NOT_FOUND",
       {"RFC_GET_FUNCTION_INTERFACE CallReceive failed", "Z_ANY", "FU_NOT_FOUND"}},
      {"library error",
       [] {
         Fake().call_result = 1;
         std::strcpy(Fake().last_error.key, "RFC_ERROR_SYSTEM_FAILURE_X");
         std::strcpy(Fake().last_error.status, "ST");
         std::strcpy(Fake().last_error.message, "gone");
       },
       nullptr,
       {"RFC_GET_FUNCTION_INTERFACE CallReceive failed", "Z_ANY", "Key:    RFC_ERROR_SYSTEM_FAILU",
        "Status: S", "Message:gone"}},
      {"unknown structure",
       [] {
         Answer({{{"I", "FIRST", "SIMPLE", "FIRST", "C", 4},
                  {"I", "SETTINGS", "ZMISSING", "", "u", 10}},
                 {}});
       },
       "Failure to create parameters for RFC_GET_FUNCTION_INTERFACE",
       {"RFC_GET_STRUCTURE_DEFINITION CallReceive failed", "ZMISSING", "TABLE_NOT_ACTIVE", "", "",
        "", "Rfc Class Library Trace at", "CRfcClienFunc, auto-creation of structure param failed",
        "Z_ANY", "SETTINGS"}},
      {"unknown table structure",
       [] {
         Answer({{{"T", "ROWS", "ZMISSING", "", "h", 10}}, {}});
       },
       "Failure to create parameters for RFC_GET_FUNCTION_INTERFACE",
       {"CRfcClienFunc, auto-creation of table param failed", "Z_ANY", "ROWS"}},
      {"missing line",
       [] {
         Answer(ReadTableDictionary(true));
         Fake().missing_lines.insert(2);
       },
       "ItGetLine Failure!",
       {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    fake().Reset();
    c.script();
    bool library_error = false;
    auto run = rfc_test::RunTraced([&] {
      try {
        CRfcClientFunc function(connection.get(), "Z_ANY", 1);
      } catch (const RFC_ERROR_INFO&) {
        library_error = true;
      }
    });
    EXPECT_EQ(library_error, c.thrown == nullptr);
    EXPECT_EQ(run.thrown, c.thrown != nullptr ? c.thrown : "");
    std::vector<std::string> tail = Tail(run, c.tail.size());
    for (std::string& line : tail) {
      if (line.rfind("Rfc Class Library Trace at", 0) == 0) line = "Rfc Class Library Trace at";
    }
    EXPECT_EQ(tail, c.tail);
    // What was made so far is gone (the sanitizer build sees leaks).
    EXPECT_TRUE(fake().tables.empty());
    fake().install_result = 0;
  }
  // A refused registration keeps the one there was.
  CRfcGetFunctionInterface::RegisterParamsTypes(false);
  fake().install_result = 1;
  EXPECT_THROW(CRfcGetFunctionInterface::RegisterParamsTypes(true), const char*);
  EXPECT_THROW(CRfcGetStructureDefinition::RegisterFieldsTypes(false), const char*);
  fake().install_result = 0;
  fake().installs.clear();
  CRfcGetFunctionInterface::RegisterParamsTypes(false);
  EXPECT_TRUE(fake().installs.empty());

  // The structure reader fails the same ways with its own lines.
  fake().Reset();
  fake().missing_lines.insert(3);
  Answer(ReadTableDictionary(true));
  auto structure = rfc_test::RunTraced(
      [&] { CRfcStructParam param("P", 0, 1, connection.get(), "RS_DBFIELD"); });
  EXPECT_EQ(structure.thrown, "ItGetLine Failure!");

  // A name too long for an old partner's TABNAME fails as the value itself
  // says, before anything is called.
  fake().Reset();
  auto old = Connection("31I");
  auto too_long = rfc_test::RunTraced(
      [&] { CRfcStructParam param("P", 0, 1, old.get(), "ZLONGERNAME"); });
  EXPECT_EQ(too_long.thrown, "CRfcData:operator=(CSTR) Input string too long, exceeding ");
  EXPECT_TRUE(fake().calls.empty());
}

// (The thrown texts of every allocation failure: the allocation sweep.) The
// trace lines of a structure and of a simple parameter that cannot be made;
// an import throws the short text, an export the long one.
TEST_F(AutoCreationTest, AllocationFailuresOnTheWay) {
  auto connection = Connection("46C");
  Dictionary pair;
  pair.structures = {
      {"ZPAIR", {{"ZPAIR", "KEY", 1, 0, 4, 0, "C"}, {"ZPAIR", "N", 2, 4, 4, 0, "I"}}}};
  auto structure = FirstFailureWhere(
      [&] {
        Answer(pair);
        CRfcStructParam param("P", 0, 1, connection.get(), "ZPAIR");
      },
      Throws("Failure to auto-create structure parameter"));
  ASSERT_TRUE(structure.has_value());
  EXPECT_THAT(Tail(*structure, 2),
              ElementsAre("CRfcStructParam::CRfcStructParam(CSTR paramName...) called",
                          "Failure to auto-create structure parameter"));
  for (const char* param_class : {"I", "E"}) {
    Dictionary simple;
    simple.params = {{param_class, "NAME", "SIMPLE", "NAME", "C", 8}};
    auto found = FirstFailureWhere(
        [&] {
          Answer(simple);
          CRfcClientFunc function(connection.get(), "Z_SIMPLE", 1);
        },
        [](const rfc_test::TracedRun& run) {
          return std::count(run.lines.begin(), run.lines.end(),
                            "CRfcClienFunc, auto-creation of simple param failed") > 0;
        });
    ASSERT_TRUE(found.has_value()) << param_class;
    EXPECT_EQ(found->thrown, param_class[0] == 'I'
                                 ? "Failure to create parameters"
                                 : "Failure to create parameters for RFC_GET_FUNCTION_INTERFACE");
    EXPECT_THAT(Tail(*found, 2), ElementsAre("Z_SIMPLE", "NAME"));
  }
}

}  // namespace
