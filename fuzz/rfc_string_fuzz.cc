// CRfcString under arbitrary sequences of assignment, construction, Append,
// Mid and comparison: no crash, no read or write outside a buffer, and the
// results the rules promise.
//
// Input: a list of operations, each one byte of operation code, one byte of
// argument and a text up to the next NUL byte.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "rfc/core/rfc_string.h"

namespace {

void Check(bool condition) {
  if (!condition) std::abort();
}

std::string Trimmed(const std::string& text) {
  const size_t end = text.find_last_not_of(' ');
  return end == std::string::npos ? std::string() : text.substr(0, end + 1);
}

std::string Read(const CRfcString& s) {
  const char* text = s;
  Check(text != nullptr);
  Check(std::strlen(text) <= static_cast<size_t>(s.GetLength()));
  Check(s.GetLength() <= s.GetCapacity());
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CRfcString s;
  CRfcString other("seed");
  size_t pos = 0;
  while (pos + 2 <= size) {
    const int op = data[pos] % 10;
    const int argument = data[pos + 1];
    pos += 2;
    const char* start = reinterpret_cast<const char*>(data + pos);
    const size_t length = strnlen(start, size - pos);
    const std::string text(start, length);
    pos += length + 1;

    switch (op) {
      case 0:
        s = CRfcString(text.c_str());
        Check(Read(s) == Trimmed(text));
        Check(s.GetCapacity() == static_cast<int>(text.size()));
        break;
      case 1:
        s = CRfcString(text.c_str(), argument % 40);
        Check(Read(s) == Trimmed(text));
        break;
      case 2:
        s.SetUpperCase(argument % 2);
        s = text.c_str();
        Check(s.GetLength() == static_cast<int>(text.size()));
        if (argument % 2 == 0) Check(Read(s) == text);
        break;
      case 3: {
        const bool had_buffer = static_cast<const char*>(s) != nullptr;
        const std::string before = had_buffer ? Read(s) : std::string();
        if (had_buffer && static_cast<size_t>(s.GetLength()) == before.size()) {
          s += text.c_str();
          Check(Read(s) == before + text);  // read before appending: plain concatenation
        } else {
          s += text.c_str();
          Read(s);
        }
        break;
      }
      case 4:
        if (static_cast<const char*>(s) != nullptr) {
          const std::string whole = Read(s);
          CRfcString target;
          const int first = argument % 20 - 3;
          const int count = static_cast<int>(text.size()) - 2;
          s.Mid(target, first, count);
          if (s.GetLength() == static_cast<int>(whole.size())) {
            const size_t from = static_cast<size_t>(std::max(0, std::min(first, s.GetLength())));
            const size_t n = count < 0 ? 0 : static_cast<size_t>(count);
            Check(Read(target) == Trimmed(whole.substr(from, n)));
          }
        }
        break;
      case 5:
        if (static_cast<const char*>(s) != nullptr) {
          const std::string mine = Read(s);
          if (mine.size() == static_cast<size_t>(s.GetLength())) {
            Check((s == text.c_str()) == (mine == text));
            Check((s.Compare(text.c_str()) == 0) == (mine == text));
            Check((s >= text.c_str()) == (mine.compare(text) >= 0));
          }
        }
        break;
      case 6:
        other = s;
        if (static_cast<const char*>(s) != nullptr) Check(Read(other) == Read(s));
        break;
      case 7: {
        CRfcString copy(s);
        if (static_cast<const char*>(s) != nullptr) Check(Read(copy) == Read(s));
        s = other;
        break;
      }
      case 8:
        s.MakeUpper();
        break;
      default:
        s.InitBuffer(argument % 50);
        break;
    }
  }
  return 0;
}
