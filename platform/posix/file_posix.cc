// Files "without sharing" on POSIX: an exclusive, non-blocking flock held for
// the life of each writing handle.

#include "platform/file.h"
#include "platform/file_faults.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "platform/posix/file_cause_posix.h"
#include "platform/posix/unique_fd_posix.h"

namespace platform {
namespace posix {
namespace {

bool ParentDirectoryExists(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  std::string parent;
  if (slash == std::string::npos) {
    parent = ".";
  } else if (slash == 0) {
    parent = "/";
  } else {
    parent = path.substr(0, slash);
  }
  struct stat info {};
  return stat(parent.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace

int FileCauseFromErrno(int error_number, FileStep step, const std::string& path) {
  switch (error_number) {
    case 0:
      return kFileOk;
    case ENOENT:
      return ParentDirectoryExists(path) ? kFileNotFound : kFileBadPath;
    case ENOTDIR:
    case ENAMETOOLONG:
    case ELOOP:
      return kFileBadPath;
    case EMFILE:
    case ENFILE:
      return kFileTooManyOpen;
    case EACCES:
    case EPERM:
    case EISDIR:
    case EROFS:
      return kFileAccessDenied;
    case EBADF:
      return kFileInvalid;
    case EBUSY:
      return kFileRemoveCurrentDir;
    case ENOSPC:
    case EDQUOT:
      return kFileDiskFull;
    case EIO:
      return kFileHardIo;
    case ESPIPE:
      return kFileBadSeek;
    case EINVAL:
      return step == FileStep::kSeek ? kFileBadSeek : kFileGeneric;
    case EWOULDBLOCK:
      return step == FileStep::kLock ? kFileSharingViolation : kFileGeneric;
    default:
      return kFileGeneric;
  }
}

}  // namespace posix

namespace {

using posix::FileCauseFromErrno;
using posix::FileStep;

// ---- injected faults ----------------------------------------------------

struct Injection {
  int error_number;
  FileStep step;
};

Injection ToInjection(testing::FileFault fault, FileStep step) {
  switch (fault) {
    case testing::FileFault::kDiskFull:
      return {ENOSPC, step};
    case testing::FileFault::kAccessDenied:
      return {EACCES, step};
    case testing::FileFault::kSharingViolation:
      // What the lock answers when another holder has the file.
      return {EWOULDBLOCK, FileStep::kLock};
    case testing::FileFault::kIoError:
      return {EIO, step};
    case testing::FileFault::kNotFound:
      return {ENOENT, step};
  }
  return {EIO, step};
}

// The cause an armed fault imposes on this operation, or kFileOk.
int TakeInjectedFault(const std::string& path, testing::FileOp op, FileStep step) {
  testing::FileFault fault;
  if (!testing::TakeFileFault(path, op, &fault)) return kFileOk;
  const Injection injection = ToInjection(fault, step);
  return FileCauseFromErrno(injection.error_number, injection.step, path);
}

// Writes all n bytes to fd or fails; `path` names the file for faults and causes.
int WriteAll(int fd, const void* data, size_t n, const std::string& path) {
  if (n == 0) return kFileOk;
  if (data == nullptr) return kFileInvalid;
  const int injected = TakeInjectedFault(path, testing::FileOp::kWrite, FileStep::kWrite);
  if (injected != kFileOk) return injected;
  const char* next = static_cast<const char*>(data);
  size_t left = n;
  while (left > 0) {
    const ssize_t done = ::write(fd, next, left);
    if (done < 0) {
      if (errno == EINTR) continue;
      return FileCauseFromErrno(errno, FileStep::kWrite, path);
    }
    if (done == 0) return kFileGeneric;  // no progress and no reason given
    next += done;
    left -= static_cast<size_t>(done);
  }
  return kFileOk;
}

// ---- the file handle ------------------------------------------------------

class PosixFile final : public File {
 public:
  PosixFile(std::string path, int fd) : path_(std::move(path)), fd_(fd) {}

  int Read(void* buffer, size_t n, size_t* got) override {
    if (got != nullptr) *got = 0;
    if (!fd_.valid()) return kFileInvalid;
    if (n == 0) return kFileOk;
    if (buffer == nullptr || got == nullptr) return kFileInvalid;
    for (;;) {
      const ssize_t done = ::read(fd_.get(), buffer, n);
      if (done >= 0) {
        *got = static_cast<size_t>(done);
        return kFileOk;
      }
      if (errno != EINTR) return FileCauseFromErrno(errno, FileStep::kRead, path_);
    }
  }

  int Write(const void* data, size_t n) override {
    if (!fd_.valid()) return kFileInvalid;
    return WriteAll(fd_.get(), data, n, path_);
  }

  int Size(int64_t* size) override {
    if (!fd_.valid() || size == nullptr) return kFileInvalid;
    struct stat info {};
    if (fstat(fd_.get(), &info) != 0) return FileCauseFromErrno(errno, FileStep::kSize, path_);
    *size = static_cast<int64_t>(info.st_size);
    return kFileOk;
  }

  int Close() override {
    if (!fd_.valid()) return kFileInvalid;
    if (::close(fd_.Release()) != 0 && errno != EINTR) {
      return FileCauseFromErrno(errno, FileStep::kClose, path_);
    }
    return kFileOk;
  }

 private:
  std::string path_;
  posix::UniqueFd fd_;
};

int OpenFlags(File::Mode mode) {
  // O_NONBLOCK keeps a FIFO in the path from blocking the open; it is
  // cleared again before any read or write.
  const int common = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  return mode == File::Mode::kRead ? (O_RDONLY | common) : (O_WRONLY | O_CREAT | common);
}

int SetCause(int* cause, int value) {
  if (cause != nullptr) *cause = value;
  return value;
}

}  // namespace

std::unique_ptr<File> File::Open(const std::string& path, Mode mode, int* cause) {
  const int injected = TakeInjectedFault(path, testing::FileOp::kOpen, FileStep::kOpen);
  if (injected != kFileOk) {
    SetCause(cause, injected);
    return nullptr;
  }
  posix::UniqueFd fd;
  do {
    fd = posix::UniqueFd(::open(path.c_str(), OpenFlags(mode), 0666));
  } while (!fd.valid() && errno == EINTR);
  if (!fd.valid()) {
    SetCause(cause, FileCauseFromErrno(errno, FileStep::kOpen, path));
    return nullptr;
  }
  const int flags = fcntl(fd.get(), F_GETFL);
  if (flags < 0 || fcntl(fd.get(), F_SETFL, flags & ~O_NONBLOCK) != 0) {
    SetCause(cause, FileCauseFromErrno(errno, FileStep::kOpen, path));
    return nullptr;
  }
  if (mode != Mode::kRead) {
    // The lock comes before any change, so a second opener never truncates
    // or moves within a file that is being written.
    while (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
      if (errno != EINTR) {
        SetCause(cause, FileCauseFromErrno(errno, FileStep::kLock, path));
        return nullptr;
      }
    }
    if (mode == Mode::kTruncateExclusive) {
      // A new file is already empty; truncating it anyway makes ext4 start
      // writing back at close, which doubles the cost of a small file.
      struct stat status {};
      const bool empty = fstat(fd.get(), &status) == 0 && status.st_size == 0;
      int truncated = 0;
      while (!empty && (truncated = ftruncate(fd.get(), 0)) != 0 && errno == EINTR) {
      }
      if (truncated != 0) {
        SetCause(cause, FileCauseFromErrno(errno, FileStep::kTruncate, path));
        return nullptr;
      }
    } else if (lseek(fd.get(), 0, SEEK_END) < 0) {
      // Whatever the reason, the file cannot be positioned for appending.
      SetCause(cause, kFileBadSeek);
      return nullptr;
    }
  }
  try {
    auto file = std::make_unique<PosixFile>(path, fd.get());
    fd.Release();
    SetCause(cause, kFileOk);
    return file;
  } catch (const std::bad_alloc&) {
    SetCause(cause, kFileGeneric);
    return nullptr;
  }
}

namespace {

int WriteOnce(const std::string& path, File::Mode mode, const void* data, size_t n) {
  int cause = kFileOk;
  std::unique_ptr<File> file = File::Open(path, mode, &cause);
  if (file == nullptr) return cause;
  const int written = file->Write(data, n);
  const int closed = file->Close();
  return written != kFileOk ? written : closed;
}

}  // namespace

int AppendToFile(const std::string& path, const void* data, size_t n) {
  return WriteOnce(path, File::Mode::kAppendExclusive, data, n);
}

namespace {

// A name beside `path` that no pattern ending in the final name's suffix
// matches: a leading dot, the process and a counter (two writers never share
// one), and ".tmp" at the end. The base is shortened so that a long final
// name does not make the temporary name too long.
std::string TemporaryName(const std::string& path, unsigned counter) {
  const size_t slash = path.find_last_of('/');
  const std::string dir = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
  const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
  return dir + "." + base.substr(0, 64) + "." + std::to_string(getpid()) + "." +
         std::to_string(counter) + ".tmp";
}

std::atomic<unsigned> g_temporary_counter{0};

}  // namespace

int WriteWholeFile(const std::string& path, const void* data, size_t n) {
  int cause = TakeInjectedFault(path, testing::FileOp::kOpen, FileStep::kOpen);
  if (cause != kFileOk) return cause;
  try {
    // A writer that holds the present file keeps it: the same refusal, at
    // once, as for any other opener without sharing. The lock is held until
    // the new file has replaced it.
    posix::UniqueFd present;
    do {
      present = posix::UniqueFd(::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    } while (!present.valid() && errno == EINTR);
    if (!present.valid() && errno != ENOENT) return FileCauseFromErrno(errno, FileStep::kOpen, path);
    if (present.valid()) {
      while (flock(present.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EINTR) return FileCauseFromErrno(errno, FileStep::kLock, path);
      }
    }

    std::string temporary;
    posix::UniqueFd fd;
    for (;;) {
      temporary = TemporaryName(path, g_temporary_counter.fetch_add(1, std::memory_order_relaxed));
      fd = posix::UniqueFd(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, 0666));
      if (fd.valid()) break;
      if (errno != EINTR && errno != EEXIST) return FileCauseFromErrno(errno, FileStep::kOpen, path);
    }
    cause = WriteAll(fd.get(), data, n, path);
    if (cause == kFileOk && ::close(fd.Release()) != 0 && errno != EINTR) {
      cause = FileCauseFromErrno(errno, FileStep::kClose, path);
    }
    if (cause == kFileOk && ::rename(temporary.c_str(), path.c_str()) != 0) {
      cause = FileCauseFromErrno(errno, FileStep::kClose, path);
    }
    if (cause != kFileOk) ::unlink(temporary.c_str());  // a failed write leaves no file
    return cause;
  } catch (const std::bad_alloc&) {
    return kFileGeneric;
  }
}

}  // namespace platform
