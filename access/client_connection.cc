#include "access/client_connection.h"

#include "rfc/core/rfc_trace.h"

CClientConnection::CClientConnection() {
  connection_.release = kReleaseUnknown;
  connection_.QuerySystemInfo = 0;
}

CClientConnection::~CClientConnection() = default;

void CClientConnection::SetLogon(const std::string& client, const std::string& user,
                                 const std::string& password, const std::string& language) {
  logon_.client = client.c_str();
  logon_.user = user.c_str();
  logon_.password = password.c_str();
  logon_.language = language.c_str();
}

int CClientConnection::SetAppServerLogon(const std::string& host, int32_t system_number,
                                         const std::string& client, const std::string& user,
                                         const std::string& password,
                                         const std::string& language,
                                         const std::string& gateway_service, int32_t trace) {
  SetLogon(client, user, password, language);
  GetRfcTrace().SetTraceOn(trace);
  connection_.host = host.c_str();
  connection_.mode = 0;
  connection_.system_number = system_number;
  // The application server is also the gateway.
  connection_.gateway_host = host.c_str();
  connection_.gateway_service = gateway_service.c_str();
  SetLogonInfo(logon_);
  SetConnInfo(connection_);
  // Only the class library's trace follows the switch.
  SetTraceFlag(0);
  return 1;
}

int CClientConnection::SetLoadBalancingLogon(int32_t /*unused*/, const std::string& message_server,
                                             const std::string& system, const std::string& group,
                                             const std::string& client, const std::string& user,
                                             const std::string& password,
                                             const std::string& language, int32_t trace) {
  SetLogon(client, user, password, language);
  GetRfcTrace().SetTraceOn(trace);
  connection_.system_name = system.c_str();
  connection_.message_server_host = message_server.c_str();
  connection_.group = group.c_str();
  connection_.mode = 0;
  SetLogonInfo(logon_);
  SetConnInfo(connection_);
  SetTraceFlag(0);
  return 1;
}
