// Everything that decides whether bytes from the network are accepted: frame headers, payload lengths,
// control messages, CALL and REPLY payloads, value descriptions, and the channel that carries frames.

#include <sys/socket.h>

#include <functional>
#include <memory>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

#include "sapsim/wire/call_message.h"
#include "sapsim/wire/control_messages.h"
#include "sapsim/wire/decode_error.h"
#include "sapsim/wire/frame.h"
#include "sapsim/wire/frame_channel.h"
#include "sapsim/wire/frame_writer.h"
#include "sapsim/wire/payload_reader.h"
#include "sapsim/wire/rfc_types.h"

namespace sapsim::wire {
namespace {

std::vector<uint8_t> SampleFrame() { return Hello().Encode().Flatten(); }

std::vector<uint8_t> PayloadOf(FrameWriter& w) {
  std::vector<uint8_t> bytes = w.Flatten();
  return std::vector<uint8_t>(bytes.begin() + kHeaderSize, bytes.end());
}

Frame AsFrame(FrameWriter w) {
  std::vector<uint8_t> bytes = w.Flatten();
  return DecodeFrame(bytes.data(), bytes.size());
}

// A one-table CALL with a hand-made table head, so that it can lie about its size.
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

ValueDesc DecodeDesc(const ValueDesc& desc) {
  FrameWriter w(FrameType::kCall);
  EncodeValueDesc(w, desc);
  std::vector<uint8_t> payload = PayloadOf(w);
  PayloadReader r(payload.data(), payload.size());
  return DecodeValueDesc(r);
}

std::vector<uint8_t> Corrupt(size_t index, uint8_t value) {
  std::vector<uint8_t> bad = SampleFrame();
  bad[index] = value;
  return bad;
}

TEST(WireDecoding, RefusesEveryMalformedInput) {
  const std::vector<uint8_t> good = SampleFrame();
  const ValueDesc raw = ValueDesc::Raw(kTypeChar, 100);
  EXPECT_NO_THROW(DecodeDesc(ValueDesc::Simple(kTypeBcd, 2, kDecimalsUnknown)));
  const auto header = [](std::vector<uint8_t> bytes, size_t size) { DecodeHeader(bytes.data(), size); };
  const auto call = [](std::vector<uint8_t> bytes) { DecodeCall(bytes.data(), bytes.size()); };
  const auto frame = [](std::vector<uint8_t> bytes) { DecodeFrame(bytes.data(), bytes.size()); };
  std::vector<uint8_t> longer = good;
  longer.push_back(0);
  FrameWriter short_value(FrameType::kCall);
  short_value.String("F");
  short_value.U32(1);
  short_value.String("V");
  EncodeValueDesc(short_value, ValueDesc::Simple(kTypeChar, 10));
  short_value.Bytes("short", 5);
  short_value.U32(0);
  FrameWriter reply(FrameType::kReply);
  EncodeReplyHead(reply, ReplyStatus::kException, "TABLE_NOT_AVAILABLE", "");
  reply.U32(0);
  reply.U32(0);
  std::vector<uint8_t> bad_status = PayloadOf(reply);
  bad_status[0] = 7;
  Hello hello;
  std::vector<uint8_t> bad_hello = hello.Encode().Flatten();
  bad_hello[kHeaderSize] = 9;  // session kind

  FrameWriter lengths(FrameType::kCall);
  lengths.String("ABC");  // length 3, then the text
  lengths.U32(1000);
  std::vector<uint8_t> text = PayloadOf(lengths);
  const auto reader = [&](size_t skip, size_t size) { return PayloadReader(text.data() + skip, size); };

  const std::pair<const char*, std::function<void()>> cases[] = {
      {"count beyond the bytes", [&] { reader(7, 4).Count(5000, 4); }},
      {"text beyond the bytes", [&] { reader(0, 5).String(); }},
      {"text over its limit", [&] { reader(0, 7).String(2); }},
      {"nothing to read", [] { PayloadReader(nullptr, 0).U8(); }},
      {"count over its limit", [&] { reader(7, 4).Count(999, 0); }},
      {"trailing bytes", [&] { PayloadReader r = reader(0, 8); (r.String(), r.ExpectEnd()); }},
      {"magic", [&] { header(Corrupt(0, 'X'), kHeaderSize); }},
      {"version", [&] { header(Corrupt(4, 2), kHeaderSize); }},
      {"type 0", [&] { header(Corrupt(5, 0), kHeaderSize); }},
      {"unknown type", [&] { header(Corrupt(5, 99), kHeaderSize); }},
      {"reserved", [&] { header(Corrupt(6, 1), kHeaderSize); }},
      {"length over the limit", [&] { header(Corrupt(11, 0xFF), kHeaderSize); }},
      {"truncated header", [&] { header(good, kHeaderSize - 1); }},
      {"payload short", [&] { frame(std::vector<uint8_t>(good.begin(), good.end() - 1)); }},
      {"payload long", [&] { frame(longer); }},
      {"reply status", [&] { DecodeReply(bad_status.data(), bad_status.size()); }},
      {"hello kind", [&] { Hello::Decode(DecodeFrame(bad_hello.data(), bad_hello.size())); }},
      {"negative count", [] { RegistrationCounts::Decode(AsFrame(RegistrationCounts{-1, 0, 0, 0, 0}.Encode())); }},
      {"port 0", [] { MessageServerAnswer::Decode(AsFrame(MessageServerAnswer{"h", 0}.Encode())); }},
      {"frame of another type", [&] { Welcome::Decode(AsFrame(hello.Encode())); }},
      {"rows beyond the bytes", [&] { call(CallWithTable(raw, 3, 200)); }},
      {"row count that overflows", [&] { call(CallWithTable(raw, 0xFFFFFFFFu, 200)); }},
      {"trailing rows", [&] { call(CallWithTable(raw, 1, 200)); }},
      {"table of a simple type", [&] { call(CallWithTable(ValueDesc::Simple(kTypeChar, 100), 1, 100)); }},
      {"value shorter than described", [&] { call(PayloadOf(short_value)); }},
      {"INT of 2 bytes", [] { DecodeDesc(ValueDesc::Simple(kTypeInt, 2)); }},
      {"ITAB value", [] { DecodeDesc(ValueDesc::Simple(kTypeItab, 4)); }},
      {"unknown value type", [] { DecodeDesc(ValueDesc::Simple(77, 4)); }},
      {"empty value", [] { DecodeDesc(ValueDesc::Simple(kTypeChar, 0)); }},
      {"4 decimals in 3 digits", [] { DecodeDesc(ValueDesc::Simple(kTypeBcd, 2, 4)); }},
      {"raw INT", [] { DecodeDesc(ValueDesc::Raw(kTypeInt, 4)); }},
      {"field beyond the line", [] { DecodeDesc(ValueDesc::Structure({{"A", kTypeChar, 8, 0, 4}}, 10)); }},
      {"same field twice",
       [] { DecodeDesc(ValueDesc::Structure({{"A", kTypeChar, 1, 0, 0}, {"A", kTypeChar, 1, 0, 1}}, 2)); }},
      {"no fields", [] { DecodeDesc(ValueDesc::Structure({}, 2)); }},
      {"unnamed field", [] { DecodeDesc(ValueDesc::Structure({{"", kTypeChar, 1, 0, 0}}, 1)); }},
      {"offset that wraps", [] { DecodeDesc(ValueDesc::Structure({{"A", kTypeChar, 16, 0, 0xFFFFFFF8u}}, 100)); }},
  };
  for (const auto& [what, decode] : cases) EXPECT_THROW(decode(), DecodeError) << what;
}

// The two ends of one connection.
std::pair<std::unique_ptr<FrameChannel>, std::unique_ptr<FrameChannel>> Connected() {
  int fds[2];
  EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, fds));
  return {std::make_unique<FrameChannel>(Socket(fds[0])), std::make_unique<FrameChannel>(Socket(fds[1]))};
}

