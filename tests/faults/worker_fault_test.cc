// The worker's service cycle in this process (so that the file fault seam
// reaches it and LeakSanitizer sees failed cycles) against a sapsim of its own.

#include <signal.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "app/batch_app.h"
#include "app/globals.h"
#include "app/settings.h"
#include "platform/event.h"
#include "platform/file.h"
#include "rfc/core/rfc_allocation.h"
#include "tests/e2e/batchserver_e2e_fixture.h"
#include "tests/support/expected_file.h"

namespace faults {
namespace {

using e2e::LoggedCycle;
using testutil::Eventually;

// The worker runs through CBatchApp as the program starts it.
class WorkerFaultTest : public e2e::BatchServerE2eTest {
 protected:
  void TearDown() override {
    platform::testing::ClearFileFaults();
    if (app_) {
      std::unique_ptr<platform::Event> stop = platform::Event::Open(instance_);
      ASSERT_TRUE(stop && stop->Set());
      for (const auto& context : ProcessWorkerContexts()) ASSERT_TRUE(context->thread_handle->Join(20000));
    }
    app_.reset();
  }
  void StartWorker() {
    settings_["sap.server.listen.timer"] = "10";
    app_ = std::make_unique<CBatchApp>(CSettings(instance_ + " " + WriteIni(instance_, settings_)));
    ASSERT_EQ(app_->Start(), 1);
  }

  // A batch of `rows` lines whose identifiers start with `tag`.
  testutil::RunResult Call(int rows, const std::string& tag) {
    std::string csv = "H_IDENT,NAME\n";
    for (int i = 0; i < rows; ++i) csv += tag + std::to_string(i) + ",line " + std::to_string(i) + "\n";
    return BatchServerE2eTest::Call(csv);
  }

