#include "sapsim/wire/gateway_caller.h"

#include "sapsim/wire/decode_error.h"
#include "sapsim/wire/frame_writer.h"

namespace sapsim::wire {

namespace {

bool AskOnce(FrameChannel& channel, FrameWriter request, Frame* answer, std::string* error) {
  if (channel.Send(request, error) != IoStatus::kOk) return false;
  return channel.Receive(answer, error) == IoStatus::kOk;
}

std::string RefusalText(const Frame& frame) {
  try {
    return ErrorNotice::Decode(frame).message;
  } catch (const DecodeError& e) {
    return std::string("protocol error: ") + e.what();
  }
}

}  // namespace

bool GatewayCaller::Connect(const std::string& host, uint16_t port, std::string* error) {
  Socket socket = Socket::Connect(host, port, error);
  if (!socket.valid()) return false;
  channel_ = std::make_unique<FrameChannel>(std::move(socket));
  Hello hello;
  hello.kind = SessionKind::kCaller;
  hello.own_host = LocalHostName();
  Frame answer;
  if (!AskOnce(*channel_, hello.Encode(), &answer, error)) return false;
  if (answer.type != FrameType::kWelcome) {
    *error = answer.type == FrameType::kError ? RefusalText(answer) : "unexpected answer to HELLO";
    return false;
  }
  try {
    system_ = Welcome::Decode(answer);
  } catch (const DecodeError& e) {
    *error = std::string("protocol error: ") + e.what();
    return false;
  }
  return true;
}

bool GatewayCaller::LookUp(const std::string& structure, ValueDesc* layout, std::string* error) {
  Frame answer;
  if (!channel_ || !AskOnce(*channel_, NameQuery{structure}.Encode(FrameType::kDictRequest), &answer, error)) {
    if (!channel_) *error = "not connected";
    return false;
  }
  if (answer.type == FrameType::kError) {
    *error = RefusalText(answer);
    return false;
  }
  try {
    *layout = DictionaryAnswer::Decode(answer).layout;
  } catch (const DecodeError& e) {
    *error = std::string("protocol error: ") + e.what();
    return false;
  }
  return true;
}

GatewayCaller::Outcome GatewayCaller::Call(const std::string& program_id, const std::string& function,
                                           const std::vector<OutgoingTable>& tables, Frame* reply,
                                           ErrorNotice* refusal, std::string* error) {
  if (!channel_) {
    *error = "not connected";
    return Outcome::kBroken;
  }
  FrameWriter request = BeginRouteCall(program_id);
  request.String(function);
  request.U32(0);
  request.U32(static_cast<uint32_t>(tables.size()));
  for (const OutgoingTable& table : tables) {
    EncodeTableHead(request, table.name, table.desc, table.row_count);
    request.Borrow(table.rows, static_cast<size_t>(table.row_count) * table.desc.length);
  }
  if (!AskOnce(*channel_, std::move(request), reply, error)) return Outcome::kBroken;
  if (reply->type == FrameType::kError) {
    try {
      *refusal = ErrorNotice::Decode(*reply);
    } catch (const DecodeError& e) {
      *error = std::string("protocol error: ") + e.what();
      return Outcome::kBroken;
    }
    return Outcome::kRefused;
  }
  if (reply->type != FrameType::kReply) {
    *error = std::string("protocol error: the system answered with a ") + FrameTypeName(reply->type) + " frame";
    return Outcome::kBroken;
  }
  return Outcome::kReplied;
}

}  // namespace sapsim::wire
