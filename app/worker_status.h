#pragma once
// What the worker is doing, for the people and monitors outside the process:
// published in the instance's status record (read by batchctl status) and,
// under a service manager, sent as its one-line status.
//
// Only the worker thread writes, so nothing here takes a lock; a batch costs
// one copy of the record.

#include <cstdint>
#include <memory>
#include <string>

namespace platform {
class StatusRecord;
}

enum class WorkerState : uint32_t {
  kPreparing = 1,  // a cycle is on its way to serving
  kServing = 2,    // registered at the gateway, waiting for batches
  kRetrying = 3,   // the last cycle failed; the next one is under way
  kStopping = 4,   // the stop event was seen; the cycle is being torn down
  kEnded = 5,      // the worker thread has ended; the process stays
};

// The record's bytes. Texts are cut to fit and always end in a zero byte.
struct WorkerStatusData {
  uint32_t layout;   // kWorkerStatusLayout; another build's record is not misread
  uint32_t state;    // a WorkerState
  int64_t since_ms;  // calendar milliseconds since 1970 when the state began
  int64_t process_id;
  uint64_t failed_cycles;  // since the last cycle that reached serving
  uint64_t batches;        // received since the process started
  int64_t last_batch_ms;
  char last_batch_id[24];
  char error_key[40];
  char error_message[640];
  char ended_reason[512];
  char program_id[128];
  char gateway_host[256];
  char gateway_service[64];
};

inline constexpr uint32_t kWorkerStatusLayout = 0x57530001;

// "preparing", "serving", ...; "unknown" for anything else.
const char* WorkerStateName(uint32_t state);
// The one-line summary, e.g. "serving since 2026-11-23 16:20:01 (program id
// BATCHSRV, gateway sapgw1 sapgw00)". Never contains a line break.
std::string WorkerStatusLine(const WorkerStatusData& data);
// A local calendar time as "YYYY-MM-DD HH:MM:SS".
std::string FormatLocalTime(int64_t calendar_ms);

// Reads the status a live server of `instance` publishes. False when there is
// none, or it is of another layout.
bool ReadWorkerStatus(const std::string& instance, WorkerStatusData* data);

// The text of the exception being handled (call it inside a catch block):
// the class library's and the application's texts as they are, anything else
// by its kind.
std::string DescribeCurrentException();

class CWorkerStatus {
 public:
  // Creates the instance's record (when the system allows) and publishes the
  // state preparing in it.
  CWorkerStatus(const std::string& instance, const std::string& program_id,
                const std::string& gateway_host, const std::string& gateway_service);
  ~CWorkerStatus();
  CWorkerStatus(const CWorkerStatus&) = delete;
  CWorkerStatus& operator=(const CWorkerStatus&) = delete;

  // The worker thread runs: tells the service manager it is ready.
  void Started();
  // A cycle begins: after a served cycle the worker is preparing again; a
  // retry stays retrying.
  void CycleStarting();
  void Serving();
  void CycleFailed(const std::string& key, const std::string& message);
  void BatchReceived(const std::string& batch_id);
  void Stopping();
  void Ended(const std::string& reason);

  const WorkerStatusData& data() const { return data_; }

 private:
  void Enter(WorkerState state);
  void Publish();
  void Notify();

  WorkerStatusData data_;
  std::unique_ptr<platform::StatusRecord> record_;
  std::string manager_address_;
  std::string last_line_;
  bool ready_sent_ = false;
};
