#include "sapsim/wire/call_message.h"

#include "sapsim/wire/decode_error.h"
#include "sapsim/wire/frame_writer.h"
#include "sapsim/wire/payload_reader.h"

namespace sapsim::wire {

namespace {

template <typename Item>
const Item* FindByName(const std::vector<Item>& items, std::string_view name) {
  for (const Item& item : items) {
    if (item.name == name) return &item;
  }
  return nullptr;
}

// The smallest encoded value or table: a name length, a raw description and a size.
constexpr size_t kMinItemSize = 4 + 1 + 8 + 4;

void DecodeItems(PayloadReader& reader, std::vector<WireValue>* values, std::vector<WireTable>* tables) {
  uint32_t value_count = reader.Count(kMaxCallItems, kMinItemSize);
  values->reserve(value_count);
  for (uint32_t i = 0; i < value_count; ++i) values->push_back(DecodeValue(reader));
  uint32_t table_count = reader.Count(kMaxCallItems, kMinItemSize);
  tables->reserve(table_count);
  for (uint32_t i = 0; i < table_count; ++i) tables->push_back(DecodeTable(reader));
  reader.ExpectEnd();
}

}  // namespace

const WireValue* CallMessage::FindValue(std::string_view name) const { return FindByName(values, name); }
const WireTable* CallMessage::FindTable(std::string_view name) const { return FindByName(tables, name); }
const WireValue* ReplyMessage::FindValue(std::string_view name) const { return FindByName(values, name); }
const WireTable* ReplyMessage::FindTable(std::string_view name) const { return FindByName(tables, name); }

void EncodeValue(FrameWriter& writer, std::string_view name, const ValueDesc& desc, const uint8_t* data) {
  writer.String(name);
  EncodeValueDesc(writer, desc);
  writer.Bytes(data, desc.length);
}

void EncodeTableHead(FrameWriter& writer, std::string_view name, const ValueDesc& desc, uint32_t row_count) {
  writer.String(name);
  EncodeValueDesc(writer, desc);
  writer.U32(row_count);
}

void EncodeReplyHead(FrameWriter& writer, ReplyStatus status, std::string_view key, std::string_view message) {
  writer.U8(static_cast<uint8_t>(status));
  writer.String(key);
  writer.String(message);
}

WireValue DecodeValue(PayloadReader& reader) {
  WireValue value;
  value.name = reader.String(kMaxNameLength);
  value.desc = DecodeValueDesc(reader);
  size_t size = 0;
  value.data = reader.Block(kMaxValueLength, &size);
  if (size != value.desc.length) {
    throw DecodeError("value " + value.name + " carries " + std::to_string(size) + " bytes, its description " +
                      std::to_string(value.desc.length));
  }
  return value;
}

WireTable DecodeTable(PayloadReader& reader) {
  WireTable table;
  table.name = reader.String(kMaxNameLength);
  table.desc = DecodeValueDesc(reader);
  if (table.desc.kind == ValueDesc::Kind::kSimple) {
    throw DecodeError("table " + table.name + " is described as a simple value");
  }
  table.row_count = reader.U32();
  uint64_t bytes = static_cast<uint64_t>(table.row_count) * table.desc.length;
  if (bytes > reader.Remaining()) {
    throw DecodeError("table " + table.name + " claims " + std::to_string(table.row_count) + " lines of " +
                      std::to_string(table.desc.length) + " bytes, only " + std::to_string(reader.Remaining()) +
                      " bytes remain");
  }
  table.rows = reader.Take(static_cast<size_t>(bytes));
  return table;
}

CallMessage DecodeCall(const uint8_t* payload, size_t size) {
  PayloadReader reader(payload, size);
  CallMessage call;
  call.function = reader.String(kMaxNameLength);
  DecodeItems(reader, &call.values, &call.tables);
  return call;
}

ReplyMessage DecodeReply(const uint8_t* payload, size_t size) {
  PayloadReader reader(payload, size);
  ReplyMessage reply;
  uint8_t status = reader.U8();
  if (status > static_cast<uint8_t>(ReplyStatus::kSystemFailure)) {
    throw DecodeError("unknown reply status " + std::to_string(status));
  }
  reply.status = static_cast<ReplyStatus>(status);
  reply.key = reader.String();
  reply.message = reader.String();
  DecodeItems(reader, &reply.values, &reply.tables);
  return reply;
}

}  // namespace sapsim::wire
