// CRfcData: the type table and every reading, assignment and copy with
// conversion of the inputs in tests/rfc/data (one line per input, the whole
// compared with tests/rfc/expected/rfc_data.txt), the packed shapes swept and
// the packing step. Failed conversions' trace lines: the failure transcript.

#include "rfc/core/rfc_data.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/rfc/rfc_test_support.h"
#include "tests/support/expected_file.h"

namespace {

using Bytes = std::vector<unsigned char>;
using rfc_test::Thrown;

constexpr int kOwnLength = -100;  // bind with the length of the given bytes

std::string TypeName(int type) {
  static const char* const names[] = {"CHAR", "DATE", "BCD", "TIME", "BYTE", "ITAB",
                                      "NUM", "FLOAT", "INT", "INT2", "INT1"};
  return type >= 0 && type <= TYPE_INT1 ? names[type] : "type" + std::to_string(type);
}
bool IsText(int type) { return type == TYPE_CHAR || type == TYPE_DATE || type == TYPE_TIME || type == TYPE_NUM; }
bool LittleEndian() {
  const uint16_t probe = 1;
  return *reinterpret_cast<const unsigned char*>(&probe) == 1;
}
// Numbers in the machine's order are turned round here, so that tables and
// the expected file show them big-endian on every machine.
bool TurnRound(int type, int native) {
  return native != 0 && LittleEndian() && (type == TYPE_INT || type == TYPE_INT2 || type == TYPE_FLOAT);
}

std::string Hex(const Bytes& bytes) {
  std::string out;
  for (unsigned char b : bytes) out += (out.empty() ? "" : " ") + std::string{"0123456789ABCDEF"[b >> 4], "0123456789ABCDEF"[b & 15]};
  return out;
}
// A quoted text with \xNN escapes, or hex digits; numbers in the machine's
// order turned round.
Bytes Parse(int type, const std::string& given, int native) {
  Bytes bytes;
  const bool quoted = !given.empty() && given[0] == '"';
  for (size_t i = quoted ? 1 : 0; i + 1 < given.size();) {
    if (quoted && given.compare(i, 2, "\\x") != 0) {
      bytes.push_back(static_cast<unsigned char>(given[i++]));
      continue;
    }
    i += quoted ? 2 : 0;
    bytes.push_back(static_cast<unsigned char>(std::stoi(given.substr(i, 2), nullptr, 16)));
    i += 2;
  }
  if (TurnRound(type, native)) std::reverse(bytes.begin(), bytes.end());
  return bytes;
}
std::string Show(int type, Bytes bytes, int native) {
  if (TurnRound(type, native)) std::reverse(bytes.begin(), bytes.end());
  if (!IsText(type)) return Hex(bytes);
  std::string text = "\"";
  for (unsigned char b : bytes) text += b >= 0x20 ? std::string(1, static_cast<char>(b)) : "\\x" + Hex({b});
  return text + "\"";
}

std::string Number(double value) {
  if (std::isnan(value)) return "nan";
  char text[40];
  std::snprintf(text, sizeof text, "%.15g", value);
  return text;
}
// A reading, or the text it throws.
template <typename T>
std::string Read(CRfcData& data) {
  try {
    if constexpr (std::is_same_v<T, CSTR>) {
      const std::string text = static_cast<CSTR>(data);
      return Show(TYPE_CHAR, Bytes(text.begin(), text.end()), 1);
    } else {
      return Number(static_cast<double>(static_cast<T>(data)));
    }
  } catch (const char* text) {
    return "!" + std::string(text);
  }
}

// A value bound to bytes of its own ("-": never bound).
struct Value {
  Value(int type, const std::string& given, int decimals = 0, int native = 1, int length = kOwnLength)
      : type(type), native(native), bytes(Parse(type, given, native)), data(native) {
    if (given != "-") data.Init(bytes.data(), type, length == kOwnLength ? static_cast<int>(bytes.size()) : length, decimals);
  }
  std::string Shown() const { return data.GetData() != nullptr ? Show(type, bytes, native) : "-"; }
  int type, native;
  Bytes bytes;
  CRfcData data;
};

// The lines of a data file of inputs; comments ("#") are copied to `out`.
// A line holds values written TYPE[/decimals] [L<length bound>] bytes (see
// Parse), then what each file adds.
std::vector<std::vector<std::string>> Inputs(const std::string& name, std::string& out) {
  std::vector<std::vector<std::string>> lines;
  std::istringstream file(testutil::ReadBytes(testutil::SourceDir() + "/tests/rfc/data/" + name));
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') {
      out += line + "\n";
      continue;
    }
    lines.emplace_back();
    for (size_t at = 0; at < line.size(); at = line.find_first_not_of(' ', at)) {
      const size_t close = line.find('"', at + 1);
      const size_t end = line[at] != '"' ? line.find(' ', at) : close != std::string::npos ? close + 1 : close;
      lines.back().push_back(line.substr(at, end - at));
      at = std::min(end, line.size());
    }
  }
  return lines;
}
// The value written from `tokens[at]` on.
Value Take(const std::vector<std::string>& tokens, size_t& at, int native) {
  const std::string type_name = tokens[at].substr(0, tokens[at].find('/'));
  int type = type_name.rfind("type", 0) == 0 ? std::stoi(type_name.substr(4)) : 0;
  while (type <= TYPE_INT1 && type_name.rfind("type", 0) != 0 && TypeName(type) != type_name) ++type;
  const int decimals = tokens[at].find('/') != std::string::npos ? std::stoi(tokens[at].substr(tokens[at].find('/') + 1)) : 0;
  const int length = tokens.at(++at)[0] == 'L' ? std::stoi(tokens.at(at++).substr(1)) : kOwnLength;
  return Value(type, tokens.at(at++), decimals, native, length);
}

