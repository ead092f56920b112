// Simple and structure parameters: buffers and their lengths, names, the
// entries handed to the RFC library, field access and its bounds.

#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "rfc/core/rfc_allocation.h"
#include "rfc/function/rfc_byte_order.h"
#include "tests/rfc/function/fake_library_fixture.h"
#include "tests/rfc/trace_capture.h"

namespace {

using rfc_function_test::FakeLibraryTest;
using ::testing::ElementsAre;

CRfcFieldInfo Field(const char* name, int column, int type, int length, int decimals = 0) {
  CRfcFieldInfo field{};
  std::strncpy(field.name, name, sizeof field.name - 1);
  field.column = column;
  field.type = type;
  field.length = length;
  field.decimals = decimals;
  return field;
}

std::string Bytes(const unsigned char* data, size_t length) {
  return std::string(reinterpret_cast<const char*>(data), length);
}

class SimpleParamTest : public FakeLibraryTest {};

TEST_F(SimpleParamTest, FixedLengthTypesGetTheirLengthWhateverIsGiven) {
  CRfcSimpleParam count("COUNT", TYPE_INT, 0, 0, 0);
  EXPECT_EQ(count.GetLength(), 4);
  ASSERT_NE(count.GetBuffer(), nullptr);
  EXPECT_EQ(count.IsSimple(), 1);

  CRfcSimpleParam date("WHEN", TYPE_DATE, 3, 0, 0);
  EXPECT_EQ(date.GetLength(), 8);
  EXPECT_EQ(Bytes(date.GetBuffer(), 8), "00000000");  // cleared as a date

  CRfcSimpleParam text("TEXT", TYPE_CHAR, 5, 0, 0);
  EXPECT_EQ(text.GetLength(), 5);
  EXPECT_EQ(Bytes(text.GetBuffer(), 5), "     ");

  CRfcSimpleParam number("NUMBER", TYPE_NUM, 4, 0, 0);
  EXPECT_EQ(Bytes(number.GetBuffer(), 4), "0000");
}

TEST_F(SimpleParamTest, AnIntOfLengthZeroGetsASixByteBlock) {
  // The block holds the value and two bytes more: a write of all six bytes
  // stays inside it (the sanitizer build would see any overrun).
  CRfcSimpleParam count("COUNT", TYPE_INT, 0, 0, 0);
  std::memset(count.GetBuffer(), 0x5A, 6);
  count.Value() = 1234;
  EXPECT_EQ(static_cast<RFC_INT>(count.Value()), 1234);
}

TEST_F(SimpleParamTest, CharOfLengthZeroAndUnknownTypesHaveNoBuffer) {
  CRfcSimpleParam empty("EMPTY", TYPE_CHAR, 0, 0, 0);
  EXPECT_EQ(empty.GetBuffer(), nullptr);
  EXPECT_EQ(empty.GetLength(), 0);

  CRfcSimpleParam unknown("ODD", 9999, 12, 0, 1);
  EXPECT_EQ(unknown.GetBuffer(), nullptr);
  EXPECT_EQ(unknown.GetLength(), -1);
  EXPECT_EQ(unknown.GetType(), 9999);
  EXPECT_EQ(unknown.IsAutoCreated(), 1);

  // Neither hands the library a length to write through a null address.
  RfcParameterEntry entry{};
  unknown.FillParameter(entry);
  EXPECT_EQ(entry.address, nullptr);
  EXPECT_EQ(entry.length, 0u);
  EXPECT_EQ(entry.type, 9999);
}

TEST_F(SimpleParamTest, NamesAreKeptAndPassedInUpperCase) {
  CRfcSimpleParam param("query_table  ", TYPE_CHAR, 30, 0, 0);
  EXPECT_STREQ(param.GetName(), "QUERY_TABLE");
  RfcParameterEntry entry{};
  param.FillParameter(entry);
  EXPECT_EQ(std::string(static_cast<const char*>(entry.name), entry.name_length), "QUERY_TABLE");
  EXPECT_EQ(entry.name_length, 11u);
  EXPECT_EQ(entry.type, TYPE_CHAR);
  EXPECT_EQ(entry.length, 30u);
  EXPECT_EQ(entry.address, param.GetBuffer());
}

TEST_F(SimpleParamTest, StartsInactiveAndKeepsItsDecimals) {
  CRfcSimpleParam amount("AMOUNT", TYPE_BCD, 5, 2, 0);
  EXPECT_EQ(amount.IsActive(), 0);
  EXPECT_EQ(amount.GetDecimals(), 2);
  amount.Value() = "12.5";
  EXPECT_STREQ(static_cast<CSTR>(amount.Value()), "12.50");
  EXPECT_EQ(amount.IsAutoCreated(), 0);
}

TEST_F(SimpleParamTest, ResetAndRetypeClearTheValueForItsType) {
  CRfcSimpleParam param("P", TYPE_CHAR, 4, 0, 0);
  param.Value() = "ab";
  param.ResetValue();
  EXPECT_EQ(Bytes(param.GetBuffer(), 4), "    ");

  param.SetType(TYPE_TIME, 0, 0);
  EXPECT_EQ(param.GetType(), TYPE_TIME);
  EXPECT_EQ(param.GetLength(), 6);
  EXPECT_EQ(Bytes(param.GetBuffer(), 6), "000000");

  param.SetType(TYPE_INT2, 0, 0);
  param.Value() = -2;
  EXPECT_EQ(static_cast<RFC_INT>(param.Value()), -2);
  param.ResetValue();
  EXPECT_EQ(static_cast<RFC_INT>(param.Value()), 0);
}

TEST_F(SimpleParamTest, AfterReceiveTurnsABigEndianValueAround) {
  CRfcSimpleParam count("COUNT", TYPE_INT, 4, 0, 0);
  const unsigned char big_endian[4] = {0x00, 0x00, 0x01, 0x02};
  std::memcpy(count.GetBuffer(), big_endian, 4);
  count.Value().SetNativeOrder(0);
  count.AfterReceive();
  EXPECT_EQ(count.Value().GetNativeOrder(), 1);
  EXPECT_EQ(static_cast<RFC_INT>(count.Value()), 258);
  // Once native, a second receive step leaves the value alone.
  count.AfterReceive();
  EXPECT_EQ(static_cast<RFC_INT>(count.Value()), 258);
}

TEST_F(SimpleParamTest, ABufferThatCannotBeAllocatedIsReported) {
  auto run = rfc_test::RunTraced([] {
    CRfcSimpleParam param("P", TYPE_CHAR, 4, 0, 0);
    rfc::testing::FailNextAllocation();
    try {
      param.SetLength(10);
    } catch (const char*) {
      // The old buffer is gone and the length is the old one.
      EXPECT_EQ(param.GetBuffer(), nullptr);
      EXPECT_EQ(param.GetLength(), 4);
      RfcParameterEntry entry{};
      param.FillParameter(entry);
      EXPECT_EQ(entry.length, 0u);
      throw;
    }
  });
  EXPECT_TRUE(run.threw_text);
  EXPECT_EQ(run.thrown, "Failed to allocate memory!");
  ASSERT_EQ(run.lines.size(), 6u);
  EXPECT_EQ(run.lines[4], "CRfcImpExpParam::SetLength(int nLength) called");
  EXPECT_EQ(run.lines[5], "Memory Allocation Failure");
}

TEST_F(SimpleParamTest, TheConstructorsBufferThatCannotBeAllocatedIsReported) {
  auto run = rfc_test::RunTraced([] {
    // The name's buffer comes first, then the value's.
    rfc::testing::FailAllocations(1, 1);
    CRfcStructParam param("P", 16, 0, nullptr, nullptr);
  });
  EXPECT_TRUE(run.threw_text);
  EXPECT_EQ(run.thrown, "Failed to allocate memory!");
  ASSERT_EQ(run.lines.size(), 6u);
  EXPECT_EQ(run.lines[4], "CRfcImpExpParam::CRfcImpExpParam(CSTR strParamName...) called");
  EXPECT_EQ(run.lines[5], "Memory Allocation Failure");
}

class StructParamTest : public FakeLibraryTest {};

TEST_F(StructParamTest, WithoutAutoCreationTheBufferHasTheGivenLength) {
  auto run = rfc_test::RunTraced([] {
    CRfcStructParam param("return", 40, 0, nullptr, nullptr);
    EXPECT_STREQ(param.GetName(), "RETURN");
    EXPECT_EQ(param.GetLength(), 40);
    EXPECT_EQ(param.GetTotalLength(), 40);
    EXPECT_EQ(param.GetFieldCount(), 0);
    EXPECT_EQ(param.IsActive(), 1);
    EXPECT_EQ(param.IsSimple(), 0);
    EXPECT_EQ(param.IsAutoCreated(), 0);
    EXPECT_EQ(Bytes(param.GetBuffer(), 40), std::string(40, '\0'));
  });
  EXPECT_THAT(run.lines, ElementsAre("CRfcStructParam::CRfcStructParam(CSTR paramName...) called"));
}

TEST_F(StructParamTest, DescribedFieldsResizeTheBufferAndStartCleared) {
  CRfcStructParam param("S", 1, 0, nullptr, nullptr);
  std::vector<CRfcFieldInfo> fields = {Field("NAME", 0, TYPE_CHAR, 3),
                                       Field("RATE", 1, TYPE_FLOAT, 8),
                                       Field("CODE", 2, TYPE_NUM, 2),
                                       Field("COUNT", 3, TYPE_INT, 4)};
  param.AddFieldInfo(fields.data(), 4);
  EXPECT_EQ(param.GetLength(), 24);
  EXPECT_EQ(param.GetTotalLength(), 24);
  // Installed under the parameter's name.
  ASSERT_EQ(fake().installs.size(), 1u);
  EXPECT_EQ(fake().installs[0].name, "S");

  param.FieldValue(0) = "ab";
  param.FieldValue(2) = 7;
  param.FieldValue(3) = 99;
  param.ResetValue();
  const std::string bytes = Bytes(param.GetBuffer(), 24);
  EXPECT_EQ(bytes.substr(0, 3), "   ");
  EXPECT_EQ(bytes.substr(3, 5), std::string(5, '\0'));  // the gap before RATE
  EXPECT_EQ(bytes.substr(8, 8), std::string(8, '\0'));
  EXPECT_EQ(bytes.substr(16, 2), "00");
  EXPECT_EQ(static_cast<RFC_INT>(param.FieldValue(3)), 0);
}

TEST_F(StructParamTest, FieldValueIsBoundToTheFieldInTheBuffer) {
  CRfcStructParam param("S", 0, 0, nullptr, nullptr);
  std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3), Field("B", 1, TYPE_INT, 4)};
  param.AddFieldInfo(fields.data(), 2);
  param.FieldValue(1) = 258;
  int32_t stored = 0;
  std::memcpy(&stored, param.GetBuffer() + 4, 4);
  EXPECT_EQ(stored, 258);
  int type = -1, length = -1, decimals = -1;
  param.FieldValue(0).GetInfo(type, length, decimals);
  EXPECT_EQ(type, TYPE_CHAR);
  EXPECT_EQ(length, 3);
  EXPECT_EQ(param.FieldValue(0).GetData(), param.GetBuffer());
}

