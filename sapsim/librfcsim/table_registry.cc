#include "sapsim/librfcsim/table_registry.h"

#include <new>
#include <vector>

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
    tables_.emplace(id, Entry{std::move(table), owner});
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

void TableRegistry::DeleteOwnedBy(ConnectionHandle owner) {
  if (owner == 0) return;
  std::vector<std::shared_ptr<InternalTable>> doomed;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = tables_.begin(); it != tables_.end();) {
      if (it->second.owner == owner) {
        doomed.push_back(std::move(it->second.table));
        it = tables_.erase(it);
      } else {
        ++it;
      }
    }
  }
}

size_t TableRegistry::size() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return tables_.size();
}

}  // namespace rfcsim
