#pragma once
// Maps connection handles to connections. Handles are the smallest free
// numbers from 1, like file descriptors: callers index tables by them (the
// server framework's thread table holds 2,499), so they must stay small.

#include <map>
#include <memory>
#include <mutex>

#include "rfc/binding/rfc_library_api.h"
#include "sapsim/librfcsim/connection.h"

namespace rfcsim {

class ConnectionRegistry {
 public:
  // Destroyed at exit with every connection still open.
  static ConnectionRegistry& Instance();

  // Takes the smallest free handle for a connection about to be made; 0 when
  // none is left.
  ConnectionHandle Reserve();
  void Install(ConnectionHandle handle, std::shared_ptr<Connection> connection);
  // Gives a reserved handle back when the connection could not be made.
  void Unreserve(ConnectionHandle handle);
  std::shared_ptr<Connection> Find(ConnectionHandle handle) const;
  std::shared_ptr<Connection> Remove(ConnectionHandle handle);

 private:
  mutable std::mutex mutex_;
  std::map<ConnectionHandle, std::shared_ptr<Connection>> connections_;  // null while reserved
};

}  // namespace rfcsim
