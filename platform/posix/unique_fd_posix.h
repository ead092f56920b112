#pragma once
// Sole owner of a file descriptor (and of every lock taken through it).
// Internal to the POSIX implementation.

#include <unistd.h>

#include <utility>

namespace platform {
namespace posix {

class UniqueFd {
 public:
  explicit UniqueFd(int fd = -1) : fd_(fd) {}
  ~UniqueFd() { Reset(); }
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
      Reset();
      fd_ = other.Release();
    }
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  // Hands the descriptor over; the caller closes it.
  int Release() { return std::exchange(fd_, -1); }
  void Reset() {
    // Linux frees the descriptor even when close reports EINTR: never retry.
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_;
};

}  // namespace posix
}  // namespace platform
