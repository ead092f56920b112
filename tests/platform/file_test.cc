// Files without sharing: appending and replacing, the exclusive lock between
// threads and processes, system errors and injected faults as the log's
// cause numbers, and no descriptor left behind by any failure.

#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>

#include "gtest/gtest.h"
#include "platform/posix/file_cause_posix.h"
#include "tests/platform/helper.h"

namespace {

using platform::File;
using platform_test::Helper;
const auto ReadFile = testutil::ReadBytes;
using platform_test::TempDir;
const auto WriteFile = testutil::WriteBytes;
namespace fault = platform::testing;

int Append(const std::string& path, const std::string& text) {
  return platform::AppendToFile(path, text.data(), text.size());
}

class FileTest : public ::testing::Test {
 protected:
  void TearDown() override { fault::ClearFileFaults(); }
  TempDir dir_;
};

TEST_F(FileTest, AppendReplaceAndRead) {
  const std::string path = dir_.File("log.log");
  EXPECT_EQ(Append(path, "one\r\n"), platform::kFileOk);
  EXPECT_EQ(Append(path, "two\r\n"), platform::kFileOk);
  int cause = -1;
  auto file = File::Open(path, File::Mode::kAppendExclusive, &cause);
  ASSERT_NE(file, nullptr);
  int64_t size = -1;
  EXPECT_EQ(file->Size(&size), platform::kFileOk);
  EXPECT_EQ(size, 10);
  EXPECT_EQ(file->Write("3", 1), platform::kFileOk);
  EXPECT_EQ(file->Close(), platform::kFileOk);
  EXPECT_EQ(ReadFile(path), "one\r\ntwo\r\n3");
  // A closed file refuses everything.
  char buffer[16] = {};
  size_t got = 99;
  EXPECT_EQ(file->Close(), platform::kFileInvalid);
  EXPECT_EQ(file->Write("x", 1), platform::kFileInvalid);
  EXPECT_EQ(file->Size(&size), platform::kFileInvalid);
  EXPECT_EQ(file->Read(buffer, sizeof buffer, &got), platform::kFileInvalid);

  std::string data(8 << 20, '\0');  // a large write arrives whole
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7);
  EXPECT_EQ(platform::WriteWholeFile(path, data.data(), data.size()), platform::kFileOk);
  EXPECT_EQ(ReadFile(path), data);
  // Replaced, never rewritten in place: a reader of the old file reads it whole.
  auto early = File::Open(path, File::Mode::kRead, &cause);
  ASSERT_NE(early, nullptr);
  EXPECT_EQ(platform::WriteWholeFile(path, "hello", 5), platform::kFileOk);
  EXPECT_EQ(early->Read(buffer, 4, &got), platform::kFileOk);
  EXPECT_EQ(std::string(buffer, got), data.substr(0, 4));
  auto reader = File::Open(path, File::Mode::kRead, &cause);
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(reader->Read(buffer, sizeof buffer, &got), platform::kFileOk);
  EXPECT_EQ(std::string(buffer, got), "hello");
  EXPECT_EQ(reader->Read(buffer, sizeof buffer, &got), platform::kFileOk);
  EXPECT_EQ(got, 0u) << "end of file";
  // The system calls a write through a read-only handle a bad descriptor.
  EXPECT_EQ(reader->Write("x", 1), platform::kFileInvalid);
  // Readers block no writer.
  EXPECT_EQ(Append(path, "!"), platform::kFileOk);
  EXPECT_NE(File::Open(path, File::Mode::kRead, &cause), nullptr);
}

TEST_F(FileTest, AWriterMeetsTheLockOfAnotherAtOnce) {
  const std::string path = dir_.File("held.log");
  WriteFile(path, "kept");
  int cause = -1;
  auto holder = File::Open(path, File::Mode::kAppendExclusive, &cause);
  ASSERT_NE(holder, nullptr);
  for (File::Mode mode : {File::Mode::kAppendExclusive, File::Mode::kTruncateExclusive}) {
    EXPECT_EQ(File::Open(path, mode, &cause), nullptr);
    EXPECT_EQ(cause, platform::kFileSharingViolation);
  }
  EXPECT_EQ(platform::WriteWholeFile(path, "lost", 4), platform::kFileSharingViolation);
  int thread_cause = -1;
  std::thread([&] { thread_cause = Append(path, "lost"); }).join();
  EXPECT_EQ(thread_cause, platform::kFileSharingViolation);
  EXPECT_EQ(platform_test::Run({"append", path, "lost"}).exit_code, platform::kFileSharingViolation);
  EXPECT_EQ(ReadFile(path), "kept") << "a refused opener must not have truncated the file";
  holder.reset();

  // The same against a writer in another process, which holds the file
  // until we let it go: a waiting open would never come back here.
  Helper writer({"append-hold", path});
  ASSERT_TRUE(writer.Says("ready"));
  EXPECT_EQ(Append(path, "lost"), platform::kFileSharingViolation);
  writer.Release();
  EXPECT_EQ(writer.Wait(), 0);
  EXPECT_EQ(Append(path, "+parent"), platform::kFileOk);
  EXPECT_EQ(ReadFile(path), "keptchild\n+parent");
}