TEST_F(StructParamTest, FieldValueOutsideTheDescribedFieldsThrows) {
  CRfcStructParam param("S", 0, 0, nullptr, nullptr);
  param.SetTypeHandle(77);
  std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3), Field("C", 2, TYPE_INT, 4)};
  param.AddFieldInfo(fields.data(), 2);
  for (int index : {-1, 1, 3}) {
    auto run = rfc_test::RunTraced([&param, index] { param.FieldValue(index); });
    EXPECT_TRUE(run.threw_text) << index;
    EXPECT_EQ(run.thrown, "Failed to find corresponding field info!");
    ASSERT_EQ(run.lines.size(), 6u);
    EXPECT_EQ(run.lines[4], "CRfcStructParam::FieldValue(int nIndex) const called");
    EXPECT_EQ(run.lines[5], "Field not found in structure");
  }
  EXPECT_NO_THROW(param.FieldValue(2));
}

TEST_F(StructParamTest, FieldValueRefusesAFieldBeyondAShrunkenBuffer) {
  CRfcStructParam param("S", 0, 0, nullptr, nullptr);
  std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3), Field("B", 1, TYPE_INT, 4)};
  param.AddFieldInfo(fields.data(), 2);
  param.SetLength(4);
  EXPECT_NO_THROW(param.FieldValue(0));
  try {
    param.FieldValue(1);
    ADD_FAILURE() << "no throw";
  } catch (const char* text) {
    EXPECT_STREQ(text, "Failed to find corresponding field info!");
  }
}

