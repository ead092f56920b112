// Files "without sharing" on Windows: CreateFileA with share mode 0, so the
// kernel itself turns a second opener away with a sharing violation.

#include "platform/file.h"

#include <windows.h>

#include <limits>
#include <new>

#include "platform/file_faults.h"
#include "platform/win32/file_cause_win32.h"

namespace platform {
namespace win32 {

// The Windows error codes behind each cause; docs/windows.md has the table.
int FileCauseFromError(uint32_t error) {
  switch (error) {
    case ERROR_SUCCESS:
      return kFileOk;
    case ERROR_FILE_NOT_FOUND:
      return kFileNotFound;
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
    case ERROR_INVALID_NAME:
    case ERROR_BAD_PATHNAME:
    case ERROR_FILENAME_EXCED_RANGE:
    case ERROR_DIRECTORY:
      return kFileBadPath;
    case ERROR_TOO_MANY_OPEN_FILES:
      return kFileTooManyOpen;
    case ERROR_ACCESS_DENIED:
    case ERROR_WRITE_PROTECT:
    case ERROR_NETWORK_ACCESS_DENIED:
      return kFileAccessDenied;
    case ERROR_INVALID_HANDLE:
      return kFileInvalid;
    case ERROR_CURRENT_DIRECTORY:
      return kFileRemoveCurrentDir;
    case ERROR_CANNOT_MAKE:
      return kFileDirectoryFull;
    case ERROR_SEEK:
    case ERROR_NEGATIVE_SEEK:
    case ERROR_SEEK_ON_DEVICE:
      return kFileBadSeek;
    case ERROR_CRC:
    case ERROR_WRITE_FAULT:
    case ERROR_READ_FAULT:
    case ERROR_GEN_FAILURE:
    case ERROR_IO_DEVICE:
      return kFileHardIo;
    case ERROR_SHARING_VIOLATION:
    case ERROR_SHARING_BUFFER_EXCEEDED:
      return kFileSharingViolation;
    case ERROR_LOCK_VIOLATION:
    case ERROR_DRIVE_LOCKED:
      return kFileLockViolation;
    case ERROR_HANDLE_DISK_FULL:
    case ERROR_DISK_FULL:
      return kFileDiskFull;
    case ERROR_HANDLE_EOF:
      return kFileEndOfFile;
    default:
      return kFileGeneric;
  }
}

}  // namespace win32

namespace {

using win32::FileCauseFromError;

int LastCause() { return FileCauseFromError(GetLastError()); }

// The cause an armed test fault imposes on this operation, or kFileOk.
int InjectedCause(const std::string& path, testing::FileOp op) {
  testing::FileFault fault;
  if (!testing::TakeFileFault(path, op, &fault)) return kFileOk;
  switch (fault) {
    case testing::FileFault::kDiskFull:
      return FileCauseFromError(ERROR_DISK_FULL);
    case testing::FileFault::kAccessDenied:
      return FileCauseFromError(ERROR_ACCESS_DENIED);
    case testing::FileFault::kSharingViolation:
      return FileCauseFromError(ERROR_SHARING_VIOLATION);
    case testing::FileFault::kIoError:
      return FileCauseFromError(ERROR_WRITE_FAULT);
    case testing::FileFault::kNotFound:
      return FileCauseFromError(ERROR_FILE_NOT_FOUND);
  }
  return kFileGeneric;
}

class Win32File final : public File {
 public:
  Win32File(std::string path, HANDLE handle) : path_(std::move(path)), handle_(handle) {}
  ~Win32File() override {
    if (handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
  }

  int Read(void* buffer, size_t n, size_t* got) override {
    if (got != nullptr) *got = 0;
    if (handle_ == INVALID_HANDLE_VALUE) return kFileInvalid;
    if (n == 0) return kFileOk;
    if (buffer == nullptr || got == nullptr) return kFileInvalid;
    DWORD done = 0;
    const DWORD piece = static_cast<DWORD>(std::min<size_t>(n, std::numeric_limits<DWORD>::max()));
    if (ReadFile(handle_, buffer, piece, &done, nullptr) == 0) return LastCause();
    *got = done;
    return kFileOk;
  }

  int Write(const void* data, size_t n) override {
    if (handle_ == INVALID_HANDLE_VALUE) return kFileInvalid;
    if (n == 0) return kFileOk;
    if (data == nullptr) return kFileInvalid;
    const int injected = InjectedCause(path_, testing::FileOp::kWrite);
    if (injected != kFileOk) return injected;
    const char* next = static_cast<const char*>(data);
    while (n > 0) {
      const DWORD piece = static_cast<DWORD>(std::min<size_t>(n, 1u << 30));
      DWORD done = 0;
      if (WriteFile(handle_, next, piece, &done, nullptr) == 0) return LastCause();
      if (done == 0) return kFileGeneric;  // no progress and no reason given
      next += done;
      n -= done;
    }
    return kFileOk;
  }

  int Size(int64_t* size) override {
    if (handle_ == INVALID_HANDLE_VALUE || size == nullptr) return kFileInvalid;
    LARGE_INTEGER length{};
    if (GetFileSizeEx(handle_, &length) == 0) return LastCause();
    *size = length.QuadPart;
    return kFileOk;
  }

  int Close() override {
    if (handle_ == INVALID_HANDLE_VALUE) return kFileInvalid;
    const HANDLE handle = handle_;
    handle_ = INVALID_HANDLE_VALUE;
    return CloseHandle(handle) != 0 ? kFileOk : LastCause();
  }

 private:
  std::string path_;
  HANDLE handle_;
};

int SetCause(int* cause, int value) {
  if (cause != nullptr) *cause = value;
  return value;
}

}  // namespace

std::unique_ptr<File> File::Open(const std::string& path, Mode mode, int* cause) {
  const int injected = InjectedCause(path, testing::FileOp::kOpen);
  if (injected != kFileOk) {
    SetCause(cause, injected);
    return nullptr;
  }
  DWORD access = GENERIC_WRITE;
  DWORD share = 0;  // without sharing: a second opener meets a sharing violation
  DWORD disposition = OPEN_ALWAYS;
  switch (mode) {
    case Mode::kRead:
      access = GENERIC_READ;
      share = FILE_SHARE_READ | FILE_SHARE_WRITE;
      disposition = OPEN_EXISTING;
      break;
    case Mode::kAppendExclusive:
      break;
    case Mode::kTruncateExclusive:
      // Empties the file only once the open has succeeded, i.e. nobody holds it.
      disposition = CREATE_ALWAYS;
      break;
  }
  const HANDLE handle =
      CreateFileA(path.c_str(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    SetCause(cause, LastCause());
    return nullptr;
  }
  std::unique_ptr<Win32File> file(new (std::nothrow) Win32File(path, handle));
  if (file == nullptr) {
    CloseHandle(handle);
    SetCause(cause, kFileGeneric);
    return nullptr;
  }
  if (mode == Mode::kAppendExclusive && SetFilePointerEx(handle, LARGE_INTEGER{}, nullptr, FILE_END) == 0) {
    SetCause(cause, kFileBadSeek);
    return nullptr;
  }
  SetCause(cause, kFileOk);
  return file;
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

int WriteWholeFile(const std::string& path, const void* data, size_t n) {
  // Written under a name that a picker of "*.xml" never matches, then moved
  // onto its own name: a reader sees the whole file or none.
  const std::string part = path + ".part";
  const int cause = WriteOnce(part, File::Mode::kTruncateExclusive, data, n);
  if (cause == kFileOk && MoveFileExA(part.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING) != 0) {
    return kFileOk;
  }
  const int failure = cause != kFileOk ? cause : LastCause();
  // A part left by this call goes; one held by another writer is not ours.
  if (failure != kFileSharingViolation) DeleteFileA(part.c_str());
  return failure;
}

}  // namespace platform
