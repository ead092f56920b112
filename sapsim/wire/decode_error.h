#pragma once
// The one failure of everything that reads bytes from the network.

#include <stdexcept>
#include <string>

namespace sapsim::wire {

// A frame or payload that does not follow the protocol. Never a crash: every
// reader checks lengths and counts before use and throws this instead.
class DecodeError : public std::runtime_error {
 public:
  explicit DecodeError(const std::string& what) : std::runtime_error(what) {}
};

}  // namespace sapsim::wire
