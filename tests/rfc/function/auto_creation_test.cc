// Interface auto-creation: a client function, a structure parameter and a
// table parameter describe themselves from the dictionary answers that the
// fake library gives (RFC_GET_FUNCTION_INTERFACE, RFC_GET_STRUCTURE_DEFINITION),
// in the short and the long line layouts, and every failure on the way.

#include "rfc/function/rfc_get_function_interface.h"
#include "rfc/function/rfc_get_structure_definition.h"

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
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/rfc/function/fake_library_fixture.h"
#include "tests/rfc/trace_capture.h"

namespace {

using rfc_function_test::Dictionary;
using rfc_function_test::Fake;
using rfc_function_test::FakeLibraryTest;
using rfc_function_test::FieldsLine;
using rfc_function_test::ParamsLine;
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

class AutoCreationTest : public FakeLibraryTest {
 protected:
  // A connection with a known release and a handle it does not own.
  std::unique_ptr<CRfcConnection> Connection(const char* release) {
    auto connection = std::make_unique<CRfcConnection>();
    CRfcConnInfo info;
    info.release = release;
    connection->SetConnInfo(info);
    connection->AttachHandle(3);
    return connection;
  }

  // Runs `code` with allocation k failing for k = 0, 1, ... and returns the
  // first run that `wanted` accepts, or nothing once the code completes
  // without reaching its k-th allocation.
  static std::optional<rfc_test::TracedRun> FirstFailureWhere(
      const std::function<void()>& code,
      const std::function<bool(const rfc_test::TracedRun&)>& wanted) {
    for (int k = 0; k < 2000; ++k) {
      Fake().Reset();
      rfc::testing::ClearAllocationFaults();
      bool planned_fault_unused = false;
      rfc_test::TracedRun run = rfc_test::RunTraced([&] {
        rfc::testing::FailAllocations(k, 1);
        try {
          code();
        } catch (...) {
          rfc::testing::ClearAllocationFaults();
          throw;
        }
        planned_fault_unused = rfc::testing::PendingAllocationFaults() > 0;
        rfc::testing::ClearAllocationFaults();
      });
      if (wanted(run)) return run;
      if (planned_fault_unused) return std::nullopt;
    }
    return std::nullopt;
  }
};

TEST_F(AutoCreationTest, ExidLettersMapToTypeCodes) {
  const std::string letters = "CDPTXNFIsb";
  const int codes[] = {0, 1, 2, 3, 4, 6, 7, 8, 9, 10};
  for (size_t i = 0; i < letters.size(); ++i) {
    EXPECT_EQ(CRfcGetFunctionInterface::TypeOfExid(letters[i]), codes[i]) << letters[i];
  }
  for (char other : {'g', 'c', 'S', 'B', 'u', 'h', ' ', '\0'}) {
    EXPECT_EQ(CRfcGetFunctionInterface::TypeOfExid(other), 9999) << other;
  }
}

TEST_F(AutoCreationTest, TheLineLayoutsAreThoseOfTheDictionary) {
  // The records lay out to the documented offsets and line lengths.
  struct Check {
    const CRfcFieldInfo* fields;
    int count;
    int line;
  };
  for (const Check& check :
       {Check{CRfcGetFunctionInterface::kParamsFieldsShort, 11, 168},
        Check{CRfcGetFunctionInterface::kParamsFieldsLong, 11, 208},
        Check{CRfcGetStructureDefinition::kFieldsFieldsShort, 7, 40},
        Check{CRfcGetStructureDefinition::kFieldsFieldsLong, 7, 80}}) {
    CRfcTableParam table("LAYOUT", 0, 0, 0, nullptr, nullptr);
    table.SetTypeHandle(1);
    std::vector<CRfcFieldInfo> fields(check.fields, check.fields + check.count);
    table.AddFieldInfo(fields.data(), check.count);
    EXPECT_EQ(table.GetLineLength(), check.line);
    for (int i = 0; i < check.count; ++i) {
      EXPECT_EQ(fields[static_cast<size_t>(i)].offset, check.fields[i].offset)
          << check.fields[i].name;
      EXPECT_EQ(check.fields[i].column, i);
    }
  }
  // The element arrays say the same.
  for (int i = 0; i < 11; ++i) {
    EXPECT_STREQ(CRfcGetFunctionInterface::kParamsElementsLong[i].name,
                 CRfcGetFunctionInterface::kParamsFieldsLong[i].name);
    EXPECT_EQ(CRfcGetFunctionInterface::kParamsElementsLong[i].length,
              CRfcGetFunctionInterface::kParamsFieldsLong[i].length);
    EXPECT_EQ(CRfcGetFunctionInterface::kParamsElementsShort[i].length,
              CRfcGetFunctionInterface::kParamsFieldsShort[i].length);
  }
  for (int i = 0; i < 7; ++i) {
    EXPECT_EQ(CRfcGetStructureDefinition::kFieldsElementsLong[i].length,
              CRfcGetStructureDefinition::kFieldsFieldsLong[i].length);
    EXPECT_EQ(CRfcGetStructureDefinition::kFieldsElementsShort[i].type,
              CRfcGetStructureDefinition::kFieldsFieldsShort[i].type);
  }
}

TEST_F(AutoCreationTest, AFunctionDescribesItselfFromTheRepository) {
  rfc_function_test::Answer(ReadTableDictionary(true));
  auto connection = Connection("46C");
  CRfcClientFunc function(connection.get(), "rfc_read_table", 1);

  // The question: FUNCNAME and LANGUAGE "E", PARAMS in the long layout.
  ASSERT_GE(fake().calls.size(), 1u);
  const fake_rfc::Call& question = fake().calls[0];
  EXPECT_EQ(question.function, "RFC_GET_FUNCTION_INTERFACE");
  EXPECT_EQ(rfc_function_test::ImportText(question, "FUNCNAME"), "RFC_READ_TABLE");
  EXPECT_EQ(rfc_function_test::ImportText(question, "LANGUAGE"), "E");
  ASSERT_EQ(question.imports.size(), 2u);
  EXPECT_EQ(question.imports[0].length, 30u);
  EXPECT_EQ(question.imports[1].length, 1u);
  ASSERT_EQ(question.tables.size(), 1u);
  EXPECT_EQ(question.tables[0].name, "PARAMS");
  EXPECT_EQ(question.tables[0].line_length, 208u);
  EXPECT_NE(question.tables[0].handle, nullptr);

  EXPECT_EQ(function.IsAutoCreatedFunction(), 1);
  const CRfcList<CRfcImpExpParam>& imports = function.GetImports();
  ASSERT_EQ(imports.GetCount(), 3);
  auto* query = static_cast<CRfcSimpleParam*>(imports.GetAt(0));
  EXPECT_STREQ(query->GetName(), "QUERY_TABLE");
  EXPECT_EQ(query->GetType(), TYPE_CHAR);
  EXPECT_EQ(query->GetLength(), 30);
  EXPECT_EQ(query->IsAutoCreated(), 1);
  EXPECT_EQ(query->IsActive(), 0);
  auto* rowcount = static_cast<CRfcSimpleParam*>(imports.GetAt(2));
  EXPECT_EQ(rowcount->GetType(), TYPE_INT);
  EXPECT_EQ(function.GetExports().GetCount(), 0);

  const CRfcList<CRfcTableParam>& tables = function.GetTables();
  ASSERT_EQ(tables.GetCount(), 2);
  CRfcTableParam* options = tables.GetAt(0);
  EXPECT_STREQ(options->GetName(), "OPTIONS");
  EXPECT_EQ(options->GetLineLength(), 72);
  EXPECT_NE(options->GetTableHandle(), nullptr);  // created at once
  EXPECT_EQ(options->OwnsTable(), 1);
  EXPECT_EQ(options->IsAutoCreated(), 1);
  EXPECT_STREQ(static_cast<const char*>(options->GetTypeName()), "RS_OPTION");
  EXPECT_STREQ(static_cast<const char*>(options->GetRelease()), "46C");
  EXPECT_EQ(options->GetLongNames(), 1);
  CRfcTableParam* fields = tables.GetAt(1);
  EXPECT_EQ(fields->GetLineLength(), 43);  // computed, not INTLENGTH
  EXPECT_EQ(fields->GetFieldCount(), 4);
  EXPECT_EQ(fields->GetFieldInfo(1)->type, TYPE_NUM);
  EXPECT_EQ(fields->GetFieldInfo(1)->offset, 30);

  // Each line structure was installed under its table's name.
  EXPECT_EQ(fake().InstallsOf("OPTIONS").size(), 1u);
  ASSERT_EQ(fake().InstallsOf("FIELDS").size(), 1u);
  EXPECT_EQ(fake().InstallsOf("FIELDS")[0].elements.size(), 4u);
  EXPECT_EQ(fields->GetTypeHandle(), fake().InstallsOf("FIELDS")[0].handle);

  // Only the target's tables are left; the readers' tables are gone.
  EXPECT_EQ(fake().tables.size(), 2u);
}

TEST_F(AutoCreationTest, AnOldPartnerGetsTheShortLayouts) {
  rfc_function_test::Answer(ReadTableDictionary(false));
  auto connection = Connection("31I");
  CRfcClientFunc function(connection.get(), "RFC_READ_TABLE", 1);
  EXPECT_EQ(fake().calls[0].tables[0].line_length, 168u);
  // The structure question sends a 10-character TABNAME.
  ASSERT_GE(fake().calls.size(), 2u);
  EXPECT_EQ(fake().calls[1].function, "RFC_GET_STRUCTURE_DEFINITION");
  EXPECT_EQ(fake().calls[1].imports[0].name, "TABNAME");
  EXPECT_EQ(fake().calls[1].imports[0].length, 10u);
  EXPECT_EQ(fake().calls[1].tables[0].line_length, 40u);
  EXPECT_EQ(function.GetTables().GetAt(1)->GetLongNames(), 0);
  EXPECT_EQ(function.GetImports().GetCount(), 3);
}

TEST_F(AutoCreationTest, AlternatingPartnersReRegisterTheLineStructures) {
  auto modern = Connection("46C");
  auto old = Connection("31I");
  auto describe = [&](CRfcConnection* connection, bool long_layout) {
    rfc_function_test::Answer(ReadTableDictionary(long_layout));
    CRfcClientFunc function(connection, "RFC_READ_TABLE", 1);
  };
  describe(modern.get(), true);
  const size_t params = fake().InstallsOf("PARAMStypes").size();
  const size_t fields = fake().InstallsOf("FIELDStypes").size();

  describe(old.get(), false);
  ASSERT_EQ(fake().InstallsOf("PARAMStypes").size(), params + 1);
  ASSERT_EQ(fake().InstallsOf("FIELDStypes").size(), fields + 1);
  const fake_rfc::Install short_params = fake().InstallsOf("PARAMStypes").back();
  ASSERT_EQ(short_params.elements.size(), 11u);
  EXPECT_EQ(short_params.elements[2].name, "TABNAME");
  EXPECT_EQ(short_params.elements[2].length, 10);
  EXPECT_EQ(fake().InstallsOf("FIELDStypes").back().elements[0].length, 10);

  describe(modern.get(), true);
  ASSERT_EQ(fake().InstallsOf("PARAMStypes").size(), params + 2);
  EXPECT_EQ(fake().InstallsOf("PARAMStypes").back().elements[2].length, 30);
  // PARAMS travels under the handle registered last.
  for (auto call = fake().calls.rbegin(); call != fake().calls.rend(); ++call) {
    if (call->function != "RFC_GET_FUNCTION_INTERFACE") continue;
    EXPECT_EQ(call->tables[0].type, fake().InstallsOf("PARAMStypes").back().handle);
    break;
  }
  EXPECT_EQ(fake().InstallsOf("FIELDStypes").size(), fields + 2);

  // The same partner again: nothing new to register.
  describe(modern.get(), true);
  EXPECT_EQ(fake().InstallsOf("PARAMStypes").size(), params + 2);
  EXPECT_EQ(fake().InstallsOf("FIELDStypes").size(), fields + 2);
}

TEST_F(AutoCreationTest, OddLinesOfTheInterface) {
  Dictionary dictionary;
  dictionary.params = {
      {"I", "WEIRD", "SIMPLE", "WEIRD", "g", 12},   // unknown type letter
      {"X", "SOME_EXCEPTION", "", "", "", 0},       // exceptions add nothing
      {"Q", "UNKNOWN_CLASS", "SIMPLE", "X", "C", 1},
      {"E", "RESULT", "ZRESULT", "", "u", 999},     // a whole structure
      {"E", "AMOUNT", "SIMPLE", "AMOUNT", "P", 7, 2},
  };
  dictionary.structures = {{"ZRESULT",
                            {{"ZRESULT", "CODE", 1, 0, 3, 0, "C"},
                             {"ZRESULT", "RATE", 2, 3, 8, 0, "F"},
                             {"ZRESULT", "FLAG", 3, 11, 1, 0, "b"}}}};
  rfc_function_test::Answer(dictionary);
  auto connection = Connection("46C");
  CRfcClientFunc function(connection.get(), "Z_ODD", 1);

  ASSERT_EQ(function.GetImports().GetCount(), 1);
  auto* weird = static_cast<CRfcSimpleParam*>(function.GetImports().GetAt(0));
  EXPECT_EQ(weird->GetType(), 9999);
  EXPECT_EQ(weird->GetBuffer(), nullptr);
  EXPECT_EQ(weird->GetLength(), -1);

  ASSERT_EQ(function.GetExports().GetCount(), 2);
  auto* result = static_cast<CRfcStructParam*>(function.GetExports().GetAt(0));
  EXPECT_EQ(result->IsSimple(), 0);
  EXPECT_EQ(result->IsAutoCreated(), 1);
  EXPECT_EQ(result->GetLength(), 24);  // CHAR 3, FLOAT at 8, INT1 at 16, rounded to 8
  EXPECT_EQ(result->GetFieldInfo(1)->offset, 8);
  EXPECT_STREQ(static_cast<const char*>(result->GetTypeName()), "ZRESULT");
  EXPECT_STREQ(result->GetName(), "RESULT");
  ASSERT_EQ(fake().InstallsOf("RESULT").size(), 1u);
  EXPECT_EQ(result->GetTypeHandle(), fake().InstallsOf("RESULT")[0].handle);
  // Simple parameters always come with 0 decimals.
  auto* amount = static_cast<CRfcSimpleParam*>(function.GetExports().GetAt(1));
  EXPECT_EQ(amount->GetType(), TYPE_BCD);
  EXPECT_EQ(amount->GetDecimals(), 0);
  EXPECT_EQ(amount->GetLength(), 7);

  // Calling the described function passes what was described.
  fake().calls.clear();
  char* exception = nullptr;
  function.CallReceive(exception, 1);
  ASSERT_EQ(fake().calls.size(), 1u);
  EXPECT_EQ(fake().calls[0].function, "Z_ODD");
  ASSERT_EQ(fake().calls[0].imports.size(), 1u);
  EXPECT_EQ(fake().calls[0].imports[0].length, 0u);
  EXPECT_EQ(fake().calls[0].imports[0].type, 9999);
}

TEST_F(AutoCreationTest, ATableWithAFloatAfterThreeCharacters) {
  Dictionary dictionary;
  dictionary.structures = {{"ZMEASURE",
                            {{"ZMEASURE", "UNIT", 1, 0, 3, 0, "C"},
                             {"ZMEASURE", "VALUE", 2, 3, 8, 0, "F"},
                             {"ZMEASURE", "NOTE", 3, 11, 5, 0, "C"}}}};
  rfc_function_test::Answer(dictionary);
  auto connection = Connection("46C");
  auto run = rfc_test::RunTraced([&] {
    CRfcTableParam table("measures", 1, 0, 1, connection.get(), "ZMEASURE");
    EXPECT_EQ(table.GetFieldInfo(1)->offset, 8);
    EXPECT_EQ(table.GetLineLength(), 24);
    EXPECT_EQ(table.GetLineLength() % 8, 0);
    EXPECT_EQ(table.GetTableHandle(), nullptr);  // the constructor makes no table
    EXPECT_EQ(fake().InstallsOf("MEASURES").size(), 1u);
    EXPECT_EQ(rfc_function_test::ImportText(fake().calls.back(), "TABNAME"), "ZMEASURE");
  });
  EXPECT_FALSE(run.threw_text) << run.thrown;
}

TEST_F(AutoCreationTest, AStructureParameterDescribesItself) {
  Dictionary dictionary;
  dictionary.structures = {{"ZPAIR",
                            {{"ZPAIR", "KEY", 1, 0, 4, 0, "C"},
                             {"ZPAIR", "COUNT", 2, 4, 4, 0, "I"}}}};
  rfc_function_test::Answer(dictionary);
  auto connection = Connection("46C");
  auto run = rfc_test::RunTraced([&] {
    CRfcStructParam param("pair", 999, 1, connection.get(), "ZPAIR");
    EXPECT_EQ(param.GetLength(), 8);
    EXPECT_EQ(param.IsAutoCreated(), 1);
    EXPECT_EQ(param.GetLongNames(), 1);
    EXPECT_STREQ(static_cast<const char*>(param.GetRelease()), "46C");
    EXPECT_STREQ(static_cast<CSTR>(param.FieldValue(0)), "");
    EXPECT_EQ(std::string(reinterpret_cast<char*>(param.GetBuffer()), 4), "    ");
    ASSERT_EQ(fake().InstallsOf("PAIR").size(), 1u);
  });
  EXPECT_FALSE(run.threw_text) << run.thrown;
  EXPECT_THAT(run.lines, Contains("CRfcStructParam::CRfcStructParam(CSTR paramName...) called"));
}

TEST_F(AutoCreationTest, ARefusedRegistrationFailsTheParameterSetUp) {
  auto connection = Connection("46C");
  // Registered in the long layout; a short partner needs a new registration.
  CRfcGetFunctionInterface::RegisterParamsTypes(true);
  fake().install_result = 1;
  auto old = Connection("31I");
  auto run = rfc_test::RunTraced([&] { CRfcClientFunc function(old.get(), "Z_ANY", 1); });
  EXPECT_EQ(run.thrown, "Failure to create parameters for RFC_GET_FUNCTION_INTERFACE");
  ASSERT_EQ(run.lines.size(), 6u);
  EXPECT_EQ(run.lines[4], "Failure to create parameters for RFC_GET_FUNCTION_INTERFACE");
  EXPECT_EQ(run.lines[5], "Z_ANY");
  EXPECT_EQ(fake().Count("RfcCall"), 0u);
  // The registration kept its layout: the long partner needs nothing new.
  fake().install_result = 0;
  fake().installs.clear();
  EXPECT_EQ(CRfcGetFunctionInterface::RegisterParamsTypes(true),
            CRfcGetFunctionInterface::RegisterParamsTypes(true));
  EXPECT_TRUE(fake().installs.empty());
  try {
    fake().install_result = 1;
    CRfcGetStructureDefinition::RegisterFieldsTypes(true);
    CRfcGetStructureDefinition::RegisterFieldsTypes(false);
    ADD_FAILURE() << "no throw";
  } catch (const char* text) {
    EXPECT_STREQ(text, "RfcInstallStructure failed!");
  }
}

TEST_F(AutoCreationTest, AParamsTableThatCannotBeCreatedFailsTheSetUp) {
  auto connection = Connection("46C");
  fake().itcreate_failures = 1;
  auto run = rfc_test::RunTraced([&] { CRfcClientFunc function(connection.get(), "Z_ANY", 1); });
  EXPECT_EQ(run.thrown, "Failure to create parameters for RFC_GET_FUNCTION_INTERFACE");
  EXPECT_THAT(run.lines, Contains("ItCreate Failure!"));
  EXPECT_EQ(run.lines.back(), "Z_ANY");
}

TEST_F(AutoCreationTest, AnExceptionOfTheRepositoryIsThrownAsItsName) {
  auto connection = Connection("46C");
  static char not_found[] = "FU_NOT_FOUND";
  fake().receive_by_function["RFC_GET_FUNCTION_INTERFACE"] = [](RfcParameterEntry*,
                                                                RfcTableEntry*, char** exception) {
    *exception = not_found;
    return RFC_EXCEPTION;
  };
  auto run = rfc_test::RunTraced([&] { CRfcClientFunc function(connection.get(), "Z_NONE", 1); });
  EXPECT_EQ(run.thrown, "FU_NOT_FOUND");
  ASSERT_GE(run.lines.size(), 7u);
  const size_t n = run.lines.size();
  EXPECT_EQ(run.lines[n - 3], "RFC_GET_FUNCTION_INTERFACE CallReceive failed");
  EXPECT_EQ(run.lines[n - 2], "Z_NONE");
  EXPECT_EQ(run.lines[n - 1], "FU_NOT_FOUND");
  EXPECT_TRUE(fake().tables.empty());  // PARAMS went with the reader
}

TEST_F(AutoCreationTest, ALibraryErrorOfTheRepositoryCallIsThrownOn) {
  auto connection = Connection("46C");
  fake().call_result = 1;
  std::strcpy(fake().last_error.key, "RFC_ERROR_SYSTEM_FAILURE_X");
  std::strcpy(fake().last_error.status, "ST");
  std::strcpy(fake().last_error.message, "gone");
  RFC_ERROR_INFO caught{};
  auto run = rfc_test::RunTraced([&] {
    try {
      CRfcClientFunc function(connection.get(), "Z_NONE", 1);
    } catch (const RFC_ERROR_INFO& error) {
      caught = error;
    }
  });
  EXPECT_STREQ(caught.key, "RFC_ERROR_SYSTEM_FAILURE_X");
  const size_t n = run.lines.size();
  ASSERT_GE(n, 5u);
  EXPECT_EQ(run.lines[n - 5], "RFC_GET_FUNCTION_INTERFACE CallReceive failed");
  EXPECT_EQ(run.lines[n - 4], "Z_NONE");
  EXPECT_EQ(run.lines[n - 3], "Key:    RFC_ERROR_SYSTEM_FAILU");
  EXPECT_EQ(run.lines[n - 2], "Status: S");
  EXPECT_EQ(run.lines[n - 1], "Message:gone");
  EXPECT_TRUE(fake().tables.empty());
}

TEST_F(AutoCreationTest, AMissingLineOfTheAnswerIsReported) {
  Dictionary dictionary = ReadTableDictionary(true);
  rfc_function_test::Answer(dictionary);
  fake().missing_lines[2] = true;
  auto connection = Connection("46C");
  auto run = rfc_test::RunTraced([&] { CRfcClientFunc function(connection.get(), "Z_T", 1); });
  EXPECT_EQ(run.thrown, "ItGetLine Failure!");
  // The parameter made from line 1 is deleted with the failed function (the
  // sanitizer build checks for leaks).

  fake().Reset();
  dictionary.params.clear();
  rfc_function_test::Answer(dictionary);
  fake().missing_lines[3] = true;
  auto structure = rfc_test::RunTraced([&] {
    CRfcStructParam param("P", 0, 1, connection.get(), "RS_DBFIELD");
  });
  EXPECT_EQ(structure.thrown, "ItGetLine Failure!");
}

TEST_F(AutoCreationTest, AStructureThePartnerDoesNotKnowFailsItsParameter) {
  Dictionary dictionary;
  dictionary.params = {{"I", "FIRST", "SIMPLE", "FIRST", "C", 4},
                       {"I", "SETTINGS", "ZMISSING", "", "u", 10}};
  rfc_function_test::Answer(dictionary);
  auto connection = Connection("46C");
  auto run = rfc_test::RunTraced([&] { CRfcClientFunc function(connection.get(), "Z_S", 1); });
  EXPECT_EQ(run.thrown, "Failure to create parameters for RFC_GET_FUNCTION_INTERFACE");
  const size_t n = run.lines.size();
  ASSERT_GE(n, 3u);
  EXPECT_EQ(run.lines[n - 3], "CRfcClienFunc, auto-creation of structure param failed");
  EXPECT_EQ(run.lines[n - 2], "Z_S");
  EXPECT_EQ(run.lines[n - 1], "SETTINGS");
  EXPECT_THAT(run.lines, Contains("RFC_GET_STRUCTURE_DEFINITION CallReceive failed"));
  EXPECT_THAT(run.lines, Contains("TABLE_NOT_ACTIVE"));

  // A table of such a structure fails the same way with its own line.
  dictionary.params = {{"T", "ROWS", "ZMISSING", "", "h", 10}};
  rfc_function_test::Answer(dictionary);
  auto table = rfc_test::RunTraced([&] { CRfcClientFunc function(connection.get(), "Z_T", 1); });
  EXPECT_EQ(table.thrown, "Failure to create parameters for RFC_GET_FUNCTION_INTERFACE");
  EXPECT_EQ(table.lines[table.lines.size() - 3],
            "CRfcClienFunc, auto-creation of table param failed");
}

TEST_F(AutoCreationTest, AFailingSimpleImportThrowsTheShortText) {
  Dictionary dictionary;
  dictionary.params = {{"I", "NAME", "SIMPLE", "NAME", "C", 8}};
  auto connection = Connection("46C");
  auto found = FirstFailureWhere(
      [&] {
        rfc_function_test::Answer(dictionary);
        CRfcClientFunc function(connection.get(), "Z_IMPORT", 1);
      },
      [](const rfc_test::TracedRun& run) {
        return std::find(run.lines.begin(), run.lines.end(),
                         "CRfcClienFunc, auto-creation of simple param failed") != run.lines.end();
      });
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->thrown, "Failure to create parameters");
  const size_t n = found->lines.size();
  EXPECT_EQ(found->lines[n - 2], "Z_IMPORT");
  EXPECT_EQ(found->lines[n - 1], "NAME");

