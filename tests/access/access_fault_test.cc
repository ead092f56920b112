// Faults the simulated system cannot produce, injected through the stand-in
// RFC library: a table whose description changes between two line reads,
// and a line the library cannot give.

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

// Describes the CHAR fields A and B (2 bytes) and, with `third`, C (1 byte);
// the whole line each time, as AddFieldInfo lays out only what it is given.
void Describe(CRfcTableParam& table, bool third) {
  CRfcFieldInfo fields[] = {test_support::Field("A", 0, TYPE_CHAR, 2), test_support::Field("B", 1, TYPE_CHAR, 2),
                            test_support::Field("C", 2, TYPE_CHAR, 1)};
  table.AddFieldInfo(fields, third ? 3 : 2);
}

// A table of `lines` lines whose third column is described when line
// `widen_at` is read (never when negative).
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

// Columns and rows of the text table made of it, or what was thrown.
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

class AccessFaultTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(LoadRfcLibrary(STAND_IN_RFC)); }
  void SetUp() override { Script().Reset(); }
  void TearDown() override { Script().Reset(); }
};

TEST_F(AccessFaultTest, LinesOfDifferentWidthsOrAMissingLineAbandonTheTable) {
  auto wider = Widening(3, 2);
  EXPECT_EQ(Read(*wider), "thrown string: Different number of cols in rows found!");
  EXPECT_EQ(3, wider->GetFieldCount());
  EXPECT_EQ(Read(*Widening(2, 1)), "3|2|");  // a change before the first line is read is no fault
  auto plain = Widening(3, -1);
  Script().missing_lines.insert(2);
  EXPECT_EQ(Read(*plain), "thrown text: ItGetLine Failure!");
}

}  // namespace
