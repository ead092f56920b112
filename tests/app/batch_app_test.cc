// The application object and its worker thread in-process, with a stand-in
// library whose logon fails, so that every cycle is a header block and one
// library error: the named event, restarts, the stop, and a failed cycle.

#include "app/batch_app.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "app/globals.h"
#include "app/worker.h"
#include "platform/file.h"
#include "tests/support/expected_file.h"
#include "tests/support/log_reading.h"
#include "tests/support/polling.h"

namespace {

using testutil::CountOf;
using testutil::Eventually;

class BatchAppTest : public ::testing::Test {
 protected:
  // Settings of instance `name` whose daily log goes into the test's directory.
  CSettings MakeSettings(const std::string& name) {
    const std::string ini = dir_.Write("batch.ini", "[" + name + "]\r\nsap.server.listen.timer=5\r\nsap.library=" +
                                                        RFC_STUB_COMPLETE + "\r\nsap.path=" + dir_.path() + "\r\n");
    return CSettings(name.empty() ? ini : name + " " + ini);
  }
  std::string LogText() const { return testutil::FilesText(dir_.path(), ".log"); }
  int Headers() const { return CountOf(LogText(), "# HEADER\r\n"); }

  testutil::TempDir dir_;
};

TEST_F(BatchAppTest, WorkerCyclesUntilTheNamedEventIsSetAndAStartClearsAnOldStop) {
  const std::string name = testutil::UniqueName("SRV");
  std::unique_ptr<platform::Event> stop = platform::Event::Create(name, true);  // left from an earlier run
  std::string seen = testutil::Join(CBatchApp::IsRunning(name));
  auto app = std::make_unique<CBatchApp>(MakeSettings(name));
  ASSERT_EQ(app->Start(), 1);
  seen += testutil::Join(CBatchApp::IsRunning(name));
  CWorkerContext& context = *ProcessWorkerContexts().front();
  ASSERT_TRUE(Eventually([&] { return Headers() >= 2; })) << LogText();
  uint32_t code = 0;
  // One call with effects per statement: arguments have no order.
  seen += testutil::Join(context.thread_handle->GetExitCode(&code) && code == platform::kStillActive);
  seen += testutil::Join(stop->Set());
  seen += testutil::Join(CBatchApp::IsRunning(name), context.thread_handle->Join(20000));
  seen += testutil::Join(context.thread_handle->GetExitCode(&code));
  seen += testutil::Join(context.finished, code);
  const std::string log = LogText();
  EXPECT_EQ(seen + testutil::Join(CountOf(log, "# HEADER\r\n") == CountOf(log, " - RFC_ERROR_INFO\nKey: ")),
            "0|1|1|1|0|1|1|1|0|1|")
      << log;
  EXPECT_EQ(testutil::FileNames(dir_.path(), ".log"), std::vector<std::string>{CLogFile::GetDate() + ".log"});
}

TEST_F(BatchAppTest, WorkerEndsAtItsFirstCheckWhenThereIsNothingToRunFor) {
  {
    // An empty instance name gives an event nobody can open by name.
    CBatchApp app(MakeSettings(""));
    ASSERT_EQ(app.Start(), 1);
    ASSERT_TRUE(ProcessWorkerContexts().front()->thread_handle->Join(20000));
    EXPECT_EQ(ProcessWorkerContexts().front()->finished, 1);
  }
  // A stop signalled before the first check; then a cleared running flag,
  // whatever the event says.
  const std::string name = testutil::UniqueName("SRV");
  CBatchApp app(MakeSettings(name));
  std::unique_ptr<platform::Event> stop = platform::Event::Create(name, true);
  CWorkerContext signalled, stopped;
  EXPECT_EQ(testutil::Join(WorkerThread(&signalled), signalled.finished), "0|1|");
  ASSERT_TRUE(stop->Reset());
  stopped.running = 0;
  EXPECT_EQ(testutil::Join(WorkerThread(&stopped), stopped.finished), "0|1|");
  EXPECT_EQ(LogText(), "");

  // A worker without a status runs its cycles all the same, until the stop;
  // a library that cannot be loaded ends it for good.
  CWorkerContext bare, missing;
  std::thread cycling([&] { WorkerThread(&bare); });
  EXPECT_TRUE(Eventually([&] { return Headers() >= 2; }));
  ASSERT_TRUE(stop->Set());
  cycling.join();
  EXPECT_EQ(bare.finished, 1);
  ASSERT_TRUE(stop->Reset());
  ProcessSettings().Set(CSettings::kLibrary, dir_.File("missing.so"));
  EXPECT_EQ(testutil::Join(WorkerThread(&missing), missing.finished), "0|1|");
}

// A cycle that fails on the log is logged; when the report cannot be logged
// either, standard error tells it. The next cycle starts at once.
TEST_F(BatchAppTest, FailedCycleIsLoggedOrToldOnStandardErrorAndTheNextCycleStartsAtOnce) {
  const std::string name = testutil::UniqueName("SRV"), log = dir_.File(CLogFile::GetDate() + ".log");
  const CSettings settings = MakeSettings(name);  // before the faults: they hit the INI file too
  std::string transcript;
  for (const int faults : {1, 2}) {
    std::filesystem::remove(log);
    // The first header finds the log held by someone else.
    platform::testing::InjectFileFault(dir_.path(), platform::testing::FileOp::kOpen,
                                       platform::testing::FileFault::kSharingViolation, faults);
    testing::internal::CaptureStderr();
    {
      CBatchApp app(settings);
      ASSERT_EQ(app.Start(), 1);
      ASSERT_TRUE(Eventually([&] { return Headers() >= 1; }));
    }
    const std::string told = testing::internal::GetCapturedStderr();
    platform::testing::ClearFileFaults();
    // The log up to its first header, then how often it tells the failure.
    const std::string text = LogText();
    transcript += "== " + std::to_string(faults) + " faults\n" + text.substr(0, text.find("# HEADER\r\n") + 10);
    transcript += testutil::Join(CountOf(text, "UNKNOWN EXEPTION")) + "\n== stderr\n" + told;
  }
  EXPECT_TRUE(testutil::MatchesExpectedFile(testutil::Normalised(transcript, {{log, "<log>"}, {name, "<name>"}}),
                                            "tests/app/expected/failed_cycle.txt"));
}

}  // namespace