// The type of the value written from `tokens[at]` on, with its length bound.
std::string Label(const std::vector<std::string>& tokens, size_t at) {
  return tokens[at] + (tokens.at(at + 1)[0] == 'L' ? " " + tokens[at + 1] : "");
}

TEST(RfcData, ConversionsOneLinePerInput) {
  // The type table: fixed lengths, the binding, the cleared forms (of 0xAA).
  std::string out;
  const std::pair<int, int> cases[] = {{TYPE_CHAR, 3}, {TYPE_BCD, 2}, {TYPE_BYTE, 2}, {TYPE_NUM, 4},
                                       {TYPE_DATE, 3}, {TYPE_TIME, 99}, {TYPE_FLOAT, 0}, {TYPE_INT, 0},
                                       {TYPE_INT2, 0}, {TYPE_INT1, 0}, {TYPE_ITAB, 10}, {42, 10}};
  for (const auto& [type, given] : cases) {
    Bytes buffer(16, 0xAA);
    CRfcData data(1);
    data.Init(buffer.data(), type, given, 3);
    int info_type = -9, length = -9, decimals = -9;
    data.GetInfo(info_type, length, decimals);
    const bool bound = data.GetData() == buffer.data();
    data.ClearValue();
    buffer.resize(static_cast<size_t>(std::max(length, 0)) + 1);
    out += TypeName(type) + " given " + std::to_string(given) + ": fixed " + std::to_string(RfcFixedLength(type, given)) +
           ", info " + std::to_string(info_type) + "/" + std::to_string(length) + "/" + std::to_string(decimals) +
           (bound ? "" : " UNBOUND") + ", cleared " + Hex(buffer) + "\n";
  }
  // Every value in both byte orders, then turned round once by two calls of
  // ToNativeOrder (numbers in big-endian only): its order flag, its bytes as
  // the machine's own, its text again.
  for (const auto& tokens : Inputs("rfc_data_readings.txt", out)) {
    for (int native : {1, 0}) {
      size_t at = 0;
      Value v = Take(tokens, at, native);
      const Bytes given = v.bytes;
      out += Label(tokens, 0) + (native == 0 ? " big-endian " : " ") + v.Shown() +
             ": " + Read<CSTR>(v.data) + ", " + Read<RFC_INT>(v.data) + ", " + Read<RFC_INT2>(v.data) + ", " +
             Read<RFC_INT1>(v.data) + ", " + Read<RFC_FLOAT>(v.data) + (v.bytes == given ? "" : " CHANGED");
      v.data.ToNativeOrder();
      v.data.ToNativeOrder();
      out += ", turned " + std::to_string(v.data.GetNativeOrder()) + " " + Show(v.type, v.bytes, 1) + " " +
             Read<CSTR>(v.data) + "\n";
    }
  }
  // Both orders again; the bytes after, the text thrown, and packed values read back.
  for (const auto& tokens : Inputs("rfc_data_assignments.txt", out)) {
    for (int native : {1, 0}) {
      size_t at = 0;
      Value v = Take(tokens, at, native);
      const std::string& value = tokens.at(at);
      const std::string before = v.Shown();
      const std::string text(value[0] == '"' ? value.substr(1, value.size() - 2) : "");
      const std::string thrown = Thrown([&] {
        if (value[0] == '"') {
          v.data = text.c_str();
        } else if (value == "null") {
          v.data = static_cast<CSTR>(nullptr);
        } else {
          v.data = static_cast<RFC_INT>(std::stoll(value, nullptr, 0));
        }
      });
      out += Label(tokens, 0) + (native == 0 ? " big-endian " : " ") + before + " = " + value + ": " + v.Shown() +
             (thrown.empty() ? "" : " !" + thrown) + (v.type == TYPE_BCD ? " reads " + Read<CSTR>(v.data) : "") + "\n";
    }
  }
  for (const auto& tokens : Inputs("rfc_data_copies.txt", out)) {
    size_t at = 0;
    Value to = Take(tokens, at, 1);
    const std::string before = to.Shown();
    const size_t from_at = at;
    const Value from = Take(tokens, at, 1);
    to.data.Assign(from.data);
    out += Label(tokens, 0) + " " + before + " <- " + Label(tokens, from_at) + " " + from.Shown() + ": " + to.Shown() + "\n";
  }
  EXPECT_TRUE(testutil::MatchesExpectedFile(out, "tests/rfc/expected/rfc_data.txt"));
}

