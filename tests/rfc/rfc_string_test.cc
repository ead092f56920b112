// CRfcString and CRfcList: each step's result (text, length, capacity and
// upper-case flag; count, storage and entries) one line per step, the whole
// compared with tests/rfc/expected/rfc_string.txt. (Failed allocations: the
// failure transcript.)

#include "rfc/core/rfc_string.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "rfc/core/rfc_list.h"
#include "tests/rfc/rfc_test_support.h"
#include "tests/support/expected_file.h"

namespace {

int g_items[32];  // the list stores pointers only; the entries are these

std::string Shown(const CRfcString& value) { return rfc_test::Show(value); }
std::string Shown(const CRfcList<int>& list) { return rfc_test::Show(list, g_items); }

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

}  // namespace
