#include "sapsim/wire/socket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace sapsim::wire {

Socket::~Socket() {
  if (fd_ >= 0) ::close(fd_);
}

Socket& Socket::operator=(Socket&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = other.Release();
  }
  return *this;
}

int Socket::Release() {
  int fd = fd_;
  fd_ = -1;
  return fd;
}

namespace {

struct AddrInfoDeleter {
  void operator()(addrinfo* info) const { freeaddrinfo(info); }
};

void SetNoDelay(int fd) {
  int one = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

}  // namespace

Socket Socket::Connect(const std::string& host, uint16_t port, std::string* error) {
  std::string where = host + ":" + std::to_string(port);
  if (host.empty()) {
    *error = "no host given";
    return Socket();
  }
  addrinfo hints{};  // zero: any address family
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  int rc = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
  if (rc != 0) {
    *error = "host " + host + " not found: " + gai_strerror(rc);
    return Socket();
  }
  std::unique_ptr<addrinfo, AddrInfoDeleter> list(found);
  int last_errno = 0;
  for (addrinfo* ai = found; ai != nullptr; ai = ai->ai_next) {
    Socket socket(::socket(ai->ai_family, ai->ai_socktype | SOCK_CLOEXEC, ai->ai_protocol));
    if (!socket.valid()) {
      last_errno = errno;
      continue;
    }
    int result;
    do {
      result = ::connect(socket.fd(), ai->ai_addr, ai->ai_addrlen);
    } while (result != 0 && errno == EINTR);
    if (result == 0) {
      SetNoDelay(socket.fd());
      return socket;
    }
    last_errno = errno;
  }
  *error = "connection to " + where + " failed: " + std::strerror(last_errno);
  return Socket();
}

Socket Socket::Listen(const std::string& address, uint16_t port, std::string* error) {
  std::string where = address + ":" + std::to_string(port);
  addrinfo hints{};  // zero: any address family
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  int rc = getaddrinfo(address.empty() ? nullptr : address.c_str(), std::to_string(port).c_str(), &hints, &found);
  if (rc != 0) {
    *error = "address " + address + " not usable: " + gai_strerror(rc);
    return Socket();
  }
  std::unique_ptr<addrinfo, AddrInfoDeleter> list(found);
  int last_errno = 0;
  for (addrinfo* ai = found; ai != nullptr; ai = ai->ai_next) {
    Socket socket(::socket(ai->ai_family, ai->ai_socktype | SOCK_CLOEXEC, ai->ai_protocol));
    if (!socket.valid()) {
      last_errno = errno;
      continue;
    }
    int one = 1;
    setsockopt(socket.fd(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    if (::bind(socket.fd(), ai->ai_addr, ai->ai_addrlen) == 0 && ::listen(socket.fd(), 128) == 0) {
      return socket;
    }
    last_errno = errno;
  }
  *error = "cannot listen on " + where + ": " + std::strerror(last_errno);
  return Socket();
}

Socket Socket::Accept() const {
  for (;;) {
    int fd = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0) {
      SetNoDelay(fd);
      return Socket(fd);
    }
    if (errno == EINTR || errno == ECONNABORTED) continue;
    return Socket();
  }
}

uint16_t Socket::LocalPort() const {
  sockaddr_storage addr{};
  socklen_t length = sizeof addr;
  if (getsockname(fd_, reinterpret_cast<sockaddr*>(&addr), &length) != 0) return 0;
  if (addr.ss_family == AF_INET) return ntohs(reinterpret_cast<sockaddr_in*>(&addr)->sin_port);
  if (addr.ss_family == AF_INET6) return ntohs(reinterpret_cast<sockaddr_in6*>(&addr)->sin6_port);
  return 0;
}

void Socket::Shutdown() const {
  if (fd_ >= 0) ::shutdown(fd_, SHUT_RDWR);
}

std::string LocalHostName() {
  char name[256] = {};
  if (gethostname(name, sizeof name - 1) != 0 || name[0] == '\0') return "localhost";
  return name;
}

}  // namespace sapsim::wire
