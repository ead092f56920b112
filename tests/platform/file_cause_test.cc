#include <cerrno>
#include <string>

#include "gtest/gtest.h"
#include "platform/file.h"
#include "platform/posix/file_cause_posix.h"
#include "tests/platform/test_support.h"

namespace {

using platform::posix::FileCauseFromErrno;
using platform::posix::FileStep;

struct Row {
  int error_number;
  FileStep step;
  int cause;
};

TEST(FileCauseTest, ErrnoMapsToTheLogsCauseNumbers) {
  const Row rows[] = {
      {0, FileStep::kOpen, platform::kFileOk},
      {ENOTDIR, FileStep::kOpen, platform::kFileBadPath},
      {ENAMETOOLONG, FileStep::kOpen, platform::kFileBadPath},
      {ELOOP, FileStep::kOpen, platform::kFileBadPath},
      {EMFILE, FileStep::kOpen, platform::kFileTooManyOpen},
      {ENFILE, FileStep::kOpen, platform::kFileTooManyOpen},
      {EACCES, FileStep::kOpen, platform::kFileAccessDenied},
      {EPERM, FileStep::kOpen, platform::kFileAccessDenied},
      {EISDIR, FileStep::kOpen, platform::kFileAccessDenied},
      {EROFS, FileStep::kOpen, platform::kFileAccessDenied},
      {EBADF, FileStep::kWrite, platform::kFileInvalid},
      {EBUSY, FileStep::kOpen, platform::kFileRemoveCurrentDir},
      {ENOSPC, FileStep::kWrite, platform::kFileDiskFull},
      {EDQUOT, FileStep::kWrite, platform::kFileDiskFull},
      {EIO, FileStep::kWrite, platform::kFileHardIo},
      {EIO, FileStep::kClose, platform::kFileHardIo},
      {ESPIPE, FileStep::kSeek, platform::kFileBadSeek},
      {EINVAL, FileStep::kSeek, platform::kFileBadSeek},
      {EWOULDBLOCK, FileStep::kLock, platform::kFileSharingViolation},
      // The same numbers from other steps mean something else.
      {EINVAL, FileStep::kOpen, platform::kFileGeneric},
      {EINVAL, FileStep::kWrite, platform::kFileGeneric},
      {EWOULDBLOCK, FileStep::kWrite, platform::kFileGeneric},
      {EWOULDBLOCK, FileStep::kOpen, platform::kFileGeneric},
      // Everything not named above.
      {EFBIG, FileStep::kWrite, platform::kFileGeneric},
      {ENXIO, FileStep::kOpen, platform::kFileGeneric},
      {EEXIST, FileStep::kOpen, platform::kFileGeneric},
      {ENOMEM, FileStep::kOpen, platform::kFileGeneric},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(FileCauseFromErrno(row.error_number, row.step, "/tmp/x.log"), row.cause)
        << "errno " << row.error_number << " at step " << static_cast<int>(row.step);
  }
}

TEST(FileCauseTest, MissingFileOrMissingDirectory) {
  platform_test::TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  // The directory exists: only the file is missing.
  EXPECT_EQ(FileCauseFromErrno(ENOENT, FileStep::kOpen, dir.File("missing.log")),
            platform::kFileNotFound);
  // The directory itself is missing: the path is bad.
  EXPECT_EQ(FileCauseFromErrno(ENOENT, FileStep::kOpen, dir.File("nodir/missing.log")),
            platform::kFileBadPath);
  // A file where a directory should be is no directory either.
  platform_test::WriteFile(dir.File("plain"), "x");
  EXPECT_EQ(FileCauseFromErrno(ENOENT, FileStep::kOpen, dir.File("plain/missing.log")),
            platform::kFileBadPath);
  // A bare name lives in the current directory, which exists.
  EXPECT_EQ(FileCauseFromErrno(ENOENT, FileStep::kOpen, "bare_missing_name.log"),
            platform::kFileNotFound);
  EXPECT_EQ(FileCauseFromErrno(ENOENT, FileStep::kOpen, "/bare_root_name.log"),
            platform::kFileNotFound);
}

}  // namespace
