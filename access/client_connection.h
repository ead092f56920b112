#pragma once
// CClientConnection: the batch server's logon to the SAP system as an RFC
// client. It keeps its own logon and connection records and fills them from
// the settings, for one application server or for a logon group of a message
// server. Opening, pinging and closing are the base class's.
//
// The records persist for the object's life: a set-up overwrites only the
// fields it names. The class library's trace follows the trace switch; the
// RFC library's own trace is never requested.

#include <cstdint>
#include <string>

#include "rfc/core/rfc_connection.h"

class CClientConnection : public CRfcConnection {
 public:
  // Empty records, release unknown, no system information query.
  CClientConnection();
  ~CClientConnection() override;

  // Logon to the application server `host`, which is also the gateway
  // (reached at `gateway_service`). Returns 1.
  int SetAppServerLogon(const std::string& host, int32_t system_number,
                        const std::string& client, const std::string& user,
                        const std::string& password, const std::string& language,
                        const std::string& gateway_service, int32_t trace);
  // Logon through the message server `message_server` of `system` to a server
  // of `group`. The first word is not used (callers pass 1). Returns 1.
  int SetLoadBalancingLogon(int32_t unused, const std::string& message_server,
                            const std::string& system, const std::string& group,
                            const std::string& client, const std::string& user,
                            const std::string& password, const std::string& language,
                            int32_t trace);

  const CRfcLogonInfo& GetLogon() const { return logon_; }
  const CRfcConnInfo& GetConnection() const { return connection_; }

 private:
  void SetLogon(const std::string& client, const std::string& user,
                const std::string& password, const std::string& language);

  CRfcLogonInfo logon_;
  CRfcConnInfo connection_;
};