  dictionary.params = {{"E", "NAME", "SIMPLE", "NAME", "C", 8}};
  auto exported = FirstFailureWhere(
      [&] {
        rfc_function_test::Answer(dictionary);
        CRfcClientFunc function(connection.get(), "Z_EXPORT", 1);
      },
      [](const rfc_test::TracedRun& run) {
        return std::find(run.lines.begin(), run.lines.end(),
                         "CRfcClienFunc, auto-creation of simple param failed") != run.lines.end();
      });
  ASSERT_TRUE(exported.has_value());
  EXPECT_EQ(exported->thrown, "Failure to create parameters for RFC_GET_FUNCTION_INTERFACE");
}

TEST_F(AutoCreationTest, AFailureInsideAddFieldInfoIsReportedAsSuch) {
  Dictionary dictionary;
  dictionary.structures = {{"ZPAIR",
                            {{"ZPAIR", "KEY", 1, 0, 4, 0, "C"},
                             {"ZPAIR", "COUNT", 2, 4, 4, 0, "I"}}}};
  auto connection = Connection("46C");
  auto found = FirstFailureWhere(
      [&] {
        rfc_function_test::Answer(dictionary);
        CRfcStructParam param("P", 0, 1, connection.get(), "ZPAIR");
      },
      [](const rfc_test::TracedRun& run) { return run.thrown == "Failure from AddFieldInfo"; });
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->lines.back(), "Failure from AddFieldInfo");
}

