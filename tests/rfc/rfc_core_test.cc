// The class library's core, compared with files in tests/rfc/expected: strings
// and lists step by step, CRfcData's conversions of the inputs in tests/rfc/data,
// and every failure path with what it throws, leaves and traces. Beside them:
// the packed shapes swept, and the trace's directory rules and header.

#include "rfc/core/rfc_string.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <type_traits>

#include "rfc/core/rfc_data.h"
#include "rfc/core/rfc_error.h"
#include "rfc/core/rfc_list.h"
#include "tests/rfc/rfc_test_support.h"

namespace {

int g_items[32];  // the list stores pointers only; the entries are these

// A string as the tests show it: text (or null), length/capacity, the flag.
std::string Shown(const CRfcString& s) {
  const char* text = s;
  return (text != nullptr ? "\"" + std::string(text) + "\"" : std::string("null")) + " " +
         std::to_string(s.GetLength()) + "/" + std::to_string(s.GetCapacity()) + (s.GetUpperCase() != 0 ? " upper" : "");
}
// A list: count, storage, and entries -1 to count as indexes into g_items ("-": none).
std::string Shown(const CRfcList<int>& list) {
  std::string out = "count " + std::to_string(list.GetCount()) + " max " + std::to_string(list.GetMaxSize()) + ":";
  for (int i = -1; i <= list.GetCount(); ++i) {
    out += list.GetAt(i) != nullptr ? " " + std::to_string(list.GetAt(i) - g_items) : std::string(" -");
  }
  return out;
}

using Bytes = std::vector<unsigned char>;

constexpr int kOwnLength = -100;  // bind with the length of the given bytes

std::string TypeName(int type) {
  static const char* const names[] = {"CHAR", "DATE", "BCD", "TIME", "BYTE", "ITAB", "NUM", "FLOAT", "INT", "INT2", "INT1"};
  return type >= 0 && type <= TYPE_INT1 ? names[type] : "type" + std::to_string(type);
}
const uint16_t kProbe = 1;  // its first byte is 1 on a little-endian machine
// Numbers in the machine's order are turned round here, so that tables and
// the expected file show them big-endian on every machine.
bool TurnRound(int type, int native) {
  return native != 0 && *reinterpret_cast<const unsigned char*>(&kProbe) == 1 &&
         (type == TYPE_INT || type == TYPE_INT2 || type == TYPE_FLOAT);
}

std::string Hex(const Bytes& bytes) {
  std::string out;
  for (unsigned char b : bytes) out += (out.empty() ? "" : " ") + std::string{"0123456789ABCDEF"[b >> 4], "0123456789ABCDEF"[b & 15]};
  return out;
}
// A quoted text with \xNN escapes, or hex digits (numbers turned round).
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
  if (type != TYPE_CHAR && type != TYPE_DATE && type != TYPE_TIME && type != TYPE_NUM) return Hex(bytes);
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
  Value(int type, const std::string& given, int decimals = 0, int native = 1, int length = kOwnLength, std::string label = "")
      : label(std::move(label)), type(type), native(native), bytes(Parse(type, given, native)), data(native) {
    if (given != "-") data.Init(bytes.data(), type, length == kOwnLength ? static_cast<int>(bytes.size()) : length, decimals);
  }
  std::string Shown() const { return data.GetData() != nullptr ? Show(type, bytes, native) : "-"; }
  std::string label;  // its type and length bound as the data file writes them
  int type, native;
  Bytes bytes;
  CRfcData data;
};

// A data file's lines split in tokens, its comments ("#") copied to `out`. A
// value is written TYPE[/decimals] [L<length bound>] bytes (see Parse).
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
  const std::string label = tokens[at] + (tokens.at(at + 1)[0] == 'L' ? " " + tokens[at + 1] : "");
  const std::string type_name = tokens[at].substr(0, tokens[at].find('/'));
  int type = 0;  // a name, or typeN for a code without one
  while (type < 1000 && TypeName(type) != type_name) ++type;
  const int decimals = tokens[at].find('/') != std::string::npos ? std::stoi(tokens[at].substr(tokens[at].find('/') + 1)) : 0;
  const int length = tokens.at(++at)[0] == 'L' ? std::stoi(tokens.at(at++).substr(1)) : kOwnLength;
  return Value(type, tokens.at(at++), decimals, native, length, label);
}

