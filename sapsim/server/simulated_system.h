#pragma once
// The application server side of the simulated system: logon, the data
// dictionary, the tables and the function modules. Safe to use from many
// sessions at once: nothing in it changes after construction.

#include <memory>
#include <string>

#include "sapsim/server/call_context.h"
#include "sapsim/server/dictionary.h"
#include "sapsim/server/function_library.h"
#include "sapsim/server/system_definition.h"
#include "sapsim/wire/control_messages.h"
#include "sapsim/wire/frame_writer.h"

namespace sapsim::server {

class SimulatedSystem {
 public:
  explicit SimulatedSystem(SystemDefinition definition);

  const SystemDefinition& definition() const { return definition_; }
  const Dictionary& dictionary() const { return dictionary_; }
  const FunctionLibrary& functions() const { return functions_; }

  // Checks client, user and password. True with the system's data in
  // *welcome, or false with the refusal in *refusal.
  bool Logon(const wire::Hello& hello, wire::Welcome* welcome, wire::ErrorNotice* refusal) const;
  // The system's data for a partner that does not log on (registered servers, callers).
  wire::Welcome Describe() const;
  // The session of calls that the system makes itself (callbacks).
  SessionInfo SystemSession() const;

  // Runs the CALL in `payload`; the reply refers to the call's context,
  // which the result keeps alive until it is destroyed.
  struct Execution {
    std::unique_ptr<CallContext> context;
    wire::FrameWriter reply{wire::FrameType::kReply};
    std::string function;
    std::string outcome;  // for the event log: "ok", "exception X", "failure: ..."
  };
  Execution Execute(const uint8_t* payload, size_t size, const SessionInfo& session) const;

 private:
  SystemDefinition definition_;
  Dictionary dictionary_;
  FunctionLibrary functions_;
};

// A REPLY that reports a system failure.
wire::FrameWriter SystemFailureReply(const std::string& key, const std::string& message);

}  // namespace sapsim::server
