// Manual-reset events on POSIX.
//
// A named event is a small shared-memory object: a state word that waiters
// sleep on with a futex, followed by the event's full name. Its lifetime is
// kept with open-file-description locks on the object itself, which the
// kernel drops when a holder closes or dies:
//   byte 0  guard:  taken exclusively (and waited for) around every create,
//                   open and close of the name, so those never overlap;
//   byte 1  holder: every handle keeps a shared lock on it for its life.
// Under the guard, whoever can lock the holder byte exclusively knows that no
// other handle exists: a closer then removes the object, an opener finds it
// abandoned (every holder died) and removes it, a creator starts it afresh.

#include "platform/event.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <chrono>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "platform/posix/event_name_posix.h"
#include "platform/posix/unique_fd_posix.h"

namespace platform {
namespace posix {
namespace {

// Encoded names up to this length are used as they are; longer ones are hashed.
constexpr size_t kMaxDirectObjectName = 200;

uint64_t Fnv1a(const std::string& text, uint64_t basis, bool backwards) {
  uint64_t hash = basis;
  const size_t n = text.size();
  for (size_t i = 0; i < n; ++i) {
    hash ^= static_cast<unsigned char>(text[backwards ? n - 1 - i : i]);
    hash *= 0x100000001b3ULL;
  }
  return hash;
}

void AppendHex(std::string* out, uint64_t value, int digits) {
  static const char kHex[] = "0123456789abcdef";
  for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
    out->push_back(kHex[(value >> shift) & 0xF]);
  }
}

}  // namespace

std::string EventObjectName(const std::string& name) {
  // Letters, digits and '-' stand for themselves; every other byte becomes
  // '_' and two hex digits, which keeps the encoding one to one.
  std::string encoded = "/bs_event.n.";
  for (const char c : name) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if ((byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
        (byte >= '0' && byte <= '9') || byte == '-') {
      encoded.push_back(c);
    } else {
      encoded.push_back('_');
      AppendHex(&encoded, byte, 2);
    }
    if (encoded.size() > kMaxDirectObjectName) break;
  }
  if (encoded.size() <= kMaxDirectObjectName) return encoded;
  std::string hashed = "/bs_event.h.";
  AppendHex(&hashed, Fnv1a(name, 0xcbf29ce484222325ULL, false), 16);
  AppendHex(&hashed, Fnv1a(name, 0x84222325cbf29ce4ULL, true), 16);
  AppendHex(&hashed, name.size(), 8);
  return hashed;
}

}  // namespace posix

namespace {

// Longer names are refused rather than given objects of unbounded size.
constexpr size_t kMaxNameLength = 32768;

constexpr uint32_t kMagic = 0x42534531;  // "BSE1"
constexpr off_t kGuardByte = 0;
constexpr off_t kHolderByte = 1;

// The start of the shared object; the name's bytes follow it.
struct SharedHeader {
  uint32_t state;  // 0 not set, 1 set; only touched with atomic builtins
  uint32_t magic;  // written last when the object is set up
  uint32_t name_length;
  uint32_t reserved;
};

// ---- the wait ------------------------------------------------------------

int64_t MonotonicNanoseconds() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// The relative timeout FUTEX_WAIT reads on 64-bit Linux: seconds, then
// nanoseconds, both 64 bits wide.
struct FutexTimeout {
  int64_t seconds;
  int64_t nanoseconds;
};
static_assert(sizeof(void*) == 8 && sizeof(long) == 8, "FutexTimeout has the 64-bit layout");

bool IsSet(const uint32_t* word) { return __atomic_load_n(word, __ATOMIC_ACQUIRE) != 0; }

void SetWord(uint32_t* word, bool shared) {
  __atomic_store_n(word, 1u, __ATOMIC_RELEASE);
  syscall(SYS_futex, word, shared ? FUTEX_WAKE : FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr,
          0);
}

void ResetWord(uint32_t* word) { __atomic_store_n(word, 0u, __ATOMIC_RELEASE); }

WaitResult WaitWord(uint32_t* word, uint32_t timeout_ms, bool shared) {
  if (IsSet(word)) return WaitResult::kSignaled;
  if (timeout_ms == 0) return WaitResult::kTimeout;
  const int64_t deadline = MonotonicNanoseconds() + static_cast<int64_t>(timeout_ms) * 1000000;
  for (;;) {
    const int64_t left = deadline - MonotonicNanoseconds();
    if (left <= 0) return IsSet(word) ? WaitResult::kSignaled : WaitResult::kTimeout;
    const FutexTimeout pause{left / 1000000000, left % 1000000000};
    // Sleeps only while the word still reads 0.
    if (syscall(SYS_futex, word, shared ? FUTEX_WAIT : FUTEX_WAIT_PRIVATE, 0u, &pause, nullptr,
                0) != 0 &&
        errno != EAGAIN && errno != EINTR && errno != ETIMEDOUT) {
      return WaitResult::kFailed;
    }
    if (IsSet(word)) return WaitResult::kSignaled;
  }
}

// ---- the unnamed event ---------------------------------------------------

class LocalEvent final : public Event {
 public:
  explicit LocalEvent(bool initially_set) : state_(initially_set ? 1u : 0u) {}

