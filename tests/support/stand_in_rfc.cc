// The entry points of the stand-in RFC library (see stand_in_rfc.h).

#define RFC_LIBRARY_IMPLEMENTATION
#include "tests/support/stand_in_rfc.h"

#include <mutex>
#include <thread>
#include <type_traits>

namespace {

stand_in::State g_state;
// Pool threads call at once; scripts and the catch-all run outside the lock.
std::recursive_mutex g_mutex;
using Hold = std::unique_lock<std::recursive_mutex>;
thread_local bool t_accept_failed = false;

std::string Text(const char* text) { return text != nullptr ? text : ""; }

void Log(const std::string& entry, ConnectionHandle handle, const std::string& text = "") {
  Hold hold(g_mutex);
  g_state.log.push_back(stand_in::Record{entry, handle, text});
}

template <typename Array>
std::vector<stand_in::Entry> Read(const Array* array) {
  std::vector<stand_in::Entry> entries;
  for (; array != nullptr && array->name != nullptr; ++array) {
    stand_in::Entry entry{std::string(static_cast<const char*>(array->name), array->name_length), array->type, 0, {}, nullptr};
    if constexpr (std::is_same_v<Array, RfcParameterEntry>) {
      entry.length = array->length;
      if (array->address != nullptr) entry.bytes.assign(static_cast<const char*>(array->address), array->length);
    } else {
      entry.length = array->line_length;
      entry.handle = array->handle;
    }
    entries.push_back(entry);
  }
  return entries;
}

std::string OptionBlock(const OpenOptions& o) {
  const std::string mode = std::to_string(o.mode) + ": ";
  if (o.options == nullptr) return mode + "none";
  auto or_dash = [](const char* text) { return text != nullptr ? std::string(text) : "-"; };
  switch (o.mode) {
    case RFC_MODE_APPLICATION_SERVER: {
      const auto* b = static_cast<const ApplicationServerOptions*>(o.options);
      return mode + Text(b->host) + " " + std::to_string(b->system_number) + " " +
             Text(b->gateway_host) + " " + Text(b->gateway_service);
    }
    case RFC_MODE_GATEWAY: {
      const auto* b = static_cast<const GatewayLogonOptions*>(o.options);
      return mode + Text(b->gateway_host) + " " + Text(b->gateway_service);
    }
    case RFC_MODE_SERVER_LOGON: {
      const auto* b = static_cast<const ServerLogonOptions*>(o.options);
      return mode + or_dash(b->host) + " " + std::to_string(b->system_number) + " lb" +
             std::to_string(b->load_balancing) + " " + or_dash(b->message_server_host) + " " +
             Text(b->system_name) + " " + Text(b->group) + " " + std::to_string(b->mode3_flag) +
             " " + std::to_string(b->reserved);
    }
    default:
      return mode + "?";
  }
}

}  // namespace

