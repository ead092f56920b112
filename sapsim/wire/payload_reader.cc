#include "sapsim/wire/payload_reader.h"

#include "sapsim/wire/decode_error.h"

namespace sapsim::wire {

void PayloadReader::Need(size_t size, const char* what) const {
  if (size > Remaining()) {
    throw DecodeError(std::string(what) + " needs " + std::to_string(size) + " bytes, " +
                      std::to_string(Remaining()) + " remain");
  }
}

uint8_t PayloadReader::U8() {
  Need(1, "u8");
  return data_[position_++];
}

uint16_t PayloadReader::U16() {
  Need(2, "u16");
  uint16_t value = static_cast<uint16_t>(data_[position_] | (data_[position_ + 1] << 8));
  position_ += 2;
  return value;
}

uint32_t PayloadReader::U32() {
  Need(4, "u32");
  uint32_t value = 0;
  for (int i = 0; i < 4; ++i) value |= static_cast<uint32_t>(data_[position_ + i]) << (8 * i);
  position_ += 4;
  return value;
}

int32_t PayloadReader::I32() { return static_cast<int32_t>(U32()); }

uint64_t PayloadReader::U64() {
  Need(8, "u64");
  uint64_t value = 0;
  for (int i = 0; i < 8; ++i) value |= static_cast<uint64_t>(data_[position_ + i]) << (8 * i);
  position_ += 8;
  return value;
}

std::string PayloadReader::String(size_t max_length) {
  uint32_t length = U32();
  if (length > max_length) {
    throw DecodeError("text of " + std::to_string(length) + " bytes exceeds the limit of " +
                      std::to_string(max_length));
  }
  const uint8_t* bytes = Take(length);
  return std::string(reinterpret_cast<const char*>(bytes), length);
}

const uint8_t* PayloadReader::Take(size_t size) {
  Need(size, "block");
  const uint8_t* start = data_ + position_;
  position_ += size;
  return start;
}

const uint8_t* PayloadReader::Block(size_t max_size, size_t* size) {
  uint32_t length = U32();
  if (length > max_size) {
    throw DecodeError("block of " + std::to_string(length) + " bytes exceeds the limit of " +
                      std::to_string(max_size));
  }
  *size = length;
  return Take(length);
}

uint32_t PayloadReader::Count(uint32_t max_count, size_t min_element_size) {
  uint32_t count = U32();
  if (count > max_count) {
    throw DecodeError("count " + std::to_string(count) + " exceeds the limit of " +
                      std::to_string(max_count));
  }
  if (min_element_size > 0 && static_cast<uint64_t>(count) * min_element_size > Remaining()) {
    throw DecodeError("count " + std::to_string(count) + " cannot fit in the " +
                      std::to_string(Remaining()) + " bytes that remain");
  }
  return count;
}

void PayloadReader::ExpectEnd() const {
  if (Remaining() != 0) {
    throw DecodeError(std::to_string(Remaining()) + " unexpected bytes at the end of the payload");
  }
}

}  // namespace sapsim::wire
