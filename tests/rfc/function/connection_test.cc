// Connections against the fake library: modes and their option blocks, the
// open and its trace lines, the open lock, closing only what was opened,
// the partner's release, the system information, and the default transform.

#include "rfc/core/rfc_connection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "rfc/core/rfc_allocation.h"
#include "rfc/function/rfc_simple_param.h"
#include "tests/rfc/function/fake_library_fixture.h"
#include "tests/rfc/trace_capture.h"

namespace {

using rfc_function_test::Dictionary;
using rfc_function_test::FakeLibraryTest;
using ::testing::Contains;
using ::testing::ElementsAre;

class ConnectionTest : public FakeLibraryTest {
 protected:
  static CRfcLogonInfo Logon() {
    CRfcLogonInfo logon;
    logon.client = "100";
    logon.user = "BATCH";
    logon.password = "secret";
    logon.language = "E";
    return logon;
  }
  // A connection record that needs no release query.
  static CRfcConnInfo Info(int mode) {
    CRfcConnInfo info;
    info.mode = mode;
    info.release = "46C";
    info.destination = "DEST";
    info.host = "apphost";
    info.gateway_host = "gwhost";
    info.gateway_service = "3300";
    info.system_number = 7;
    info.system_name = "DEV";
    info.message_server_host = "mshost";
    info.group = "PUBLIC";
    info.mode3_flag = 5;
    return info;
  }
  std::unique_ptr<CRfcConnection> Prepared(const CRfcConnInfo& info) {
    auto connection = std::make_unique<CRfcConnection>();
    connection->SetLogonInfo(Logon());
    connection->SetConnInfo(info);
    return connection;
  }
};

TEST_F(ConnectionTest, ConstructionIsTracedAndLeavesTheConnectionClosed) {
  auto run = rfc_test::RunTraced([] {
    CRfcConnection connection;
    EXPECT_EQ(connection.GetHandle(), 0u);
    EXPECT_EQ(connection.OwnsHandle(), 0);
    EXPECT_STREQ(static_cast<const char*>(connection.GetRelease()), "RELEASEUNKNOWN");
    EXPECT_EQ(connection.GetSystemInfoList().GetCount(), 0);
    EXPECT_EQ(connection.GetArgv(), nullptr);
  });
  EXPECT_THAT(run.lines, ElementsAre("CRfcConnection::CRfcConnection(void) called"));
}

TEST_F(ConnectionTest, ModeZeroPassesTheApplicationServerBlock) {
  auto connection = Prepared(Info(0));
  connection->Open();
  ASSERT_EQ(fake().opens.size(), 1u);
  const fake_rfc::Open& open = fake().opens[0];
  EXPECT_EQ(open.destination, "DEST");
  EXPECT_EQ(open.mode, 0);
  EXPECT_TRUE(open.has_options);
  EXPECT_EQ(open.host, "apphost");
  EXPECT_EQ(open.system_number, 7);
  EXPECT_EQ(open.gateway_host, "gwhost");
  EXPECT_EQ(open.gateway_service, "3300");
  EXPECT_EQ(open.client, "100");
  EXPECT_EQ(open.user, "BATCH");
  EXPECT_EQ(open.password, "secret");  // handed over as stored
  EXPECT_EQ(open.language, "E");
  EXPECT_EQ(open.trace, 0);
  EXPECT_EQ(connection->GetHandle(), 7u);
  EXPECT_EQ(connection->OwnsHandle(), 1);
  // Opened connections are pinged.
  ASSERT_EQ(fake().calls.size(), 1u);
  EXPECT_EQ(fake().calls[0].function, "RFCPING");
  EXPECT_EQ(fake().calls[0].handle, 7u);
  // Open again: nothing happens while open.
  connection->Open();
  EXPECT_EQ(fake().opens.size(), 1u);
}

TEST_F(ConnectionTest, ModesOneThreeAndFourPassTheirBlocks) {
  auto gateway = Prepared(Info(1));
  gateway->SetTraceFlag(1);
  gateway->Open();
  EXPECT_EQ(fake().opens.back().mode, 1);
  EXPECT_EQ(fake().opens.back().gateway_host, "gwhost");
  EXPECT_EQ(fake().opens.back().gateway_service, "3300");
  EXPECT_EQ(fake().opens.back().trace, 1);

  auto server = Prepared(Info(3));
  server->Open();
  const fake_rfc::Open& three = fake().opens.back();
  EXPECT_EQ(three.mode, 3);
  EXPECT_EQ(three.host, "apphost");
  EXPECT_EQ(three.system_number, 7);
  EXPECT_EQ(three.load_balancing, 0);
  EXPECT_TRUE(three.message_server_null);
  EXPECT_EQ(three.mode3_flag, 5);
  EXPECT_EQ(three.reserved, 0);

  auto destination = Prepared(Info(4));
  destination->Open();
  EXPECT_EQ(fake().opens.back().mode, 4);
  EXPECT_FALSE(fake().opens.back().has_options);
}

TEST_F(ConnectionTest, MissingRequiredFieldsOpenWithoutOptionBlock) {
  CRfcConnInfo info = Info(0);
  info.gateway_service = "";
  Prepared(info)->Open();
  EXPECT_EQ(fake().opens.back().mode, 0);
  EXPECT_FALSE(fake().opens.back().has_options);

  info = Info(1);
  info.gateway_host = "";
  Prepared(info)->Open();
  EXPECT_FALSE(fake().opens.back().has_options);

  info = Info(3);
  info.host = "";
  Prepared(info)->Open();
  EXPECT_EQ(fake().opens.back().mode, 3);
  EXPECT_FALSE(fake().opens.back().has_options);
}

TEST_F(ConnectionTest, ModeTwoAndModesAboveFourOpenNothing) {
  for (int mode : {2, 5, -1}) {
    auto connection = Prepared(Info(mode));
    connection->Open();
    EXPECT_EQ(connection->GetHandle(), 0u) << mode;
  }
  EXPECT_TRUE(fake().opens.empty());
}

TEST_F(ConnectionTest, TheMessageServerIsUsedWhenItsFieldsAreSet) {
  auto connection = Prepared(Info(0));
  connection->OpenLoadBalanced();
  ASSERT_EQ(fake().opens.size(), 1u);
  const fake_rfc::Open& open = fake().opens[0];
  EXPECT_EQ(open.mode, 3);
  EXPECT_TRUE(open.host_null);
  EXPECT_EQ(open.system_number, 0);
  EXPECT_EQ(open.load_balancing, 1);
  EXPECT_EQ(open.message_server_host, "mshost");
  EXPECT_EQ(open.system_name, "DEV");
  EXPECT_EQ(open.group, "PUBLIC");
  EXPECT_EQ(open.mode3_flag, 0);
  EXPECT_EQ(connection->GetConnInfo().mode, 3);
  // Pinged by the open and once more.
  EXPECT_EQ(fake().Count("RfcCall"), 2u);

  CRfcConnInfo info = Info(0);
  info.group = "";
  auto without = Prepared(info);
  without->OpenViaMessageServer();
  EXPECT_EQ(fake().opens.back().mode, 4);
  EXPECT_FALSE(fake().opens.back().has_options);
  EXPECT_EQ(without->GetConnInfo().mode, 4);
}

TEST_F(ConnectionTest, ALoadBalancedOpenWhosePingFailsThrows) {
  auto connection = Prepared(Info(0));
  connection->OpenViaMessageServer();
  fake().call_result = 1;
  std::strcpy(fake().last_error.key, "PING");
  try {
    connection->OpenLoadBalanced();  // already open: only the ping
    ADD_FAILURE() << "no throw";
  } catch (const RFC_ERROR_INFO& error) {
    EXPECT_STREQ(error.key, "PING");
  }
  EXPECT_EQ(fake().opens.size(), 1u);
}

TEST_F(ConnectionTest, AFailedOpenIsTracedAndThrown) {
  fake().open_result = 0;
  std::strcpy(fake().last_error.key, "RFC_ERROR_LOGON_FAILURE");
  std::strcpy(fake().last_error.status, "refused!");
  std::strcpy(fake().last_error.message, "name or password is incorrect");
  auto connection = Prepared(Info(0));
  RFC_ERROR_INFO caught{};
  auto run = rfc_test::RunTraced([&] {
    try {
      connection->Open();
    } catch (const RFC_ERROR_INFO& error) {
      caught = error;
    }
  });
  EXPECT_STREQ(caught.message, "name or password is incorrect");
  EXPECT_EQ(connection->GetHandle(), 0u);
  EXPECT_EQ(connection->OwnsHandle(), 0);
  ASSERT_EQ(run.lines.size(), 11u);
  EXPECT_EQ(run.lines[0], "");
  EXPECT_EQ(run.lines[3].rfind("Rfc Class Library Trace at   ", 0), 0u);
  EXPECT_EQ(run.lines[4], "CRfcConnection::DoOpen (void *) failed!!");
  EXPECT_EQ(run.lines[5], "DEST");
  EXPECT_EQ(run.lines[6], "100");
  EXPECT_EQ(run.lines[7], "BATCH");
  EXPECT_EQ(run.lines[8], "Key:    RFC_ERROR_LOGON_FAI");
  EXPECT_EQ(run.lines[9], "Status: refused");
  EXPECT_EQ(run.lines[10], "Message:name or password is incorrect");
}

TEST_F(ConnectionTest, AFailedOpenWithTracingOffWritesNothing) {
  fake().open_result = 0;
  auto connection = Prepared(Info(0));
  bool thrown = false;
  auto run = rfc_test::RunTraced(
      [&] {
        try {
          connection->Open();
        } catch (const RFC_ERROR_INFO&) {
          thrown = true;
        }
      },
      false);
  EXPECT_TRUE(thrown);
  EXPECT_FALSE(run.file_exists);
}

TEST_F(ConnectionTest, ASuccessfulOpenIsTracedAfterTheFact) {
  auto connection = Prepared(Info(0));
  auto run = rfc_test::RunTraced([&] { connection->Open(); });
  // The ping's call, then the open's own entry.
  const size_t n = run.lines.size();
  ASSERT_GE(n, 9u);
  EXPECT_EQ(run.lines[n - 5], "CRfcConnection::DoOpen (void *) called");
  EXPECT_EQ(run.lines[n - 4], "Opening connection to: ");
  EXPECT_EQ(run.lines[n - 3], "DEST");
  EXPECT_EQ(run.lines[n - 2], "100");
  EXPECT_EQ(run.lines[n - 1], "BATCH");
  EXPECT_THAT(run.lines, Contains("RFCPING"));
}

TEST_F(ConnectionTest, AFailedFirstPingThrowsAndTheHandleIsStillClosedLater) {
  std::strcpy(fake().last_error.key, "PING_FAILED");
  fake().receive = [](RfcParameterEntry*, RfcTableEntry*, char**) { return RFC_SYS_EXCEPTION; };
  auto connection = Prepared(Info(0));
  try {
    connection->Open();
    ADD_FAILURE() << "no throw";
  } catch (const RFC_ERROR_INFO& error) {
    EXPECT_STREQ(error.key, "PING_FAILED");
  }
  EXPECT_EQ(connection->GetHandle(), 7u);
  connection.reset();
  EXPECT_THAT(fake().closes, ElementsAre(7u));
}

TEST_F(ConnectionTest, APingThatFindsTheConnectionClosedForgetsTheHandle) {
  auto connection = Prepared(Info(0));
  connection->Open();
  fake().receive = [](RfcParameterEntry*, RfcTableEntry*, char**) { return RFC_CLOSED; };
  EXPECT_EQ(connection->Ping(), 0u);
  EXPECT_EQ(connection->GetHandle(), 0u);
  connection.reset();
  EXPECT_TRUE(fake().closes.empty());  // no RfcClose for a closed connection
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
  fake().receive = [](RfcParameterEntry*, RfcTableEntry*, char** exception) {
    *exception = raised;
    return RFC_EXCEPTION;
  };
  EXPECT_EQ(connection.Ping(), 0u);
}

TEST_F(ConnectionTest, APingFunctionThatCannotBeMadeGivesZero) {
  CRfcConnection connection;
  connection.AttachHandle(12);
  auto run = rfc_test::RunTraced([&] {
    rfc::testing::FailNextAllocation();
    EXPECT_EQ(connection.Ping(), 0u);
  });
  EXPECT_THAT(run.lines, ElementsAre("Failed to allocate memory!"));
  EXPECT_TRUE(fake().calls.empty());
}

TEST_F(ConnectionTest, CloseClosesOnlyAnOwnedHandle) {
  auto run = rfc_test::RunTraced([&] {
    CRfcConnection borrowed;
    borrowed.AttachHandle(33);
    borrowed.Close();
    EXPECT_EQ(borrowed.GetHandle(), 33u);
  });
  EXPECT_TRUE(fake().closes.empty());

  auto connection = Prepared(Info(0));
  connection->Open();
  auto closing = rfc_test::RunTraced([&] { connection->Close(); });
  EXPECT_THAT(fake().closes, ElementsAre(7u));
  EXPECT_EQ(connection->GetHandle(), 0u);
  ASSERT_EQ(closing.lines.size(), 5u);
  EXPECT_EQ(closing.lines[4], "CRfcConnection::Close(void) called");
  // New records close first.
  connection->Open();
  connection->SetConnInfo(Info(0));
  EXPECT_THAT(fake().closes, ElementsAre(7u, 7u));
  connection->Open();
  connection->SetLogonInfo(Logon());
  EXPECT_EQ(fake().closes.size(), 3u);
}

TEST_F(ConnectionTest, AcceptRegistersAndClosesWhatWasOpenBefore) {
  char program[] = "-aPROG";
  char* argv[] = {program, nullptr};
  auto connection = Prepared(Info(0));
  connection->Open();
  auto run = rfc_test::RunTraced([&] { connection->Accept(argv); });
  EXPECT_EQ(connection->GetHandle(), 9u);
  EXPECT_EQ(connection->OwnsHandle(), 1);
  EXPECT_EQ(connection->GetArgv(), argv);
  EXPECT_THAT(fake().accepts, ElementsAre(argv));
  EXPECT_THAT(fake().closes, ElementsAre(7u));
  EXPECT_EQ(run.lines.back(), "CRfcConnection::Accept(char**) succeeded");

  fake().accept_result = 0;
  std::strcpy(fake().last_error.key, "NO_GATEWAY");
  RFC_ERROR_INFO caught{};
  auto failed = rfc_test::RunTraced([&] {
    try {
      connection->Accept(argv);
    } catch (const RFC_ERROR_INFO& error) {
      caught = error;
    }
  });
  EXPECT_STREQ(caught.key, "NO_GATEWAY");
  EXPECT_EQ(connection->GetHandle(), 0u);
  EXPECT_EQ(failed.lines.back(), "CRfcConnection::Accept (char**): RfcAccept failure");
}

TEST_F(ConnectionTest, OpensOfAllThreadsAreSerialisedAndSpaced) {
  fake().open_sleep_ms = 5;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this] {
      auto connection = Prepared(Info(0));
      connection->Open();
    });
  }
  for (std::thread& thread : threads) thread.join();
  ASSERT_EQ(fake().opens.size(), 4u);
  EXPECT_EQ(fake().most_opens_at_once, 1);
  // Each open starts no earlier than 20 ms after the one before returned.
  for (size_t i = 1; i < fake().opens.size(); ++i) {
    const auto gap = fake().opens[i].started - fake().opens[i - 1].returned;
    EXPECT_GE(std::chrono::duration_cast<std::chrono::milliseconds>(gap).count(), 20);
  }
}

