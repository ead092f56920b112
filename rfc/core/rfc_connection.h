#pragma once
// One RFC connection to an SAP system, opened as a client (RfcOpen) or
// accepted as a registered server (RfcAccept). It keeps the logon and
// connection records, opens in one of five modes, checks every new
// connection with a ping, learns the partner's release and, when asked,
// fetches the partner's system information. It closes only what it opened
// itself: a handle it merely wraps stays open.
//
// Every RfcOpen and RfcAccept in the process runs under one lock, followed by
// a 20 ms pause under that lock, so consecutive logons of all threads are
// spaced by at least 20 ms.

#include <memory>

#include "rfc/binding/rfc_library_api.h"
#include "rfc/core/rfc_list.h"
#include "rfc/core/rfc_string.h"

class CRfcClientFunc;
class CRfcSimpleParam;

// The logon record.
struct CRfcLogonInfo {
  CRfcString client{""};
  CRfcString user{""};
  CRfcString password{""};
  CRfcString language{""};
};

// The connection record. Texts start empty and the release unknown.
struct CRfcConnInfo {
  int mode = 0;          // 0 to 4, see CRfcConnection::Open
  int mode3_flag = 0;    // word 7 of the mode-3 option block, passed through
  CRfcString release{"RELEASEUNKNOWN"};
  int QuerySystemInfo = 0;  // fetch RFC_SYSTEM_INFO after opening
  CRfcString destination{""};
  CRfcString host{""};
  CRfcString gateway_host{""};
  CRfcString gateway_service{""};
  int system_number = 0;
  CRfcString system_name{""};
  CRfcString message_server_host{""};
  CRfcString group{""};
};

class CRfcConnection {
 public:
  static constexpr const char* kReleaseUnknown = "RELEASEUNKNOWN";

  CRfcConnection();
  // Close; deletes the system information.
  virtual ~CRfcConnection();
  // Applies the default transform to `rfcString` in place: each byte b of its
  // text becomes (2b + 5) mod 256. Returns the length (0 below 1).
  virtual int Encrypt(CRfcString& rfcString);
  // The reverse: each byte b (0..255) becomes (b - 5) / 2, truncated toward
  // zero, kept as its low 8 bits. Restores the bytes 0 to 125 exactly.
  virtual void Decrypt(CRfcString& rfcString);

  CRfcConnection(const CRfcConnection&) = delete;
  CRfcConnection& operator=(const CRfcConnection&) = delete;

  // Close, then take the record.
  void SetLogonInfo(const CRfcLogonInfo& logon);
  void SetConnInfo(const CRfcConnInfo& info);

  // Opens in the record's mode when not open:
  //   0  host, gateway host and service set: ApplicationServerOptions
  //   1  gateway host and service set: GatewayLogonOptions
  //   2  nothing is opened
  //   3  host set: ServerLogonOptions for that host
  //   4  no option block (the destination alone)
  // A mode whose fields are not all set opens with no option block; a mode
  // above 4 opens nothing. Failures throw RFC_ERROR_INFO.
  void Open();
  // OpenViaMessageServer, then one more ping; a failed ping throws the
  // library's error.
  void OpenLoadBalanced();
  // Mode 3 through the message server when its host, the system name and the
  // group are set, else mode 4 without option block.
  void OpenViaMessageServer();
  // The open itself with the given option block (may be null).
  void DoOpen(void* options);
  // Registers as a server with the argument vector (kept, not owned).
  void Accept(char** argv);
  // Closes a handle this object opened or accepted; leaves others alone.
  void Close();
  // RFCPING: the handle when the partner answered, else 0. A connection the
  // library reports closed (code 6) forgets its handle.
  ConnectionHandle Ping();
  // The partner's release: from the connection attributes, or from
  // RFC_GET_SAP_SYSTEM_PARAMETERS when the attributes show none.
  void GetR3Release();
  // RFC_SYSTEM_INFO's values as simple parameters (once per object).
  void GetSystemInfo();

  // Wraps a handle opened elsewhere (a server call's): it is used but never
  // closed by this object. An owned handle is closed first.
  void AttachHandle(ConnectionHandle handle);

  ConnectionHandle GetHandle() const { return handle_; }
  int OwnsHandle() const { return owns_handle_; }
  const CRfcString& GetRelease() const { return conn_info_.release; }
  const CRfcList<CRfcSimpleParam>& GetSystemInfoList() const { return system_info_; }
  const CRfcLogonInfo& GetLogonInfo() const { return logon_info_; }
  const CRfcConnInfo& GetConnInfo() const { return conn_info_; }
  // The trace option handed to RfcOpen (the library's own trace).
  int GetTraceFlag() const { return trace_flag_; }
  void SetTraceFlag(int trace_flag) { trace_flag_ = trace_flag; }
  // The vector last given to Accept.
  char** GetArgv() const { return argv_; }
  const ConnectionAttributes& GetAttributes() const { return attributes_; }

 private:
  // Adds an owned copy to the system information list.
  void AddSystemInfo(CRfcSimpleParam* copy);

  ConnectionHandle handle_ = 0;
  CRfcLogonInfo logon_info_;
  CRfcConnInfo conn_info_;
  int trace_flag_ = 0;
  int owns_handle_ = 0;
  std::unique_ptr<CRfcClientFunc> system_info_func_;
  CRfcList<CRfcSimpleParam> system_info_;
  ConnectionAttributes attributes_{};
  char** argv_ = nullptr;
};