  bool Set() override {
    SetWord(&state_, false);
    return true;
  }
  bool Reset() override {
    ResetWord(&state_);
    return true;
  }
  WaitResult Wait(uint32_t timeout_ms) override { return WaitWord(&state_, timeout_ms, false); }

 private:
  alignas(4) uint32_t state_;
};

// ---- locks on the shared object -------------------------------------------

enum class LockResult { kLocked, kBusy, kError };

LockResult LockByte(int fd, short type, off_t byte, bool wait) {
  struct flock request {};
  request.l_type = type;
  request.l_whence = SEEK_SET;
  request.l_start = byte;
  request.l_len = 1;
  for (;;) {
    if (fcntl(fd, wait ? F_OFD_SETLKW : F_OFD_SETLK, &request) == 0) return LockResult::kLocked;
    if (errno == EINTR) continue;
    return (errno == EAGAIN || errno == EACCES) ? LockResult::kBusy : LockResult::kError;
  }
}

// Holds the name's guard byte for one create, open or close.
class Guard {
 public:
  explicit Guard(int fd) : fd_(fd), held_(LockByte(fd, F_WRLCK, kGuardByte, true) ==
                                          LockResult::kLocked) {}
  ~Guard() {
    if (held_) LockByte(fd_, F_UNLCK, kGuardByte, false);
  }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;
  bool held() const { return held_; }

 private:
  int fd_;
  bool held_;
};

// Owns a shared mapping.
class Mapping {
 public:
  Mapping() = default;
  Mapping(void* address, size_t size) : address_(address), size_(size) {}
  ~Mapping() {
    if (address_ != nullptr) munmap(address_, size_);
  }
  Mapping(Mapping&& other) noexcept : address_(other.address_), size_(other.size_) {
    other.address_ = nullptr;
  }
  Mapping& operator=(Mapping&& other) noexcept {
    std::swap(address_, other.address_);
    std::swap(size_, other.size_);
    return *this;
  }

  static Mapping Map(int fd, size_t size) {
    void* address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return address == MAP_FAILED ? Mapping() : Mapping(address, size);
  }
  bool valid() const { return address_ != nullptr; }
  SharedHeader* header() const { return static_cast<SharedHeader*>(address_); }
  char* name() const { return static_cast<char*>(address_) + sizeof(SharedHeader); }

