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
struct Widening {
  explicit Widening(int lines, int widen_at = -1) : at(widen_at) {
    table = std::make_unique<CRfcTableParam>("T", 0, 0, 0, nullptr, "");
    Describe(*table, false);
    table->Create();
    for (int line = 0; line < lines; ++line) {
      table->GotoLine(line);
      table->GetData(table->GetCurrentLine(), 0) = "a";
      table->GetData(table->GetCurrentLine(), 1) = "b";
    }
    Script().on_get_line = [this](unsigned line) {
      if (static_cast<int>(line) == at) Describe(*table, true);
    };
  }
  std::unique_ptr<CRfcTableParam> table;
  int at;
};

class AccessFaultTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(LoadRfcLibrary(STAND_IN_RFC)); }
  void SetUp() override { Script().Reset(); }
  void TearDown() override { Script().Reset(); }
};

TEST_F(AccessFaultTest, LinesOfDifferentWidthsOrAMissingLineAbandonTheTable) {
  Widening wider(3, 2);
  try {
    CSapTable text(wider.table.get());
    FAIL() << "lines of two widths made one table";
  } catch (const std::string& message) {
    EXPECT_EQ("Different number of cols in rows found!", message);
  }
  EXPECT_EQ(3, wider.table->GetFieldCount());

  // A change before the first line is read is no fault.
  Widening early(2, 1);
  CSapTable text(early.table.get());
  EXPECT_EQ(3, text.GetColumnCount());
  EXPECT_EQ(2u, text.GetRowCount());

  Widening plain(3);
  Script().missing_lines.insert(2);
  try {
    CSapTable missing(plain.table.get());
    FAIL() << "a missing line was read";
  } catch (const char* message) {
    EXPECT_STREQ("ItGetLine Failure!", message);
  }
}

}  // namespace
