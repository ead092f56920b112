// Simple and structure parameters: buffers and their lengths by type, names,
// the entries handed to the RFC library, field access and its bounds, byte
// order after a receive, and buffers that cannot be allocated.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "rfc/core/rfc_allocation.h"
#include "rfc/function/rfc_byte_order.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"
#include "tests/rfc/rfc_test_support.h"
#include "tests/support/field_info.h"

namespace {

using rfc_test::StandInTest;

using test_support::Field;

std::string Bytes(const unsigned char* data, size_t length) {
  return std::string(reinterpret_cast<const char*>(data), length);
}

class ParamTest : public StandInTest {};

TEST_F(ParamTest, SimpleParametersTakeTheLengthOfTheirTypeAndStartCleared) {
  struct Case {
    int type, given, length;
    const char* cleared;  // nullptr: no buffer
  };
  const Case cases[] = {
      {TYPE_INT, 0, 4, "\0\0\0\0"}, {TYPE_DATE, 3, 8, "00000000"}, {TYPE_CHAR, 5, 5, "     "},
      {TYPE_NUM, 4, 4, "0000"},     {TYPE_TIME, 0, 6, "000000"},   {TYPE_CHAR, 0, 0, nullptr},
      {9999, 12, -1, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.type) + "/" + std::to_string(c.given));
    CRfcSimpleParam param("query_table  ", c.type, c.given, 0, 1);
    EXPECT_EQ(param.GetLength(), c.length);
    EXPECT_EQ(param.IsSimple(), 1);
    EXPECT_EQ(param.IsActive(), 0);
    EXPECT_EQ(param.IsAutoCreated(), 1);
    RfcParameterEntry entry{};
    param.FillParameter(entry);
    EXPECT_EQ(std::string(static_cast<const char*>(entry.name), entry.name_length), "QUERY_TABLE");
    EXPECT_EQ(entry.type, c.type);
    EXPECT_EQ(entry.address, param.GetBuffer());
    if (c.cleared == nullptr) {
      param.ResetValue();  // nothing to clear
      EXPECT_EQ(param.GetBuffer(), nullptr);
      EXPECT_EQ(entry.length, 0u);  // nothing the library could write through
    } else {
      ASSERT_NE(param.GetBuffer(), nullptr);
      EXPECT_EQ(Bytes(param.GetBuffer(), static_cast<size_t>(c.length)),
                std::string(c.cleared, static_cast<size_t>(c.length)));
      EXPECT_EQ(entry.length, static_cast<unsigned>(c.length));
      param.ResetValue();
      // The block holds two bytes more (the sanitizer build sees an overrun).
      std::memset(param.GetBuffer(), 0x5A, static_cast<size_t>(c.length) + 2);
    }
  }
}

TEST_F(ParamTest, SimpleValuesResetRetypeAndTurnAround) {
  CRfcSimpleParam amount("AMOUNT", TYPE_BCD, 5, 2, 0);
  EXPECT_EQ(amount.GetDecimals(), 2);
  amount.Value() = "12.5";
  EXPECT_STREQ(static_cast<CSTR>(amount.Value()), "12.50");
  amount.ResetValue();
  EXPECT_EQ(Bytes(amount.GetBuffer(), 5), std::string(5, '\0'));
  amount.SetLength(0);  // a buffer without length: nothing to clear or pass
  amount.ResetValue();
  RfcParameterEntry empty{};
  amount.FillParameter(empty);
  EXPECT_EQ(empty.length, 0u);
  amount.SetType(TYPE_TIME, 0, 0);
  EXPECT_EQ(amount.GetType(), TYPE_TIME);
  EXPECT_EQ(Bytes(amount.GetBuffer(), 6), "000000");

  CRfcSimpleParam count("COUNT", TYPE_INT, 4, 0, 0);
  const unsigned char big_endian[4] = {0x00, 0x00, 0x01, 0x02};
  std::memcpy(count.GetBuffer(), big_endian, 4);
  count.Value().SetNativeOrder(0);
  count.AfterReceive();
  count.AfterReceive();  // once native, left alone
  EXPECT_EQ(static_cast<RFC_INT>(count.Value()), 258);
}

TEST_F(ParamTest, BuffersThatCannotBeAllocatedAreReported) {
  CRfcSimpleParam param("P", TYPE_CHAR, 4, 0, 0);
  rfc_test::ExpectTracedFailure(
      [&] {
        rfc::testing::FailNextAllocation();
        param.SetLength(10);
      },
      "CRfcImpExpParam::SetLength(int nLength) called", "Memory Allocation Failure", "Failed to allocate memory!");
  // The old buffer is gone, the length is the old one, and nothing is handed
  // to the library to write through.
  EXPECT_EQ(param.GetBuffer(), nullptr);
  EXPECT_EQ(param.GetLength(), 4);
  RfcParameterEntry entry{};
  param.FillParameter(entry);
  EXPECT_EQ(entry.length, 0u);
  CRfcStructParam s("S", 0, 0, nullptr, nullptr);
  CRfcFieldInfo n = Field("N", 0, TYPE_INT, 4);
  s.AddFieldInfo(&n, 1);
  rfc::testing::FailNextAllocation();
  EXPECT_EQ(rfc_test::Thrown([&] { s.SetLength(8); }), "Failed to allocate memory!");
  EXPECT_EQ(rfc_test::Thrown([&] { s.FieldValue(0); }), "Failed to find corresponding field info!");  // no buffer

  rfc_test::ExpectTracedFailure(
      [] {
        rfc::testing::FailAllocations(1, 1);  // the name's buffer, then the value's
        CRfcStructParam failed("P", 16, 0, nullptr, nullptr);
      },
      "CRfcImpExpParam::CRfcImpExpParam(CSTR strParamName...) called", "Memory Allocation Failure",
      "Failed to allocate memory!");
}

TEST_F(ParamTest, FieldValueOutsideTheDescribedFieldsThrows) {
  CRfcStructParam param("S", 0, 0, nullptr, nullptr);
  param.SetTypeHandle(77);
  std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3), Field("C", 2, TYPE_INT, 4)};
  param.AddFieldInfo(fields.data(), 2);
  for (int index : {-1, 1, 3}) {
    SCOPED_TRACE(index);
    rfc_test::ExpectTracedFailure([&param, index] { param.FieldValue(index); },
                                  "CRfcStructParam::FieldValue(int nIndex) const called",
                                  "Field not found in structure", "Failed to find corresponding field info!");
  }
  EXPECT_NO_THROW(param.FieldValue(2));
  param.FieldValue(0) = "abc";
  param.ResetValue();  // the undescribed column is skipped
  param.AfterReceive();
  EXPECT_STREQ(static_cast<CSTR>(param.FieldValue(0)), "");
  param.SetLength(4);  // a field beyond a shrunken buffer is refused as well
  EXPECT_NO_THROW(param.FieldValue(0));
  EXPECT_THROW(param.FieldValue(2), const char*);
}

}  // namespace
