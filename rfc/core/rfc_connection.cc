#include "rfc/core/rfc_connection.h"

#include <cstring>
#include <string>

#include "platform/clock.h"
#include "platform/critical_section.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_error.h"
#include "rfc/core/rfc_thrown_text.h"
#include "rfc/core/rfc_trace.h"
#include "rfc/function/rfc_client_func.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"

namespace {

constexpr uint32_t kOpenPauseMs = 20;
constexpr const char* kReleaseFailure = "CRfcConnection::GetR3Release() failure!!";
// The release fields of the attributes record hold 4 characters and a NUL.
constexpr size_t kReleaseCharacters = 4;

// Serialises RfcOpen and RfcAccept of every connection in the process.
platform::CriticalSection& OpenLock() {
  static platform::CriticalSection lock;
  return lock;
}

bool IsSet(const CRfcString& text) {
  const char* value = text;
  return value != nullptr && value[0] != '\0';
}

const char* TextOrEmpty(const char* text) { return text != nullptr ? text : ""; }

}  // namespace

CRfcConnection::CRfcConnection() {
  GetRfcTrace().WriteLine("CRfcConnection::CRfcConnection(void) called");
}

CRfcConnection::~CRfcConnection() {
  try {
    Close();
  } catch (...) {
    // A library without RfcClose: nothing more can be done here.
  }
  system_info_func_.reset();
  for (int i = 0; i < system_info_.GetCount(); ++i) delete system_info_.GetAt(i);
}

void CRfcConnection::SetLogonInfo(const CRfcLogonInfo& logon) {
  Close();
  logon_info_.client = logon.client;
  logon_info_.user = logon.user;
  logon_info_.password = logon.password;
  logon_info_.language = logon.language;
}

void CRfcConnection::SetConnInfo(const CRfcConnInfo& info) {
  Close();
  conn_info_.mode = info.mode;
  conn_info_.mode3_flag = info.mode3_flag;
  conn_info_.release = info.release;
  conn_info_.QuerySystemInfo = info.QuerySystemInfo;
  conn_info_.destination = info.destination;
  conn_info_.host = info.host;
  conn_info_.gateway_host = info.gateway_host;
  conn_info_.gateway_service = info.gateway_service;
  conn_info_.system_number = info.system_number;
  conn_info_.system_name = info.system_name;
  conn_info_.message_server_host = info.message_server_host;
  conn_info_.group = info.group;
}

void CRfcConnection::Open() {
  if (handle_ != 0) return;
  const CRfcConnInfo& info = conn_info_;
  switch (info.mode) {
    case RFC_MODE_APPLICATION_SERVER: {
      if (IsSet(info.host) && IsSet(info.gateway_host) && IsSet(info.gateway_service)) {
        ApplicationServerOptions options{info.host, info.system_number, info.gateway_host,
                                         info.gateway_service};
        DoOpen(&options);
      } else {
        DoOpen(nullptr);
      }
      return;
    }
    case RFC_MODE_GATEWAY: {
      if (IsSet(info.gateway_host) && IsSet(info.gateway_service)) {
        GatewayLogonOptions options{info.gateway_host, info.gateway_service};
        DoOpen(&options);
      } else {
        DoOpen(nullptr);
      }
      return;
    }
    case RFC_MODE_NONE:
      return;
    case RFC_MODE_SERVER_LOGON: {
      if (IsSet(info.host)) {
        ServerLogonOptions options{info.host, info.system_number, 0,      nullptr,
                                   nullptr,   nullptr,            info.mode3_flag, 0};
        DoOpen(&options);
      } else {
        DoOpen(nullptr);
      }
      return;
    }
    case RFC_MODE_DESTINATION:
      DoOpen(nullptr);
      return;
    default:
      return;
  }
}

void CRfcConnection::OpenLoadBalanced() {
  OpenViaMessageServer();
  if (Ping() == 0) ThrowRfcLastError(false);
}

void CRfcConnection::OpenViaMessageServer() {
  if (handle_ != 0) return;
  conn_info_.mode3_flag = 0;
  if (IsSet(conn_info_.message_server_host) && IsSet(conn_info_.system_name) &&
      IsSet(conn_info_.group)) {
    conn_info_.mode = RFC_MODE_SERVER_LOGON;
    ServerLogonOptions options{nullptr, 0, 1, conn_info_.message_server_host,
                               conn_info_.system_name, conn_info_.group, 0, 0};
    DoOpen(&options);
  } else {
    conn_info_.mode = RFC_MODE_DESTINATION;
    DoOpen(nullptr);
  }
}

