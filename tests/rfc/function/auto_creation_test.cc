// Interface auto-creation: client functions, structure and table parameters
// describe themselves from the dictionary answers of the stand-in library
// (RFC_GET_FUNCTION_INTERFACE, RFC_GET_STRUCTURE_DEFINITION) in the short and
// long line layouts, and every failure on the way is reported as designed.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
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
#include "tests/rfc/function/function_transcript.h"

namespace {

using rfc_test::Answer;
using rfc_test::Dictionary;
using rfc_test::Fake;
using fn_test::Entries;
using fn_test::Traced;

// RFC_READ_TABLE as a partner describes it, in part.
Dictionary ReadTableDictionary(bool long_layout) {
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

  // Runs `code` with allocation k failing for k = 0, 1, ... until its trace
  // holds `line`; nothing once the code no longer reaches its k-th allocation.
  static rfc_test::TracedRun FirstFailureTracing(const std::function<void()>& code, const std::string& line) {
    for (int k = 0;; ++k) {
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
      if (std::count(run.lines.begin(), run.lines.end(), line) > 0 || unused) return run;
    }
  }
};

// Per field of the four dictionary line layouts: name, offset, column, the
// type element's type and length; then the type of each letter.
TEST_F(AutoCreationTest, TheDictionaryLinesAndTypeLetters) {
  struct Layout {
    const CRfcFieldInfo* fields;
    const RfcTypeElement* elements;
    int count;
  };
  for (const Layout& layout : {Layout{CRfcGetFunctionInterface::kParamsFieldsShort,
                                      CRfcGetFunctionInterface::kParamsElementsShort, 11},
                               Layout{CRfcGetFunctionInterface::kParamsFieldsLong,
                                      CRfcGetFunctionInterface::kParamsElementsLong, 11},
                               Layout{CRfcGetStructureDefinition::kFieldsFieldsShort,
                                      CRfcGetStructureDefinition::kFieldsElementsShort, 7},
                               Layout{CRfcGetStructureDefinition::kFieldsFieldsLong,
                                      CRfcGetStructureDefinition::kFieldsElementsLong, 7}}) {
    // The records lay out to their documented offsets, and the type elements
    // describe the same fields.
    CRfcTableParam table("LAYOUT", 0, 0, 0, nullptr, nullptr);
    table.SetTypeHandle(1);
    std::vector<CRfcFieldInfo> fields(layout.fields, layout.fields + layout.count);
    table.AddFieldInfo(fields.data(), layout.count);
    out << "line " << table.GetLineLength() << ":";
    for (int i = 0; i < layout.count; ++i) {
      const CRfcFieldInfo& f = layout.fields[i];
      const RfcTypeElement& e = layout.elements[i];
      EXPECT_EQ(std::vector<int>({fields[static_cast<size_t>(i)].offset, f.type, f.length}),
                std::vector<int>({f.offset, e.type, e.length})) << f.name;
      EXPECT_STREQ(e.name, f.name);
      out << " " << f.name << "@" << f.offset << "#" << f.column << " " << e.type << "/" << e.length;
    }
    out << "\n";
  }
  for (char letter : std::string("CDPTXNFIsbgcSBh \0", 17)) {
    out << fn_test::Printable(std::string(1, letter)) << CRfcGetFunctionInterface::TypeOfExid(letter) << " ";
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
    const stand_in::Exchange& structure = fake().calls.at(1);
    if (!params_types.empty()) {  // registered by this test: the handle registered last
      EXPECT_EQ(question.tables.at(0).type, params_types.back().handle);
      EXPECT_EQ(params_types.back().elements.at(2).length, step.long_layout ? 30 : 10);
      EXPECT_EQ(fields_types.back().elements.at(0).length, step.long_layout ? 30 : 10);
    }
    out << question.function << ":" << Entries(question.params) << Entries(question.tables) << "\n";
    out << structure.function << ":" << Entries(structure.params) << Entries(structure.tables) << "\n";
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
    out << Traced(run) << "tables left " << fake().tables.size() << "\n";
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

// The trace of a structure and of a simple parameter that cannot be made; an
// import throws the short text, an export the long one.
TEST_F(AutoCreationTest, AllocationFailuresOnTheWay) {
  auto connection = Connection("46C");
  const Dictionary pair{{}, {{"ZPAIR", {{"ZPAIR", "KEY", 1, 0, 4, 0, "C"}, {"ZPAIR", "N", 2, 4, 4, 0, "I"}}}}};
  out << Traced(FirstFailureTracing(
      [&] {
        Answer(pair);
        CRfcStructParam param("P", 0, 1, connection.get(), "ZPAIR");
      },
      "Failure to auto-create structure parameter"));
  for (const char* param_class : {"I", "E"}) {
    const Dictionary simple{{{param_class, "NAME", "SIMPLE", "NAME", "C", 8}}, {}};
    out << Traced(FirstFailureTracing(
        [&] {
          Answer(simple);
          CRfcClientFunc function(connection.get(), "Z_SIMPLE", 1);
        },
        "CRfcClienFunc, auto-creation of simple param failed"));
  }
}

}  // namespace
