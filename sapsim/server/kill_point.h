#pragma once
// `sapsim serve --kill-at POINT`: the system ends itself with SIGKILL at one
// chosen moment of a conversation, so that a test of an RFC server program
// can break its connections exactly there instead of killing the process at a
// guessed time. The point is armed once at start, before any thread runs; a
// restarted system without the option runs normally.

#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "sapsim/server/event_log.h"
#include "sapsim/wire/frame.h"
#include "sapsim/wire/frame_channel.h"

namespace sapsim::server {

enum class KillPoint {
  kNone,
  kLogon,         // a client's logon has arrived; it is never answered
  kRegistration,  // a server program's registration has arrived; it is never confirmed
  kCallTable,     // halfway through passing a routed call on to the server program
  kReplyTable,    // halfway through the first reply to a client that carries table lines
};

namespace kill_point_internal {
inline std::atomic<KillPoint> g_armed{KillPoint::kNone};
}  // namespace kill_point_internal

inline const char* KillPointName(KillPoint point) {
  switch (point) {
    case KillPoint::kLogon: return "logon";
    case KillPoint::kRegistration: return "registration";
    case KillPoint::kCallTable: return "call-table";
    case KillPoint::kReplyTable: return "reply-table";
    case KillPoint::kNone: break;
  }
  return "none";
}

// One of the names above; false for anything else.
inline bool ParseKillPoint(const std::string& text, KillPoint* point) {
  for (KillPoint candidate :
       {KillPoint::kLogon, KillPoint::kRegistration, KillPoint::kCallTable, KillPoint::kReplyTable}) {
    if (text == KillPointName(candidate)) {
      *point = candidate;
      return true;
    }
  }
  return false;
}

inline void ArmKillPoint(KillPoint point) { kill_point_internal::g_armed.store(point); }
inline bool KillPointArmed(KillPoint point) { return kill_point_internal::g_armed.load() == point; }

// Says where, then ends the process as `kill -9` would: no destructor runs
// and the kernel closes every connection.
[[noreturn]] inline void KillAt(KillPoint point) {
  EventLog::Write(std::string("killed at ") + KillPointName(point) + " (--kill-at)");
  for (;;) ::kill(::getpid(), SIGKILL);
}

// Sends the header of a frame of `type` announcing all `size` payload bytes,
// but only the first half of them, and dies: the partner sees the connection
// end in the middle of the frame's data.
[[noreturn]] inline void KillInsideFrame(const wire::FrameChannel& channel, wire::FrameType type,
                                         const uint8_t* payload, size_t size, KillPoint point) {
  uint8_t head[wire::kHeaderSize];
  wire::FrameHeader header;
  header.type = type;
  header.payload_length = static_cast<uint32_t>(std::min<size_t>(size, wire::kMaxPayload));
  wire::EncodeHeader(header, head);
  auto send_all = [&](const uint8_t* data, size_t length) {
    while (length > 0) {
      ssize_t sent = ::send(channel.socket().fd(), data, length, MSG_NOSIGNAL);
      if (sent <= 0) return;
      data += sent;
      length -= static_cast<size_t>(sent);
    }
  };
  send_all(head, sizeof head);
  send_all(payload, size / 2);
  KillAt(point);
}

}  // namespace sapsim::server
