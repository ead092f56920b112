#include "sapsim/librfcsim/table_registry.h"

#include <new>

namespace rfcsim {

namespace {

TableHandle ToHandle(uint64_t id) { return reinterpret_cast<TableHandle>(static_cast<uintptr_t>(id)); }
uint64_t ToId(TableHandle handle) { return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(handle)); }

}  // namespace

TableRegistry& TableRegistry::Instance() {
  static TableRegistry registry;
  return registry;
}

TableHandle TableRegistry::Create(const std::string& name, size_t line_length, ConnectionHandle owner) {
  try {
    auto table = std::make_shared<InternalTable>(name, line_length);
    std::lock_guard<std::mutex> lock(mutex_);
    uint64_t id = next_id_++;
    tables_.emplace(id, Entry{std::move(table), owner, false});
    return ToHandle(id);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

std::shared_ptr<InternalTable> TableRegistry::Find(TableHandle handle) const {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = tables_.find(ToId(handle));
  return it == tables_.end() ? nullptr : it->second.table;
}

bool TableRegistry::Delete(TableHandle handle) {
  std::shared_ptr<InternalTable> doomed;  // freed outside the lock
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = tables_.find(ToId(handle));
  if (it == tables_.end()) return false;
  doomed = std::move(it->second.table);
  tables_.erase(it);
  return true;
}

bool TableRegistry::Free(TableHandle handle) {
  std::shared_ptr<InternalTable> table;  // emptied and maybe freed outside the lock
  {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = tables_.find(ToId(handle));
    if (it == tables_.end()) return false;
    table = it->second.table;
    if (it->second.orphaned) tables_.erase(it);
  }
  table->Clear();
  return true;
}

void TableRegistry::ReleaseOwner(ConnectionHandle owner) {
  if (owner == 0) return;
  std::lock_guard<std::mutex> lock(mutex_);
  // Handles are connection numbers that come back, so the tie is cut here.
  for (auto& [id, entry] : tables_) {
    if (entry.owner != owner) continue;
    entry.owner = 0;
    entry.orphaned = true;
  }
}

size_t TableRegistry::size() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return tables_.size();
}

}  // namespace rfcsim
