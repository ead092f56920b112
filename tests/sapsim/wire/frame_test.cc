// Frames, payload reading and the control messages: everything that decides
// whether bytes from the network are accepted.

#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

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

std::vector<uint8_t> SampleFrame() {
  FrameWriter w(FrameType::kCall);
  w.U32(7);
  w.String("RFCPING");
  return w.Flatten();
}

TEST(FrameHeader, RefusesEveryCorruptField) {
  std::vector<uint8_t> good = SampleFrame();
  auto corrupt = [&](size_t index, uint8_t value) {
    std::vector<uint8_t> bad = good;
    bad[index] = value;
    return bad;
  };
  EXPECT_THROW(DecodeHeader(corrupt(0, 'X').data(), kHeaderSize), DecodeError);  // magic
  EXPECT_THROW(DecodeHeader(corrupt(4, 2).data(), kHeaderSize), DecodeError);    // version
  EXPECT_THROW(DecodeHeader(corrupt(5, 0).data(), kHeaderSize), DecodeError);    // type 0
  EXPECT_THROW(DecodeHeader(corrupt(5, 99).data(), kHeaderSize), DecodeError);   // unknown type
  EXPECT_THROW(DecodeHeader(corrupt(6, 1).data(), kHeaderSize), DecodeError);    // reserved
  EXPECT_THROW(DecodeHeader(corrupt(11, 0xFF).data(), kHeaderSize), DecodeError);  // length > limit
  EXPECT_THROW(DecodeHeader(good.data(), kHeaderSize - 1), DecodeError);          // truncated
  EXPECT_NO_THROW(DecodeHeader(good.data(), kHeaderSize));
}

TEST(FrameHeader, DecodeFrameWantsExactlyThePayloadTheHeaderAnnounces) {
  std::vector<uint8_t> bytes = SampleFrame();
  Frame frame = DecodeFrame(bytes.data(), bytes.size());
  EXPECT_EQ(FrameType::kCall, frame.type);
  EXPECT_EQ(bytes.size() - kHeaderSize, frame.payload.size());
  EXPECT_THROW(DecodeFrame(bytes.data(), bytes.size() - 1), DecodeError);
  bytes.push_back(0);
  EXPECT_THROW(DecodeFrame(bytes.data(), bytes.size()), DecodeError);
}

TEST(PayloadReader, ChecksEveryLengthAgainstWhatRemains) {
  FrameWriter w(FrameType::kCall);
  w.U16(0xBEEF);
  w.String("ABC");
  w.U32(1000);  // a count no payload of this size can hold
  std::vector<uint8_t> bytes = w.Flatten();
  PayloadReader r(bytes.data() + kHeaderSize, bytes.size() - kHeaderSize);
  EXPECT_EQ(0xBEEF, r.U16());
  EXPECT_EQ("ABC", r.String());
  EXPECT_THROW(r.Count(5000, 4), DecodeError);

  PayloadReader short_text(bytes.data() + kHeaderSize + 2, 5);  // length 3, only 1 byte follows
  EXPECT_THROW(short_text.String(), DecodeError);
  PayloadReader limited(bytes.data() + kHeaderSize + 2, 7);
  EXPECT_THROW(limited.String(2), DecodeError);
  PayloadReader empty(nullptr, 0);
  EXPECT_THROW(empty.U8(), DecodeError);
  PayloadReader trailing(bytes.data() + kHeaderSize, 2);
  EXPECT_NO_THROW(trailing.U8());
  EXPECT_THROW(trailing.ExpectEnd(), DecodeError);
}

Frame AsFrame(FrameWriter w) {
  std::vector<uint8_t> bytes = w.Flatten();
  return DecodeFrame(bytes.data(), bytes.size());
}

