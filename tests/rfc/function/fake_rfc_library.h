#pragma once
// A stand-in RFC library for the class library's unit tests. It is a real
// shared library exporting the C entry points, loaded through
// LoadRfcLibrary like the real one. It records what the class library hands
// it (arrays, entries, option blocks) and answers as the test scripts it;
// internal tables are real (lines are kept and handed out). The test reaches
// the state through the exported FakeRfc(); the library serialises its own
// entry points, and tests read the state only while no call is under way.
//
// Everything here is inline so that the library and the test executable
// agree on it without sharing code.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "rfc/binding/rfc_library_api.h"

namespace fake_rfc {

// One entry of a parameter array as the library saw it.
struct Param {
  std::string name;
  int type = 0;
  uint32_t length = 0;
  std::string bytes;  // the value's bytes at the time of the call
};

// One entry of a table array as the library saw it.
struct Table {
  std::string name;
  int type = 0;
  uint32_t line_length = 0;
  TableHandle handle = nullptr;
};

struct Call {
  ConnectionHandle handle = 0;
  std::string function;
  const RfcParameterEntry* import_array = nullptr;
  const RfcTableEntry* table_array = nullptr;
  std::vector<Param> imports;  // entries before the terminator
  std::vector<Table> tables;
};

struct Receive {
  const RfcParameterEntry* export_array = nullptr;
  const RfcTableEntry* table_array = nullptr;
  std::vector<Param> exports;
  std::vector<Table> tables;
};

struct Element {
  std::string name;
  int type = 0;
  int length = 0;
  int decimals = 0;
};

struct Install {
  std::string name;
  std::vector<Element> elements;
  RfcTypeHandle handle = 0;  // what the library answered with
  int result = 0;
};

struct Open {
  bool has_options = false;
  int mode = -1;
  std::string destination, client, user, password, language;
  int trace = -1;
  // The option block, read by the mode.
  std::string host, gateway_host, gateway_service, message_server_host, system_name, group;
  bool host_null = false, message_server_null = false;
  int system_number = -1, load_balancing = -1, mode3_flag = -1, reserved = -1;
  std::chrono::steady_clock::time_point started;
  std::chrono::steady_clock::time_point returned;
};

struct ItTable {
  std::string name;
  unsigned line_length = 0;
  std::vector<std::unique_ptr<unsigned char[]>> lines;
};

// The scripted receive: exports, tables and the exception out-argument as the
// class library handed them; returns the receive's code.
using ReceiveScript = std::function<int(RfcParameterEntry* exports, RfcTableEntry* tables,
                                        char** exception)>;

struct State {
  // ---- answers ----
  ConnectionHandle open_result = 7;
  ConnectionHandle accept_result = 9;
  RFC_ERROR_INFO last_error{};
  int call_result = 0;
  ReceiveScript receive;  // none: 0 and nothing written
  std::map<std::string, ReceiveScript> receive_by_function;  // by the last called name
  int install_result = 0;
  int itcreate_failures = 0;  // this many ItCreate calls give null
  int itfree_result = 0;
  int itdelete_result = 0;
  unsigned max_lines = 1000000;  // ItGupLine refuses lines beyond
  std::map<unsigned, bool> missing_lines;  // ItGetLine gives null for these numbers
  ConnectionAttributes attributes{};
  int open_sleep_ms = 0;  // time RfcOpen takes

  // ---- records ----
  std::vector<std::string> log;  // entry points in calling order
  std::vector<Open> opens;
  std::vector<char**> accepts;
  std::vector<ConnectionHandle> closes;
  std::vector<Call> calls;
  std::vector<Receive> receives;
  std::vector<Install> installs;
  std::vector<TableHandle> created, deleted;
  int opens_in_progress = 0;
  int most_opens_at_once = 0;
  std::string last_called;

  // ---- internal tables ----
  std::map<uintptr_t, ItTable> tables;

  // Handles keep counting up across resets, so that no two tests of one
  // process see the same handle for different things.
  RfcTypeHandle next_type_handle = 0x10000;
  uintptr_t next_table = 0x1000;

  // Everything back to the start but the handle counters.
  void Reset() {
    State fresh;
    fresh.next_type_handle = next_type_handle;
    fresh.next_table = next_table;
    *this = std::move(fresh);
  }

  ItTable* Find(TableHandle handle) {
    auto found = tables.find(reinterpret_cast<uintptr_t>(handle));
    return found != tables.end() ? &found->second : nullptr;
  }

  TableHandle NewTable(const std::string& name, unsigned line_length) {
    const uintptr_t id = next_table++;
    tables[id] = ItTable{name, line_length, {}};
    return reinterpret_cast<TableHandle>(id);
  }

  // Appends a line with `bytes` at its start (zero-filled after them).
  void AppendLine(TableHandle handle, const std::string& bytes) {
    ItTable* table = Find(handle);
    if (table == nullptr) return;
    auto line = std::make_unique<unsigned char[]>(table->line_length);
    std::memcpy(line.get(), bytes.data(), std::min<size_t>(bytes.size(), table->line_length));
    table->lines.push_back(std::move(line));
  }

  size_t LineCount(TableHandle handle) {
    ItTable* table = Find(handle);
    return table != nullptr ? table->lines.size() : 0;
  }

  size_t Count(const std::string& entry_point) const {
    size_t n = 0;
    for (const std::string& entry : log) n += entry == entry_point ? 1 : 0;
    return n;
  }

  std::vector<Install> InstallsOf(const std::string& name) const {
    std::vector<Install> found;
    for (const Install& install : installs) {
      if (install.name == name) found.push_back(install);
    }
    return found;
  }
};

}  // namespace fake_rfc

extern "C" {
typedef fake_rfc::State* (*FakeRfc_t)(void);
}
