// Files without sharing, and failures as the log's cause numbers.

#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <thread>

#include "gtest/gtest.h"
#include "platform/posix/file_cause_posix.h"
#include "tests/support/processes.h"

namespace {

using platform::File;
namespace fault = platform::testing;

int Append(const std::string& path, const std::string& text) {
  return platform::AppendToFile(path, text.data(), text.size());
}

class FileTest : public ::testing::Test {
 protected:
  void TearDown() override { fault::ClearFileFaults(); }
  testutil::TempDir dir_;
};

TEST_F(FileTest, AppendReplaceReadAndTheLockOfAnotherWriter) {
  const std::string path = dir_.File("log.log");
  EXPECT_EQ(Append(path, "one\r\n"), platform::kFileOk);
  EXPECT_EQ(Append(path, "two\r\n"), platform::kFileOk);
  int cause = -1;
  auto file = File::Open(path, File::Mode::kAppendExclusive, &cause);
  ASSERT_NE(file, nullptr);
  // A second writer, here, in a thread or in another process, fails at once
  // and truncates nothing.
  for (File::Mode mode : {File::Mode::kAppendExclusive, File::Mode::kTruncateExclusive}) {
    EXPECT_EQ(File::Open(path, mode, &cause), nullptr);
    EXPECT_EQ(cause, platform::kFileSharingViolation);
  }
  EXPECT_EQ(platform::WriteWholeFile(path, "lost", 4), platform::kFileSharingViolation);
  EXPECT_EQ(testutil::RunCommand({BS_TEST_CHILD, "append", path, "lost"}).exit_code,
            platform::kFileSharingViolation);
  int64_t size = -1;
  EXPECT_EQ(file->Write("3", 1), platform::kFileOk);
  char buffer[16] = {};
  size_t got = 99;
  EXPECT_EQ(file->Read(buffer, 4, &got), platform::kFileInvalid) << "a writer cannot read";
  EXPECT_EQ(file->Write(nullptr, 1), platform::kFileInvalid);
  EXPECT_EQ(file->Size(nullptr), platform::kFileInvalid);
  EXPECT_EQ(file->Close(), platform::kFileOk);
  EXPECT_EQ(testutil::ReadBytes(path), "one\r\ntwo\r\n3");
  // A closed file refuses everything.
  EXPECT_EQ(file->Close(), platform::kFileInvalid);
  EXPECT_EQ(file->Write("x", 1), platform::kFileInvalid);
  EXPECT_EQ(file->Size(&size), platform::kFileInvalid);
  EXPECT_EQ(file->Read(buffer, sizeof buffer, &got), platform::kFileInvalid);

  std::string data(8 << 20, '\0');  // a large write arrives whole
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7);
  EXPECT_EQ(platform::WriteWholeFile(path, data.data(), data.size()), platform::kFileOk);
  EXPECT_EQ(testutil::ReadBytes(path), data);
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
  EXPECT_EQ(reader->Read(buffer, 0, &got), platform::kFileOk);
  EXPECT_EQ(reader->Read(nullptr, 1, &got), platform::kFileInvalid);
  EXPECT_EQ(reader->Read(buffer, 1, nullptr), platform::kFileInvalid);
  EXPECT_EQ(reader->Write("x", 1), platform::kFileInvalid) << "the system calls it a bad descriptor";
  EXPECT_EQ(Append(path, "!"), platform::kFileOk) << "readers block no writer";
  ASSERT_NE(File::Open(path, File::Mode::kTruncateExclusive, nullptr), nullptr);
  EXPECT_EQ(testutil::ReadBytes(path), "") << "emptied once the lock is held";
  ASSERT_NE(File::Open(path, File::Mode::kTruncateExclusive, nullptr), nullptr) << "and an empty one stays so";
}

