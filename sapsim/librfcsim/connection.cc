#include "sapsim/librfcsim/connection.h"

#include <cstring>
#include <exception>

#include "sapsim/librfcsim/function_registry.h"
#include "sapsim/librfcsim/last_error.h"
#include "sapsim/librfcsim/parameter_marshal.h"
#include "sapsim/wire/decode_error.h"
#include "sapsim/wire/error_codes.h"
#include "sapsim/wire/socket.h"

namespace rfcsim {

namespace w = sapsim::wire;

Connection::Connection(ConnectionHandle handle, Role role, std::unique_ptr<w::FrameChannel> channel,
                       w::Welcome partner, std::string partner_address)
    : handle_(handle),
      role_(role),
      channel_(std::move(channel)),
      partner_(std::move(partner)),
      partner_address_(std::move(partner_address)) {}

Connection::~Connection() = default;

int Connection::Fail(int32_t group, const char* key, const std::string& message, const char* where) {
  SetLastError(group, key, message, std::string(where) + ", handle " + std::to_string(handle_));
  return RFC_FAILURE;
}

int Connection::ClosedBy(int32_t group, const char* key, const std::string& message) {
  closed_ = true;
  closed_group_ = group;
  closed_key_ = key;
  closed_message_ = message;
  channel_->Shutdown();
  SetLastError(group, key, message, "handle " + std::to_string(handle_));
  return RFC_CLOSED;
}

int Connection::StillClosed(const char* where) {
  SetLastError(closed_group_, closed_key_.c_str(), closed_message_,
               std::string(where) + ", handle " + std::to_string(handle_));
  return RFC_CLOSED;
}

void Connection::Close() {
  if (!closed_) {
    closed_ = true;
    closed_group_ = w::kGroupClosed;
    closed_key_ = w::kKeyClosed;
    closed_message_ = "connection closed by this program (RfcClose)";
  }
  channel_->Shutdown();
}

// ---- client calls ---------------------------------------------------------

int Connection::Call(const char* function, RfcParameterEntry* imports, RfcTableEntry* tables) {
  if (closed_) return StillClosed("RfcCall");
  if (function == nullptr || *function == '\0') {
    return Fail(w::kGroupProgram, w::kKeyProgram, "RfcCall: no function name", "RfcCall");
  }
  std::string name = EntryName(function, 0);
  if (role_ == Role::kServer && !current_) {
    return Fail(w::kGroupProgram, w::kKeyProgram,
                "RfcCall of " + name + ": a registered server can call its partner only while it serves a call",
                "RfcCall");
  }
  w::FrameWriter frame(w::FrameType::kCall);
  frame.String(name);
  std::string error;
  TableKeepAlive keep;
  if (!EncodeValues(frame, imports, &error) || !EncodeTables(frame, tables, &keep, &error)) {
    return Fail(w::kGroupProgram, w::kKeyProgram, "RfcCall of " + name + ": " + error, "RfcCall");
  }
  if (channel_->Send(frame, &error) != w::IoStatus::kOk) {
    return ClosedBy(w::kGroupClosed, w::kKeyClosed,
                    "connection to " + partner_address_ + " closed by partner: call of " + name + " not sent (" +
                        error + ")");
  }
  awaiting_reply_ = true;
  called_function_ = name;
  return RFC_OK;
}

int Connection::Receive(RfcParameterEntry* exports, RfcTableEntry* tables, char** exception) {
  if (closed_) return StillClosed("RfcReceive");
  if (!awaiting_reply_) {
    return Fail(w::kGroupProgram, w::kKeyProgram, "RfcReceive without a preceding RfcCall", "RfcReceive");
  }
  awaiting_reply_ = false;
  w::Frame frame;
  std::string error;
  w::IoStatus status = channel_->Receive(&frame, &error);
  if (status != w::IoStatus::kOk) {
    if (status == w::IoStatus::kMalformed) {
      return ClosedBy(w::kGroupProtocol, w::kKeyProtocol, "partner " + partner_address_ + ": " + error);
    }
    return ClosedBy(w::kGroupClosed, w::kKeyClosed,
                    "connection to " + partner_address_ + " closed by partner during the call of " +
                        called_function_ + " (" + error + ")");
  }
  if (frame.type == w::FrameType::kClose || frame.type == w::FrameType::kError) {
    w::ErrorNotice notice;
    try {
      notice = w::ErrorNotice::Decode(frame);
    } catch (const w::DecodeError& e) {
      return ClosedBy(w::kGroupProtocol, w::kKeyProtocol, std::string("protocol error: ") + e.what());
    }
    return ClosedBy(notice.group, notice.key.c_str(), notice.message);
  }
  if (frame.type != w::FrameType::kReply) {
    return ClosedBy(w::kGroupProtocol, w::kKeyProtocol,
                    "protocol error: partner " + partner_address_ + " answered the call of " + called_function_ +
                        " with a " + w::FrameTypeName(frame.type) + " frame");
  }
  w::ReplyMessage reply;
  try {
    reply = w::DecodeReply(frame.payload.data(), frame.payload.size());
  } catch (const w::DecodeError& e) {
    return ClosedBy(w::kGroupProtocol, w::kKeyProtocol,
                    "protocol error in the reply to " + called_function_ + ": " + e.what());
  }
  switch (reply.status) {
    case w::ReplyStatus::kException:
      exception_ = reply.key;
      if (exception != nullptr) *exception = exception_.data();
      SetLastError(w::kGroupSystemFailure, "RFC_ERROR_EXCEPTION",
                   "function " + called_function_ + " raised exception " + reply.key,
                   "RfcReceive, handle " + std::to_string(handle_));
      return RFC_EXCEPTION;
    case w::ReplyStatus::kSystemFailure:
      SetLastError(w::kGroupSystemFailure, reply.key.empty() ? w::kKeySystemFailure : reply.key.c_str(),
                   reply.message.empty() ? "system failure in " + called_function_ : reply.message,
                   "RfcReceive, handle " + std::to_string(handle_));
      return RFC_SYS_EXCEPTION;
    case w::ReplyStatus::kOk:
      break;
  }
  if (!ReceiveValues(reply.values, exports, &error) ||
      !ReceiveTables(reply.tables, tables, handle_, false, &error)) {
    return Fail(w::kGroupConversion, w::kKeyConversion, "reply of " + called_function_ + ": " + error, "RfcReceive");
  }
  return RFC_OK;
}

// ---- server side ----------------------------------------------------------

int Connection::Listen() {
  if (closed_) return StillClosed("RfcListen");
  if (pending_) return RFC_OK;
  w::IoStatus ready = channel_->WaitReadable(0);
  if (ready == w::IoStatus::kTimeout) return RFC_NOTHING_WAITING;
  if (ready != w::IoStatus::kOk) {
    return ClosedBy(w::kGroupClosed, w::kKeyClosed, "connection to gateway " + partner_address_ + " broken");
  }
  w::Frame frame;
  int rc = ReceiveCall(&frame);
  if (rc != RFC_OK) return rc;
  pending_ = std::move(frame);
  return RFC_OK;
}

int Connection::ReceiveCall(w::Frame* frame) {
  std::string error;
  w::IoStatus status = channel_->Receive(frame, &error);
  if (status != w::IoStatus::kOk) {
    return ClosedBy(w::kGroupClosed, w::kKeyClosed, "connection closed by gateway " + partner_address_ + " (" + error + ")");
  }
  if (frame->type == w::FrameType::kClose) {
    try {
      w::ErrorNotice notice = w::ErrorNotice::Decode(*frame);
      return ClosedBy(notice.group, notice.key.c_str(), notice.message);
    } catch (const w::DecodeError& e) {
      return ClosedBy(w::kGroupProtocol, w::kKeyProtocol, std::string("protocol error: ") + e.what());
    }
  }
  if (frame->type != w::FrameType::kCall) {
    return ClosedBy(w::kGroupProtocol, w::kKeyProtocol,
                    std::string("protocol error: gateway sent a ") + w::FrameTypeName(frame->type) + " frame");
  }
  return RFC_OK;
}

int Connection::Reply(w::FrameWriter& reply, const char* where) {
  std::string error;
  if (channel_->Send(reply, &error) != w::IoStatus::kOk) {
    current_->replied = true;  // nobody is left to answer
    return ClosedBy(w::kGroupClosed, w::kKeyClosed,
                    std::string(where) + ": connection to " + partner_address_ + " closed by partner (" + error + ")");
  }
  current_->replied = true;
  return RFC_OK;
}

void Connection::AnswerUnreplied(bool by_exception) {
  if (!current_ || current_->replied || closed_) return;
  try {
    std::string message = "server function " + current_->message.function +
                          (by_exception ? " ended with an exception before it answered"
                                        : " ended without sending data or raising an exception");
    w::FrameWriter reply(w::FrameType::kReply);
    w::EncodeReplyHead(reply, w::ReplyStatus::kSystemFailure, w::kKeySystemFailure, message);
    reply.U32(0);
    reply.U32(0);
    std::string error;
    channel_->Send(reply, &error);
  } catch (...) {
    // Out of memory while answering: the caller sees the connection end instead.
    channel_->Shutdown();
  }
  current_->replied = true;
}

int Connection::Dispatch() {
  if (closed_) return StillClosed("RfcDispatch");
  w::Frame frame;
  if (pending_) {
    frame = std::move(*pending_);
    pending_.reset();
  } else {
    int rc = ReceiveCall(&frame);
    if (rc != RFC_OK) return rc;
  }
  current_.emplace(IncomingCall{});
  current_->frame = std::move(frame);
  try {
    current_->message = w::DecodeCall(current_->frame.payload.data(), current_->frame.payload.size());
  } catch (const w::DecodeError& e) {
    w::FrameWriter reply(w::FrameType::kReply);
    w::EncodeReplyHead(reply, w::ReplyStatus::kSystemFailure, w::kKeyProtocol,
                       std::string("protocol error in the call: ") + e.what());
    reply.U32(0);
    reply.U32(0);
    Reply(reply, "RfcDispatch");
    current_.reset();
    return Fail(w::kGroupProtocol, w::kKeyProtocol, std::string("protocol error in an incoming call: ") + e.what(),
                "RfcDispatch");
  }
  const std::string& name = current_->message.function;
  RfcServerFunction function = FunctionRegistry::Instance().Resolve(name);
  if (function == nullptr) {
    w::FrameWriter reply(w::FrameType::kReply);
    w::EncodeReplyHead(reply, w::ReplyStatus::kSystemFailure, "FUNCTION_NOT_FOUND",
                       "function " + name + " is not installed in this server program");
    reply.U32(0);
    reply.U32(0);
    int rc = Reply(reply, "RfcDispatch");
    current_.reset();
    if (rc != RFC_OK) return rc;
    SetLastError(w::kGroupProgram, w::kKeyProgram,
                 "call of " + name + " answered with a system failure: no such function and no " RFC_GLOBAL_SERVER_NAME,
                 "RfcDispatch, handle " + std::to_string(handle_));
    return RFC_OK;
  }

  // Whatever way the function leaves, the caller gets an answer and the call
  // is over; the exception itself goes on to our caller.
  struct EndOfCall {
    Connection* self;
    int exceptions_at_start = std::uncaught_exceptions();
    ~EndOfCall() {
      self->AnswerUnreplied(std::uncaught_exceptions() > exceptions_at_start);
      self->current_.reset();
    }
  } end_of_call{this};
  function(handle_);
  if (closed_) return StillClosed("RfcDispatch");
  return RFC_OK;
}

int Connection::GetName(char* name) {
  if (name == nullptr) return Fail(w::kGroupProgram, w::kKeyProgram, "RfcGetName: no buffer", "RfcGetName");
  if (!current_) {
    return Fail(w::kGroupProgram, w::kKeyProgram, "RfcGetName: no call is being served on this handle", "RfcGetName");
  }
  CopyBounded(name, RFC_FUNCTION_NAME_SIZE, current_->message.function.c_str());
  return RFC_OK;
}

int Connection::GetData(RfcParameterEntry* imports, RfcTableEntry* tables) {
  if (!current_) {
    return Fail(w::kGroupProgram, w::kKeyProgram, "RfcGetData: no call is being served on this handle", "RfcGetData");
  }
  std::string error;
  if (!ReceiveValues(current_->message.values, imports, &error) ||
      !ReceiveTables(current_->message.tables, tables, handle_, true, &error)) {
    return Fail(w::kGroupConversion, w::kKeyConversion, "call of " + current_->message.function + ": " + error,
                "RfcGetData");
  }
  return RFC_OK;
}

int Connection::SendData(RfcParameterEntry* exports, RfcTableEntry* tables) {
  if (!current_ || current_->replied) {
    return Fail(w::kGroupProgram, w::kKeyProgram,
                current_ ? "RfcSendData: the call has already been answered"
                         : "RfcSendData: no call is being served on this handle",
                "RfcSendData");
  }
  if (closed_) return StillClosed("RfcSendData");
  w::FrameWriter reply(w::FrameType::kReply);
  w::EncodeReplyHead(reply, w::ReplyStatus::kOk, "", "");
  std::string error;
  TableKeepAlive keep;
  if (!EncodeValues(reply, exports, &error) || !EncodeTables(reply, tables, &keep, &error)) {
    return Fail(w::kGroupProgram, w::kKeyProgram, "RfcSendData: " + error, "RfcSendData");
  }
  return Reply(reply, "RfcSendData");
}

int Connection::Raise(const char* exception) {
  if (exception == nullptr || *exception == '\0') {
    return Fail(w::kGroupProgram, w::kKeyProgram, "RfcRaise: no exception name", "RfcRaise");
  }
  if (!current_ || current_->replied) {
    return Fail(w::kGroupProgram, w::kKeyProgram,
                current_ ? "RfcRaise: the call has already been answered" : "RfcRaise: no call is being served on this handle",
                "RfcRaise");
  }
  if (closed_) return StillClosed("RfcRaise");
  w::FrameWriter reply(w::FrameType::kReply);
  w::EncodeReplyHead(reply, w::ReplyStatus::kException, exception, "");
  reply.U32(0);
  reply.U32(0);
  return Reply(reply, "RfcRaise");
}

int Connection::GetAttributes(ConnectionAttributes* attributes) const {
  if (attributes == nullptr) return RFC_FAILURE;
  std::memset(attributes, 0, sizeof *attributes);
  CopyBounded(attributes->own_host, sizeof attributes->own_host, w::LocalHostName().c_str());
  CopyBounded(attributes->partner_host, sizeof attributes->partner_host, partner_.host.c_str());
  CopyBounded(attributes->system_id, sizeof attributes->system_id, partner_.system_id.c_str());
  CopyBounded(attributes->client, sizeof attributes->client, partner_.client.c_str());
  CopyBounded(attributes->user, sizeof attributes->user, partner_.user.c_str());
  CopyBounded(attributes->language, sizeof attributes->language, partner_.language.c_str());
  CopyBounded(attributes->own_codepage, sizeof attributes->own_codepage, "1100");
  CopyBounded(attributes->partner_codepage, sizeof attributes->partner_codepage, partner_.codepage.c_str());
  attributes->partner_type = '3';
  attributes->rfc_role = role_ == Role::kClient ? 'C' : 'S';
  CopyBounded(attributes->partner_release, sizeof attributes->partner_release, partner_.release.c_str());
  CopyBounded(attributes->kernel_release, sizeof attributes->kernel_release, partner_.kernel_release.c_str());
  CopyBounded(attributes->own_release, sizeof attributes->own_release, "710");
  return RFC_OK;
}

}  // namespace rfcsim
