// Connections against the stand-in library: opening, pinging, closing,
// accepting, the release, the system information and the default transform.

#include <chrono>
#include <set>
#include <thread>

#include "tests/rfc/function/function_transcript.h"

namespace {

using fn_test::Seen;
using fn_test::Traced;
using rfc_test::Fake;
using rfc_test::RunTraced;

class ConnectionTest : public fn_test::TranscriptTest {
 protected:
  // Every field set; a known release, so no release query follows the open.
  static CRfcConnInfo Info(int mode) {
    return {mode, 5, "46C", 0, "DEST", "apphost", "gwhost", "3300", 7, "DEV", "mshost", "PUBLIC"};
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
  // RFC_GET_SAP_SYSTEM_PARAMETERS answers `release` as SAP_SYSTEM_RELEASE.
  static void ScriptRelease(const char* release) {
    Fake().receive_by_function["RFC_GET_SAP_SYSTEM_PARAMETERS"] = [release](RfcParameterEntry* exports, RfcTableEntry*,
                                                                            char**) {
      std::memcpy(exports[3].address, release, 4);
      return 0;
    };
  }
  static std::unique_ptr<CRfcConnection> Prepared(const CRfcConnInfo& info) {
    auto connection = std::make_unique<CRfcConnection>();
    connection->SetLogonInfo({"100", "BATCH", "secret", "E"});
    connection->SetConnInfo(info);
    return connection;
  }
  static std::string Handle(const CRfcConnection& connection) {
    return " handle " + std::to_string(connection.GetHandle()) + (connection.OwnsHandle() ? " owned" : "");
  }
  // Each open: its option block, the logon words (the password as stored) and the trace flag.
  static std::string Opens() {
    std::string text;
    for (const stand_in::Open& open : Fake().opens) {
      text += " [" + open.block + " | " + open.logon + " | trace " + std::to_string(open.trace) + "]";
    }
    return text;
  }
};

// Per mode: what was called (twice Open: an open connection is only pinged),
// what was opened, the handle. Then load balanced, opened and then only pinged
// (a failed ping throws); via the message server without a group.
TEST_F(ConnectionTest, EachModeOpensWithItsOptionBlock) {
  auto none = [](CRfcConnInfo&) {};
  const std::tuple<int, const char*, std::function<void(CRfcConnInfo&)>> cases[] = {
      {0, "", none}, {0, "no gateway service", [](CRfcConnInfo& i) { i.gateway_service = ""; }},
      {1, "", none}, {1, "no gateway host", [](CRfcConnInfo& i) { i.gateway_host = static_cast<const char*>(nullptr); }},
      {3, "", none}, {3, "no host", [](CRfcConnInfo& i) { i.host = ""; }},
      {4, "", none}, {2, "", none}, {5, "", none}, {-1, "", none},
  };
  for (const auto& [mode, change, apply] : cases) {
    fake().Reset();
    CRfcConnInfo info = Info(mode);
    apply(info);
    auto connection = Prepared(info);
    connection->Open();
    connection->Open();
    out << mode << " " << change << ":" << Seen() << Opens() << Handle(*connection) << "\n";
  }
  fake().Reset();
  auto connection = Prepared(Info(0));
  connection->OpenLoadBalanced();
  fake().call_result = 1;
  EXPECT_THROW(connection->OpenLoadBalanced(), RFC_ERROR_INFO);
  out << "mode " << connection->GetConnInfo().mode << ":" << Seen() << Opens() << "\n";
  fake().Reset();
  CRfcConnInfo info = Info(0);
  info.group = "";
  auto without = Prepared(info);
  without->SetTraceFlag(1);
  without->OpenViaMessageServer();
  out << "mode " << without->GetConnInfo().mode << ":" << Seen() << Opens() << "\n";
}

// A failed open with the trace on and off, then a success: the ping's lines
// come before the open's own; a destination of null is an empty line.
TEST_F(ConnectionTest, OpeningIsTracedBeforeAFailureAndAfterASuccess) {
  fake().open_result = 0;
  fake().SetLastError("RFC_ERROR_LOGON_FAILURE", "refused!", "name or password is incorrect");
  auto connection = Prepared(Info(0));
  for (int trace_on : {1, 0}) {
    auto run = RunTraced(
        [&] {
          try {
            connection->Open();
          } catch (const RFC_ERROR_INFO& error) {
            out << "caught: " << error.message << Handle(*connection) << "\n";
          }
        },
        trace_on != 0);
    out << "trace " << trace_on << (run.file_exists ? ", a file:\n" : ", no file\n") << Traced(run);
  }
  fake().open_result = 7;
  CRfcConnInfo unnamed = Info(0);
  unnamed.destination = static_cast<const char*>(nullptr);
  connection->SetConnInfo(unnamed);
  out << Traced(RunTraced([&] { connection->Open(); }));
}

TEST_F(ConnectionTest, OpensOfAllThreadsAreSerialisedAndSpaced) {
  fake().open_sleep_ms = 5;
  std::vector<std::thread> threads(4);
  for (std::thread& thread : threads) thread = std::thread([] { Prepared(Info(0))->Open(); });
  for (std::thread& thread : threads) thread.join();
  ASSERT_EQ(fake().opens.size(), 4u);
  out << "most opens at once: " << fake().most_opens_at_once << "\n";
  // Each open starts no earlier than 20 ms after the one before returned.
  for (size_t i = 1; i < fake().opens.size(); ++i) {
    const auto gap = fake().opens[i].started - fake().opens[i - 1].returned;
    EXPECT_GE(std::chrono::duration_cast<std::chrono::milliseconds>(gap).count(), 20);
  }
}

// A ping answers the handle or 0; Close leaves a borrowed handle open. A
// failed first ping throws; the handle stays and is closed later.
TEST_F(ConnectionTest, PingAnswersTheHandleOrZeroAndCloseLeavesABorrowedOne) {
  CRfcConnection connection;
  out << "not open: " << connection.Ping() << Seen() << "\n";
  connection.AttachHandle(12);
  out << "open: " << connection.Ping() << "\n";
  fake().call_result = 1;
  out << "the call fails: " << connection.Ping() << Handle(connection) << "\n";
  fake().call_result = 0;
  fake().receive = [](RfcParameterEntry*, RfcTableEntry*, char**) { return RFC_CLOSED; };
  out << "closed (forgotten, not closed): " << connection.Ping() << Handle(connection) << "\n";
  // Only the library's error record means a failed ping; a text passes on.
  connection.AttachHandle(12);
  fake().receive = [](RfcParameterEntry*, RfcTableEntry*, char**) -> int {
    throw "Failed to get pointer to function: RfcReceive";
  };
  out << "a text: " << rfc_test::Thrown([&] { connection.Ping(); }) << "\n";
  connection.Close();
  out << "borrowed, closed:" << Handle(connection) << "\n";
  fake().receive = [](RfcParameterEntry*, RfcTableEntry*, char**) { return RFC_SYS_EXCEPTION; };
  auto opened = Prepared(Info(0));
  EXPECT_THROW(opened->Open(), RFC_ERROR_INFO);
  out << "the first ping fails:" << Handle(*opened) << "\n";
  opened.reset();
  out << Seen() << "\n";
}

// New records close first, so does an accept.
TEST_F(ConnectionTest, CloseClosesWhatItOpenedOrAccepted) {
  auto connection = Prepared(Info(0));
  connection->Open();
  out << Traced(RunTraced([&] { connection->Close(); }));
  out << "closed:" << Handle(*connection) << "\n";
  fake().Reset();
  connection->Open();
  connection->SetConnInfo(Info(0));
  connection->Open();
  connection->SetLogonInfo({"100", "BATCH", "secret", "E"});
  connection->Open();
  char program[] = "-aPROG";
  char* argv[] = {program, nullptr};
  fake().first_handle = 9;
  auto run = RunTraced([&] { connection->Accept(argv); });
  out << "  | " << run.lines.back() << "\naccepted:" << Handle(*connection);
  out << (connection->GetArgv() == argv ? ", its argv\n" : ", another argv\n") << Seen() << "\n";
  fake().fail_every_accept = true;
  auto failed = RunTraced([&] { EXPECT_THROW(connection->Accept(argv), RFC_ERROR_INFO); });
  out << "  | " << failed.lines.back() << "\nrefused:" << Handle(*connection) << "\n";
}

// The release given (upper-cased, nothing asked), from the attributes (the
// partner's, or the kernel's when the partner's starts with a blank), or
// asked with the system parameters when the partner's is empty (what that
// receive is handed, too); an exception of the partner keeps it unknown. Then
// the system information: fetched once per object, also across a reopen; a
// failed call: the library's error lines, then the plain failure.
TEST_F(ConnectionTest, TheReleaseAndTheSystemInformation) {
  const std::vector<std::string> cases[] = {
      {"46c", "", ""}, {"RELEASEUNKNOWN", "46C", "46D"}, {"RELEASEUNKNOWN", "46C ", "46D"},
      {"RELEASEUNKNOWN", " 46C", "46D "}, {"RELEASEUNKNOWN", " 4", "700"}, {"RELEASEUNKNOWN", "XXXXX", "YYYYY"},
      {"RELEASEUNKNOWN", "", "46D"},
  };
  for (const std::vector<std::string>& c : cases) {
    fake().Reset();
    ScriptRelease("31I ");
    std::memcpy(fake().attributes.partner_release, c[1].data(), c[1].size());
    std::memcpy(fake().attributes.kernel_release, c[2].data(), c[2].size());
    CRfcConnInfo info = Info(0);
    info.release = c[0].c_str();
    auto connection = Prepared(info);
    connection->Open();
    out << c[0] << " '" << c[1] << "' '" << c[2] << "' -> " << static_cast<const char*>(connection->GetRelease());
    out << ":" << Seen() << (fake().receives.size() > 1 ? "\n  exports:" + fn_test::Entries(fake().receives[1].params) : "") << "\n";
  }
  static char raised[] = "NOT_AUTHORIZED";
  fake().receive_by_function.clear();
  fake().receive = rfc_test::Raising(raised);
  CRfcConnection asking;
  asking.AttachHandle(4);
  out << Traced(RunTraced([&] { asking.GetR3Release(); })) << static_cast<const char*>(asking.GetRelease()) << "\n";
  fake().Reset();
  ScriptSystem();
  CRfcConnInfo info = Info(0);
  info.QuerySystemInfo = 1;
  info.release = "RELEASEUNKNOWN";  // a given release skips the question
  std::memcpy(fake().attributes.partner_release, "46C", 3);
  auto connection = Prepared(info);
  connection->Open();
  connection->Close();
  connection->Open();
  connection->GetSystemInfo();
  out << Seen() << "\n";
  const CRfcList<CRfcSimpleParam>& list = connection->GetSystemInfoList();
  for (int i = 0; i < list.GetCount(); ++i) {
    CRfcSimpleParam* value = list.GetAt(i);
    out << value->IsActive() << " " << value->GetName() << "="
        << (value->GetType() == TYPE_INT ? std::to_string(static_cast<RFC_INT>(value->Value()))
                                         : std::string(static_cast<CSTR>(value->Value())))
        << "\n";
  }
  fake().receive_by_function["RFC_SYSTEM_INFO"] = [](RfcParameterEntry*, RfcTableEntry*, char**) {
    return RFC_SYS_EXCEPTION;
  };
  fake().SetLastError("SYSFAIL", "", "");
  CRfcConnection failing;
  failing.AttachHandle(4);
  out << Traced(RunTraced([&] { failing.GetSystemInfo(); }));
}

// Byte by byte: 126 -> 1 -> 254 (-2), 2 -> 255 (-1, truncated toward zero).
TEST_F(ConnectionTest, TheDefaultTransform) {
  CRfcConnection connection;
  CRfcString text("~"), two("\x02");
  out << connection.Encrypt(text) << " " << testutil::Escaped(static_cast<const char*>(text)) << " ";
  connection.Decrypt(text);
  connection.Decrypt(two);
  out << testutil::Escaped(static_cast<const char*>(text)) << " " << testutil::Escaped(static_cast<const char*>(two)) << "\n";
  CRfcString empty(""), none;
  out << connection.Encrypt(empty) << connection.Encrypt(none) << "\n";
  connection.Decrypt(none);
  out << Traced(RunTraced([&] {
    connection.Encrypt(empty);
    connection.Decrypt(empty);
  }));
}

// Each allocation of these operations fails in turn, with the trace on: the
// failure ends in a text the class library throws for it, never in a crash or
// a leak (the sanitizer build). Per operation: how a run that reaches no fault
// ends, the texts thrown, then every line its failures traced.
TEST_F(ConnectionTest, EachAllocationOfOpeningAndCallingCanFail) {
  const std::function<void()> operations[] = {
      [] {  // the release asked from the system, the system information fetched
        ScriptSystem();
        ScriptRelease("46C ");
        CRfcConnection connection;
        connection.AttachHandle(3);
        connection.GetR3Release();
        connection.GetSystemInfo();
        if (connection.GetSystemInfoList().GetCount() != 4) throw "no system information";
      },
      [] { Prepared(Info(0))->Open(); },  // the open with its ping
      [] { ThrowRfcLastError(true); },
      [] {  // a structure of the caller's; a structure and a simple import the partner describes
        CRfcStructParam traced("P", 8, 0, nullptr, nullptr);
        rfc_test::Answer({{{"I", "NAME", "SIMPLE", "NAME", "C", 8}},
                          {{"ZPAIR", {{"ZPAIR", "KEY", 1, 0, 4, 0, "C"}, {"ZPAIR", "N", 2, 4, 4, 0, "I"}}}}});
        auto connection = Prepared(Info(0));
        connection->AttachHandle(3);
        CRfcStructParam param("P", 0, 1, connection.get(), "ZPAIR");
        CRfcClientFunc function(connection.get(), "Z_SIMPLE", 1);
      },
      [] {  // a failed call, traced first; look-ups by name; a list that changed
        CRfcClientFunc function(nullptr, "Z_FAILING");
        CRfcTableParam table("T", 4, 0, 0, nullptr, nullptr);
        function.AddTable(&table);
        if (function.FindTable(function.GetTables(), "t") != &table) throw "not found";
        function.SetUpImports(0);
        CRfcSimpleParam more("B", TYPE_CHAR, 1, 0, 0);
        function.AddImport(&more);
        function.AddExport(&more);
        Fake().call_result = 1;
        char* exception = nullptr;
        function.CallReceive(exception, 0);
      },
      [] {  // a list that cannot grow keeps its parameters; the refused one is not added
        CRfcClientFunc function(nullptr, "F");
        std::vector<std::unique_ptr<CRfcSimpleParam>> params;
        for (int i = 0; i < 11; ++i) {
          params.push_back(std::make_unique<CRfcSimpleParam>(("P" + std::to_string(i)).c_str(), TYPE_CHAR, 1, 0, 0));
          try {
            function.AddImport(params.back().get());
          } catch (const char*) {
            const CRfcImpExpParam* last = i > 0 ? function.FindImpExp(function.GetImports(), params[i - 1]->GetName()) : nullptr;
            if (params.back()->GetOwner() != nullptr || function.GetImports().GetCount() != i) throw "the list changed";
            if (i > 0 && last != params[i - 1].get()) throw "the list lost a parameter";
            throw;
          }
        }
      },
  };
  for (const auto& operation : operations) {
    std::set<std::string> outcomes, lines;
    std::string clean;
    // Runs the operation with allocation k failing; false once it reaches none.
    auto run = [&](int k) {
      fake().Reset();
      std::string outcome;
      rfc::testing::FailAllocations(k, 1);
      try {
        outcome = rfc_test::Thrown(operation);
      } catch (const RFC_ERROR_INFO&) {
        outcome = "the library's error";
      }
      const bool reached = rfc::testing::PendingAllocationFaults() == 0;
      rfc::testing::ClearAllocationFaults();
      if (reached) outcomes.insert(outcome);
      if (!reached) clean = outcome;
      return reached;
    };
    auto traced = [&](const std::function<void()>& code) {
      for (const std::string& line : RunTraced(code).lines) lines.insert(rfc_test::WithTraceTime(line));
    };
    // The first allocations on threads of their own, so that a thread's first
    // trace line (its file record) fails among them; the rest on one thread, as
    // the trace keeps each thread's file open for good (Windows limits them).
    for (int k = 0; k < 16; ++k) traced([&] { run(k); });
    traced([&] {
      for (int k = 0; run(k); ++k) ASSERT_LT(k, 1000) << "never runs through";
    });
    out << "operation " << &operation - operations << " (\"" << clean << "\" without a fault):";
    for (const std::string& outcome : outcomes) out << " \"" << outcome << "\"";
    out << "\n";
    for (const std::string& line : lines) out << "  | " << line << "\n";
  }
}

}  // namespace
