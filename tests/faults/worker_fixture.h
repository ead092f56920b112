#pragma once
// The worker's real service cycle in the test's own process, against a sapsim
// started by the test, with `sapsim call` playing SAP. In-process so that
// the file layer's fault seam reaches the worker, the log's last error can be
// read, and LeakSanitizer sees everything the failed cycles leave behind.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "app/batch_app.h"
#include "tests/sapsim/support/sapsim_process.h"
#include "tests/support/polling.h"

namespace faults {

inline constexpr const char* kProgramId = "BATCHFAULT";
inline constexpr const char* kFunction = "Z_FAULT_BATCH";
inline constexpr const char* kStructure = "ZFAULT_LINE";

using testutil::CountOf;
using testutil::Eventually;

// One service cycle as the log shows it: the entries after a header block.
struct LoggedCycle {
  std::string body;
  int ErrorEntries() const;   // " - RFC_ERROR_INFO\n" entries
  int UnknownEntries() const;  // " - UNKNOWN EXEPTION\n" entries
  bool Serving() const;        // the waiting lines were written
  // Nothing but one time-stamped library error: "MM/DD/YY hh:mm:ss - RFC_ERROR_INFO",
  // then the Key, Status, Message and Initstate lines, then CR LF.
  bool IsOneLibraryError() const;
};

class WorkerFixture : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // sapsim on `port` (0: a free one) with extra `serve` options.
  void StartSapsim(uint16_t port = 0, const std::vector<std::string>& extra = {});
  // The worker of a fresh instance, through CBatchApp as the program starts it.
  void StartWorker();
  // Sets the stop event and waits for the worker to end; false if it did not.
  bool StopWorker();

  std::string LogText() const;
  std::vector<LoggedCycle> Cycles() const;
  int Waits() const;
  int Receipts() const;
  bool WaitForServing(int times = 1);

  // `sapsim call` of the batch function with `rows` lines.
  sapsim::testing::RunResult Call(int rows, const std::string& tag);
  // The batch ids of "Receive data: <id>.xml", in log order.
  std::vector<std::string> ReceivedIds() const;
  std::string XmlPath(const std::string& batch_id) const;

  sapsim::testing::TempDir dir_;
  std::string instance_;
  std::string logs_;
  std::string xml_;
  std::string system_file_;
  std::unique_ptr<sapsim::testing::SapsimProcess> sapsim_;
  std::unique_ptr<CBatchApp> app_;
  int calls_ = 0;
};

}  // namespace faults