TEST(RfcString, EveryStepOfStringsAndLists) {
  std::string out;
  // `change` first, then the line: the step and what `value` shows after it.
  auto step = [&out](const std::string& name, const auto& value, auto change) {
    change();
    out += name + " -> " + Shown(value) + "\n";
  };
  auto note = [&](const std::string& name, const CRfcString& value) { step(name, value, [] {}); };
  // Construction trims, assignment does not.
  note("(\"ABC  \")", CRfcString("ABC  "));
  note("(\"  a b \")", CRfcString("  a b "));
  note("(null)", CRfcString(nullptr));
  note("()", CRfcString());
  note("(\"abc \", 30)", CRfcString("abc ", 30));
  note("(null, 30)", CRfcString(nullptr, 30));
  note("(40 X and 2 blanks, 30)", CRfcString((std::string(40, 'X') + "  ").c_str(), 30));
  CRfcString s("x");
  step("= \"ABC  \"", s, [&] { s = "ABC  "; });
  step("= its own text from 3", s, [&] { s = static_cast<const char*>(s) + 3; });
  step("= null", s, [&] { s = static_cast<const char*>(nullptr); });

  // The upper-case flag acts on assignments only; MakeUpper leaves it.
  CRfcString upper("abc"), lower("rfc_read_table");
  upper.SetUpperCase(1);
  step("\"abc\" upper += \"d\"", upper, [&] { upper += "d"; });
  step("= \"abc\"", upper, [&] { upper = "abc"; });
  step("\"rfc_read_table\" MakeUpper", lower, [&] { lower.MakeUpper(); });
  // Copies take flag, capacity and text.
  CRfcString source("Name   ", 20);
  source.SetUpperCase(1);
  CRfcString copy(source), target("something longer");
  note("copy of (\"Name   \", 20) upper", copy);
  step("\"something longer\" = it", target, [&] { target = source; });
  step("= itself", target, [&] { target = target; });
  step("= ()", target, [&] { target = CRfcString(); });
  const CRfcString none;
  CRfcString assigned("abc");
  note("copy of ()", CRfcString(none));
  step("\"abc\" = ()", assigned, [&] { assigned = none; });
  note("moved from the copy", CRfcString(std::move(copy)));
  note("the copy after the move", copy);  // NOLINT(bugprone-use-after-move)

  // Append takes the old text up to its terminator, which reading writes.
  CRfcString read("ABC  "), unread("ABC  "), grown, blank(nullptr, 4);
  out += "read \"" + std::string(static_cast<const char*>(read)) + "\"\n";
  step("(\"ABC  \") read, += \"X\"", read, [&] { read += "X"; });
  step("(\"ABC  \") unread, Append \"X\"", unread, [&] { unread.Append("X"); });
  step("() += \"ab\", itself, null", grown, [&] {
    grown += "ab";
    grown += static_cast<const char*>(grown);
    grown += static_cast<const char*>(nullptr);
  });
  step("(null, 4) += \"Z\"", blank, [&] { blank += "Z"; });  // a fresh buffer is blank up to its capacity

  // Comparisons: a string without buffer is never equal, null reads as "",
  // bytes are unsigned, only the blank is trimmed.
  CRfcString abc("ABC");
  const char* null = nullptr;
  out += "\"ABC\" == \"ABC\", \"AB\", null; () == null, \"\"; () >= \"a\"; \"ABC\" >= null: " +
         std::to_string(abc == "ABC") + std::to_string(abc == "AB") + std::to_string(abc == null) +
         std::to_string(none == null) + std::to_string(none == "") + std::to_string(none >= "a") +
         std::to_string(abc >= null) + "\n";
  out += "\"ABC\" Compare null, \"ABC\", \"abc\"; () Compare null: " + std::to_string(abc.Compare(nullptr)) + " " +
         std::to_string(abc.Compare("ABC")) + " " + std::to_string(abc.Compare("abc")) + " " +
         std::to_string(none.Compare(nullptr)) + "\n";
  for (const auto& [left, right] : {std::pair{"46C", "40A"}, {"31I", "40A"}, {"40A", "40A"}, {"40AB", "40A"},
                                    {"40", "40A"}, {"\xE4", "z"}, {"z", "\xE4"}}) {
    out += testutil::Escaped(left) + " >= " + testutil::Escaped(right) + ": " + std::to_string(CRfcString(left) >= right) + "\n";
  }
  out += "TrimmedLength null, \"   \", \"a b\\t  \": " + std::to_string(CRfcString::TrimmedLength(nullptr)) + " " +
         std::to_string(CRfcString::TrimmedLength("   ")) + " " + std::to_string(CRfcString::TrimmedLength("a b\t  ")) +
         "\n";

  // Mid copies a piece within the text, trimmed by construction.
  CRfcString text("ABCDE  FG"), piece("x");
  piece.SetUpperCase(1);
  step("\"ABCDE  FG\" Mid 3, 4", piece, [&] { out += &text.Mid(piece, 3, 4) == &piece ? "" : "NOT THE TARGET "; });
  for (const auto& [start, count] : {std::pair{7, 10}, {-3, 2}, {12, 2}, {1, -1}}) {
    note("Mid " + std::to_string(start) + ", " + std::to_string(count), text.Mid(piece, start, count));
  }
  step("() Mid 0, 1", piece, [&] { none.Mid(piece, 0, 1); });
  step("Mid 1, 3 into itself", text, [&] { text.Mid(text, 1, 3); });

  // The buffer step, and changes in place.
  CRfcString buffer("abc");
  step("(\"abc\") InitBuffer 6", buffer, [&] { buffer.InitBuffer(6); });
  step("= \"key\", first byte K", buffer, [&] {
    buffer = "key";
    buffer.GetBuffer()[0] = 'K';
  });
  step("InitBuffer 0", buffer, [&] { buffer.InitBuffer(0); });
  out += buffer.GetBuffer() == nullptr ? "" : "A BUFFER LEFT\n";

  // Lists: Add grows by ten, InitList makes fresh null storage and keeps the
  // count, SetAtGrow sizes the storage to the index exactly.
  CRfcList<int> list, grown_list, larger, exact;
  step("list", list, [] {});
  step("Add 0..9", list, [&] { for (int i = 0; i < 10; ++i) list.Add(&g_items[i]); });
  step("Add 10", list, [&] { list.Add(&g_items[10]); });
  step("InitList 0", list, [&] { list.InitList(0); });
  step("Add 11", list, [&] { list.Add(&g_items[11]); });
  for (int index : {2, 0, 5, -1}) {
    step(std::string(index == 2 ? "list " : "") + "SetAtGrow " + std::to_string(index), grown_list,
         [&] { grown_list.SetAtGrow(index, &g_items[index < 0 ? 1 : index]); });
  }
  step("list Add 0, SetAtGrow 3", larger, [&] {
    larger.Add(&g_items[0]);
    larger.SetAtGrow(3, &g_items[3]);
  });
  step("list InitList 5, SetAtGrow 4", exact, [&] {
    exact.InitList(5);
    exact.SetAtGrow(4, &g_items[4]);
  });
  EXPECT_TRUE(testutil::MatchesExpectedFile(out, "tests/rfc/expected/rfc_string.txt"));
}

