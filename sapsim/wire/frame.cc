#include "sapsim/wire/frame.h"

#include <cstring>
#include <string>

#include "sapsim/wire/decode_error.h"

namespace sapsim::wire {

namespace {
constexpr uint8_t kMagic[4] = {'R', 'S', 'I', 'M'};
}  // namespace

bool IsKnownFrameType(uint8_t type) {
  return type >= static_cast<uint8_t>(FrameType::kHello) &&
         type <= static_cast<uint8_t>(FrameType::kMsAnswer);
}

const char* FrameTypeName(FrameType type) {
  switch (type) {
    case FrameType::kHello: return "HELLO";
    case FrameType::kWelcome: return "WELCOME";
    case FrameType::kError: return "ERROR";
    case FrameType::kCall: return "CALL";
    case FrameType::kReply: return "REPLY";
    case FrameType::kClose: return "CLOSE";
    case FrameType::kDictRequest: return "DICT_REQUEST";
    case FrameType::kDictReply: return "DICT_REPLY";
    case FrameType::kRouteCall: return "ROUTE_CALL";
    case FrameType::kRegCheck: return "REG_CHECK";
    case FrameType::kRegCancel: return "REG_CANCEL";
    case FrameType::kRegCounts: return "REG_COUNTS";
    case FrameType::kMsLookup: return "MS_LOOKUP";
    case FrameType::kMsAnswer: return "MS_ANSWER";
  }
  return "UNKNOWN";
}

void EncodeHeader(const FrameHeader& header, uint8_t out[kHeaderSize]) {
  std::memcpy(out, kMagic, 4);
  out[4] = kProtocolVersion;
  out[5] = static_cast<uint8_t>(header.type);
  out[6] = 0;
  out[7] = 0;
  for (int i = 0; i < 4; ++i) out[8 + i] = static_cast<uint8_t>(header.payload_length >> (8 * i));
}

FrameHeader DecodeHeader(const uint8_t* data, size_t size) {
  if (data == nullptr || size < kHeaderSize) throw DecodeError("frame header truncated");
  if (std::memcmp(data, kMagic, 4) != 0) throw DecodeError("not a frame of this protocol (bad magic)");
  if (data[4] != kProtocolVersion) {
    throw DecodeError("protocol version " + std::to_string(data[4]) + " not supported (expected " +
                      std::to_string(kProtocolVersion) + ")");
  }
  if (!IsKnownFrameType(data[5])) throw DecodeError("unknown frame type " + std::to_string(data[5]));
  if (data[6] != 0 || data[7] != 0) throw DecodeError("reserved header bytes are not zero");
  uint32_t length = 0;
  for (int i = 0; i < 4; ++i) length |= static_cast<uint32_t>(data[8 + i]) << (8 * i);
  if (length > kMaxPayload) throw DecodeError("payload length " + std::to_string(length) + " too large");
  FrameHeader header;
  header.type = static_cast<FrameType>(data[5]);
  header.payload_length = length;
  return header;
}

Frame DecodeFrame(const uint8_t* data, size_t size) {
  FrameHeader header = DecodeHeader(data, size);
  if (size - kHeaderSize != header.payload_length) {
    throw DecodeError("frame holds " + std::to_string(size - kHeaderSize) +
                      " payload bytes, header says " + std::to_string(header.payload_length));
  }
  Frame frame;
  frame.type = header.type;
  frame.payload.assign(data + kHeaderSize, data + size);
  return frame;
}

}  // namespace sapsim::wire
