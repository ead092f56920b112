// The metadata dump: the lines of simple and structure parameters byte for
// byte, each structure type once per sink, and a sink that is not open.

#include "rfc/function/rfc_meta_dump.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/rfc/function/function_transcript.h"

namespace {

// A structure parameter of type ZPAIR {KEY CHAR 5, COUNT INT}; with `gap`
// only COUNT is described.
std::unique_ptr<CRfcStructParam> Pair(const char* name, bool gap = false) {
  auto param = std::make_unique<CRfcStructParam>(name, 0, 0, nullptr, nullptr);
  param->SetTypeName("ZPAIR");
  param->SetRelease(CRfcString("46C"));
  param->SetTypeHandle(1);
  CRfcFieldInfo fields[2] = {{"KEY", 0, 0, TYPE_CHAR, 5, 0}, {"COUNT", 1, 0, TYPE_INT, 4, 0}};
  param->AddFieldInfo(gap ? fields + 1 : fields, gap ? 1 : 2);
  return param;
}

// Each block: the Dump results, the line count, then the sink's text.
TEST(MetaDumpTest, WhatEachSinkHolds) {
  std::ostringstream out;
  CRfcSimpleParam count("COUNT", TYPE_INT, 4, 0, 0);
  CRfcSimpleParam amount("amount", TYPE_BCD, 7, 2, 0);
  auto first = Pair("first");
  auto second = Pair("second");
  // Only IMPORT itself is an import, no direction an export; the type once per sink.
  CRfcMetaDump sink;
  out << count.Dump(sink, "EXPORT") << amount.Dump(sink, "IMPORT") << amount.Dump(sink, "import")
      << amount.Dump(sink, nullptr) << first->Dump(sink, "IMPORT") << second->Dump(sink, "EXPORT") << " ";
  out << sink.GetLineCount() << (sink.GetLine(sink.GetLineCount()) == nullptr ? " end" : " more") << "\n" << sink.GetText();
  CRfcMetaDump other;  // has not seen the type
  out << second->Dump(other, nullptr) << " " << other.GetLineCount() << "\n" << other.GetText();
  // An undescribed column makes the type incomplete: its field lines are left out.
  CRfcMetaDump gap;
  out << Pair("P", true)->Dump(gap, "EXPORT") << " " << gap.GetLineCount() << "\n" << gap.GetText();
  // Not open: nothing is taken; tables write nothing.
  CRfcMetaDump closed;
  closed.SetState(41008);
  out << count.Dump(closed, "EXPORT") << first->Dump(closed, "EXPORT") << closed.WriteStructType(*first)
      << closed.WriteLine(CRfcMetaDump::kFunctionName, "F") << closed.HasWrittenType("ZPAIR") << " ";
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
  closed.SetState(CRfcMetaDump::kOpen);
  table.Dump(closed, "IMPORT");
  out << closed.GetLineCount() << "\n";
  fn_test::ExpectTranscript(out, "meta_dump");
}

}  // namespace