TEST(FrameChannelTest, TellsGarbageBrokenFramesAndOrderlyCloseApart) {
  std::unique_ptr<FrameChannel> a_, b_;
  std::tie(a_, b_) = Connected();
  Frame frame;
  std::string error;
  const char garbage[kHeaderSize] = "GET / HTTP/";
  ASSERT_EQ(static_cast<ssize_t>(kHeaderSize), ::send(a_->socket().fd(), garbage, kHeaderSize, 0));
  EXPECT_EQ(IoStatus::kMalformed, b_->Receive(&frame, &error));
  EXPECT_NE(std::string::npos, error.find("magic"));
  a_->Shutdown();
  EXPECT_EQ(IoStatus::kClosed, b_->Receive(&frame, &error));
  // Sending into a closed connection reports it instead of raising SIGPIPE.
  a_.reset();
  FrameWriter w(FrameType::kCall);
  w.String("X");
  EXPECT_NE(IoStatus::kOk, b_->Send(w, &error));

  // Half a frame, then the end: broken, not an orderly close.
  std::tie(a_, b_) = Connected();
  std::vector<uint8_t> bytes = SampleFrame();
  ASSERT_EQ(static_cast<ssize_t>(kHeaderSize + 2), ::send(a_->socket().fd(), bytes.data(), kHeaderSize + 2, 0));
  a_->Shutdown();
  EXPECT_EQ(IoStatus::kFailed, b_->Receive(&frame, &error));
  EXPECT_NE(std::string::npos, error.find("middle of a frame"));

  // A partner that resets the connection: closed between frames, broken
  // inside one.
  for (const size_t sent : {size_t{0}, size_t{3}}) {
    const Socket listener = Socket::Listen("127.0.0.1", 0, &error);
    Socket near = Socket::Connect("127.0.0.1", listener.LocalPort(), &error);
    FrameChannel far(listener.Accept());
    ASSERT_EQ(static_cast<ssize_t>(sent), ::send(near.fd(), bytes.data(), sent, 0));
    const linger abort{1, 0};
    ASSERT_EQ(0, setsockopt(near.fd(), SOL_SOCKET, SO_LINGER, &abort, sizeof abort));
    near = Socket();
    EXPECT_EQ(sent == 0 ? IoStatus::kClosed : IoStatus::kFailed, far.Receive(&frame, &error)) << sent;
    EXPECT_NE(std::string::npos, error.find("reset")) << error;
  }
}

}  // namespace
}  // namespace sapsim::wire