// Every shape converts: the smallest negative unit and the negative value of
// all nines give their texts, which assign back to the same bytes.
TEST(RfcData, EveryPackedShapeReadsAndAssignsBack) {
  for (int length = 1; length <= 64; ++length) {
    const int digits = 2 * length - 1;
    for (int decimals = 0; decimals <= digits; ++decimals) {
      const std::string integer(static_cast<size_t>(digits - decimals), '9');
      const std::string fraction(static_cast<size_t>(decimals), '9');
      const std::string nines = "-" + (integer.empty() ? "0" : integer) + (decimals > 0 ? "." + fraction : "");
      const std::string unit = decimals > 0 ? "-0." + std::string(static_cast<size_t>(decimals - 1), '0') + "1" : "-1";
      const std::string zeros(static_cast<size_t>(2 * length - 2), '0');
      for (const auto& [hex, text] : {std::pair{std::string(zeros.size(), '9') + "9D", nines},
                                      std::pair{zeros + "1D", unit}}) {
        Value value(TYPE_BCD, hex, decimals);
        ASSERT_EQ(static_cast<CSTR>(value.data), text) << "L=" << length << " D=" << decimals;
        const Bytes bytes = value.bytes;
        std::fill(value.bytes.begin(), value.bytes.end(), 0);
        value.data = text.c_str();
        ASSERT_EQ(value.bytes, bytes) << text;
      }
    }
  }
  // The packing step itself takes a blank as the digit 0 and writes it back.
  Value value(TYPE_BCD, "000000");
  char text[] = "1 2 ";
  ASSERT_EQ(value.data.Str2BCD(text, value.bytes.data()), 1);
  EXPECT_EQ(Hex(value.bytes), "01 02 0C");
  EXPECT_STREQ(text, "1020");
  char many[] = "123";
  value.data.Init(value.bytes.data(), TYPE_BCD, 65, 0);  // no packed shape
  EXPECT_EQ(value.data.Str2BCD(many, value.bytes.data()), 0);
  char zero[] = "0.1";
  value.data.Init(value.bytes.data(), TYPE_BCD, 1, 1);  // all digits decimals: not even a 0 before the point
  EXPECT_EQ(value.data.Str2BCD(zero, value.bytes.data()), 0);
  char bcd_text[140];
  EXPECT_EQ(Value(TYPE_BCD, "0A1C").data.BCD2Str(bcd_text, Parse(TYPE_BCD, "0A1C", 1).data()), 0);
}

}  // namespace
