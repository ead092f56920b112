// The batch server end to end: sapsim serve, the batchserver binary and
// sapsim call as real processes on free ports. Then the server application's
// thread pool in this process: pool threads registered under one program id
// serve concurrent sapsim call processes, each call on a clone, until the
// gateway cancels the registrations.

#include <stdlib.h>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <mutex>
#include <set>
#include <thread>
#include <tuple>

#include "app/gateway_connection.h"
#include "platform/thread.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_table_param.h"
#include "rfc/server/rfc_server_app.h"
#include "rfc/server/rfc_server_func.h"
#include "tests/e2e/batchserver_e2e_fixture.h"
#include "tests/support/notify_socket.h"

namespace e2e {
namespace {

class BatchServerProcessTest : public BatchServerE2eTest {
 protected:
  // Writes the INI and starts the server in the work directory; `tag` keeps
  // another instance's INI and output files apart.
  std::unique_ptr<testutil::ChildProcess> StartInstance(const std::string& instance,
                                                        const std::map<std::string, std::string>& settings,
                                                        const std::string& tag = "") {
    return std::make_unique<testutil::ChildProcess>(
        std::vector<std::string>{testutil::BuildDir() + "/bin/batchserver", instance,
                                 WriteIni(instance, settings, tag)},
        work_, dir_.File("server" + tag + ".out"), dir_.File("server" + tag + ".err"));
  }
  void StartServer() {
    server_ = StartInstance(instance_, settings_);
    ASSERT_TRUE(server_->started());
  }
  std::string ServerErr() const { return testutil::ReadBytes(dir_.File("server.err")); }
  testutil::RunResult Batchctl(const std::string& command) {
    return testutil::RunCommand({testutil::BuildDir() + "/bin/batchctl", command, instance_});
  }

