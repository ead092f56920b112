#pragma once
// Files opened "without sharing": while one writer holds a file for its
// open-write-close, a second opener (thread or process) fails at once with
// kSharingViolation instead of waiting.
//
// Failures are reported as causes, numbered as the log's file-error message
// numbers them.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace platform {

enum FileCause : int {
  kFileOk = 0,
  kFileGeneric = 1,
  kFileNotFound = 2,
  kFileBadPath = 3,
  kFileTooManyOpen = 4,
  kFileAccessDenied = 5,
  kFileInvalid = 6,
  kFileRemoveCurrentDir = 7,
  kFileDirectoryFull = 8,
  kFileBadSeek = 9,
  kFileHardIo = 10,
  kFileSharingViolation = 11,
  kFileLockViolation = 12,
  kFileDiskFull = 13,
  kFileEndOfFile = 14,
};

class File {
 public:
  enum class Mode {
    kRead,               // read only, shared
    kAppendExclusive,    // write only, created if missing, never truncated, positioned at the end
    kTruncateExclusive,  // write only, created if missing, emptied after the lock is held
  };

  // Null on failure, with *cause set.
  static std::unique_ptr<File> Open(const std::string& path, Mode mode, int* cause);

  File() = default;
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  // Closes the file (and drops the lock) if Close was not called.
  virtual ~File() = default;

  // Reads up to n bytes; *got is the number read (0 at the end). Returns a cause.
  virtual int Read(void* buffer, size_t n, size_t* got) = 0;
  // Writes all n bytes or fails. Returns a cause.
  virtual int Write(const void* data, size_t n) = 0;
  // Current length of the file in bytes. Returns a cause.
  virtual int Size(int64_t* size) = 0;
  // Closes now and reports a failure of the close itself. Returns a cause.
  virtual int Close() = 0;
};

// One exclusive open-append-close. Returns a cause.
int AppendToFile(const std::string& path, const void* data, size_t n);
// Publishes a whole file: the bytes are written under a temporary name in
// the same directory (a leading dot, ending in ".tmp") and then renamed onto
// `path`, so that a reader sees either no file, the file it replaced, or all
// n bytes. A failed write leaves no file and no temporary one. A writer that
// holds `path` without sharing makes it fail with kFileSharingViolation at
// once. Returns a cause.
int WriteWholeFile(const std::string& path, const void* data, size_t n);

// Test seam: make chosen file operations fail as if the system had refused
// them, so that the callers' error paths can be reached on purpose.
namespace testing {

enum class FileOp { kOpen, kWrite };
enum class FileFault { kDiskFull, kAccessDenied, kSharingViolation, kIoError, kNotFound };

// The next `count` operations `op` on paths containing `path_part` fail with
// `fault`, mapped to a cause exactly as a real system error would be. A
// negative count arms the fault until ClearFileFaults; an empty `path_part`
// matches every path. A failed open leaves the file system untouched.
void InjectFileFault(const std::string& path_part, FileOp op, FileFault fault, int count = 1);
void ClearFileFaults();

}  // namespace testing
}  // namespace platform
