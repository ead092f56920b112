// The class library's text type.

#include "rfc/core/rfc_string.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

#include "platform/process.h"
#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_error.h"

namespace {

// Lengths and capacities are 32-bit; a longer text cannot be held and is
// reported like exhausted memory.
constexpr size_t kMaxCapacity = INT_MAX - 1;

// Characters before the first NUL, never more than `limit`.
size_t BoundedLength(const char* text, size_t limit) {
  const void* end = std::memchr(text, '\0', limit);
  return end != nullptr ? static_cast<size_t>(static_cast<const char*>(end) - text) : limit;
}

}  // namespace

CRfcString::CRfcString() = default;

CRfcString::CRfcString(const char* text) {
  if (text == nullptr) return;
  const size_t capacity = std::strlen(text);
  std::unique_ptr<char[]> fresh = NewBuffer(capacity + 1);
  const int length = TrimmedLength(text);
  std::memcpy(fresh.get(), text, static_cast<size_t>(length));
  Adopt(std::move(fresh), static_cast<int>(capacity), length);
}

CRfcString::CRfcString(const char* text, int min_capacity) {
  const size_t minimum = static_cast<size_t>(std::max(min_capacity, 0));
  const int length = text != nullptr ? TrimmedLength(text) : 0;
  const size_t capacity = std::max(static_cast<size_t>(length), minimum);
  std::unique_ptr<char[]> fresh = NewBuffer(capacity + 1);
  if (length > 0) std::memcpy(fresh.get(), text, static_cast<size_t>(length));
  Adopt(std::move(fresh), static_cast<int>(capacity), length);
}

CRfcString::CRfcString(const CRfcString& other) : upper_case_(other.upper_case_) {
  if (!other.buffer_) return;
  const size_t size = static_cast<size_t>(other.capacity_) + 1;
  std::unique_ptr<char[]> fresh = NewBuffer(size);
  std::memcpy(fresh.get(), other.buffer_.get(), size);
  Adopt(std::move(fresh), other.capacity_, other.length_);
}

CRfcString::CRfcString(CRfcString&& other) noexcept
    : upper_case_(other.upper_case_),
      buffer_(std::move(other.buffer_)),
      length_(std::exchange(other.length_, -1)),
      capacity_(std::exchange(other.capacity_, -1)) {}

CRfcString::~CRfcString() = default;

CRfcString& CRfcString::operator=(const CRfcString& other) {
  if (this == &other) return *this;
  upper_case_ = other.upper_case_;
  if (!other.buffer_) {
    InitBuffer(0);
    return *this;
  }
  std::unique_ptr<char[]> fresh = NewBuffer(static_cast<size_t>(other.capacity_) + 1);
  std::memcpy(fresh.get(), other.buffer_.get(), static_cast<size_t>(other.length_));
  Adopt(std::move(fresh), other.capacity_, other.length_);
  return *this;
}

CRfcString& CRfcString::operator=(CRfcString&& other) noexcept {
  if (this == &other) return *this;
  upper_case_ = other.upper_case_;
  buffer_ = std::move(other.buffer_);
  length_ = std::exchange(other.length_, -1);
  capacity_ = std::exchange(other.capacity_, -1);
  return *this;
}

CRfcString& CRfcString::operator=(const char* text) {
  if (text == nullptr) {
    InitBuffer(0);
    return *this;
  }
  const size_t length = std::strlen(text);
  std::unique_ptr<char[]> fresh = NewBuffer(length + 1);
  std::memcpy(fresh.get(), text, length);
  if (upper_case_ != 0) platform::ToUpperInPlace(fresh.get(), length);
  Adopt(std::move(fresh), static_cast<int>(length), static_cast<int>(length));
  return *this;
}

CRfcString::operator const char*() const {
  if (!buffer_) return nullptr;
  buffer_[length_] = '\0';
  return buffer_.get();
}

