// The SAP side goes away at a chosen moment: sapsim kills itself (SIGKILL)
// during the registration, during the logon, in the middle of a reply's
// table or of a batch's table; or the gateway cancels the registration. The
// worker logs every failed cycle as a header block and one library error,
// retries at once, and serves again once the system is back.

#include <signal.h>

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "rfc/binding/rfc_binding.h"
#include "tests/faults/worker_fixture.h"

namespace faults {
namespace {

struct KillCase {
  const char* point;        // sapsim serve --kill-at
  bool dies_while_serving;  // the cycle it breaks had reached its server loop
  const char* why;          // in the error of the broken cycle, when it logs one
};

void PrintTo(const KillCase& kill, std::ostream* out) { *out << kill.point; }

class SapSideFaultTest : public WorkerFixture, public ::testing::WithParamInterface<KillCase> {
 protected:
  // After the break the worker retries without end; once the system is back
  // on its port it registers again and takes a batch.
  void ExpectServedAfterRestart(uint16_t port, int waits_before) {
    StartSapsim(port);
    ASSERT_TRUE(WaitForServing(waits_before + 1)) << LogText();
    const sapsim::testing::RunResult call = Call(2, "BACK");
    EXPECT_EQ(call.out, "BATCH_RC=1\n") << call.err;
    EXPECT_EQ(Receipts(), 1);
  }
};

TEST_P(SapSideFaultTest, EveryFailedCycleIsOneHeaderAndOneErrorUntilTheSystemIsBack) {
  const KillCase kill = GetParam();
  StartSapsim(0, {"--kill-at", kill.point});
  const uint16_t port = sapsim_->port();
  StartWorker();
  if (kill.dies_while_serving) {
    ASSERT_TRUE(WaitForServing()) << LogText();
    // Enough lines that half of the call is inside the table.
    const sapsim::testing::RunResult call = Call(300, "K");
    EXPECT_NE(call.exit_code, 0);
  }
  ASSERT_TRUE(Eventually([&] {
    return sapsim_->Log().find(std::string("killed at ") + kill.point) != std::string::npos;
  })) << sapsim_->Log();
  EXPECT_EQ(sapsim_->Stop(), 128 + SIGKILL);

  ASSERT_TRUE(Eventually([&] { return Cycles().size() >= 5; })) << LogText();
  const std::vector<LoggedCycle> cycles = Cycles();
  const LoggedCycle& broken = cycles.front();
  if (kill.dies_while_serving) {
    // The server loop sees the connection closed: no error, the next cycle starts.
    EXPECT_TRUE(broken.Serving()) << broken.body;
    EXPECT_EQ(broken.ErrorEntries() + broken.UnknownEntries(), 0) << broken.body;
  } else {
    EXPECT_TRUE(broken.IsOneLibraryError()) << broken.body;
    EXPECT_NE(broken.body.find(kill.why), std::string::npos) << broken.body;
  }
  // The last cycle may still be writing.
  for (size_t i = 1; i + 1 < cycles.size(); ++i) {
    EXPECT_TRUE(cycles[i].IsOneLibraryError()) << i << ": " << cycles[i].body;
  }
  EXPECT_EQ(Receipts(), 0);
  ExpectServedAfterRestart(port, kill.dies_while_serving ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(KillPoints, SapSideFaultTest,
                         ::testing::Values(KillCase{"registration", false, "Initstate: group 101, RfcAccept"},
                                           KillCase{"logon", false, "Initstate: group 101, RfcOpen"},
                                           KillCase{"reply-table", false, "in the middle of a frame"},
                                           KillCase{"call-table", true, ""}),
                         [](const ::testing::TestParamInfo<KillCase>& info) {
                           std::string name;
                           for (const char* c = info.param.point; *c != '\0'; ++c) {
                             if (*c != '-') name += *c;
                           }
                           return name;
                         });

using GatewayCancelTest = WorkerFixture;

TEST_F(GatewayCancelTest, CancelledRegistrationEndsTheCycleQuietlyAndTheServerRegistersAgain) {
  StartSapsim();
  StartWorker();
  ASSERT_TRUE(WaitForServing()) << LogText();

  int total = 0;
  int cancelled = 0;
  ErrorInfoEx error{};
  EXPECT_EQ(RfcCancelRegisterServer(kProgramId, "127.0.0.1", sapsim_->port_text().c_str(), &total, &cancelled,
                                    &error),
            0);
  EXPECT_EQ(cancelled, 1);

  ASSERT_TRUE(WaitForServing(2)) << LogText();
  const std::vector<LoggedCycle> cycles = Cycles();
  ASSERT_EQ(cycles.size(), 2u);
  EXPECT_EQ(cycles[0].ErrorEntries() + cycles[0].UnknownEntries(), 0) << cycles[0].body;
  const sapsim::testing::RunResult call = Call(2, "AGAIN");
  EXPECT_EQ(call.out, "BATCH_RC=1\n") << call.err;
  EXPECT_EQ(Receipts(), 1);
}

}  // namespace
}  // namespace faults
