// batchctl: signals a batch server's stop event, the one channel into a
// running server, and reports the status its worker publishes beside it. The
// server names both after its instance.

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "app/worker_status.h"
#include "platform/event.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// Exit codes of status, for monitors.
constexpr int kStatusServing = 0;
constexpr int kStatusNotServingYet = 1;  // preparing or retrying
constexpr int kStatusEnded = 2;          // the worker ended or is ending
constexpr int kStatusNotRunning = 3;

const char kUsage[] =
    "Usage: batchctl stop NAME\n"
    "       batchctl status [--json] NAME\n"
    "\n"
    "NAME is the batch server's instance name, the first word of its command line.\n"
    "\n"
    "  stop    set the instance's stop event: the server's worker ends at its next check.\n"
    "          Exit 0 when signalled, 1 when no server of that name is running.\n"
    "  status  what the server's worker is doing: its state (preparing, serving,\n"
    "          retrying, stopping, ended), batches received, last batch, program id,\n"
    "          gateway and process id; --json prints one JSON object for a monitor.\n"
    "          Exit 0 serving, 1 preparing or retrying, 2 worker stopping or ended,\n"
    "          3 not running.\n";

int Usage(FILE* out, int code) {
  std::fputs(kUsage, out);
  return code;
}

int Stop(const std::string& name) {
  std::unique_ptr<platform::Event> event = platform::Event::Open(name);
  if (event == nullptr) {
    std::fprintf(stderr, "batchctl: no running batch server named '%s'\n", name.c_str());
    return kExitFailure;
  }
  if (!event->Set()) {
    std::fprintf(stderr, "batchctl: cannot signal the stop event of '%s'\n", name.c_str());
    return kExitFailure;
  }
  std::printf("batchctl: stop signalled to %s\n", name.c_str());
  return kExitOk;
}

// What status reports: whether a server runs, and what its worker does.
struct Report {
  bool running = false;
  bool has_status = false;  // false: a server without a readable status record
  bool stop_signalled = false;
  WorkerStatusData data{};
};

WorkerState StateOf(const Report& report) {
  const auto state = static_cast<WorkerState>(report.data.state);
  // The worker sees a stop only at its next idle moment; until then the
  // event tells the truth sooner.
  if (report.stop_signalled && state != WorkerState::kEnded) return WorkerState::kStopping;
  return state;
}

int ExitCodeOf(const Report& report) {
  if (!report.running) return kStatusNotRunning;
  if (!report.has_status) return report.stop_signalled ? kStatusEnded : kStatusNotServingYet;
  switch (StateOf(report)) {
    case WorkerState::kServing:
      return kStatusServing;
    case WorkerState::kStopping:
    case WorkerState::kEnded:
      return kStatusEnded;
    default:
      return kStatusNotServingYet;
  }
}

template <size_t N>
std::string Text(const char (&field)[N]) {
  return std::string(field, strnlen(field, N));
}

bool IsUtf8(const std::string& text) {
  for (size_t i = 0; i < text.size();) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const size_t length = byte < 0x80           ? 1
                          : (byte >> 5) == 0x6  ? 2
                          : (byte >> 4) == 0xE  ? 3
                          : (byte >> 3) == 0x1E ? 4
                                                : 0;
    if (length == 0 || i + length > text.size()) return false;
    for (size_t k = 1; k < length; ++k) {
      if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return false;
    }
    i += length;
  }
  return true;
}

