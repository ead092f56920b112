#pragma once
// Frames: the unit of everything that crosses a connection between the RFC
// library and the simulated system.
//
//   offset 0  4 bytes  magic "RSIM"
//   offset 4  1 byte   protocol version (kProtocolVersion)
//   offset 5  1 byte   frame type (FrameType)
//   offset 6  2 bytes  reserved, zero
//   offset 8  4 bytes  payload length, little-endian, at most kMaxPayload
//   offset 12          payload

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace sapsim::wire {

constexpr uint8_t kProtocolVersion = 1;
constexpr size_t kHeaderSize = 12;
// Large enough for a table of a million 256-byte lines; anything bigger is
// treated as a corrupt length rather than allocated.
constexpr uint32_t kMaxPayload = 256u * 1024u * 1024u;

enum class FrameType : uint8_t {
  kHello = 1,         // first frame of every connection: who is calling
  kWelcome = 2,       // logon or registration accepted, with the system's data
  kError = 3,         // request refused: group, key, message
  kCall = 4,          // a function call with its imports and tables
  kReply = 5,         // the answer to a call: exports and tables, or an exception
  kClose = 6,         // the partner ends the connection and says why
  kDictRequest = 7,   // layout of a dictionary structure, please
  kDictReply = 8,     // the layout
  kRouteCall = 9,     // call a registered server program (SAP side only)
  kRegCheck = 10,     // how many registrations does this program id have?
  kRegCancel = 11,    // cancel the registrations of this program id
  kRegCounts = 12,    // answer to kRegCheck and kRegCancel
  kMsLookup = 13,     // message server: application server of a logon group?
  kMsAnswer = 14,     // message server: host and port
};

bool IsKnownFrameType(uint8_t type);
const char* FrameTypeName(FrameType type);

struct FrameHeader {
  FrameType type = FrameType::kHello;
  uint32_t payload_length = 0;
};

void EncodeHeader(const FrameHeader& header, uint8_t out[kHeaderSize]);
// Throws DecodeError for a wrong magic, version, reserved field, unknown type
// or a length above kMaxPayload. `size` must be at least kHeaderSize.
FrameHeader DecodeHeader(const uint8_t* data, size_t size);

// Leaves new elements uninitialised: a payload is read over at once, so
// zero-filling megabytes of table lines first would only cost time.
template <typename T>
struct UninitialisedAllocator : std::allocator<T> {
  template <typename U>
  struct rebind {
    using other = UninitialisedAllocator<U>;
  };
  UninitialisedAllocator() = default;
  template <typename U>
  UninitialisedAllocator(const UninitialisedAllocator<U>&) noexcept {}
  template <typename U>
  void construct(U* p) noexcept {
    ::new (static_cast<void*>(p)) U;
  }
  template <typename U, typename... Args>
  void construct(U* p, Args&&... args) {
    ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
  }
};
using PayloadBytes = std::vector<uint8_t, UninitialisedAllocator<uint8_t>>;

// A received frame: its type and its payload.
struct Frame {
  FrameType type = FrameType::kHello;
  PayloadBytes payload;
};

// Splits a complete frame held in memory (header and payload); throws
// DecodeError when the bytes are not exactly one well-formed frame header
// followed by its payload.
Frame DecodeFrame(const uint8_t* data, size_t size);

}  // namespace sapsim::wire
