// librfcsim.so and sapsim against raw loopback TCP, measured in the same run:
//   - an RFCPING round trip against a 16-byte echo over a loopback socket;
//   - a 10,000-line table of 200-byte lines sent the way `sapsim call` sends
//     it (through the gateway to a registered server that takes it with
//     RfcGetData and answers with RfcSendData) against the same bytes sent
//     once over a loopback socket and answered with 4 bytes, and against
//     the same bytes passed on by a plain relay thread (two hops, like the
//     gateway's).
// The table benchmark also reports how much heap the library holds for the
// received table, per byte of table (lib_bytes_per_table_byte).

#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "rfc/binding/rfc_library_api.h"
#include "sapsim/wire/call_message.h"
#include "sapsim/wire/gateway_caller.h"
#include "sapsim/wire/socket.h"

extern char** environ;

namespace {

namespace w = sapsim::wire;

constexpr uint32_t kRows = 10000;
constexpr uint32_t kLine = 200;

std::string BuildDir() {
  char path[4096] = {};
  ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  if (n <= 0) throw std::runtime_error("cannot find the benchmark's own path");
  std::string exe(path, static_cast<size_t>(n));
  std::string bin = exe.substr(0, exe.rfind('/'));
  return bin.substr(0, bin.rfind('/'));
}

size_t HeapInUse() {
  struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

struct Library {
  RfcOpen_t open;
  RfcAccept_t accept;
  RfcClose_t close;
  RfcCall_t call;
  RfcReceive_t receive;
  RfcListen_t listen;
  RfcDispatch_t dispatch;
  RfcGetData_t get_data;
  RfcSendData_t send_data;
  RfcInstallStructure_t install_structure;
  RfcInstallFunction_t install_function;
  ItFill_t fill;
  ItDelete_t remove;
};

template <typename T>
T Symbol(void* module, const char* name) {
  void* address = dlsym(module, name);
  if (address == nullptr) throw std::runtime_error(std::string("librfcsim.so lacks ") + name);
  return reinterpret_cast<T>(address);
}

// sapsim, the registered server and the client connection, for the whole run.
class Environment {
 public:
  static Environment& Get() {
    static Environment environment;
    return environment;
  }

  const Library& lib() const { return lib_; }
  ConnectionHandle client() const { return client_; }
  uint16_t port() const { return port_; }
  std::atomic<size_t> table_heap{0};
  std::atomic<unsigned> table_lines{0};
  std::atomic<size_t> heap_before_call{0};
  std::atomic<size_t> get_data_ns{0};
  RfcTypeHandle line_type = -1;

  ~Environment() {
    if (server_handle_ != 0) lib_.close(server_handle_);
    if (server_.joinable()) server_.join();
    if (client_ != 0) lib_.close(client_);
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      waitpid(pid_, nullptr, 0);
    }
    std::remove(system_file_.c_str());
  }

 private:
  Environment() {
    std::string build = BuildDir();
    void* module = dlopen((build + "/lib/librfcsim.so").c_str(), RTLD_NOW);
    if (module == nullptr) throw std::runtime_error(dlerror());
    lib_ = Library{Symbol<RfcOpen_t>(module, "RfcOpen"),
                   Symbol<RfcAccept_t>(module, "RfcAccept"),
                   Symbol<RfcClose_t>(module, "RfcClose"),
                   Symbol<RfcCall_t>(module, "RfcCall"),
                   Symbol<RfcReceive_t>(module, "RfcReceive"),
                   Symbol<RfcListen_t>(module, "RfcListen"),
                   Symbol<RfcDispatch_t>(module, "RfcDispatch"),
                   Symbol<RfcGetData_t>(module, "RfcGetData"),
                   Symbol<RfcSendData_t>(module, "RfcSendData"),
                   Symbol<RfcInstallStructure_t>(module, "RfcInstallStructure"),
                   Symbol<RfcInstallFunction_t>(module, "RfcInstallFunction"),
                   Symbol<ItFill_t>(module, "ItFill"),
                   Symbol<ItDelete_t>(module, "ItDelete")};
    StartSapsim(build);
    std::string service = std::to_string(port_);
    GatewayLogonOptions gateway{"127.0.0.1", service.c_str()};
    OpenOptions open{"", RFC_MODE_GATEWAY, &gateway, "100", "BENCH", "bench", "E", 0};
    client_ = lib_.open(&open);
    if (client_ == 0) throw std::runtime_error("logon failed");
    // The server's line: ten CHAR 20 fields, as in the system's dictionary.
    std::vector<std::string> names;
    std::vector<RfcTypeElement> elements;
    for (int i = 0; i < 10; ++i) names.push_back("F" + std::to_string(i));
    for (const std::string& name : names) elements.push_back(RfcTypeElement{name.c_str(), RFCTYPE_CHAR, 20, 0, 0});
    lib_.install_structure("BATCH_TABLE", elements.data(), 10, &line_type);
    lib_.install_function(RFC_GLOBAL_SERVER_NAME, &ServeBatch, "benchmark");
    std::string a = "-aBENCHSRV";
    std::string g = "-g127.0.0.1";
    std::string x = "-x" + service;
    char* argv[] = {a.data(), g.data(), x.data(), nullptr};
    server_handle_ = lib_.accept(argv);
    if (server_handle_ == 0) throw std::runtime_error("registration failed");
    // RfcDispatch waits for the next call without using the processor;
    // closing the handle ends it.
    server_ = std::thread([this] {
      while (lib_.dispatch(server_handle_) == RFC_OK) {
      }
    });
  }

  static int ServeBatch(ConnectionHandle handle) {
    Environment& self = Get();
    const Library& lib = self.lib_;
    RfcParameterEntry no_imports[] = {{nullptr, 0, 0, 0, nullptr}};
    RfcTableEntry tables[] = {{"BATCH_TABLE", 11, self.line_type, kLine, nullptr, 0, 0},
                              {nullptr, 0, 0, 0, nullptr, 0, 0}};
    auto start = std::chrono::steady_clock::now();
    if (lib.get_data(handle, no_imports, tables) != RFC_OK) return 1;
    self.get_data_ns += static_cast<size_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - start).count());
    // Heap grown since the caller sent the call: the received frame (held
    // until the call ends) and the table made from it, the library's peak.
    self.table_heap = HeapInUse() - self.heap_before_call;
    self.table_lines = lib.fill(tables[0].handle);
    int32_t rc = 1;
    RfcParameterEntry exports[] = {{"BATCH_RC", 8, RFCTYPE_INT, 4, &rc}, {nullptr, 0, 0, 0, nullptr}};
    RfcTableEntry none[] = {{nullptr, 0, 0, 0, nullptr, 0, 0}};
    int result = lib.send_data(handle, exports, none);
    lib.remove(tables[0].handle);
    return result;
  }

  void StartSapsim(const std::string& build) {
    char name[] = "/tmp/rfcsim-bench-XXXXXX";
    int fd = mkstemp(name);
    if (fd < 0) throw std::runtime_error("mkstemp failed");
    close(fd);
    system_file_ = name;
    std::string fields;
    for (int i = 0; i < 10; ++i) {
      fields += std::string(i ? "," : "") + R"({"name": "F)" + std::to_string(i) + R"(", "type": "C", "length": 20})";
    }
    std::ofstream(system_file_) << R"({"system_id": "BEN", "release": "46C", "kernel_release": "46D",
      "logon": [{"client": "100", "user": "BENCH", "password": "bench"}],
      "structures": {"ZBENCH_LINE": [)" << fields << "]}}";
    int out[2];
    if (pipe(out) != 0) throw std::runtime_error("pipe failed");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    std::string exe = build + "/bin/sapsim";
    std::vector<std::string> args = {exe, "serve", "--system", system_file_, "--port", "0", "--quiet"};
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    if (posix_spawn(&pid_, exe.c_str(), &actions, nullptr, argv.data(), environ) != 0) {
      throw std::runtime_error("cannot start " + exe);
    }
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    std::string text;
    char buffer[128];
    while (text.find('\n') == std::string::npos) {
      ssize_t got = read(out[0], buffer, sizeof buffer);
      if (got <= 0) break;
      text.append(buffer, static_cast<size_t>(got));
    }
    close(out[0]);
    size_t at = text.find("listening on port ");
    if (at == std::string::npos) throw std::runtime_error("sapsim did not start");
    port_ = static_cast<uint16_t>(std::atoi(text.c_str() + at + 18));
  }

  Library lib_{};
  pid_t pid_ = -1;
  uint16_t port_ = 0;
  std::string system_file_;
  ConnectionHandle client_ = 0;
  ConnectionHandle server_handle_ = 0;
  std::thread server_;
};

