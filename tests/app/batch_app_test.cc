#include "app/batch_app.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "app/globals.h"
#include "app/settings.h"
#include "app/worker.h"
#include "platform/event.h"
#include "platform/file.h"
#include "tests/support/log_reading.h"
#include "tests/support/polling.h"
#include "tests/support/temp_dir.h"

namespace {

using testutil::CountOf;
using testutil::Eventually;

class BatchAppTest : public ::testing::Test {
 protected:
  // Settings of instance `name` whose daily log goes into the test's directory.
  CSettings MakeSettings(const std::string& name) {
    const std::string ini = dir_.File("batch.ini");
    // A library that loads, so that the worker goes on past its library step.
    testutil::WriteBytes(ini, "[" + name + "]\r\nsap.server.listen.timer=5\r\n"
                              "sap.library=" RFC_STUB_COMPLETE "\r\nsap.path=" +
                                  dir_.path() + "\r\n");
    return CSettings(name.empty() ? ini : name + " " + ini);
  }

  // The .log files the worker wrote into the test's directory, and their text.
  std::vector<std::string> LogFiles() const { return testutil::FileNames(dir_.path(), ".log"); }
  std::string LogText() const { return testutil::FilesText(dir_.path(), ".log"); }

  testutil::TempDir dir_;
};

TEST_F(BatchAppTest, IsRunningFollowsTheNamedEvent) {
  const std::string name = testutil::UniqueName("SRV");
  EXPECT_EQ(CBatchApp::IsRunning(name), 0);
  EXPECT_EQ(CBatchApp::IsRunning(""), 0);

  std::unique_ptr<platform::Event> event = platform::Event::Create(name, false);
  ASSERT_TRUE(event);
  EXPECT_EQ(CBatchApp::IsRunning(name), 1);
  ASSERT_TRUE(event->Set());
  EXPECT_EQ(CBatchApp::IsRunning(name), 0);
  ASSERT_TRUE(event->Reset());
  EXPECT_EQ(CBatchApp::IsRunning(name), 1);
  event.reset();
  EXPECT_EQ(CBatchApp::IsRunning(name), 0);
}

TEST_F(BatchAppTest, ConstructorCopiesEveryFieldIntoTheProcessSettings) {
  CSettings settings;
  for (std::size_t i = 0; i < CSettings::kFieldCount; ++i) {
    settings.Set(static_cast<CSettings::Field>(i), "value " + std::to_string(i));
  }
  {
    CBatchApp app(settings);
    for (std::size_t i = 0; i < CSettings::kFieldCount; ++i) {
      const auto field = static_cast<CSettings::Field>(i);
      EXPECT_EQ(ProcessSettings().Get(field), "value " + std::to_string(i));
    }
  }
  // A later application object replaces them all, empty ones included.
  CBatchApp empty{CSettings()};
  for (std::size_t i = 0; i < CSettings::kFieldCount; ++i) {
    EXPECT_EQ(ProcessSettings().Get(static_cast<CSettings::Field>(i)), "");
  }
}

TEST_F(BatchAppTest, WorkerRetriesItsCycleUntilTheEventIsSet) {
  const std::string name = testutil::UniqueName("SRV");
  CBatchApp app(MakeSettings(name));
  ASSERT_EQ(app.Start(), 1);
  ASSERT_EQ(ProcessWorkerContexts().size(), 1u);
  CWorkerContext& context = *ProcessWorkerContexts().front();
  EXPECT_EQ(CBatchApp::IsRunning(name), 1);

  ASSERT_TRUE(Eventually([&] { return LogText().find("# DESCRIPTION: " + name + "\r\n") !=
                                      std::string::npos; }));
  EXPECT_EQ(LogFiles(), std::vector<std::string>{CLogFile::GetDate() + ".log"});
  EXPECT_EQ(context.finished, 0);
  EXPECT_EQ(context.running, 1);
  uint32_t code = 0;
  ASSERT_TRUE(context.thread_handle->GetExitCode(&code));
  EXPECT_EQ(code, platform::kStillActive);

  std::unique_ptr<platform::Event> stop = platform::Event::Open(name);
  ASSERT_TRUE(stop);
  ASSERT_TRUE(stop->Set());
  ASSERT_TRUE(context.thread_handle->Join(20000));
  EXPECT_EQ(context.finished, 1);
  // Only the server loop's idle callback clears the running flag, and the
  // stub library's cycles never get that far.
  EXPECT_EQ(context.running, 1);
  ASSERT_TRUE(context.thread_handle->GetExitCode(&code));
  EXPECT_EQ(code, 0u);
  // The stub accepts the registration and fails the logon's ping: every
  // cycle is one header block and one library error.
  const std::string log = LogText();
  EXPECT_GE(CountOf(log, "# HEADER\r\n"), 1);
  EXPECT_EQ(CountOf(log, "# HEADER\r\n"), CountOf(log, " - RFC_ERROR_INFO\nKey: ")) << log;
}

TEST_F(BatchAppTest, StartClearsAStopLeftFromAnEarlierRun) {
  const std::string name = testutil::UniqueName("SRV");
  // Someone has set the instance's event before this start.
  std::unique_ptr<platform::Event> stop = platform::Event::Create(name, true);
  ASSERT_TRUE(stop);
  ASSERT_EQ(CBatchApp::IsRunning(name), 0);

  CBatchApp app(MakeSettings(name));
  ASSERT_EQ(app.Start(), 1);
  EXPECT_EQ(CBatchApp::IsRunning(name), 1);
  ASSERT_TRUE(Eventually([&] { return CountOf(LogText(), "# HEADER\r\n") == 1; }));

  // Stop that worker; a second start under the same name resets the event again.
  ASSERT_TRUE(stop->Set());
  CWorkerContext& first = *ProcessWorkerContexts().front();
  ASSERT_TRUE(first.thread_handle->Join(20000));
  EXPECT_EQ(first.finished, 1);

  ASSERT_EQ(app.Start(), 1);
  ASSERT_EQ(ProcessWorkerContexts().size(), 2u);
  EXPECT_EQ(CBatchApp::IsRunning(name), 1);
  ASSERT_TRUE(Eventually([&] { return CountOf(LogText(), "# HEADER\r\n") == 2; }));
  EXPECT_EQ(ProcessWorkerContexts().back()->finished, 0);
}

TEST_F(BatchAppTest, DestructorStopsEveryWorkerAndForgetsItsContext) {
  const std::string name = testutil::UniqueName("SRV");
  std::unique_ptr<platform::Event> watch;
  {
    CBatchApp app(MakeSettings(name));
    ASSERT_EQ(app.Start(), 1);
    watch = platform::Event::Open(name);
    ASSERT_TRUE(watch);
    ASSERT_TRUE(Eventually([&] { return CountOf(LogText(), "# HEADER\r\n") == 1; }));
  }
  EXPECT_TRUE(ProcessWorkerContexts().empty());
  EXPECT_EQ(watch->Wait(0), platform::WaitResult::kSignaled);
}

TEST_F(BatchAppTest, WorkerEndsAtItsFirstCheckWhenThereIsNothingToRunFor) {
  // An empty instance name gives an event nobody can open by name.
  {
    CBatchApp app(MakeSettings(""));
    ASSERT_EQ(ProcessSettings().GetInstanceName(), "");
    ASSERT_EQ(ProcessSettings().GetLogDirectory(), dir_.path());
    ASSERT_EQ(app.Start(), 1);
    CWorkerContext& context = *ProcessWorkerContexts().front();
    ASSERT_TRUE(context.thread_handle->Join(20000));
    EXPECT_EQ(context.finished, 1);
  }
  // A stop signalled before the first check; then a cleared running flag,
  // whatever the event says.
  const std::string name = testutil::UniqueName("SRV");
  CBatchApp app(MakeSettings(name));
  std::unique_ptr<platform::Event> stop = platform::Event::Create(name, true);
  ASSERT_TRUE(stop);
  CWorkerContext signalled;
  EXPECT_EQ(WorkerThread(&signalled), 0u);
  EXPECT_EQ(signalled.finished, 1);
  ASSERT_TRUE(stop->Reset());
  CWorkerContext stopped;
  stopped.running = 0;
  EXPECT_EQ(WorkerThread(&stopped), 0u);
  EXPECT_EQ(stopped.finished, 1);
  EXPECT_TRUE(LogFiles().empty());
}

TEST_F(BatchAppTest, FailedCycleIsLoggedAndTheNextCycleStartsAtOnce) {
  const std::string name = testutil::UniqueName("SRV");
  CBatchApp app(MakeSettings(name));
  // The first header finds the log held by someone else.
  platform::testing::InjectFileFault(dir_.path(), platform::testing::FileOp::kOpen,
                                     platform::testing::FileFault::kSharingViolation, 1);
  ASSERT_EQ(app.Start(), 1);
  ASSERT_TRUE(Eventually([&] { return CountOf(LogText(), "# HEADER\r\n") == 1; }));
  platform::testing::ClearFileFaults();

  const std::string text = LogText();
  EXPECT_TRUE(testutil::StartsWithLogTime(text)) << text;
  EXPECT_EQ(text.substr(17, 22 + 67 + 10), " - UNKNOWN EXEPTION\n\r\n" + testutil::kLogRule + "\r\n# HEADER\r\n");
  EXPECT_EQ(CountOf(text, "UNKNOWN EXEPTION"), 1);
  EXPECT_EQ(ProcessWorkerContexts().front()->finished, 0);
}

}  // namespace
