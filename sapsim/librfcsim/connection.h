#pragma once
// One connection of the library: a client logged on to the system, or a
// server program registered at the gateway. A connection is used by one
// thread at a time; no lock is held while a server function runs, so the
// function may throw, call back, or close the connection.

#include <memory>
#include <optional>
#include <string>

#include "rfc/binding/rfc_library_api.h"
#include "sapsim/wire/call_message.h"
#include "sapsim/wire/control_messages.h"
#include "sapsim/wire/frame.h"
#include "sapsim/wire/frame_channel.h"

namespace rfcsim {

class Connection {
 public:
  enum class Role { kClient, kServer };

  Connection(ConnectionHandle handle, Role role, std::unique_ptr<sapsim::wire::FrameChannel> channel,
             sapsim::wire::Welcome partner, std::string partner_address);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  ConnectionHandle handle() const { return handle_; }
  Role role() const { return role_; }

  // Client calls (also callbacks of a server program during a call).
  int Call(const char* function, RfcParameterEntry* imports, RfcTableEntry* tables);
  int Receive(RfcParameterEntry* exports, RfcTableEntry* tables, char** exception);

  // Server side.
  int Listen();
  int Dispatch();
  int GetName(char* name);
  int GetData(RfcParameterEntry* imports, RfcTableEntry* tables);
  int SendData(RfcParameterEntry* exports, RfcTableEntry* tables);
  int Raise(const char* exception);

  int GetAttributes(ConnectionAttributes* attributes) const;
  // Ends the connection; threads blocked on it wake up and see it closed.
  void Close();

 private:
  struct IncomingCall {
    sapsim::wire::Frame frame;
    sapsim::wire::CallMessage message;
    bool replied = false;
  };

  // Marks the connection closed and reports it: RFC_CLOSED.
  int ClosedBy(int32_t group, const char* key, const std::string& message);
  // The closed state's error again, for any use after the end.
  int StillClosed(const char* where);
  // Waits for the gateway's next frame, which must be a CALL: RFC_OK with it
  // in *frame, or RFC_CLOSED when the connection ended, was cancelled (a
  // CLOSE frame) or carried something else.
  int ReceiveCall(sapsim::wire::Frame* frame);
  int Fail(int32_t group, const char* key, const std::string& message, const char* where);
  // Sends a REPLY for the current call.
  int Reply(sapsim::wire::FrameWriter& reply, const char* where);
  void AnswerUnreplied(bool by_exception);

  const ConnectionHandle handle_;
  const Role role_;
  std::unique_ptr<sapsim::wire::FrameChannel> channel_;
  const sapsim::wire::Welcome partner_;
  const std::string partner_address_;

  bool closed_ = false;
  int32_t closed_group_ = 0;
  std::string closed_key_;
  std::string closed_message_;

  bool awaiting_reply_ = false;
  std::string called_function_;
  std::string exception_;  // the text RfcReceive hands out; valid until the next call

  std::optional<sapsim::wire::Frame> pending_;  // a CALL RfcListen has read
  std::optional<IncomingCall> current_;        // the call being served
};

}  // namespace rfcsim
