#include "sapsim/server/event_log.h"

#include <atomic>
#include <cstdio>
#include <mutex>

namespace sapsim::server {

namespace {
std::mutex g_mutex;
std::atomic<bool> g_quiet{false};
}  // namespace

void EventLog::Write(const std::string& text) {
  if (g_quiet.load()) return;
  std::lock_guard<std::mutex> lock(g_mutex);
  std::fprintf(stderr, "sapsim: %s\n", text.c_str());
  std::fflush(stderr);
}

void EventLog::SetQuiet(bool quiet) { g_quiet.store(quiet); }

}  // namespace sapsim::server
