// The scripted stand-in RFC library (see scripted_rfc_library.h).

#define RFC_LIBRARY_IMPLEMENTATION
#include "tests/e2e/scripted_rfc_library.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>

namespace {

ScriptedRfc g_script;
thread_local bool t_accept_failed = false;

void Copy(char* field, size_t size, const std::string& text) { ScriptedRfc::Fill(field, size, text); }

void Record(const std::string& entry, ConnectionHandle handle, const std::string& text,
            std::vector<std::string> names = {}) {
  std::lock_guard<std::mutex> hold(g_script.lock);
  g_script.calls.push_back(ScriptedRfcCall{entry, handle, text, std::move(names)});
}

// The names of a parameter or table array (up to its end entry).
template <typename Entry>
std::vector<std::string> Names(const Entry* entries) {
  std::vector<std::string> names;
  for (; entries != nullptr && entries->name != nullptr; ++entries) {
    names.emplace_back(static_cast<const char*>(entries->name), entries->name_length);
  }
  return names;
}

// Records a data exchange as "parameters | tables" and answers `result`.
int Exchange(const char* entry, ConnectionHandle handle, const RfcParameterEntry* parameters,
             const RfcTableEntry* tables, const int& result) {
  std::vector<std::string> names = Names(parameters);
  names.push_back("|");
  for (std::string& name : Names(tables)) names.push_back(name);
  Record(entry, handle, "", names);
  std::lock_guard<std::mutex> hold(g_script.lock);
  return result;
}

// Internal tables: enough for the class library's table parameters.
struct Table {
  unsigned line_length = 0;
  std::vector<std::unique_ptr<unsigned char[]>> lines;
};
std::map<TableHandle, std::unique_ptr<Table>> g_tables;
uintptr_t g_next_table = 0x1000;
RfcTypeHandle g_next_type = 0x10000;

Table* FindTable(TableHandle handle) {
  auto it = g_tables.find(handle);
  return it == g_tables.end() ? nullptr : it->second.get();
}

}  // namespace

