// Faults sapsim cannot produce, through the stand-in library: a table whose
// description changes between two line reads, and a line it cannot give.

#include <gtest/gtest.h>

#include <memory>

#include "access/sap_table.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_data.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/support/field_info.h"
#include "tests/support/polling.h"
#include "tests/support/stand_in_rfc.h"

namespace {

stand_in::State& Script() { return stand_in::StandIn(STAND_IN_RFC); }

// CHAR A and B and, with `third`, C: the whole line, as AddFieldInfo lays out only what it is given.
void Describe(CRfcTableParam& table, bool third) {
  CRfcFieldInfo fields[] = {test_support::Field("A", 0, TYPE_CHAR, 2), test_support::Field("B", 1, TYPE_CHAR, 2),
                            test_support::Field("C", 2, TYPE_CHAR, 1)};
  table.AddFieldInfo(fields, third ? 3 : 2);
}

// `lines` lines; the third column is described when line `widen_at` is read.
std::unique_ptr<CRfcTableParam> Widening(int lines, int widen_at) {
  auto table = std::make_unique<CRfcTableParam>("T", 0, 0, 0, nullptr, "");
  Describe(*table, false);
  table->Create();
  for (int line = 0; line < lines; ++line) {
    table->GotoLine(line);
    table->GetData(table->GetCurrentLine(), 0) = "a";
  }
  Script().on_get_line = [widened = table.get(), widen_at](unsigned line) {
    if (static_cast<int>(line) == widen_at) Describe(*widened, true);
  };
  return table;
}

std::string Read(CRfcTableParam& table) {
  try {
    const CSapTable text(&table);
    return testutil::Join(text.GetColumnCount(), text.GetRowCount());
  } catch (const std::string& message) {
    return "thrown string: " + message;
  } catch (const char* message) {
    return std::string("thrown text: ") + message;
  }
}

TEST(AccessFaultTest, LinesOfDifferentWidthsOrAMissingLineAbandonTheTable) {
  ASSERT_TRUE(LoadRfcLibrary(STAND_IN_RFC));
  Script().Reset();
  auto wider = Widening(3, 2);
  EXPECT_EQ(Read(*wider), "thrown string: Different number of cols in rows found!");
  EXPECT_EQ(3, wider->GetFieldCount());
  EXPECT_EQ(Read(*Widening(2, 1)), "3|2|");  // a change before the first line is read is no fault
  auto plain = Widening(3, -1);
  Script().missing_lines.insert(2);
  EXPECT_EQ(Read(*plain), "thrown text: ItGetLine Failure!");
}

}  // namespace