// A JSON string. Texts from the SAP side may be Latin-1: what is not UTF-8
// is read as Latin-1, so that the output stays valid JSON.
std::string Json(const std::string& text) {
  const bool utf8 = IsUtf8(text);
  std::string out = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    char escaped[8];
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (byte < 0x20 || (!utf8 && byte >= 0x80)) {
      std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
      out += escaped;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

std::string JsonTime(int64_t ms) { return Json(FormatLocalTime(ms)); }

void PrintJson(const std::string& name, const Report& report) {
  std::string out = "{\"instance\":" + Json(name);
  if (!report.running) {
    out += ",\"state\":\"not running\"}";
  } else if (!report.has_status) {
    out += report.stop_signalled ? ",\"state\":\"stopping\"}" : ",\"state\":\"unknown\"}";
  } else {
    const WorkerStatusData& d = report.data;
    const WorkerState state = StateOf(report);
    const bool retrying = state == WorkerState::kRetrying;
    out += ",\"state\":" + Json(WorkerStateName(static_cast<uint32_t>(state)));
    out += ",\"since\":" + JsonTime(d.since_ms) + ",\"since_ms\":" + std::to_string(d.since_ms);
    out += ",\"process_id\":" + std::to_string(d.process_id);
    out += ",\"program_id\":" + Json(Text(d.program_id));
    out += ",\"gateway_host\":" + Json(Text(d.gateway_host));
    out += ",\"gateway_service\":" + Json(Text(d.gateway_service));
    out += ",\"batches\":" + std::to_string(d.batches);
    out += ",\"last_batch_id\":" + (d.batches > 0 ? Json(Text(d.last_batch_id)) : "null");
    out += ",\"last_batch_time\":" + (d.batches > 0 ? JsonTime(d.last_batch_ms) : "null");
    out += ",\"failed_cycles\":" + std::to_string(d.failed_cycles);
    out += ",\"last_error_key\":" + (retrying ? Json(Text(d.error_key)) : "null");
    out += ",\"last_error_message\":" + (retrying ? Json(Text(d.error_message)) : "null");
    out +=
        ",\"ended_reason\":" + (state == WorkerState::kEnded ? Json(Text(d.ended_reason)) : "null");
    out += "}";
  }
  std::puts(out.c_str());
}

void PrintForPerson(const Report& report) {
  if (!report.running) {
    std::puts("not running");
    return;
  }
  const WorkerStatusData& d = report.data;
  // The worker sees a stop only at its next idle moment.
  const bool signalled_unseen =
      report.stop_signalled &&
      (!report.has_status || d.state < static_cast<uint32_t>(WorkerState::kStopping));
  if (signalled_unseen) {
    std::puts("stopping: the stop event is set; the worker ends at its next idle moment");
    if (!report.has_status) return;
  } else if (!report.has_status) {
    std::puts("running, state unknown: the server publishes no status");
    return;
  } else {
    std::puts(WorkerStatusLine(d).c_str());
  }
  if (d.state == static_cast<uint32_t>(WorkerState::kRetrying)) {
    std::printf("failed cycles:  %" PRIu64 " since the last good one\n", d.failed_cycles);
  }
  std::printf("process id:     %" PRId64 "\n", d.process_id);
  std::printf("program id:     %s\n", Text(d.program_id).c_str());
  std::printf("gateway:        %s %s\n", Text(d.gateway_host).c_str(),
              Text(d.gateway_service).c_str());
  if (d.batches == 0) {
    std::puts("batches:        none since start");
  } else {
    std::printf("batches:        %" PRIu64 " since start, the last %s at %s\n", d.batches,
                Text(d.last_batch_id).c_str(), FormatLocalTime(d.last_batch_ms).c_str());
  }
}

int Status(const std::string& name, bool json) {
  Report report;
  std::unique_ptr<platform::Event> event = platform::Event::Open(name);
  report.running = event != nullptr;
  if (report.running) {
    const platform::WaitResult wait = event->Wait(0);
    if (wait == platform::WaitResult::kFailed) {
      std::fprintf(stderr, "batchctl: cannot read the stop event of '%s'\n", name.c_str());
      return kExitFailure;
    }
    report.stop_signalled = wait == platform::WaitResult::kSignaled;
    report.has_status = ReadWorkerStatus(name, &report.data);
  }
  if (json) {
    PrintJson(name, report);
  } else {
    PrintForPerson(report);
  }
  return ExitCodeOf(report);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
    return Usage(stdout, kExitOk);
  }
  const bool json =
      argc == 4 && std::strcmp(argv[1], "status") == 0 && std::strcmp(argv[2], "--json") == 0;
  if (argc != 3 && !json) return Usage(stderr, kExitUsage);
  const std::string command = argv[1];
  const std::string name = argv[argc - 1];
  if (name.empty() || name == "--json") return Usage(stderr, kExitUsage);
  if (command == "stop") return Stop(name);
  if (command == "status") return Status(name, json);
  return Usage(stderr, kExitUsage);
}
