// Feeds arbitrary bytes to the frame decoder and every payload decoder of the
// wire protocol, and converts whatever values and table lines decode, the way
// the library and the simulated system treat bytes from the network. A
// malformed frame must end in DecodeError, never in a crash or an overrun.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "sapsim/wire/call_message.h"
#include "sapsim/wire/control_messages.h"
#include "sapsim/wire/decode_error.h"
#include "sapsim/wire/frame.h"
#include "sapsim/wire/line_converter.h"
#include "sapsim/wire/rfc_types.h"
#include "sapsim/wire/value_converter.h"

namespace w = sapsim::wire;

namespace {

// A receiver's layout with one field of every type, so that conversions from
// whatever the input describes are tried.
const w::ValueDesc& Receiver() {
  static const w::ValueDesc desc = [] {
    std::vector<w::FieldDesc> fields;
    const char* names[] = {"A", "B", "C", "D", "E", "F", "G", "H", "I", "J"};
    int32_t types[] = {w::kTypeChar, w::kTypeDate, w::kTypeBcd, w::kTypeTime, w::kTypeByte,
                       w::kTypeNum,  w::kTypeFloat, w::kTypeInt, w::kTypeInt2, w::kTypeInt1};
    uint32_t lengths[] = {7, 8, 4, 6, 3, 5, 8, 4, 2, 1};
    for (int i = 0; i < 10; ++i) fields.push_back(w::FieldDesc{names[i], types[i], lengths[i], i == 2 ? 2 : 0, 0});
    uint32_t length = w::LayOut(fields);
    return w::ValueDesc::Structure(fields, length);
  }();
  return desc;
}

void Convert(const w::ValueDesc& from, const uint8_t* lines, uint32_t count) {
  std::vector<uint8_t> out(Receiver().length);
  w::LineConverter by_name(from, Receiver());
  std::string error;
  for (uint32_t i = 0; i < count && i < 64; ++i) {
    by_name.Convert(lines + static_cast<size_t>(i) * from.length, out.data(), &error);
  }
  if (from.kind == w::ValueDesc::Kind::kSimple && count > 0) {
    w::ValueToText(w::SimpleType{from.type, from.length, from.decimals}, lines);
  }
  if (from.kind == w::ValueDesc::Kind::kStructure && count > 0) {
    for (const w::FieldDesc& field : from.fields) {
      w::ValueToText(w::SimpleType{field.type, field.length, field.decimals}, lines + field.offset);
    }
  }
}

void ConvertAll(const std::vector<w::WireValue>& values, const std::vector<w::WireTable>& tables) {
  for (const w::WireValue& value : values) Convert(value.desc, value.data, 1);
  for (const w::WireTable& table : tables) Convert(table.desc, table.rows, table.row_count);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    w::Frame frame = w::DecodeFrame(data, size);
    switch (frame.type) {
      case w::FrameType::kHello: w::Hello::Decode(frame); break;
      case w::FrameType::kWelcome: w::Welcome::Decode(frame); break;
      case w::FrameType::kError:
      case w::FrameType::kClose: w::ErrorNotice::Decode(frame); break;
      case w::FrameType::kDictRequest:
      case w::FrameType::kRegCheck:
      case w::FrameType::kRegCancel: w::NameQuery::Decode(frame); break;
      case w::FrameType::kRegCounts: w::RegistrationCounts::Decode(frame); break;
      case w::FrameType::kMsLookup: w::MessageServerQuery::Decode(frame); break;
      case w::FrameType::kMsAnswer: w::MessageServerAnswer::Decode(frame); break;
      case w::FrameType::kDictReply: {
        w::DictionaryAnswer answer = w::DictionaryAnswer::Decode(frame);
        std::vector<uint8_t> line = w::InitialLine(answer.layout);
        Convert(answer.layout, line.data(), 1);
        break;
      }
      case w::FrameType::kCall: {
        w::CallMessage call = w::DecodeCall(frame.payload.data(), frame.payload.size());
        ConvertAll(call.values, call.tables);
        break;
      }
      case w::FrameType::kReply: {
        w::ReplyMessage reply = w::DecodeReply(frame.payload.data(), frame.payload.size());
        ConvertAll(reply.values, reply.tables);
        break;
      }
      case w::FrameType::kRouteCall: {
        w::RouteCallHead head = w::RouteCallHead::Decode(frame);
        w::CallMessage call =
            w::DecodeCall(frame.payload.data() + head.call_offset, frame.payload.size() - head.call_offset);
        ConvertAll(call.values, call.tables);
        break;
      }
    }
  } catch (const w::DecodeError&) {
    // Refused, as it should be.
  }
  return 0;
}
