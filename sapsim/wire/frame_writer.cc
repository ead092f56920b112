#include "sapsim/wire/frame_writer.h"

#include <cstring>
#include <string>

#include "sapsim/wire/decode_error.h"

namespace sapsim::wire {

FrameWriter::FrameWriter(FrameType type) : type_(type) {
  own_.resize(kHeaderSize);
  own_.reserve(256);
}

void FrameWriter::Append(const void* data, size_t size) {
  if (size == 0) return;
  size_t offset = own_.size();
  own_.resize(offset + size);
  std::memcpy(own_.data() + offset, data, size);
  if (!pieces_.empty() && !pieces_.back().borrowed &&
      pieces_.back().offset + pieces_.back().size == offset) {
    pieces_.back().size += size;
  } else {
    pieces_.push_back(Piece{false, offset, nullptr, size});
  }
  payload_size_ += size;
}

void FrameWriter::U8(uint8_t value) { Append(&value, 1); }

void FrameWriter::U16(uint16_t value) {
  uint8_t bytes[2] = {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)};
  Append(bytes, 2);
}

void FrameWriter::U32(uint32_t value) {
  uint8_t bytes[4];
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
  Append(bytes, 4);
}

void FrameWriter::I32(int32_t value) { U32(static_cast<uint32_t>(value)); }

void FrameWriter::U64(uint64_t value) {
  uint8_t bytes[8];
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
  Append(bytes, 8);
}

void FrameWriter::String(std::string_view text) {
  U32(static_cast<uint32_t>(text.size()));
  Append(text.data(), text.size());
}

void FrameWriter::Bytes(const void* data, size_t size) {
  U32(static_cast<uint32_t>(size));
  Append(data, size);
}

void FrameWriter::Raw(const void* data, size_t size) { Append(data, size); }

void FrameWriter::Borrow(const void* data, size_t size) {
  if (size == 0) return;
  pieces_.push_back(Piece{true, 0, static_cast<const uint8_t*>(data), size});
  payload_size_ += size;
}

std::vector<ConstSpan> FrameWriter::Segments() {
  if (payload_size_ > kMaxPayload) {
    throw DecodeError("payload of " + std::to_string(payload_size_) + " bytes exceeds the frame limit");
  }
  FrameHeader header;
  header.type = type_;
  header.payload_length = static_cast<uint32_t>(payload_size_);
  EncodeHeader(header, own_.data());
  std::vector<ConstSpan> spans;
  spans.reserve(pieces_.size() + 1);
  spans.push_back(ConstSpan{own_.data(), kHeaderSize});
  for (const Piece& piece : pieces_) {
    const uint8_t* data = piece.borrowed ? piece.data : own_.data() + piece.offset;
    // The header and the first copied piece are adjacent in own_: join them.
    if (!spans.empty() && spans.back().data + spans.back().size == data) {
      spans.back().size += piece.size;
    } else {
      spans.push_back(ConstSpan{data, piece.size});
    }
  }
  return spans;
}

std::vector<uint8_t> FrameWriter::Flatten() {
  std::vector<uint8_t> out;
  out.reserve(kHeaderSize + payload_size_);
  for (const ConstSpan& span : Segments()) out.insert(out.end(), span.data, span.data + span.size);
  return out;
}

}  // namespace sapsim::wire
