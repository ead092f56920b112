#pragma once
// Small builders for the library's parameter and table arrays, so that the
// tests read like the calls they make.

#include <cstring>
#include <string>

#include "rfc/binding/rfc_library_api.h"

namespace sapsim::testing {

inline RfcParameterEntry Param(const char* name, int32_t type, void* address, uint32_t length) {
  return RfcParameterEntry{name, static_cast<uint32_t>(std::strlen(name)), type, length, address};
}
inline RfcParameterEntry EndParam() { return RfcParameterEntry{nullptr, 0, 0, 0, nullptr}; }
inline RfcTableEntry Table(const char* name, int32_t type, uint32_t line_length, TableHandle handle = nullptr) {
  return RfcTableEntry{name, static_cast<uint32_t>(std::strlen(name)), type, line_length, handle, 0, 0};
}
inline RfcTableEntry EndTable() { return RfcTableEntry{nullptr, 0, 0, 0, nullptr, 0, 0}; }

// Empty parameter and table arrays, for calls that pass nothing.
struct NoArgs {
  RfcParameterEntry params[1] = {EndParam()};
  RfcTableEntry tables[1] = {EndTable()};
};

// A CHAR value of fixed length, blank-padded, usable as an import.
template <size_t N>
struct Chars {
  char text[N];
  explicit Chars(const std::string& value = "") {
    std::memset(text, ' ', N);
    std::memcpy(text, value.data(), value.size() < N ? value.size() : N);
  }
};

// A line of an internal table as text, trailing blanks removed.
inline std::string LineText(const void* line, size_t offset, size_t length) {
  std::string s(static_cast<const char*>(line) + offset, length);
  size_t end = s.find_last_not_of(' ');
  return end == std::string::npos ? std::string() : s.substr(0, end + 1);
}

}  // namespace sapsim::testing
