// The socket over Winsock, for the stand-in RFC library on Windows.

#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <vector>

#include "sapsim/wire/socket.h"

namespace sapsim::wire {
namespace {

static_assert(sizeof(NativeSocket) >= sizeof(SOCKET), "a SOCKET fits the handle");

// Winsock is started once, on first use, and left running: stopping it at
// unload time is not allowed from a DLL's unload path anyway.
bool WinsockStarted() {
  static const bool started = [] {
    WSADATA data{};
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
  }();
  return started;
}

SOCKET Native(NativeSocket fd) { return static_cast<SOCKET>(fd); }

std::string ErrorText(int code) {
  char* text = nullptr;
  const DWORD length = FormatMessageA(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
      nullptr, static_cast<DWORD>(code), 0, reinterpret_cast<char*>(&text), 0, nullptr);
  std::string message = length > 0 && text != nullptr ? std::string(text, length) : std::string();
  LocalFree(text);
  while (!message.empty() && (message.back() == '\n' || message.back() == '\r' || message.back() == ' ')) {
    message.pop_back();
  }
  return message.empty() ? "Winsock error " + std::to_string(code) : message;
}

struct AddrInfoDeleter {
  void operator()(addrinfo* info) const { freeaddrinfo(info); }
};

void SetNoDelay(SOCKET s) {
  BOOL one = TRUE;
  setsockopt(s, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&one), sizeof one);
}

Socket NewSocket(const addrinfo* ai) {
  // Not inherited by child processes, like SOCK_CLOEXEC.
  const SOCKET s = WSASocketW(ai->ai_family, ai->ai_socktype, ai->ai_protocol, nullptr, 0,
                              WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
  return s == INVALID_SOCKET ? Socket() : Socket(static_cast<NativeSocket>(s));
}

}  // namespace

Socket::~Socket() {
  if (valid()) closesocket(Native(fd_));
}

Socket& Socket::operator=(Socket&& other) noexcept {
  if (this != &other) {
    if (valid()) closesocket(Native(fd_));
    fd_ = other.Release();
  }
  return *this;
}

NativeSocket Socket::Release() {
  NativeSocket fd = fd_;
  fd_ = kNoSocket;
  return fd;
}

Socket Socket::Connect(const std::string& host, uint16_t port, std::string* error) {
  const std::string where = host + ":" + std::to_string(port);
  if (host.empty()) {
    *error = "no host given";
    return Socket();
  }
  if (!WinsockStarted()) {
    *error = "connection to " + where + " failed: Winsock cannot start";
    return Socket();
  }
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  addrinfo* found = nullptr;
  const int rc = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
  if (rc != 0) {
    *error = "host " + host + " not found: " + ErrorText(rc);
    return Socket();
  }
  std::unique_ptr<addrinfo, AddrInfoDeleter> list(found);
  int last_error = 0;
  for (addrinfo* ai = found; ai != nullptr; ai = ai->ai_next) {
    Socket socket = NewSocket(ai);
    if (!socket.valid()) {
      last_error = WSAGetLastError();
      continue;
    }
    if (connect(Native(socket.fd()), ai->ai_addr, static_cast<int>(ai->ai_addrlen)) == 0) {
      SetNoDelay(Native(socket.fd()));
      return socket;
    }
    last_error = WSAGetLastError();
  }
  *error = "connection to " + where + " failed: " + ErrorText(last_error);
  return Socket();
}

Socket Socket::Listen(const std::string& address, uint16_t port, std::string* error) {
  const std::string where = address + ":" + std::to_string(port);
  if (!WinsockStarted()) {
    *error = "cannot listen on " + where + ": Winsock cannot start";
    return Socket();
  }
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  const int rc = getaddrinfo(address.empty() ? nullptr : address.c_str(), std::to_string(port).c_str(),
                             &hints, &found);
  if (rc != 0) {
    *error = "address " + address + " not usable: " + ErrorText(rc);
    return Socket();
  }
  std::unique_ptr<addrinfo, AddrInfoDeleter> list(found);
  int last_error = 0;
  for (addrinfo* ai = found; ai != nullptr; ai = ai->ai_next) {
    Socket socket = NewSocket(ai);
    if (!socket.valid()) {
      last_error = WSAGetLastError();
      continue;
    }
    // Windows' SO_REUSEADDR would let another program take the port; the
    // exclusive flag is the safe equivalent of the POSIX option.
    BOOL one = TRUE;
    setsockopt(Native(socket.fd()), SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&one),
               sizeof one);
    if (bind(Native(socket.fd()), ai->ai_addr, static_cast<int>(ai->ai_addrlen)) == 0 &&
        listen(Native(socket.fd()), 128) == 0) {
      return socket;
    }
    last_error = WSAGetLastError();
  }
  *error = "cannot listen on " + where + ": " + ErrorText(last_error);
  return Socket();
}

