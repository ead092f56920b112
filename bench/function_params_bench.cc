// The per-call costs of functions and parameters that need no RFC library:
// reading a field or a table cell (a bounds check and a re-bind of the one
// accessor), refilling the call arrays of an unchanged function, and laying
// out a structure description.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "rfc/core/rfc_data.h"
#include "rfc/function/rfc_client_func.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"

namespace {

std::vector<CRfcFieldInfo> Fields(int count) {
  std::vector<CRfcFieldInfo> fields(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) {
    CRfcFieldInfo& field = fields[static_cast<size_t>(i)];
    std::snprintf(field.name, sizeof field.name, "F%d", i);
    field.column = i;
    field.type = i % 3 == 0 ? TYPE_INT : TYPE_CHAR;
    field.length = i % 3 == 0 ? 4 : 10;
  }
  return fields;
}

void BM_TableCellRead(benchmark::State& state) {
  CRfcTableParam table("T", 0, 0, 0, nullptr, nullptr);
  table.SetTypeHandle(1);  // no installation: no library needed
  std::vector<CRfcFieldInfo> fields = Fields(30);
  table.AddFieldInfo(fields.data(), 30);
  std::vector<unsigned char> line(static_cast<size_t>(table.GetLineLength()), 0);
  int column = 0;
  for (auto _ : state) {
    RFC_INT value = table.GetData(line.data(), column);
    benchmark::DoNotOptimize(value);
    column = column == 27 ? 0 : column + 3;
  }
}
BENCHMARK(BM_TableCellRead);

void BM_StructFieldRead(benchmark::State& state) {
  CRfcStructParam param("S", 0, 0, nullptr, nullptr);
  param.SetTypeHandle(1);
  std::vector<CRfcFieldInfo> fields = Fields(30);
  param.AddFieldInfo(fields.data(), 30);
  int column = 0;
  for (auto _ : state) {
    RFC_INT value = param.FieldValue(column);
    benchmark::DoNotOptimize(value);
    column = column == 27 ? 0 : column + 3;
  }
}
BENCHMARK(BM_StructFieldRead);

// SetUpImports/Exports/Tables of a function whose lists did not change: the
// arrays are refilled, not made again.
void BM_RefillCallArrays(benchmark::State& state) {
  CRfcClientFunc function(nullptr, "F");
  std::vector<std::unique_ptr<CRfcSimpleParam>> params;
  std::vector<std::unique_ptr<CRfcTableParam>> tables;
  for (int i = 0; i < 5; ++i) {
    params.push_back(std::make_unique<CRfcSimpleParam>("IMPORT", TYPE_CHAR, 30, 0, 0));
    function.AddImport(params.back().get());
    params.push_back(std::make_unique<CRfcSimpleParam>("EXPORT", TYPE_INT, 4, 0, 0));
    function.AddExport(params.back().get());
  }
  for (int i = 0; i < 3; ++i) {
    tables.push_back(std::make_unique<CRfcTableParam>("TABLE", 512, 0, 0, nullptr, nullptr));
    function.AddTable(tables.back().get());
  }
  for (auto _ : state) {
    function.SetUpImports(1);
    function.SetUpExports();
    function.SetUpTables();
    benchmark::DoNotOptimize(function.GetTableArray());
  }
}
BENCHMARK(BM_RefillCallArrays);

void BM_LayoutOfAStructure(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  const std::vector<CRfcFieldInfo> fields = Fields(count);
  for (auto _ : state) {
    CRfcTableParam table("T", 0, 0, 0, nullptr, nullptr);
    table.SetTypeHandle(1);
    std::vector<CRfcFieldInfo> copy = fields;
    table.AddFieldInfo(copy.data(), count);
    benchmark::DoNotOptimize(table.GetLineLength());
  }
}
BENCHMARK(BM_LayoutOfAStructure)->Arg(10)->Arg(100);

}  // namespace

BENCHMARK_MAIN();
