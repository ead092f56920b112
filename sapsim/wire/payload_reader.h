#pragma once
// Reads a payload written by FrameWriter. Every read checks the bytes that
// remain first; a short or inconsistent payload throws DecodeError.

#include <cstddef>
#include <cstdint>
#include <string>

namespace sapsim::wire {

// Longest text the protocol carries (names, messages, passwords).
constexpr size_t kMaxText = 64 * 1024;

class PayloadReader {
 public:
  PayloadReader(const uint8_t* data, size_t size) : data_(data), size_(data ? size : 0) {}

  uint8_t U8();
  uint16_t U16();
  uint32_t U32();
  int32_t I32();
  uint64_t U64();
  // A u32-prefixed text of at most `max_length` bytes.
  std::string String(size_t max_length = kMaxText);
  // `size` bytes in place; the pointer stays valid as long as the payload.
  const uint8_t* Take(size_t size);
  // A u32-prefixed block in place; its size goes to *size.
  const uint8_t* Block(size_t max_size, size_t* size);
  // An element count no larger than `max_count`, and small enough that
  // `count` elements of at least `min_element_size` bytes fit in what remains.
  uint32_t Count(uint32_t max_count, size_t min_element_size);

  size_t Remaining() const { return size_ - position_; }
  // Throws unless every byte has been read: trailing garbage is an error too.
  void ExpectEnd() const;

 private:
  void Need(size_t size, const char* what) const;

  const uint8_t* data_;
  size_t size_;
  size_t position_ = 0;
};

}  // namespace sapsim::wire
