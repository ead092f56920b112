#pragma once
// Runs a piece of class-library code with the trace switched on and hands back
// what it wrote. The code runs on a thread of its own, so it gets a trace file
// of its own (named after that thread) in a fresh temporary directory; the
// file says exactly what this piece of code traced.

#include <functional>
#include <string>
#include <vector>

namespace rfc_test {

// A directory under the system's temp directory, removed with its contents
// when the object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

struct TracedRun {
  bool file_exists = false;
  std::string content;              // the file as written
  std::vector<std::string> lines;   // split at CR LF
  bool threw_text = false;          // a const char* left the code
  std::string thrown;               // ... with this text
};

// Runs `code` on a new thread with the trace on (or off when `trace_on` is
// false) and its directory set to a fresh temp dir. Exceptions other than
// const char* are rethrown in the caller.
TracedRun RunTraced(const std::function<void()>& code, bool trace_on = true);

// The whole content of a file, or empty.
std::string ReadFile(const std::string& path);
// Splits at CR LF; a final line without CR LF is kept as it is.
std::vector<std::string> SplitCrLf(const std::string& content);

}  // namespace rfc_test
