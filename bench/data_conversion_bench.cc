// Packed decimal conversions of an 8-byte value (15 digits, 2 decimals), the
// most common amount field: packed to text and text to packed, both through
// the raw conversions and through CRfcData's operators. Then the text of each
// cell of a table line with one column of every type, read the way a received
// batch is turned into text: through the table's one accessor, cell by cell.

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "rfc/core/rfc_data.h"
#include "rfc/function/rfc_table_param.h"

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

// One column per type, laid out and filled as a line of the example orders.
struct OrderLine {
  OrderLine() : table("T", 0, 0, 0, nullptr, nullptr) {
    table.SetTypeHandle(1);  // no installation: no library needed
    CRfcFieldInfo fields[] = {Info("CUSTOMER", 0, TYPE_CHAR, 20), Info("CODE", 1, TYPE_NUM, 10),
                              Info("DATE", 2, TYPE_DATE, 8),      Info("TIME", 3, TYPE_TIME, 6),
                              Info("AMOUNT", 4, TYPE_BCD, 8, 2),  Info("QUANTITY", 5, TYPE_INT, 4),
                              Info("WEIGHT", 6, TYPE_FLOAT, 8),   Info("PRIORITY", 7, TYPE_INT2, 2),
                              Info("FLAGS", 8, TYPE_INT1, 1),     Info("CHECKSUM", 9, TYPE_BYTE, 4)};
    table.AddFieldInfo(fields, kColumns);
    line.assign(static_cast<size_t>(table.GetLineLength()), 0);
    for (int c = 0; c < kColumns; ++c) table.GetData(line.data(), c).ClearValue();
    table.GetData(line.data(), 0) = "Smith & Sons";
    table.GetData(line.data(), 1) = "42";
    table.GetData(line.data(), 2) = "20240131";
    table.GetData(line.data(), 3) = "083000";
    table.GetData(line.data(), 4) = "1499.95";
    table.GetData(line.data(), 5) = 12;
    const double weight = 2.5;
    std::memcpy(line.data() + table.GetFieldInfo(6)->offset, &weight, sizeof weight);
    table.GetData(line.data(), 7) = -2;
    table.GetData(line.data(), 8) = 1;
    table.GetData(line.data(), 9) = 0x0A0B0C0D;
  }
  static CRfcFieldInfo Info(const char* name, int column, int type, int length, int decimals = 0) {
    CRfcFieldInfo field{};
    SetFieldName(field, name);
    field.column = column;
    field.type = type;
    field.length = length;
    field.decimals = decimals;
    return field;
  }
  static constexpr int kColumns = 10;
  CRfcTableParam table;
  std::vector<unsigned char> line;
};

// Arg: the column (0 CHAR, 1 NUM, 2 DATE, 3 TIME, 4 BCD, 5 INT, 6 FLOAT,
// 7 INT2, 8 INT1, 9 BYTE).
void BM_CellText(benchmark::State& state) {
  OrderLine order;
  const int column = static_cast<int>(state.range(0));
  for (auto _ : state) {
    benchmark::DoNotOptimize(static_cast<CSTR>(order.table.GetData(order.line.data(), column)));
  }
}
BENCHMARK(BM_CellText)->DenseRange(0, OrderLine::kColumns - 1);

// A whole line: every cell's text, as one row of a received batch.
void BM_LineText(benchmark::State& state) {
  OrderLine order;
  for (auto _ : state) {
    for (int c = 0; c < OrderLine::kColumns; ++c) {
      benchmark::DoNotOptimize(static_cast<CSTR>(order.table.GetData(order.line.data(), c)));
    }
  }
}
BENCHMARK(BM_LineText);

}  // namespace

BENCHMARK_MAIN();
