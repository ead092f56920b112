// The batch server end to end: sapsim serve, the batchserver binary and
// sapsim call as real processes on free ports.

#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "tests/e2e/batchserver_e2e_fixture.h"
#include "tests/support/notify_socket.h"

namespace e2e {
namespace {

using testutil::kLogRule;
const std::regex kDateTime(R"(\d\d/\d\d/\d\d \d\d:\d\d:\d\d)");
constexpr const char* kWaiting = "\r\n\r\n...WAITING FOR BATCHES...\r\n\r\n\r\n";

// A batch for ZE2E_ALL: special characters, blanks, identifiers from each of
// the three columns, a row without any, and every field type (SHARE is a
// packed value whose digits are all decimals).
constexpr const char* kAllTypesCsv =
    "H_IDENT,T_IDENT,IDENT,NOTE,DAY,AT,AMOUNT,CODE,QTY,WEIGHT,PRIO,FLAGS,RAW,SHARE\n"
    "A<1>&,T1,I1,\"  a<b & \"\"c\"\" 'd' &amp; >  \",20240131,235959,12.34,42,42,2.5,-3,7,ABCD,0.125\n"
    ",T2,,,,,-0.5,0,0,0,0,0,,-0.125\n"
    ",,I3,inner  blanks stay,20000229,000000,,9999,1,1,1,1,01,\n"
    ",,,no identifier: left out,,,5,5,5,5,5,5,05,0.5\n";

// The rows of kAllTypesCsv as the server writes them.
constexpr const char* kAllTypesRows =
    "    <A&lt;1&gt;&amp;>\n"
    "      <H_IDENT>A&lt;1&gt;&amp;</H_IDENT>\n"
    "      <T_IDENT>T1</T_IDENT>\n"
    "      <IDENT>I1</IDENT>\n"
    "      <NOTE>a&lt;b &amp; &quot;c&quot; 'd' &amp; &gt;</NOTE>\n"
    "      <DAY>20240131</DAY>\n"
    "      <AT>235959</AT>\n"
    "      <AMOUNT>12.34</AMOUNT>\n"
    "      <CODE>0042</CODE>\n"
    "      <QTY>42</QTY>\n"
    "      <WEIGHT>2.5</WEIGHT>\n"
    "      <PRIO>-3</PRIO>\n"
    "      <FLAGS>7</FLAGS>\n"
    "      <RAW>ABCD</RAW>\n"
    "      <SHARE>0.125</SHARE>\n"
    "    </A&lt;1&gt;&amp;>\n"
    "    <T2>\n"
    "      <H_IDENT/>\n"
    "      <T_IDENT>T2</T_IDENT>\n"
    "      <IDENT/>\n"
    "      <NOTE/>\n"
    "      <DAY>00000000</DAY>\n"
    "      <AT>000000</AT>\n"
    "      <AMOUNT>-0.50</AMOUNT>\n"
    "      <CODE>0000</CODE>\n"
    "      <QTY>0</QTY>\n"
    "      <WEIGHT>0</WEIGHT>\n"
    "      <PRIO>0</PRIO>\n"
    "      <FLAGS>0</FLAGS>\n"
    "      <RAW>0000</RAW>\n"
    "      <SHARE>-0.125</SHARE>\n"
    "    </T2>\n"
    "    <I3>\n"
    "      <H_IDENT/>\n"
    "      <T_IDENT/>\n"
    "      <IDENT>I3</IDENT>\n"
    "      <NOTE>inner  blanks stay</NOTE>\n"
    "      <DAY>20000229</DAY>\n"
    "      <AT>000000</AT>\n"
    "      <AMOUNT>0.00</AMOUNT>\n"
    "      <CODE>9999</CODE>\n"
    "      <QTY>1</QTY>\n"
    "      <WEIGHT>1</WEIGHT>\n"
    "      <PRIO>1</PRIO>\n"
    "      <FLAGS>1</FLAGS>\n"
    "      <RAW>0100</RAW>\n"
    "      <SHARE>0.000</SHARE>\n"
    "    </I3>\n";

std::string XmlStart(const std::string& function, const std::string& id,
                     const std::string& structure) {
  return "<?xml version=\"1.0\" encoding=\"iso-8859-1\"?>\n\n\n<BATCH>\n  <" + function +
         " TIMESTAMP=\"" + id + "\" BEGIN=\"1\" TABLE=\"" + structure + "\"";
}

// The header block of one service cycle, checked line by line.
void ExpectHeader(const std::vector<std::string>& lines, size_t at, const std::string& path,
                  const std::string& instance) {
  ASSERT_GE(lines.size(), at + 8);
  EXPECT_EQ(lines[at], kLogRule);
  EXPECT_EQ(lines[at + 1], "# HEADER");
  EXPECT_EQ(lines[at + 2], "# Path: " + path);
  EXPECT_EQ(lines[at + 3].substr(0, 13), "# Date/Time: ");
  EXPECT_TRUE(std::regex_match(lines[at + 3].substr(13), kDateTime)) << lines[at + 3];
  EXPECT_EQ(lines[at + 4], "# DESCRIPTION: " + instance);
  EXPECT_EQ(lines[at + 5], "# CLOCKS_PER_SEC: 1000");
  EXPECT_EQ(lines[at + 6], kLogRule);
  EXPECT_EQ(lines[at + 7], "");
}

// A cycle that ended in a library error: the time-stamped record of
// RFC_ERROR_INFO on one entry, one CR LF at its end.
void ExpectLibraryErrorCycle(const std::string& cycle, const std::string& reason) {
  EXPECT_TRUE(std::regex_match(cycle.substr(0, 17), kDateTime)) << cycle;
  EXPECT_EQ(cycle.substr(17, 23), " - RFC_ERROR_INFO\nKey: ") << cycle;
  EXPECT_EQ(CountOf(cycle, "RFC_ERROR_INFO"), 1) << cycle;
  EXPECT_EQ(CountOf(cycle, "\r\n"), 1) << cycle;
  for (const char* field : {"\nStatus: ", "\nMessage: ", "\nInitstate: "}) {
    EXPECT_NE(cycle.find(field), std::string::npos) << cycle;
  }
  EXPECT_NE(cycle.find(reason), std::string::npos) << cycle;
  EXPECT_EQ(cycle.substr(cycle.size() - 2), "\r\n");
}

TEST_F(BatchServerE2eTest, ServesBatchesAndWritesLogAndXmlByteForByte) {
  StartServer();
  ASSERT_TRUE(WaitForServing()) << LogText() << ServerErr();

  // The start of the log: header, the offered functions, the waiting lines.
  const std::string log = LogText();
  const std::vector<std::string> lines = CrLfLines(log);
  ExpectHeader(lines, 0, LogPath(), instance_);
  EXPECT_EQ(log.substr(log.find(kLogRule + "\r\n\r\n") + kLogRule.size() + 4),
            std::string("Add Server Function: Z_E2E_ALL\r\n"
                        "Add Server Function: Z_E2E_SMALL\r\n") +
                kWaiting);

  // A batch with every field type.
  sapsim::testing::RunResult call = Call("Z_E2E_ALL", "ZE2E_ALL", kAllTypesCsv);
  EXPECT_EQ(call.exit_code, 0) << call.err;
  EXPECT_EQ(call.out, "BATCH_RC=1\n");
  ASSERT_EQ(XmlFiles().size(), 1u);
  const std::string file = XmlFiles()[0];
  ASSERT_TRUE(std::regex_match(file, std::regex(R"([0-9]{15}\.xml)"))) << file;
  const std::string id = file.substr(0, 15);
  EXPECT_EQ(testutil::ReadBytes(xml_ + "/" + file),
            XmlStart("Z_E2E_ALL", id, "ZE2E_ALL") + ">\n" + kAllTypesRows +
                "  </Z_E2E_ALL>\n</BATCH>");
  const std::string after = LogText().substr(log.size());
  EXPECT_TRUE(std::regex_match(after, std::regex(R"(\d\d/\d\d/\d\d \d\d:\d\d:\d\d - Receive data: )" +
                                                 id + R"(\.xml\r\n)")))
      << after;

  // An empty batch still makes a file, an entry and BATCH_RC=1.
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  call = Call("Z_E2E_SMALL", "ZE2E_SMALL", "H_IDENT,NAME\n");
  EXPECT_EQ(call.exit_code, 0) << call.err;
  EXPECT_EQ(call.out, "BATCH_RC=1\n");
  ASSERT_EQ(XmlFiles().size(), 2u);
  const std::string empty_id = XmlFiles()[1].substr(0, 15);
  EXPECT_EQ(testutil::ReadBytes(xml_ + "/" + XmlFiles()[1]),
            XmlStart("Z_E2E_SMALL", empty_id, "ZE2E_SMALL") + "/>\n</BATCH>");
  EXPECT_EQ(Receipts(), 2);

  // Functions of rows with ACTIVE y, blank, or an unknown structure are not
  // offered: the library-wide dispatcher refuses them, and serving goes on.
  for (const char* function : {"Z_E2E_LOWER", "Z_E2E_BLANK", "Z_E2E_UNKNOWN"}) {
    call = Call(function, "ZE2E_SMALL", "H_IDENT,NAME\nK1,x\n");
    EXPECT_EQ(call.exit_code, 1) << function;
    EXPECT_EQ(call.out, "EXCEPTION=RFC function does not exist!\n") << function << call.err;
  }
  EXPECT_EQ(CountOf(ServerOut(), "\n Main Thread  RFC function does not exist!"), 3) << ServerOut();
  call = Call("Z_E2E_SMALL", "ZE2E_SMALL", "H_IDENT,NAME\nK1,x\n");
  EXPECT_EQ(call.out, "BATCH_RC=1\n");
  EXPECT_EQ(Receipts(), 3);

  // Nothing was wrong, so one cycle, and no trace while tracing is off.
  EXPECT_EQ(Cycles().size(), 1u);
  EXPECT_TRUE(std::filesystem::is_empty(work_));
  EXPECT_EQ(ServerErr(), "");
}

TEST_F(BatchServerE2eTest, StopEventEndsTheWorkerAtTheNextIdleMomentAndTheProcessStays) {
  settings_["sap.server.listen.timer"] = "1500";
  StartServer();
  ASSERT_TRUE(WaitForServing()) << LogText();
  // The worker must be in the server loop, not still registering.
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  const std::size_t threads = server_->ThreadCount();

  const sapsim::testing::RunResult stop = Batchctl("stop");
  ASSERT_EQ(stop.exit_code, 0) << stop.err;
  ASSERT_TRUE(Eventually([&] { return server_->ThreadCount() < threads; })) << server_->ThreadCount();

  // The registration ended with the cycle: SAP can no longer deliver.
  const sapsim::testing::RunResult call = Call("Z_E2E_SMALL", "ZE2E_SMALL", "H_IDENT,NAME\nK,x\n");
  EXPECT_EQ(call.exit_code, 1);
  EXPECT_NE(call.err.find("no RFC server program is registered"), std::string::npos) << call.err;

  // The process stays, starts no new cycle, and reports the stop.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_FALSE(server_->Poll().has_value());
  EXPECT_EQ(Cycles().size(), 1u);
  EXPECT_EQ(Batchctl("status").exit_code, 2);

  const std::optional<int> status = server_->Terminate();
  ASSERT_TRUE(status.has_value());
  EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << *status;
}

// batchctl status against the real server through its life, and what a
// service manager hears from it.
TEST_F(BatchServerE2eTest, StatusTellsWhatTheWorkerDoesInEveryState) {
  const std::string notify = dir_.File("notify");
  testutil::NotifySocket manager(notify);
  ASSERT_TRUE(manager.bound());
  std::string batch_id;
  const std::string gateway = "gateway 127.0.0.1 " + sapsim_->port_text() + "\\)";
  const struct {
    const char* step;
    std::function<void()> action;
    int exit_code;
    std::string first_line;  // a regular expression
    const char* json_state;
  } steps[] = {
      {"before the start", [] {}, 3, "not running", "not running"},
      {"started",
       [&] {
         setenv("NOTIFY_SOCKET", notify.c_str(), 1);
         StartServer();
         unsetenv("NOTIFY_SOCKET");
       },
       0, "serving since [-0-9: ]+ \\(program id BATCHE2E, " + gateway, "serving"},
      {"a batch",
       [&] {
         ASSERT_EQ(Call("Z_E2E_SMALL", "ZE2E_SMALL", "H_IDENT,NAME\nK,x\n").exit_code, 0);
         batch_id = XmlFiles().at(0).substr(0, 15);
       },
       0, "serving since .*", "serving"},
      {"SAP gone", [&] { sapsim_.reset(); }, 1, "retrying since [-0-9: ]+: RFC_ERROR_\\w+: .+",
       "retrying"},
      {"stopped", [&] { ASSERT_EQ(Batchctl("stop").exit_code, 0); }, 2,
       "ended at [-0-9: ]+: stopped through the stop event", "ended"},
      {"terminated",
       [&] {
         ASSERT_TRUE(server_->Terminate().has_value());
         batch_id.clear();
       },
       3, "not running",
       "not running"},
      {"library missing",
       [&] {
         settings_["sap.library"] = dir_.File("nowhere.so");
         StartServer();
       },
       2, "ended at [-0-9: ]+: Failed to load dll: '" + dir_.File("nowhere.so") + "'", "ended"},
  };
  const std::string batchctl = sapsim::testing::BuildDir() + "/bin/batchctl";
  for (const auto& s : steps) {
    SCOPED_TRACE(s.step);
    s.action();
    sapsim::testing::RunResult person;
    ASSERT_TRUE(Eventually([&] {
      person = Batchctl("status");
      return person.exit_code == s.exit_code &&
             std::regex_match(person.out.substr(0, person.out.find('\n')), std::regex(s.first_line));
    })) << person.exit_code << "\n" << person.out << Tail(LogText());
    const sapsim::testing::RunResult json =
        sapsim::testing::RunCommand({batchctl, "status", "--json", instance_});
    EXPECT_EQ(json.exit_code, s.exit_code);
    EXPECT_NE(json.out.find("\"state\":\"" + std::string(s.json_state) + "\""), std::string::npos)
        << json.out;
    if (!batch_id.empty() && s.exit_code != 3) {
      EXPECT_NE(person.out.find("\nbatches:        1 since start, the last " + batch_id + " at "),
                std::string::npos)
          << person.out;
    }
  }
  // Ready at once, then the line of every state the worker went through.
  std::string states;
  for (const std::string& message : manager.Received()) {
    const std::string line = message.substr(message.find("STATUS=") + 7);
    states += (states.empty() ? message.substr(0, 8) : " ") + line.substr(0, line.find(' '));
  }
  EXPECT_TRUE(std::regex_match(
      states, std::regex("READY=1\npreparing serving (preparing )?(retrying )+(stopping )?ended")))
      << states;
}

TEST_F(BatchServerE2eTest, LogsOnThroughTheMessageServerWhenLoadBalancingIsYes) {
  sapsim_.reset();
  StartSapsim(0, /*message_server=*/true);
  settings_["sap.server.gateway.service"] = sapsim_->port_text();
  settings_["sap.client.loadbalancing"] = "Yes";
  settings_["sap.client.lb.messageserver"] = "127.0.0.1";
  settings_["sap.client.lb.system"] = "E2E";
  settings_["sap.client.lb.group"] = "PUBLIC";
  // The application server settings must not be what makes it work.
  settings_["sap.client.host"] = "no.such.host.invalid";
  // The stand-in library finds the message server through this variable.
  ASSERT_EQ(setenv("RFCSIM_MS_PORT", std::to_string(sapsim_->ms_port()).c_str(), 1), 0);
  StartServer();
  unsetenv("RFCSIM_MS_PORT");
  ASSERT_TRUE(WaitForServing()) << LogText();
  EXPECT_EQ(Call("Z_E2E_SMALL", "ZE2E_SMALL", "H_IDENT,NAME\nLB,balanced\n").out, "BATCH_RC=1\n");
  EXPECT_EQ(Receipts(), 1);
  EXPECT_NE(sapsim_->Log().find("PUBLIC"), std::string::npos) << sapsim_->Log();
}

// Cycles that fail before serving are logged once each and retried at once.
TEST_F(BatchServerE2eTest, CycleThatFailsBeforeServingIsLoggedAndRetried) {
  // A system without ZKTZ_BATCHES: RFC_READ_TABLE raises TABLE_NOT_AVAILABLE.
  std::string without_batches = TestSystem();
  without_batches = without_batches.substr(0, without_batches.rfind(',', without_batches.find("\"tables\""))) + "\n}";
  const size_t structure = without_batches.find("\"ZKTZ_BATCHES\": [");
  without_batches.erase(structure, without_batches.find("],", structure) + 2 - structure);
  const std::map<std::string, std::string> defaults = settings_;
  const struct {
    const char* why;
    std::map<std::string, std::string> settings;
    std::string system;
    bool message_server;
    const char* reason;  // "" for an exception that is no library error
  } cases[] = {
      {"wrong password", {{"sap.client.user.password", "wrong"}}, TestSystem(), false,
       "name or password is incorrect"},
      {"unknown logon group",
       {{"sap.client.loadbalancing", "Yes"}, {"sap.client.lb.messageserver", "127.0.0.1"},
        {"sap.client.lb.system", "E2E"}, {"sap.client.lb.group", "NOGROUP"}},
       TestSystem(), true, "NOGROUP"},
      {"no batch table", {}, without_batches, false, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    server_.reset();
    std::filesystem::remove_all(logs_);
    std::filesystem::create_directory(logs_);
    RestartSapsimWith(c.system, c.message_server);
    const std::string port = settings_["sap.server.gateway.service"];
    settings_ = defaults;
    settings_["sap.server.gateway.service"] = port;
    for (const auto& [key, value] : c.settings) settings_[key] = value;
    if (c.message_server) {
      ASSERT_EQ(setenv("RFCSIM_MS_PORT", std::to_string(sapsim_->ms_port()).c_str(), 1), 0);
    }
    StartServer();
    unsetenv("RFCSIM_MS_PORT");
    ASSERT_TRUE(Eventually([&] { return Cycles().size() >= 3; })) << LogText();
    const std::vector<std::string> cycles = Cycles();
    for (size_t i = 0; i + 1 < cycles.size(); ++i) {
      if (*c.reason != '\0') {
        ExpectLibraryErrorCycle(cycles[i], c.reason);
      } else {
        EXPECT_TRUE(std::regex_match(cycles[i], std::regex(R"(\d\d/\d\d/\d\d \d\d:\d\d:\d\d - UNKNOWN EXEPTION\n\r\n)")))
            << cycles[i];
      }
    }
    EXPECT_EQ(Waits(), 0);
    EXPECT_FALSE(server_->Poll().has_value());
  }
}

TEST_F(BatchServerE2eTest, ClassLibraryTraceGoesIntoTheStartDirectoryWhenSwitchedOn) {
  settings_["sap.client.trace"] = "1";
  StartServer();
  ASSERT_TRUE(WaitForServing()) << LogText();
  for (int batch = 0; batch < 3; ++batch) {
    ASSERT_EQ(Call("Z_E2E_SMALL", "ZE2E_SMALL", "H_IDENT,NAME\nT,traced\n").out, "BATCH_RC=1\n");
  }
  // The teardown after a stop is traced too, and must free nothing twice.
  const std::size_t threads = server_->ThreadCount();
  ASSERT_EQ(Batchctl("stop").exit_code, 0);
  ASSERT_TRUE(Eventually([&] { return server_->ThreadCount() < threads; }));

  std::string traces;
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(work_)) {
    ++files;
    EXPECT_TRUE(std::regex_match(entry.path().filename().string(), std::regex(R"(crfc\d+\.trc)")))
        << entry.path();
    traces += testutil::ReadBytes(entry.path().string());
  }
  // One worker thread writes them all.
  EXPECT_EQ(files, 1);
  EXPECT_NE(traces.find("Rfc Class Library Trace at   "), std::string::npos);
  EXPECT_NE(traces.find("CRfcClientFunc::CallReceive called\r\nRFC_READ_TABLE\r\n"),
            std::string::npos);
  EXPECT_NE(traces.find("CRfcConnection::DoOpen (void *) called\r\nOpening connection to: \r\n"),
            std::string::npos);
  EXPECT_NE(traces.find("CRfcServerApp::Dispatch called\r\n"), std::string::npos);
  EXPECT_NE(traces.find("CRfcConnection::Close(void) called\r\n"), std::string::npos);
  EXPECT_EQ(traces.find("Failure!"), std::string::npos) << traces;
}

TEST_F(BatchServerE2eTest, LogDirectoryThatDisappearsIsReportedAndServingResumesWhenItIsBack) {
  StartServer();
  ASSERT_TRUE(WaitForServing()) << LogText();
  std::filesystem::remove_all(logs_);

  // The batch's log entry cannot be written: the call fails, the cycle ends,
  // and the report goes to standard error.
  sapsim::testing::RunResult call = Call("Z_E2E_SMALL", "ZE2E_SMALL", "H_IDENT,NAME\nLOST,entry\n");
  EXPECT_NE(call.exit_code, 0);
  EXPECT_EQ(XmlFiles().size(), 1u);
  ASSERT_TRUE(Eventually([&] { return CountOf(ServerErr(), "Error in log file for: '") >= 1; }))
      << ServerErr();
  const std::string err = ServerErr();
  EXPECT_NE(err.find("batchserver " + instance_ + ": Error in log file for: '" + instance_ +
                     "', file name: '" + logs_ + "/"),
            std::string::npos)
      << err;
  EXPECT_NE(err.find("', cause: '3'; not logged: UNKNOWN EXEPTION\n"), std::string::npos) << err;
  EXPECT_FALSE(server_->Poll().has_value());

  // Once the directory is back the next cycle logs and serves again.
  std::filesystem::create_directory(logs_);
  ASSERT_TRUE(WaitForServing()) << LogText();
  call = Call("Z_E2E_SMALL", "ZE2E_SMALL", "H_IDENT,NAME\nAGAIN,served\n");
  EXPECT_EQ(call.out, "BATCH_RC=1\n");
  EXPECT_EQ(Receipts(), 1);
  EXPECT_EQ(XmlFiles().size(), 2u);
  EXPECT_NE(ServerErr().find("batchserver " + instance_ + ": the log is written again, "),
            std::string::npos);
}

TEST_F(BatchServerE2eTest, BatchThatDoesNotFitTheStructureIsRefusedAndServingGoesOn) {
  StartServer();
  ASSERT_TRUE(WaitForServing()) << LogText();
  // QTY arrives as text that is no number: the receive fails.
  sapsim::testing::RunResult call =
      Call("Z_E2E_ALL", "ZE2E_ALL_TEXT", "H_IDENT,QTY\nH1,12\nH2,many\n");
  EXPECT_NE(call.exit_code, 0);
  EXPECT_EQ(call.out.find("BATCH_RC"), std::string::npos) << call.out;
  ASSERT_TRUE(Eventually([&] {
    return ServerOut().find("\nRFC call/exception during Invoke of CRfcServerApp\n") !=
           std::string::npos;
  })) << ServerOut();
  EXPECT_NE(ServerOut().find("\n Main Thread  \nRFC call/exception during Invoke of CRfcServerApp\nKey         "),
            std::string::npos);
  EXPECT_TRUE(XmlFiles().empty());
  EXPECT_EQ(Receipts(), 0);

  // Fields the caller does not send arrive initial; such a batch is taken.
  call = Call("Z_E2E_ALL", "ZE2E_ALL_TEXT", "H_IDENT,QTY\nH1,12\n");
  EXPECT_EQ(call.out, "BATCH_RC=1\n") << call.err;
  call = Call("Z_E2E_ALL", "ZE2E_ALL", kAllTypesCsv);
  EXPECT_EQ(call.out, "BATCH_RC=1\n") << call.err;
  EXPECT_EQ(Receipts(), 2);
  EXPECT_EQ(Cycles().size(), 1u);
}

TEST_F(BatchServerE2eTest, CallerThatDisconnectsInTheMiddleLeavesTheServerServing) {
  StartServer();
  ASSERT_TRUE(WaitForServing()) << LogText();
  std::string csv = "H_IDENT,NAME\n";
  for (int i = 0; i < 2000; ++i) csv += "K" + std::to_string(i) + ",name " + std::to_string(i) + "\n";
  const std::string csv_file = dir_.Write("big.csv", csv);
  {
    testutil::ChildProcess caller({sapsim::testing::SapsimPath(), "call", "--port",
                                   sapsim_->port_text(), "--program-id", kProgramId, "--function",
                                   "Z_E2E_SMALL", "--structure", "ZE2E_SMALL", "--csv", csv_file,
                                   "--repeat", "100000"},
                                  "", dir_.File("caller.out"), dir_.File("caller.err"));
    ASSERT_TRUE(Eventually([&] { return Receipts() >= 3; })) << LogText();
    caller.Kill(SIGKILL);
  }
  // A batch in flight when the caller went is still written; wait for it.
  int before = -1;
  ASSERT_TRUE(Eventually([&] {
    const int now = Receipts();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    before = Receipts();
    return now == before;
  }));
  const sapsim::testing::RunResult call = Call("Z_E2E_SMALL", "ZE2E_SMALL", "H_IDENT,NAME\nK,x\n");
  EXPECT_EQ(call.out, "BATCH_RC=1\n") << call.err;
  EXPECT_EQ(Receipts(), before + 1);
  EXPECT_EQ(Cycles().size(), 1u);
  EXPECT_FALSE(server_->Poll().has_value());
}

}  // namespace
// Instances on one host and one SAP system: under program ids of their own
// they serve side by side; a second one under the same program id cancels the
// first one's registration when its cycle starts (what follows is a race:
// more cancelling, or both registered), and the first serves again once the
// other is gone.
TEST_F(BatchServerE2eTest, InstancesServeSideBySideOnlyUnderProgramIdsOfTheirOwn) {
  StartServer();
  ASSERT_TRUE(WaitForServing()) << LogText();
  auto start_other = [&](const std::string& tag, const std::string& program_id) {
    std::map<std::string, std::string> settings = settings_;
    settings["sap.server.programm.id"] = program_id;
    settings["sap.path"] = dir_.File("logs" + tag);
    settings["xml.path"] = dir_.File("xml" + tag);
    for (const char* key : {"sap.path", "xml.path"}) std::filesystem::create_directory(settings[key]);
    return StartInstance(instance_ + tag, settings, tag);
  };
  auto waits_of = [&](const std::string& tag) {
    return CountOf(testutil::FilesText(dir_.File("logs" + tag)), "\r\n...WAITING FOR BATCHES...\r\n");
  };
  const std::string batch = "H_IDENT,NAME\nK1,x\n";

  auto second = start_other("2", "BATCHE2F");
  ASSERT_TRUE(Eventually([&] { return waits_of("2") == 1; })) << ServerErr();
  EXPECT_EQ(Call("Z_E2E_SMALL", "ZE2E_SMALL", batch).out, "BATCH_RC=1\n");
  EXPECT_EQ(Call("Z_E2E_SMALL", "ZE2E_SMALL", batch, "BATCHE2F").out, "BATCH_RC=1\n");
  EXPECT_EQ(XmlFiles().size(), 1u);
  EXPECT_EQ(testutil::FileNames(dir_.File("xml2")).size(), 1u);
  EXPECT_EQ(Waits(), 1) << "the second instance did not disturb the first";
  EXPECT_EQ(waits_of("2"), 1);

  auto third = start_other("3", kProgramId);
  EXPECT_TRUE(Eventually([&] { return Waits() >= 2 && waits_of("3") >= 1; })) << LogText();
  EXPECT_EQ(waits_of("2"), 1) << "another program id is not touched";
  EXPECT_EQ(third->Terminate(), 0) << "SIGTERM ends it in order";
  // The first settles and is reached again.
  EXPECT_TRUE(Eventually([&] { return Call("Z_E2E_SMALL", "ZE2E_SMALL", batch).out == "BATCH_RC=1\n"; }));
}

}  // namespace e2e
