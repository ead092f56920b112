#pragma once
// Tells a service manager how the service is doing (systemd's notify
// protocol: "READY=1", "STATUS=...", one datagram per message). Where there
// is no such manager, nothing is sent.

#include <string>

namespace platform {

// The manager's socket address as the environment gives it (NOTIFY_SOCKET
// under systemd); empty when the process was not started by such a manager.
std::string ServiceManagerAddress();

// Sends `message` (newline-separated assignments) to the manager at
// `address`: a file-system path, or "@name" for an abstract socket. True
// when it was sent; false without an address or when the send failed.
bool NotifyServiceManager(const std::string& address, const std::string& message);

}  // namespace platform