  std::unique_ptr<testutil::ChildProcess> server_;
};

// The replies, the log (header block, offered functions, waiting lines, one
// entry per batch), every XML document and what the process printed, whole.
// Then the stop event ends the traced worker and the process stays.
TEST_F(BatchServerProcessTest, ServesBatchesByteForByteAndTheStopEventEndsTheWorkerButNotTheProcess) {
  // An INI file that cannot be read ends the process with its message.
  const testutil::RunResult refused = testutil::RunCommand(
      {testutil::BuildDir() + "/bin/batchserver", instance_, dir_.File("missing dir name.ini")});
  std::string transcript = "missing INI -> " + testutil::Join(refused.exit_code, refused.out, refused.err) + "\n";
  settings_["sap.client.trace"] = "1";
  StartServer();
  ASSERT_TRUE(WaitForServing()) << LogText() << ServerErr();
  // A batch with every field type (special characters, blanks, identifiers
  // from each of the three columns, a row without any); an empty batch still
  // makes a file, an entry and BATCH_RC=1. Functions of rows with ACTIVE y,
  // blank, or an unknown structure are not offered: the library-wide
  // dispatcher refuses them, and serving goes on.
  const std::vector<std::vector<std::string>> calls = {
      {testutil::ReadBytes(DataFile("all_types.csv")), "Z_E2E_ALL", "ZE2E_ALL"},
      {"H_IDENT,NAME\n", "Z_E2E_SMALL"}, {kSmall, "Z_E2E_LOWER"}, {kSmall, "Z_E2E_BLANK"},
      {kSmall, "Z_E2E_UNKNOWN"}, {kSmall, "Z_E2E_SMALL"}};
  for (const auto& c : calls) {
    const testutil::RunResult call = Call(c[0], c[1], c.size() > 2 ? c[2] : "ZE2E_SMALL");
    transcript += c[1] + " -> " + testutil::Join(call.exit_code, call.out) + "\n";
  }
  transcript += "== log\n" + LogText();
  for (const std::string& file : XmlFiles()) transcript += "\n== " + file + "\n" + testutil::ReadBytes(xml_ + "/" + file);
  transcript += "\n== out\n" + testutil::ReadBytes(dir_.File("server.out")) + "\n== err\n" + ServerErr();
  EXPECT_TRUE(testutil::MatchesExpectedFile(Normalised(transcript), "tests/e2e/expected/serving.txt"));

  const std::size_t threads = server_->ThreadCount();
  const testutil::RunResult stop = Batchctl("stop");
  ASSERT_EQ(stop.exit_code, 0) << stop.err;
  ASSERT_TRUE(Eventually([&] { return server_->ThreadCount() < threads; })) << server_->ThreadCount();

  // The registration ended with the cycle: SAP can no longer deliver.
  const testutil::RunResult call = Call(kSmall);
  EXPECT_EQ(call.exit_code, 1);
  EXPECT_NE(call.err.find("no RFC server program is registered"), std::string::npos) << call.err;

  // One worker thread wrote the trace into the start directory; the teardown
  // after the stop is traced too, and must free nothing twice.
  const std::vector<std::string> names = testutil::FileNames(work_);
  ASSERT_EQ(names.size(), 1u);
  const std::string trace = testutil::ReadBytes(work_ + "/" + names[0]);
  EXPECT_EQ(testutil::Join(std::regex_match(names[0], std::regex(R"(crfc\d+\.trc)")), CountOf(trace, "Failure!"),
                           CountOf(trace, "CRfcConnection::Close(void) called\r\n") > 0),
            "1|0|1|")
      << names[0] << "\n" << trace;

  // The process stays, starts no new cycle, reports the stop, and SIGTERM
  // still ends it in order.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  std::string seen = testutil::Join(server_->Poll().has_value(), Cycles().size(), Batchctl("status").exit_code);
  EXPECT_EQ(seen + testutil::Join(server_->Terminate() == 0), "0|1|2|1|");
}

// batchctl status against the real server through its life, and what a
// service manager hears from it.
TEST_F(BatchServerProcessTest, StatusTellsWhatTheWorkerDoesInEveryState) {
  const std::string notify = dir_.File("notify");
  testutil::NotifySocket manager(notify);
  ASSERT_TRUE(manager.bound());
  std::string batch_id;
  // What a person reads: the exit code and the first line (a regular
  // expression); the last batch once there was one.
  auto status_is = [&](int exit_code, const std::string& first_line) {
    testutil::RunResult person;
    ASSERT_TRUE(Eventually([&] {
      person = Batchctl("status");
      return person.exit_code == exit_code &&
             std::regex_match(person.out.substr(0, person.out.find('\n')), std::regex(first_line));
    })) << first_line << "\n" << person.exit_code << "\n" << person.out << LogText();
    if (!batch_id.empty()) {
      EXPECT_NE(person.out.find("\nbatches:        1 since start, the last " + batch_id + " at "), std::string::npos)
          << person.out;
    }
  };
  status_is(3, "not running");
  setenv("NOTIFY_SOCKET", notify.c_str(), 1);
  StartServer();
  unsetenv("NOTIFY_SOCKET");
  status_is(0, "serving since [-0-9: ]+ \\(program id BATCHE2E, gateway 127.0.0.1 " + sapsim_->port_text() + "\\)");
  ASSERT_EQ(Call(kSmall).exit_code, 0);
  batch_id = XmlFiles().at(0).substr(0, 15);
  status_is(0, "serving since .*");
  sapsim_.reset();
  status_is(1, "retrying since [-0-9: ]+: RFC_ERROR_\\w+: .+");
  ASSERT_EQ(Batchctl("stop").exit_code, 0);
  status_is(2, "ended at [-0-9: ]+: stopped through the stop event");
  ASSERT_TRUE(server_->Terminate().has_value());
  batch_id.clear();
  status_is(3, "not running");
  const std::string nowhere = dir_.File("nowhere.so");
  settings_["sap.library"] = nowhere;
  StartServer();
  status_is(2, "ended at [-0-9: ]+: Failed to load dll: '" + nowhere + "'");
  // A library that cannot be loaded ends the worker for good: no retry, the
  // last cycle is "MM/DD/YY hh:mm:ss" and the one entry.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(Normalised(Cycles().back().body), "MM/DD/YY hh:mm:ss - Exception: Failed to load dll: '<dir>/nowhere.so'\r\n");
  EXPECT_FALSE(server_->Poll().has_value());
  // Ready at once, then the line of every state the worker went through.
  std::string states;
  for (const std::string& message : manager.Received()) {
    const std::string line = message.substr(message.find("STATUS=") + 7);
    states += (states.empty() ? message.substr(0, 8) : " ") + line.substr(0, line.find(' '));
  }
  EXPECT_TRUE(std::regex_match(states, std::regex("READY=1\npreparing serving (preparing )?(retrying )+(stopping )?ended")))
      << states;
  EXPECT_EQ(testutil::FileNames(work_).size(), 0u) << "trace 0 writes no trace";
}

// A logon through the message server serves; cycles that fail before
// serving are logged once each, alike, and retried at once.
TEST_F(BatchServerProcessTest, LogonThroughTheMessageServerServesAndCyclesThatFailBeforeServingAreRetried) {
  const std::map<std::string, std::string> defaults = settings_;
  // Why, the settings over the defaults, sapsim's system, whether it runs a message server.
  const std::tuple<const char*, std::map<std::string, std::string>, const char*, bool> cases[] = {
      // The application server settings must not be what makes it work.
      {"load balancing",
       {{"sap.client.loadbalancing", "Yes"}, {"sap.client.lb.messageserver", "127.0.0.1"},
        {"sap.client.lb.system", "E2E"}, {"sap.client.lb.group", "PUBLIC"}, {"sap.client.host", "no.such.host.invalid"}},
       "system.json", true},
      {"wrong password", {{"sap.client.user.password", "wrong"}}, "system.json", false},
      {"unknown logon group",
       {{"sap.client.loadbalancing", "Yes"}, {"sap.client.lb.messageserver", "127.0.0.1"},
        {"sap.client.lb.system", "E2E"}, {"sap.client.lb.group", "NOGROUP"}},
       "system.json", true},
      // Without ZKTZ_BATCHES, RFC_READ_TABLE raises TABLE_NOT_AVAILABLE.
      {"no batch table", {}, "system_without_batches.json", false},
  };
  std::string transcript;
  for (const auto& [why, settings, system, message_server] : cases) {
    SCOPED_TRACE(why);
    server_.reset();
    std::filesystem::remove_all(logs_);
    std::filesystem::create_directory(logs_);
    settings_ = defaults;
    StartSapsim(0, {}, message_server, system);
    for (const auto& [key, value] : settings) settings_[key] = value;
    // The stand-in library finds the message server through this variable.
    if (message_server) setenv("RFCSIM_MS_PORT", std::to_string(sapsim_->ms_port()).c_str(), 1);
    StartServer();
    unsetenv("RFCSIM_MS_PORT");
    transcript += "== " + std::string(why) + "\n";
    if (std::string(why) == "load balancing") {  // serves
      ASSERT_TRUE(WaitForServing()) << LogText();
      transcript += Call(kSmall).out;  // the log is read after the call
      transcript += testutil::Join(CountOf(sapsim_->Log(), "PUBLIC") > 0) + "\n";
      continue;
    }
    ASSERT_TRUE(Eventually([&] { return Cycles().size() >= 3; })) << LogText();
    const std::vector<LoggedCycle> cycles = Cycles();
    transcript += testutil::Join(Waits(), server_->Poll().has_value(), Normalised(cycles[1].body) == Normalised(cycles[0].body));
    transcript += "\n" + Normalised(cycles[0].body);
  }
  EXPECT_TRUE(testutil::MatchesExpectedFile(transcript, "tests/e2e/expected/logon.txt"));
}

// Instances on one host and one SAP system: under program ids of their own
// they serve side by side; a second one under the same program id cancels the
// first one's registration when its cycle starts (what follows is a race:
// more cancelling, or both registered), and the first serves again once the
// other is gone.
TEST_F(BatchServerProcessTest, InstancesServeSideBySideOnlyUnderProgramIdsOfTheirOwn) {
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
    return CountOf(testutil::FilesText(dir_.File("logs" + tag)), kWaiting);
  };
  auto second = start_other("2", "BATCHE2F");
  ASSERT_TRUE(Eventually([&] { return waits_of("2") == 1; })) << ServerErr();
  // Each serves its own batch; neither disturbed the other.
  const std::string replies = Call(kSmall).out + Call(kSmall, "Z_E2E_SMALL", "ZE2E_SMALL", "BATCHE2F").out;
  const std::string files = testutil::Join(XmlFiles().size(), testutil::FileNames(dir_.File("xml2")).size());
  EXPECT_EQ(replies + files + testutil::Join(Waits(), waits_of("2")), "BATCH_RC=1\nBATCH_RC=1\n1|1|1|1|");