 private:
  void* address_ = nullptr;
  size_t size_ = 0;
};

bool Unlinked(int fd) {
  struct stat info {};
  return fstat(fd, &info) != 0 || info.st_nlink == 0;
}

size_t ObjectSize(const std::string& name) { return sizeof(SharedHeader) + name.size(); }

// Sets up a fresh object; the caller holds the guard and the only handle.
Mapping Initialise(int fd, const std::string& name, bool initially_set) {
  const size_t size = ObjectSize(name);
  // Truncating first zeroes whatever a dead holder left behind.
  if (ftruncate(fd, 0) != 0 || ftruncate(fd, static_cast<off_t>(size)) != 0) return Mapping();
  Mapping mapping = Mapping::Map(fd, size);
  if (!mapping.valid()) return mapping;
  SharedHeader* header = mapping.header();
  std::memcpy(mapping.name(), name.data(), name.size());
  header->name_length = static_cast<uint32_t>(name.size());
  header->reserved = 0;
  __atomic_store_n(&header->state, initially_set ? 1u : 0u, __ATOMIC_RELEASE);
  __atomic_store_n(&header->magic, kMagic, __ATOMIC_RELEASE);
  return mapping;
}

// Maps an object that a live holder set up, if it is this name's.
Mapping Attach(int fd, const std::string& name) {
  struct stat info {};
  if (fstat(fd, &info) != 0 || info.st_size < 0 ||
      static_cast<size_t>(info.st_size) != ObjectSize(name)) {
    return Mapping();
  }
  Mapping mapping = Mapping::Map(fd, ObjectSize(name));
  if (!mapping.valid()) return mapping;
  const SharedHeader* header = mapping.header();
  if (__atomic_load_n(&header->magic, __ATOMIC_ACQUIRE) != kMagic ||
      header->name_length != name.size() ||
      std::memcmp(mapping.name(), name.data(), name.size()) != 0) {
    return Mapping();  // another name that hashes alike
  }
  return mapping;
}

// ---- the named event -----------------------------------------------------

// One open of a named event by this process: its descriptor (with the
// holder lock) and its mapping. Every handle of this process to the same
// name shares one, so that opening a name the process already holds (the
// worker tests its own stop event every idle round) costs no system call.
class NamedObject {
 public:
  NamedObject(std::string object_name, posix::UniqueFd fd, Mapping mapping)
      : object_name_(std::move(object_name)), fd_(std::move(fd)), mapping_(std::move(mapping)) {}

  ~NamedObject() {
    Guard guard(fd_.get());
    if (!guard.held()) return;  // the kernel still drops our locks; a later opener tidies up
    if (LockByte(fd_.get(), F_WRLCK, kHolderByte, false) == LockResult::kLocked) {
      shm_unlink(object_name_.c_str());  // the last handle takes the event with it
    } else {
      // Let go of the holder lock while still guarded, so that the next
      // closer cannot miss that it is the last.
      LockByte(fd_.get(), F_UNLCK, kHolderByte, false);
    }
  }
  NamedObject(const NamedObject&) = delete;
  NamedObject& operator=(const NamedObject&) = delete;

  uint32_t* state() const { return &mapping_.header()->state; }

 private:
  std::string object_name_;
  // Declared before the mapping so that the unmap comes first and the
  // descriptor (with its locks) goes last.
  posix::UniqueFd fd_;
  Mapping mapping_;
};

class NamedEvent final : public Event {
 public:
  explicit NamedEvent(std::shared_ptr<NamedObject> object) : object_(std::move(object)) {}

  bool Set() override {
    SetWord(object_->state(), true);
    return true;
  }
  bool Reset() override {
    ResetWord(object_->state());
    return true;
  }
  WaitResult Wait(uint32_t timeout_ms) override {
    return WaitWord(object_->state(), timeout_ms, true);
  }

 private:
  std::shared_ptr<NamedObject> object_;
};

// The names this process holds open, by event name. While a handle lives,
// its event exists, so a second open of the name can share it.
class OpenNames {
 public:
  std::mutex lock;

  // The live object of `name`, or null; forgets one whose last handle went.
  std::shared_ptr<NamedObject> Find(const std::string& name) {
    const auto found = objects_.find(name);
    if (found == objects_.end()) return nullptr;
    std::shared_ptr<NamedObject> object = found->second.lock();
    if (!object) objects_.erase(found);
    return object;
  }
  void Add(const std::string& name, const std::shared_ptr<NamedObject>& object) {
    objects_[name] = object;
  }