TEST_F(ConnectionTest, AGivenReleaseIsUpperCasedAndNotAsked) {
  CRfcConnInfo info = Info(0);
  info.release = "46c";
  auto connection = Prepared(info);
  connection->Open();
  EXPECT_STREQ(static_cast<const char*>(connection->GetRelease()), "46C");
  EXPECT_EQ(fake().Count("RfcGetAttributes"), 0u);
  EXPECT_EQ(fake().Count("RfcCall"), 1u);  // only the ping
}

TEST_F(ConnectionTest, TheReleaseComesFromTheAttributes) {
  struct Case {
    const char* partner;
    const char* kernel;
    const char* release;
  };
  for (const Case& c : {Case{"46C", "46D", "46C"}, Case{"46C ", "46D", "46C"},
                        Case{"620", "720", "620"}, Case{" 46C", "46D ", "46D"},
                        Case{" 4", "700", "700"}}) {
    fake().Reset();
    std::memcpy(fake().attributes.partner_release, c.partner, std::strlen(c.partner));
    std::memcpy(fake().attributes.kernel_release, c.kernel, std::strlen(c.kernel));
    CRfcConnInfo info = Info(0);
    info.release = "RELEASEUNKNOWN";
    auto connection = Prepared(info);
    connection->Open();
    EXPECT_STREQ(static_cast<const char*>(connection->GetRelease()), c.release) << c.partner;
    EXPECT_EQ(fake().Count("RfcCall"), 1u);
  }
}

