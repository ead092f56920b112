#pragma once
// The build and source trees, a private temporary directory, small file helpers.

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace testutil {

// The environment first, then what the build compiled in.
inline std::string BuildDir() {
  const char* dir = std::getenv("BS_BUILD_DIR");
  return dir != nullptr && *dir != '\0' ? dir : BS_TEST_BUILD_DIR;
}
inline std::string SourceDir() { return BS_TEST_SOURCE_DIR; }

inline void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
  if (!out) throw std::runtime_error("cannot write " + path);
}

// The whole file, or empty when it cannot be read.
inline std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class TempDir {
 public:
  TempDir() {
    static std::atomic<int> counter{0};
    const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    path_ = std::filesystem::temp_directory_path() /
            ("bs_test_" + std::to_string(getpid()) + "_" + std::to_string(counter++) + "_" +
             std::to_string(stamp));
    std::filesystem::create_directories(path_);
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string path() const { return path_.string(); }
  std::string File(const std::string& name) const { return (path_ / name).string(); }
  // Writes `text` to File(name) and returns that path.
  std::string Write(const std::string& name, const std::string& text) const {
    WriteBytes(File(name), text);
    return File(name);
  }

 private:
  std::filesystem::path path_;
};

// A name no other test process uses at the same time.
inline std::string UniqueName(const std::string& prefix) {
  static std::atomic<int> counter{0};
  return prefix + std::to_string(getpid()) + "_" + std::to_string(counter++);
}

}  // namespace testutil
