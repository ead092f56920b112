// The entry points of the stand-in library. Only the internal tables and the
// registration calls do anything; everything else fails.

#define RFC_LIBRARY_IMPLEMENTATION
#include "tests/access/fake_access_library.h"

#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace {

struct Table {
  unsigned line_length;
  std::vector<std::unique_ptr<unsigned char[]>> lines;
};

std::mutex g_lock;
std::map<TableHandle, std::unique_ptr<Table>> g_tables;
uintptr_t g_next_handle = 1;
FakeAccessControls g_controls{};

Table* Find(TableHandle handle) {
  auto found = g_tables.find(handle);
  return found == g_tables.end() ? nullptr : found->second.get();
}

}  // namespace

extern "C" {

RFC_LIBRARY_EXPORT FakeAccessControls* FakeAccessControlsOf() { return &g_controls; }

ConnectionHandle RfcOpen(OpenOptions*) { return 0; }
ConnectionHandle RfcAccept(char**) { return 0; }
void RfcClose(ConnectionHandle) {}
int RfcCall(ConnectionHandle, const char*, RfcParameterEntry*, RfcTableEntry*) { return RFC_FAILURE; }
int RfcReceive(ConnectionHandle, RfcParameterEntry*, RfcTableEntry*, char**) { return RFC_FAILURE; }
int RfcInstallStructure(const char*, RfcTypeElement*, unsigned, RfcTypeHandle*) { return RFC_FAILURE; }
int RfcInstallFunction(const char*, RfcServerFunction, const char*) { return RFC_FAILURE; }
int RfcListen(ConnectionHandle) { return RFC_CLOSED; }
int RfcDispatch(ConnectionHandle) { return RFC_CLOSED; }
int RfcGetName(ConnectionHandle, char*) { return RFC_FAILURE; }
int RfcGetData(ConnectionHandle, RfcParameterEntry*, RfcTableEntry*) { return RFC_FAILURE; }
int RfcSendData(ConnectionHandle, RfcParameterEntry*, RfcTableEntry*) { return RFC_FAILURE; }
int RfcRaise(ConnectionHandle, const char*) { return RFC_FAILURE; }
int RfcGetAttributes(ConnectionHandle, ConnectionAttributes*) { return RFC_FAILURE; }

int RfcLastError(RFC_ERROR_INFO* error) {
  if (error == nullptr) return RFC_FAILURE;
  std::memset(error, 0, sizeof *error);
  std::strcpy(error->key, "FAKE");
  std::strcpy(error->message, "the stand-in library does not connect");
  return RFC_OK;
}

int RfcLastErrorEx(ErrorInfoEx* error) {
  if (error == nullptr) return RFC_FAILURE;
  std::memset(error, 0, sizeof *error);
  return RFC_OK;
}

TableHandle ItCreate(const char*, unsigned line_length, unsigned, unsigned) {
  std::lock_guard<std::mutex> guard(g_lock);
  auto handle = reinterpret_cast<TableHandle>(g_next_handle++);
  g_tables[handle] = std::make_unique<Table>(Table{line_length, {}});
  return handle;
}

int ItFree(TableHandle table) {
  std::lock_guard<std::mutex> guard(g_lock);
  Table* found = Find(table);
  if (found == nullptr) return RFC_FAILURE;
  found->lines.clear();
  return RFC_OK;
}

int ItDelete(TableHandle table) {
  std::lock_guard<std::mutex> guard(g_lock);
  return g_tables.erase(table) == 1 ? RFC_OK : RFC_FAILURE;
}

unsigned ItFill(TableHandle table) {
  std::lock_guard<std::mutex> guard(g_lock);
  Table* found = Find(table);
  return found == nullptr ? 0 : static_cast<unsigned>(found->lines.size());
}

void* ItGetLine(TableHandle table, unsigned line) {
  // The hook may change the table's description; it must not call back in.
  if (g_controls.on_get_line != nullptr) g_controls.on_get_line(g_controls.context, line);
  if (line == g_controls.missing_line) return nullptr;
  std::lock_guard<std::mutex> guard(g_lock);
  Table* found = Find(table);
  if (found == nullptr || line == 0 || line > found->lines.size()) return nullptr;
  return found->lines[line - 1].get();
}

void* ItGupLine(TableHandle table, unsigned line) {
  std::lock_guard<std::mutex> guard(g_lock);
  Table* found = Find(table);
  if (found == nullptr || line == 0) return nullptr;
  while (found->lines.size() < line) {
    found->lines.push_back(std::make_unique<unsigned char[]>(found->line_length + 1));
  }
  return found->lines[line - 1].get();
}

int RfcCheckRegisterServer(const char*, const char*, const char*, int* total, int* initialising,
                           int* ready, int* busy, ErrorInfoEx*) {
  if (g_controls.write_counts != 0) {
    *total = g_controls.check_total;
    *initialising = 0;
    *ready = g_controls.check_total;
    *busy = 0;
  }
  return g_controls.check_result;
}

int RfcCancelRegisterServer(const char*, const char*, const char*, int* total, int* cancelled,
                            ErrorInfoEx*) {
  if (g_controls.write_counts != 0) {
    *total = g_controls.cancel_cancelled;
    *cancelled = g_controls.cancel_cancelled;
  }
  return g_controls.cancel_result;
}

}  // extern "C"
