// The entry points of the fake RFC library (see fake_rfc_library.h).

#define RFC_LIBRARY_IMPLEMENTATION
#include "tests/rfc/function/fake_rfc_library.h"

#include <mutex>
#include <thread>

namespace {

fake_rfc::State g_state;
// Several threads open connections at once; the script may call back in.
std::recursive_mutex g_mutex;

using Hold = std::lock_guard<std::recursive_mutex>;

std::string Text(const char* text) { return text != nullptr ? text : ""; }

std::vector<fake_rfc::Param> ReadParams(const RfcParameterEntry* entries) {
  std::vector<fake_rfc::Param> params;
  for (const RfcParameterEntry* entry = entries; entry != nullptr && entry->name != nullptr;
       ++entry) {
    fake_rfc::Param param;
    param.name.assign(static_cast<const char*>(entry->name), entry->name_length);
    param.type = entry->type;
    param.length = entry->length;
    if (entry->address != nullptr) {
      param.bytes.assign(static_cast<const char*>(entry->address), entry->length);
    }
    params.push_back(param);
  }
  return params;
}

std::vector<fake_rfc::Table> ReadTables(const RfcTableEntry* entries) {
  std::vector<fake_rfc::Table> tables;
  for (const RfcTableEntry* entry = entries; entry != nullptr && entry->name != nullptr; ++entry) {
    fake_rfc::Table table;
    table.name.assign(static_cast<const char*>(entry->name), entry->name_length);
    table.type = entry->type;
    table.line_length = entry->line_length;
    table.handle = entry->handle;
    tables.push_back(table);
  }
  return tables;
}

}  // namespace

