#include "sapsim/server/registration.h"

#include <vector>

#include "sapsim/server/event_log.h"
#include "sapsim/server/kill_point.h"
#include "sapsim/server/simulated_system.h"
#include "sapsim/wire/error_codes.h"

namespace sapsim::server {

Registration::Registration(uint64_t id, std::string program_id, std::shared_ptr<wire::FrameChannel> channel,
                           const SimulatedSystem& system)
    : id_(id), program_id_(std::move(program_id)), channel_(std::move(channel)), system_(system) {}

void Registration::Ready() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (state_ == State::kStarting) state_ = State::kIdle;
  }
  changed_.notify_all();
}

bool Registration::starting() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return state_ == State::kStarting;
}

bool Registration::busy() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return state_ == State::kBusy;
}

bool Registration::closed() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return state_ == State::kClosed;
}

bool Registration::TryReserve() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (state_ != State::kIdle) return false;
  state_ = State::kBusy;
  return true;
}

void Registration::Release(bool broken) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (state_ == State::kBusy) state_ = broken ? State::kClosed : State::kIdle;
  }
  if (broken) channel_->Shutdown();
  changed_.notify_all();
}

void Registration::Cancel(const wire::ErrorNotice& notice) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (state_ == State::kClosed) return;
    state_ = State::kClosed;
  }
  wire::FrameWriter close = notice.Encode(wire::FrameType::kClose);
  std::string ignored;
  channel_->Send(close, &ignored);
  channel_->Shutdown();
  changed_.notify_all();
}

void Registration::Shutdown() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    state_ = State::kClosed;
  }
  channel_->Shutdown();
  changed_.notify_all();
}

bool Registration::ServeCallback(const wire::Frame& frame, std::string* error) {
  SimulatedSystem::Execution run = system_.Execute(frame.payload.data(), frame.payload.size(), system_.SystemSession());
  EventLog::Write("callback " + run.function + " from program " + program_id_ + ": " + run.outcome);
  return channel_->Send(run.reply, error) == wire::IoStatus::kOk;
}

void Registration::Watch() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    if (state_ == State::kClosed) return;
    if (state_ == State::kBusy || state_ == State::kStarting) {
      changed_.wait(lock);
      continue;
    }
    lock.unlock();
    // Wakes for a frame, the end of the connection, or a shutdown.
    wire::IoStatus readable = channel_->WaitReadable(-1);
    lock.lock();
    if (state_ != State::kIdle) continue;  // a caller took over meanwhile
    if (readable != wire::IoStatus::kOk) {
      state_ = State::kClosed;
      return;
    }
    // Only now that no caller can take the connection: is something still there?
    state_ = State::kReading;
    lock.unlock();
    bool keep = true;
    if (channel_->WaitReadable(0) == wire::IoStatus::kOk) {
      wire::Frame frame;
      std::string error;
      wire::IoStatus status = channel_->Receive(&frame, &error);
      if (status != wire::IoStatus::kOk) {
        keep = false;
      } else if (frame.type == wire::FrameType::kCall) {
        keep = ServeCallback(frame, &error);
      } else {
        EventLog::Write("program " + program_id_ + " sent an unexpected " + wire::FrameTypeName(frame.type) +
                        " frame; registration dropped");
        keep = false;
      }
    }
    lock.lock();
    if (state_ == State::kReading) state_ = keep ? State::kIdle : State::kClosed;
    changed_.notify_all();
  }
}

bool Registration::Exchange(const CallSource& call, wire::Frame* reply, wire::ErrorNotice* error) {
  auto fail = [&](int32_t group, const char* key, const std::string& message) {
    error->group = group;
    error->key = key;
    error->message = message;
    Release(true);
    return false;
  };
  std::string why;
  if (KillPointArmed(KillPoint::kCallTable)) {
    // The whole call first, so that the cut is at a known place: half of
    // the payload, which for a batch is inside its table's lines.
    std::vector<uint8_t> payload(call.data, call.data + call.size);
    if (call.stream != nullptr) {
      payload.resize(call.size + call.stream_size);
      call.stream->ReceiveBytes(payload.data() + call.size, call.stream_size, &why);
    }
    KillInsideFrame(*channel_, wire::FrameType::kCall, payload.data(), payload.size(), KillPoint::kCallTable);
  }
  if (call.stream != nullptr) {
    // Passed on as it arrives, so that both transfers overlap.
    bool caller_failed = false;
    if (channel_->Relay(wire::FrameType::kCall, call.data, call.size, *call.stream, call.stream_size, &caller_failed,
                        &why) != wire::IoStatus::kOk) {
      if (caller_failed) {
        return fail(wire::kGroupClosed, wire::kKeyClosed, "the caller ended the connection during the call: " + why);
      }
      return fail(wire::kGroupCommunication, wire::kKeyCommunication,
                  "program " + program_id_ + " cannot be reached: " + why);
    }
  } else {
    wire::FrameWriter frame(wire::FrameType::kCall);
    frame.Borrow(call.data, call.size);
    if (channel_->Send(frame, &why) != wire::IoStatus::kOk) {
      return fail(wire::kGroupCommunication, wire::kKeyCommunication,
                  "program " + program_id_ + " cannot be reached: " + why);
    }
  }
  for (;;) {
    wire::IoStatus status = channel_->Receive(reply, &why);
    if (status != wire::IoStatus::kOk) {
      return fail(wire::kGroupClosed, wire::kKeyClosed,
                  "program " + program_id_ + " ended the connection during the call: " + why);
    }
    if (reply->type == wire::FrameType::kReply) {
      Release(false);
      return true;
    }
    if (reply->type == wire::FrameType::kCall) {
      if (!ServeCallback(*reply, &why)) {
        return fail(wire::kGroupCommunication, wire::kKeyCommunication,
                    "program " + program_id_ + " cannot be reached: " + why);
      }
      continue;
    }
    return fail(wire::kGroupProtocol, wire::kKeyProtocol,
                "program " + program_id_ + " answered with a " + wire::FrameTypeName(reply->type) + " frame");
  }
}

}  // namespace sapsim::server
