#pragma once
// Maps table handles to tables. A handle is an id that is never reused,
// disguised as the pointer type of the interface and never dereferenced, so a
// stale or foreign handle is simply not found.

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "rfc/binding/rfc_library_api.h"
#include "sapsim/librfcsim/internal_table.h"

namespace rfcsim {

class TableRegistry {
 public:
  // The process-wide registry. It is destroyed at exit and frees every
  // table still allocated.
  static TableRegistry& Instance();

  // A new empty table. `owner` is the connection whose receive created it
  // or 0 for a table of the caller's. Null when memory fails.
  TableHandle Create(const std::string& name, size_t line_length, ConnectionHandle owner);
  std::shared_ptr<InternalTable> Find(TableHandle handle) const;
  // Empties a table (ItFree). A table whose connection has closed is released
  // as well: its caller empties it only to let go of it. False when unknown.
  bool Free(TableHandle handle);
  // False when the handle is unknown.
  bool Delete(TableHandle handle);
  // A closed connection's tables stay valid for the caller that received
  // them, who may still read them; they go at Free, Delete or process exit.
  void ReleaseOwner(ConnectionHandle owner);
  size_t size() const;

 private:
  struct Entry {
    std::shared_ptr<InternalTable> table;
    ConnectionHandle owner;
    bool orphaned;  // its connection has closed
  };

  mutable std::mutex mutex_;
  uint64_t next_id_ = 1;
  std::unordered_map<uint64_t, Entry> tables_;
};

}  // namespace rfcsim