TEST_F(AutoCreationTest, ReadersThatCannotBeAllocatedAreReported) {
  Dictionary dictionary;
  dictionary.structures = {{"ZPAIR", {{"ZPAIR", "KEY", 1, 0, 4, 0, "C"}}}};
  auto connection = Connection("46C");
  auto structure = FirstFailureWhere(
      [&] {
        rfc_function_test::Answer(dictionary);
        CRfcStructParam param("P", 0, 1, connection.get(), "ZPAIR");
      },
      [](const rfc_test::TracedRun& run) {
        return run.thrown == "Failure to auto-create structure parameter";
      });
  ASSERT_TRUE(structure.has_value());
  ASSERT_EQ(structure->lines.size(), 7u);
  EXPECT_EQ(structure->lines[5], "CRfcStructParam::CRfcStructParam(CSTR paramName...) called");
  EXPECT_EQ(structure->lines[6], "Failure to auto-create structure parameter");

  auto table = FirstFailureWhere(
      [&] {
        rfc_function_test::Answer(dictionary);
        CRfcTableParam param("T", 0, 0, 1, connection.get(), "ZPAIR");
      },
      [](const rfc_test::TracedRun& run) {
        return run.thrown == "Failure to auto-create table parameter";
      });
  ASSERT_TRUE(table.has_value());

  auto function = FirstFailureWhere(
      [&] { CRfcClientFunc described(connection.get(), "Z_ANY", 1); },
      [](const rfc_test::TracedRun& run) {
        return run.thrown == "Auto-creation of client function object failed";
      });
  ASSERT_TRUE(function.has_value());
}

TEST_F(AutoCreationTest, EveryAllocationFailureEndsInACleanException) {
  // Each allocation of a whole auto-creation fails once in turn: every run
  // ends in a thrown text or completes, and nothing leaks (sanitizer build).
  Dictionary dictionary = ReadTableDictionary(true);
  dictionary.params.push_back({"E", "RESULT", "RS_OPTION", "", "u", 72});
  auto connection = Connection("46C");
  int failures = 0;
  for (int k = 0;; ++k) {
    ASSERT_LT(k, 5000);
    Fake().Reset();
    rfc_function_test::Answer(dictionary);
    bool unused = false;
    auto run = rfc_test::RunTraced([&] {
      rfc::testing::FailAllocations(k, 1);
      try {
        CRfcClientFunc function(connection.get(), "RFC_READ_TABLE", 1);
      } catch (const char*) {
        rfc::testing::ClearAllocationFaults();
        throw;
      }
      unused = rfc::testing::PendingAllocationFaults() > 0;
      rfc::testing::ClearAllocationFaults();
    });
    if (unused) break;
    if (run.threw_text) ++failures;
  }
  EXPECT_GT(failures, 20);
}

}  // namespace
