// The worker's status as a service manager hears it (datagrams on its notify
// socket) and as batchctl reads it (the status record).

#include "app/worker_status.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/notify_socket.h"
#include "tests/support/polling.h"

namespace {

TEST(WorkerStatusTest, ManagerHearsReadyThenEveryChangedLineAndTheRecordFollows) {
  const std::string path = "/tmp/bs_notify_" + std::to_string(getpid());
  const std::string instance = "bs_status_test_" + std::to_string(getpid());
  for (const std::string& address : {path, "@" + path}) {
    SCOPED_TRACE(address);
    unlink(path.c_str());
    testutil::NotifySocket manager(address);
    ASSERT_TRUE(manager.bound());
    setenv("NOTIFY_SOCKET", address.c_str(), 1);
    CWorkerStatus status(instance, "BATCHSRV", "sapgw1", "sapgw00");
    unsetenv("NOTIFY_SOCKET");
    const WorkerStatusData& data = status.data();
    auto since = [&] { return FormatLocalTime(data.since_ms); };

    EXPECT_TRUE(manager.Received().empty()) << "nothing before the worker runs";
    status.Started();
    EXPECT_EQ(manager.Received(),
              std::vector<std::string>{"READY=1\nSTATUS=preparing since " + since()});

    status.CycleFailed("RFC_ERROR_COMMUNICATION", "partner not\nreached");
    const std::string retrying =
        "STATUS=retrying since " + since() + ": RFC_ERROR_COMMUNICATION: partner not reached";
    status.CycleStarting();
    status.CycleFailed("RFC_ERROR_COMMUNICATION", "partner not\nreached");
    status.CycleFailed("", "Failed to get pointer to function: RfcListen");
    const std::string other =
        "STATUS=retrying since " + since() + ": Failed to get pointer to function: RfcListen";
    EXPECT_EQ(manager.Received(), (std::vector<std::string>{retrying, other}));

    status.Serving();
    status.BatchReceived("001047032436007");
    status.BatchReceived("001047032436008");
    EXPECT_EQ(manager.Received(),
              std::vector<std::string>{"STATUS=serving since " + since() +
                                       " (program id BATCHSRV, gateway sapgw1 sapgw00)"});
    WorkerStatusData read{};
    ASSERT_TRUE(ReadWorkerStatus(instance, &read));
    EXPECT_EQ(testutil::Join(read.state == static_cast<uint32_t>(WorkerState::kServing), read.batches,
                             read.last_batch_id, read.failed_cycles, read.process_id == getpid()),
              "1|2|001047032436008|0|1|");

    status.CycleStarting();
    status.Stopping();
    status.Ended("stopped through the stop event");
    EXPECT_EQ(manager.Received(),
              (std::vector<std::string>{
                  "STATUS=preparing since " + since(), "STATUS=stopping since " + since(),
                  "STATUS=ended at " + since() + ": stopped through the stop event"}));
  }
  unlink(path.c_str());
}

TEST(WorkerStatusTest, RetryingCountsFailedCyclesSinceTheFirstAndKeepsTheLastError) {
  CWorkerStatus status("", "P", "H", "S");  // no record: nobody could find it
  EXPECT_FALSE(ReadWorkerStatus("", nullptr));
  status.CycleFailed("K1", "first");
  const int64_t first = status.data().since_ms;
  status.CycleStarting();
  status.CycleFailed("K2", "second");
  const WorkerStatusData& data = status.data();
  EXPECT_EQ(testutil::Join(data.state == static_cast<uint32_t>(WorkerState::kRetrying), data.since_ms == first,
                           data.failed_cycles, data.error_key, data.error_message),
            "1|1|2|K2|second|");
  const std::string long_text(5000, 'x');
  status.Ended(long_text);
  EXPECT_EQ(std::string(status.data().ended_reason), long_text.substr(0, 511));
}

}  // namespace
