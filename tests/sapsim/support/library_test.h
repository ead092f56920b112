#pragma once
// The tests that drive librfcsim.so against a running sapsim: builders for
// the library's parameter arrays, a registered server written against the C
// interface, and the fixture (the system, client logons and registrations
// closed again at the end, calls from the SAP side in the background).

#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/sapsim/support/rfc_library.h"
#include "tests/sapsim/support/sapsim_process.h"
#include "tests/sapsim/support/system_files.h"

namespace sapsim::testing {

inline RfcParameterEntry Param(const char* name, int32_t type, void* address, uint32_t length) {
  return RfcParameterEntry{name, static_cast<uint32_t>(std::strlen(name)), type, length, address};
}
inline RfcParameterEntry EndParam() { return RfcParameterEntry{nullptr, 0, 0, 0, nullptr}; }
inline RfcTableEntry Table(const char* name, int32_t type, uint32_t line_length, TableHandle handle = nullptr) {
  return RfcTableEntry{name, static_cast<uint32_t>(std::strlen(name)), type, line_length, handle, 0, 0};
}
inline RfcTableEntry EndTable() { return RfcTableEntry{nullptr, 0, 0, 0, nullptr, 0, 0}; }

// Empty parameter and table arrays, for calls that pass nothing.
struct NoArgs {
  RfcParameterEntry params[1] = {EndParam()};
  RfcTableEntry tables[1] = {EndTable()};
};

// A CHAR value of fixed length, blank-padded, usable as an import.
template <size_t N>
struct Chars {
  char text[N];
  explicit Chars(const std::string& value = "") {
    std::memset(text, ' ', N);
    std::memcpy(text, value.data(), value.size() < N ? value.size() : N);
  }
};

// A line of an internal table as text, trailing blanks removed.
inline std::string LineText(const void* line, size_t offset, size_t length) {
  std::string s(static_cast<const char*>(line) + offset, length);
  size_t end = s.find_last_not_of(' ');
  return end == std::string::npos ? std::string() : s.substr(0, end + 1);
}

using Handler = std::function<int(ConnectionHandle)>;
inline std::mutex g_handler_mutex;
inline std::map<std::string, Handler> g_handlers;

// One catch-all server function hands each call to the handler the test set
// for that function name.
inline int CatchAll(ConnectionHandle handle) {
  const RfcLibrary& lib = RfcLibrary::Get();
  char name[RFC_FUNCTION_NAME_SIZE];
  if (lib.RfcGetName(handle, name) != RFC_OK) return RFC_FAILURE;
  Handler handler;
  {
    std::lock_guard<std::mutex> lock(g_handler_mutex);
    auto it = g_handlers.find(name);
    if (it != g_handlers.end()) handler = it->second;
  }
  if (!handler) return lib.RfcRaise(handle, "NO_HANDLER_IN_TEST");
  return handler(handle);
}

// Calls of `function` go to `handler` (installs the catch-all on first use).
inline void SetHandler(const std::string& function, Handler handler) {
  static std::once_flag installed;
  std::call_once(installed, [] { RfcLibrary::Get().RfcInstallFunction(RFC_GLOBAL_SERVER_NAME, &CatchAll, "tests"); });
  std::lock_guard<std::mutex> lock(g_handler_mutex);
  g_handlers[function] = std::move(handler);
}

// RfcAccept with "-a<program id> -g127.0.0.1 -x<port>".
inline ConnectionHandle Register(const std::string& program_id, uint16_t port) {
  std::string a = "-a" + program_id, g = "-g127.0.0.1", x = "-x" + std::to_string(port);
  char* argv[] = {a.data(), g.data(), x.data(), nullptr};
  return RfcLibrary::Get().RfcAccept(argv);
}

struct ServeResult {
  int dispatched = 0;
  int last_rc = RFC_OK;  // RFC_CLOSED when the connection ended, RFC_NOTHING_WAITING at the time limit
};
// Listens and dispatches until `calls` calls were served, the connection
// closed, or `timeout_ms` passed without a call.
inline ServeResult Serve(ConnectionHandle handle, int calls, int timeout_ms = 20000) {
  const RfcLibrary& lib = RfcLibrary::Get();
  ServeResult result;
  auto idle_since = std::chrono::steady_clock::now();
  while (result.dispatched < calls) {
    result.last_rc = lib.RfcListen(handle);
    if (result.last_rc == RFC_NOTHING_WAITING &&
        std::chrono::steady_clock::now() - idle_since <= std::chrono::milliseconds(timeout_ms)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      continue;
    }
    if (result.last_rc != RFC_OK || (result.last_rc = lib.RfcDispatch(handle)) != RFC_OK) return result;
    ++result.dispatched;
    idle_since = std::chrono::steady_clock::now();
  }
  return result;
}

class LibraryTest : public ::testing::Test {
 protected:
  void TearDown() override {
    for (ConnectionHandle handle : handles_) lib.RfcClose(handle);
    if (sapsim_) {
      EXPECT_EQ(0, sapsim_->Stop()) << sapsim_->Log();
    }
  }

