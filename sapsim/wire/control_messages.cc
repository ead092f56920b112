#include "sapsim/wire/control_messages.h"

#include "sapsim/wire/decode_error.h"
#include "sapsim/wire/payload_reader.h"

namespace sapsim::wire {

namespace {

void ExpectType(const Frame& frame, FrameType type) {
  if (frame.type != type) {
    throw DecodeError(std::string("expected a ") + FrameTypeName(type) + " frame, got " +
                      FrameTypeName(frame.type));
  }
}

PayloadReader ReaderOf(const Frame& frame) { return PayloadReader(frame.payload.data(), frame.payload.size()); }

}  // namespace

FrameWriter Hello::Encode() const {
  FrameWriter w(FrameType::kHello);
  w.U8(static_cast<uint8_t>(kind));
  w.String(program_id);
  w.String(client);
  w.String(user);
  w.String(password);
  w.String(language);
  w.String(own_host);
  return w;
}

Hello Hello::Decode(const Frame& frame) {
  ExpectType(frame, FrameType::kHello);
  PayloadReader r = ReaderOf(frame);
  Hello hello;
  uint8_t kind = r.U8();
  if (kind < static_cast<uint8_t>(SessionKind::kClient) || kind > static_cast<uint8_t>(SessionKind::kCaller)) {
    throw DecodeError("unknown session kind " + std::to_string(kind));
  }
  hello.kind = static_cast<SessionKind>(kind);
  hello.program_id = r.String(kMaxNameLength);
  hello.client = r.String(kMaxNameLength);
  hello.user = r.String(kMaxNameLength);
  hello.password = r.String(kMaxNameLength);
  hello.language = r.String(kMaxNameLength);
  hello.own_host = r.String(kMaxNameLength);
  r.ExpectEnd();
  return hello;
}

FrameWriter Welcome::Encode() const {
  FrameWriter w(FrameType::kWelcome);
  for (const std::string* text : {&system_id, &release, &kernel_release, &host, &client, &user, &language, &codepage}) {
    w.String(*text);
  }
  return w;
}

Welcome Welcome::Decode(const Frame& frame) {
  ExpectType(frame, FrameType::kWelcome);
  PayloadReader r = ReaderOf(frame);
  Welcome welcome;
  for (std::string* text : {&welcome.system_id, &welcome.release, &welcome.kernel_release, &welcome.host,
                            &welcome.client, &welcome.user, &welcome.language, &welcome.codepage}) {
    *text = r.String(kMaxNameLength);
  }
  r.ExpectEnd();
  return welcome;
}

FrameWriter ErrorNotice::Encode(FrameType type) const {
  FrameWriter w(type);
  w.I32(group);
  w.String(key);
  w.String(message);
  return w;
}

ErrorNotice ErrorNotice::Decode(const Frame& frame) {
  if (frame.type != FrameType::kError && frame.type != FrameType::kClose) {
    throw DecodeError(std::string("expected an ERROR or CLOSE frame, got ") + FrameTypeName(frame.type));
  }
  PayloadReader r = ReaderOf(frame);
  ErrorNotice notice;
  notice.group = r.I32();
  notice.key = r.String(kMaxNameLength);
  notice.message = r.String();
  r.ExpectEnd();
  return notice;
}

FrameWriter NameQuery::Encode(FrameType type) const {
  FrameWriter w(type);
  w.String(name);
  return w;
}

NameQuery NameQuery::Decode(const Frame& frame) {
  if (frame.type != FrameType::kRegCheck && frame.type != FrameType::kRegCancel &&
      frame.type != FrameType::kDictRequest) {
    throw DecodeError(std::string("expected a query frame, got ") + FrameTypeName(frame.type));
  }
  PayloadReader r = ReaderOf(frame);
  NameQuery query;
  query.name = r.String(kMaxNameLength);
  r.ExpectEnd();
  return query;
}

FrameWriter RegistrationCounts::Encode() const {
  FrameWriter w(FrameType::kRegCounts);
  for (int32_t value : {total, initialising, ready, busy, cancelled}) w.I32(value);
  return w;
}

RegistrationCounts RegistrationCounts::Decode(const Frame& frame) {
  ExpectType(frame, FrameType::kRegCounts);
  PayloadReader r = ReaderOf(frame);
  RegistrationCounts counts;
  for (int32_t* value : {&counts.total, &counts.initialising, &counts.ready, &counts.busy, &counts.cancelled}) {
    *value = r.I32();
    if (*value < 0) throw DecodeError("negative registration count");
  }
  r.ExpectEnd();
  return counts;
}

FrameWriter MessageServerQuery::Encode() const {
  FrameWriter w(FrameType::kMsLookup);
  w.String(system_name);
  w.String(group);
  return w;
}

MessageServerQuery MessageServerQuery::Decode(const Frame& frame) {
  ExpectType(frame, FrameType::kMsLookup);
  PayloadReader r = ReaderOf(frame);
  MessageServerQuery query;
  query.system_name = r.String(kMaxNameLength);
  query.group = r.String(kMaxNameLength);
  r.ExpectEnd();
  return query;
}

FrameWriter MessageServerAnswer::Encode() const {
  FrameWriter w(FrameType::kMsAnswer);
  w.String(host);
  w.U16(port);
  return w;
}

MessageServerAnswer MessageServerAnswer::Decode(const Frame& frame) {
  ExpectType(frame, FrameType::kMsAnswer);
  PayloadReader r = ReaderOf(frame);
  MessageServerAnswer answer;
  answer.host = r.String(kMaxNameLength);
  answer.port = r.U16();
  if (answer.port == 0) throw DecodeError("message server answered port 0");
  r.ExpectEnd();
  return answer;
}

FrameWriter DictionaryAnswer::Encode() const {
  FrameWriter w(FrameType::kDictReply);
  w.String(name);
  EncodeValueDesc(w, layout);
  return w;
}

DictionaryAnswer DictionaryAnswer::Decode(const Frame& frame) {
  ExpectType(frame, FrameType::kDictReply);
  PayloadReader r = ReaderOf(frame);
  DictionaryAnswer answer;
  answer.name = r.String(kMaxNameLength);
  answer.layout = DecodeValueDesc(r);
  if (answer.layout.kind != ValueDesc::Kind::kStructure) throw DecodeError("dictionary answer is not a structure");
  r.ExpectEnd();
  return answer;
}

RouteCallHead RouteCallHead::Decode(const Frame& frame) {
  ExpectType(frame, FrameType::kRouteCall);
  PayloadReader r = ReaderOf(frame);
  RouteCallHead head;
  head.program_id = r.String(kMaxNameLength);
  head.call_offset = frame.payload.size() - r.Remaining();
  return head;
}

FrameWriter BeginRouteCall(const std::string& program_id) {
  FrameWriter w(FrameType::kRouteCall);
  w.String(program_id);
  return w;
}

}  // namespace sapsim::wire
