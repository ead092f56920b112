// The class library against a simulated SAP system (librfcsim.so, loaded as
// the batch server loads its RFC library): partners of old, new and unknown
// releases, and an exception of the partner.

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/function/rfc_client_func.h"
#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/sapsim/support/rfc_library.h"
#include "tests/sapsim/support/sapsim_process.h"

namespace {

using sapsim::testing::SapsimProcess;
using ::testing::HasSubstr;

// The customer table with two rows and a structure with a FLOAT after three
// characters (data/system.json, its release filled in); names fit the short layout.
struct System {
  explicit System(const std::string& release) {
    std::string text = testutil::ReadBytes(testutil::SourceDir() + "/tests/rfc/function/data/system.json");
    text.replace(text.find("@RELEASE@"), 9, release);
    SapsimProcess::Options options;
    options.system_file = dir.Write("system.json", text);
    process = std::make_unique<SapsimProcess>(options);
    connection.SetLogonInfo({"100", "BATCH", "secret", "E"});
    connection.SetConnInfo({0, 0, "RELEASEUNKNOWN", 0, "SAPSIM", "127.0.0.1", "127.0.0.1",
                            process->port_text().c_str(), 0, "", "", ""});
    connection.Open();
  }
  CRfcConnection connection;
  sapsim::testing::TempDir dir;
  std::unique_ptr<SapsimProcess> process;
};

// Reads `table` with an auto-created RFC_READ_TABLE; the lines of DATA.
std::vector<std::string> ReadTable(CRfcClientFunc& function, const char* table, int expected_rc) {
  CRfcImpExpParam* query = function.FindImpExp(function.GetImports(), "query_table");
  CRfcImpExpParam* delimiter = function.FindImpExp(function.GetImports(), "DELIMITER");
  if (query == nullptr || delimiter == nullptr) return {"<no parameter>"};
  query->Value() = table;
  query->SetActive(1);
  delimiter->Value() = "|";
  delimiter->SetActive(1);
  char* exception = nullptr;
  EXPECT_EQ(function.CallReceive(exception, 0), expected_rc);
  EXPECT_STREQ(exception, expected_rc == 2 ? "TABLE_NOT_AVAILABLE" : nullptr);
  std::vector<std::string> lines;
  CRfcTableParam* data = function.FindTable(function.GetTables(), "DATA");
  const TableHandle handle = data->GetTableHandle();
  for (unsigned n = 1; handle != nullptr && n <= ItFill(handle); ++n) {
    lines.push_back(static_cast<const char*>(data->GetData(ItGetLine(handle, n), 0)));
  }
  return lines;
}

TEST(SapsimE2eTest, PartnersOfOldAndNewReleasesInTurn) {
  ASSERT_TRUE(LoadRfcLibrary(sapsim::testing::LibraryPath().c_str()));
  System modern("46C"), old("31I"), unknown("");
  ASSERT_STREQ(static_cast<const char*>(old.connection.GetRelease()), "31I");
  EXPECT_EQ(modern.connection.Ping(), modern.connection.GetHandle());
  // Alternating partners make both line structures change their layout.
  for (CRfcConnection* connection : {&modern.connection, &old.connection, &modern.connection, &old.connection}) {
    CRfcStructParam answer("ret", 0, 1, connection, "RS_RETURN");
    EXPECT_EQ(answer.GetLength(), 1 + 20 + 3 + 220);
    EXPECT_STREQ(answer.GetFieldInfo(3)->name, "MESSAGE");
    CRfcTableParam measures("measures", 0, 0, 1, connection, "ZMEASURE");
    EXPECT_EQ(measures.GetFieldInfo(1)->offset, 8);
    EXPECT_EQ(measures.GetLineLength(), 24);

    CRfcClientFunc function(connection, "RFC_READ_TABLE", 1);
    EXPECT_EQ(function.GetTables().GetCount(), 3);
    // An exception of the partner is code 2, and the function goes on working;
    // a second read gives the same lines (the partner empties DATA first).
    ReadTable(function, "ZNOTHERE", 2);
    for (int twice = 0; twice < 2; ++twice) {
      EXPECT_THAT(ReadTable(function, "ZBATCHES", 0), ::testing::ElementsAre("100|Z_BATCH_ORDERS", "100|Z_BATCH_LOWER"));
    }
  }
  // Only an empty release is asked through the system parameters.
  EXPECT_THAT(modern.process->Log(), ::testing::Not(HasSubstr("RFC_GET_SAP_SYSTEM_PARAMETERS")));
  EXPECT_THAT(unknown.process->Log(), HasSubstr("RFC_GET_SAP_SYSTEM_PARAMETERS"));
  EXPECT_STREQ(static_cast<const char*>(unknown.connection.GetRelease()), "");
}

}  // namespace
