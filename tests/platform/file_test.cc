#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "gtest/gtest.h"
#include "tests/platform/child_process.h"
#include "tests/platform/test_support.h"

namespace {

using platform::File;
using platform_test::ChildProcess;
using platform_test::ReadFile;
using platform_test::TempDir;
using platform_test::WriteFile;
namespace fault = platform::testing;

const std::string kChild = BS_TEST_CHILD;

int Append(const std::string& path, const std::string& text) {
  return platform::AppendToFile(path, text.data(), text.size());
}

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

class FileTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_FALSE(dir_.path().empty()); }
  void TearDown() override { fault::ClearFileFaults(); }
  TempDir dir_;
};

TEST_F(FileTest, AppendCreatesThenAppendsNeverTruncates) {
  const std::string path = dir_.File("log.log");
  EXPECT_EQ(Append(path, "one\r\n"), platform::kFileOk);
  EXPECT_EQ(Append(path, "two\r\n"), platform::kFileOk);
  EXPECT_EQ(ReadFile(path), "one\r\ntwo\r\n");

  int cause = -1;
  auto file = File::Open(path, File::Mode::kAppendExclusive, &cause);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(cause, platform::kFileOk);
  int64_t size = -1;
  EXPECT_EQ(file->Size(&size), platform::kFileOk);
  EXPECT_EQ(size, 10);
  EXPECT_EQ(file->Write("3", 1), platform::kFileOk);
  EXPECT_EQ(file->Close(), platform::kFileOk);
  EXPECT_EQ(ReadFile(path), "one\r\ntwo\r\n3");
}

TEST_F(FileTest, WriteWholeFileReplacesTheContent) {
  const std::string path = dir_.File("doc.xml");
  WriteFile(path, std::string(1000, 'o'));
  EXPECT_EQ(platform::WriteWholeFile(path, "new", 3), platform::kFileOk);
  EXPECT_EQ(ReadFile(path), "new");
  EXPECT_EQ(platform::WriteWholeFile(path, "", 0), platform::kFileOk);
  EXPECT_EQ(ReadFile(path), "");
}

TEST_F(FileTest, LargeWriteArrivesWhole) {
  const std::string path = dir_.File("big.bin");
  std::string data(8 << 20, '\0');
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7);
  EXPECT_EQ(platform::WriteWholeFile(path, data.data(), data.size()), platform::kFileOk);
  EXPECT_EQ(ReadFile(path), data);
}

TEST_F(FileTest, ReadSeesWhatWasWritten) {
  const std::string path = dir_.File("read.txt");
  WriteFile(path, "hello");
  int cause = -1;
  auto file = File::Open(path, File::Mode::kRead, &cause);
  ASSERT_NE(file, nullptr);
  char buffer[16] = {};
  size_t got = 99;
  EXPECT_EQ(file->Read(buffer, sizeof buffer, &got), platform::kFileOk);
  EXPECT_EQ(std::string(buffer, got), "hello");
  EXPECT_EQ(file->Read(buffer, sizeof buffer, &got), platform::kFileOk);
  EXPECT_EQ(got, 0u) << "end of file";
  // The system calls a write through a read-only handle a bad descriptor.
  EXPECT_EQ(file->Write("x", 1), platform::kFileInvalid);
}

TEST_F(FileTest, ClosedFileRefusesEverything) {
  int cause = -1;
  auto file = File::Open(dir_.File("closed.log"), File::Mode::kAppendExclusive, &cause);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->Close(), platform::kFileOk);
  EXPECT_EQ(file->Close(), platform::kFileInvalid);
  EXPECT_EQ(file->Write("x", 1), platform::kFileInvalid);
  int64_t size = 0;
  EXPECT_EQ(file->Size(&size), platform::kFileInvalid);
  char buffer[4];
  size_t got = 0;
  EXPECT_EQ(file->Read(buffer, sizeof buffer, &got), platform::kFileInvalid);
}