extern "C" {

RFC_LIBRARY_EXPORT fake_rfc::State* FakeRfc(void) { return &g_state; }

ConnectionHandle RfcOpen(OpenOptions* options) {
  fake_rfc::Open open;
  {
    Hold hold(g_mutex);
    g_state.log.push_back("RfcOpen");
    ++g_state.opens_in_progress;
    g_state.most_opens_at_once = std::max(g_state.most_opens_at_once, g_state.opens_in_progress);
  }
  open.started = std::chrono::steady_clock::now();
  open.destination = Text(options->destination);
  open.mode = options->mode;
  open.client = Text(options->client);
  open.user = Text(options->user);
  open.password = Text(options->password);
  open.language = Text(options->language);
  open.trace = options->trace;
  open.has_options = options->options != nullptr;
  if (options->options != nullptr) {
    switch (options->mode) {
      case RFC_MODE_APPLICATION_SERVER: {
        const auto* block = static_cast<const ApplicationServerOptions*>(options->options);
        open.host = Text(block->host);
        open.system_number = block->system_number;
        open.gateway_host = Text(block->gateway_host);
        open.gateway_service = Text(block->gateway_service);
        break;
      }
      case RFC_MODE_GATEWAY: {
        const auto* block = static_cast<const GatewayLogonOptions*>(options->options);
        open.gateway_host = Text(block->gateway_host);
        open.gateway_service = Text(block->gateway_service);
        break;
      }
      case RFC_MODE_SERVER_LOGON: {
        const auto* block = static_cast<const ServerLogonOptions*>(options->options);
        open.host_null = block->host == nullptr;
        open.host = Text(block->host);
        open.system_number = block->system_number;
        open.load_balancing = block->load_balancing;
        open.message_server_null = block->message_server_host == nullptr;
        open.message_server_host = Text(block->message_server_host);
        open.system_name = Text(block->system_name);
        open.group = Text(block->group);
        open.mode3_flag = block->mode3_flag;
        open.reserved = block->reserved;
        break;
      }
      default:
        break;
    }
  }
  int sleep_ms = 0;
  {
    Hold hold(g_mutex);
    sleep_ms = g_state.open_sleep_ms;
  }
  if (sleep_ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(sleep_ms));
  Hold hold(g_mutex);
  --g_state.opens_in_progress;
  open.returned = std::chrono::steady_clock::now();
  g_state.opens.push_back(open);
  return g_state.open_result;
}

ConnectionHandle RfcAccept(char** argv) {
  Hold hold(g_mutex);
  g_state.log.push_back("RfcAccept");
  g_state.accepts.push_back(argv);
  return g_state.accept_result;
}

void RfcClose(ConnectionHandle handle) {
  Hold hold(g_mutex);
  g_state.log.push_back("RfcClose");
  g_state.closes.push_back(handle);
}

int RfcCall(ConnectionHandle handle, const char* function, RfcParameterEntry* imports,
            RfcTableEntry* tables) {
  Hold hold(g_mutex);
  g_state.log.push_back("RfcCall");
  fake_rfc::Call call;
  call.handle = handle;
  call.function = Text(function);
  call.import_array = imports;
  call.table_array = tables;
  call.imports = ReadParams(imports);
  call.tables = ReadTables(tables);
  g_state.calls.push_back(call);
  g_state.last_called = call.function;
  return g_state.call_result;
}

int RfcReceive(ConnectionHandle, RfcParameterEntry* exports, RfcTableEntry* tables,
               char** exception) {
  fake_rfc::ReceiveScript script;
  {
    Hold hold(g_mutex);
    g_state.log.push_back("RfcReceive");
    fake_rfc::Receive receive;
    receive.export_array = exports;
    receive.table_array = tables;
    receive.exports = ReadParams(exports);
    receive.tables = ReadTables(tables);
    g_state.receives.push_back(receive);
    auto found = g_state.receive_by_function.find(g_state.last_called);
    script = found != g_state.receive_by_function.end() ? found->second : g_state.receive;
  }
  // The script may call the table entry points itself.
  return script ? script(exports, tables, exception) : 0;
}

int RfcInstallStructure(const char* name, RfcTypeElement* elements, unsigned count,
                        RfcTypeHandle* type_handle) {
  Hold hold(g_mutex);
  g_state.log.push_back("RfcInstallStructure");
  fake_rfc::Install install;
  install.name = Text(name);
  for (unsigned i = 0; i < count; ++i) {
    install.elements.push_back(
        {Text(elements[i].name), elements[i].type, elements[i].length, elements[i].decimals});
  }
  install.result = g_state.install_result;
  if (install.result == 0) {
    install.handle = g_state.next_type_handle++;
    *type_handle = install.handle;
  }
  g_state.installs.push_back(install);
  return install.result;
}

int RfcInstallFunction(const char*, RfcServerFunction, const char*) {
  Hold hold(g_mutex);
  g_state.log.push_back("RfcInstallFunction");
  return 0;
}

int RfcListen(ConnectionHandle) { return RFC_NOTHING_WAITING; }
int RfcDispatch(ConnectionHandle) { return RFC_CLOSED; }
int RfcGetName(ConnectionHandle, char* name) {
  name[0] = '\0';
  return RFC_FAILURE;
}
int RfcGetData(ConnectionHandle, RfcParameterEntry*, RfcTableEntry*) { return RFC_FAILURE; }
int RfcSendData(ConnectionHandle, RfcParameterEntry*, RfcTableEntry*) { return RFC_FAILURE; }
int RfcRaise(ConnectionHandle, const char*) { return RFC_FAILURE; }

int RfcGetAttributes(ConnectionHandle, ConnectionAttributes* attributes) {
  Hold hold(g_mutex);
  g_state.log.push_back("RfcGetAttributes");
  *attributes = g_state.attributes;
  return 0;
}

int RfcLastError(RFC_ERROR_INFO* error) {
  Hold hold(g_mutex);
  g_state.log.push_back("RfcLastError");
  *error = g_state.last_error;
  return 0;
}

int RfcLastErrorEx(ErrorInfoEx* error) {
  *error = ErrorInfoEx{};
  return 0;
}

TableHandle ItCreate(const char* name, unsigned line_length, unsigned, unsigned) {
  Hold hold(g_mutex);
  g_state.log.push_back("ItCreate");
  if (g_state.itcreate_failures > 0) {
    --g_state.itcreate_failures;
    return nullptr;
  }
  TableHandle handle = g_state.NewTable(Text(name), line_length);
  g_state.created.push_back(handle);
  return handle;
}

int ItFree(TableHandle table) {
  Hold hold(g_mutex);
  g_state.log.push_back("ItFree");
  if (g_state.itfree_result != 0) return g_state.itfree_result;
  fake_rfc::ItTable* found = g_state.Find(table);
  if (found == nullptr) return 1;
  found->lines.clear();
  return 0;
}

int ItDelete(TableHandle table) {
  Hold hold(g_mutex);
  g_state.log.push_back("ItDelete");
  if (g_state.itdelete_result != 0) return g_state.itdelete_result;
  if (g_state.tables.erase(reinterpret_cast<uintptr_t>(table)) == 0) return 1;
  g_state.deleted.push_back(table);
  return 0;
}

unsigned ItFill(TableHandle table) {
  Hold hold(g_mutex);
  return static_cast<unsigned>(g_state.LineCount(table));
}

void* ItGetLine(TableHandle table, unsigned line) {
  Hold hold(g_mutex);
  fake_rfc::ItTable* found = g_state.Find(table);
  if (found == nullptr || line == 0 || line > found->lines.size()) return nullptr;
  if (g_state.missing_lines.count(line) != 0) return nullptr;
  return found->lines[line - 1].get();
}

void* ItGupLine(TableHandle table, unsigned line) {
  Hold hold(g_mutex);
  fake_rfc::ItTable* found = g_state.Find(table);
  if (found == nullptr || line == 0 || line > g_state.max_lines) return nullptr;
  while (found->lines.size() < line) {
    found->lines.push_back(std::make_unique<unsigned char[]>(found->line_length));
  }
  return found->lines[line - 1].get();
}

int RfcCheckRegisterServer(const char*, const char*, const char*, int*, int*, int*, int*,
                           ErrorInfoEx*) {
  return RFC_FAILURE;
}

int RfcCancelRegisterServer(const char*, const char*, const char*, int*, int*, ErrorInfoEx*) {
  return RFC_FAILURE;
}

}  // extern "C"