TEST(RfcData, ConversionsOneLinePerInput) {
  // The type table: fixed lengths, the binding, the cleared forms (of 0xAA).
  std::string out;
  const std::pair<int, int> cases[] = {{TYPE_CHAR, 3}, {TYPE_BCD, 2}, {TYPE_BYTE, 2}, {TYPE_NUM, 4},
                                       {TYPE_DATE, 3}, {TYPE_TIME, 99}, {TYPE_FLOAT, 0}, {TYPE_INT, 0},
                                       {TYPE_INT2, 0}, {TYPE_INT1, 0}, {TYPE_ITAB, 10}, {42, 10}};
  for (const auto& [type, given] : cases) {
    Value v(type, std::string(32, 'A'), 3, 1, given);  // bound to 16 bytes of 0xAA
    int info_type = -9, length = -9, decimals = -9;
    v.data.GetInfo(info_type, length, decimals);
    const bool bound = v.data.GetData() == v.bytes.data();
    v.data.ClearValue();
    v.bytes.resize(static_cast<size_t>(std::max(length, 0)) + 1);
    out += TypeName(type) + " given " + std::to_string(given) + ": fixed " + std::to_string(RfcFixedLength(type, given)) +
           ", info " + std::to_string(info_type) + "/" + std::to_string(length) + "/" + std::to_string(decimals) +
           (bound ? "" : " UNBOUND") + ", cleared " + Hex(v.bytes) + "\n";
  }
  // Every value in both byte orders, then turned round once by two calls of
  // ToNativeOrder: its order flag, its bytes as the machine's own, its text.
  for (const auto& tokens : Inputs("rfc_data_readings.txt", out)) {
    for (int native : {1, 0}) {
      size_t at = 0;
      Value v = Take(tokens, at, native);
      const Bytes given = v.bytes;
      out += v.label + (native == 0 ? " big-endian " : " ") + v.Shown() +
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
      const std::string thrown = rfc_test::Thrown([&] {
        if (value[0] == '"' || value == "null") {
          v.data = value[0] == '"' ? text.c_str() : static_cast<CSTR>(nullptr);
        } else {
          v.data = static_cast<RFC_INT>(std::stoll(value, nullptr, 0));
        }
      });
      out += v.label + (native == 0 ? " big-endian " : " ") + before + " = " + value + ": " + v.Shown() +
             (thrown.empty() ? "" : " !" + thrown) + (v.type == TYPE_BCD ? " reads " + Read<CSTR>(v.data) : "") + "\n";
    }
  }
  for (const auto& tokens : Inputs("rfc_data_copies.txt", out)) {
    size_t at = 0;
    Value to = Take(tokens, at, 1);
    const std::string before = to.Shown();
    const Value from = Take(tokens, at, 1);
    to.data.Assign(from.data);
    out += to.label + " " + before + " <- " + from.label + " " + from.Shown() + ": " + to.Shown() + "\n";
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
  // The packing step itself takes a blank as the digit 0; a length of no packed shape fails.
  Value value(TYPE_BCD, "000000");
  char text[] = "1 2 ";
  ASSERT_EQ(value.data.Str2BCD(text, value.bytes.data()), 1);
  EXPECT_EQ(Hex(value.bytes), "01 02 0C");
  value.data.Init(value.bytes.data(), TYPE_BCD, 65, 0);  // no packed shape
  EXPECT_EQ(value.data.Str2BCD(text, value.bytes.data()), 0);
}

TEST(RfcTrace, DirectoryRulesAndHeader) {
  const std::filesystem::path saved_cwd = std::filesystem::current_path();
  std::string before, after;
  // A new instance reads the current directory and is counted. A directory of
  // 255 characters does not fit its buffer and reads as empty: the files go
  // under their bare name into the current directory. A header is three
  // empty lines and the local time of the write.
  const auto run = rfc_test::RunTraced([&] {
    const std::filesystem::path directory = std::filesystem::canonical(GetRfcTrace().GetDirectory());
    std::filesystem::current_path(directory);
    const int instances = CRfcTrace::InstanceCount();
    CRfcTrace local;
    EXPECT_EQ(CRfcTrace::InstanceCount(), instances + 1);
    EXPECT_EQ(std::filesystem::path(local.GetDirectory()), directory);
    EXPECT_EQ(local.IsTraceOn(), 0);
    GetRfcTrace().SetDirectory(std::string(254, 'd'));
    EXPECT_EQ(GetRfcTrace().GetDirectory(), std::string(254, 'd'));
    GetRfcTrace().SetDirectory(std::string(255, 'd'));
    EXPECT_EQ(GetRfcTrace().GetDirectory(), "");
    before = CRfcTrace::HeaderLine(platform::LocalNow());
    GetRfcTrace().WriteHeader();
    after = CRfcTrace::HeaderLine(platform::LocalNow());
    std::filesystem::current_path(saved_cwd);
  });
  EXPECT_THAT(run.content, ::testing::AnyOf("\r\n\r\n\r\n" + before + "\r\n", "\r\n\r\n\r\n" + after + "\r\n"));
  // A file that cannot be opened drops its thread's lines for good.
  const auto lost = rfc_test::RunTraced([] {
    const std::string directory = GetRfcTrace().GetDirectory();
    GetRfcTrace().SetDirectory(directory + "/missing");
    GetRfcTrace().WriteLine("lost");
    GetRfcTrace().SetDirectory(directory);  // too late for this thread's file
    GetRfcTrace().WriteLine("also lost");
  });
  EXPECT_FALSE(lost.file_exists);
}

TEST(RfcFailure, TranscriptOfEveryFailure) {
  std::vector<rfc_test::Step> steps;
  // The allocation plan: the first allocations pass, the next ones fail, then
  // all pass again, value-initialised; clearing drops what is planned.
  steps.push_back({"allocations: 2 pass, 2 fail; cleared; a plan of none", [] {}, [] {
                     std::string seen;
                     rfc::testing::FailAllocations(2, 2);
                     for (int i = 0; i < 4; ++i) {
                       seen += (i % 2 == 0 ? rfc::RfcAllocateArray<char>(4) != nullptr : rfc::RfcAllocate<int>(5) != nullptr)
                                   ? "+" : "-" + std::to_string(rfc::testing::PendingAllocationFaults());
                     }
                     const auto recovered = rfc::RfcAllocateArray<int>(3);
                     seen += " " + std::to_string(recovered[0] + recovered[1] + recovered[2]);
                     rfc::testing::FailNextAllocation();
                     rfc::testing::ClearAllocationFaults();
                     seen += rfc::RfcAllocate<int>(1) != nullptr ? " +" : " -";
                     rfc::testing::FailAllocations(0, 0);
                     return seen + (rfc::RfcAllocate<int>(1) != nullptr ? "+" : "-");
                   }});
  // The header line's form; the year left-aligned in four places.
  steps.push_back({"header lines", [] {}, [] {
                     return CRfcTrace::HeaderLine({2003, 5, 7, 14, 3, 9}) + "|" + CRfcTrace::HeaderLine({999, 1, 2, 3, 4, 5});
                   }});
  // The trace: nothing while off, not even the thread's record; lines in CR
  // LF, appended to a file already there and flushed at once.
  steps.push_back({"trace off: header, line, blank lines, error, an allocation failing",
                   [] {
                     GetRfcTrace().SetTraceOn(0);
                     rfc::testing::FailNextAllocation();
                     GetRfcTrace().WriteHeader();
                     GetRfcTrace().WriteLine("one");
                     GetRfcTrace().WriteBlankLines(5);
                     GetRfcTrace().WriteError(RFC_ERROR_INFO{});
                   },
                   [] {
                     const int pending = rfc::testing::PendingAllocationFaults();
                     rfc::testing::ClearAllocationFaults();
                     return "allocation failures pending " + std::to_string(pending);
                   }});
  steps.push_back({"a file there already; the thread's record failing", [] {
                     std::ofstream(rfc_test::TraceFileOf(GetRfcTrace().GetDirectory(), platform::CurrentThreadId()),
                                   std::ios::binary) << "earlier\r\n";
                     rfc::testing::FailNextAllocation();
                     GetRfcTrace().WriteLine("not written");
                   }});
  steps.push_back({"lines: first, null, 0, -3 and 2 blank ones, two\\nparts", [] {
                     GetRfcTrace().WriteLine("first");
                     GetRfcTrace().WriteLine(nullptr);
                     GetRfcTrace().WriteBlankLines(0);
                     GetRfcTrace().WriteBlankLines(-3);
                     GetRfcTrace().WriteBlankLines(2);
                     GetRfcTrace().WriteLine("two\nparts");
                   }});
  steps.push_back({"trace on as -7", [] { GetRfcTrace().SetTraceOn(-7); },
                   [] {
                     GetRfcTrace().WriteLine("on");
                     return "IsTraceOn " + std::to_string(GetRfcTrace().IsTraceOn() != 0);
                   }});
  // Conversions: the small integer readings trace every call, the others
  // only their failures; a failed packed reading traces BCD2Str's line and
  // the operation's entry in the wording of the assignment direction.
  Value small(TYPE_INT1, "03"), packed(TYPE_BCD, "00002C", 2), bad(TYPE_BCD, "0A1C"), target(TYPE_BCD, "0000");
  Value text(TYPE_NUM, "\"00777\""), good(TYPE_BCD, "012C");
  Value unsized(TYPE_CHAR, "00", 0, 1, -1);  // without a length even "" is too long
  const std::pair<const char*, std::string (*)(CRfcData&)> readings[] = {
      {"RFC_INT1", Read<RFC_INT1>}, {"RFC_INT2", Read<RFC_INT2>}, {"RFC_INT", Read<RFC_INT>},
      {"RFC_FLOAT", Read<RFC_FLOAT>}, {"CSTR", Read<CSTR>}};
  for (const auto& [value, name] : {std::pair{&small.data, "INT1 03"}, {&packed.data, "BCD/2 00 00 2C"}, {&bad.data, "BCD 0A 1C"}}) {
    for (const auto& [reading, read] : readings) {
      steps.push_back({std::string(reading) + " of " + name, [] {}, [value, read] { return read(*value); }});
    }
  }
  steps.push_back({"BCD/2 = \"1.5\", = 2", [&] {
                     packed.data = "1.5";
                     packed.data = 2;
                   }});
  steps.push_back({"BCD/2 = 12345", [&] { target.data = 12345; }});
  steps.push_back({"BCD/2 = \"1x\"", [&] { target.data = "1x"; }});
  steps.push_back({"BCD/2 = \"1x\", trace off", [&] {
                     GetRfcTrace().SetTraceOn(0);
                     target.data = "1x";
                   }});
  steps.push_back({"NUM \"00777\" = \"123456\"", [&] { text.data = "123456"; }});
  steps.push_back({"CHAR without length = \"\"", [&] { unsized.data = ""; }});
  steps.push_back({"CSTR of 01 2C, allocation failing", [&] {
                     rfc::testing::FailNextAllocation();
                     static_cast<void>(static_cast<CSTR>(good.data));
                   },
                   [&] { return std::string(static_cast<CSTR>(good.data)) + " read again"; }});

  // Every string allocation reports as InitBuffer's; a new assignment heals.
  static const CRfcString other("other");
  const std::pair<const char*, void (*)(CRfcString&)> string_cases[] = {
      {"construction", [](CRfcString& s) { s = CRfcString("abc"); }},
      {"construction with capacity", [](CRfcString& s) { s = CRfcString("abc", 30); }},
      {"copy", [](CRfcString& s) { CRfcString copy(s); }},
      {"Mid", [](CRfcString& s) { other.Mid(s, 1, 2); }},
      {"assignment", [](CRfcString& s) { s = other; }},
      {"text assignment", [](CRfcString& s) { s = "xyz"; }},
      {"append", [](CRfcString& s) { s += "xyz"; }},
      {"InitBuffer", [](CRfcString& s) { s.InitBuffer(10); }},
  };
  std::vector<CRfcString> strings(std::size(string_cases), CRfcString("keep"));
  // `change` with an allocation failing: what `value` shows then, and after `again`.
  auto failing = [&steps](const std::string& name, auto& value, auto change, auto again) {
    steps.push_back({name + ", allocation failing",
                     [&value, change] {
                       rfc::testing::FailNextAllocation();
                       change(value);
                     },
                     [&value, again] {
                       const std::string after = Shown(value);
                       again(value);
                       return after + ", then " + Shown(value);
                     }});
  };
  for (size_t i = 0; i < std::size(string_cases); ++i) {
    failing(std::string("string ") + string_cases[i].first, strings[i], string_cases[i].second,
            [](CRfcString& s) { s = "again"; });
  }

  // A list's failed growth keeps the storage and its entries; it grows later.
  const std::pair<const char*, void (*)(CRfcList<int>&)> list_cases[] = {
      {"Add", [](CRfcList<int>& list) { list.Add(&g_items[10]); }},
      {"SetAtGrow", [](CRfcList<int>& list) { list.SetAtGrow(15, &g_items[15]); }},
      {"InitList", [](CRfcList<int>& list) { list.InitList(30); }},
  };
  std::array<CRfcList<int>, std::size(list_cases)> lists;
  for (size_t i = 0; i < lists.size(); ++i) {
    for (int item = 0; item < 10; ++item) lists[i].Add(&g_items[item]);
    failing(std::string("list of 10, ") + list_cases[i].first, lists[i], list_cases[i].second,
            [](CRfcList<int>& list) { list.Add(&g_items[10]); });
  }

  // The library's error record, raised by value and traced on request, and
  // a failure of the class library's own.
  rfc_test::Fake().SetLastError("STUB_KEY_WITH_24_CHARSXY", "stub status", "stub message");
  steps.push_back({"library error, traced", [] { ThrowRfcLastError(true); }});
  steps.push_back({"library error, untraced", [] { ThrowRfcLastError(false); }});
  steps.push_back({"library error, traced, trace off", [] {
                     GetRfcTrace().SetTraceOn(0);
                     ThrowRfcLastError(true);
                   }});
  steps.push_back({"own failure", [] { ThrowRfcFailure("CSomething::Operation called", {"first", "second"}, "Thrown text"); }});

  // WriteError cuts key and status, and never reads past a field.
  RFC_ERROR_INFO full{"", "", "", "never written"};
  std::memset(full.key, 'k', sizeof full.key);  // no terminator
  std::memset(full.status, 's', sizeof full.status);
  steps.push_back({"WriteError of 23/2/3, 24/11/9, 2/0/0, 0/1/1 characters and of full fields",
                   [&] {
                     GetRfcTrace().WriteError({"ABCDEFGHIJKLMNOPQRSTUVW", "ST", "MSG", "never written"});
                     GetRfcTrace().WriteError({"ABCDEFGHIJKLMNOPQRSTUVWX", "status text", "a message", "never written"});
                     GetRfcTrace().WriteError({"AB", "", "", "never written"});
                     GetRfcTrace().WriteError({"", "S", "M", "never written"});
                     GetRfcTrace().WriteError(full);
                   },
                   [] {
                     return CRfcTrace::ErrorLine("Message:", "abc", 2) + "|" + CRfcTrace::ErrorLine("Key:    ", nullptr, 4) +
                            "|" + CRfcTrace::ErrorLine("", "ab", 4);
                   }});
  EXPECT_TRUE(testutil::MatchesExpectedFile(rfc_test::Transcript(steps), "tests/rfc/expected/failures.txt"));
}

}  // namespace
