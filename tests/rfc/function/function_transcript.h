#pragma once
// What the function tests share: a scenario writes what happened (outcomes,
// trace lines, what the stand-in library was handed) into one transcript that
// is compared whole with its expected file.

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "rfc/core/rfc_connection.h"
#include "rfc/function/rfc_client_func.h"
#include "rfc/function/rfc_meta_dump.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/rfc/rfc_test_support.h"
#include "tests/support/expected_file.h"
#include "tests/support/field_info.h"

namespace fn_test {

// The trace lines of a run, marked, the header's time as a placeholder.
inline std::string Traced(const rfc_test::TracedRun& run) {
  std::string text;
  for (const std::string& line : run.lines) text += "  | " + rfc_test::WithTraceTime(line) + "\n";
  if (run.threw_text) text += "  thrown: \"" + run.thrown + "\"\n";
  return text;
}

// An array the library was handed: a parameter's name type/length 'bytes',
// a table's name/line length (its type is a handle that differs by run).
inline std::string Entries(const std::vector<stand_in::Entry>& entries) {
  std::string text;
  for (const stand_in::Entry& e : entries) {
    text += " " + e.name + (e.bytes.empty() ? "" : " " + std::to_string(e.type)) + "/";
    text += std::to_string(e.length) + (e.bytes.empty() ? "" : " '" + testutil::Escaped(e.bytes) + "'");
  }
  return text;
}

// The entry points called since the last reset, with handle and text, but for
// the dictionary's line structures (earlier tests may have registered them).
inline std::string Seen() {
  std::string text;
  for (const stand_in::Record& r : rfc_test::Fake().log) {
    if (r.text == "PARAMStypes" || r.text == "FIELDStypes") continue;
    text += " " + r.entry + "(" + std::to_string(r.handle) + (r.text.empty() ? "" : " " + r.text) + ")";
  }
  return text;
}

// A test that writes what happened into `out`, compared at its end with
// expected/<Suite>.<Test>.txt.
class TranscriptTest : public rfc_test::StandInTest {
 protected:
  void TearDown() override {
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string name = std::string(test->test_suite_name()) + "." + test->name();
    EXPECT_TRUE(testutil::MatchesExpectedFile(out.str(), "tests/rfc/function/expected/" + name + ".txt"));
    StandInTest::TearDown();
  }
  std::ostringstream out;
};

}  // namespace fn_test