extern "C" {

RFC_LIBRARY_EXPORT ScriptedRfc* ScriptedRfcScript(void) { return &g_script; }

ConnectionHandle RfcOpen(OpenOptions*) {
  Record("RfcOpen", 0, "");
  return 0;
}

ConnectionHandle RfcAccept(char** argv) {
  std::string words;
  for (char** word = argv; word != nullptr && *word != nullptr; ++word) {
    if (!words.empty()) words += ' ';
    words += *word;
  }
  ConnectionHandle handle = 0;
  {
    std::lock_guard<std::mutex> hold(g_script.lock);
    const int number = ++g_script.accepts;
    if (!g_script.fail_every_accept && g_script.failing_accepts.count(number) == 0) {
      handle = g_script.first_handle + static_cast<ConnectionHandle>(number - 1);
    }
  }
  t_accept_failed = handle == 0;
  Record("RfcAccept", handle, words);
  return handle;
}

void RfcClose(ConnectionHandle handle) { Record("RfcClose", handle, ""); }

int RfcCall(ConnectionHandle handle, const char* function, RfcParameterEntry* imports,
            RfcTableEntry* tables) {
  std::vector<std::string> names = Names(imports);
  for (std::string& name : Names(tables)) names.push_back(name);
  Record("RfcCall", handle, function != nullptr ? function : "", names);
  return RFC_FAILURE;
}

int RfcReceive(ConnectionHandle handle, RfcParameterEntry*, RfcTableEntry*, char**) {
  Record("RfcReceive", handle, "");
  return RFC_FAILURE;
}

int RfcInstallStructure(const char* name, RfcTypeElement*, unsigned, RfcTypeHandle* type_handle) {
  Record("RfcInstallStructure", 0, name != nullptr ? name : "");
  std::lock_guard<std::mutex> hold(g_script.lock);
  *type_handle = g_next_type++;
  return RFC_OK;
}

int RfcInstallFunction(const char* name, RfcServerFunction function, const char* documentation) {
  Record("RfcInstallFunction", 0, name != nullptr ? name : "");
  std::lock_guard<std::mutex> hold(g_script.lock);
  const std::string text = name != nullptr ? name : "";
  g_script.installed.emplace_back(text, documentation != nullptr ? documentation : "(null)");
  if (text == RFC_GLOBAL_SERVER_NAME) g_script.catch_all = function;
  return RFC_OK;
}

int RfcListen(ConnectionHandle handle) {
  int result;
  {
    std::lock_guard<std::mutex> hold(g_script.lock);
    if (g_script.listen_results.empty()) {
      result = g_script.listen_default;
    } else {
      result = g_script.listen_results.front();
      g_script.listen_results.pop_front();
    }
  }
  Record("RfcListen", handle, std::to_string(result));
  return result;
}

int RfcDispatch(ConnectionHandle handle) {
  RfcServerFunction function = nullptr;
  int result;
  {
    std::lock_guard<std::mutex> hold(g_script.lock);
    if (g_script.pending_calls.empty()) {
      result = g_script.dispatch_default;
    } else {
      g_script.current_names.emplace_back(handle, g_script.pending_calls.front());
      g_script.pending_calls.pop_front();
      function = g_script.catch_all;
      result = RFC_OK;
    }
  }
  Record("RfcDispatch", handle, std::to_string(result));
  if (function != nullptr) function(handle);
  return result;
}

int RfcGetName(ConnectionHandle handle, char* name) {
  std::lock_guard<std::mutex> hold(g_script.lock);
  std::string current;
  for (auto it = g_script.current_names.rbegin(); it != g_script.current_names.rend(); ++it) {
    if (it->first == handle) {
      current = it->second;
      break;
    }
  }
  Copy(name, RFC_FUNCTION_NAME_SIZE, current);
  g_script.calls.push_back(ScriptedRfcCall{"RfcGetName", handle, current, {}});
  return g_script.get_name_result;
}

int RfcGetData(ConnectionHandle handle, RfcParameterEntry* imports, RfcTableEntry* tables) {
  return Exchange("RfcGetData", handle, imports, tables, g_script.get_data_result);
}

int RfcSendData(ConnectionHandle handle, RfcParameterEntry* exports, RfcTableEntry* tables) {
  return Exchange("RfcSendData", handle, exports, tables, g_script.send_data_result);
}

int RfcRaise(ConnectionHandle handle, const char* exception) {
  Record("RfcRaise", handle, exception != nullptr ? exception : "");
  return RFC_OK;
}

int RfcGetAttributes(ConnectionHandle handle, ConnectionAttributes* attributes) {
  Record("RfcGetAttributes", handle, "");
  std::lock_guard<std::mutex> hold(g_script.lock);
  std::memset(attributes, 0, sizeof *attributes);
  Copy(attributes->partner_release, sizeof attributes->partner_release, g_script.partner_release);
  Copy(attributes->kernel_release, sizeof attributes->kernel_release, "46D");
  return RFC_OK;
}

int RfcLastError(RFC_ERROR_INFO* error) {
  std::lock_guard<std::mutex> hold(g_script.lock);
  *error = g_script.last_error;
  return RFC_OK;
}

int RfcLastErrorEx(ErrorInfoEx* error) {
  std::lock_guard<std::mutex> hold(g_script.lock);
  *error = t_accept_failed ? g_script.accept_error_ex : g_script.last_error_ex;
  return RFC_OK;
}

TableHandle ItCreate(const char*, unsigned line_length, unsigned, unsigned) {
  std::lock_guard<std::mutex> hold(g_script.lock);
  auto handle = reinterpret_cast<TableHandle>(g_next_table++);
  auto table = std::make_unique<Table>();
  table->line_length = line_length;
  g_tables[handle] = std::move(table);
  return handle;
}

int ItFree(TableHandle handle) {
  std::lock_guard<std::mutex> hold(g_script.lock);
  Table* table = FindTable(handle);
  if (table == nullptr) return 1;
  table->lines.clear();
  return 0;
}

int ItDelete(TableHandle handle) {
  std::lock_guard<std::mutex> hold(g_script.lock);
  return g_tables.erase(handle) == 1 ? 0 : 1;
}

unsigned ItFill(TableHandle handle) {
  std::lock_guard<std::mutex> hold(g_script.lock);
  Table* table = FindTable(handle);
  return table == nullptr ? 0 : static_cast<unsigned>(table->lines.size());
}

void* ItGetLine(TableHandle handle, unsigned line) {
  if (g_script.on_get_line != nullptr) g_script.on_get_line(g_script.get_line_context, line);
  std::lock_guard<std::mutex> hold(g_script.lock);
  if (line == g_script.missing_line) return nullptr;
  Table* table = FindTable(handle);
  if (table == nullptr || line == 0 || line > table->lines.size()) return nullptr;
  return table->lines[line - 1].get();
}

void* ItGupLine(TableHandle handle, unsigned line) {
  std::lock_guard<std::mutex> hold(g_script.lock);
  Table* table = FindTable(handle);
  if (table == nullptr || line == 0) return nullptr;
  while (table->lines.size() < line) {
    table->lines.push_back(std::make_unique<unsigned char[]>(table->line_length + 1));
  }
  return table->lines[line - 1].get();
}

int RfcCheckRegisterServer(const char*, const char*, const char*, int* total, int* initialising,
                           int* ready, int* busy, ErrorInfoEx*) {
  std::lock_guard<std::mutex> hold(g_script.lock);
  if (g_script.write_counts) {
    *total = *ready = g_script.check_total;
    *initialising = *busy = 0;
  }
  return g_script.check_result;
}

int RfcCancelRegisterServer(const char*, const char*, const char*, int* total, int* cancelled,
                            ErrorInfoEx*) {
  std::lock_guard<std::mutex> hold(g_script.lock);
  if (g_script.write_counts) *total = *cancelled = g_script.cancel_cancelled;
  return g_script.cancel_result;
}

}  // extern "C"