TEST(ControlMessages, RefuseInconsistentContent) {
  Hello hello;
  std::vector<uint8_t> bytes = hello.Encode().Flatten();
  bytes[kHeaderSize] = 9;  // session kind
  EXPECT_THROW(Hello::Decode(DecodeFrame(bytes.data(), bytes.size())), DecodeError);

  RegistrationCounts counts{-1, 0, 0, 0, 0};
  EXPECT_THROW(RegistrationCounts::Decode(AsFrame(counts.Encode())), DecodeError);
  MessageServerAnswer zero_port{"h", 0};
  EXPECT_THROW(MessageServerAnswer::Decode(AsFrame(zero_port.Encode())), DecodeError);
  // A frame of the wrong type is not read as another message.
  EXPECT_THROW(Welcome::Decode(AsFrame(hello.Encode())), DecodeError);
}

class FrameChannelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    int fds[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, fds));
    a_ = std::make_unique<FrameChannel>(Socket(fds[0]));
    b_ = std::make_unique<FrameChannel>(Socket(fds[1]));
  }
  std::unique_ptr<FrameChannel> a_;
  std::unique_ptr<FrameChannel> b_;
};

TEST_F(FrameChannelTest, CarriesLargeFramesWhole) {
  std::vector<uint8_t> rows(3 * 1024 * 1024);
  for (size_t i = 0; i < rows.size(); ++i) rows[i] = static_cast<uint8_t>(i * 7);
  FrameWriter w(FrameType::kReply);
  w.Borrow(rows.data(), rows.size());
  std::string error;
  std::thread sender([&] { EXPECT_EQ(IoStatus::kOk, a_->Send(w, &error)); });
  Frame frame;
  std::string receive_error;
  EXPECT_EQ(IoStatus::kOk, b_->Receive(&frame, &receive_error));
  sender.join();
  EXPECT_EQ(FrameType::kReply, frame.type);
  EXPECT_EQ(rows, std::vector<uint8_t>(frame.payload.begin(), frame.payload.end()));
}

TEST_F(FrameChannelTest, TellsOrderlyCloseFromBrokenFramesAndGarbage) {
  Frame frame;
  std::string error;
  EXPECT_EQ(IoStatus::kTimeout, b_->WaitReadable(0));

  // Half a frame, then the end: broken, not an orderly close.
  std::vector<uint8_t> bytes = SampleFrame();
  ASSERT_EQ(static_cast<ssize_t>(kHeaderSize + 2),
            ::send(a_->socket().fd(), bytes.data(), kHeaderSize + 2, 0));
  a_->Shutdown();
  EXPECT_EQ(IoStatus::kOk, b_->WaitReadable(0));
  EXPECT_EQ(IoStatus::kFailed, b_->Receive(&frame, &error));
  EXPECT_NE(std::string::npos, error.find("middle of a frame"));
}

TEST_F(FrameChannelTest, OrderlyCloseAndGarbage) {
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
}

}  // namespace
}  // namespace sapsim::wire

namespace sapsim::wire {
namespace {

// The fuzzer's seed frames must stay valid frames, or fuzzing starts from
// nothing useful.
TEST(FuzzSeeds, EverySeedIsAWellFormedFrame) {
  std::string dir = std::string(BS_TEST_SOURCE_DIR) + "/fuzz/corpus/wire_frame_fuzz";
  int seeds = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    std::ifstream in(entry.path(), std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    Frame frame;
    ASSERT_NO_THROW(frame = DecodeFrame(bytes.data(), bytes.size())) << entry.path();
    if (frame.type == FrameType::kCall) {
      CallMessage call = DecodeCall(frame.payload.data(), frame.payload.size());
      EXPECT_EQ(1u, call.tables.size());
    } else if (frame.type == FrameType::kReply) {
      EXPECT_NO_THROW(DecodeReply(frame.payload.data(), frame.payload.size())) << entry.path();
    } else if (frame.type == FrameType::kRouteCall) {
      RouteCallHead head = RouteCallHead::Decode(frame);
      EXPECT_NO_THROW(DecodeCall(frame.payload.data() + head.call_offset, frame.payload.size() - head.call_offset));
    }
    ++seeds;
  }
  EXPECT_GE(seeds, 10);
}

}  // namespace
}  // namespace sapsim::wire
