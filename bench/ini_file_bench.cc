// Value lookups in an INI file of 1,000 keys: every lookup is a substring
// search from the section header, so the cost grows with the key's distance
// from the header, and a missing key costs a search to the section's end.
//
// The file (CR LF line ends, a small section before the big one) is written
// to a private directory under the system temp dir and removed afterwards.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "app/ini_file.h"

namespace {

constexpr int kKeys = 1000;

std::string KeyName(int i) {
  char name[32];
  std::snprintf(name, sizeof name, "sap.key.%04d", i);
  return name;
}

std::filesystem::path& Directory() {
  static std::filesystem::path directory;
  return directory;
}

std::string IniPath() { return (Directory() / "bench.ini").string(); }

void WriteIniFile() {
  // A name of its own, so that runs side by side do not meet.
  const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
  Directory() = std::filesystem::temp_directory_path() /
                ("bs_ini_bench_" + std::to_string(std::random_device{}()) + "_" +
                 std::to_string(stamp));
  std::filesystem::create_directories(Directory());
  std::ofstream out(IniPath(), std::ios::binary | std::ios::trunc);
  out << "[OTHER]\r\nsap.library=librfcsim.so\r\nxml.path=/var/lib/other\r\n\r\n";
  out << "[BATCH]\r\n";
  for (int i = 0; i < kKeys; ++i) {
    out << KeyName(i) << "=value number " << i << " of the batch section\r\n";
  }
}

void RemoveIniFile() {
  std::error_code ignored;
  std::filesystem::remove_all(Directory(), ignored);
}

void Lookup(benchmark::State& state, const std::string& name, int expected) {
  CIni ini(IniPath(), false);
  ini.SetSection("BATCH");
  std::string value;
  if (ini.GetValue(name, value) != expected) {
    state.SkipWithError(("unexpected result for " + name + ": " + ini.LastError()).c_str());
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(ini.GetValue(name, value));
    benchmark::DoNotOptimize(value.data());
  }
}

void BM_IniHitNearStart(benchmark::State& state) { Lookup(state, KeyName(1), 1); }
BENCHMARK(BM_IniHitNearStart);

void BM_IniHitNearEnd(benchmark::State& state) { Lookup(state, KeyName(kKeys - 2), 1); }
BENCHMARK(BM_IniHitNearEnd);

void BM_IniMiss(benchmark::State& state) { Lookup(state, "sap.key.missing", 0); }
BENCHMARK(BM_IniMiss);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  WriteIniFile();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  RemoveIniFile();
  return 0;
}
