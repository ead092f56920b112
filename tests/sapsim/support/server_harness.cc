#include "tests/sapsim/support/server_harness.h"

#include <chrono>
#include <map>
#include <mutex>
#include <thread>

#include "tests/sapsim/support/rfc_library.h"

namespace sapsim::testing {

namespace {

std::mutex g_mutex;
std::map<std::string, Handler> g_handlers;

int CatchAll(ConnectionHandle handle) {
  const RfcLibrary& lib = RfcLibrary::Get();
  char name[RFC_FUNCTION_NAME_SIZE];
  if (lib.RfcGetName(handle, name) != RFC_OK) return RFC_FAILURE;
  Handler handler;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    auto it = g_handlers.find(name);
    if (it != g_handlers.end()) handler = it->second;
  }
  if (!handler) return lib.RfcRaise(handle, "NO_HANDLER_IN_TEST");
  return handler(handle);
}

}  // namespace

void SetHandler(const std::string& function, Handler handler) {
  static std::once_flag installed;
  std::call_once(installed, [] { RfcLibrary::Get().RfcInstallFunction(RFC_GLOBAL_SERVER_NAME, &CatchAll, "tests"); });
  std::lock_guard<std::mutex> lock(g_mutex);
  g_handlers[function] = std::move(handler);
}

ConnectionHandle Register(const std::string& program_id, uint16_t port) {
  std::string a = "-a" + program_id;
  std::string g = "-g127.0.0.1";
  std::string x = "-x" + std::to_string(port);
  char* argv[] = {a.data(), g.data(), x.data(), nullptr};
  return RfcLibrary::Get().RfcAccept(argv);
}

ServeResult Serve(ConnectionHandle handle, int calls, int timeout_ms) {
  const RfcLibrary& lib = RfcLibrary::Get();
  ServeResult result;
  auto idle_since = std::chrono::steady_clock::now();
  while (result.dispatched < calls) {
    int rc = lib.RfcListen(handle);
    if (rc == RFC_NOTHING_WAITING) {
      if (std::chrono::steady_clock::now() - idle_since > std::chrono::milliseconds(timeout_ms)) {
        result.last_rc = rc;
        return result;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      continue;
    }
    if (rc != RFC_OK) {
      result.last_rc = rc;
      return result;
    }
    rc = lib.RfcDispatch(handle);
    result.last_rc = rc;
    if (rc != RFC_OK) return result;
    ++result.dispatched;
    idle_since = std::chrono::steady_clock::now();
  }
  return result;
}

}  // namespace sapsim::testing
