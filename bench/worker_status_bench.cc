// What the status costs a batch: CWorkerStatus::BatchReceived copies the
// record into shared memory once per batch, with no lock and no system call.
// A reader (batchctl status) pays for a consistent copy.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <string>

#include "app/worker_status.h"

namespace {

std::string InstanceName() { return "bs_bench_status_" + std::to_string(getpid()); }

void BM_BatchReceived(benchmark::State& state) {
  CWorkerStatus status(InstanceName(), "BATCHSRV", "sapgw1", "sapgw00");
  status.Serving();
  for (auto _ : state) status.BatchReceived("001047032436007");
  benchmark::DoNotOptimize(status.data().batches);
}
BENCHMARK(BM_BatchReceived);

void BM_ReadWorkerStatus(benchmark::State& state) {
  CWorkerStatus status(InstanceName(), "BATCHSRV", "sapgw1", "sapgw00");
  WorkerStatusData data{};
  for (auto _ : state) benchmark::DoNotOptimize(ReadWorkerStatus(InstanceName(), &data));
}
BENCHMARK(BM_ReadWorkerStatus);

}  // namespace

BENCHMARK_MAIN();
