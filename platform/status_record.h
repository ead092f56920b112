#pragma once
// A small named record that one process publishes and others read: the
// server's status, next to its stop event.
//
// One writer, any number of readers, no lock: the writer bumps a sequence
// number around every update and a reader retries until it copied the record
// between two equal, even numbers. Publishing costs a copy of the record.
// The record exists while its writer holds it; a reader never sees the
// record of a process that is gone. Owner-only permissions, like the event.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace platform {

class StatusRecord {
 public:
  // Bytes a record carries; the layout of those bytes is the caller's.
  static constexpr size_t kCapacity = 2048;

  // Makes the record of `name` for publishing; one left by a process that
  // died is taken over. The record goes when the returned object is
  // destroyed. Null while another live process publishes under that name (it
  // keeps its record), for an empty name, or when the system refuses.
  static std::unique_ptr<StatusRecord> Create(const std::string& name);
  // Opens the record of a live writer for reading. Null when there is none.
  static std::unique_ptr<StatusRecord> Open(const std::string& name);

  StatusRecord(const StatusRecord&) = delete;
  StatusRecord& operator=(const StatusRecord&) = delete;
  virtual ~StatusRecord() = default;

  // Writer only. Copies `size` bytes (at most kCapacity) in; the rest of the
  // record reads as zero bytes.
  void Publish(const void* data, size_t size);
  // Copies a consistent snapshot of `size` bytes out (at most kCapacity).
  // False when nothing was published yet or no consistent copy could be had
  // (a writer that died in the middle of an update).
  bool Read(void* data, size_t size) const;
  // The process that made the record.
  int64_t WriterProcessId() const;

  // The shared layout; public only so that implementations can size it.
  struct Shared;

 protected:
  // `shared` is the mapped record, at least sizeof(Shared) bytes, 8-aligned.
  explicit StatusRecord(void* shared);

 private:
  Shared* shared_;
};

struct StatusRecord::Shared {
  uint32_t sequence;       // odd while an update is under way
  uint32_t published;      // 1 once the first update is complete
  int64_t writer_process;  // set before the record can be found
  uint64_t words[kCapacity / 8];
};

}  // namespace platform
