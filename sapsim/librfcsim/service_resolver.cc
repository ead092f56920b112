#include "sapsim/librfcsim/service_resolver.h"

#include <cstdlib>

#include "sapsim/wire/socket.h"

namespace rfcsim {

namespace {

bool AllDigits(const std::string& text) {
  if (text.empty()) return false;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

bool NumberPort(const std::string& text, uint16_t* port) {
  if (!AllDigits(text) || text.size() > 5) return false;
  long value = std::strtol(text.c_str(), nullptr, 10);
  if (value < 1 || value > 65535) return false;
  *port = static_cast<uint16_t>(value);
  return true;
}

}  // namespace

bool GatewayPort(const std::string& service, uint16_t* port, std::string* error) {
  if (service.empty()) {
    *error = "no gateway service given";
    return false;
  }
  if (AllDigits(service)) {
    if (NumberPort(service, port)) return true;
    *error = "gateway service " + service + " is not a port number";
    return false;
  }
  if (service.size() == 7 && service.compare(0, 5, "sapgw") == 0 && AllDigits(service.substr(5))) {
    *port = static_cast<uint16_t>(3300 + std::atoi(service.c_str() + 5));
    return true;
  }
  if (sapsim::wire::ServicesDatabasePort(service, port)) return true;
  *error = "gateway service " + service + " is unknown (not a port, not sapgwNN, not in the services database)";
  return false;
}

bool SystemNumberPort(int system_number, uint16_t* port, std::string* error) {
  if (system_number < 0 || system_number > 99) {
    *error = "system number " + std::to_string(system_number) + " is not between 00 and 99";
    return false;
  }
  *port = static_cast<uint16_t>(3300 + system_number);
  return true;
}

bool MessageServerPort(const std::string& system_name, uint16_t* port, std::string* error) {
  const char* override_port = std::getenv(kMessageServerPortVariable);
  if (override_port != nullptr && *override_port != '\0') {
    if (NumberPort(override_port, port)) return true;
    *error = std::string(kMessageServerPortVariable) + "=" + override_port + " is not a port number";
    return false;
  }
  if (system_name.empty()) {
    *error = "no system name for the message server";
    return false;
  }
  if (sapsim::wire::ServicesDatabasePort("sapms" + system_name, port)) return true;
  *port = 3600;
  return true;
}

}  // namespace rfcsim