TEST_F(StructParamTest, TheEntryTypeIsTheHandleOrCharOrByte) {
  CRfcStructParam param("s", 10, 0, nullptr, nullptr);
  RfcParameterEntry entry{};
  param.FillParameter(entry);
  EXPECT_EQ(entry.type, TYPE_BYTE);
  EXPECT_EQ(entry.length, 10u);
  EXPECT_EQ(entry.address, param.GetBuffer());
  EXPECT_EQ(std::string(static_cast<const char*>(entry.name), entry.name_length), "S");
  param.SetCharacterOnly(1);
  param.FillParameter(entry);
  EXPECT_EQ(entry.type, TYPE_CHAR);
  param.SetTypeHandle(0x10042);
  param.FillParameter(entry);
  EXPECT_EQ(entry.type, 0x10042);
}

TEST_F(StructParamTest, AfterReceiveReversesNumbersOnlyWithTheByteOrderSwitch) {
  CRfcStructParam param("S", 0, 0, nullptr, nullptr);
  std::vector<CRfcFieldInfo> fields = {Field("T", 0, TYPE_CHAR, 2), Field("N", 1, TYPE_INT, 4)};
  param.AddFieldInfo(fields.data(), 2);
  const unsigned char line[8] = {'a', 'b', 0, 0, 0x00, 0x00, 0x01, 0x02};
  std::memcpy(param.GetBuffer(), line, 8);

  param.AfterReceive();
  EXPECT_EQ(Bytes(param.GetBuffer(), 8), Bytes(line, 8));

  SetRfcByteOrderSwitch(1);
  param.AfterReceive();
  EXPECT_EQ(static_cast<RFC_INT>(param.FieldValue(1)), 258);
  EXPECT_EQ(Bytes(param.GetBuffer(), 2), "ab");
}

}  // namespace