TEST_F(ConnectionTest, AFullReleaseFieldWithoutTerminatorIsReadAsFourCharacters) {
  std::memset(fake().attributes.partner_release, 'X', 5);
  std::memset(fake().attributes.kernel_release, 'Y', 5);
  CRfcConnection connection;
  connection.AttachHandle(1);
  connection.GetR3Release();
  EXPECT_STREQ(static_cast<const char*>(connection.GetRelease()), "XXXX");
}

TEST_F(ConnectionTest, AnEmptyPartnerReleaseIsAskedFromTheSystem) {
  fake().receive_by_function["RFC_GET_SAP_SYSTEM_PARAMETERS"] =
      [](RfcParameterEntry* exports, RfcTableEntry*, char**) {
        for (RfcParameterEntry* entry = exports; entry->name != nullptr; ++entry) {
          if (std::string(static_cast<const char*>(entry->name), entry->name_length) ==
              "SAP_SYSTEM_RELEASE") {
            std::memcpy(entry->address, "31I ", 4);
          }
        }
        return 0;
      };
  CRfcConnInfo info = Info(0);
  info.release = "RELEASEUNKNOWN";
  auto connection = Prepared(info);
  connection->Open();
  EXPECT_STREQ(static_cast<const char*>(connection->GetRelease()), "31I");
  ASSERT_EQ(fake().receives.size(), 2u);
  EXPECT_EQ(fake().calls[1].function, "RFC_GET_SAP_SYSTEM_PARAMETERS");
  const std::vector<fake_rfc::Param>& exports = fake().receives[1].exports;
  ASSERT_EQ(exports.size(), 5u);
  const char* names[] = {"DATE_FORMAT", "DECIMAL_SIGN", "LANGUAGE", "SAP_SYSTEM_RELEASE",
                         "USER_NAME"};
  const uint32_t lengths[] = {30, 1, 1, 4, 12};
  for (size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(exports[i].name, names[i]);
    EXPECT_EQ(exports[i].length, lengths[i]);
    EXPECT_EQ(exports[i].type, TYPE_CHAR);
  }
}

