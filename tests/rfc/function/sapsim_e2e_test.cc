// The class library against a simulated SAP system: librfcsim.so is loaded
// through LoadRfcLibrary as the batch server loads its RFC library, and each
// test starts its own sapsim.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/core/rfc_trace.h"
#include "rfc/function/rfc_client_func.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/rfc/function/sapsim_runner.h"

namespace {

using rfc_function_test::SapsimRunner;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

// A small system: the customer table with two rows and a structure with a
// FLOAT after three characters. Names fit the short layout (10 characters).
std::string System(const std::string& release, const std::string& kernel = "46D") {
  return R"({
  "system_id": "DEV", "release": ")" + release + R"(", "kernel_release": ")" + kernel + R"(",
  "host": "simhost",
  "logon": [{"client": "100", "user": "BATCH", "password": "secret"}],
  "groups": ["PUBLIC"],
  "structures": {
    "ZBATCHES": [
      {"name": "MANDT", "type": "C", "length": 3},
      {"name": "FUNCTION", "type": "C", "length": 30},
      {"name": "ACTIVE", "type": "C", "length": 1}
    ],
    "ZMEASURE": [
      {"name": "UNIT", "type": "C", "length": 3},
      {"name": "VALUE", "type": "F"},
      {"name": "NOTE", "type": "C", "length": 5}
    ]
  },
  "tables": {
    "ZBATCHES": [
      {"MANDT": "100", "FUNCTION": "Z_BATCH_ORDERS", "ACTIVE": "Y"},
      {"MANDT": "100", "FUNCTION": "Z_BATCH_LOWER", "ACTIVE": "y"}
    ],
    "ZMEASURE": [{"UNIT": "KG", "VALUE": 2.5, "NOTE": "x"}]
  }
})";
}

class SapsimE2eTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_TRUE(LoadRfcLibrary(rfc_function_test::BuildFile("lib/librfcsim.so").c_str()));
  }
  void SetUp() override { GetRfcTrace().SetTraceOn(0); }

  static CRfcLogonInfo Logon(const char* password = "secret") {
    CRfcLogonInfo logon;
    logon.client = "100";
    logon.user = "BATCH";
    logon.password = password;
    logon.language = "E";
    return logon;
  }
  // Mode 0 through the system's gateway port.
  static CRfcConnInfo ModeZero(const SapsimRunner& system) {
    CRfcConnInfo info;
    info.mode = 0;
    info.destination = "SAPSIM";
    info.host = "127.0.0.1";
    info.gateway_host = "127.0.0.1";
    info.gateway_service = system.port_text().c_str();
    return info;
  }
  static std::unique_ptr<CRfcConnection> OpenTo(const SapsimRunner& system) {
    auto connection = std::make_unique<CRfcConnection>();
    connection->SetLogonInfo(Logon());
    connection->SetConnInfo(ModeZero(system));
    connection->Open();
    return connection;
  }

  // The text of column `column` of every line of `table`.
  static std::vector<std::string> Column(const CRfcTableParam& table, int column) {
    std::vector<std::string> values;
    const TableHandle handle = table.GetTableHandle();
    const unsigned count = handle != nullptr ? ItFill(handle) : 0;
    for (unsigned n = 1; n <= count; ++n) {
      const char* text = table.GetData(ItGetLine(handle, n), column);
      values.push_back(text != nullptr ? text : "");
    }
    return values;
  }

  // An auto-created RFC_READ_TABLE, called for `table` with delimiter "|".
  static int ReadTable(CRfcClientFunc& function, const char* table, char*& exception) {
    CRfcImpExpParam* query = function.FindImpExp(function.GetImports(), "query_table");
    CRfcImpExpParam* delimiter = function.FindImpExp(function.GetImports(), "DELIMITER");
    EXPECT_NE(query, nullptr);
    EXPECT_NE(delimiter, nullptr);
    if (query == nullptr || delimiter == nullptr) return -1;
    query->Value() = table;
    query->SetActive(1);
    delimiter->Value() = "|";
    delimiter->SetActive(1);
    return function.CallReceive(exception, 0);
  }

  static void ExpectBatchesRead(CRfcClientFunc& function) {
    char* exception = nullptr;
    ASSERT_EQ(ReadTable(function, "ZBATCHES", exception), 0);
    CRfcTableParam* data = function.FindTable(function.GetTables(), "DATA");
    CRfcTableParam* fields = function.FindTable(function.GetTables(), "FIELDS");
    ASSERT_NE(data, nullptr);
    ASSERT_NE(fields, nullptr);
    EXPECT_THAT(Column(*data, 0),
                ElementsAre("100|Z_BATCH_ORDERS                |Y",
                            "100|Z_BATCH_LOWER                 |y"));
    EXPECT_THAT(Column(*fields, 0), ElementsAre("MANDT", "FUNCTION", "ACTIVE"));
    // OFFSET of each field in the DATA line, delimiters skipped.
    EXPECT_THAT(Column(*fields, 1), ElementsAre("000000", "000004", "000035"));
  }
};

