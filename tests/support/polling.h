#pragma once
// Waiting for another process or thread, and counting what it wrote.

#include <chrono>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace testutil {

// Polls `done` until it holds (true) or the patience runs out (false); the
// default is generous for a loaded machine, a passing test never waits this long.
template <typename Predicate>
bool Eventually(Predicate done, std::chrono::milliseconds patience = std::chrono::seconds(30)) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

// Values each followed by '|': many results compared in one assertion.
template <typename... Values>
std::string Join(const Values&... values) {
  std::ostringstream out;
  ((out << values << '|'), ...);
  return out.str();
}

// Occurrences of `part` in `text`, overlapping ones included.
inline int CountOf(const std::string& text, const std::string& part) {
  int count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

// The lines of a text that ends its lines in CR LF; a last line without one is dropped.
inline std::vector<std::string> CrLfLines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t end; (end = text.find("\r\n", start)) != std::string::npos; start = end + 2) {
    lines.push_back(text.substr(start, end - start));
  }
  return lines;
}

}  // namespace testutil
