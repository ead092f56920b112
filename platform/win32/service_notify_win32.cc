// Windows services report to the service control manager through the
// service's own handler, which this program does not have: there is no
// notify socket, so nothing is sent.

#include "platform/service_notify.h"

namespace platform {

std::string ServiceManagerAddress() { return std::string(); }

bool NotifyServiceManager(const std::string&, const std::string&) { return false; }

}  // namespace platform