TEST_F(FileTest, SystemErrorsBecomeCauses) {
  WriteFile(dir_.File("plain"), "");
  ASSERT_EQ(symlink("loop", dir_.File("loop").c_str()), 0);
  struct Case {
    std::string path;
    File::Mode mode;
    int cause;
  };
  const Case cases[] = {
      {dir_.File("nodir/x.log"), File::Mode::kAppendExclusive, platform::kFileBadPath},
      {dir_.File("missing.txt"), File::Mode::kRead, platform::kFileNotFound},
      {dir_.path(), File::Mode::kAppendExclusive, platform::kFileAccessDenied},  // a directory
      {dir_.File("plain/x.log"), File::Mode::kAppendExclusive, platform::kFileBadPath},
      {dir_.File(std::string(300, 'n')), File::Mode::kAppendExclusive, platform::kFileBadPath},
      {dir_.File("loop"), File::Mode::kAppendExclusive, platform::kFileBadPath},
  };
  for (const Case& c : cases) {
    int cause = -1;
    EXPECT_EQ(File::Open(c.path, c.mode, &cause), nullptr) << c.path;
    EXPECT_EQ(cause, c.cause) << c.path;
  }
  EXPECT_NE(access(dir_.File("nodir").c_str(), F_OK), 0);

  // Appending to something unseekable; a FIFO without reader must not hang.
  const std::string fifo = dir_.File("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  EXPECT_EQ(Append(fifo, "x"), platform::kFileBadSeek);
  close(reader);
  EXPECT_EQ(Append(fifo, "x"), platform::kFileGeneric);

  // No write right (the child drops superuser rights, which pass any check),
  // and the limit of open files.
  const std::string readonly = dir_.File("readonly.log");
  WriteFile(readonly, "x");
  ASSERT_EQ(chmod(dir_.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(readonly.c_str(), 0444), 0);
  EXPECT_EQ(platform_test::Run({"as-nobody-append", readonly, "y"}).exit_code, platform::kFileAccessDenied);
  const auto limited = platform_test::Run({"open-limited", dir_.File("limited.log")});
  EXPECT_EQ(limited.out, "4\n");
  EXPECT_EQ(limited.exit_code, platform::kFileTooManyOpen);
}

TEST_F(FileTest, InjectedFaultsFailLikeTheSystem) {
  const std::string path = dir_.File("injected.log");
  struct Case {
    fault::FileOp op;
    fault::FileFault fault;
    int cause;
  };
  const Case cases[] = {
      {fault::FileOp::kOpen, fault::FileFault::kDiskFull, platform::kFileDiskFull},
      {fault::FileOp::kOpen, fault::FileFault::kAccessDenied, platform::kFileAccessDenied},
      {fault::FileOp::kOpen, fault::FileFault::kSharingViolation, platform::kFileSharingViolation},
      {fault::FileOp::kOpen, fault::FileFault::kIoError, platform::kFileHardIo},
      {fault::FileOp::kOpen, fault::FileFault::kNotFound, platform::kFileNotFound},
      {fault::FileOp::kWrite, fault::FileFault::kDiskFull, platform::kFileDiskFull},
      {fault::FileOp::kWrite, fault::FileFault::kIoError, platform::kFileHardIo},
      {fault::FileOp::kWrite, fault::FileFault::kAccessDenied, platform::kFileAccessDenied},
  };
  for (const Case& c : cases) {
    fault::InjectFileFault("injected", c.op, c.fault);
    EXPECT_EQ(Append(path, "lost"), c.cause);
    EXPECT_EQ(access(path.c_str(), F_OK) == 0, c.op == fault::FileOp::kWrite)
        << "a failed open leaves nothing behind";
    fault::InjectFileFault("injected", c.op, c.fault);
    EXPECT_EQ(platform::WriteWholeFile(dir_.File("injected.xml"), "lost", 4), c.cause);
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_.path()), {}), 1)
      << "a failed publication leaves neither its file nor a temporary one";
  EXPECT_EQ(Append(path, "x"), platform::kFileOk) << "each fault was used up";
  EXPECT_EQ(ReadFile(path), "x") << "a failed write leaves the file alone";
  // A missing file in a missing directory is a bad path, as the system says.
  fault::InjectFileFault("nodir", fault::FileOp::kOpen, fault::FileFault::kNotFound);
  EXPECT_EQ(Append(dir_.File("nodir/x.log"), "x"), platform::kFileBadPath);

  // Counts, path matching and clearing.
  const std::string other = dir_.File("other.log");
  fault::InjectFileFault("injected", fault::FileOp::kOpen, fault::FileFault::kDiskFull, 2);
  EXPECT_EQ(Append(other, "x"), platform::kFileOk) << "another path is not affected";
  EXPECT_EQ(Append(path, "x"), platform::kFileDiskFull);
  EXPECT_EQ(Append(path, "x"), platform::kFileDiskFull);
  EXPECT_EQ(Append(path, "y"), platform::kFileOk);
  fault::InjectFileFault("injected", fault::FileOp::kWrite, fault::FileFault::kIoError, 1);
  EXPECT_EQ(Append(path, ""), platform::kFileOk) << "an empty write writes nothing to fail";
  EXPECT_EQ(Append(path, "z"), platform::kFileHardIo);
  fault::InjectFileFault("", fault::FileOp::kOpen, fault::FileFault::kAccessDenied, -1);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(Append(other, "x"), platform::kFileAccessDenied);
  fault::ClearFileFaults();
  fault::InjectFileFault("injected", fault::FileOp::kOpen, fault::FileFault::kDiskFull, 0);
  EXPECT_EQ(Append(path, "!"), platform::kFileOk) << "a count of 0 arms nothing";
  EXPECT_EQ(ReadFile(path), "xy!");
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
  const auto descriptors = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
  };
  const auto before = descriptors();
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(Append(held, "x"), platform::kFileSharingViolation);
    EXPECT_EQ(platform::WriteWholeFile(held, "x", 1), platform::kFileSharingViolation);
    EXPECT_EQ(Append(dir_.File("nodir/x"), "x"), platform::kFileBadPath);
    EXPECT_EQ(Append(fifo, "x"), platform::kFileBadSeek);
    fault::InjectFileFault("leak", fault::FileOp::kWrite, fault::FileFault::kDiskFull);
    EXPECT_EQ(Append(dir_.File("leak.log"), "x"), platform::kFileDiskFull);
    fault::InjectFileFault("leak", fault::FileOp::kOpen, fault::FileFault::kIoError);
    EXPECT_EQ(Append(dir_.File("leak.log"), "x"), platform::kFileHardIo);
    ASSERT_NE(File::Open(dir_.File("dropped.log"), File::Mode::kAppendExclusive, &cause), nullptr)
        << "closed by its destructor, without Close";
  }
  EXPECT_EQ(descriptors(), before);
  close(fifo_reader);
}

