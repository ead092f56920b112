#include "app/worker_status.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <type_traits>

#include "platform/clock.h"
#include "platform/service_notify.h"
#include "platform/status_record.h"

static_assert(sizeof(WorkerStatusData) <= platform::StatusRecord::kCapacity,
              "the status must fit its record");
static_assert(std::is_trivially_copyable<WorkerStatusData>::value, "the status is copied as bytes");

namespace {

int64_t NowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

template <size_t N>
void CopyText(char (&field)[N], const std::string& text) {
  const size_t length = text.size() < N - 1 ? text.size() : N - 1;
  std::memcpy(field, text.data(), length);
  std::memset(field + length, 0, N - length);
}

// A field read from another process may lack its terminator.
template <size_t N>
std::string Text(const char (&field)[N]) {
  return std::string(field, strnlen(field, N));
}

// The summary is one line; error texts from the SAP side may hold breaks.
std::string OneLine(std::string text) {
  for (char& c : text) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  return text;
}

}  // namespace

const char* WorkerStateName(uint32_t state) {
  switch (static_cast<WorkerState>(state)) {
    case WorkerState::kPreparing:
      return "preparing";
    case WorkerState::kServing:
      return "serving";
    case WorkerState::kRetrying:
      return "retrying";
    case WorkerState::kStopping:
      return "stopping";
    case WorkerState::kEnded:
      return "ended";
  }
  return "unknown";
}

std::string FormatLocalTime(int64_t calendar_ms) {
  const int64_t seconds = calendar_ms >= 0 ? calendar_ms / 1000 : (calendar_ms - 999) / 1000;
  const platform::LocalTime t = platform::ToLocalTime(seconds);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", t.year, t.month, t.day, t.hour,
                t.minute, t.second);
  return text;
}

std::string WorkerStatusLine(const WorkerStatusData& data) {
  std::string line = WorkerStateName(data.state);
  line += (data.state == static_cast<uint32_t>(WorkerState::kEnded) ? " at " : " since ");
  line += FormatLocalTime(data.since_ms);
  switch (static_cast<WorkerState>(data.state)) {
    case WorkerState::kServing:
      line += " (program id " + Text(data.program_id) + ", gateway " + Text(data.gateway_host) +
              " " + Text(data.gateway_service) + ")";
      break;
    case WorkerState::kRetrying: {
      const std::string key = Text(data.error_key);
      line += ": " + (key.empty() ? std::string() : key + ": ") + Text(data.error_message);
      break;
    }
    case WorkerState::kEnded:
      line += ": " + Text(data.ended_reason);
      break;
    default:
      break;
  }
  return OneLine(line);
}

bool ReadWorkerStatus(const std::string& instance, WorkerStatusData* data) {
  std::unique_ptr<platform::StatusRecord> record = platform::StatusRecord::Open(instance);
  if (record == nullptr || !record->Read(data, sizeof *data)) return false;
  data->process_id = record->WriterProcessId();
  return data->layout == kWorkerStatusLayout;
}

std::string DescribeCurrentException() {
  try {
    throw;
  } catch (const char* text) {
    return text != nullptr ? text : "(no text)";
  } catch (const std::string& text) {
    return text;
  } catch (const std::bad_alloc&) {
    return "out of memory";
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "an exception of unknown kind";
  }
}

CWorkerStatus::CWorkerStatus(const std::string& instance, const std::string& program_id,
                             const std::string& gateway_host, const std::string& gateway_service)
    : data_(),
      record_(platform::StatusRecord::Create(instance)),
      manager_address_(platform::ServiceManagerAddress()) {
  data_.layout = kWorkerStatusLayout;
  data_.process_id = record_ ? record_->WriterProcessId() : 0;
  CopyText(data_.program_id, program_id);
  CopyText(data_.gateway_host, gateway_host);
  CopyText(data_.gateway_service, gateway_service);
  Enter(WorkerState::kPreparing);
}

CWorkerStatus::~CWorkerStatus() = default;

void CWorkerStatus::Started() {
  // Up and working, even while SAP cannot be reached: a manager must not
  // time the start out.
  if (ready_sent_ || manager_address_.empty()) return;
  ready_sent_ = true;
  last_line_ = WorkerStatusLine(data_);
  platform::NotifyServiceManager(manager_address_, "READY=1\nSTATUS=" + last_line_);
}

void CWorkerStatus::CycleStarting() {
  if (data_.state == static_cast<uint32_t>(WorkerState::kServing)) Enter(WorkerState::kPreparing);
}

void CWorkerStatus::Serving() {
  data_.failed_cycles = 0;
  CopyText(data_.error_key, "");
  CopyText(data_.error_message, "");
  Enter(WorkerState::kServing);
}

void CWorkerStatus::CycleFailed(const std::string& key, const std::string& message) {
  ++data_.failed_cycles;
  CopyText(data_.error_key, key);
  CopyText(data_.error_message, message);
  // A run of failures is one retrying state, since the first of them.
  if (data_.state == static_cast<uint32_t>(WorkerState::kRetrying)) {
    Publish();
    Notify();
  } else {
    Enter(WorkerState::kRetrying);
  }
}

void CWorkerStatus::BatchReceived(const std::string& batch_id) {
  ++data_.batches;
  data_.last_batch_ms = NowMs();
  CopyText(data_.last_batch_id, batch_id);
  Publish();
}

void CWorkerStatus::Stopping() { Enter(WorkerState::kStopping); }

void CWorkerStatus::Ended(const std::string& reason) {
  CopyText(data_.ended_reason, reason);
  Enter(WorkerState::kEnded);
}

void CWorkerStatus::Enter(WorkerState state) {
  data_.state = static_cast<uint32_t>(state);
  data_.since_ms = NowMs();
  Publish();
  Notify();
}

void CWorkerStatus::Publish() {
  if (record_) record_->Publish(&data_, sizeof data_);
}

void CWorkerStatus::Notify() {
  // The manager hears of every change of its line; the line holds no
  // counters, so a batch is no change. Before READY=1 it hears nothing.
  if (!ready_sent_) return;
  try {
    std::string line = WorkerStatusLine(data_);
    if (line == last_line_) return;
    last_line_ = std::move(line);
    platform::NotifyServiceManager(manager_address_, "STATUS=" + last_line_);
  } catch (const std::bad_alloc&) {
    // Runs inside the worker's failure handlers: a status line is not worth
    // ending the process for.
  }
}