void CRfcConnection::DoOpen(void* options) {
  OpenOptions open{conn_info_.destination, conn_info_.mode,       options,
                   logon_info_.client,     logon_info_.user,      logon_info_.password,
                   logon_info_.language,   trace_flag_};
  {
    platform::CriticalSectionLock hold(OpenLock());
    handle_ = RfcOpen(&open);
    platform::Sleep(kOpenPauseMs);
  }

  CRfcTrace& trace = GetRfcTrace();
  if (handle_ == 0) {
    trace.WriteHeader();
    trace.WriteLine("CRfcConnection::DoOpen (void *) failed!!");
    trace.WriteLine(TextOrEmpty(conn_info_.destination));
    trace.WriteLine(TextOrEmpty(logon_info_.client));
    trace.WriteLine(TextOrEmpty(logon_info_.user));
    ThrowRfcLastError(true);
  }
  // Owned from here on, so that a handle whose first ping fails is still
  // closed by Close.
  owns_handle_ = 1;
  if (Ping() == 0) ThrowRfcLastError(false);

  trace.WriteHeader();
  trace.WriteLine("CRfcConnection::DoOpen (void *) called");
  trace.WriteLine("Opening connection to: ");
  trace.WriteLine(TextOrEmpty(conn_info_.destination));
  trace.WriteLine(TextOrEmpty(logon_info_.client));
  trace.WriteLine(TextOrEmpty(logon_info_.user));

  if (!(conn_info_.release == kReleaseUnknown)) {
    conn_info_.release.MakeUpper();
    return;
  }
  GetR3Release();
  if (conn_info_.QuerySystemInfo != 0 && !system_info_func_) GetSystemInfo();
}

void CRfcConnection::Accept(char** argv) {
  argv_ = argv;
  Close();
  {
    platform::CriticalSectionLock hold(OpenLock());
    handle_ = RfcAccept(argv);
    platform::Sleep(kOpenPauseMs);
  }
  CRfcTrace& trace = GetRfcTrace();
  if (handle_ == 0) {
    trace.WriteHeader();
    trace.WriteLine("CRfcConnection::Accept (char**): RfcAccept failure");
    ThrowRfcLastError(false);
  }
  trace.WriteHeader();
  trace.WriteLine("CRfcConnection::Accept(char**) succeeded");
  owns_handle_ = 1;
}

void CRfcConnection::Close() {
  if (handle_ == 0 || owns_handle_ == 0) return;
  RfcClose(handle_);
  CRfcTrace& trace = GetRfcTrace();
  trace.WriteHeader();
  trace.WriteLine("CRfcConnection::Close(void) called");
  handle_ = 0;
}

void CRfcConnection::AttachHandle(ConnectionHandle handle) {
  Close();
  handle_ = handle;
  owns_handle_ = 0;
}

ConnectionHandle CRfcConnection::Ping() {
  if (handle_ == 0) return 0;
  std::unique_ptr<CRfcClientFunc> ping;
  try {
    ping = rfc::RfcAllocate<CRfcClientFunc>(this, "RFCPING", 0);
  } catch (const char*) {
    ping.reset();
  }
  if (!ping) {
    GetRfcTrace().WriteLine(kRfcAllocationFailed);
    return 0;
  }
  char* exception = nullptr;
  int rc = 0;
  try {
    rc = ping->CallReceive(exception, 0);
  } catch (const RFC_ERROR_INFO&) {
    // Only the library's own error record means a failed ping; a text (a
    // missing entry point, say) is the caller's to report.
    rc = ping->GetLastReturnCode();
    if (rc == 0) rc = RFC_FAILURE;
  }
  if (rc == 0) return handle_;
  // The library says the connection is gone: forget it without RfcClose.
  if (rc == RFC_CLOSED) handle_ = 0;
  return 0;
}

void CRfcConnection::GetR3Release() {
  RfcGetAttributes(handle_, &attributes_);
  const char* partner = attributes_.partner_release;
  if (partner[0] != '\0') {
    const char* used = partner[0] != ' ' ? partner : attributes_.kernel_release;
    // At most the four characters of the field, whether or not it ends in NUL.
    const void* end = std::memchr(used, '\0', kReleaseCharacters);
    std::string release(used, end != nullptr ? static_cast<size_t>(static_cast<const char*>(end) - used)
                                              : kReleaseCharacters);
    if (release.size() == kReleaseCharacters && release[3] == ' ') release.resize(3);
    conn_info_.release = release.c_str();
    return;
  }

  // Declared before the function, so that the function goes first.
  CRfcSimpleParam date_format("DATE_FORMAT", TYPE_CHAR, 30, 0, 0);
  CRfcSimpleParam decimal_sign("DECIMAL_SIGN", TYPE_CHAR, 1, 0, 0);
  CRfcSimpleParam language("LANGUAGE", TYPE_CHAR, 1, 0, 0);
  CRfcSimpleParam system_release("SAP_SYSTEM_RELEASE", TYPE_CHAR, 4, 0, 0);
  CRfcSimpleParam user_name("USER_NAME", TYPE_CHAR, 12, 0, 0);
  CRfcClientFunc parameters(this, "RFC_GET_SAP_SYSTEM_PARAMETERS", 0);
  parameters.AddExport(&date_format);
  parameters.AddExport(&decimal_sign);
  parameters.AddExport(&language);
  parameters.AddExport(&system_release);
  parameters.AddExport(&user_name);
  char* exception = nullptr;
  if (parameters.CallReceive(exception, 0) != 0) {
    const char* name = KeepThrownText(exception);
    CRfcTrace& trace = GetRfcTrace();
    trace.WriteHeader();
    trace.WriteLine(kReleaseFailure);
    throw name;
  }
  conn_info_.release = static_cast<CSTR>(system_release.Value());
}