TEST_F(SapsimE2eTest, OpensInModeZeroAndReadsTheReleaseFromTheAttributes) {
  SapsimRunner system(System("46C"), false);
  auto connection = OpenTo(system);
  ASSERT_NE(connection->GetHandle(), 0u);
  EXPECT_EQ(connection->OwnsHandle(), 1);
  EXPECT_STREQ(static_cast<const char*>(connection->GetRelease()), "46C");
  EXPECT_EQ(connection->Ping(), connection->GetHandle());
  EXPECT_THAT(system.Log(), HasSubstr("RFCPING"));
  EXPECT_THAT(system.Log(), Not(HasSubstr("RFC_GET_SAP_SYSTEM_PARAMETERS")));
  connection->Close();
  EXPECT_EQ(connection->GetHandle(), 0u);
}

TEST_F(SapsimE2eTest, AnEmptyReleaseIsAskedThroughTheSystemParameters) {
  SapsimRunner system(System("", "46D"), false);
  auto connection = OpenTo(system);
  ASSERT_NE(connection->GetHandle(), 0u);
  EXPECT_THAT(system.Log(), HasSubstr("RFC_GET_SAP_SYSTEM_PARAMETERS"));
  // The system's own answer is its (empty) release.
  EXPECT_STREQ(static_cast<const char*>(connection->GetRelease()), "");
}

TEST_F(SapsimE2eTest, OpensThroughTheMessageServer) {
  SapsimRunner system(System("46C"), true);
  ASSERT_EQ(setenv("RFCSIM_MS_PORT", std::to_string(system.ms_port()).c_str(), 1), 0);
  CRfcConnection connection;
  connection.SetLogonInfo(Logon());
  CRfcConnInfo info;
  info.message_server_host = "127.0.0.1";
  info.system_name = "DEV";
  info.group = "PUBLIC";
  connection.SetConnInfo(info);
  connection.OpenLoadBalanced();
  EXPECT_NE(connection.GetHandle(), 0u);
  EXPECT_EQ(connection.GetConnInfo().mode, 3);
  EXPECT_STREQ(static_cast<const char*>(connection.GetRelease()), "46C");

  // An unknown group is refused by the message server.
  CRfcConnection refused;
  refused.SetLogonInfo(Logon());
  info.group = "NOSUCH";
  refused.SetConnInfo(info);
  EXPECT_THROW(refused.OpenLoadBalanced(), RFC_ERROR_INFO);
  EXPECT_EQ(refused.GetHandle(), 0u);
}

TEST_F(SapsimE2eTest, ARefusedLogonIsThrownAsTheLibrarysError) {
  SapsimRunner system(System("46C"), false);
  CRfcConnection connection;
  connection.SetLogonInfo(Logon("wrong"));
  connection.SetConnInfo(ModeZero(system));
  try {
    connection.Open();
    ADD_FAILURE() << "no exception";
  } catch (const RFC_ERROR_INFO& error) {
    EXPECT_THAT(std::string(error.message), HasSubstr("name or password is incorrect"));
  }
  EXPECT_EQ(connection.GetHandle(), 0u);
}

