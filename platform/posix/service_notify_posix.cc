// The notify protocol on POSIX: one datagram on a Unix socket. The sender's
// process id travels with it, so a worker thread may send for the process.

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "platform/posix/unique_fd_posix.h"
#include "platform/service_notify.h"

namespace platform {

std::string ServiceManagerAddress() {
  const char* address = std::getenv("NOTIFY_SOCKET");
  return address != nullptr ? std::string(address) : std::string();
}

bool NotifyServiceManager(const std::string& address, const std::string& message) {
  sockaddr_un target{};
  target.sun_family = AF_UNIX;
  // Room for the path; an abstract name needs no terminator.
  if (address.size() < 2 || address.size() >= sizeof(target.sun_path)) return false;
  if (address[0] != '/' && address[0] != '@') return false;
  std::memcpy(target.sun_path, address.data(), address.size());
  if (address[0] == '@') target.sun_path[0] = '\0';
  const socklen_t length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size() +
                                                  (address[0] == '/' ? 1 : 0));

  posix::UniqueFd socket_fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket_fd.valid()) return false;
  const ssize_t sent = sendto(socket_fd.get(), message.data(), message.size(), MSG_NOSIGNAL,
                              reinterpret_cast<const sockaddr*>(&target), length);
  return sent == static_cast<ssize_t>(message.size());
}

}  // namespace platform
