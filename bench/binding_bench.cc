// The cost of a resolved forwarding function against a direct call through a
// function pointer into the same loaded library.
//
// The stand-in library is the tests' stand-in RFC library (<build>/lib/
// libstand_in_rfc.so, built with the tests); RFC_STUB_LIBRARY names
// another file.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "platform/dynamic_library.h"
#include "rfc/binding/rfc_binding.h"

namespace {

std::string StubPath() {
  if (const char* path = std::getenv("RFC_STUB_LIBRARY")) return path;
  std::error_code error;
  const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) return "libstand_in_rfc.so";
  return (exe.parent_path().parent_path() / "lib" / "libstand_in_rfc.so").string();
}

platform::LibraryHandle Library() {
  static platform::LibraryHandle handle = [] {
    const std::string path = StubPath();
    return LoadRfcLibrary(path.c_str()) ? platform::LoadDynamicLibrary(path) : nullptr;
  }();
  return handle;
}

void BM_ForwardedCall(benchmark::State& state) {
  if (Library() == nullptr) {
    state.SkipWithError("stub library not found (build the tests or set RFC_STUB_LIBRARY)");
    return;
  }
  ConnectionHandle handle = 1;
  for (auto _ : state) {
    benchmark::DoNotOptimize(handle);
    benchmark::DoNotOptimize(RfcListen(handle));
  }
}
BENCHMARK(BM_ForwardedCall);

void BM_DirectCall(benchmark::State& state) {
  platform::LibraryHandle library = Library();
  auto listen =
      library != nullptr ? reinterpret_cast<RfcListen_t>(platform::GetLibrarySymbol(library, "RfcListen"))
                         : nullptr;
  if (listen == nullptr) {
    state.SkipWithError("stub library not found (build the tests or set RFC_STUB_LIBRARY)");
    return;
  }
  ConnectionHandle handle = 1;
  for (auto _ : state) {
    benchmark::DoNotOptimize(handle);
    benchmark::DoNotOptimize(listen);  // a fresh load of the pointer each time
    benchmark::DoNotOptimize(listen(handle));
  }
}
BENCHMARK(BM_DirectCall);

}  // namespace

BENCHMARK_MAIN();