  auto third = start_other("3", kProgramId);
  EXPECT_TRUE(Eventually([&] { return Waits() >= 2 && waits_of("3") >= 1; })) << LogText();
  EXPECT_EQ(waits_of("2"), 1) << "another program id is not touched";
  EXPECT_EQ(third->Terminate(), 0) << "SIGTERM ends it in order";
  // The first settles and is reached again.
  EXPECT_TRUE(Eventually([&] { return Call(kSmall).out == "BATCH_RC=1\n"; }));
}

// Receives a table of ZE2E_SMALL lines and answers with their count.
class CountingFunc : public CRfcServerFunc {
 public:
  explicit CountingFunc(const char* name) : CRfcServerFunc(name) { Init(); }
  CountingFunc(const CountingFunc& other) : CRfcServerFunc(other) {
    Init();
    ++clones;
  }
  CRfcServerFunc* clone() override { return new CountingFunc(*this); }

  int Process() override {
    const unsigned lines = table_.GetTableHandle() != nullptr ? ItFill(table_.GetTableHandle()) : 0;
    {
      std::lock_guard<std::mutex> hold(lock);
      threads.insert(platform::CurrentThreadId());
    }
    // Long enough that concurrent callers find this thread busy.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    rc_.Value() = static_cast<RFC_INT>(lines);
    rc_.SetActive(1);
    return 0;
  }