void CRfcConnection::AddSystemInfo(CRfcSimpleParam* copy) {
  std::unique_ptr<CRfcSimpleParam> owned(copy);
  owned->SetActive(1);
  system_info_.Add(owned.get());
  owned.release();
}

void CRfcConnection::GetSystemInfo() {
  if (system_info_func_) return;
  system_info_func_ = rfc::RfcAllocate<CRfcClientFunc>(this, "RFC_SYSTEM_INFO", 1);
  if (!system_info_func_) throw kRfcAllocationFailed;

  CRfcTrace& trace = GetRfcTrace();
  char* exception = nullptr;
  bool failed = false;
  try {
    failed = system_info_func_->CallReceive(exception, 0) != 0;
  } catch (const RFC_ERROR_INFO& error) {
    trace.WriteHeader();
    trace.WriteLine(kReleaseFailure);
    trace.WriteError(error);
    failed = true;
  }
  if (failed) {
    const char* name = KeepThrownText(exception);
    trace.WriteHeader();
    trace.WriteLine(kReleaseFailure);
    throw name;
  }

  const CRfcList<CRfcImpExpParam>& exports = system_info_func_->GetExports();
  for (int i = 0; i < exports.GetCount(); ++i) {
    CRfcImpExpParam* param = exports.GetAt(i);
    if (param == nullptr) continue;
    if (param->IsSimple() == 0) {
      const CRfcStructParam* structure = static_cast<const CRfcStructParam*>(param);
      for (int column = 0; column < structure->GetFieldCount(); ++column) {
        const CRfcFieldInfo* field = structure->GetFieldInfo(column);
        if (field == nullptr) continue;
        const std::string name(field->name, FieldNameLength(*field));
        std::unique_ptr<CRfcSimpleParam> copy = rfc::RfcAllocate<CRfcSimpleParam>(
            name.c_str(), field->type, field->length, field->decimals, 0);
        if (!copy) throw kRfcAllocationFailed;
        copy->Value().Assign(structure->FieldValue(column));
        AddSystemInfo(copy.release());
      }
    } else {
      const CRfcSimpleParam* simple = static_cast<const CRfcSimpleParam*>(param);
      std::unique_ptr<CRfcSimpleParam> copy = rfc::RfcAllocate<CRfcSimpleParam>(
          simple->GetName(), simple->GetType(), simple->GetLength(), simple->GetDecimals(), 0);
      if (!copy) throw kRfcAllocationFailed;
      copy->Value().Assign(simple->Value());
      AddSystemInfo(copy.release());
    }
  }
}

int CRfcConnection::Encrypt(CRfcString& rfcString) {
  GetRfcTrace().WriteLine("CRfcConnection::Encrypt(CRfcString& rfcString) called");
  const int length = rfcString.GetLength();
  char* text = rfcString.GetBuffer();
  if (length < 1 || text == nullptr) return 0;
  for (int i = 0; i < length; ++i) {
    const unsigned byte = static_cast<unsigned char>(text[i]);
    text[i] = static_cast<char>(static_cast<unsigned char>((2 * byte + 5) % 256));
  }
  return length;
}

void CRfcConnection::Decrypt(CRfcString& rfcString) {
  GetRfcTrace().WriteLine("CRfcConnection::Decrypt(CRfcString& rfcString) called");
  const int length = rfcString.GetLength();
  char* text = rfcString.GetBuffer();
  if (length < 1 || text == nullptr) return;
  for (int i = 0; i < length; ++i) {
    const int byte = static_cast<unsigned char>(text[i]);
    // Integer division truncates toward zero: (1 - 5) / 2 is -2.
    text[i] = static_cast<char>(static_cast<unsigned char>((byte - 5) / 2));
  }
}
