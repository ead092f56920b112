#pragma once
// The small frames around calls: who connects, logon answers, refusals,
// registration counts, message-server look-ups, dictionary look-ups.
// Each message encodes into a whole frame and decodes from a payload
// (throwing DecodeError).

#include <cstdint>
#include <string>

#include "sapsim/wire/frame.h"
#include "sapsim/wire/frame_writer.h"
#include "sapsim/wire/value_description.h"

namespace sapsim::wire {

// What a connection is for; the first frame (HELLO) says it.
enum class SessionKind : uint8_t {
  kClient = 1,            // an RFC client logs on and calls function modules
  kRegisteredServer = 2,  // an RFC server program registers under a program id
  kControl = 3,           // registration check and cancel
  kCaller = 4,            // the SAP side (sapsim call): dictionary look-ups, routed calls
};

struct Hello {
  SessionKind kind = SessionKind::kClient;
  std::string program_id;  // kRegisteredServer
  std::string client;      // kClient
  std::string user;
  std::string password;
  std::string language;
  std::string own_host;    // the connecting program's host, for logs and attributes

  FrameWriter Encode() const;
  static Hello Decode(const Frame& frame);
};

// Logon or registration accepted: the partner system's data.
struct Welcome {
  std::string system_id;
  std::string release;         // may be empty
  std::string kernel_release;
  std::string host;
  std::string client;
  std::string user;
  std::string language;
  std::string codepage;

  FrameWriter Encode() const;
  static Welcome Decode(const Frame& frame);
};

// ERROR (a refusal) and CLOSE (the partner ends the connection) carry the same.
struct ErrorNotice {
  int32_t group = 0;
  std::string key;
  std::string message;

  FrameWriter Encode(FrameType type) const;
  static ErrorNotice Decode(const Frame& frame);
};

// REG_CHECK, REG_CANCEL, DICT_REQUEST: one name.
struct NameQuery {
  std::string name;

  FrameWriter Encode(FrameType type) const;
  static NameQuery Decode(const Frame& frame);
};

struct RegistrationCounts {
  int32_t total = 0;
  int32_t initialising = 0;
  int32_t ready = 0;
  int32_t busy = 0;
  int32_t cancelled = 0;

  FrameWriter Encode() const;
  static RegistrationCounts Decode(const Frame& frame);
};

struct MessageServerQuery {
  std::string system_name;
  std::string group;

  FrameWriter Encode() const;
  static MessageServerQuery Decode(const Frame& frame);
};

// The application server to log on to; an empty host means the message
// server's own host.
struct MessageServerAnswer {
  std::string host;
  uint16_t port = 0;

  FrameWriter Encode() const;
  static MessageServerAnswer Decode(const Frame& frame);
};

// A dictionary structure's layout.
struct DictionaryAnswer {
  std::string name;
  ValueDesc layout;

  FrameWriter Encode() const;
  static DictionaryAnswer Decode(const Frame& frame);
};

// ROUTE_CALL: the program id, then a CALL payload as it stands.
struct RouteCallHead {
  std::string program_id;
  size_t call_offset = 0;  // where the CALL payload starts in the frame's payload

  static RouteCallHead Decode(const Frame& frame);
};
// Starts a ROUTE_CALL frame; the caller appends the CALL payload.
FrameWriter BeginRouteCall(const std::string& program_id);

}  // namespace sapsim::wire