TEST_F(FileTest, SecondOpenerInTheSameProcessMeetsTheLock) {
  const std::string path = dir_.File("held.log");
  WriteFile(path, "kept");
  int cause = -1;
  auto holder = File::Open(path, File::Mode::kAppendExclusive, &cause);
  ASSERT_NE(holder, nullptr);

  for (File::Mode mode : {File::Mode::kAppendExclusive, File::Mode::kTruncateExclusive}) {
    cause = -1;
    EXPECT_EQ(File::Open(path, mode, &cause), nullptr);
    EXPECT_EQ(cause, platform::kFileSharingViolation);
  }
  EXPECT_EQ(Append(path, "lost"), platform::kFileSharingViolation);
  EXPECT_EQ(platform::WriteWholeFile(path, "lost", 4), platform::kFileSharingViolation);
  EXPECT_EQ(ReadFile(path), "kept") << "a refused opener must not have truncated the file";

  // From another thread just the same.
  int thread_cause = -1;
  std::thread([&] { thread_cause = Append(path, "lost"); }).join();
  EXPECT_EQ(thread_cause, platform::kFileSharingViolation);

  EXPECT_EQ(holder->Close(), platform::kFileOk);
  EXPECT_EQ(Append(path, "+next"), platform::kFileOk);
  EXPECT_EQ(ReadFile(path), "kept+next");
}

TEST_F(FileTest, WriterInAnotherProcessMeetsTheLockAtOnce) {
  const std::string path = dir_.File("shared.log");
  WriteFile(path, "start\n");
  ChildProcess holder;
  ASSERT_TRUE(holder.Start({kChild, "append-hold", path}));
  ASSERT_EQ(holder.ReadLine(), "ready");
  // The child holds the file until we let it go, so a waiting open would
  // never come back here.
  EXPECT_EQ(Append(path, "parent\n"), platform::kFileSharingViolation);
  EXPECT_EQ(platform::WriteWholeFile(path, "x", 1), platform::kFileSharingViolation);
  holder.CloseInput();
  EXPECT_EQ(holder.Wait(), 0);
  EXPECT_EQ(Append(path, "parent\n"), platform::kFileOk);
  EXPECT_EQ(ReadFile(path), "start\nchild\nparent\n");

  // And the other way round.
  int cause = -1;
  auto mine = File::Open(path, File::Mode::kAppendExclusive, &cause);
  ASSERT_NE(mine, nullptr);
  EXPECT_EQ(platform_test::Run({kChild, "append", path, "child"}).exit_code,
            platform::kFileSharingViolation);
}

TEST_F(FileTest, ReadersDoNotBlockWriters) {
  const std::string path = dir_.File("readers.log");
  WriteFile(path, "a");
  int cause = -1;
  auto reader = File::Open(path, File::Mode::kRead, &cause);
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(Append(path, "b"), platform::kFileOk);
  auto writer = File::Open(path, File::Mode::kAppendExclusive, &cause);
  ASSERT_NE(writer, nullptr);
  EXPECT_NE(File::Open(path, File::Mode::kRead, &cause), nullptr);
}

TEST_F(FileTest, SystemErrorsBecomeCauses) {
  int cause = -1;
  EXPECT_EQ(File::Open(dir_.File("nodir/x.log"), File::Mode::kAppendExclusive, &cause), nullptr);
  EXPECT_EQ(cause, platform::kFileBadPath);
  EXPECT_FALSE(Exists(dir_.File("nodir")));

  EXPECT_EQ(File::Open(dir_.File("missing.txt"), File::Mode::kRead, &cause), nullptr);
  EXPECT_EQ(cause, platform::kFileNotFound);

  EXPECT_EQ(File::Open(dir_.path(), File::Mode::kAppendExclusive, &cause), nullptr);
  EXPECT_EQ(cause, platform::kFileAccessDenied) << "a directory is not writable as a file";

  WriteFile(dir_.File("plain"), "");
  EXPECT_EQ(File::Open(dir_.File("plain/x.log"), File::Mode::kAppendExclusive, &cause), nullptr);
  EXPECT_EQ(cause, platform::kFileBadPath);

  EXPECT_EQ(File::Open(dir_.File(std::string(300, 'n')), File::Mode::kAppendExclusive, &cause),
            nullptr);
  EXPECT_EQ(cause, platform::kFileBadPath) << "name too long";

  ASSERT_EQ(symlink("loop", dir_.File("loop").c_str()), 0);
  EXPECT_EQ(File::Open(dir_.File("loop"), File::Mode::kAppendExclusive, &cause), nullptr);
  EXPECT_EQ(cause, platform::kFileBadPath) << "symbolic link loop";
}