TEST_F(SapsimE2eTest, AnAutoCreatedReadTableReadsATableOfTheSystem) {
  for (const char* release : {"46C", "31I"}) {
    SapsimRunner system(System(release), false);
    auto connection = OpenTo(system);
    CRfcClientFunc function(connection.get(), "RFC_READ_TABLE", 1);
    EXPECT_EQ(function.GetImports().GetCount(), 5) << release;
    EXPECT_EQ(function.GetTables().GetCount(), 3) << release;
    ExpectBatchesRead(function);
    // A second call gives the same table again (the partner empties it first).
    ExpectBatchesRead(function);
  }
}

TEST_F(SapsimE2eTest, AnExceptionOfThePartnerIsCodeTwo) {
  SapsimRunner system(System("46C"), false);
  auto connection = OpenTo(system);
  CRfcClientFunc function(connection.get(), "RFC_READ_TABLE", 1);
  char* exception = nullptr;
  EXPECT_EQ(ReadTable(function, "ZNOTHERE", exception), 2);
  ASSERT_NE(exception, nullptr);
  EXPECT_STREQ(exception, "TABLE_NOT_AVAILABLE");
  // The function goes on working.
  ExpectBatchesRead(function);
}

TEST_F(SapsimE2eTest, ParametersDescribeThemselvesOnOldAndNewPartnersInTurn) {
  SapsimRunner modern(System("46C"), false);
  SapsimRunner old(System("31I"), false);
  auto to_modern = OpenTo(modern);
  auto to_old = OpenTo(old);
  ASSERT_STREQ(static_cast<const char*>(to_old->GetRelease()), "31I");
  // Alternating partners make both line structures change their layout.
  for (CRfcConnection* connection : {to_modern.get(), to_old.get(), to_modern.get(),
                                     to_old.get()}) {
    CRfcStructParam answer("ret", 0, 1, connection, "RS_RETURN");
    EXPECT_EQ(answer.GetFieldCount(), 4);
    EXPECT_EQ(answer.GetLength(), 1 + 20 + 3 + 220);
    EXPECT_STREQ(answer.GetFieldInfo(3)->name, "MESSAGE");
    EXPECT_NE(answer.GetTypeHandle(), CRfcStructInfo::kNoTypeHandle);

    CRfcTableParam measures("measures", 0, 0, 1, connection, "ZMEASURE");
    EXPECT_EQ(measures.GetFieldInfo(1)->offset, 8);
    EXPECT_EQ(measures.GetLineLength(), 24);

    CRfcClientFunc function(connection, "RFC_READ_TABLE", 1);
    ExpectBatchesRead(function);
  }
}

TEST_F(SapsimE2eTest, APartnerThatGoesAwayDuringACall) {
  auto system = std::make_unique<SapsimRunner>(System("46C"), false);
  auto connection = OpenTo(*system);
  auto function = std::make_unique<CRfcClientFunc>(connection.get(), "RFC_READ_TABLE", 1);

  // The system stops answering, the call is under way, then the system dies.
  system->Pause();
  bool library_error = false;
  std::thread caller([&] {
    char* exception = nullptr;
    try {
      ReadTable(*function, "ZBATCHES", exception);
    } catch (const RFC_ERROR_INFO&) {
      library_error = true;
    }
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  system->Kill();
  caller.join();
  EXPECT_TRUE(library_error);
  EXPECT_NE(function->GetLastReturnCode(), 0);
  EXPECT_EQ(connection->Ping(), 0u);

  // The function still works on a new connection, and goes cleanly.
  SapsimRunner replacement(System("46C"), false);
  auto reconnected = OpenTo(replacement);
  function->SetConnection(reconnected.get());
  ExpectBatchesRead(*function);
  function.reset();
  connection.reset();
}

}  // namespace