  static inline std::atomic<int> clones{0};
  static inline std::mutex lock;
  static inline std::set<uint32_t> threads;

 private:
  void Init() {
    AddExport(&rc_);
    AddTable(&table_);
  }
  CRfcSimpleParam rc_{"BATCH_RC", TYPE_INT, 4, 0, 0};
  CRfcTableParam table_{"BATCH_TABLE", 30, 0, 0, nullptr, ""};
};

class ServerPoolE2eTest : public BatchServerE2eTest {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(LoadRfcLibrary(sapsim::testing::LibraryPath().c_str())); }

  void SetUp() override {
    BatchServerE2eTest::SetUp();
    // The application's connection learns the accept vector by registering
    // once; closing it ends that registration, so only the pool's remain.
    connection_ = std::make_unique<CGatewayConnection>(kProgramId, "127.0.0.1", sapsim_->port_text());
    connection_->Register();
    connection_->Close();
  }

  // The gateway's count of ready or busy registrations of the program id.
  int Registered() {
    int total = 0, initialising = 0, ready = 0, busy = 0;
    ErrorInfoEx error{};
    RfcCheckRegisterServer(kProgramId, "127.0.0.1", sapsim_->port_text().c_str(), &total, &initialising, &ready, &busy,
                           &error);
    return ready + busy;
  }

  std::unique_ptr<CGatewayConnection> connection_;
};

// Three pool threads serve six concurrent callers, each call on a clone,
// until the gateway cancels the registrations, which ends the pool.
TEST_F(ServerPoolE2eTest, ClonesServeConcurrentCallersUntilTheGatewayCancels) {
  CRfcServerApp app(connection_.get());
  CountingFunc registered("Z_POOL_COUNT");
  app.AddFunction(&registered);
  int rc = -1;
  testing::internal::CaptureStdout();
  std::thread pool([&] { rc = app.Run(3); });
  const bool all_registered = Eventually([&] { return Registered() == 3; });
  std::vector<std::future<testutil::RunResult>> callers;
  std::string csv = "H_IDENT,NAME\n";
  for (int rows = 1; all_registered && rows <= 6; ++rows) {
    csv += "K" + std::to_string(rows) + ",row " + std::to_string(rows) + "\n";
    callers.push_back(std::async(std::launch::async, [this, csv] { return Call(csv, "Z_POOL_COUNT"); }));
  }
  for (size_t i = 0; i < callers.size(); ++i) {
    const testutil::RunResult result = callers[i].get();
    EXPECT_EQ(testutil::Join(result.exit_code, result.out), "0|BATCH_RC=" + std::to_string(i + 1) + "\n|") << result.err;
  }
  EXPECT_TRUE(connection_->CancelRegistration());
  pool.join();
  const std::string out = testing::internal::GetCapturedStdout();
  ASSERT_TRUE(all_registered) << out;
  EXPECT_EQ(testutil::Join(rc, CountingFunc::clones.load()), "0|6|");
  // Busy threads leave callers to the others.
  EXPECT_GE(CountingFunc::threads.size(), 2u);
  EXPECT_EQ(testutil::Join(CountOf(out, "RfcAccept          handle = "), CountOf(out, "RfcAccept          handle = 0"),
                           CountOf(out, "\n\n Main Thread:  3 thread(s) successfully terminated.\n")),
            "3|0|1|")
      << out;
}

}  // namespace
}  // namespace e2e
