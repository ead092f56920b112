// CRfcString and CRfcList: each step's result (text, length, capacity and
// upper-case flag; count, storage and entries) one line per step, the whole
// compared with tests/rfc/expected/rfc_string.txt. Construction trims and
// assignment does not, Append reads the old text up to its terminator, lists
// grow by ten and SetAtGrow to the index. (Failed allocations: the failure
// transcript.)

#include "rfc/core/rfc_string.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "rfc/core/rfc_list.h"
#include "tests/rfc/rfc_test_support.h"
#include "tests/support/expected_file.h"

namespace {

std::string Escaped(const std::string& text) {
  std::string out;
  const char* hex = "0123456789ABCDEF";
  for (unsigned char c : text) {
    out += c < 0x80 ? std::string(1, static_cast<char>(c)) : std::string("\\x") + hex[c >> 4] + hex[c & 15];
  }
  return out;
}

int g_items[32];  // the list stores pointers only; the entries are these

TEST(RfcString, EveryStepOfStringsAndLists) {
  std::string out;
  auto note = [&out](const std::string& step, const CRfcString& value) {
    out += step + " -> " + rfc_test::Show(value) + "\n";
  };
  auto note_list = [&out](const std::string& step, const CRfcList<int>& list) {
    out += step + " -> " + rfc_test::Show(list, g_items) + "\n";
  };
  note("(\"ABC  \")", CRfcString("ABC  "));
  note("(\"  a b \")", CRfcString("  a b "));
  note("(null)", CRfcString(nullptr));
  note("()", CRfcString());
  note("(\"abc \", 30)", CRfcString("abc ", 30));
  note("(null, 30)", CRfcString(nullptr, 30));
  note("(40 X and 2 blanks, 30)", CRfcString((std::string(40, 'X') + "  ").c_str(), 30));
  CRfcString s("x");
  s = "ABC  ";
  note("= \"ABC  \"", s);
  s = static_cast<const char*>(s) + 3;
  note("= its own text from 3", s);
  s = static_cast<const char*>(nullptr);
  note("= null", s);

  // The upper-case flag acts on assignments only; MakeUpper leaves it.
  CRfcString upper("abc");
  upper.SetUpperCase(1);
  upper += "d";
  note("\"abc\" upper += \"d\"", upper);
  upper = "abc";
  note("= \"abc\"", upper);
  CRfcString lower("rfc_read_table");
  lower.MakeUpper();
  note("\"rfc_read_table\" MakeUpper", lower);
  // Copies take flag, capacity and text.
  CRfcString source("Name   ", 20);
  source.SetUpperCase(1);
  CRfcString copy(source);
  note("copy of (\"Name   \", 20) upper", copy);
  CRfcString target("something longer");
  target = source;
  note("\"something longer\" = it", target);
  target = target;
  note("= itself", target);
  target = CRfcString();
  note("= ()", target);
  const CRfcString none;
  CRfcString copied_none(none), assigned("abc");
  assigned = none;
  note("copy of ()", copied_none);
  note("\"abc\" = ()", assigned);
  CRfcString moved(std::move(copy));
  note("moved from the copy", moved);
  note("the copy after the move", copy);  // NOLINT(bugprone-use-after-move)

  // Append takes the old text up to its terminator, which reading writes.
  CRfcString read("ABC  ");
  out += "read \"" + std::string(static_cast<const char*>(read)) + "\"\n";
  read += "X";
  note("(\"ABC  \") read, += \"X\"", read);
  CRfcString unread("ABC  ");
  unread.Append("X");
  note("(\"ABC  \") unread, Append \"X\"", unread);
  CRfcString grown;
  grown += "ab";
  grown += static_cast<const char*>(grown);
  grown += static_cast<const char*>(nullptr);
  note("() += \"ab\", itself, null", grown);
  CRfcString blank(nullptr, 4);  // a fresh buffer is blank up to its capacity
  blank += "Z";
  note("(null, 4) += \"Z\"", blank);

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
    out += Escaped(left) + " >= " + Escaped(right) + ": " + std::to_string(CRfcString(left) >= right) + "\n";
  }
  out += "TrimmedLength null, \"   \", \"a b\\t  \": " + std::to_string(CRfcString::TrimmedLength(nullptr)) + " " +
         std::to_string(CRfcString::TrimmedLength("   ")) + " " + std::to_string(CRfcString::TrimmedLength("a b\t  ")) +
         "\n";

  // Mid copies a piece within the text, trimmed by construction.
  CRfcString text("ABCDE  FG");
  CRfcString piece("x");
  piece.SetUpperCase(1);
  out += std::string(&text.Mid(piece, 3, 4) == &piece ? "" : "NOT THE TARGET ");
  note("\"ABCDE  FG\" Mid 3, 4", piece);
  for (const auto& [start, count] : {std::pair{7, 10}, {-3, 2}, {12, 2}, {1, -1}}) {
    note("Mid " + std::to_string(start) + ", " + std::to_string(count), text.Mid(piece, start, count));
  }
  none.Mid(piece, 0, 1);
  note("() Mid 0, 1", piece);
  text.Mid(text, 1, 3);
  note("Mid 1, 3 into itself", text);

  // The buffer step, and changes in place.
  CRfcString buffer("abc");
  buffer.InitBuffer(6);
  note("(\"abc\") InitBuffer 6", buffer);
  buffer = "key";
  buffer.GetBuffer()[0] = 'K';
  note("= \"key\", first byte K", buffer);
  buffer.InitBuffer(0);
  note("InitBuffer 0", buffer);
  out += std::string(buffer.GetBuffer() == nullptr ? "" : "A BUFFER LEFT\n");

  // Lists: Add grows by ten, InitList makes fresh null storage and keeps the
  // count, SetAtGrow sizes the storage to the index exactly.
  CRfcList<int> list;
  note_list("list", list);
  for (int i = 0; i < 10; ++i) list.Add(&g_items[i]);
  note_list("Add 0..9", list);
  list.Add(&g_items[10]);
  note_list("Add 10", list);
  list.InitList(0);
  note_list("InitList 0", list);
  list.Add(&g_items[11]);
  note_list("Add 11", list);
  CRfcList<int> grown_list;
  grown_list.SetAtGrow(2, &g_items[2]);
  note_list("list SetAtGrow 2", grown_list);
  grown_list.SetAtGrow(0, &g_items[0]);
  note_list("SetAtGrow 0", grown_list);
  grown_list.SetAtGrow(5, &g_items[5]);
  note_list("SetAtGrow 5", grown_list);
  grown_list.SetAtGrow(-1, &g_items[1]);
  note_list("SetAtGrow -1", grown_list);
  CRfcList<int> larger;
  larger.Add(&g_items[0]);
  larger.SetAtGrow(3, &g_items[3]);
  note_list("list Add 0, SetAtGrow 3", larger);
  CRfcList<int> exact;
  exact.InitList(5);
  exact.SetAtGrow(4, &g_items[4]);
  note_list("list InitList 5, SetAtGrow 4", exact);
  EXPECT_TRUE(testutil::MatchesExpectedFile(out, "tests/rfc/expected/rfc_string.txt"));
}

}  // namespace
