#pragma once
// A datagram socket bound to a notify address ("/path" or "@abstract"),
// playing the service manager that a server reports to.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

namespace testutil {

class NotifySocket {
 public:
  explicit NotifySocket(const std::string& address) : fd_(socket(AF_UNIX, SOCK_DGRAM, 0)) {
    sockaddr_un where{};
    where.sun_family = AF_UNIX;
    if (address.empty() || address.size() >= sizeof where.sun_path) return;
    std::memcpy(where.sun_path, address.data(), address.size());
    if (address[0] == '@') where.sun_path[0] = '\0';
    bound_ = bind(fd_, reinterpret_cast<sockaddr*>(&where),
                  static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size())) == 0;
  }
  ~NotifySocket() { close(fd_); }
  NotifySocket(const NotifySocket&) = delete;
  NotifySocket& operator=(const NotifySocket&) = delete;

  bool bound() const { return bound_; }
  // Every datagram that has arrived since the last call, one string each.
  std::vector<std::string> Received() {
    std::vector<std::string> messages;
    char buffer[4096];
    for (ssize_t n; (n = recv(fd_, buffer, sizeof buffer, MSG_DONTWAIT)) >= 0;) {
      messages.emplace_back(buffer, static_cast<size_t>(n));
    }
    return messages;
  }

 private:
  int fd_;
  bool bound_ = false;
};

}  // namespace testutil