TEST_F(FileTest, AppendToSomethingUnseekableIsABadSeek) {
  const std::string path = dir_.File("fifo");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  int cause = -1;
  EXPECT_EQ(File::Open(path, File::Mode::kAppendExclusive, &cause), nullptr);
  EXPECT_EQ(cause, platform::kFileBadSeek);
  close(reader);
  // Without a reader the open must not hang.
  EXPECT_EQ(File::Open(path, File::Mode::kAppendExclusive, &cause), nullptr);
  EXPECT_EQ(cause, platform::kFileGeneric);
}

TEST_F(FileTest, NoWriteRightIsAccessDenied) {
  ASSERT_EQ(chmod(dir_.path().c_str(), 0755), 0);
  const std::string path = dir_.File("readonly.log");
  WriteFile(path, "x");
  ASSERT_EQ(chmod(path.c_str(), 0444), 0);
  // The child drops superuser rights first, which would pass any check.
  EXPECT_EQ(platform_test::Run({kChild, "as-nobody-append", path, "y"}).exit_code,
            platform::kFileAccessDenied);
  EXPECT_EQ(ReadFile(path), "x");
}

TEST_F(FileTest, TooManyOpenFiles) {
  const auto result = platform_test::Run({kChild, "open-limited", dir_.File("limited.log")});
  EXPECT_EQ(result.out, "4\n");
  EXPECT_EQ(result.exit_code, platform::kFileTooManyOpen);
}

TEST_F(FileTest, InjectedOpenFaultsFailLikeTheSystem) {
  struct Case {
    fault::FileFault fault;
    int cause;
  };
  const Case cases[] = {
      {fault::FileFault::kDiskFull, platform::kFileDiskFull},
      {fault::FileFault::kAccessDenied, platform::kFileAccessDenied},
      {fault::FileFault::kSharingViolation, platform::kFileSharingViolation},
      {fault::FileFault::kIoError, platform::kFileHardIo},
      {fault::FileFault::kNotFound, platform::kFileNotFound},
  };
  const std::string path = dir_.File("injected.log");
  for (const Case& c : cases) {
    fault::InjectFileFault("injected", fault::FileOp::kOpen, c.fault);
    EXPECT_EQ(Append(path, "x"), c.cause);
    EXPECT_FALSE(Exists(path)) << "a failed open leaves nothing behind";
  }
  EXPECT_EQ(Append(path, "x"), platform::kFileOk) << "each fault was used up";

  // A missing file in a missing directory is a bad path, as the system would say.
  fault::InjectFileFault("nodir", fault::FileOp::kOpen, fault::FileFault::kNotFound);
  EXPECT_EQ(Append(dir_.File("nodir/x.log"), "x"), platform::kFileBadPath);
}

TEST_F(FileTest, InjectedWriteFaultsLeaveTheFileAlone) {
  const std::string path = dir_.File("w.log");
  WriteFile(path, "before");
  fault::InjectFileFault("w.log", fault::FileOp::kWrite, fault::FileFault::kDiskFull);
  EXPECT_EQ(Append(path, "lost"), platform::kFileDiskFull);
  fault::InjectFileFault("w.log", fault::FileOp::kWrite, fault::FileFault::kIoError);
  EXPECT_EQ(Append(path, "lost"), platform::kFileHardIo);
  fault::InjectFileFault("w.log", fault::FileOp::kWrite, fault::FileFault::kAccessDenied);
  EXPECT_EQ(Append(path, "lost"), platform::kFileAccessDenied);
  EXPECT_EQ(ReadFile(path), "before");
  EXPECT_EQ(Append(path, "+after"), platform::kFileOk);
  EXPECT_EQ(ReadFile(path), "before+after");
}

