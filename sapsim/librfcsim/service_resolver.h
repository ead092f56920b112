#pragma once
// Ports from SAP service names: a number is a port; sapgwNN is 33NN; a
// system number NN means 33NN; sapmsSID comes from the services database,
// else 3600, unless RFCSIM_MS_PORT names the message server's port.

#include <cstdint>
#include <string>

namespace rfcsim {

// The environment variable that overrides the message server's port.
constexpr const char* kMessageServerPortVariable = "RFCSIM_MS_PORT";

// A gateway service: "3300", "sapgw00", or a name of the services database.
bool GatewayPort(const std::string& service, uint16_t* port, std::string* error);
// The application server of system number 0..99.
bool SystemNumberPort(int system_number, uint16_t* port, std::string* error);
// The message server of a system id.
bool MessageServerPort(const std::string& system_name, uint16_t* port, std::string* error);

}  // namespace rfcsim
