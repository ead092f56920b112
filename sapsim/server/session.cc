#include "sapsim/server/session.h"

#include "sapsim/server/event_log.h"
#include "sapsim/server/gateway.h"
#include "sapsim/server/simulated_system.h"
#include "sapsim/wire/decode_error.h"
#include "sapsim/wire/error_codes.h"
#include "sapsim/wire/payload_reader.h"

namespace sapsim::server {

namespace {
// How long a routed call waits for a busy server program to become free.
constexpr int kRouteWaitMs = 30000;
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
  if (!Send(system_.Describe().Encode())) return;
  std::shared_ptr<Registration> registration = gateway_.Register(hello.program_id, channel_);
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
    wire::Frame frame;
    std::string error;
    if (channel_->Receive(&frame, &error) != wire::IoStatus::kOk) return;
    try {
      if (frame.type == wire::FrameType::kDictRequest) {
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
      } else if (frame.type == wire::FrameType::kRouteCall) {
        wire::RouteCallHead head = wire::RouteCallHead::Decode(frame);
        const uint8_t* call = frame.payload.data() + head.call_offset;
        size_t size = frame.payload.size() - head.call_offset;
        // The function's name leads the CALL payload; for the log only.
        wire::PayloadReader peek(call, size);
        std::string function = peek.String(wire::kMaxNameLength);
        wire::Frame reply;
        wire::ErrorNotice refusal;
        if (!gateway_.Route(head.program_id, call, size, kRouteWaitMs, &reply, &refusal)) {
          EventLog::Write("call " + function + " for program " + head.program_id + " not delivered: " +
                          refusal.message);
          Refuse(refusal);
          continue;
        }
        if (log_calls_) EventLog::Write("call " + function + " routed to program " + head.program_id);
        wire::FrameWriter forward(wire::FrameType::kReply);
        forward.Borrow(reply.payload.data(), reply.payload.size());
        if (!Send(std::move(forward))) return;
      } else {
        throw wire::DecodeError(std::string("unexpected ") + wire::FrameTypeName(frame.type) + " frame");
      }
    } catch (const wire::DecodeError& e) {
      Refuse(wire::ErrorNotice{wire::kGroupProtocol, wire::kKeyProtocol, std::string("protocol error: ") + e.what()});
      return;
    }
  }
}

}  // namespace sapsim::server