TEST_F(FileTest, InjectedFaultsCountMatchAndClear) {
  const std::string hit = dir_.File("target.log");
  const std::string miss = dir_.File("other.log");
  fault::InjectFileFault("target", fault::FileOp::kOpen, fault::FileFault::kDiskFull, 2);
  EXPECT_EQ(Append(miss, "x"), platform::kFileOk) << "another path is not affected";
  EXPECT_EQ(Append(hit, "x"), platform::kFileDiskFull);
  EXPECT_EQ(Append(hit, "x"), platform::kFileDiskFull);
  EXPECT_EQ(Append(hit, "x"), platform::kFileOk);

  fault::InjectFileFault("target", fault::FileOp::kWrite, fault::FileFault::kIoError, 1);
  EXPECT_EQ(Append(hit, ""), platform::kFileOk) << "an empty write writes nothing to fail";
  EXPECT_EQ(Append(hit, "y"), platform::kFileHardIo);

  fault::InjectFileFault("", fault::FileOp::kOpen, fault::FileFault::kAccessDenied, -1);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(Append(miss, "x"), platform::kFileAccessDenied);
  fault::ClearFileFaults();
  EXPECT_EQ(Append(miss, "x"), platform::kFileOk);
  EXPECT_EQ(ReadFile(hit), "x") << "only the one open that got through wrote";

  fault::InjectFileFault("target", fault::FileOp::kOpen, fault::FileFault::kDiskFull, 0);
  EXPECT_EQ(Append(hit, "z"), platform::kFileOk) << "a count of 0 arms nothing";
}

TEST_F(FileTest, InjectedFaultsAreSharedSafelyBetweenThreads) {
  const std::string path = dir_.File("threads.log");
  constexpr int kFaults = 200;
  fault::InjectFileFault("threads", fault::FileOp::kWrite, fault::FileFault::kDiskFull, kFaults);
  std::atomic<int> disk_full{0};
  std::atomic<int> written{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 150; ++i) {
        for (;;) {
          const int cause = Append(path, "x");
          if (cause == platform::kFileSharingViolation) continue;  // another thread writes
          if (cause == platform::kFileDiskFull) ++disk_full;
          if (cause == platform::kFileOk) ++written;
          break;
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(disk_full.load(), kFaults);
  EXPECT_EQ(written.load(), 4 * 150 - kFaults);
  EXPECT_EQ(ReadFile(path).size(), static_cast<size_t>(written.load()));
}

TEST_F(FileTest, FailuresLeakNoDescriptors) {
  const std::string held = dir_.File("held.log");
  int cause = -1;
  auto holder = File::Open(held, File::Mode::kAppendExclusive, &cause);
  ASSERT_NE(holder, nullptr);
  const std::string fifo = dir_.File("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const int fifo_reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(fifo_reader, 0);

  const int before = platform_test::OpenDescriptorCount();
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(Append(held, "x"), platform::kFileSharingViolation);
    EXPECT_EQ(platform::WriteWholeFile(held, "x", 1), platform::kFileSharingViolation);
    EXPECT_EQ(Append(dir_.File("nodir/x"), "x"), platform::kFileBadPath);
    EXPECT_EQ(Append(fifo, "x"), platform::kFileBadSeek);
    fault::InjectFileFault("leak", fault::FileOp::kWrite, fault::FileFault::kDiskFull);
    EXPECT_EQ(Append(dir_.File("leak.log"), "x"), platform::kFileDiskFull);
    fault::InjectFileFault("leak", fault::FileOp::kOpen, fault::FileFault::kIoError);
    EXPECT_EQ(Append(dir_.File("leak.log"), "x"), platform::kFileHardIo);
    auto dropped = File::Open(dir_.File("dropped.log"), File::Mode::kAppendExclusive, &cause);
    ASSERT_NE(dropped, nullptr);  // closed by its destructor, without Close
  }
  EXPECT_EQ(platform_test::OpenDescriptorCount(), before);
  close(fifo_reader);
}

}  // namespace