  std::unique_ptr<CBatchApp> app_;
};

// A failed allocation costs its batch only (reported, no BATCH_RC), without
// ending the cycle; an XML file error loses only the file; a log error ends the
// cycle without an answer, naming the cause. The next batch is served whole.
TEST_F(WorkerFaultTest, EveryAllocationOrFileFaultCostsAtMostItsBatch) {
  StartWorker();
  ASSERT_TRUE(WaitForServing()) << LogText();
  // The first batch builds the call arrays; later ones of its shape allocate alike.
  ASSERT_EQ(Call(2, "W").out, "BATCH_RC=1\n");

  ::testing::internal::CaptureStdout();
  int index = 0;
  for (;; ++index) {
    ASSERT_LT(index, 1000) << "the batch never completes";
    const int received = Receipts();
    rfc::testing::FailAllocations(index, 1);
    const testutil::RunResult call = Call(2, "A" + std::to_string(index));
    const bool reached = rfc::testing::PendingAllocationFaults() == 0;
    rfc::testing::ClearAllocationFaults();
    if (!reached) {
      EXPECT_EQ(call.out, "BATCH_RC=1\n") << "allocation " << index << " was not reached: " << call.err;
      break;
    }
    EXPECT_NE(call.exit_code, 0) << "allocation " << index;
    EXPECT_EQ(call.out.find("BATCH_RC"), std::string::npos) << "allocation " << index << ": " << call.out;
    EXPECT_EQ(Receipts(), received) << "allocation " << index;
    const testutil::RunResult next = Call(2, "N" + std::to_string(index));
    EXPECT_EQ(next.out, "BATCH_RC=1\n") << "after allocation " << index << ": " << next.err;
  }
  const std::string reports = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(testutil::CountOf(reports, "\n Main Thread  Failed to allocate memory!"), index) << reports;
  EXPECT_GT(index, 0) << "a batch allocates nothing through the library's allocator";
  ASSERT_EQ(Cycles().size(), 1u) << LogText();
  EXPECT_EQ(Cycles().front().Unknown() + Cycles().front().Errors(), 0);

  // File faults, one line each: its batch, then the next one.
  using platform::testing::FileFault;
  using platform::testing::FileOp;
  const std::pair<FileFault, const char*> faults[] = {{FileFault::kDiskFull, "disk full"},
                                                      {FileFault::kAccessDenied, "access denied"},
                                                      {FileFault::kSharingViolation, "sharing violation"},
                                                      {FileFault::kIoError, "I/O error"}};
  std::string out;
  for (const bool log : {true, false}) {
    for (const FileOp op : {FileOp::kOpen, FileOp::kWrite}) {
      for (const auto& [fault, name] : faults) {
        const size_t cycles = Cycles().size();
        const int received = Receipts();
        const size_t xml_files = XmlFiles().size();
        platform::testing::InjectFileFault(log ? logs_ : xml_, op, fault, 1);
        const testutil::RunResult call = Call(3, "F");
        ASSERT_TRUE(Eventually([&] { return Cycles().size() == cycles + log && Cycles().back().Serving(); }))
            << LogText();
        const LoggedCycle failed = Cycles()[cycles - 1];
        out += std::string(log ? "log " : "xml ") + (op == FileOp::kOpen ? "open, " : "write, ") + name + ": " +
               testutil::Escaped(call.out) + (call.exit_code == 0 ? " exit 0" : " failed") + ", cycles +" +
               std::to_string(Cycles().size() - cycles) + ", unknown " + std::to_string(failed.Unknown()) +
               ", received +" + std::to_string(Receipts() - received) + ", documents +" +
               std::to_string(XmlFiles().size() - xml_files);
        if (log) {
          out += ", ends " + testutil::Escaped(failed.body.substr(failed.body.size() - 22)) + ProcessLog().GetLastError();
        }
        const std::string tag = "N" + std::to_string(out.size());
        out += "; next: " + testutil::Escaped(Call(2, tag).out);
        out += " received +" + std::to_string(Receipts() - received);
        const std::string xml = testutil::ReadBytes(xml_ + "/" + XmlFiles().back());  // the newest batch id
        out += xml.find("<H_IDENT>" + tag + "1</H_IDENT>") != std::string::npos ? ", its rows" : ", not its rows";
        out += ", ends " + testutil::Escaped(xml.substr(xml.size() - 9)) + "\n";
      }
    }
  }
  const std::string log_path = std::filesystem::directory_iterator(logs_)->path().string();
  EXPECT_TRUE(testutil::MatchesExpectedFile(testutil::Normalised(out, {{log_path, "<LOG>"}, {instance_, "<INSTANCE>"}}),
                                            "tests/faults/expected/file_faults.txt"));
}

// sapsim kills itself (SIGKILL) at `point`; the worker logs each failed cycle
// as a header and one library error, retries, and serves once it is back.
struct Kill {
  const char* point;        // sapsim serve --kill-at
  bool dies_while_serving;  // the cycle it breaks had reached its server loop
  const char* why;          // in the error of the broken cycle, when it logs one
};
class KillTest : public WorkerFaultTest, public ::testing::WithParamInterface<Kill> {};

TEST_P(KillTest, EveryFailedCycleIsOneHeaderAndOneErrorUntilTheSystemIsBack) {
  const Kill kill = GetParam();
  StartSapsim(0, {"--kill-at", kill.point});
  const uint16_t port = sapsim_->port();
  StartWorker();
  if (kill.dies_while_serving) {
    ASSERT_TRUE(WaitForServing()) << LogText();
    EXPECT_NE(Call(300, "K").exit_code, 0);  // enough lines that half of the call is inside the table
  }
  ASSERT_TRUE(Eventually([&] {
    return sapsim_->Log().find(std::string("killed at ") + kill.point) != std::string::npos;
  })) << sapsim_->Log();
  EXPECT_EQ(sapsim_->Stop(), 128 + SIGKILL);

  ASSERT_TRUE(Eventually([&] { return Cycles().size() >= 5; })) << LogText();
  const std::vector<LoggedCycle> cycles = Cycles();
  // A cycle that was serving sees the connection closed: no error, the next cycle starts.
  const bool quiet = cycles[0].Serving() && cycles[0].Errors() + cycles[0].Unknown() == 0;
  EXPECT_EQ(quiet, kill.dies_while_serving) << cycles[0].body;
  EXPECT_EQ(cycles[0].IsOneLibraryError(), !kill.dies_while_serving) << cycles[0].body;
  EXPECT_NE(cycles[0].body.find(kill.why), std::string::npos) << cycles[0].body;
  for (size_t i = 1; i + 1 < cycles.size(); ++i) {  // the last cycle may still be writing
    EXPECT_TRUE(cycles[i].IsOneLibraryError()) << i << ": " << cycles[i].body;
  }
  EXPECT_EQ(Receipts(), 0);
  StartSapsim(port);
  ASSERT_TRUE(WaitForServing(kill.dies_while_serving ? 2 : 1)) << LogText();
  EXPECT_EQ(Call(2, "BACK").out, "BATCH_RC=1\n");
  EXPECT_EQ(Receipts(), 1);
}

INSTANTIATE_TEST_SUITE_P(KillPoints, KillTest,
                         ::testing::Values(Kill{"registration", false, "Initstate: group 101, RfcAccept"},
                                           Kill{"logon", false, "Initstate: group 101, RfcOpen"},
                                           Kill{"reply-table", false, "in the middle of a frame"},
                                           Kill{"call-table", true, ""}),
                         [](const ::testing::TestParamInfo<Kill>& info) {
                           return std::regex_replace(info.param.point, std::regex("-"), "");
                         });

}  // namespace
}  // namespace faults
