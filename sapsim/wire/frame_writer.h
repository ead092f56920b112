#pragma once
// Builds one outgoing frame. Small items are copied into the frame's own
// buffer; large blocks (table lines) can be borrowed so that they go from the
// caller's memory straight to the socket without another copy.

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "sapsim/wire/frame.h"

namespace sapsim::wire {

// One contiguous piece of an encoded frame.
struct ConstSpan {
  const uint8_t* data = nullptr;
  size_t size = 0;
};

class FrameWriter {
 public:
  explicit FrameWriter(FrameType type);

  FrameType type() const { return type_; }

  // Little-endian integers.
  void U8(uint8_t value);
  void U16(uint16_t value);
  void U32(uint32_t value);
  void I32(int32_t value);
  void U64(uint64_t value);
  // A text: u32 length, then the bytes.
  void String(std::string_view text);
  // A byte block: u32 length, then the bytes (copied).
  void Bytes(const void* data, size_t size);
  // Bytes without a length prefix, copied.
  void Raw(const void* data, size_t size);
  // Bytes without a length prefix, not copied: `data` must stay valid and
  // unchanged until the frame has been sent.
  void Borrow(const void* data, size_t size);

  size_t PayloadSize() const { return payload_size_; }

  // The whole frame, header first. Throws DecodeError when the payload
  // exceeds kMaxPayload (the receiver would refuse it anyway). The spans stay
  // valid until the writer is changed or destroyed.
  std::vector<ConstSpan> Segments();
  // The whole frame as one block (tests, fuzz seeds, small frames).
  std::vector<uint8_t> Flatten();

 private:
  struct Piece {
    bool borrowed;
    size_t offset;  // into own_ when not borrowed
    const uint8_t* data;  // when borrowed
    size_t size;
  };
  void Append(const void* data, size_t size);

  FrameType type_;
  std::vector<uint8_t> own_;  // header bytes, then the copied pieces
  std::vector<Piece> pieces_;
  size_t payload_size_ = 0;
};

}  // namespace sapsim::wire
