// The server application's thread pool against a running sapsim: several
// pool threads registered under one program id serve concurrent sapsim call
// processes, each call on a clone, until the gateway cancels the
// registrations.

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <mutex>
#include <set>
#include <thread>

#include "platform/thread.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_table_param.h"
#include "rfc/server/rfc_server_app.h"
#include "rfc/server/rfc_server_func.h"
#include "tests/e2e/batchserver_e2e_fixture.h"

namespace {

using e2e::kProgramId;
using testutil::CountOf;
using testutil::Eventually;

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

class ServerPoolE2eTest : public e2e::BatchServerE2eTest {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(LoadRfcLibrary(sapsim::testing::LibraryPath().c_str())); }

  void SetUp() override {
    BatchServerE2eTest::SetUp();
    // The vector the pool threads accept with, as a registration would cut it.
    words_ = {"-a" + std::string(kProgramId), "-g127.0.0.1", "-x" + sapsim_->port_text()};
    for (std::string& word : words_) argv_.push_back(word.data());
    argv_.push_back(nullptr);
    // The application's connection learns the vector by registering once;
    // closing it ends that registration, so only the pool's remain.
    connection_.Accept(argv_.data());
    connection_.Close();
  }

  // The gateway's count of ready or busy registrations of the program id.
  int Registered() {
    int total = 0, initialising = 0, ready = 0, busy = 0;
    ErrorInfoEx error{};
    RfcCheckRegisterServer(kProgramId, "127.0.0.1", sapsim_->port_text().c_str(), &total, &initialising, &ready, &busy,
                           &error);
    return ready + busy;
  }

  std::vector<std::string> words_;
  std::vector<char*> argv_;
  CRfcConnection connection_;
};

// Three pool threads serve six concurrent callers, each call on a clone,
// until the gateway cancels the registrations, which ends the pool.
TEST_F(ServerPoolE2eTest, ClonesServeConcurrentCallersUntilTheGatewayCancels) {
  CRfcServerApp app(&connection_);
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
  int total = 0, cancelled = 0;
  ErrorInfoEx error{};
  RfcCancelRegisterServer(kProgramId, "127.0.0.1", sapsim_->port_text().c_str(), &total, &cancelled, &error);
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