TEST_F(FileTest, InjectedFaultsFailLikeTheSystemAndLeakNoDescriptors) {
  const auto descriptors = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
  };
  const auto before = descriptors();
  const std::string path = dir_.File("injected.log");
  const struct { fault::FileOp op; fault::FileFault fault; int cause; } cases[] = {
      {fault::FileOp::kOpen, fault::FileFault::kDiskFull, platform::kFileDiskFull},
      {fault::FileOp::kOpen, fault::FileFault::kAccessDenied, platform::kFileAccessDenied},
      {fault::FileOp::kOpen, fault::FileFault::kSharingViolation, platform::kFileSharingViolation},
      {fault::FileOp::kOpen, fault::FileFault::kIoError, platform::kFileHardIo},
      {fault::FileOp::kOpen, fault::FileFault::kNotFound, platform::kFileNotFound},
      {fault::FileOp::kWrite, fault::FileFault::kDiskFull, platform::kFileDiskFull},
      {fault::FileOp::kWrite, fault::FileFault::kIoError, platform::kFileHardIo},
      {fault::FileOp::kWrite, fault::FileFault::kAccessDenied, platform::kFileAccessDenied},
  };
  for (const auto& c : cases) {
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
  EXPECT_EQ(testutil::ReadBytes(path), "x") << "a failed write leaves the file alone";
  // A missing file in a missing directory is a bad path, as the system says.
  fault::InjectFileFault("nodir", fault::FileOp::kOpen, fault::FileFault::kNotFound);
  EXPECT_EQ(Append(dir_.File("nodir/x.log"), "x"), platform::kFileBadPath);

  // Counts and path matching (another path is not affected; an empty write
  // writes nothing to fail); -1 holds until cleared; a count of 0 arms nothing.
  const std::string other = dir_.File("other.log");
  fault::InjectFileFault("injected", fault::FileOp::kOpen, fault::FileFault::kDiskFull, 2);
  fault::InjectFileFault("injected", fault::FileOp::kWrite, fault::FileFault::kIoError, 1);
  std::string causes;
  const std::pair<std::string, std::string> appends[] = {{other, "x"}, {path, "x"}, {path, "x"}, {path, ""}, {path, "z"},
                                                         {path, "y"}};
  for (const auto& [to, text] : appends) causes += std::to_string(Append(to, text)) + " ";
  fault::InjectFileFault("", fault::FileOp::kOpen, fault::FileFault::kAccessDenied, -1);
  for (int i = 0; i < 3; ++i) causes += std::to_string(Append(other, "x")) + " ";
  fault::ClearFileFaults();
  fault::InjectFileFault("injected", fault::FileOp::kOpen, fault::FileFault::kDiskFull, 0);
  EXPECT_EQ(causes + std::to_string(Append(path, "!")), "0 13 13 0 10 0 5 5 5 0");
  EXPECT_EQ(testutil::ReadBytes(path), "xy!");

  // Real refusals: a directory, a FIFO without a reader (which must not hang).
  const std::string fifo = dir_.File("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  EXPECT_EQ(Append(fifo, "x"), platform::kFileBadSeek);
  close(reader);
  EXPECT_EQ(Append(fifo, "x"), platform::kFileGeneric);
  EXPECT_EQ(Append(dir_.path(), "x"), platform::kFileAccessDenied);
  EXPECT_EQ(platform::WriteWholeFile(dir_.path(), "x", 1), platform::kFileAccessDenied);
  // A bare name is published in the current directory.
  const std::filesystem::path saved = std::filesystem::current_path();
  std::filesystem::current_path(dir_.path());
  EXPECT_EQ(platform::WriteWholeFile("bare.xml", "bare", 4), platform::kFileOk);
  std::filesystem::current_path(saved);
  EXPECT_EQ(testutil::ReadBytes(dir_.File("bare.xml")), "bare");
  EXPECT_EQ(descriptors(), before);
}

using platform::posix::FileCauseFromErrno;
using platform::posix::FileStep;

// The numbers are the log's: "cause: '11'" and so on.
TEST(FileCauseTest, ErrnoMapsToTheLogsCauseNumbers) {
  constexpr FileStep kOpen = FileStep::kOpen, kWrite = FileStep::kWrite;
  const struct { int error_number; FileStep step; int cause; } rows[] = {
      {0, kOpen, 0},          {ENOTDIR, kOpen, 3},  {ENAMETOOLONG, kOpen, 3}, {ELOOP, kOpen, 3},
      {EMFILE, kOpen, 4},     {ENFILE, kOpen, 4},   {EACCES, kOpen, 5},       {EPERM, kOpen, 5},
      {EISDIR, kOpen, 5},     {EROFS, kOpen, 5},    {EBADF, kWrite, 6},       {EBUSY, kOpen, 7},
      {ENOSPC, kWrite, 13},   {EDQUOT, kWrite, 13}, {EIO, kWrite, 10},        {EIO, FileStep::kClose, 10},
      {ESPIPE, FileStep::kSeek, 9}, {EINVAL, FileStep::kSeek, 9}, {EWOULDBLOCK, FileStep::kLock, 11},
      // The same numbers from other steps mean something else; the rest is generic.
      {EINVAL, kOpen, 1},     {EINVAL, kWrite, 1},  {EWOULDBLOCK, kWrite, 1}, {EWOULDBLOCK, kOpen, 1},
      {EFBIG, kWrite, 1},     {ENXIO, kOpen, 1},    {EEXIST, kOpen, 1},       {ENOMEM, kOpen, 1},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(FileCauseFromErrno(row.error_number, row.step, "/tmp/x.log"), row.cause)
        << "errno " << row.error_number << " at step " << static_cast<int>(row.step);
  }
  // A missing file in a missing directory is a bad path.
  testutil::TempDir dir;
  testutil::WriteBytes(dir.File("plain"), "x");
  const std::pair<std::string, int> missing[] = {{dir.File("missing.log"), 2},      {dir.File("nodir/missing.log"), 3},
                                                 {dir.File("plain/missing.log"), 3}, {"bare_missing_name.log", 2},
                                                 {"/bare_root_name.log", 2}};
  for (const auto& [path, cause] : missing) EXPECT_EQ(FileCauseFromErrno(ENOENT, kOpen, path), cause) << path;
}

}  // namespace