void BM_RfcPing(benchmark::State& state) {
  Environment& env = Environment::Get();
  RfcParameterEntry none[] = {{nullptr, 0, 0, 0, nullptr}};
  RfcTableEntry no_tables[] = {{nullptr, 0, 0, 0, nullptr, 0, 0}};
  for (auto _ : state) {
    char* exception = nullptr;
    if (env.lib().call(env.client(), "RFCPING", none, no_tables) != RFC_OK ||
        env.lib().receive(env.client(), none, no_tables, &exception) != RFC_OK) {
      state.SkipWithError("RFCPING failed");
      return;
    }
  }
}
BENCHMARK(BM_RfcPing)->UseRealTime();

// Passes everything between a client and `target_port` on, as it arrives,
// the way the gateway relays a call (for the two-hop baseline).
class LoopbackRelay {
 public:
  explicit LoopbackRelay(uint16_t target_port) {
    std::string error;
    listener_ = w::Socket::Listen("127.0.0.1", 0, &error);
    relay_ = std::thread([this, target_port] {
      w::Socket in = listener_.Accept();
      std::string error;
      w::Socket out = w::Socket::Connect("127.0.0.1", target_port, &error);
      std::thread back([&] { Pump(out.fd(), in.fd()); });
      Pump(in.fd(), out.fd());
      out.Shutdown();
      back.join();
    });
  }
  ~LoopbackRelay() { relay_.join(); }
  uint16_t port() const { return listener_.LocalPort(); }

