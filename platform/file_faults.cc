#include "platform/file_faults.h"

#include <atomic>
#include <mutex>
#include <vector>

namespace platform {
namespace testing {
namespace {

struct ArmedFault {
  std::string path_part;
  FileOp op;
  FileFault fault;
  int remaining;  // below 0: until cleared
};

// Counts the armed faults so that the normal path costs one relaxed load.
std::atomic<int> g_armed{0};
std::mutex g_mutex;
std::vector<ArmedFault>& Armed() {
  static std::vector<ArmedFault> faults;
  return faults;
}

}  // namespace

bool TakeFileFault(const std::string& path, FileOp op, FileFault* fault) {
  if (g_armed.load(std::memory_order_relaxed) == 0) return false;
  std::lock_guard<std::mutex> lock(g_mutex);
  auto& faults = Armed();
  for (auto it = faults.begin(); it != faults.end(); ++it) {
    if (it->op != op || path.find(it->path_part) == std::string::npos) continue;
    *fault = it->fault;
    if (it->remaining > 0 && --it->remaining == 0) {
      faults.erase(it);
      g_armed.fetch_sub(1, std::memory_order_relaxed);
    }
    return true;
  }
  return false;
}

void InjectFileFault(const std::string& path_part, FileOp op, FileFault fault, int count) {
  if (count == 0) return;
  std::lock_guard<std::mutex> lock(g_mutex);
  Armed().push_back(ArmedFault{path_part, op, fault, count});
  g_armed.fetch_add(1, std::memory_order_relaxed);
}

void ClearFileFaults() {
  std::lock_guard<std::mutex> lock(g_mutex);
  Armed().clear();
  g_armed.store(0, std::memory_order_relaxed);
}

}  // namespace testing
}  // namespace platform
