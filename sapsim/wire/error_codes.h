#pragma once
// Error groups and keys shared by the library and the simulated system. The
// group travels in ERROR and CLOSE frames and ends up in the library's
// extended error record; only the cancellation group is fixed from outside.

#include <cstdint>

namespace sapsim::wire {

constexpr int32_t kGroupProgram = 100;        // wrong use of the library: bad handle, bad argument
constexpr int32_t kGroupCommunication = 101;  // the partner cannot be reached
constexpr int32_t kGroupLogon = 102;          // logon refused
constexpr int32_t kGroupSystemFailure = 103;  // the partner could not serve the call
constexpr int32_t kGroupClosed = 104;         // the partner closed the connection
constexpr int32_t kGroupProtocol = 105;       // the partner broke the protocol
constexpr int32_t kGroupRegistration = 106;   // registration refused, no server registered
constexpr int32_t kGroupConversion = 107;     // a value could not be converted
constexpr int32_t kGroupMemory = 108;         // out of memory
constexpr int32_t kGroupCancelled = 109;      // the gateway cancelled the registration

constexpr const char* kKeyProgram = "RFC_ERROR_PROGRAM";
constexpr const char* kKeyCommunication = "RFC_ERROR_COMMUNICATION";
constexpr const char* kKeyLogon = "RFC_ERROR_LOGON_FAILURE";
constexpr const char* kKeySystemFailure = "RFC_ERROR_SYSTEM_FAILURE";
constexpr const char* kKeyClosed = "RFC_ERROR_CLOSED";
constexpr const char* kKeyProtocol = "RFC_ERROR_PROTOCOL";
constexpr const char* kKeyRegistration = "RFC_ERROR_REGISTRATION";
constexpr const char* kKeyConversion = "RFC_ERROR_CONVERSION";
constexpr const char* kKeyMemory = "RFC_ERROR_MEMORY";
constexpr const char* kKeyCancelled = "RFC_ERROR_CANCELLED";

}  // namespace sapsim::wire
