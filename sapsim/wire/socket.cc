#include "sapsim/wire/socket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <vector>

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

NativeSocket Socket::Release() {
  NativeSocket fd = fd_;
  fd_ = kNoSocket;
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
    NativeSocket fd = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
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

Transferred Socket::SendSome(const SendPiece* pieces, size_t count) const {
  std::vector<iovec> iov(std::min<size_t>(count, IOV_MAX));
  for (size_t i = 0; i < iov.size(); ++i) {
    iov[i].iov_base = const_cast<void*>(pieces[i].data);
    iov[i].iov_len = pieces[i].size;
  }
  msghdr message{};
  message.msg_iov = iov.data();
  message.msg_iovlen = iov.size();
  Transferred result;
  for (;;) {
    const ssize_t sent = ::sendmsg(fd_, &message, MSG_NOSIGNAL);
    if (sent >= 0) {
      result.bytes = sent;
      return result;
    }
    if (errno == EINTR) continue;
    result.bytes = -1;
    result.reset = errno == EPIPE || errno == ECONNRESET;
    result.error = std::string("send failed: ") + std::strerror(errno);
    return result;
  }
}

Transferred Socket::ReceiveSome(void* data, size_t size) const {
  Transferred result;
  for (;;) {
    const ssize_t got = ::recv(fd_, data, size, 0);
    if (got >= 0) {
      result.bytes = got;
      return result;
    }
    if (errno == EINTR) continue;
    result.bytes = -1;
    result.reset = errno == ECONNRESET;
    result.error = std::string("receive failed: ") + std::strerror(errno);
    return result;
  }
}

int Socket::WaitReadable(int timeout_ms) const {
  pollfd fd{};
  fd.fd = static_cast<int>(fd_);
  fd.events = POLLIN;
  for (;;) {
    const int rc = ::poll(&fd, 1, timeout_ms);
    if (rc > 0) return 1;
    if (rc == 0) return 0;
    if (errno != EINTR) return -1;
  }
}

bool ServicesDatabasePort(const std::string& name, uint16_t* port) {
  servent entry{};
  servent* found = nullptr;
  char buffer[1024];
  if (getservbyname_r(name.c_str(), "tcp", &entry, buffer, sizeof buffer, &found) != 0 || found == nullptr) {
    return false;
  }
  *port = ntohs(static_cast<uint16_t>(found->s_port));
  return true;
}

std::string LocalHostName() {
  char name[256] = {};
  if (gethostname(name, sizeof name - 1) != 0 || name[0] == '\0') return "localhost";
  return name;
}

}  // namespace sapsim::wire
