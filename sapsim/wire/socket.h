#pragma once
// A TCP socket that closes itself, and the few transfers the wire needs.
// Connection and listening errors come back as texts that name the host and
// port, so users see where it failed. socket.cc implements it over POSIX
// sockets, socket_winsock.cc over Winsock (the stand-in library on Windows).

#include <cstddef>
#include <cstdint>
#include <string>

namespace sapsim::wire {

// The system's socket handle, in an integer wide enough for every system's.
using NativeSocket = intptr_t;
constexpr NativeSocket kNoSocket = -1;

// One piece of a gathered send.
struct SendPiece {
  const void* data;
  size_t size;
};

// Outcome of one transfer call.
struct Transferred {
  int64_t bytes = 0;     // moved; 0 on receive: the partner closed; -1: failed
  bool reset = false;    // failed because the partner is gone
  std::string error;     // what failed, when bytes is -1
};

class Socket {
 public:
  Socket() = default;
  explicit Socket(NativeSocket fd) : fd_(fd) {}
  ~Socket();
  Socket(Socket&& other) noexcept : fd_(other.Release()) {}
  Socket& operator=(Socket&& other) noexcept;
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  // Connects to host:port (names are resolved). Invalid socket and *error on failure.
  static Socket Connect(const std::string& host, uint16_t port, std::string* error);
  // Listens on address:port (port 0: any free port).
  static Socket Listen(const std::string& address, uint16_t port, std::string* error);

  bool valid() const { return fd_ != kNoSocket; }
  NativeSocket fd() const { return fd_; }
  NativeSocket Release();

  // Waits for the next connection; invalid when the listener was shut down.
  Socket Accept() const;
  uint16_t LocalPort() const;
  // Wakes every thread blocked on the socket; the descriptor stays open
  // until the object is destroyed, so no other socket can take its number.
  void Shutdown() const;

  // One send of as much of the pieces as the system takes at once; retried
  // on interruption. Never raises a signal when the partner is gone.
  Transferred SendSome(const SendPiece* pieces, size_t count) const;
  // One receive of whatever has arrived, up to size bytes.
  Transferred ReceiveSome(void* data, size_t size) const;
  // 1 when data (or the end) is waiting, 0 after timeout_ms, -1 on failure.
  int WaitReadable(int timeout_ms) const;

 private:
  NativeSocket fd_ = kNoSocket;
};

// This machine's host name, or "localhost".
std::string LocalHostName();
// The TCP port of a service name in the system's services database.
bool ServicesDatabasePort(const std::string& name, uint16_t* port);

}  // namespace sapsim::wire