 private:
  std::unordered_map<std::string, std::weak_ptr<NamedObject>> objects_;
};

// Never destroyed: handles may close during the process's exit.
OpenNames& TheOpenNames() {
  static OpenNames* names = new OpenNames();
  return *names;
}

std::unique_ptr<Event> Handle(const std::string& name, posix::UniqueFd fd, Mapping mapping,
                              const std::string& object_name) {
  auto object =
      std::make_shared<NamedObject>(object_name, std::move(fd), std::move(mapping));
  TheOpenNames().Add(name, object);
  return std::make_unique<NamedEvent>(std::move(object));
}

// Gives up after this many rounds of losing the name to a closing last holder.
constexpr int kMaxAttempts = 1000;

std::unique_ptr<Event> CreateNamed(const std::string& name, bool initially_set, bool* existed) {
  std::lock_guard<std::mutex> held(TheOpenNames().lock);
  if (std::shared_ptr<NamedObject> open = TheOpenNames().Find(name)) {
    if (existed != nullptr) *existed = true;
    return std::make_unique<NamedEvent>(std::move(open));
  }
  const std::string object_name = posix::EventObjectName(name);
  for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
    posix::UniqueFd fd(shm_open(object_name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!fd.valid()) return nullptr;
    Guard guard(fd.get());
    if (!guard.held()) return nullptr;
    if (Unlinked(fd.get())) continue;  // its last holder removed it meanwhile
    Mapping mapping;
    bool found = false;
    switch (LockByte(fd.get(), F_WRLCK, kHolderByte, false)) {
      case LockResult::kLocked:
        // Nobody holds it: brand new, or left behind by holders that died.
        mapping = Initialise(fd.get(), name, initially_set);
        if (!mapping.valid()) {
          shm_unlink(object_name.c_str());
          return nullptr;
        }
        // Other handles only test the holder byte under the guard, so this
        // change from exclusive to shared cannot be seen half done.
        if (LockByte(fd.get(), F_RDLCK, kHolderByte, false) != LockResult::kLocked) {
          shm_unlink(object_name.c_str());
          return nullptr;
        }
        break;
      case LockResult::kBusy:
        if (LockByte(fd.get(), F_RDLCK, kHolderByte, false) != LockResult::kLocked) return nullptr;
        mapping = Attach(fd.get(), name);
        if (!mapping.valid()) {
          LockByte(fd.get(), F_UNLCK, kHolderByte, false);  // let go while guarded
          return nullptr;
        }
        found = true;
        break;
      case LockResult::kError:
        return nullptr;
    }
    if (existed != nullptr) *existed = found;
    // Built while the guard is held: a closer must not see this handle half made.
    return Handle(name, std::move(fd), std::move(mapping), object_name);
  }
  return nullptr;
}

std::unique_ptr<Event> OpenNamed(const std::string& name) {
  std::lock_guard<std::mutex> held(TheOpenNames().lock);
  if (std::shared_ptr<NamedObject> open = TheOpenNames().Find(name)) {
    return std::make_unique<NamedEvent>(std::move(open));
  }
  const std::string object_name = posix::EventObjectName(name);
  for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
    posix::UniqueFd fd(shm_open(object_name.c_str(), O_RDWR | O_CLOEXEC, 0));
    if (!fd.valid()) return nullptr;
    Guard guard(fd.get());
    if (!guard.held()) return nullptr;
    if (Unlinked(fd.get())) continue;  // gone meanwhile; it may have been made again
    switch (LockByte(fd.get(), F_WRLCK, kHolderByte, false)) {
      case LockResult::kLocked:
        // Every holder died: the event is gone, only its object was left.
        shm_unlink(object_name.c_str());
        return nullptr;
      case LockResult::kBusy: {
        if (LockByte(fd.get(), F_RDLCK, kHolderByte, false) != LockResult::kLocked) return nullptr;
        Mapping mapping = Attach(fd.get(), name);
        if (!mapping.valid()) {
          LockByte(fd.get(), F_UNLCK, kHolderByte, false);  // let go while guarded
          return nullptr;
        }
        return Handle(name, std::move(fd), std::move(mapping), object_name);
      }
      case LockResult::kError:
        return nullptr;
    }
  }
  return nullptr;
}

}  // namespace

std::unique_ptr<Event> Event::Create(const std::string& name, bool initially_set, bool* existed) {
  if (existed != nullptr) *existed = false;
  try {
    if (name.empty()) return std::make_unique<LocalEvent>(initially_set);
    if (name.size() > kMaxNameLength) return nullptr;
    return CreateNamed(name, initially_set, existed);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

std::unique_ptr<Event> Event::Open(const std::string& name) {
  if (name.empty() || name.size() > kMaxNameLength) return nullptr;
  try {
    return OpenNamed(name);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace platform