TEST_F(ConnectionTest, AFailedReleaseQueryThrowsTheExceptionName) {
  static char raised[] = "NOT_AUTHORIZED";
  fake().receive_by_function["RFC_GET_SAP_SYSTEM_PARAMETERS"] =
      [](RfcParameterEntry*, RfcTableEntry*, char** exception) {
        *exception = raised;
        return RFC_EXCEPTION;
      };
  CRfcConnection connection;
  connection.AttachHandle(4);
  auto run = rfc_test::RunTraced([&] { connection.GetR3Release(); });
  EXPECT_EQ(run.thrown, "NOT_AUTHORIZED");
  EXPECT_EQ(run.lines.back(), "CRfcConnection::GetR3Release() failure!!");
  EXPECT_STREQ(static_cast<const char*>(connection.GetRelease()), "RELEASEUNKNOWN");
}

TEST_F(ConnectionTest, SystemInformationIsFetchedOnceAndFlattened) {
  Dictionary dictionary;
  dictionary.params = {{"E", "RFCSI_EXPORT", "RFCSI", "", "u", 20},
                       {"E", "CURRENT_RESOURCES", "SIMPLE", "CURRENT_RESOURCES", "I", 4}};
  dictionary.structures = {{"RFCSI",
                            {{"RFCSI", "SYSID", 1, 0, 8, 0, "C"},
                             {"RFCSI", "SAPREL", 2, 8, 4, 0, "C"},
                             {"RFCSI", "PORT", 3, 12, 4, 0, "I"}}}};
  rfc_function_test::Answer(dictionary);
  fake().receive_by_function["RFC_SYSTEM_INFO"] = [](RfcParameterEntry* exports, RfcTableEntry*,
                                                     char**) {
    std::memcpy(exports[0].address, "DEV     46C ", 12);
    const int32_t port = 3300;
    std::memcpy(static_cast<char*>(exports[0].address) + 12, &port, 4);
    const int32_t resources = 9;
    std::memcpy(exports[1].address, &resources, 4);
    return 0;
  };
  CRfcConnInfo info = Info(0);
  info.QuerySystemInfo = 1;
  info.release = "RELEASEUNKNOWN";
  std::memcpy(fake().attributes.partner_release, "46C", 3);
  auto connection = Prepared(info);
  connection->Open();

  const CRfcList<CRfcSimpleParam>& list = connection->GetSystemInfoList();
  ASSERT_EQ(list.GetCount(), 4);
  EXPECT_STREQ(list.GetAt(0)->GetName(), "SYSID");
  EXPECT_STREQ(static_cast<CSTR>(list.GetAt(0)->Value()), "DEV");
  EXPECT_STREQ(static_cast<CSTR>(list.GetAt(1)->Value()), "46C");
  EXPECT_EQ(list.GetAt(2)->GetType(), TYPE_INT);
  EXPECT_EQ(static_cast<RFC_INT>(list.GetAt(2)->Value()), 3300);
  EXPECT_STREQ(list.GetAt(3)->GetName(), "CURRENT_RESOURCES");
  EXPECT_EQ(static_cast<RFC_INT>(list.GetAt(3)->Value()), 9);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(list.GetAt(i)->IsActive(), 1);

  // Fetched once per object, also across a reopen.
  const size_t calls = fake().calls.size();
  connection->Close();
  connection->Open();
  EXPECT_EQ(fake().calls.size(), calls + 1);  // only the ping
  connection->GetSystemInfo();
  EXPECT_EQ(list.GetCount(), 4);
}

