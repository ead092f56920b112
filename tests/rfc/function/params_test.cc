// Simple and structure parameters: buffers and their lengths by type, names,
// the entries handed to the RFC library, field access and its bounds, byte
// order after a receive, and buffers that cannot be allocated.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "rfc/core/rfc_allocation.h"
#include "rfc/function/rfc_byte_order.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"
#include "tests/rfc/function/function_transcript.h"
#include "tests/support/field_info.h"

namespace {

using fn_test::Printable;
using fn_test::Traced;
using test_support::Field;

std::string Bytes(const unsigned char* data, int length) {
  return data == nullptr ? "no buffer" : "'" + Printable(std::string(reinterpret_cast<const char*>(data), static_cast<size_t>(length))) + "'";
}

// The entry handed to the library: name type/length, and whether it points at the buffer.
std::string Entry(CRfcImpExpParam& param) {
  RfcParameterEntry entry{};
  param.FillParameter(entry);
  return std::string(static_cast<const char*>(entry.name), entry.name_length) + " " + std::to_string(entry.type) + "/" +
         std::to_string(entry.length) + (entry.address == param.GetBuffer() ? " at the buffer" : " elsewhere");
}

class ParamTest : public fn_test::TranscriptTest {};

// Per type/given length: length, flags (simple, active, auto-created), the
// entry, and the cleared buffer.
TEST_F(ParamTest, SimpleParametersTakeTheLengthOfTheirTypeAndStartCleared) {
  const std::pair<int, int> cases[] = {{TYPE_INT, 0}, {TYPE_DATE, 3}, {TYPE_CHAR, 5}, {TYPE_NUM, 4},
                                       {TYPE_TIME, 0}, {TYPE_CHAR, 0}, {9999, 12}};
  for (const auto& [type, given] : cases) {
    CRfcSimpleParam param("query_table  ", type, given, 0, 1);
    out << type << "/" << given << " -> " << param.GetLength() << " " << param.IsSimple() << param.IsActive()
        << param.IsAutoCreated() << " " << Entry(param) << " " << Bytes(param.GetBuffer(), param.GetLength()) << "\n";
    param.ResetValue();  // nothing to clear without a buffer
    // The block holds two bytes more (the sanitizer build sees an overrun).
    if (param.GetBuffer() != nullptr) std::memset(param.GetBuffer(), 0x5A, static_cast<size_t>(param.GetLength()) + 2);
  }
}

TEST_F(ParamTest, SimpleValuesResetRetypeAndTurnAround) {
  CRfcSimpleParam amount("AMOUNT", TYPE_BCD, 5, 2, 0);
  amount.Value() = "12.5";
  out << amount.GetDecimals() << " " << static_cast<CSTR>(amount.Value()) << " ";
  amount.ResetValue();
  out << Bytes(amount.GetBuffer(), 5) << "\n";
  amount.SetLength(0);  // a buffer without length: nothing to clear or pass
  amount.ResetValue();
  out << Entry(amount) << "\n";
  amount.SetType(TYPE_TIME, 0, 0);
  out << amount.GetType() << " " << Bytes(amount.GetBuffer(), 6) << "\n";
  CRfcSimpleParam count("COUNT", TYPE_INT, 4, 0, 0);
  const unsigned char big_endian[4] = {0x00, 0x00, 0x01, 0x02};
  std::memcpy(count.GetBuffer(), big_endian, 4);
  count.Value().SetNativeOrder(0);
  count.AfterReceive();
  count.AfterReceive();  // once native, left alone
  out << static_cast<RFC_INT>(count.Value()) << "\n";
}

// The old buffer is gone, the length is the old one, and nothing is handed to
// the library to write through; a structure without a buffer has no fields.
TEST_F(ParamTest, BuffersThatCannotBeAllocatedAreReported) {
  CRfcSimpleParam param("P", TYPE_CHAR, 4, 0, 0);
  out << Traced(rfc_test::RunTraced([&] {
    rfc::testing::FailNextAllocation();
    param.SetLength(10);
  }));
  out << param.GetLength() << " " << Bytes(param.GetBuffer(), 4) << " " << Entry(param) << "\n";
  CRfcStructParam s("S", 0, 0, nullptr, nullptr);
  CRfcFieldInfo n = Field("N", 0, TYPE_INT, 4);
  s.AddFieldInfo(&n, 1);
  rfc::testing::FailNextAllocation();
  out << rfc_test::Thrown([&] { s.SetLength(8); }) << "\n" << rfc_test::Thrown([&] { s.FieldValue(0); }) << "\n";
  out << Traced(rfc_test::RunTraced([] {
    rfc::testing::FailAllocations(1, 1);  // the name's buffer, then the value's
    CRfcStructParam failed("P", 16, 0, nullptr, nullptr);
  }));
}

// Columns -1, 1 (undescribed) and 3 are refused with their trace; the
// undescribed column is skipped when clearing; a field beyond a shrunken
// buffer is refused as well.
TEST_F(ParamTest, FieldValueOutsideTheDescribedFieldsThrows) {
  CRfcStructParam param("S", 0, 0, nullptr, nullptr);
  param.SetTypeHandle(77);
  std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3), Field("C", 2, TYPE_INT, 4)};
  param.AddFieldInfo(fields.data(), 2);
  for (int index : {-1, 1, 3}) out << Traced(rfc_test::RunTraced([&param, index] { param.FieldValue(index); }));
  EXPECT_NO_THROW(param.FieldValue(2));
  param.FieldValue(0) = "abc";
  param.ResetValue();
  param.AfterReceive();
  out << "'" << static_cast<CSTR>(param.FieldValue(0)) << "'\n";
  param.SetLength(4);
  EXPECT_NO_THROW(param.FieldValue(0));
  out << rfc_test::Thrown([&] { param.FieldValue(2); }) << "\n";
}

}  // namespace
