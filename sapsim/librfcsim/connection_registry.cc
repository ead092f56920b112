#include "sapsim/librfcsim/connection_registry.h"

#include <limits>

namespace rfcsim {

ConnectionRegistry& ConnectionRegistry::Instance() {
  static ConnectionRegistry registry;
  return registry;
}

ConnectionHandle ConnectionRegistry::Reserve() {
  std::lock_guard<std::mutex> lock(mutex_);
  ConnectionHandle candidate = 1;
  for (const auto& entry : connections_) {
    if (entry.first != candidate) break;
    if (candidate == std::numeric_limits<ConnectionHandle>::max()) return 0;
    ++candidate;
  }
  connections_.emplace(candidate, nullptr);
  return candidate;
}

void ConnectionRegistry::Install(ConnectionHandle handle, std::shared_ptr<Connection> connection) {
  std::lock_guard<std::mutex> lock(mutex_);
  connections_[handle] = std::move(connection);
}

void ConnectionRegistry::Unreserve(ConnectionHandle handle) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = connections_.find(handle);
  if (it != connections_.end() && it->second == nullptr) connections_.erase(it);
}

std::shared_ptr<Connection> ConnectionRegistry::Find(ConnectionHandle handle) const {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = connections_.find(handle);
  return it == connections_.end() ? nullptr : it->second;
}

std::shared_ptr<Connection> ConnectionRegistry::Remove(ConnectionHandle handle) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = connections_.find(handle);
  if (it == connections_.end() || it->second == nullptr) return nullptr;
  std::shared_ptr<Connection> connection = std::move(it->second);
  connections_.erase(it);
  return connection;
}

}  // namespace rfcsim