TEST_F(ConnectionTest, AFailedSystemInformationCallIsTracedAndThrown) {
  Dictionary dictionary;
  dictionary.params = {{"E", "N", "SIMPLE", "N", "I", 4}};
  rfc_function_test::Answer(dictionary);
  fake().receive_by_function["RFC_SYSTEM_INFO"] = [](RfcParameterEntry*, RfcTableEntry*, char**) {
    return RFC_SYS_EXCEPTION;
  };
  std::strcpy(fake().last_error.key, "SYSFAIL");
  CRfcConnection connection;
  connection.AttachHandle(4);
  auto run = rfc_test::RunTraced([&] { connection.GetSystemInfo(); });
  EXPECT_TRUE(run.threw_text);
  EXPECT_EQ(run.thrown, "");
  const size_t n = run.lines.size();
  ASSERT_GE(n, 13u);
  EXPECT_EQ(run.lines[n - 9], "CRfcConnection::GetR3Release() failure!!");
  EXPECT_EQ(run.lines[n - 8], "Key:    SYS");
  EXPECT_EQ(run.lines[n - 1], "CRfcConnection::GetR3Release() failure!!");
}

TEST_F(ConnectionTest, TheDefaultTransform) {
  CRfcConnection connection;
  CRfcString text("~");  // byte 126
  EXPECT_EQ(connection.Encrypt(text), 1);
  EXPECT_EQ(static_cast<unsigned char>(static_cast<const char*>(text)[0]), 1);
  connection.Decrypt(text);
  EXPECT_EQ(static_cast<unsigned char>(static_cast<const char*>(text)[0]), 254);

  // Bytes 0 to 125 survive the round trip (0 cannot stand in a text, so 1 on).
  std::string all;
  for (int b = 1; b <= 125; ++b) all += static_cast<char>(b);
  CRfcString round(all.c_str());
  EXPECT_EQ(connection.Encrypt(round), 125);
  EXPECT_NE(std::string(static_cast<const char*>(round)), all);
  connection.Decrypt(round);
  EXPECT_EQ(std::string(static_cast<const char*>(round)), all);

  CRfcString empty("");
  EXPECT_EQ(connection.Encrypt(empty), 0);
  CRfcString none;
  EXPECT_EQ(connection.Encrypt(none), 0);
  connection.Decrypt(none);

  auto run = rfc_test::RunTraced([&] {
    CRfcString secret("a");
    connection.Encrypt(secret);
    connection.Decrypt(secret);
  });
  EXPECT_THAT(run.lines, ElementsAre("CRfcConnection::Encrypt(CRfcString& rfcString) called",
                                     "CRfcConnection::Decrypt(CRfcString& rfcString) called"));
}

}  // namespace