 private:
  static void Pump(int from, int to) {
    std::vector<uint8_t> chunk(1024 * 1024);
    for (;;) {
      ssize_t n = recv(from, chunk.data(), chunk.size(), 0);
      if (n <= 0) return;
      for (ssize_t sent = 0; sent < n;) {
        ssize_t m = send(to, chunk.data() + sent, static_cast<size_t>(n - sent), MSG_NOSIGNAL);
        if (m <= 0) return;
        sent += m;
      }
    }
  }
  w::Socket listener_;
  std::thread relay_;
};

// A connected pair of loopback sockets and a thread on the far end that
// reads `request` bytes and answers `answer` bytes, for ever; with `relayed`
// the bytes pass through a LoopbackRelay on the way.
class LoopbackPeer {
 public:
  LoopbackPeer(size_t request, size_t answer, bool relayed = false) : request_(request), answer_(answer) {
    std::string error;
    listener_ = w::Socket::Listen("127.0.0.1", 0, &error);
    peer_ = std::thread([this] {
      w::Socket socket = listener_.Accept();
      std::vector<uint8_t> in(request_);
      std::vector<uint8_t> out(answer_, 1);
      for (;;) {
        size_t got = 0;
        while (got < request_) {
          ssize_t n = recv(socket.fd(), in.data() + got, request_ - got, 0);
          if (n <= 0) return;
          got += static_cast<size_t>(n);
        }
        if (send(socket.fd(), out.data(), answer_, MSG_NOSIGNAL) <= 0) return;
      }
    });
    if (relayed) relay_ = std::make_unique<LoopbackRelay>(listener_.LocalPort());
    client_ = w::Socket::Connect("127.0.0.1", relayed ? relay_->port() : listener_.LocalPort(), &error);
  }
  ~LoopbackPeer() {
    client_.Shutdown();
    relay_.reset();
    peer_.join();
  }
  bool RoundTrip(const uint8_t* data) {
    size_t sent = 0;
    while (sent < request_) {
      ssize_t n = send(client_.fd(), data + sent, request_ - sent, MSG_NOSIGNAL);
      if (n <= 0) return false;
      sent += static_cast<size_t>(n);
    }
    std::vector<uint8_t> answer(answer_);
    size_t got = 0;
    while (got < answer_) {
      ssize_t n = recv(client_.fd(), answer.data() + got, answer_ - got, 0);
      if (n <= 0) return false;
      got += static_cast<size_t>(n);
    }
    return true;
  }

