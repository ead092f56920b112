#include "sapsim/server/session.h"

#include <algorithm>
#include <vector>

#include "sapsim/server/event_log.h"
#include "sapsim/server/gateway.h"
#include "sapsim/server/kill_point.h"
#include "sapsim/server/simulated_system.h"
#include "sapsim/wire/call_message.h"
#include "sapsim/wire/decode_error.h"
#include "sapsim/wire/error_codes.h"

namespace sapsim::server {

namespace {
// How long a routed call waits for a busy server program to become free.
constexpr int kRouteWaitMs = 30000;

// For --kill-at reply-table: does this reply carry table lines?
bool CarriesTableLines(const std::vector<uint8_t>& frame) {
  if (frame.size() < wire::kHeaderSize) return false;
  try {
    wire::ReplyMessage reply = wire::DecodeReply(frame.data() + wire::kHeaderSize, frame.size() - wire::kHeaderSize);
    return std::any_of(reply.tables.begin(), reply.tables.end(),
                       [](const wire::WireTable& table) { return table.row_count > 0; });
  } catch (const wire::DecodeError&) {
    return false;
  }
}
}  // namespace

Session::Session(const SimulatedSystem& system, Gateway& gateway, std::shared_ptr<wire::FrameChannel> channel,
                 bool log_calls)
    : system_(system), gateway_(gateway), channel_(std::move(channel)), log_calls_(log_calls) {}

bool Session::Send(wire::FrameWriter frame) {
  std::string error;
  return channel_->Send(frame, &error) == wire::IoStatus::kOk;
}

void Session::Refuse(const wire::ErrorNotice& notice) { Send(notice.Encode(wire::FrameType::kError)); }

void Session::Run() {
  wire::Frame first;
  std::string error;
  if (channel_->Receive(&first, &error) != wire::IoStatus::kOk) return;
  wire::Hello hello;
  try {
    hello = wire::Hello::Decode(first);
  } catch (const wire::DecodeError& e) {
    EventLog::Write(std::string("connection refused: protocol error: ") + e.what());
    Refuse(wire::ErrorNotice{wire::kGroupProtocol, wire::kKeyProtocol,
                             std::string("protocol error: ") + e.what()});
    return;
  }
  switch (hello.kind) {
    case wire::SessionKind::kClient: ServeClient(hello); break;
    case wire::SessionKind::kRegisteredServer: ServeRegisteredServer(hello); break;
    case wire::SessionKind::kControl: ServeControl(); break;
    case wire::SessionKind::kCaller: ServeCaller(); break;
  }
}

void Session::ServeClient(const wire::Hello& hello) {
  if (KillPointArmed(KillPoint::kLogon)) KillAt(KillPoint::kLogon);
  wire::Welcome welcome;
  wire::ErrorNotice refusal;
  if (!system_.Logon(hello, &welcome, &refusal)) {
    EventLog::Write(refusal.message);
    Refuse(refusal);
    return;
  }
  EventLog::Write("logon client " + welcome.client + " user " + welcome.user +
                  (hello.own_host.empty() ? std::string() : " from " + hello.own_host));
  if (!Send(welcome.Encode())) return;
  SessionInfo session{welcome.client, welcome.user, welcome.language};
  for (;;) {
    wire::Frame frame;
    std::string error;
    wire::IoStatus status = channel_->Receive(&frame, &error);
    if (status == wire::IoStatus::kClosed) break;
    if (status != wire::IoStatus::kOk) {
      EventLog::Write("client " + welcome.user + ": " + error);
      break;
    }
    if (frame.type != wire::FrameType::kCall) {
      EventLog::Write("client " + welcome.user + " sent a " + wire::FrameTypeName(frame.type) +
                      " frame instead of a call; connection closed");
      Refuse(wire::ErrorNotice{wire::kGroupProtocol, wire::kKeyProtocol,
                               std::string("unexpected ") + wire::FrameTypeName(frame.type) + " frame"});
      break;
    }
    SimulatedSystem::Execution run = system_.Execute(frame.payload.data(), frame.payload.size(), session);
    if (log_calls_ || run.outcome.compare(0, 2, "ok") != 0) {
      EventLog::Write("call " + run.function + " by " + welcome.user + ": " + run.outcome);
    }
    if (KillPointArmed(KillPoint::kReplyTable)) {
      std::vector<uint8_t> frame = run.reply.Flatten();
      if (CarriesTableLines(frame)) {
        KillInsideFrame(*channel_, wire::FrameType::kReply, frame.data() + wire::kHeaderSize,
                        frame.size() - wire::kHeaderSize, KillPoint::kReplyTable);
      }
    }
    std::string send_error;
    if (channel_->Send(run.reply, &send_error) != wire::IoStatus::kOk) break;
  }
  EventLog::Write("logoff user " + welcome.user);
}

void Session::ServeRegisteredServer(const wire::Hello& hello) {
  if (hello.program_id.empty()) {
    EventLog::Write("registration refused: no program id");
    Refuse(wire::ErrorNotice{wire::kGroupRegistration, wire::kKeyRegistration,
                             "registration refused: the program id is empty"});
    return;
  }
  // Known to the gateway before the server hears it is registered, so that a
  // check right after the registration counts it; calls come only once it
  // has been told (its first frame must be the WELCOME).
  std::shared_ptr<Registration> registration = gateway_.Register(hello.program_id, channel_);
  if (KillPointArmed(KillPoint::kRegistration)) KillAt(KillPoint::kRegistration);
  if (!Send(system_.Describe().Encode())) {
    gateway_.Unregister(registration);
    return;
  }
  registration->Ready();
  EventLog::Write("registered program " + hello.program_id +
                  (hello.own_host.empty() ? std::string() : " from " + hello.own_host) + " (registration " +
                  std::to_string(registration->id()) + ")");
  registration->Watch();
  gateway_.Unregister(registration);
  EventLog::Write("registration " + std::to_string(registration->id()) + " of program " + hello.program_id +
                  " ended");
}

void Session::ServeControl() {
  for (;;) {
    wire::Frame frame;
    std::string error;
    if (channel_->Receive(&frame, &error) != wire::IoStatus::kOk) return;
    try {
      wire::NameQuery query = wire::NameQuery::Decode(frame);
      if (frame.type == wire::FrameType::kRegCheck) {
        wire::RegistrationCounts counts = gateway_.Count(query.name);
        if (log_calls_) {
          EventLog::Write("registration check of program " + query.name + ": " + std::to_string(counts.total) +
                          " registered");
        }
        if (!Send(counts.Encode())) return;
      } else if (frame.type == wire::FrameType::kRegCancel) {
        wire::RegistrationCounts counts = gateway_.Cancel(query.name);
        EventLog::Write("cancelled " + std::to_string(counts.cancelled) + " registration(s) of program " +
                        query.name);
        if (!Send(counts.Encode())) return;
      } else {
        throw wire::DecodeError(std::string("unexpected ") + wire::FrameTypeName(frame.type) + " frame");
      }
    } catch (const wire::DecodeError& e) {
      Refuse(wire::ErrorNotice{wire::kGroupProtocol, wire::kKeyProtocol, std::string("protocol error: ") + e.what()});
      return;
    }
  }
}

void Session::ServeCaller() {
  if (!Send(system_.Describe().Encode())) return;
  for (;;) {
    wire::FrameHeader header;
    std::string error;
    if (channel_->ReceiveHeader(&header, &error) != wire::IoStatus::kOk) return;
    if (header.type == wire::FrameType::kRouteCall) {
      if (!RelayCall(header.payload_length)) return;
      continue;
    }
    wire::Frame frame;
    frame.type = header.type;
    frame.payload.resize(header.payload_length);
    if (channel_->ReceiveBytes(frame.payload.data(), frame.payload.size(), &error) != wire::IoStatus::kOk) return;
    try {
      if (frame.type != wire::FrameType::kDictRequest) {
        throw wire::DecodeError(std::string("unexpected ") + wire::FrameTypeName(frame.type) + " frame");
      }
      wire::NameQuery query = wire::NameQuery::Decode(frame);
      const StructureDefinition* structure = system_.dictionary().Find(query.name);
      if (structure == nullptr) {
        Refuse(wire::ErrorNotice{wire::kGroupSystemFailure, "TABLE_NOT_ACTIVE",
                                 "structure " + query.name + " is not in the dictionary of system " +
                                     system_.definition().system_id});
        continue;
      }
      wire::DictionaryAnswer answer{structure->name, structure->layout};
      if (!Send(answer.Encode())) return;
    } catch (const wire::DecodeError& e) {
      Refuse(wire::ErrorNotice{wire::kGroupProtocol, wire::kKeyProtocol, std::string("protocol error: ") + e.what()});
      return;
    }
  }
}

// Reads a text of the payload (u32 length and bytes) into *text and appends
// its encoded form to *raw; false when it does not fit what is left.
bool Session::ReadText(size_t* left, std::string* text, std::vector<uint8_t>* raw) {
  uint8_t length_bytes[4];
  std::string error;
  if (*left < 4 || channel_->ReceiveBytes(length_bytes, 4, &error) != wire::IoStatus::kOk) return false;
  uint32_t length = 0;
  for (int i = 0; i < 4; ++i) length |= static_cast<uint32_t>(length_bytes[i]) << (8 * i);
  if (length > wire::kMaxNameLength || length > *left - 4) return false;
  text->resize(length);
  if (length > 0 &&
      channel_->ReceiveBytes(reinterpret_cast<uint8_t*>(text->data()), length, &error) != wire::IoStatus::kOk) {
    return false;
  }
  if (raw != nullptr) {
    raw->insert(raw->end(), length_bytes, length_bytes + 4);
    raw->insert(raw->end(), text->begin(), text->end());
  }
  *left -= 4 + length;
  return true;
}

bool Session::RelayCall(size_t payload_length) {
  // The program id and the function's name lead the payload; the rest goes
  // on to the server as it arrives, without being held here whole.
  size_t left = payload_length;
  std::string program_id;
  std::string function;
  std::vector<uint8_t> head;
  if (!ReadText(&left, &program_id, nullptr) || !ReadText(&left, &function, &head)) {
    EventLog::Write("caller sent a malformed routed call; connection closed");
    Refuse(wire::ErrorNotice{wire::kGroupProtocol, wire::kKeyProtocol, "protocol error: malformed routed call"});
    return false;
  }
  CallSource call{head.data(), head.size(), channel_.get(), left};
  wire::Frame reply;
  wire::ErrorNotice refusal;
  bool delivered = false;
  if (!gateway_.Route(program_id, call, kRouteWaitMs, &reply, &refusal, &delivered)) {
    std::string error;
    if (!delivered && channel_->Discard(left, &error) != wire::IoStatus::kOk) return false;
    EventLog::Write("call " + function + " for program " + program_id + " not delivered: " + refusal.message);
    // A caller that broke off in the middle of its call is gone; the next
    // read of its connection ends the session.
    Refuse(refusal);
    return true;
  }
  if (log_calls_) EventLog::Write("call " + function + " routed to program " + program_id);
  wire::FrameWriter forward(wire::FrameType::kReply);
  forward.Borrow(reply.payload.data(), reply.payload.size());
  return Send(std::move(forward));
}

}  // namespace sapsim::server
