// Connections against the stand-in library: modes and their option blocks, the
// open and its trace lines, the open lock, the ping, closing only what was
// opened, accepting, the partner's release, the system information, and the
// default transform.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/core/rfc_error.h"
#include "rfc/function/rfc_client_func.h"
#include "rfc/function/rfc_meta_dump.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/rfc/rfc_test_support.h"

namespace {

using rfc_test::Fake;
using rfc_test::StandInTest;
using ::testing::ElementsAre;
using ::testing::StartsWith;

const auto kHeader = StartsWith("Rfc Class Library Trace at   ");

class ConnectionTest : public StandInTest {
 protected:
  static CRfcLogonInfo Logon() { return {"100", "BATCH", "secret", "E"}; }
  // Every field set; a known release, so no release query follows the open.
  static CRfcConnInfo Info(int mode) {
    return {mode, 5, "46C", 0, "DEST", "apphost", "gwhost", "3300", 7, "DEV", "mshost", "PUBLIC"};
  }
  std::vector<ConnectionHandle> Closed() {
    std::vector<ConnectionHandle> handles;
    for (const auto& call : fake().CallsOf("RfcClose")) handles.push_back(call.handle);
    return handles;
  }
  // RFC_SYSTEM_INFO, described and answered: RFCSI {SYSID DEV, SAPREL 46C,
  // PORT 3300} and CURRENT_RESOURCES 9.
  static void ScriptSystem() {
    rfc_test::Answer({{{"E", "RFCSI_EXPORT", "RFCSI", "", "u", 20},
                       {"E", "CURRENT_RESOURCES", "SIMPLE", "CURRENT_RESOURCES", "I", 4}},
                      {{"RFCSI",
                        {{"RFCSI", "SYSID", 1, 0, 8, 0, "C"}, {"RFCSI", "SAPREL", 2, 8, 4, 0, "C"},
                         {"RFCSI", "PORT", 3, 12, 4, 0, "I"}}}}});
    Fake().receive_by_function["RFC_SYSTEM_INFO"] = [](RfcParameterEntry* exports, RfcTableEntry*, char**) {
      std::memcpy(exports[0].address, "DEV     46C ", 12);
      const int32_t port = 3300, resources = 9;
      std::memcpy(static_cast<char*>(exports[0].address) + 12, &port, 4);
      std::memcpy(exports[1].address, &resources, 4);
      return 0;
    };
  }
  static std::unique_ptr<CRfcConnection> Prepared(const CRfcConnInfo& info) {
    auto connection = std::make_unique<CRfcConnection>();
    connection->SetLogonInfo(Logon());
    connection->SetConnInfo(info);
    return connection;
  }
};

TEST_F(ConnectionTest, EachModeOpensWithItsOptionBlock) {
  auto run = rfc_test::RunTraced([] { CRfcConnection traced; });
  EXPECT_THAT(run.lines, ElementsAre("CRfcConnection::CRfcConnection(void) called"));

  struct Case {
    int mode;
    std::function<void(CRfcConnInfo&)> change;
    const char* block;  // nullptr: nothing is opened
  };
  auto none = [](CRfcConnInfo&) {};
  const Case cases[] = {
      {0, none, "0: apphost 7 gwhost 3300"}, {0, [](CRfcConnInfo& i) { i.gateway_service = ""; }, "0: none"},
      {1, none, "1: gwhost 3300"}, {1, [](CRfcConnInfo& i) { i.gateway_host = static_cast<const char*>(nullptr); }, "1: none"},
      {3, none, "3: apphost 7 lb0 -   5 0"}, {3, [](CRfcConnInfo& i) { i.host = ""; }, "3: none"},
      {4, none, "4: none"}, {2, none, nullptr}, {5, none, nullptr}, {-1, none, nullptr},
  };
  for (const Case& c : cases) {
    fake().Reset();
    CRfcConnInfo info = Info(c.mode);
    c.change(info);
    auto connection = Prepared(info);
    connection->Open();
    if (c.block == nullptr) {
      EXPECT_TRUE(fake().opens.empty()) << c.mode;
      EXPECT_EQ(connection->GetHandle(), 0u);
      continue;
    }
    // Every open is pinged; an open connection is not opened again.
    EXPECT_EQ(fake().calls.at(0).function, "RFCPING");
    connection->Open();
    ASSERT_EQ(fake().opens.size(), 1u) << c.block;
    EXPECT_EQ(fake().opens[0].block, c.block);
    EXPECT_EQ(connection->GetHandle() * 10 + static_cast<unsigned>(connection->OwnsHandle()), 71u);
    EXPECT_EQ(fake().opens[0].logon, "DEST 100 BATCH secret E");  // the password as stored
    EXPECT_EQ(fake().opens[0].trace, 0);
  }
}

TEST_F(ConnectionTest, TheMessageServerIsUsedWhenItsFieldsAreSet) {
  auto connection = Prepared(Info(0));
  connection->OpenLoadBalanced();
  ASSERT_EQ(fake().opens.size(), 1u);
  EXPECT_EQ(fake().opens[0].block, "3: - 0 lb1 mshost DEV PUBLIC 0 0");
  EXPECT_EQ(connection->GetConnInfo().mode, 3);
  EXPECT_EQ(fake().Count("RfcCall"), 2u);  // pinged by the open and once more
  // Open already: only the ping, and a failed one throws.
  fake().call_result = 1;
  EXPECT_THROW(connection->OpenLoadBalanced(), RFC_ERROR_INFO);
  EXPECT_EQ(fake().opens.size(), 1u);

  fake().call_result = 0;
  CRfcConnInfo info = Info(0);
  info.group = "";
  auto without = Prepared(info);
  without->SetTraceFlag(1);
  without->OpenViaMessageServer();
  EXPECT_EQ(fake().opens.back().block, "4: none");
  EXPECT_EQ(fake().opens.back().trace, 1);
  EXPECT_EQ(without->GetConnInfo().mode, 4);
}

TEST_F(ConnectionTest, OpeningIsTracedBeforeAFailureAndAfterASuccess) {
  fake().open_result = 0;
  fake().SetLastError("RFC_ERROR_LOGON_FAILURE", "refused!", "name or password is incorrect");
  auto connection = Prepared(Info(0));
  for (bool trace_on : {true, false}) {
    RFC_ERROR_INFO caught{};
    auto run = rfc_test::RunTraced(
        [&] {
          try {
            connection->Open();
          } catch (const RFC_ERROR_INFO& error) {
            caught = error;
          }
        },
        trace_on);
    EXPECT_STREQ(caught.message, "name or password is incorrect");
    EXPECT_EQ(connection->GetHandle() + static_cast<unsigned>(connection->OwnsHandle()), 0u);
    EXPECT_EQ(run.file_exists, trace_on);
    if (trace_on) {
      EXPECT_THAT(run.lines, ElementsAre("", "", "", kHeader, "CRfcConnection::DoOpen (void *) failed!!", "DEST",
                                         "100", "BATCH", "Key:    RFC_ERROR_LOGON_FAI", "Status: refused",
                                         "Message:name or password is incorrect"));
    }
  }
  fake().open_result = 7;
  auto run = rfc_test::RunTraced([&] { connection->Open(); });
  // The ping's call first, then the open's own entry.
  EXPECT_THAT(run.lines, ::testing::Contains("RFCPING"));
  EXPECT_THAT(rfc_test::Tail(run, 6),
              ElementsAre(kHeader, "CRfcConnection::DoOpen (void *) called",
                          "Opening connection to: ", "DEST", "100", "BATCH"));
  CRfcConnInfo unnamed = Info(0);
  unnamed.destination = static_cast<const char*>(nullptr);  // traced as an empty line
  auto bare = Prepared(unnamed);
  EXPECT_THAT(rfc_test::Tail(rfc_test::RunTraced([&] { bare->Open(); }), 3), ElementsAre("", "100", "BATCH"));
}

TEST_F(ConnectionTest, OpensOfAllThreadsAreSerialisedAndSpaced) {
  fake().open_sleep_ms = 5;
  std::vector<std::thread> threads(4);
  for (std::thread& thread : threads) thread = std::thread([] { Prepared(Info(0))->Open(); });
  for (std::thread& thread : threads) thread.join();
  ASSERT_EQ(fake().opens.size(), 4u);
  EXPECT_EQ(fake().most_opens_at_once, 1);
  // Each open starts no earlier than 20 ms after the one before returned.
  for (size_t i = 1; i < fake().opens.size(); ++i) {
    const auto gap = fake().opens[i].started - fake().opens[i - 1].returned;
    EXPECT_GE(std::chrono::duration_cast<std::chrono::milliseconds>(gap).count(), 20);
  }
}

TEST_F(ConnectionTest, PingAnswersTheHandleOrZero) {
  CRfcConnection connection;
  EXPECT_EQ(connection.Ping(), 0u);  // not open: nothing is called
  EXPECT_TRUE(fake().calls.empty());
  connection.AttachHandle(12);
  EXPECT_EQ(connection.Ping(), 12u);
  fake().call_result = 1;
  EXPECT_EQ(connection.Ping(), 0u);
  EXPECT_EQ(connection.GetHandle(), 12u);  // other failures keep it
  fake().call_result = 0;
  static char raised[] = "SOMETHING";
  fake().receive = rfc_test::Raising(raised);
  EXPECT_EQ(connection.Ping(), 0u);
  auto run = rfc_test::RunTraced([&] {
    rfc::testing::FailNextAllocation();
    EXPECT_EQ(connection.Ping(), 0u);
  });
  EXPECT_THAT(run.lines, ElementsAre("Failed to allocate memory!"));
  fake().receive = [](RfcParameterEntry*, RfcTableEntry*, char**) { return RFC_CLOSED; };
  EXPECT_EQ(connection.Ping(), 0u);
  EXPECT_EQ(connection.GetHandle(), 0u);  // closed: forgotten without RfcClose
  EXPECT_TRUE(fake().CallsOf("RfcClose").empty());
  // Only the library's error record means a failed ping; a text passes on.
  connection.AttachHandle(12);
  fake().receive = [](RfcParameterEntry*, RfcTableEntry*, char**) -> int {
    throw "Failed to get pointer to function: RfcReceive";
  };
  EXPECT_EQ(rfc_test::Thrown([&] { connection.Ping(); }), "Failed to get pointer to function: RfcReceive");

  // A failed first ping throws; the handle stays and is closed later.
  fake().receive = [](RfcParameterEntry*, RfcTableEntry*, char**) { return RFC_SYS_EXCEPTION; };
  auto opened = Prepared(Info(0));
  EXPECT_THROW(opened->Open(), RFC_ERROR_INFO);
  EXPECT_EQ(opened->GetHandle(), 7u);
  opened.reset();
  EXPECT_THAT(Closed(), ElementsAre(7u));
}

TEST_F(ConnectionTest, CloseClosesOnlyWhatItOpenedOrAccepted) {
  CRfcConnection borrowed;
  borrowed.AttachHandle(33);
  borrowed.Close();
  EXPECT_EQ(borrowed.GetHandle(), 33u);
  EXPECT_TRUE(fake().CallsOf("RfcClose").empty());

  auto connection = Prepared(Info(0));
  connection->Open();
  auto closing = rfc_test::RunTraced([&] { connection->Close(); });
  EXPECT_THAT(closing.lines,
              ElementsAre("", "", "", kHeader, "CRfcConnection::Close(void) called"));
  EXPECT_EQ(connection->GetHandle(), 0u);
  connection->Open();
  connection->SetConnInfo(Info(0));  // new records close first
  connection->Open();
  connection->SetLogonInfo(Logon());
  EXPECT_THAT(Closed(), ElementsAre(7u, 7u, 7u));

  char program[] = "-aPROG";
  char* argv[] = {program, nullptr};
  connection->Open();
  fake().first_handle = 9;
  auto run = rfc_test::RunTraced([&] { connection->Accept(argv); });  // closes first, too
  EXPECT_EQ(connection->GetHandle() * 10 + static_cast<unsigned>(connection->OwnsHandle()), 91u);
  EXPECT_EQ(connection->GetArgv(), argv);
  EXPECT_EQ(fake().CallsOf("RfcAccept").at(0).text, "-aPROG");
  EXPECT_EQ(Closed().size(), 4u);
  EXPECT_EQ(run.lines.back(), "CRfcConnection::Accept(char**) succeeded");
  fake().fail_every_accept = true;
  auto failed =
      rfc_test::RunTraced([&] { EXPECT_THROW(connection->Accept(argv), RFC_ERROR_INFO); });
  EXPECT_EQ(connection->GetHandle(), 0u);
  EXPECT_EQ(failed.lines.back(), "CRfcConnection::Accept (char**): RfcAccept failure");
}

TEST_F(ConnectionTest, TheRelease) {
  struct Case {
    const char* given;    // in the connection record
    const char* partner;  // the attributes' partner and kernel release
    const char* kernel;
    const char* release;
  };
  const Case cases[] = {
      {"46c", "", "", "46C"},  // given: upper-cased, nothing asked
      {"RELEASEUNKNOWN", "46C", "46D", "46C"}, {"RELEASEUNKNOWN", "46C ", "46D", "46C"},
      {"RELEASEUNKNOWN", " 46C", "46D ", "46D"},  // a blank first: the kernel's
      {"RELEASEUNKNOWN", " 4", "700", "700"}, {"RELEASEUNKNOWN", "XXXXX", "YYYYY", "XXXX"},
  };
  for (const Case& c : cases) {
    fake().Reset();
    std::memcpy(fake().attributes.partner_release, c.partner, std::strlen(c.partner));
    std::memcpy(fake().attributes.kernel_release, c.kernel, std::strlen(c.kernel));
    CRfcConnInfo info = Info(0);
    info.release = c.given;
    auto connection = Prepared(info);
    connection->Open();
    EXPECT_STREQ(static_cast<const char*>(connection->GetRelease()), c.release) << c.partner;
    EXPECT_EQ(fake().Count("RfcGetAttributes"), c.given[0] == 'R' ? 1u : 0u);
    EXPECT_EQ(fake().Count("RfcCall"), 1u);  // only the ping
  }
}

TEST_F(ConnectionTest, AnEmptyPartnerReleaseIsAskedFromTheSystem) {
  fake().receive_by_function["RFC_GET_SAP_SYSTEM_PARAMETERS"] = [](RfcParameterEntry* exports,
                                                                   RfcTableEntry*, char**) {
    std::memcpy(exports[3].address, "31I ", 4);
    return 0;
  };
  CRfcConnInfo info = Info(0);
  info.release = "RELEASEUNKNOWN";
  auto connection = Prepared(info);
  connection->Open();
  EXPECT_STREQ(static_cast<const char*>(connection->GetRelease()), "31I");
  ASSERT_EQ(fake().calls.size(), 2u);
  EXPECT_EQ(fake().calls[1].function, "RFC_GET_SAP_SYSTEM_PARAMETERS");
  std::vector<std::string> exports;
  for (const stand_in::Entry& param : fake().receives[1].params) {
    exports.push_back(param.name + " " + std::to_string(param.type) + " " +
                      std::to_string(param.length));
  }
  EXPECT_THAT(exports, ElementsAre("DATE_FORMAT 0 30", "DECIMAL_SIGN 0 1", "LANGUAGE 0 1",
                                   "SAP_SYSTEM_RELEASE 0 4", "USER_NAME 0 12"));

  static char raised[] = "NOT_AUTHORIZED";
  fake().receive_by_function.clear();
  fake().receive = rfc_test::Raising(raised);
  CRfcConnection asking;
  asking.AttachHandle(4);
  auto run = rfc_test::RunTraced([&] { asking.GetR3Release(); });
  EXPECT_EQ(run.thrown, "NOT_AUTHORIZED");
  EXPECT_EQ(run.lines.back(), "CRfcConnection::GetR3Release() failure!!");
  EXPECT_STREQ(static_cast<const char*>(asking.GetRelease()), "RELEASEUNKNOWN");
}

TEST_F(ConnectionTest, SystemInformationIsFetchedOnceAndFlattened) {
  ScriptSystem();
  CRfcConnInfo info = Info(0);
  info.QuerySystemInfo = 1;
  info.release = "RELEASEUNKNOWN";  // a given release skips the question
  std::memcpy(fake().attributes.partner_release, "46C", 3);
  auto connection = Prepared(info);
  connection->Open();
  connection->Close();
  connection->Open();  // once per object, also across a reopen
  connection->GetSystemInfo();
  EXPECT_EQ(fake().Count("RfcCall"), 5u);  // 2 pings, 2 descriptions, 1 RFC_SYSTEM_INFO
  const CRfcList<CRfcSimpleParam>& list = connection->GetSystemInfoList();
  std::vector<std::string> values;
  for (int i = 0; i < list.GetCount(); ++i) {
    CRfcSimpleParam* value = list.GetAt(i);
    EXPECT_EQ(value->IsActive(), 1);
    values.push_back(std::string(value->GetName()) + "=" +
                     (value->GetType() == TYPE_INT
                          ? std::to_string(static_cast<RFC_INT>(value->Value()))
                          : std::string(static_cast<CSTR>(value->Value()))));
  }
  EXPECT_THAT(values, ElementsAre("SYSID=DEV", "SAPREL=46C", "PORT=3300", "CURRENT_RESOURCES=9"));

  // A failed call: the library's error lines, then the plain failure.
  fake().receive_by_function["RFC_SYSTEM_INFO"] = [](RfcParameterEntry*, RfcTableEntry*, char**) {
    return RFC_SYS_EXCEPTION;
  };
  fake().SetLastError("SYSFAIL", "", "");
  CRfcConnection failing;
  failing.AttachHandle(4);
  auto run = rfc_test::RunTraced([&] { failing.GetSystemInfo(); });
  EXPECT_TRUE(run.threw_text);
  EXPECT_EQ(run.thrown, "");  // the (empty) exception name
  EXPECT_THAT(rfc_test::Tail(run, 9),
              ElementsAre("CRfcConnection::GetR3Release() failure!!", "Key:    SYS",
                          "Status:", "Message:", "", "", "", kHeader,
                          "CRfcConnection::GetR3Release() failure!!"));
}

TEST_F(ConnectionTest, TheDefaultTransform) {
  CRfcConnection connection;
  CRfcString text("~");  // byte 126
  EXPECT_EQ(connection.Encrypt(text), 1);
  EXPECT_EQ(static_cast<unsigned char>(static_cast<const char*>(text)[0]), 1);
  connection.Decrypt(text);  // (1 - 5) / 2 is -2
  EXPECT_EQ(static_cast<unsigned char>(static_cast<const char*>(text)[0]), 254);
  CRfcString two("\x02");
  connection.Decrypt(two);  // (2 - 5) / 2 is -1: truncated toward zero
  EXPECT_EQ(static_cast<unsigned char>(static_cast<const char*>(two)[0]), 255);
  std::string all;  // 0 to 125 survive the round trip (0 cannot stand in a text)
  for (int b = 1; b <= 125; ++b) all += static_cast<char>(b);
  CRfcString round(all.c_str());
  EXPECT_EQ(connection.Encrypt(round), 125);
  connection.Decrypt(round);
  EXPECT_EQ(std::string(static_cast<const char*>(round)), all);
  CRfcString empty(""), none;
  EXPECT_EQ(connection.Encrypt(empty), 0);
  EXPECT_EQ(connection.Encrypt(none), 0);
  connection.Decrypt(none);
  auto run = rfc_test::RunTraced([&] {
    connection.Encrypt(empty);
    connection.Decrypt(empty);
  });
  EXPECT_THAT(run.lines, ElementsAre("CRfcConnection::Encrypt(CRfcString& rfcString) called",
                                     "CRfcConnection::Decrypt(CRfcString& rfcString) called"));
}

// Each allocation of these operations fails in turn, with the trace on: the
// failure ends in a text the class library throws for it, never in a crash
// or a leak (the sanitizer build), and a run that reaches no fault works.
TEST_F(ConnectionTest, EachAllocationOfOpeningAndCallingCanFail) {
  const std::set<std::string> reported = {
      "Failed to allocate memory!", "Failure to create parameters",
      "Failure to create parameters for RFC_GET_FUNCTION_INTERFACE",
      "Failure to create parameters for RFC_GET_STRUCTURE_DEFINITION", "Failure to auto-create structure parameter",
      "Failure to auto-create table parameter", "Failure from AddFieldInfo",
      "Auto-creation of client function object failed"};
  const std::function<void()> operations[] = {
      [] {  // the release asked from the system, the system information fetched
        ScriptSystem();
        Fake().receive_by_function["RFC_GET_SAP_SYSTEM_PARAMETERS"] = [](RfcParameterEntry* exports,
                                                                         RfcTableEntry*, char**) {
          std::memcpy(exports[3].address, "46C ", 4);
          return 0;
        };
        CRfcConnection connection;
        connection.AttachHandle(3);
        connection.GetR3Release();
        connection.GetSystemInfo();
        if (connection.GetSystemInfoList().GetCount() != 4) throw "no system information";
      },
      [] { Prepared(Info(0))->Open(); },  // the open with its ping
      // The first trace line of a thread makes its file record.
      [] { GetRfcTrace().WriteHeader(); },
      [] {
        try {
          ThrowRfcLastError(true);
        } catch (const RFC_ERROR_INFO&) {
        }
      },
      [] { CRfcStructParam traced("P", 8, 0, nullptr, nullptr); },
      [] {  // a failed call, traced first; look-ups by name
        CRfcClientFunc function(nullptr, "Z_FAILING");
        CRfcTableParam table("T", 4, 0, 0, nullptr, nullptr);
        function.AddTable(&table);
        if (function.FindTable(function.GetTables(), "t") != &table) throw "not found";
        Fake().call_result = 1;
        char* exception = nullptr;
        try {
          function.CallReceive(exception, 0);
        } catch (const RFC_ERROR_INFO&) {
        }
      },
      [] {  // a described function called, its table read and its parameters dumped
        rfc_test::Answer({{{"I", "KEY", "SIMPLE", "KEY", "C", 4}, {"E", "PAIR", "ZPAIR", "", "u", 8},
                           {"T", "ROWS", "ZPAIR", "", "h", 8}},
                          {{"ZPAIR", {{"ZPAIR", "K", 1, 0, 4, 0, "C"}, {"ZPAIR", "N", 2, 4, 4, 0, "I"}}}}});
        Fake().receive = rfc_test::FillTable("ROWS", {"abcd", "efgh"});
        CRfcConnection connection;
        connection.AttachHandle(3);
        CRfcClientFunc function(&connection, "Z_SWEEP", 1);
        char* exception = nullptr;
        function.CallReceive(exception, 1);
        CRfcTableParam* rows = function.GetTables().GetAt(0);
        if (std::string(rows->GetData(ItGetLine(rows->GetTableHandle(), 2), 0)) != "efgh") throw "wrong cell";
        CRfcMetaDump dump;
        function.GetImports().GetAt(0)->Dump(dump, "IMPORT");
        function.GetExports().GetAt(0)->Dump(dump, "EXPORT");
        rows->Dump(dump, "TABLE");
        if (dump.GetLineCount() != 4 + 2 + 4 + 12) throw "wrong dump";
      },
  };
  for (const auto& operation : operations) {
    for (int k = 0;; ++k) {
      ASSERT_LT(k, 1000) << "never runs through";
      fake().Reset();
      std::string outcome;
      bool reached = false;
      rfc_test::RunTraced([&] {
        rfc::testing::FailAllocations(k, 1);
        try {
          outcome = rfc_test::Thrown(operation);
        } catch (const RFC_ERROR_INFO&) {
          outcome = "the library's error";
        }
        reached = rfc::testing::PendingAllocationFaults() == 0;
        rfc::testing::ClearAllocationFaults();
      });
      if (!reached) {
        EXPECT_EQ(outcome, "") << "without a fault";
        break;
      }
      // Only the open turns a failed ping (of any cause) into the library's error.
      const bool open = &operation == &operations[1];
      EXPECT_TRUE(reported.count(outcome) == 1 || (open && outcome == "the library's error"))
          << "allocation " << k << ": " << outcome;
    }
  }
}

}  // namespace
