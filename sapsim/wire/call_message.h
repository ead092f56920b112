#pragma once
// CALL and REPLY payloads: a function's values and tables, each with the
// sender's description. Decoding does not copy the values: they are views
// into the payload, which must outlive the decoded message.
//
//   CALL   function name, u32 n, n values, u32 m, m tables
//   REPLY  u8 status, exception or error key, message, u32 n, n values, u32 m, m tables
//   value  name, description, u32 size, size bytes (size = description's length)
//   table  name, description (structure or raw), u32 rows, rows * line length bytes

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sapsim/wire/value_description.h"

namespace sapsim::wire {

class FrameWriter;
class PayloadReader;

// Most values or tables one call may carry.
constexpr uint32_t kMaxCallItems = 1024;

struct WireValue {
  std::string name;
  ValueDesc desc;
  const uint8_t* data = nullptr;  // desc.length bytes
};

struct WireTable {
  std::string name;
  ValueDesc desc;  // desc.length is the line length
  uint32_t row_count = 0;
  const uint8_t* rows = nullptr;  // row_count * desc.length bytes
};

struct CallMessage {
  std::string function;
  std::vector<WireValue> values;
  std::vector<WireTable> tables;

  const WireValue* FindValue(std::string_view name) const;
  const WireTable* FindTable(std::string_view name) const;
};

enum class ReplyStatus : uint8_t {
  kOk = 0,
  kException = 1,      // the function raised an exception; key is its name
  kSystemFailure = 2,  // the call could not be served; key and message say why
};

struct ReplyMessage {
  ReplyStatus status = ReplyStatus::kOk;
  std::string key;
  std::string message;
  std::vector<WireValue> values;
  std::vector<WireTable> tables;

  const WireValue* FindValue(std::string_view name) const;
  const WireTable* FindTable(std::string_view name) const;
};

// Writers: a count first, then that many items.
void EncodeValue(FrameWriter& writer, std::string_view name, const ValueDesc& desc, const uint8_t* data);
// Writes the table's head; the caller then adds row_count * line length bytes
// (FrameWriter::Raw or Borrow).
void EncodeTableHead(FrameWriter& writer, std::string_view name, const ValueDesc& desc, uint32_t row_count);
void EncodeReplyHead(FrameWriter& writer, ReplyStatus status, std::string_view key, std::string_view message);

// Readers; throw DecodeError.
WireValue DecodeValue(PayloadReader& reader);
WireTable DecodeTable(PayloadReader& reader);
CallMessage DecodeCall(const uint8_t* payload, size_t size);
ReplyMessage DecodeReply(const uint8_t* payload, size_t size);

}  // namespace sapsim::wire