Socket Socket::Accept() const {
  for (;;) {
    const SOCKET s = accept(Native(fd_), nullptr, nullptr);
    if (s != INVALID_SOCKET) {
      SetNoDelay(s);
      return Socket(static_cast<NativeSocket>(s));
    }
    const int code = WSAGetLastError();
    if (code == WSAEINTR || code == WSAECONNRESET) continue;
    return Socket();
  }
}

uint16_t Socket::LocalPort() const {
  sockaddr_storage addr{};
  int length = sizeof addr;
  if (getsockname(Native(fd_), reinterpret_cast<sockaddr*>(&addr), &length) != 0) return 0;
  if (addr.ss_family == AF_INET) return ntohs(reinterpret_cast<sockaddr_in*>(&addr)->sin_port);
  if (addr.ss_family == AF_INET6) return ntohs(reinterpret_cast<sockaddr_in6*>(&addr)->sin6_port);
  return 0;
}

void Socket::Shutdown() const {
  if (valid()) shutdown(Native(fd_), SD_BOTH);
}

Transferred Socket::SendSome(const SendPiece* pieces, size_t count) const {
  std::vector<WSABUF> buffers(std::min<size_t>(count, 1024));
  for (size_t i = 0; i < buffers.size(); ++i) {
    buffers[i].buf = static_cast<CHAR*>(const_cast<void*>(pieces[i].data));
    buffers[i].len = static_cast<ULONG>(std::min<size_t>(pieces[i].size, std::numeric_limits<ULONG>::max()));
  }
  Transferred result;
  for (;;) {
    DWORD sent = 0;
    if (WSASend(Native(fd_), buffers.data(), static_cast<DWORD>(buffers.size()), &sent, 0, nullptr, nullptr) ==
        0) {
      result.bytes = sent;
      return result;
    }
    const int code = WSAGetLastError();
    if (code == WSAEINTR) continue;
    result.bytes = -1;
    result.reset = code == WSAECONNRESET || code == WSAECONNABORTED || code == WSAESHUTDOWN;
    result.error = "send failed: " + ErrorText(code);
    return result;
  }
}

Transferred Socket::ReceiveSome(void* data, size_t size) const {
  const int piece = static_cast<int>(std::min<size_t>(size, std::numeric_limits<int>::max()));
  Transferred result;
  for (;;) {
    const int got = recv(Native(fd_), static_cast<char*>(data), piece, 0);
    if (got >= 0) {
      result.bytes = got;
      return result;
    }
    const int code = WSAGetLastError();
    if (code == WSAEINTR) continue;
    result.bytes = -1;
    result.reset = code == WSAECONNRESET || code == WSAECONNABORTED;
    result.error = "receive failed: " + ErrorText(code);
    return result;
  }
}

int Socket::WaitReadable(int timeout_ms) const {
  WSAPOLLFD fd{};
  fd.fd = Native(fd_);
  fd.events = POLLRDNORM;
  const int rc = WSAPoll(&fd, 1, timeout_ms);
  return rc > 0 ? 1 : rc == 0 ? 0 : -1;
}

std::string LocalHostName() {
  char name[256] = {};
  if (!WinsockStarted() || gethostname(name, sizeof name - 1) != 0 || name[0] == '\0') return "localhost";
  return name;
}

bool ServicesDatabasePort(const std::string& name, uint16_t* port) {
  if (!WinsockStarted()) return false;
  // Winsock keeps the entry per thread, so the plain lookup is safe here.
  const servent* found = getservbyname(name.c_str(), "tcp");
  if (found == nullptr) return false;
  *port = ntohs(static_cast<u_short>(found->s_port));
  return true;
}

}  // namespace sapsim::wire