// The old content is taken up to its first NUL, not up to its length. A string
// constructed from a blank-padded text and not read since still holds those
// blanks before its terminator; the appended text then lands after them and
// the terminator at the new length cuts it. Callers read a string before
// appending to it.
CRfcString& CRfcString::Append(const char* text) {
  if (text == nullptr) return *this;
  const size_t added = std::strlen(text);
  const size_t old_capacity = buffer_ ? static_cast<size_t>(capacity_) : 0;
  const int old_length = buffer_ ? length_ : 0;
  if (added > kMaxCapacity - old_capacity) FailAllocation();
  const size_t capacity = old_capacity + added;
  // Unlike a fresh buffer this one starts as all NUL.
  std::unique_ptr<char[]> fresh = rfc::RfcAllocateArray<char>(capacity + 1);
  if (!fresh) FailAllocation();
  size_t kept = 0;
  if (buffer_) {
    kept = BoundedLength(buffer_.get(), old_capacity + 1);
    std::memcpy(fresh.get(), buffer_.get(), kept);
  }
  std::memcpy(fresh.get() + kept, text, added);
  const int length = old_length + static_cast<int>(added);
  fresh[static_cast<size_t>(length)] = '\0';
  buffer_ = std::move(fresh);
  capacity_ = static_cast<int>(capacity);
  length_ = length;
  return *this;
}

bool CRfcString::operator==(const char* text) const {
  if (text == nullptr) return !buffer_;
  if (!buffer_) return false;
  return std::strlen(text) == static_cast<size_t>(length_) &&
         std::memcmp(buffer_.get(), text, static_cast<size_t>(length_)) == 0;
}

int CRfcString::Compare(const char* text) const {
  if (!buffer_) return 1;
  return *this == text ? 0 : 1;
}

bool CRfcString::operator>=(const char* text) const {
  const char* other = text != nullptr ? text : "";
  for (int i = 0;; ++i) {
    const unsigned char mine = buffer_ && i < length_ ? static_cast<unsigned char>(buffer_[i]) : 0;
    const unsigned char theirs = static_cast<unsigned char>(other[i]);
    if (mine != theirs) return mine > theirs;
    if (mine == 0) return true;
  }
}

void CRfcString::MakeUpper() {
  if (!buffer_) return;
  platform::ToUpperInPlace(buffer_.get(),
                           BoundedLength(buffer_.get(), static_cast<size_t>(capacity_)));
}

CRfcString& CRfcString::Mid(CRfcString& target, int start, int count) const {
  if (!buffer_) {
    target = CRfcString();
    return target;
  }
  const int first = std::clamp(start, 0, length_);
  const int taken = std::clamp(count, 0, length_ - first);
  std::unique_ptr<char[]> piece = rfc::RfcAllocateArray<char>(static_cast<size_t>(taken) + 1);
  if (!piece) {
    // Nothing has changed yet; only the report is InitBuffer's.
    ThrowRfcFailure("CRfcString::InitBuffer  called", {kRfcAllocationFailed},
                    kRfcAllocationFailed);
  }
  std::memcpy(piece.get(), buffer_.get() + first, static_cast<size_t>(taken));
  target = CRfcString(piece.get());
  return target;
}

int CRfcString::TrimmedLength(const char* text) {
  if (text == nullptr) return -1;
  size_t length = std::strlen(text);
  while (length > 0 && text[length - 1] == ' ') --length;
  return static_cast<int>(std::min(length, kMaxCapacity));
}

void CRfcString::InitBuffer(int size) {
  if (size <= 0) {
    buffer_.reset();
    length_ = -1;
    capacity_ = -1;
    return;
  }
  Adopt(NewBuffer(static_cast<size_t>(size)), size - 1, 0);
}

std::unique_ptr<char[]> CRfcString::NewBuffer(size_t size) {
  std::unique_ptr<char[]> fresh =
      size <= kMaxCapacity + 1 ? rfc::RfcAllocateArray<char>(size) : nullptr;
  if (!fresh) FailAllocation();
  std::memset(fresh.get(), ' ', size - 1);
  fresh[size - 1] = '\0';
  return fresh;
}

void CRfcString::Adopt(std::unique_ptr<char[]> buffer, int capacity, int length) {
  buffer_ = std::move(buffer);
  capacity_ = capacity;
  length_ = length;
}

void CRfcString::FailAllocation() {
  InitBuffer(0);
  ThrowRfcFailure("CRfcString::InitBuffer  called", {kRfcAllocationFailed}, kRfcAllocationFailed);
}
