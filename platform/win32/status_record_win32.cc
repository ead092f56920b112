// Status records on Windows: a named file mapping backed by the paging file.
// The system frees it with the last handle, so a record never outlives the
// processes that hold it; a reader's handle is held only while it reads.

#include <windows.h>

#include <new>
#include <utility>

#include "platform/status_record.h"

namespace platform {
namespace {

constexpr size_t kSize = sizeof(StatusRecord::Shared);
// A writer that holds its record this long (100 x 1 ms) is alive.
constexpr int kMaxAttempts = 100;
constexpr DWORD kRetryPauseMs = 1;
// Kernel object names are limited; longer encodings are hashed.
constexpr size_t kMaxDirectName = 200;

uint64_t Fnv1a(const std::string& text, uint64_t basis) {
  uint64_t hash = basis;
  for (const char c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 0x100000001b3ULL;
  }
  return hash;
}

void AppendHex(std::string* out, uint64_t value, int digits) {
  static const char kHex[] = "0123456789abcdef";
  for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4)
    out->push_back(kHex[(value >> shift) & 0xF]);
}

// Any instance name gives a valid object name (a backslash would name a
// namespace): letters, digits and '-' stand for themselves, every other byte
// becomes '_' and two hex digits.
std::string MappingName(const std::string& name) {
  std::string encoded = "bs_status.n.";
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
        (byte >= '0' && byte <= '9') || byte == '-') {
      encoded.push_back(c);
    } else {
      encoded.push_back('_');
      AppendHex(&encoded, byte, 2);
    }
    if (encoded.size() > kMaxDirectName) break;
  }
  if (encoded.size() <= kMaxDirectName) return encoded;
  std::string hashed = "bs_status.h.";
  AppendHex(&hashed, Fnv1a(name, 0xcbf29ce484222325ULL), 16);
  AppendHex(&hashed, Fnv1a(name, 0x84222325cbf29ce4ULL), 16);
  AppendHex(&hashed, name.size(), 8);
  return hashed;
}

class Win32StatusRecord final : public StatusRecord {
 public:
  Win32StatusRecord(HANDLE mapping, void* view)
      : StatusRecord(view), mapping_(mapping), view_(view) {}
  ~Win32StatusRecord() override {
    UnmapViewOfFile(view_);
    CloseHandle(mapping_);
  }

 private:
  HANDLE mapping_;
  void* view_;
};

}  // namespace

std::unique_ptr<StatusRecord> StatusRecord::Create(const std::string& name) {
  if (name.empty()) return nullptr;
  try {
    const std::string object_name = MappingName(name);
    HANDLE mapping = nullptr;
    for (int attempt = 0; mapping == nullptr; ++attempt) {
      if (attempt == kMaxAttempts) return nullptr;  // a live writer: it keeps its record
      mapping = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                   static_cast<DWORD>(kSize), object_name.c_str());
      if (mapping == nullptr) return nullptr;
      if (GetLastError() == ERROR_ALREADY_EXISTS) {
        // Held by a live writer, or by a reader for a moment.
        CloseHandle(mapping);
        mapping = nullptr;
        Sleep(kRetryPauseMs);
      }
    }
    void* view = MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, kSize);
    if (view == nullptr) {
      CloseHandle(mapping);
      return nullptr;
    }
    // A new mapping of the paging file reads as zero bytes.
    static_cast<Shared*>(view)->writer_process = static_cast<int64_t>(GetCurrentProcessId());
    return std::make_unique<Win32StatusRecord>(mapping, view);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

std::unique_ptr<StatusRecord> StatusRecord::Open(const std::string& name) {
  if (name.empty()) return nullptr;
  try {
    const std::string object_name = MappingName(name);
    HANDLE mapping = OpenFileMappingA(FILE_MAP_READ, FALSE, object_name.c_str());
    if (mapping == nullptr) return nullptr;
    void* view = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, kSize);
    if (view == nullptr) {
      CloseHandle(mapping);
      return nullptr;
    }
    return std::make_unique<Win32StatusRecord>(mapping, view);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace platform
