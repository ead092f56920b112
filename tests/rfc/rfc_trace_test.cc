// CRfcTrace: nothing while off, one file per thread, CR LF line ends, the
// header line, the deliberate cut of WriteError, the directory rule and the
// failure paths of the per-thread file.

#include "rfc/core/rfc_trace.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/thread.h"
#include "rfc/core/rfc_allocation.h"
#include "tests/rfc/trace_capture.h"

namespace {

using ::testing::ElementsAre;
using rfc_test::ReadFile;
using rfc_test::RunTraced;
using rfc_test::SplitCrLf;
using rfc_test::TempDir;

std::string TraceFileOf(const std::string& directory, uint32_t thread_id) {
  return directory + "/crfc" + std::to_string(static_cast<int>(thread_id)) + ".trc";
}

RFC_ERROR_INFO MakeError(const char* key, const char* status, const char* message) {
  RFC_ERROR_INFO error{};
  std::strncpy(error.key, key, sizeof error.key - 1);
  std::strncpy(error.status, status, sizeof error.status - 1);
  std::strncpy(error.message, message, sizeof error.message - 1);
  std::strncpy(error.intstat, "never written", sizeof error.intstat - 1);
  return error;
}

// Switches the process-wide trace off again however a test ends.
class RfcTraceTest : public ::testing::Test {
 protected:
  void TearDown() override {
    GetRfcTrace().SetTraceOn(0);
    rfc::testing::ClearAllocationFaults();
  }
};

TEST_F(RfcTraceTest, OffWritesNoFileWhateverIsLogged) {
  auto run = RunTraced(
      [] {
        CRfcTrace& trace = GetRfcTrace();
        trace.WriteHeader();
        trace.WriteLine("one");
        trace.WriteBlankLines(5);
        trace.WriteError(MakeError("K", "S", "M"));
      },
      false);
  EXPECT_FALSE(run.file_exists);
}

TEST_F(RfcTraceTest, OffTouchesNeitherLockNorAllocation) {
  GetRfcTrace().SetTraceOn(0);
  rfc::testing::FailNextAllocation();
  std::thread([] { GetRfcTrace().WriteLine("dropped"); }).join();
  EXPECT_EQ(rfc::testing::PendingAllocationFaults(), 1);
}

TEST_F(RfcTraceTest, LinesEndInCrLfAndAreFlushedAtOnce) {
  std::string seen_while_running;
  auto run = RunTraced([&] {
    GetRfcTrace().WriteLine("first");
    GetRfcTrace().WriteLine("");
    GetRfcTrace().WriteLine(nullptr);  // nothing
    GetRfcTrace().WriteLine("two\nparts");
    seen_while_running = ReadFile(TraceFileOf(GetRfcTrace().GetDirectory(),
                                              platform::CurrentThreadId()));
  });
  EXPECT_EQ(run.content, "first\r\n\r\ntwo\r\nparts\r\n");
  EXPECT_EQ(seen_while_running, run.content);  // no buffering between lines
}

TEST_F(RfcTraceTest, TwoThreadsWriteTwoFiles) {
  TempDir dir;
  CRfcTrace& trace = GetRfcTrace();
  trace.SetDirectory(dir.path());
  trace.SetTraceOn(1);
  uint32_t ids[2] = {};
  std::thread threads[2];
  for (int t = 0; t < 2; ++t) {
    threads[t] = std::thread([&, t] {
      ids[t] = platform::CurrentThreadId();
      for (int i = 0; i < 50; ++i) {
        trace.WriteLine(("thread " + std::to_string(t) + " line " + std::to_string(i)).c_str());
      }
    });
  }
  for (auto& thread : threads) thread.join();
  trace.SetTraceOn(0);
  ASSERT_NE(ids[0], ids[1]);
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  std::vector<std::string> expected = {"crfc" + std::to_string(ids[0]) + ".trc",
                                       "crfc" + std::to_string(ids[1]) + ".trc"};
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(names, expected);
  for (int t = 0; t < 2; ++t) {
    const auto lines = SplitCrLf(ReadFile(TraceFileOf(dir.path(), ids[t])));
    ASSERT_EQ(lines.size(), 50u);
    for (int i = 0; i < 50; ++i) {
      EXPECT_EQ(lines[i], "thread " + std::to_string(t) + " line " + std::to_string(i));
    }
  }
}

TEST_F(RfcTraceTest, FilesAreOpenedForAppending) {
  auto run = RunTraced([] {
    const std::string file =
        TraceFileOf(GetRfcTrace().GetDirectory(), platform::CurrentThreadId());
    std::ofstream(file, std::ios::binary) << "earlier\r\n";
    GetRfcTrace().WriteLine("later");
  });
  EXPECT_EQ(run.content, "earlier\r\nlater\r\n");
}

TEST_F(RfcTraceTest, HeaderLineFormat) {
  platform::LocalTime time{2003, 5, 7, 14, 3, 9};
  EXPECT_EQ(CRfcTrace::HeaderLine(time), "Rfc Class Library Trace at   2003.05.07   14:03:09");
  platform::LocalTime early{999, 1, 2, 3, 4, 5};  // the year is left-aligned in four places
  EXPECT_EQ(CRfcTrace::HeaderLine(early), "Rfc Class Library Trace at   999 .01.02   03:04:05");
}

TEST_F(RfcTraceTest, WriteHeaderWritesThreeBlankLinesAndTheLocalTime) {
  const std::time_t before = std::time(nullptr);
  auto run = RunTraced([] { GetRfcTrace().WriteHeader(); });
  const std::time_t after = std::time(nullptr);
  ASSERT_EQ(run.lines.size(), 4u);
  EXPECT_EQ(run.lines[0], "");
  EXPECT_EQ(run.lines[1], "");
  EXPECT_EQ(run.lines[2], "");
  const std::regex format(
      R"(Rfc Class Library Trace at   (\d{4})\.(\d\d)\.(\d\d)   (\d\d):(\d\d):(\d\d))");
  std::smatch match;
  ASSERT_TRUE(std::regex_match(run.lines[3], match, format)) << run.lines[3];
  std::tm written{};
  written.tm_year = std::stoi(match[1]) - 1900;
  written.tm_mon = std::stoi(match[2]) - 1;
  written.tm_mday = std::stoi(match[3]);
  written.tm_hour = std::stoi(match[4]);
  written.tm_min = std::stoi(match[5]);
  written.tm_sec = std::stoi(match[6]);
  written.tm_isdst = -1;
  const std::time_t stamp = std::mktime(&written);
  EXPECT_GE(stamp, before - 1);
  EXPECT_LE(stamp, after + 1);
}

TEST_F(RfcTraceTest, WriteErrorCutsKeyAndStatus) {
  auto run = RunTraced([] {
    GetRfcTrace().WriteError(MakeError("ABCDEFGHIJKLMNOPQRSTUVW", "ST", "MSG"));  // 23, 2, 3
    GetRfcTrace().WriteError(MakeError("ABCDEFGHIJKLMNOPQRSTUVWX", "status text",
                                       "a whole message"));  // 24
    GetRfcTrace().WriteError(MakeError("AB", "", ""));
    GetRfcTrace().WriteError(MakeError("", "S", "M"));
  });
  EXPECT_THAT(run.lines, ElementsAre("Key:    ABCDEFGHIJKLMNOPQRS", "Status: S", "Message:MSG",
                                     "Key:    ABCDEFGHIJKLMNOPQRST", "Status: status tex",
                                     "Message:a whole message",  //
                                     "Key:  ", "Status:", "Message:",  //
                                     "Key:", "Status: ", "Message:M"));
}

TEST_F(RfcTraceTest, WriteErrorNeverReadsPastAFullField) {
  RFC_ERROR_INFO error = MakeError("", "", "");
  std::memset(error.key, 'k', sizeof error.key);  // no terminator
  std::memset(error.status, 's', sizeof error.status);
  auto run = RunTraced([&] { GetRfcTrace().WriteError(error); });
  ASSERT_EQ(run.lines.size(), 3u);
  EXPECT_EQ(run.lines[0], "Key:    " + std::string(29, 'k'));
  EXPECT_EQ(run.lines[1], "Status: " + std::string(127, 's'));
  EXPECT_EQ(CRfcTrace::ErrorLine("Message:", "abc", 2), "Message:ab");
}

TEST_F(RfcTraceTest, BlankLines) {
  auto run = RunTraced([] {
    GetRfcTrace().WriteBlankLines(0);
    GetRfcTrace().WriteBlankLines(-3);
    GetRfcTrace().WriteLine("x");
    GetRfcTrace().WriteBlankLines(2);
    GetRfcTrace().WriteLine("y");
  });
  EXPECT_EQ(run.content, "x\r\n\r\n\r\ny\r\n");
}

TEST_F(RfcTraceTest, UnopenableFileDropsTheThreadsLinesSilently) {
  TempDir dir;
  CRfcTrace& trace = GetRfcTrace();
  trace.SetDirectory(dir.path() + "/missing");
  trace.SetTraceOn(1);
  uint32_t id = 0;
  std::thread([&] {
    id = platform::CurrentThreadId();
    trace.WriteLine("lost");
    trace.SetDirectory(dir.path());  // too late for this thread's file
    trace.WriteLine("also lost");
  }).join();
  trace.SetTraceOn(0);
  EXPECT_FALSE(std::filesystem::exists(TraceFileOf(dir.path() + "/missing", id)));
  EXPECT_FALSE(std::filesystem::exists(TraceFileOf(dir.path(), id)));
}

TEST_F(RfcTraceTest, FailedFileRecordThrowsWithoutTracing) {
  auto run = RunTraced([] {
    rfc::testing::FailNextAllocation();
    try {
      GetRfcTrace().WriteLine("not written");
      ADD_FAILURE() << "no exception";
    } catch (const char* text) {
      EXPECT_STREQ(text, "Failed to allocate memory!");
    }
    GetRfcTrace().WriteLine("written");  // the next line gets its record
  });
  EXPECT_EQ(run.content, "written\r\n");
}

TEST_F(RfcTraceTest, DirectoryThatDoesNotFitIsEmpty) {
  CRfcTrace& trace = GetRfcTrace();
  const std::string saved = trace.GetDirectory();
  const std::string fits(254, 'd');
  trace.SetDirectory(fits);
  EXPECT_EQ(trace.GetDirectory(), fits);
  trace.SetDirectory(std::string(255, 'd'));
  EXPECT_EQ(trace.GetDirectory(), "");
  trace.SetDirectory(saved);
}

TEST_F(RfcTraceTest, EmptyDirectoryWritesUnderTheBareNameIntoTheCurrentDirectory) {
  TempDir dir;
  const std::filesystem::path saved_cwd = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  CRfcTrace& trace = GetRfcTrace();
  trace.SetDirectory("");
  trace.SetTraceOn(1);
  uint32_t id = 0;
  std::thread([&] {
    id = platform::CurrentThreadId();
    trace.WriteLine("here");
  }).join();
  trace.SetTraceOn(0);
  std::filesystem::current_path(saved_cwd);
  EXPECT_EQ(ReadFile(TraceFileOf(dir.path(), id)), "here\r\n");
}

TEST_F(RfcTraceTest, NewInstanceReadsTheCurrentDirectoryAndIsCounted) {
  TempDir dir;
  const std::filesystem::path saved_cwd = std::filesystem::current_path();
  const int before = CRfcTrace::InstanceCount();
  EXPECT_GE(before, 1);  // the process-wide one
  std::filesystem::current_path(dir.path());
  {
    CRfcTrace local;
    EXPECT_EQ(CRfcTrace::InstanceCount(), before + 1);
    EXPECT_EQ(std::filesystem::path(local.GetDirectory()),
              std::filesystem::canonical(dir.path()));
    EXPECT_EQ(local.IsTraceOn(), 0);
  }
  std::filesystem::current_path(saved_cwd);
  EXPECT_EQ(CRfcTrace::InstanceCount(), before);
}

TEST_F(RfcTraceTest, AnyNonzeroValueSwitchesOn) {
  CRfcTrace& trace = GetRfcTrace();
  trace.SetTraceOn(-7);
  EXPECT_NE(trace.IsTraceOn(), 0);
  trace.SetTraceOn(0);
  EXPECT_EQ(trace.IsTraceOn(), 0);
}

TEST_F(RfcTraceTest, ManyThreadsNeverMixTheirLines) {
  TempDir dir;
  CRfcTrace& trace = GetRfcTrace();
  trace.SetDirectory(dir.path());
  trace.SetTraceOn(1);
  constexpr int kThreads = 8;
  constexpr int kLines = 200;
  std::vector<uint32_t> ids(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      ids[t] = platform::CurrentThreadId();
      for (int i = 0; i < kLines; ++i) {
        trace.WriteHeader();
        trace.WriteLine(("T" + std::to_string(t) + ":" + std::to_string(i)).c_str());
      }
    });
  }
  for (auto& thread : threads) thread.join();
  trace.SetTraceOn(0);
  for (int t = 0; t < kThreads; ++t) {
    const auto lines = SplitCrLf(ReadFile(TraceFileOf(dir.path(), ids[t])));
    ASSERT_EQ(lines.size(), static_cast<size_t>(kLines * 5));
    for (int i = 0; i < kLines; ++i) {
      EXPECT_EQ(lines[i * 5 + 4], "T" + std::to_string(t) + ":" + std::to_string(i));
    }
  }
}

}  // namespace