 private:
  size_t request_;
  size_t answer_;
  w::Socket listener_;
  std::unique_ptr<LoopbackRelay> relay_;
  w::Socket client_;
  std::thread peer_;
};

void BM_LoopbackPing(benchmark::State& state) {
  LoopbackPeer peer(16, 16);
  uint8_t message[16] = {};
  for (auto _ : state) {
    if (!peer.RoundTrip(message)) {
      state.SkipWithError("loopback failed");
      return;
    }
  }
}
BENCHMARK(BM_LoopbackPing)->UseRealTime();

std::vector<uint8_t> TableBytes() {
  std::vector<uint8_t> rows(static_cast<size_t>(kRows) * kLine);
  for (size_t i = 0; i < rows.size(); ++i) rows[i] = static_cast<uint8_t>('A' + i % 26);
  return rows;
}

void BM_TableToRegisteredServer(benchmark::State& state) {
  Environment& env = Environment::Get();
  w::GatewayCaller caller;
  std::string error;
  w::ValueDesc layout;
  if (!caller.Connect("127.0.0.1", env.port(), &error) || !caller.LookUp("ZBENCH_LINE", &layout, &error)) {
    state.SkipWithError(error.c_str());
    return;
  }
  std::vector<uint8_t> rows = TableBytes();
  std::vector<w::OutgoingTable> tables = {{"BATCH_TABLE", layout, kRows, rows.data()}};
  env.get_data_ns = 0;
  for (auto _ : state) {
    w::Frame reply;
    w::ErrorNotice refusal;
    env.heap_before_call = HeapInUse();
    if (caller.Call("BENCHSRV", "Z_BENCH", tables, &reply, &refusal, &error) !=
        w::GatewayCaller::Outcome::kReplied) {
      state.SkipWithError((error + refusal.message).c_str());
      return;
    }
  }
  if (env.table_lines != kRows) state.SkipWithError("the server did not receive every line");
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kRows * kLine);
  state.counters["rows_per_second"] =
      benchmark::Counter(static_cast<double>(kRows), benchmark::Counter::kIsIterationInvariantRate);
  // Time the server spends taking the table out of the call (RfcGetData).
  state.counters["get_data_ms"] =
      static_cast<double>(env.get_data_ns.load()) / 1e6 / static_cast<double>(state.iterations());
  state.counters["lib_bytes_per_table_byte"] =
      static_cast<double>(env.table_heap.load()) / (static_cast<double>(kRows) * kLine);
}
BENCHMARK(BM_TableToRegisteredServer)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_LoopbackTable(benchmark::State& state) {
  LoopbackPeer peer(static_cast<size_t>(kRows) * kLine, 4);
  std::vector<uint8_t> rows = TableBytes();
  for (auto _ : state) {
    if (!peer.RoundTrip(rows.data())) {
      state.SkipWithError("loopback failed");
      return;
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kRows * kLine);
}
BENCHMARK(BM_LoopbackTable)->UseRealTime()->Unit(benchmark::kMillisecond);

// The same bytes through a relay in between: the least any path through a
// gateway process can cost.
void BM_LoopbackRelayedTable(benchmark::State& state) {
  LoopbackPeer peer(static_cast<size_t>(kRows) * kLine, 4, true);
  std::vector<uint8_t> rows = TableBytes();
  for (auto _ : state) {
    if (!peer.RoundTrip(rows.data())) {
      state.SkipWithError("loopback failed");
      return;
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kRows * kLine);
}
BENCHMARK(BM_LoopbackRelayedTable)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