  // Starts the system from a system file's text.
  void Start(const std::string& system = SmallSystem()) {
    SapsimProcess::Options options;
    options.system_file = dir_.Write("system.json", system);
    sapsim_ = std::make_unique<SapsimProcess>(options);
  }

  // A client logon through the gateway; 0 when refused. Open's handles are
  // closed at the end.
  ConnectionHandle Logon(const char* password = "secret", const char* client = "100") {
    const std::string port = sapsim_->port_text();
    GatewayLogonOptions gateway{"127.0.0.1", port.c_str()};
    OpenOptions options{"", RFC_MODE_GATEWAY, &gateway, client, "BATCH", password, "E", 0};
    return lib.RfcOpen(&options);
  }
  ConnectionHandle Open(const char* password = "secret", const char* client = "100") {
    return Keep(Logon(password, client));
  }
  // A registration of `program_id` at the system's gateway; 0 when refused.
  ConnectionHandle Accept(const std::string& program_id = "TESTPROG") {
    return Keep(Register(program_id, sapsim_->port()));
  }
  ConnectionHandle Keep(ConnectionHandle handle) {
    if (handle != 0) handles_.push_back(handle);
    return handle;
  }

  // RfcCall and RfcReceive; the exception the partner raised goes to *exception.
  int CallReceive(ConnectionHandle handle, const char* function, RfcParameterEntry* imports,
                  RfcParameterEntry* exports, RfcTableEntry* tables, std::string* exception = nullptr) {
    int rc = lib.RfcCall(handle, function, imports, tables);
    if (rc != RFC_OK) return rc;
    char* raised = nullptr;
    rc = lib.RfcReceive(handle, exports, tables, &raised);
    if (exception != nullptr) *exception = raised != nullptr ? raised : "";
    return rc;
  }
  int Ping(ConnectionHandle handle) {
    NoArgs none;
    return CallReceive(handle, "RFCPING", none.params, none.params, none.tables);
  }

  // The SAP side (`sapsim call`) calls `function` of `program_id` in the
  // background with the CSV's rows as lines of dictionary structure `structure`.
  std::future<testutil::RunResult> CallLater(const std::string& function, const std::string& structure = "ZBATCH_LINE",
                                   const std::string& csv = "NAME\n", const std::string& program_id = "TESTPROG") {
    const std::string file = dir_.Write(function + ".csv", csv);
    const std::vector<std::string> command = {SapsimPath(), "call", "--port", sapsim_->port_text(), "--program-id",
                                              program_id, "--function", function, "--structure", structure,
                                              "--csv", file};
    return std::async(std::launch::async, [command] { return testutil::RunCommand(command); });
  }

  const RfcLibrary& lib = RfcLibrary::Get();
  testutil::TempDir dir_;
  std::unique_ptr<SapsimProcess> sapsim_;
  std::vector<ConnectionHandle> handles_;
};

}  // namespace sapsim::testing
