// The sequence-numbered copy in and out of a status record, the same on
// every system. Every shared word is read and written atomically, so a torn
// copy is detected by the sequence number and never a data race.

#include "platform/status_record.h"

#include <algorithm>
#include <cstring>
#include <thread>

namespace platform {
namespace {

constexpr size_t kWords = StatusRecord::kCapacity / 8;
// A writer's update is a few hundred stores; a reader that still sees one
// under way after this many tries meets a writer that died in the middle.
constexpr int kReadAttempts = 10000;

}  // namespace

StatusRecord::StatusRecord(void* shared) : shared_(static_cast<Shared*>(shared)) {}

void StatusRecord::Publish(const void* data, size_t size) {
  uint64_t words[kWords] = {};
  std::memcpy(words, data, std::min(size, kCapacity));

  const uint32_t sequence = __atomic_load_n(&shared_->sequence, __ATOMIC_RELAXED);
  __atomic_store_n(&shared_->sequence, sequence + 1, __ATOMIC_RELAXED);
  // The odd number must be visible before any word changes.
  __atomic_thread_fence(__ATOMIC_RELEASE);
  for (size_t i = 0; i < kWords; ++i)
    __atomic_store_n(&shared_->words[i], words[i], __ATOMIC_RELAXED);
  __atomic_store_n(&shared_->sequence, sequence + 2, __ATOMIC_RELEASE);
  __atomic_store_n(&shared_->published, 1u, __ATOMIC_RELEASE);
}

bool StatusRecord::Read(void* data, size_t size) const {
  uint64_t words[kWords];
  for (int attempt = 0; attempt < kReadAttempts; ++attempt) {
    if (__atomic_load_n(&shared_->published, __ATOMIC_ACQUIRE) == 0) return false;
    const uint32_t before = __atomic_load_n(&shared_->sequence, __ATOMIC_ACQUIRE);
    if ((before & 1u) == 0) {
      for (size_t i = 0; i < kWords; ++i)
        words[i] = __atomic_load_n(&shared_->words[i], __ATOMIC_RELAXED);
      // The words must be read before the sequence is read again.
      __atomic_thread_fence(__ATOMIC_ACQUIRE);
      if (__atomic_load_n(&shared_->sequence, __ATOMIC_RELAXED) == before) {
        std::memcpy(data, words, std::min(size, kCapacity));
        return true;
      }
    }
    std::this_thread::yield();
  }
  return false;
}

int64_t StatusRecord::WriterProcessId() const {
  return __atomic_load_n(&shared_->writer_process, __ATOMIC_RELAXED);
}

}  // namespace platform
