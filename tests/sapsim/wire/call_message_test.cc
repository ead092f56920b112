// CALL and REPLY payloads and the value descriptions inside them.

#include <cstring>

#include <gtest/gtest.h>

#include "sapsim/wire/call_message.h"
#include "sapsim/wire/decode_error.h"
#include "sapsim/wire/frame_writer.h"
#include "sapsim/wire/payload_reader.h"
#include "sapsim/wire/rfc_types.h"

namespace sapsim::wire {
namespace {

std::vector<uint8_t> PayloadOf(FrameWriter& w) {
  std::vector<uint8_t> bytes = w.Flatten();
  return std::vector<uint8_t>(bytes.begin() + kHeaderSize, bytes.end());
}

ValueDesc Order() {
  std::vector<FieldDesc> fields = {{"IDENT", kTypeChar, 10, 0, 0}, {"COUNT", kTypeInt, 4, 0, 0}};
  uint32_t length = LayOut(fields);
  return ValueDesc::Structure(fields, length);
}

TEST(CallMessage, ReplyCarriesStatusKeyAndMessage) {
  FrameWriter w(FrameType::kReply);
  EncodeReplyHead(w, ReplyStatus::kException, "TABLE_NOT_AVAILABLE", "");
  w.U32(0);
  w.U32(0);
  std::vector<uint8_t> payload = PayloadOf(w);
  ReplyMessage reply = DecodeReply(payload.data(), payload.size());
  EXPECT_EQ(ReplyStatus::kException, reply.status);
  EXPECT_EQ("TABLE_NOT_AVAILABLE", reply.key);

  payload[0] = 7;  // no such status
  EXPECT_THROW(DecodeReply(payload.data(), payload.size()), DecodeError);
}

// Builds a one-table CALL with a hand-made table head, so that lies about
// its size can be told.
std::vector<uint8_t> CallWithTable(const ValueDesc& desc, uint32_t rows, size_t bytes) {
  FrameWriter w(FrameType::kCall);
  w.String("F");
  w.U32(0);
  w.U32(1);
  EncodeTableHead(w, "T", desc, rows);
  std::vector<uint8_t> data(bytes, 'a');
  w.Raw(data.data(), data.size());
  return PayloadOf(w);
}

TEST(CallMessage, RefusesTablesThatClaimMoreThanTheyCarry) {
  ValueDesc raw = ValueDesc::Raw(kTypeChar, 100);
  std::vector<uint8_t> ok = CallWithTable(raw, 2, 200);
  EXPECT_EQ(2u, DecodeCall(ok.data(), ok.size()).tables[0].row_count);
  std::vector<uint8_t> short_rows = CallWithTable(raw, 3, 200);
  EXPECT_THROW(DecodeCall(short_rows.data(), short_rows.size()), DecodeError);
  // 2^32-1 lines of 100 bytes must not overflow into a small number.
  std::vector<uint8_t> huge = CallWithTable(raw, 0xFFFFFFFFu, 200);
  EXPECT_THROW(DecodeCall(huge.data(), huge.size()), DecodeError);
  std::vector<uint8_t> trailing = CallWithTable(raw, 1, 200);
  EXPECT_THROW(DecodeCall(trailing.data(), trailing.size()), DecodeError);
  std::vector<uint8_t> simple = CallWithTable(ValueDesc::Simple(kTypeChar, 100), 1, 100);
  EXPECT_THROW(DecodeCall(simple.data(), simple.size()), DecodeError);
}

TEST(CallMessage, RefusesValuesWhoseSizeDisagreesWithTheirDescription) {
  FrameWriter w(FrameType::kCall);
  w.String("F");
  w.U32(1);
  w.String("V");
  EncodeValueDesc(w, ValueDesc::Simple(kTypeChar, 10));
  w.Bytes("short", 5);
  w.U32(0);
  std::vector<uint8_t> payload = PayloadOf(w);
  EXPECT_THROW(DecodeCall(payload.data(), payload.size()), DecodeError);
}

// Decodes one description written by hand.
ValueDesc Decode(const ValueDesc& desc) {
  FrameWriter w(FrameType::kCall);
  EncodeValueDesc(w, desc);
  std::vector<uint8_t> payload = PayloadOf(w);
  PayloadReader r(payload.data(), payload.size());
  return DecodeValueDesc(r);
}

TEST(ValueDescription, RefusesInconsistentDescriptions) {
  EXPECT_NO_THROW(Decode(Order()));
  EXPECT_THROW(Decode(ValueDesc::Simple(kTypeInt, 2)), DecodeError);        // INT has 4 bytes
  EXPECT_THROW(Decode(ValueDesc::Simple(kTypeItab, 4)), DecodeError);       // no ITAB values
  EXPECT_THROW(Decode(ValueDesc::Simple(77, 4)), DecodeError);              // unknown type
  EXPECT_THROW(Decode(ValueDesc::Simple(kTypeChar, 0)), DecodeError);       // empty
  EXPECT_THROW(Decode(ValueDesc::Simple(kTypeBcd, 2, 4)), DecodeError);     // 4 decimals, 3 digits
  EXPECT_NO_THROW(Decode(ValueDesc::Simple(kTypeBcd, 2, kDecimalsUnknown)));
  EXPECT_THROW(Decode(ValueDesc::Raw(kTypeInt, 4)), DecodeError);           // raw is CHAR or BYTE
  EXPECT_THROW(Decode(ValueDesc::Structure({{"A", kTypeChar, 8, 0, 4}}, 10)), DecodeError);  // beyond line
  EXPECT_THROW(Decode(ValueDesc::Structure({{"A", kTypeChar, 1, 0, 0}, {"A", kTypeChar, 1, 0, 1}}, 2)),
               DecodeError);  // same name twice
  EXPECT_THROW(Decode(ValueDesc::Structure({}, 2)), DecodeError);
  EXPECT_THROW(Decode(ValueDesc::Structure({{"", kTypeChar, 1, 0, 0}}, 1)), DecodeError);
  // An offset near 2^32 must not wrap around the line check.
  EXPECT_THROW(Decode(ValueDesc::Structure({{"A", kTypeChar, 16, 0, 0xFFFFFFF8u}}, 100)), DecodeError);
}

}  // namespace
}  // namespace sapsim::wire
