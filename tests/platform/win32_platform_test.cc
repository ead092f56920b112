// The Windows platform layer under its own kernel: causes from GetLastError,
// files held without sharing, whole-file publishing, named events, thread
// exit codes, re-entrant critical sections, DLLs and the path conventions.

#include <windows.h>

#include <string>

#include "gtest/gtest.h"
#include "platform/critical_section.h"
#include "platform/dynamic_library.h"
#include "platform/event.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/thread.h"
#include "platform/win32/file_cause_win32.h"
#include "tests/support/temp_dir.h"

namespace {

using platform::File;

TEST(Win32Platform, SystemErrorsBecomeCauses) {
  const struct {
    DWORD error;
    int cause;
  } cases[] = {
      {ERROR_SUCCESS, 0},           {ERROR_FILE_NOT_FOUND, 2},   {ERROR_PATH_NOT_FOUND, 3},
      {ERROR_INVALID_NAME, 3},      {ERROR_TOO_MANY_OPEN_FILES, 4}, {ERROR_ACCESS_DENIED, 5},
      {ERROR_INVALID_HANDLE, 6},    {ERROR_CURRENT_DIRECTORY, 7}, {ERROR_CANNOT_MAKE, 8},
      {ERROR_NEGATIVE_SEEK, 9},     {ERROR_WRITE_FAULT, 10},     {ERROR_SHARING_VIOLATION, 11},
      {ERROR_LOCK_VIOLATION, 12},   {ERROR_DISK_FULL, 13},       {ERROR_HANDLE_DISK_FULL, 13},
      {ERROR_HANDLE_EOF, 14},       {ERROR_NOT_SUPPORTED, 1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(platform::win32::FileCauseFromError(c.error), c.cause) << "error " << c.error;
  }
}

TEST(Win32Platform, FilesHeldWithoutSharingTurnEveryOtherOpenerAway) {
  testutil::TempDir dir;
  const std::string path = dir.File("held.log");
  int cause = -1;
  auto holder = File::Open(path, File::Mode::kAppendExclusive, &cause);
  ASSERT_NE(holder, nullptr);
  ASSERT_EQ(holder->Write("held", 4), platform::kFileOk);
  for (File::Mode mode : {File::Mode::kAppendExclusive, File::Mode::kTruncateExclusive, File::Mode::kRead}) {
    cause = -1;
    EXPECT_EQ(File::Open(path, mode, &cause), nullptr);
    EXPECT_EQ(cause, platform::kFileSharingViolation);
  }
  EXPECT_EQ(platform::AppendToFile(path, "x", 1), platform::kFileSharingViolation);
  EXPECT_NE(platform::WriteWholeFile(path, "x", 1), platform::kFileOk);
  ASSERT_EQ(holder->Close(), platform::kFileOk);
  // Nothing of the turned-away writers reached the file.
  EXPECT_EQ(testutil::ReadBytes(path), "held");
  EXPECT_EQ(platform::AppendToFile(path, "+", 1), platform::kFileOk);
  EXPECT_EQ(testutil::ReadBytes(path), "held+");

  EXPECT_EQ(platform::AppendToFile(dir.File("no\\such\\dir.log"), "x", 1), platform::kFileBadPath);
  EXPECT_EQ(File::Open(dir.File("absent.ini"), File::Mode::kRead, &cause), nullptr);
  EXPECT_EQ(cause, platform::kFileNotFound);
}

TEST(Win32Platform, WholeFilesArePublishedByReplacing) {
  testutil::TempDir dir;
  const std::string path = dir.File("1.xml");
  ASSERT_EQ(platform::WriteWholeFile(path, "first, longer", 13), platform::kFileOk);
  ASSERT_EQ(platform::WriteWholeFile(path, "second", 6), platform::kFileOk);
  EXPECT_EQ(testutil::ReadBytes(path), "second");
  EXPECT_EQ(GetFileAttributesA((path + ".part").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(Win32Platform, NamedEventsAreSharedAndGoWithTheLastHandle) {
  const std::string name = "bs_win32_test_" + std::to_string(GetCurrentProcessId());
  bool existed = true;
  auto first = platform::Event::Create(name, false, &existed);
  ASSERT_NE(first, nullptr);
  EXPECT_FALSE(existed);
  auto again = platform::Event::Create(name, false, &existed);
  ASSERT_NE(again, nullptr);
  EXPECT_TRUE(existed);
  auto opened = platform::Event::Open(name);
  ASSERT_NE(opened, nullptr);
  EXPECT_EQ(first->Wait(0), platform::WaitResult::kTimeout);
  ASSERT_TRUE(opened->Set());
  EXPECT_EQ(first->Wait(0), platform::WaitResult::kSignaled);
  EXPECT_EQ(first->Wait(0), platform::WaitResult::kSignaled);  // manual reset
  ASSERT_TRUE(again->Reset());
  EXPECT_EQ(opened->Wait(0), platform::WaitResult::kTimeout);
  first.reset();
  again.reset();
  opened.reset();
  EXPECT_EQ(platform::Event::Open(name), nullptr);
  EXPECT_EQ(platform::Event::Open(""), nullptr);
}

TEST(Win32Platform, ThreadsReportStillActiveThenTheirResult) {
  auto gate = platform::Event::Create("", false);
  ASSERT_NE(gate, nullptr);
  struct Shared {
    platform::Event* gate;
    uint32_t id;
  } shared{gate.get(), 0};
  auto thread = platform::Thread::Start(
      [](void* arg) -> uint32_t {
        auto* s = static_cast<Shared*>(arg);
        s->id = platform::CurrentThreadId();
        return s->gate->Wait(60000) == platform::WaitResult::kSignaled ? 42 : 1;
      },
      &shared);
  ASSERT_NE(thread, nullptr);
  uint32_t code = 0;
  ASSERT_TRUE(thread->GetExitCode(&code));
  EXPECT_EQ(code, platform::kStillActive);
  ASSERT_TRUE(gate->Set());
  ASSERT_TRUE(thread->Join(60000));
  ASSERT_TRUE(thread->GetExitCode(&code));
  EXPECT_EQ(code, 42u);
  EXPECT_NE(shared.id, platform::CurrentThreadId());
}

TEST(Win32Platform, CriticalSectionsAreReentrant) {
  platform::CriticalSection section;
  section.Enter();
  ASSERT_TRUE(section.TryEnter());
  auto other_tries = [](void* arg) -> uint32_t {
    auto* s = static_cast<platform::CriticalSection*>(arg);
    if (!s->TryEnter()) return 0;
    s->Leave();
    return 1;
  };
  uint32_t code = 9;
  auto busy = platform::Thread::Start(other_tries, &section);
  ASSERT_TRUE(busy != nullptr && busy->Join(60000) && busy->GetExitCode(&code));
  EXPECT_EQ(code, 0u);
  section.Leave();
  section.Leave();
  auto free = platform::Thread::Start(other_tries, &section);
  ASSERT_TRUE(free != nullptr && free->Join(60000) && free->GetExitCode(&code));
  EXPECT_EQ(code, 1u);
}

TEST(Win32Platform, DllsAndPathConventions) {
  auto kernel = platform::DynamicLibrary::Load("kernel32.dll");
  ASSERT_NE(kernel, nullptr);
  EXPECT_NE(kernel->Symbol("GetCurrentThreadId"), nullptr);
  EXPECT_EQ(kernel->Symbol("NoSuchEntryPoint"), nullptr);
  std::string error;
  EXPECT_EQ(platform::DynamicLibrary::Load("no_such_library.dll", &error), nullptr);
  EXPECT_NE(error.find("no_such_library.dll"), std::string::npos);
  EXPECT_STREQ(platform::kPathSeparator, "\\");
  EXPECT_STREQ(platform::kStartupLogDirectory, "C:\\");
}

}  // namespace
