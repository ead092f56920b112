// The per-thread trace files of the class library.

#include "rfc/core/rfc_trace.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>

#include "platform/critical_section.h"
#include "platform/path.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "rfc/core/rfc_allocation.h"

namespace {

// The start directory is kept as in a 255-character buffer (254 characters
// and the terminator); a longer one is treated as unreadable.
constexpr size_t kDirectoryBufferSize = 255;

// One thread's file.
struct TraceFile {
  std::ofstream stream;
  uint32_t thread_id = 0;
  std::unique_ptr<TraceFile> next;
};

// Shared by every instance: the lock, the instance count and the files.
struct TraceState {
  platform::CriticalSection lock;
  int instances = 0;
  std::unique_ptr<TraceFile> files;
};

TraceState& State() {
  static TraceState state;
  return state;
}

std::string FitDirectory(const std::string& directory) {
  return directory.size() < kDirectoryBufferSize ? directory : std::string();
}

std::string FileName(const std::string& directory, uint32_t thread_id) {
  char name[32];
  std::snprintf(name, sizeof name, "crfc%d.trc", static_cast<int>(thread_id));
  return directory.empty() ? std::string(name) : directory + platform::kPathSeparator + name;
}

// Lines end in CR LF, and so does every line feed inside a text, so that a
// trace file reads the same as one written in text mode on Windows.
void WriteWithLineEnds(std::ofstream& stream, const char* text) {
  const char* start = text;
  for (const char* p = text; *p != '\0'; ++p) {
    if (*p == '\n') {
      stream.write(start, p - start);
      stream.write("\r\n", 2);
      start = p + 1;
    }
  }
  stream << start << "\r\n";
}

}  // namespace

CRfcTrace::CRfcTrace() : directory_(FitDirectory(platform::CurrentDirectory())) {
  TraceState& state = State();
  platform::CriticalSectionLock lock(state.lock);
  ++state.instances;
}

CRfcTrace::~CRfcTrace() {
  TraceState& state = State();
  platform::CriticalSectionLock lock(state.lock);
  enabled_.store(0, std::memory_order_relaxed);
  // Unlinked one by one: a long chain must not recurse through destructors.
  while (state.files) state.files = std::move(state.files->next);
  --state.instances;
}

void CRfcTrace::SetTraceOn(int on) { enabled_.store(on != 0 ? 1 : 0, std::memory_order_relaxed); }

int CRfcTrace::IsTraceOn() const { return enabled_.load(std::memory_order_relaxed); }

void CRfcTrace::SetDirectory(const std::string& directory) {
  platform::CriticalSectionLock lock(State().lock);
  directory_ = FitDirectory(directory);
}

std::string CRfcTrace::GetDirectory() const {
  platform::CriticalSectionLock lock(State().lock);
  return directory_;
}

void CRfcTrace::WriteLine(const char* text) {
  if (enabled_.load(std::memory_order_relaxed) == 0 || text == nullptr) return;
  TraceState& state = State();
  platform::CriticalSectionLock lock(state.lock);
  const uint32_t thread_id = platform::CurrentThreadId();
  TraceFile* file = state.files.get();
  while (file != nullptr && file->thread_id != thread_id) file = file->next.get();
  if (file == nullptr) {
    std::unique_ptr<TraceFile> created = rfc::RfcAllocate<TraceFile>();
    if (!created) throw "Failed to allocate memory!";
    created->thread_id = thread_id;
    created->next = std::move(state.files);
    state.files = std::move(created);
    file = state.files.get();
    // A file that cannot be opened leaves the stream failed: the thread's
    // lines are dropped from then on.
    file->stream.open(FileName(directory_, thread_id), std::ios::binary | std::ios::app);
  }
  WriteWithLineEnds(file->stream, text);
  file->stream.flush();
}

void CRfcTrace::WriteBlankLines(int count) {
  if (enabled_.load(std::memory_order_relaxed) == 0) return;
  for (int i = 0; i < count; ++i) WriteLine("");
}

void CRfcTrace::WriteHeader() {
  if (enabled_.load(std::memory_order_relaxed) == 0) return;
  WriteBlankLines(3);
  WriteLine(HeaderLine(platform::LocalNow()).c_str());
}

void CRfcTrace::WriteError(const RFC_ERROR_INFO& error) {
  if (enabled_.load(std::memory_order_relaxed) == 0) return;
  WriteLine(ErrorLine("Key:    ", error.key, sizeof error.key).c_str());
  WriteLine(ErrorLine("Status: ", error.status, sizeof error.status).c_str());
  WriteLine(ErrorLine("Message:", error.message, sizeof error.message).c_str());
}

std::string CRfcTrace::HeaderLine(const platform::LocalTime& time) {
  char line[96];
  std::snprintf(line, sizeof line, "Rfc Class Library Trace at   %-4d.%02d.%02d   %02d:%02d:%02d",
                time.year, time.month, time.day, time.hour, time.minute, time.second);
  return line;
}

std::string CRfcTrace::ErrorLine(const char* label, const char* field, size_t field_size) {
  // The field may fill its array without a terminator; never read past it.
  const size_t field_length = field != nullptr ? strnlen(field, field_size) : 0;
  size_t label_length = std::strlen(label);
  std::string line(label);
  line.append(field != nullptr ? field : "", field_length);
  while (label_length > 0 && label[label_length - 1] == ' ') --label_length;
  line.resize(label_length + field_length);
  return line;
}

int CRfcTrace::InstanceCount() {
  TraceState& state = State();
  platform::CriticalSectionLock lock(state.lock);
  return state.instances;
}

CRfcTrace& GetRfcTrace() {
  static CRfcTrace trace;
  return trace;
}

namespace {
// Made before main so that it reads the directory the process started in.
[[maybe_unused]] CRfcTrace& g_created_at_start = GetRfcTrace();
}  // namespace