using platform::posix::FileCauseFromErrno;
using platform::posix::FileStep;

TEST(FileCauseTest, ErrnoMapsToTheLogsCauseNumbers) {
  constexpr FileStep kOpen = FileStep::kOpen, kWrite = FileStep::kWrite;
  const struct {
    int error_number;
    FileStep step;
    int cause;
  } rows[] = {
      {0, kOpen, platform::kFileOk},                    {ENOTDIR, kOpen, platform::kFileBadPath},
      {ENAMETOOLONG, kOpen, platform::kFileBadPath},    {ELOOP, kOpen, platform::kFileBadPath},
      {EMFILE, kOpen, platform::kFileTooManyOpen},      {ENFILE, kOpen, platform::kFileTooManyOpen},
      {EACCES, kOpen, platform::kFileAccessDenied},     {EPERM, kOpen, platform::kFileAccessDenied},
      {EISDIR, kOpen, platform::kFileAccessDenied},     {EROFS, kOpen, platform::kFileAccessDenied},
      {EBADF, kWrite, platform::kFileInvalid},          {EBUSY, kOpen, platform::kFileRemoveCurrentDir},
      {ENOSPC, kWrite, platform::kFileDiskFull},        {EDQUOT, kWrite, platform::kFileDiskFull},
      {EIO, kWrite, platform::kFileHardIo},             {EIO, FileStep::kClose, platform::kFileHardIo},
      {ESPIPE, FileStep::kSeek, platform::kFileBadSeek}, {EINVAL, FileStep::kSeek, platform::kFileBadSeek},
      {EWOULDBLOCK, FileStep::kLock, platform::kFileSharingViolation},
      // The same numbers from other steps mean something else; the rest is generic.
      {EINVAL, kOpen, platform::kFileGeneric},          {EINVAL, kWrite, platform::kFileGeneric},
      {EWOULDBLOCK, kWrite, platform::kFileGeneric},    {EWOULDBLOCK, kOpen, platform::kFileGeneric},
      {EFBIG, kWrite, platform::kFileGeneric},          {ENXIO, kOpen, platform::kFileGeneric},
      {EEXIST, kOpen, platform::kFileGeneric},          {ENOMEM, kOpen, platform::kFileGeneric},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(FileCauseFromErrno(row.error_number, row.step, "/tmp/x.log"), row.cause)
        << "errno " << row.error_number << " at step " << static_cast<int>(row.step);
  }
  // A missing file in a missing directory is a bad path.
  TempDir dir;
  WriteFile(dir.File("plain"), "x");
  const std::pair<std::string, int> missing[] = {{dir.File("missing.log"), platform::kFileNotFound},
                                                 {dir.File("nodir/missing.log"), platform::kFileBadPath},
                                                 {dir.File("plain/missing.log"), platform::kFileBadPath},
                                                 {"bare_missing_name.log", platform::kFileNotFound},
                                                 {"/bare_root_name.log", platform::kFileNotFound}};
  for (const auto& [path, cause] : missing) EXPECT_EQ(FileCauseFromErrno(ENOENT, kOpen, path), cause) << path;
}

}  // namespace
