// CRfcTrace: the header line, the directory rules and the failure paths of a
// thread's file. (Nothing while off, CR LF lines flushed at once to the end of
// the file, and WriteError's cuts: the failure transcript.)

#include "rfc/core/rfc_trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>

#include "platform/path.h"
#include "platform/thread.h"
#include "tests/rfc/rfc_test_support.h"

namespace {

using testutil::ReadBytes;
using rfc_test::RunTraced;
using rfc_test::TraceFileOf;
using testutil::TempDir;
using ::testing::ElementsAre;

// The process-wide trace goes back to off, and its directory to the start
// one, however a test ends.
class RfcTraceTest : public ::testing::Test {
 protected:
  void TearDown() override {
    GetRfcTrace().SetTraceOn(0);
    GetRfcTrace().SetDirectory(saved_directory_);
  }
  const std::string saved_directory_ = GetRfcTrace().GetDirectory();
};

TEST_F(RfcTraceTest, HeaderLine) {
  EXPECT_EQ(CRfcTrace::HeaderLine({2003, 5, 7, 14, 3, 9}),
            "Rfc Class Library Trace at   2003.05.07   14:03:09");
  // The year is left-aligned in four places.
  EXPECT_EQ(CRfcTrace::HeaderLine({999, 1, 2, 3, 4, 5}),
            "Rfc Class Library Trace at   999 .01.02   03:04:05");

  // WriteHeader: three empty lines and the local time of the write.
  const std::string before = CRfcTrace::HeaderLine(platform::LocalNow());
  auto run = RunTraced([] { GetRfcTrace().WriteHeader(); });
  const std::string after = CRfcTrace::HeaderLine(platform::LocalNow());
  EXPECT_THAT(run.lines, ElementsAre("", "", "", ::testing::AnyOf(before, after)));
}

TEST_F(RfcTraceTest, DirectoryRules) {
  TempDir dir;
  const std::filesystem::path saved_cwd = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  CRfcTrace& trace = GetRfcTrace();
  {
    // A new instance reads the current directory and is counted.
    const int before = CRfcTrace::InstanceCount();
    CRfcTrace local;
    EXPECT_EQ(CRfcTrace::InstanceCount(), before + 1);
    EXPECT_EQ(std::filesystem::path(local.GetDirectory()), std::filesystem::canonical(dir.path()));
    EXPECT_EQ(local.IsTraceOn(), 0);
  }
  // A directory of 255 characters does not fit its buffer and reads as
  // empty: the files go under their bare name into the current directory.
  trace.SetDirectory(std::string(254, 'd'));
  EXPECT_EQ(trace.GetDirectory(), std::string(254, 'd'));
  trace.SetDirectory(std::string(255, 'd'));
  EXPECT_EQ(trace.GetDirectory(), "");
  trace.SetTraceOn(1);
  uint32_t id = 0;
  std::thread([&] {
    id = platform::CurrentThreadId();
    trace.WriteLine("here");
  }).join();
  EXPECT_EQ(ReadBytes(TraceFileOf(dir.path(), id)), "here\r\n");

  // A file that cannot be opened drops its thread's lines for good.
  trace.SetDirectory(dir.path() + "/missing");
  std::thread([&] {
    id = platform::CurrentThreadId();
    trace.WriteLine("lost");
    trace.SetDirectory(dir.path());  // too late for this thread's file
    trace.WriteLine("also lost");
  }).join();
  trace.SetTraceOn(0);
  std::filesystem::current_path(saved_cwd);
  EXPECT_FALSE(std::filesystem::exists(TraceFileOf(dir.path() + "/missing", id)));
  EXPECT_FALSE(std::filesystem::exists(TraceFileOf(dir.path(), id)));
}

}  // namespace
