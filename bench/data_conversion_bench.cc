// Packed decimal conversions of an 8-byte value (15 digits, 2 decimals), the
// most common amount field: packed to text and text to packed, both through
// the raw conversions and through CRfcData's operators.

#include <benchmark/benchmark.h>

#include <cstring>

#include "rfc/core/rfc_data.h"

namespace {

constexpr int kLength = 8;
constexpr int kDecimals = 2;
constexpr unsigned char kValue[kLength] = {0x01, 0x23, 0x45, 0x67, 0x89, 0x01, 0x23, 0x4D};
constexpr char kText[] = "-1234567890123.45";

void BM_PackedToText(benchmark::State& state) {
  unsigned char bytes[kLength];
  std::memcpy(bytes, kValue, kLength);
  CRfcData data(1);
  data.Init(bytes, TYPE_BCD, kLength, kDecimals);
  char text[2 * kLength + 2];
  for (auto _ : state) {
    benchmark::DoNotOptimize(data.BCD2Str(text, bytes));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_PackedToText);

void BM_TextToPacked(benchmark::State& state) {
  unsigned char bytes[kLength];
  CRfcData data(1);
  data.Init(bytes, TYPE_BCD, kLength, kDecimals);
  char text[sizeof kText];
  for (auto _ : state) {
    // The conversion may write into its input, so it gets a fresh copy.
    std::memcpy(text, kText, sizeof kText);
    benchmark::DoNotOptimize(data.Str2BCD(text, bytes));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_TextToPacked);

void BM_PackedOperatorCstr(benchmark::State& state) {
  unsigned char bytes[kLength];
  std::memcpy(bytes, kValue, kLength);
  CRfcData data(1);
  data.Init(bytes, TYPE_BCD, kLength, kDecimals);
  for (auto _ : state) benchmark::DoNotOptimize(static_cast<CSTR>(data));
}
BENCHMARK(BM_PackedOperatorCstr);

void BM_PackedAssignText(benchmark::State& state) {
  unsigned char bytes[kLength];
  CRfcData data(1);
  data.Init(bytes, TYPE_BCD, kLength, kDecimals);
  for (auto _ : state) {
    data = kText;
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_PackedAssignText);

}  // namespace

BENCHMARK_MAIN();
