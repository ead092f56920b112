#include "sapsim/librfcsim/connector.h"

#include <memory>
#include <new>
#include <string>

#include "sapsim/librfcsim/accept_arguments.h"
#include "sapsim/librfcsim/connection.h"
#include "sapsim/librfcsim/connection_registry.h"
#include "sapsim/librfcsim/last_error.h"
#include "sapsim/librfcsim/service_resolver.h"
#include "sapsim/wire/control_messages.h"
#include "sapsim/wire/decode_error.h"
#include "sapsim/wire/error_codes.h"
#include "sapsim/wire/frame_channel.h"
#include "sapsim/wire/socket.h"

namespace rfcsim {

namespace w = sapsim::wire;

namespace {

std::string Text(const char* text) { return text == nullptr ? std::string() : std::string(text); }

struct Endpoint {
  std::string host;
  uint16_t port = 0;
  std::string Address() const { return host + ":" + std::to_string(port); }
};

// Why a step failed: what goes into the last error.
struct Failure {
  int32_t group = w::kGroupProgram;
  std::string key = w::kKeyProgram;
  std::string message;
};

std::unique_ptr<w::FrameChannel> Connect(const Endpoint& endpoint, const char* what, Failure* failure) {
  std::string error;
  w::Socket socket = w::Socket::Connect(endpoint.host, endpoint.port, &error);
  if (!socket.valid()) {
    *failure = Failure{w::kGroupCommunication, w::kKeyCommunication, std::string(what) + ": " + error};
    return nullptr;
  }
  return std::make_unique<w::FrameChannel>(std::move(socket));
}

// One request, one answer; an ERROR answer becomes the failure.
bool Ask(w::FrameChannel& channel, w::FrameWriter request, w::FrameType expected, const Endpoint& endpoint,
         w::Frame* answer, Failure* failure) {
  std::string error;
  if (channel.Send(request, &error) != w::IoStatus::kOk ||
      channel.Receive(answer, &error) != w::IoStatus::kOk) {
    *failure = Failure{w::kGroupCommunication, w::kKeyCommunication,
                       "partner " + endpoint.Address() + " ended the connection: " + error};
    return false;
  }
  if (answer->type == w::FrameType::kError) {
    try {
      w::ErrorNotice notice = w::ErrorNotice::Decode(*answer);
      *failure = Failure{notice.group, notice.key, notice.message};
    } catch (const w::DecodeError& e) {
      *failure = Failure{w::kGroupProtocol, w::kKeyProtocol, std::string("protocol error: ") + e.what()};
    }
    return false;
  }
  if (answer->type != expected) {
    *failure = Failure{w::kGroupProtocol, w::kKeyProtocol,
                       "protocol error: partner " + endpoint.Address() + " answered with a " +
                           w::FrameTypeName(answer->type) + " frame"};
    return false;
  }
  return true;
}

ConnectionHandle Establish(const Endpoint& endpoint, const w::Hello& hello, Connection::Role role,
                           Failure* failure) {
  std::unique_ptr<w::FrameChannel> channel =
      Connect(endpoint, role == Connection::Role::kClient ? "logon" : "registration", failure);
  if (!channel) return 0;
  w::Frame answer;
  if (!Ask(*channel, hello.Encode(), w::FrameType::kWelcome, endpoint, &answer, failure)) return 0;
  w::Welcome welcome;
  try {
    welcome = w::Welcome::Decode(answer);
  } catch (const w::DecodeError& e) {
    *failure = Failure{w::kGroupProtocol, w::kKeyProtocol, std::string("protocol error: ") + e.what()};
    return 0;
  }
  ConnectionRegistry& registry = ConnectionRegistry::Instance();
  ConnectionHandle handle = registry.Reserve();
  if (handle == 0) {
    *failure = Failure{w::kGroupProgram, w::kKeyProgram, "no connection handle left"};
    return 0;
  }
  registry.Install(handle, std::make_shared<Connection>(handle, role, std::move(channel), std::move(welcome),
                                                        endpoint.Address()));
  return handle;
}

bool LookUpGroup(const ServerLogonOptions& options, Endpoint* endpoint, Failure* failure) {
  std::string error;
  Endpoint ms;
  ms.host = Text(options.message_server_host);
  if (ms.host.empty()) {
    *failure = Failure{w::kGroupProgram, w::kKeyProgram, "RfcOpen: load balancing without a message server host"};
    return false;
  }
  if (!MessageServerPort(Text(options.system_name), &ms.port, &error)) {
    *failure = Failure{w::kGroupProgram, w::kKeyProgram, "RfcOpen: " + error};
    return false;
  }
  std::unique_ptr<w::FrameChannel> channel = Connect(ms, "message server", failure);
  if (!channel) return false;
  w::MessageServerQuery query{Text(options.system_name), Text(options.group)};
  w::Frame answer;
  if (!Ask(*channel, query.Encode(), w::FrameType::kMsAnswer, ms, &answer, failure)) return false;
  try {
    w::MessageServerAnswer where = w::MessageServerAnswer::Decode(answer);
    endpoint->host = where.host.empty() ? ms.host : where.host;
    endpoint->port = where.port;
  } catch (const w::DecodeError& e) {
    *failure = Failure{w::kGroupProtocol, w::kKeyProtocol, std::string("protocol error: ") + e.what()};
    return false;
  }
  return true;
}

// Where RfcOpen connects, by mode; false with the reason.
bool ResolveOpen(const OpenOptions& options, Endpoint* endpoint, Failure* failure) {
  std::string error;
  auto gateway = [&](const char* host, const char* service) {
    endpoint->host = Text(host);
    if (endpoint->host.empty()) {
      *failure = Failure{w::kGroupProgram, w::kKeyProgram, "RfcOpen: the gateway host is empty"};
      return false;
    }
    if (!GatewayPort(Text(service), &endpoint->port, &error)) {
      *failure = Failure{w::kGroupProgram, w::kKeyProgram, "RfcOpen: " + error};
      return false;
    }
    return true;
  };
  std::string destination = Text(options.destination);
  auto no_destinations = [&]() {
    *failure = Failure{w::kGroupProgram, w::kKeyProgram,
                       "RfcOpen: destination '" + destination + "' cannot be resolved: there is no destinations file; "
                       "give the connection's data in the option block"};
    return false;
  };
  switch (options.mode) {
    case RFC_MODE_APPLICATION_SERVER: {
      if (options.options == nullptr) return no_destinations();
      const auto& block = *static_cast<const ApplicationServerOptions*>(options.options);
      return gateway(block.gateway_host, block.gateway_service);
    }
    case RFC_MODE_GATEWAY: {
      if (options.options == nullptr) return no_destinations();
      const auto& block = *static_cast<const GatewayLogonOptions*>(options.options);
      return gateway(block.gateway_host, block.gateway_service);
    }
    case RFC_MODE_SERVER_LOGON: {
      if (options.options == nullptr) return no_destinations();
      const auto& block = *static_cast<const ServerLogonOptions*>(options.options);
      if (block.load_balancing != 0) return LookUpGroup(block, endpoint, failure);
      endpoint->host = Text(block.host);
      if (endpoint->host.empty()) {
        *failure = Failure{w::kGroupProgram, w::kKeyProgram, "RfcOpen: the application server host is empty"};
        return false;
      }
      if (!SystemNumberPort(block.system_number, &endpoint->port, &error)) {
        *failure = Failure{w::kGroupProgram, w::kKeyProgram, "RfcOpen: " + error};
        return false;
      }
      return true;
    }
    case RFC_MODE_DESTINATION:
      return no_destinations();
    case RFC_MODE_NONE:
      *failure = Failure{w::kGroupProgram, w::kKeyProgram, "RfcOpen: mode 2 opens no connection"};
      return false;
    default:
      *failure = Failure{w::kGroupProgram, w::kKeyProgram,
                         "RfcOpen: unknown connection mode " + std::to_string(options.mode)};
      return false;
  }
}

void ClearEx(ErrorInfoEx* error) {
  if (error == nullptr) return;
  error->group = 0;
  error->key[0] = '\0';
  error->message[0] = '\0';
}

void Report(const Failure& failure, const char* where) { SetLastError(failure.group, failure.key.c_str(), failure.message, where); }

void ReportEx(const Failure& failure, const char* where, ErrorInfoEx* error) {
  Report(failure, where);
  if (error != nullptr) FillErrorInfoEx(error);
}

// A control connection to the gateway named by host and service.
std::unique_ptr<w::FrameChannel> ControlConnection(const char* host, const char* service, Endpoint* endpoint,
                                                   Failure* failure) {
  std::string error;
  endpoint->host = Text(host);
  if (endpoint->host.empty()) {
    *failure = Failure{w::kGroupProgram, w::kKeyProgram, "the gateway host is empty"};
    return nullptr;
  }
  if (!GatewayPort(Text(service), &endpoint->port, &error)) {
    *failure = Failure{w::kGroupProgram, w::kKeyProgram, error};
    return nullptr;
  }
  std::unique_ptr<w::FrameChannel> channel = Connect(*endpoint, "gateway", failure);
  if (!channel) return nullptr;
  w::Hello hello;
  hello.kind = w::SessionKind::kControl;
  w::FrameWriter frame = hello.Encode();
  if (channel->Send(frame, &error) != w::IoStatus::kOk) {
    *failure = Failure{w::kGroupCommunication, w::kKeyCommunication, "gateway " + endpoint->Address() + ": " + error};
    return nullptr;
  }
  return channel;
}

bool QueryRegistrations(const char* program_id, const char* host, const char* service, w::FrameType type,
                        w::RegistrationCounts* counts, Failure* failure) {
  if (Text(program_id).empty()) {
    *failure = Failure{w::kGroupProgram, w::kKeyProgram, "no program id given"};
    return false;
  }
  Endpoint endpoint;
  std::unique_ptr<w::FrameChannel> channel = ControlConnection(host, service, &endpoint, failure);
  if (!channel) return false;
  w::Frame answer;
  if (!Ask(*channel, w::NameQuery{Text(program_id)}.Encode(type), w::FrameType::kRegCounts, endpoint, &answer,
           failure)) {
    return false;
  }
  try {
    *counts = w::RegistrationCounts::Decode(answer);
  } catch (const w::DecodeError& e) {
    *failure = Failure{w::kGroupProtocol, w::kKeyProtocol, std::string("protocol error: ") + e.what()};
    return false;
  }
  return true;
}

}  // namespace

ConnectionHandle OpenClient(const OpenOptions* options) {
  if (options == nullptr) {
    Report(Failure{w::kGroupProgram, w::kKeyProgram, "RfcOpen: no options"}, "RfcOpen");
    return 0;
  }
  Failure failure;
  try {
    Endpoint endpoint;
    if (!ResolveOpen(*options, &endpoint, &failure)) {
      Report(failure, "RfcOpen");
      return 0;
    }
    w::Hello hello;
    hello.kind = w::SessionKind::kClient;
    hello.client = Text(options->client);
    hello.user = Text(options->user);
    hello.password = Text(options->password);
    hello.language = Text(options->language);
    hello.own_host = w::LocalHostName();
    ConnectionHandle handle = Establish(endpoint, hello, Connection::Role::kClient, &failure);
    if (handle == 0) Report(failure, "RfcOpen");
    return handle;
  } catch (const std::bad_alloc&) {
    Report(Failure{w::kGroupMemory, w::kKeyMemory, "RfcOpen: out of memory"}, "RfcOpen");
    return 0;
  }
}

ConnectionHandle AcceptServer(char** argv) {
  Failure failure;
  try {
    AcceptArguments args;
    std::string error;
    if (!ParseAcceptArguments(argv, &args, &error)) {
      Report(Failure{w::kGroupProgram, w::kKeyProgram, error}, "RfcAccept");
      return 0;
    }
    Endpoint endpoint;
    endpoint.host = args.gateway_host;
    if (!GatewayPort(args.gateway_service, &endpoint.port, &error)) {
      Report(Failure{w::kGroupProgram, w::kKeyProgram, "RfcAccept: " + error}, "RfcAccept");
      return 0;
    }
    w::Hello hello;
    hello.kind = w::SessionKind::kRegisteredServer;
    hello.program_id = args.program_id;
    hello.own_host = w::LocalHostName();
    ConnectionHandle handle = Establish(endpoint, hello, Connection::Role::kServer, &failure);
    if (handle == 0) {
      failure.message = "registration of program " + args.program_id + " at gateway " + endpoint.Address() +
                        " failed: " + failure.message;
      if (failure.group == w::kGroupProgram) failure.group = w::kGroupRegistration;
      Report(failure, "RfcAccept");
    }
    return handle;
  } catch (const std::bad_alloc&) {
    Report(Failure{w::kGroupMemory, w::kKeyMemory, "RfcAccept: out of memory"}, "RfcAccept");
    return 0;
  }
}

int CheckRegistration(const char* program_id, const char* gateway_host, const char* gateway_service, int* total,
                      int* initialising, int* ready, int* busy, ErrorInfoEx* error) {
  for (int* count : {total, initialising, ready, busy}) {
    if (count != nullptr) *count = 0;
  }
  Failure failure;
  try {
    w::RegistrationCounts counts;
    if (!QueryRegistrations(program_id, gateway_host, gateway_service, w::FrameType::kRegCheck, &counts, &failure)) {
      failure.message = "RfcCheckRegisterServer: " + failure.message;
      ReportEx(failure, "RfcCheckRegisterServer", error);
      return RFC_FAILURE;
    }
    if (total != nullptr) *total = counts.total;
    if (initialising != nullptr) *initialising = counts.initialising;
    if (ready != nullptr) *ready = counts.ready;
    if (busy != nullptr) *busy = counts.busy;
    ClearEx(error);
    return RFC_OK;
  } catch (const std::bad_alloc&) {
    ReportEx(Failure{w::kGroupMemory, w::kKeyMemory, "RfcCheckRegisterServer: out of memory"},
             "RfcCheckRegisterServer", error);
    return RFC_FAILURE;
  }
}

int CancelRegistration(const char* program_id, const char* gateway_host, const char* gateway_service, int* total,
                       int* cancelled, ErrorInfoEx* error) {
  for (int* count : {total, cancelled}) {
    if (count != nullptr) *count = 0;
  }
  Failure failure;
  try {
    w::RegistrationCounts counts;
    if (!QueryRegistrations(program_id, gateway_host, gateway_service, w::FrameType::kRegCancel, &counts, &failure)) {
      failure.message = "RfcCancelRegisterServer: " + failure.message;
      ReportEx(failure, "RfcCancelRegisterServer", error);
      return RFC_FAILURE;
    }
    if (total != nullptr) *total = counts.total;
    if (cancelled != nullptr) *cancelled = counts.cancelled;
    ClearEx(error);
    return RFC_OK;
  } catch (const std::bad_alloc&) {
    ReportEx(Failure{w::kGroupMemory, w::kKeyMemory, "RfcCancelRegisterServer: out of memory"},
             "RfcCancelRegisterServer", error);
    return RFC_FAILURE;
  }
}

}  // namespace rfcsim
