#pragma once
// The stand-in RFC library of the unit tests: a shared library exporting the
// 24 entry points, loaded through LoadRfcLibrary like the real one, with
// scripted answers and records of what tests read (through StandIn(path), while
// no call is under way). Built complete and without RfcCheckRegisterServer.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/dynamic_library.h"
#include "rfc/binding/rfc_library_api.h"

namespace stand_in {

// One entry of a parameter or table array as the library saw it.
struct Entry {
  std::string name;
  int type = 0;
  uint32_t length = 0;   // value length or line length
  std::string bytes;     // a parameter's value at the time of the call
  TableHandle handle = nullptr;
};

// A call of any entry point: its name, handle and text (a name, argv words or a code).
struct Record {
  std::string entry;
  ConnectionHandle handle = 0;
  std::string text;
};

// RfcCall, RfcReceive: the arrays and what they held.
struct Exchange {
  std::string function;
  const RfcParameterEntry* params_array = nullptr;
  const RfcTableEntry* tables_array = nullptr;
  std::vector<Entry> params, tables;
};

struct Element {
  std::string name;
  int type = 0, length = 0, decimals = 0;
};
struct Install {
  std::string name;
  std::vector<Element> elements;
  RfcTypeHandle handle = 0;  // what the library answered
};

struct Open {
  int mode = -1, trace = -1;
  std::string logon;  // destination, client, user, password, language, blank-separated
  std::string block;  // the option block's words, "none" without one
  std::chrono::steady_clock::time_point started, returned;
};

struct Table {
  unsigned line_length = 0;
  std::vector<std::unique_ptr<unsigned char[]>> lines;
};

// A receive's script: given what the class library passed, answers its code.
using ReceiveScript = std::function<int(RfcParameterEntry*, RfcTableEntry*, char**)>;

// What the library answers (scripts), then what it records.
struct State {
  ConnectionHandle open_result = 7;
  int open_sleep_ms = 0;
  // RfcAccept: handles count up from first_handle; failing accepts give 0.
  ConnectionHandle first_handle = 1;
  std::set<int> failing_accepts;
  bool fail_every_accept = false;
  // Unscripted (loaded by a batch server a test runs), each logon's ping fails.
  int call_result = RFC_FAILURE;  // RFC_OK from the first Reset on
  ReceiveScript receive;                                // none: 0, nothing written
  std::map<std::string, ReceiveScript> receive_by_function;  // by the last RfcCall
  int install_result = RFC_OK;
  std::deque<int> listen_results;  // then listen_default
  int listen_default = RFC_NOTHING_WAITING;
  std::deque<std::string> pending_calls;  // RfcDispatch runs them through the catch-all
  int dispatch_default = RFC_CLOSED;
  int get_name_result = RFC_OK, get_data_result = RFC_OK, send_data_result = RFC_OK;
  ConnectionAttributes attributes{};
  RFC_ERROR_INFO last_error{};
  ErrorInfoEx last_error_ex{}, accept_error_ex{};  // the latter after a thread's failed accept
  int itcreate_failures = 0, itfree_result = 0, itdelete_result = 0;
  unsigned max_lines = 1000000;      // ItGupLine refuses lines beyond
  std::set<unsigned> missing_lines;  // ItGetLine answers null for these
  std::function<void(unsigned line)> on_get_line;  // ItGetLine's first step, unlocked: may change tables
  // The registration check: its code, and the counts it writes (total = ready = check_total).
  int check_result = RFC_OK, check_total = 0;

  std::vector<Record> log;
  std::vector<Open> opens;
  std::vector<Exchange> calls, receives;
  std::vector<Install> installs;
  std::vector<std::pair<std::string, std::string>> installed;  // functions: name, docu
  RfcServerFunction catch_all = nullptr;
  std::vector<TableHandle> deleted;
  int accepts = 0, opens_in_progress = 0, most_opens_at_once = 0;
  std::vector<std::pair<ConnectionHandle, std::string>> current_names;
  std::string last_called;
  std::map<uintptr_t, Table> tables;
  // Never reused across resets, so that no two tests see one handle twice.
  RfcTypeHandle next_type = 0x10000;
  uintptr_t next_table = 0x1000;

  void Reset() {
    State fresh;
    fresh.call_result = RFC_OK;
    fresh.next_type = next_type;
    fresh.next_table = next_table;
    *this = std::move(fresh);
  }
  template <typename T>
  static std::vector<T> Named(const std::vector<T>& all, std::string T::*key, const std::string& name) {
    std::vector<T> found;
    std::copy_if(all.begin(), all.end(), std::back_inserter(found), [&](const T& x) { return x.*key == name; });
    return found;
  }
  std::vector<Record> CallsOf(const std::string& entry) const { return Named(log, &Record::entry, entry); }
  std::vector<Install> InstallsOf(const std::string& name) const { return Named(installs, &Install::name, name); }
  Table* Find(TableHandle handle) {
    auto it = tables.find(reinterpret_cast<uintptr_t>(handle));
    return it == tables.end() ? nullptr : &it->second;
  }
  TableHandle NewTable(unsigned line_length) {
    const uintptr_t id = next_table++;
    tables[id].line_length = line_length;
    return reinterpret_cast<TableHandle>(id);
  }
  // Appends a line that starts with `bytes` (zero-filled after them).
  void AppendLine(TableHandle handle, const std::string& bytes) {
    Table* table = Find(handle);
    if (table == nullptr) return;
    auto line = std::make_unique<unsigned char[]>(table->line_length);
    std::memcpy(line.get(), bytes.data(), std::min<size_t>(bytes.size(), table->line_length));
    table->lines.push_back(std::move(line));
  }
  static void Fill(char* field, size_t size, const std::string& text) {
    std::memset(field, 0, size);
    std::memcpy(field, text.data(), std::min(size - 1, text.size()));
  }
  void SetLastError(const std::string& key, const std::string& status, const std::string& message) {
    Fill(last_error.key, sizeof last_error.key, key);
    Fill(last_error.status, sizeof last_error.status, status);
    Fill(last_error.message, sizeof last_error.message, message);
  }
  static void SetErrorEx(ErrorInfoEx& target, int group, const std::string& key, const std::string& message) {
    target.group = group;
    Fill(target.key, sizeof target.key, key);
    Fill(target.message, sizeof target.message, message);
  }
};

// The state of the stand-in library at `path`; the library stays loaded.
extern "C" typedef State* (*StandInRfc_t)(void);
inline State& StandIn(const std::string& path) {
  platform::LibraryHandle library = platform::LoadDynamicLibrary(path);
  auto get = reinterpret_cast<StandInRfc_t>(platform::GetLibrarySymbol(library, "StandInRfc"));
  if (get == nullptr) throw std::runtime_error("no stand-in RFC library at " + path);
  return *get();
}

}  // namespace stand_in
