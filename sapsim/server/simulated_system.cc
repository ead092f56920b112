#include "sapsim/server/simulated_system.h"

#include <cctype>

#include "sapsim/server/module_error.h"
#include "sapsim/wire/call_message.h"
#include "sapsim/wire/decode_error.h"
#include "sapsim/wire/error_codes.h"

namespace sapsim::server {

wire::FrameWriter SystemFailureReply(const std::string& key, const std::string& message) {
  wire::FrameWriter w(wire::FrameType::kReply);
  wire::EncodeReplyHead(w, wire::ReplyStatus::kSystemFailure, key, message);
  w.U32(0);
  w.U32(0);
  return w;
}

SimulatedSystem::SimulatedSystem(SystemDefinition definition)
    : definition_(std::move(definition)), dictionary_(definition_), functions_(FunctionLibrary::Standard()) {}

wire::Welcome SimulatedSystem::Describe() const {
  wire::Welcome welcome;
  welcome.system_id = definition_.system_id;
  welcome.release = definition_.release;
  welcome.kernel_release = definition_.kernel_release;
  welcome.host = definition_.host;
  welcome.codepage = "1100";
  return welcome;
}

SessionInfo SimulatedSystem::SystemSession() const {
  SessionInfo session;
  if (!definition_.logons.empty()) {
    session.client = definition_.logons.front().client;
    session.user = definition_.logons.front().user;
  } else {
    session.user = "SAPSYS";
  }
  session.language = "E";
  return session;
}

bool SimulatedSystem::Logon(const wire::Hello& hello, wire::Welcome* welcome, wire::ErrorNotice* refusal) const {
  std::string who = "client " + (hello.client.empty() ? std::string("(none)") : hello.client) + ", user " +
                    (hello.user.empty() ? std::string("(none)") : hello.user);
  bool client_known = false;
  for (const LogonEntry& entry : definition_.logons) {
    if (entry.client != hello.client) continue;
    client_known = true;
    // SAP user names are not case-sensitive; passwords are.
    std::string upper = hello.user;
    for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    std::string known = entry.user;
    for (char& c : known) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (known == upper && entry.password == hello.password) {
      *welcome = Describe();
      welcome->client = entry.client;
      welcome->user = entry.user;
      welcome->language = hello.language.empty() ? "E" : hello.language;
      return true;
    }
  }
  refusal->group = wire::kGroupLogon;
  refusal->key = wire::kKeyLogon;
  refusal->message = "logon failed for " + who + " on system " + definition_.system_id + ": " +
                     (client_known ? "name or password is incorrect" : "client does not exist");
  return false;
}

SimulatedSystem::Execution SimulatedSystem::Execute(const uint8_t* payload, size_t size,
                                                    const SessionInfo& session) const {
  Execution result;
  wire::CallMessage call;
  try {
    call = wire::DecodeCall(payload, size);
  } catch (const wire::DecodeError& e) {
    result.outcome = std::string("protocol error: ") + e.what();
    result.reply = SystemFailureReply(wire::kKeyProtocol, result.outcome);
    return result;
  }
  result.function = call.function;
  const FunctionModule* module = functions_.Find(call.function);
  if (module == nullptr) {
    result.outcome = "failure: function module not found";
    result.reply = SystemFailureReply("FUNCTION_NOT_FOUND",
                                      "Function module \"" + call.function + "\" not found in system " +
                                          definition_.system_id);
    return result;
  }
  try {
    result.context = std::make_unique<CallContext>(*this, module->Interface(*this), session);
    std::string error;
    if (!result.context->Take(call, &error)) {
      result.outcome = "failure: " + error;
      result.reply = SystemFailureReply(wire::kKeyConversion, "conversion error in call of " + call.function + ": " + error);
      return result;
    }
    module->Execute(*result.context);
  } catch (const ModuleError& e) {
    result.outcome = std::string("failure: ") + e.what();
    result.reply = SystemFailureReply(wire::kKeySystemFailure, call.function + ": " + e.what());
    return result;
  }
  result.outcome = result.context->raised().empty() ? "ok" : "exception " + result.context->raised();
  result.reply = result.context->Reply();
  return result;
}

}  // namespace sapsim::server
