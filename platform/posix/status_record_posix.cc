// Status records on POSIX: a shared-memory object named like the instance's
// stop event. The writer holds an exclusive flock on it for its whole life;
// the kernel drops that lock when the writer ends in any way, so a reader
// that can take the lock knows the record is a leftover and ignores it.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <utility>

#include "platform/posix/event_name_posix.h"
#include "platform/posix/unique_fd_posix.h"
#include "platform/status_record.h"

namespace platform {
namespace posix {

std::string StatusObjectName(const std::string& name) {
  // The event's encoding, under a prefix of its own.
  const std::string event = EventObjectName(name);
  const std::string event_prefix = "/bs_event.";
  return "/bs_status." + event.substr(event_prefix.size());
}

}  // namespace posix

namespace {

constexpr size_t kSize = sizeof(StatusRecord::Shared);
// A writer that holds its record this long (100 x 1 ms) is alive.
constexpr int kMaxAttempts = 100;
constexpr useconds_t kRetryPauseUs = 1000;

bool Flock(int fd, int operation) {
  for (;;) {
    if (flock(fd, operation) == 0) return true;
    if (errno != EINTR) return false;
  }
}

bool SameObject(int fd, const std::string& object_name) {
  posix::UniqueFd current(shm_open(object_name.c_str(), O_RDONLY | O_CLOEXEC, 0));
  struct stat ours {
  }, theirs{};
  return current.valid() && fstat(fd, &ours) == 0 && fstat(current.get(), &theirs) == 0 &&
         ours.st_dev == theirs.st_dev && ours.st_ino == theirs.st_ino;
}

class PosixStatusRecord final : public StatusRecord {
 public:
  PosixStatusRecord(void* address, posix::UniqueFd fd, std::string object_name, bool owner)
      : StatusRecord(address),
        address_(address),
        fd_(std::move(fd)),
        object_name_(std::move(object_name)),
        owner_(owner) {}

  ~PosixStatusRecord() override {
    munmap(address_, kSize);
    // Removed while still locked, so that no new writer takes it over in
    // between; and only while the name still means this record.
    if (owner_ && SameObject(fd_.get(), object_name_)) shm_unlink(object_name_.c_str());
  }

 private:
  void* address_;
  posix::UniqueFd fd_;  // holds the writer's lock
  std::string object_name_;
  bool owner_;
};

void* Map(int fd, int protection) {
  void* address = mmap(nullptr, kSize, protection, MAP_SHARED, fd, 0);
  return address == MAP_FAILED ? nullptr : address;
}

}  // namespace

std::unique_ptr<StatusRecord> StatusRecord::Create(const std::string& name) {
  // Like the event of an empty name, nobody could find it.
  if (name.empty()) return nullptr;
  try {
    const std::string object_name = posix::StatusObjectName(name);
    for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
      posix::UniqueFd fd(shm_open(object_name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
      if (!fd.valid()) return nullptr;
      if (!Flock(fd.get(), LOCK_EX | LOCK_NB)) {
        if (errno != EWOULDBLOCK) return nullptr;
        // A live writer, or a reader testing for one for a moment.
        usleep(kRetryPauseUs);
        continue;
      }
      struct stat info {};
      if (fstat(fd.get(), &info) != 0) return nullptr;
      if (info.st_nlink == 0) continue;  // its owner removed it meanwhile
      // New, or left by a writer that died: start from zero bytes.
      if (ftruncate(fd.get(), 0) != 0 || ftruncate(fd.get(), static_cast<off_t>(kSize)) != 0) {
        return nullptr;
      }
      void* address = Map(fd.get(), PROT_READ | PROT_WRITE);
      if (address == nullptr) return nullptr;
      static_cast<Shared*>(address)->writer_process = getpid();
      return std::make_unique<PosixStatusRecord>(address, std::move(fd), object_name, true);
    }
  } catch (const std::bad_alloc&) {
  }
  return nullptr;
}

std::unique_ptr<StatusRecord> StatusRecord::Open(const std::string& name) {
  if (name.empty()) return nullptr;
  try {
    const std::string object_name = posix::StatusObjectName(name);
    posix::UniqueFd fd(shm_open(object_name.c_str(), O_RDONLY | O_CLOEXEC, 0));
    if (!fd.valid()) return nullptr;
    struct stat info {};
    if (fstat(fd.get(), &info) != 0 || info.st_size != static_cast<off_t>(kSize)) return nullptr;
    if (Flock(fd.get(), LOCK_SH | LOCK_NB)) return nullptr;  // no writer holds it: a leftover
    if (errno != EWOULDBLOCK) return nullptr;
    void* address = Map(fd.get(), PROT_READ);
    if (address == nullptr) return nullptr;
    return std::make_unique<PosixStatusRecord>(address, std::move(fd), object_name, false);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace platform