extern "C" {

RFC_LIBRARY_EXPORT stand_in::State* StandInRfc(void) { return &g_state; }

ConnectionHandle RfcOpen(OpenOptions* options) {
  Log("RfcOpen", 0);
  stand_in::Open open;
  Hold hold(g_mutex);
  g_state.most_opens_at_once = std::max(g_state.most_opens_at_once, ++g_state.opens_in_progress);
  const int sleep_ms = g_state.open_sleep_ms;
  hold.unlock();  // threads open at once
  open.started = std::chrono::steady_clock::now();
  if (options != nullptr) {
    open.mode = options->mode;
    open.trace = options->trace;
    open.logon = Text(options->destination) + " " + Text(options->client) + " " + Text(options->user) + " " +
                 Text(options->password) + " " + Text(options->language);
    open.block = OptionBlock(*options);
  }
  if (sleep_ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(sleep_ms));
  hold.lock();
  --g_state.opens_in_progress;
  open.returned = std::chrono::steady_clock::now();
  g_state.opens.push_back(open);
  return g_state.open_result;
}

ConnectionHandle RfcAccept(char** argv) {
  std::string words;
  for (char** word = argv; word != nullptr && *word != nullptr; ++word) {
    words += (words.empty() ? "" : " ") + std::string(*word);
  }
  Hold hold(g_mutex);
  const int number = ++g_state.accepts;
  const bool accepted = !g_state.fail_every_accept && g_state.failing_accepts.count(number) == 0;
  const ConnectionHandle handle = accepted ? g_state.first_handle + static_cast<ConnectionHandle>(number - 1) : 0;
  t_accept_failed = handle == 0;
  Log("RfcAccept", handle, words);
  return handle;
}

void RfcClose(ConnectionHandle handle) { Log("RfcClose", handle); }

int RfcCall(ConnectionHandle handle, const char* function, RfcParameterEntry* imports, RfcTableEntry* tables) {
  Log("RfcCall", handle, Text(function));
  Hold hold(g_mutex);
  g_state.calls.push_back({Text(function), imports, tables, Read(imports), Read(tables)});
  g_state.last_called = Text(function);
  return g_state.call_result;
}

int RfcReceive(ConnectionHandle handle, RfcParameterEntry* exports, RfcTableEntry* tables, char** exception) {
  Log("RfcReceive", handle);
  Hold hold(g_mutex);
  g_state.receives.push_back({"", exports, tables, Read(exports), Read(tables)});
  auto found = g_state.receive_by_function.find(g_state.last_called);
  const stand_in::ReceiveScript script = found != g_state.receive_by_function.end() ? found->second : g_state.receive;
  hold.unlock();  // scripts call back into the library
  return script ? script(exports, tables, exception) : RFC_OK;
}

int RfcInstallStructure(const char* name, RfcTypeElement* elements, unsigned count, RfcTypeHandle* type_handle) {
  Log("RfcInstallStructure", 0, Text(name));
  Hold hold(g_mutex);
  stand_in::Install install{Text(name), {}, 0};
  for (unsigned i = 0; i < count; ++i) {
    install.elements.push_back({Text(elements[i].name), elements[i].type, elements[i].length, elements[i].decimals});
  }
  if (g_state.install_result == RFC_OK) install.handle = g_state.next_type++;
  if (type_handle != nullptr) *type_handle = install.handle;
  g_state.installs.push_back(install);
  return g_state.install_result;
}

int RfcInstallFunction(const char* name, RfcServerFunction function, const char* documentation) {
  Log("RfcInstallFunction", 0, Text(name));
  Hold hold(g_mutex);
  g_state.installed.emplace_back(Text(name), documentation != nullptr ? documentation : "(null)");
  if (Text(name) == RFC_GLOBAL_SERVER_NAME) g_state.catch_all = function;
  return RFC_OK;
}

int RfcListen(ConnectionHandle handle) {
  Hold hold(g_mutex);
  const int result = g_state.listen_results.empty() ? g_state.listen_default : g_state.listen_results.front();
  if (!g_state.listen_results.empty()) g_state.listen_results.pop_front();
  Log("RfcListen", handle, std::to_string(result));
  return result;
}

int RfcDispatch(ConnectionHandle handle) {
  Hold hold(g_mutex);
  const bool pending = !g_state.pending_calls.empty();
  const int result = pending ? RFC_OK : g_state.dispatch_default;
  const RfcServerFunction function = pending ? g_state.catch_all : nullptr;
  if (pending) {
    g_state.current_names.emplace_back(handle, g_state.pending_calls.front());
    g_state.pending_calls.pop_front();
  }
  Log("RfcDispatch", handle, std::to_string(result));
  hold.unlock();  // the catch-all calls back into the library
  if (function != nullptr) function(handle);
  return result;
}

int RfcGetName(ConnectionHandle handle, char* name) {
  Hold hold(g_mutex);
  std::string current;  // the name last dispatched on this handle
  for (const auto& [dispatched_on, function] : g_state.current_names) current = dispatched_on == handle ? function : current;
  if (name != nullptr) stand_in::State::Fill(name, RFC_FUNCTION_NAME_SIZE, current);
  Log("RfcGetName", handle, current);
  return g_state.get_name_result;
}

int RfcGetData(ConnectionHandle handle, RfcParameterEntry*, RfcTableEntry*) {
  Log("RfcGetData", handle);
  Hold hold(g_mutex);
  return g_state.get_data_result;
}

int RfcSendData(ConnectionHandle handle, RfcParameterEntry*, RfcTableEntry*) {
  Log("RfcSendData", handle);
  Hold hold(g_mutex);
  return g_state.send_data_result;
}

int RfcRaise(ConnectionHandle handle, const char* exception) {
  Log("RfcRaise", handle, Text(exception));
  return RFC_OK;
}

int RfcGetAttributes(ConnectionHandle handle, ConnectionAttributes* attributes) {
  Log("RfcGetAttributes", handle);
  Hold hold(g_mutex);
  if (attributes != nullptr) *attributes = g_state.attributes;
  return RFC_OK;
}

int RfcLastError(RFC_ERROR_INFO* error) {
  Hold hold(g_mutex);
  if (error != nullptr) *error = g_state.last_error;
  return RFC_OK;
}

int RfcLastErrorEx(ErrorInfoEx* error) {
  Hold hold(g_mutex);
  if (error != nullptr) *error = t_accept_failed ? g_state.accept_error_ex : g_state.last_error_ex;
  return RFC_OK;
}

TableHandle ItCreate(const char*, unsigned line_length, unsigned, unsigned) {
  Log("ItCreate", 0);
  Hold hold(g_mutex);
  if (g_state.itcreate_failures == 0) return g_state.NewTable(line_length);
  --g_state.itcreate_failures;
  return nullptr;
}

int ItFree(TableHandle handle) {
  Log("ItFree", 0);
  Hold hold(g_mutex);
  stand_in::Table* table = g_state.Find(handle);
  if (g_state.itfree_result != 0) return g_state.itfree_result;
  if (table == nullptr) return 1;
  table->lines.clear();
  return 0;
}

int ItDelete(TableHandle handle) {
  Log("ItDelete", 0);
  Hold hold(g_mutex);
  if (g_state.itdelete_result != 0) return g_state.itdelete_result;
  if (g_state.tables.erase(reinterpret_cast<uintptr_t>(handle)) == 0) return 1;
  g_state.deleted.push_back(handle);
  return 0;
}

unsigned ItFill(TableHandle handle) {
  Hold hold(g_mutex);
  stand_in::Table* table = g_state.Find(handle);
  return table != nullptr ? static_cast<unsigned>(table->lines.size()) : 0;
}

void* ItGetLine(TableHandle handle, unsigned line) {
  Hold hold(g_mutex);
  const std::function<void(unsigned)> hook = g_state.on_get_line;
  hold.unlock();  // the hook may change tables
  if (hook) hook(line);
  hold.lock();
  stand_in::Table* table = g_state.Find(handle);
  if (table == nullptr || line == 0 || line > table->lines.size()) return nullptr;
  return g_state.missing_lines.count(line) != 0 ? nullptr : table->lines[line - 1].get();
}

void* ItGupLine(TableHandle handle, unsigned line) {
  Hold hold(g_mutex);
  stand_in::Table* table = g_state.Find(handle);
  if (table == nullptr || line == 0 || line > g_state.max_lines) return nullptr;
  // One spare byte: a test may widen a table's description by a byte after
  // its lines exist (the access fault test does).
  while (table->lines.size() < line) {
    table->lines.push_back(std::make_unique<unsigned char[]>(table->line_length + 1));
  }
  return table->lines[line - 1].get();
}

#ifndef STAND_IN_WITHOUT_CHECK_REGISTER_SERVER
int RfcCheckRegisterServer(const char* program_id, const char*, const char*, int* total,
                           int* initialising, int* ready, int* busy, ErrorInfoEx*) {
  Log("RfcCheckRegisterServer", 0, Text(program_id));
  Hold hold(g_mutex);
  if (total != nullptr) {
    *total = *ready = g_state.check_total;
    *initialising = *busy = 0;
  }
  return g_state.check_result;
}
#endif

int RfcCancelRegisterServer(const char* program_id, const char*, const char*, int*, int*, ErrorInfoEx*) {
  Log("RfcCancelRegisterServer", 0, Text(program_id));
  return RFC_OK;
}

}  // extern "C"
