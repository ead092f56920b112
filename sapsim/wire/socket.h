#pragma once
// A TCP socket that closes itself. Connection and listening errors come back
// as texts that name the host and port, so users see where it failed.

#include <cstdint>
#include <string>

namespace sapsim::wire {

class Socket {
 public:
  Socket() = default;
  explicit Socket(int fd) : fd_(fd) {}
  ~Socket();
  Socket(Socket&& other) noexcept : fd_(other.Release()) {}
  Socket& operator=(Socket&& other) noexcept;
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  // Connects to host:port (names are resolved). Invalid socket and *error on failure.
  static Socket Connect(const std::string& host, uint16_t port, std::string* error);
  // Listens on address:port (port 0: any free port).
  static Socket Listen(const std::string& address, uint16_t port, std::string* error);

  bool valid() const { return fd_ >= 0; }
  int fd() const { return fd_; }
  int Release();

  // Waits for the next connection; invalid when the listener was shut down.
  Socket Accept() const;
  uint16_t LocalPort() const;
  // Wakes every thread blocked on the socket; the descriptor stays open
  // until the object is destroyed, so no other socket can take its number.
  void Shutdown() const;

 private:
  int fd_ = -1;
};

// This machine's host name, or "localhost".
std::string LocalHostName();

}  // namespace sapsim::wire
