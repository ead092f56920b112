#pragma once
// One call of a function module: the caller's values converted to the
// module's interface, the module's answers, and the REPLY built from them.

#include <map>
#include <string>

#include "sapsim/server/data_block.h"
#include "sapsim/server/function_interface.h"
#include "sapsim/wire/call_message.h"
#include "sapsim/wire/frame_writer.h"

namespace sapsim::server {

class SimulatedSystem;

// Who is calling: the logon of a client session, or the system itself for
// callbacks from registered servers.
struct SessionInfo {
  std::string client;
  std::string user;
  std::string language;
};

class CallContext {
 public:
  CallContext(const SimulatedSystem& system, FunctionInterface interface, SessionInfo session);

  // Converts the caller's imports and tables into the interface's layouts.
  // Parameters the caller did not send keep their initial value (tables stay
  // empty); values the interface does not know are ignored. False with
  // *error when a value cannot be converted.
  bool Take(const wire::CallMessage& call, std::string* error);

  const SimulatedSystem& system() const { return system_; }
  const SessionInfo& session() const { return session_; }

  // Import value as text (trailing blanks removed); "" when unknown.
  std::string Import(const std::string& name) const;
  DataBlock& Export(const std::string& name);
  DataBlock& Table(const std::string& name);
  // Ends the call with an ABAP exception of this name.
  void Raise(const std::string& exception) { exception_ = exception; }
  const std::string& raised() const { return exception_; }

  // The REPLY frame: exports and tables, or the exception. It refers to the
  // tables of this context, which must live until the frame has been sent.
  wire::FrameWriter Reply() const;

 private:
  DataBlock& Block(std::map<std::string, DataBlock>& blocks, const std::string& kind, const std::string& name);

  const SimulatedSystem& system_;
  FunctionInterface interface_;
  SessionInfo session_;
  std::map<std::string, DataBlock> imports_;
  std::map<std::string, DataBlock> exports_;
  std::map<std::string, DataBlock> tables_;
  std::string exception_;
};

}  // namespace sapsim::server
