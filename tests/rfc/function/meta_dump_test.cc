// The metadata dump: the lines of simple and structure parameters byte for
// byte, each structure type once per sink, and a sink that is not open.

#include "rfc/function/rfc_meta_dump.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/rfc/rfc_test_support.h"

namespace {

class MetaDumpTest : public rfc_test::StandInTest {
 protected:
  // A structure parameter of type ZPAIR {KEY CHAR 5, COUNT INT}; with
  // `gap` only COUNT is described.
  static std::unique_ptr<CRfcStructParam> Pair(const char* name, bool gap = false) {
    auto param = std::make_unique<CRfcStructParam>(name, 0, 0, nullptr, nullptr);
    param->SetTypeName("ZPAIR");
    param->SetRelease(CRfcString("46C"));
    param->SetTypeHandle(1);
    CRfcFieldInfo fields[2] = {{"KEY", 0, 0, TYPE_CHAR, 5, 0}, {"COUNT", 1, 0, TYPE_INT, 4, 0}};
    param->AddFieldInfo(gap ? fields + 1 : fields, gap ? 1 : 2);
    return param;
  }
};

TEST_F(MetaDumpTest, SimpleParametersWriteFourLines) {
  CRfcMetaDump sink;
  CRfcSimpleParam count("COUNT", TYPE_INT, 4, 0, 0);
  CRfcSimpleParam amount("amount", TYPE_BCD, 7, 2, 0);
  EXPECT_EQ(count.Dump(sink, "EXPORT"), 1);
  EXPECT_EQ(amount.Dump(sink, "IMPORT"), 1);
  EXPECT_EQ(amount.Dump(sink, "import"), 1);  // only IMPORT itself is an import
  EXPECT_EQ(sink.GetText(),
            "    Simple export param name =COUNT\n"
            "    Simple param type        =8\n"
            "    Simple param length      =4\n"
            "    Simple param Decimals    =0\n"
            "    Simple import param name =AMOUNT\n"
            "    Simple param type        =2\n"
            "    Simple param length      =7\n"
            "    Simple param Decimals    =2\n"
            "    Simple export param name =AMOUNT\n"
            "    Simple param type        =2\n"
            "    Simple param length      =7\n"
            "    Simple param Decimals    =2\n");
  EXPECT_EQ(sink.GetLineCount(), 12);
  EXPECT_EQ(sink.GetLine(12), nullptr);
}

TEST_F(MetaDumpTest, AStructureTypeIsWrittenOncePerSink) {
  const std::string type_lines =
      "    Struct type         =ZPAIR\n"
      "    Struct type release =46C\n"
      "    Struct type length  =12\n"
      "    Struct field count =2\n";
  const std::string field_lines =
      "        Field name     =KEY\n"
      "        Field column   =0\n"
      "        Field offset   =0\n"
      "        Field type     =0\n"
      "        Field length   =5\n"
      "        Field decimals =0\n"
      "        Field name     =COUNT\n"
      "        Field column   =1\n"
      "        Field offset   =8\n"
      "        Field type     =8\n"
      "        Field length   =4\n"
      "        Field decimals =0\n";
  CRfcMetaDump sink;
  auto first = Pair("first");
  auto second = Pair("second");
  EXPECT_EQ(first->Dump(sink, "IMPORT"), 1);
  EXPECT_EQ(second->Dump(sink, "EXPORT"), 0);
  EXPECT_EQ(sink.GetText(),
            "    Struct import param name =FIRST\n"
            "    Struct param type        =ZPAIR\n" +
                type_lines + field_lines +
                "    Struct export param name =SECOND\n"
                "    Struct param type        =ZPAIR\n");
  CRfcMetaDump other;  // another sink has not seen the type
  EXPECT_EQ(second->Dump(other, "EXPORT"), 1);
  EXPECT_EQ(other.GetLineCount(), 18);

  // An undescribed column makes the type incomplete: its field lines are left out.
  CRfcMetaDump gap_sink;
  EXPECT_EQ(Pair("P", true)->Dump(gap_sink, "EXPORT"), 0);
  EXPECT_EQ(gap_sink.GetLineCount(), 2 + 4 + 6);
  EXPECT_STREQ(gap_sink.GetLine(5), "    Struct field count =2\n");
}

TEST_F(MetaDumpTest, ASinkThatIsNotOpenTakesNothingAndTablesWriteNothing) {
  CRfcMetaDump sink;
  sink.SetState(41008);
  CRfcSimpleParam count("COUNT", TYPE_INT, 4, 0, 0);
  auto pair = Pair("P");
  EXPECT_EQ(count.Dump(sink, "EXPORT"), 0);
  EXPECT_EQ(pair->Dump(sink, "EXPORT"), 0);
  EXPECT_EQ(sink.WriteStructType(*pair), 0);
  EXPECT_EQ(sink.WriteLine(CRfcMetaDump::kFunctionName, "F"), 0);
  EXPECT_FALSE(sink.HasWrittenType("ZPAIR"));
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
  sink.SetState(CRfcMetaDump::kOpen);
  table.Dump(sink, "IMPORT");
  EXPECT_EQ(sink.GetLineCount(), 0);
  EXPECT_EQ(count.Dump(sink, nullptr), 1);
  EXPECT_STREQ(sink.GetLine(0), "    Simple export param name =COUNT\n");
  EXPECT_EQ(pair->Dump(sink, nullptr), 1);  // no direction: an export
  EXPECT_STREQ(sink.GetLine(4), "    Struct export param name =P\n");
}

}  // namespace
