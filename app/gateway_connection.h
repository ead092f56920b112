#pragma once
// CGatewayConnection: the batch server's registration at an SAP gateway as an
// RFC server program. The three gateway settings become the argument vector
// that the RFC library's accept reads ("-a<program id> -g<host> -x<service>",
// and "-t<n>" with the trace flag).
//
// The vector is cut at every "-", also at one inside a value, and the
// character before each "-" becomes the terminator of the previous argument:
// a host "sap-gw1" gives the arguments "-gsa" and "-gw1". Ids and names must
// therefore not contain "-".

#include <cstdint>
#include <string>
#include <vector>

#include "rfc/core/rfc_connection.h"

class CGatewayConnection : public CRfcConnection {
 public:
  CGatewayConnection(const std::string& program_id, const std::string& gateway_host,
                     const std::string& gateway_service);
  // Closes the connection, which ends the registration.
  ~CGatewayConnection() override;

  // Builds, keeps and returns the accept string.
  std::string BuildAcceptString();
  // Builds the argument buffer and vector from a fresh accept string.
  void BuildArgv();
  // Registers at the gateway; a refusal throws RFC_ERROR_INFO. Returns 1.
  int Register();
  // True when the gateway reports registrations of the program id. The
  // library's result and error record are not looked at: an unreachable
  // gateway reads as false.
  bool IsRegistered();
  // True when the gateway cancelled at least one registration.
  bool CancelRegistration();

  const std::string& GetAcceptString() const { return accept_string_; }
  // The arguments of the last BuildArgv, without the closing null entry.
  std::vector<std::string> GetArguments() const;
  // The vector handed to the library, ending with a null entry; empty before
  // the first BuildArgv.
  const std::vector<char*>& GetArgumentVector() const { return argument_vector_; }
  const std::string& GetProgramId() const { return program_id_; }
  const std::string& GetGatewayHost() const { return gateway_host_; }
  const std::string& GetGatewayService() const { return gateway_service_; }
  // The accept string's trace option; nothing in the batch server sets it.
  int32_t GetGatewayTraceFlag() const { return trace_flag_; }
  void SetGatewayTraceFlag(int32_t trace_flag) { trace_flag_ = trace_flag; }

 private:
  std::string accept_string_;
  std::string program_id_;
  std::string gateway_host_;
  std::string gateway_service_;
  int32_t trace_flag_ = 0;
  // Pointers into argument_buffer_, which must not move while they live.
  std::vector<char*> argument_vector_;
  std::vector<char> argument_buffer_;
};
