#include "tests/rfc/trace_capture.h"

#include <exception>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/path.h"
#include "platform/thread.h"
#include "rfc/core/rfc_trace.h"

namespace rfc_test {

TempDir::TempDir() {
  std::random_device random;
  const std::filesystem::path base = std::filesystem::temp_directory_path();
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::filesystem::path candidate =
        base / ("rfc_test_" + std::to_string(random()) + "_" + std::to_string(random()));
    if (std::filesystem::create_directory(candidate)) {
      path_ = candidate.string();
      return;
    }
  }
  throw std::runtime_error("cannot make a temporary directory");
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

std::vector<std::string> SplitCrLf(const std::string& content) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (;;) {
    const size_t end = content.find("\r\n", start);
    if (end == std::string::npos) break;
    lines.push_back(content.substr(start, end - start));
    start = end + 2;
  }
  if (start < content.size()) lines.push_back(content.substr(start));
  return lines;
}

TracedRun RunTraced(const std::function<void()>& code, bool trace_on) {
  TempDir dir;
  CRfcTrace& trace = GetRfcTrace();
  trace.SetDirectory(dir.path());
  trace.SetTraceOn(trace_on ? 1 : 0);
  TracedRun run;
  uint32_t thread_id = 0;
  std::exception_ptr other;
  auto body = [&] {
    try {
      code();
    } catch (const char* text) {
      run.threw_text = true;
      run.thrown = text;
    } catch (...) {
      other = std::current_exception();
    }
  };
  // The trace keeps a thread's file by thread id for good, and Windows gives
  // the id of an ended thread to the next one at once: the code runs only on
  // a thread whose id is new to this process. Threads with a used id wait,
  // so the next one gets another id, and end without running the code.
  static std::set<uint32_t> used_ids;
  struct Candidate {
    std::promise<uint32_t> id;
    std::promise<bool> run;
    std::thread thread;
  };
  std::vector<std::unique_ptr<Candidate>> parked;
  for (;;) {
    auto candidate = std::make_unique<Candidate>();
    std::future<uint32_t> id = candidate->id.get_future();
    candidate->thread = std::thread([&body, c = candidate.get(), go = candidate->run.get_future()]() mutable {
      c->id.set_value(platform::CurrentThreadId());
      if (go.get()) body();
    });
    thread_id = id.get();
    if (used_ids.insert(thread_id).second) {
      candidate->run.set_value(true);
      candidate->thread.join();
      break;
    }
    parked.push_back(std::move(candidate));
  }
  for (auto& c : parked) {
    c->run.set_value(false);
    c->thread.join();
  }
  trace.SetTraceOn(0);
  const std::string file =
      dir.path() + platform::kPathSeparator + "crfc" + std::to_string(static_cast<int>(thread_id)) + ".trc";
  run.file_exists = std::filesystem::exists(file);
  run.content = ReadFile(file);
  run.lines = SplitCrLf(run.content);
  if (other) std::rethrow_exception(other);
  return run;
}

}  // namespace rfc_test
