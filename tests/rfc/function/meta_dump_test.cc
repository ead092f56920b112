// The metadata dump: the lines of simple and structure parameters, each
// structure type once per sink, and a sink that is not open.

#include "rfc/function/rfc_meta_dump.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/rfc/function/fake_library_fixture.h"

namespace {

using rfc_function_test::FakeLibraryTest;

class MetaDumpTest : public FakeLibraryTest {
 protected:
  // A structure parameter of type ZPAIR {KEY CHAR 4, COUNT INT}.
  static std::unique_ptr<CRfcStructParam> Pair(const char* name) {
    auto param = std::make_unique<CRfcStructParam>(name, 0, 0, nullptr, nullptr);
    param->SetTypeName("ZPAIR");
    param->SetRelease(CRfcString("46C"));
    param->SetTypeHandle(1);
    CRfcFieldInfo fields[2] = {};
    std::strcpy(fields[0].name, "KEY");
    fields[0].column = 0;
    fields[0].type = TYPE_CHAR;
    fields[0].length = 5;
    std::strcpy(fields[1].name, "COUNT");
    fields[1].column = 1;
    fields[1].type = TYPE_INT;
    fields[1].length = 4;
    param->AddFieldInfo(fields, 2);
    return param;
  }
};

TEST_F(MetaDumpTest, ASimpleExportWritesFourLines) {
  CRfcMetaDump sink;
  CRfcSimpleParam count("COUNT", TYPE_INT, 4, 0, 0);
  EXPECT_EQ(count.Dump(sink, "EXPORT"), 1);
  EXPECT_EQ(sink.GetText(),
            "    Simple export param name =COUNT\n"
            "    Simple param type        =8\n"
            "    Simple param length      =4\n"
            "    Simple param Decimals    =0\n");
  EXPECT_EQ(sink.GetLineCount(), 4);
  EXPECT_STREQ(sink.GetLine(0), "    Simple export param name =COUNT\n");
  EXPECT_EQ(sink.GetLine(4), nullptr);
}

TEST_F(MetaDumpTest, OnlyTheDirectionImportUsesTheImportLabel) {
  CRfcMetaDump sink;
  CRfcSimpleParam amount("amount", TYPE_BCD, 7, 2, 0);
  EXPECT_EQ(amount.Dump(sink, "IMPORT"), 1);
  EXPECT_EQ(amount.Dump(sink, "import"), 1);
  EXPECT_EQ(amount.Dump(sink, nullptr), 1);
  EXPECT_STREQ(sink.GetLine(0), "    Simple import param name =AMOUNT\n");
  EXPECT_STREQ(sink.GetLine(3), "    Simple param Decimals    =2\n");
  EXPECT_STREQ(sink.GetLine(4), "    Simple export param name =AMOUNT\n");
  EXPECT_STREQ(sink.GetLine(8), "    Simple export param name =AMOUNT\n");
}

TEST_F(MetaDumpTest, AStructureParameterWritesItsTypeAndFields) {
  CRfcMetaDump sink;
  auto pair = Pair("first");
  EXPECT_EQ(pair->Dump(sink, "IMPORT"), 1);
  EXPECT_EQ(sink.GetText(),
            "    Struct import param name =FIRST\n"
            "    Struct param type        =ZPAIR\n"
            "    Struct type         =ZPAIR\n"
            "    Struct type release =46C\n"
            "    Struct type length  =12\n"
            "    Struct field count =2\n"
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
            "        Field decimals =0\n");
}

TEST_F(MetaDumpTest, ATypeIsWrittenOncePerSink) {
  CRfcMetaDump sink;
  auto first = Pair("first");
  auto second = Pair("second");
  EXPECT_EQ(first->Dump(sink, "EXPORT"), 1);
  const int lines = sink.GetLineCount();
  EXPECT_EQ(second->Dump(sink, "EXPORT"), 0);
  ASSERT_EQ(sink.GetLineCount(), lines + 2);
  EXPECT_STREQ(sink.GetLine(lines), "    Struct export param name =SECOND\n");
  EXPECT_STREQ(sink.GetLine(lines + 1), "    Struct param type        =ZPAIR\n");
  EXPECT_TRUE(sink.HasWrittenType("ZPAIR"));

  // Another sink has not seen the type.
  CRfcMetaDump other;
  EXPECT_EQ(second->Dump(other, "EXPORT"), 1);
  EXPECT_EQ(other.GetLineCount(), lines);
}

TEST_F(MetaDumpTest, ASinkThatIsNotOpenTakesNothing) {
  CRfcMetaDump sink;
  sink.SetState(41008);
  CRfcSimpleParam count("COUNT", TYPE_INT, 4, 0, 0);
  auto pair = Pair("P");
  EXPECT_EQ(count.Dump(sink, "EXPORT"), 0);
  EXPECT_EQ(pair->Dump(sink, "EXPORT"), 0);
  EXPECT_EQ(sink.WriteStructType(*pair), 0);
  EXPECT_EQ(sink.WriteLine(CRfcMetaDump::kFunctionName, "F"), 0);
  EXPECT_EQ(sink.GetLineCount(), 0);
  EXPECT_FALSE(sink.HasWrittenType("ZPAIR"));
  sink.SetState(CRfcMetaDump::kOpen);
  EXPECT_EQ(count.Dump(sink, "EXPORT"), 1);
}

TEST_F(MetaDumpTest, AStructureWithAnUndescribedColumnIsWrittenIncomplete) {
  CRfcMetaDump sink;
  CRfcStructParam param("P", 0, 0, nullptr, nullptr);
  param.SetTypeName("ZGAP");
  param.SetTypeHandle(1);
  CRfcFieldInfo field{};
  std::strcpy(field.name, "LAST");
  field.column = 1;
  field.type = TYPE_CHAR;
  field.length = 2;
  param.AddFieldInfo(&field, 1);
  EXPECT_EQ(param.Dump(sink, "EXPORT"), 0);
  // Header lines, the type's four lines and the one described field.
  EXPECT_EQ(sink.GetLineCount(), 2 + 4 + 6);
  EXPECT_STREQ(sink.GetLine(5), "    Struct field count =2\n");
}

TEST_F(MetaDumpTest, TablesWriteNothing) {
  CRfcMetaDump sink;
  CRfcTableParam table("T", 8, 0, 0, nullptr, nullptr);
  table.Dump(sink, "IMPORT");
  EXPECT_EQ(sink.GetLineCount(), 0);
}

}  // namespace
