// Converting whole lines between two layouts of the same structure.

#include <cstring>

#include <gtest/gtest.h>

#include "sapsim/wire/line_converter.h"
#include "sapsim/wire/rfc_types.h"

namespace sapsim::wire {
namespace {

ValueDesc Layout(std::vector<FieldDesc> fields) {
  uint32_t length = LayOut(fields);
  return ValueDesc::Structure(fields, length);
}

TEST(LineConverter, SameLayoutCopiesLines) {
  ValueDesc a = Layout({{"A", kTypeChar, 4, 0, 0}, {"N", kTypeInt, 4, 0, 0}});
  LineConverter converter(a, a);
  EXPECT_TRUE(converter.identity());
  uint8_t src[8] = {'w', 'x', 'y', 'z', 1, 2, 3, 4};
  uint8_t dst[8] = {};
  std::string error;
  ASSERT_TRUE(converter.Convert(src, dst, &error));
  EXPECT_EQ(0, std::memcmp(src, dst, 8));
}

TEST(LineConverter, MatchesFieldsByNameAcrossLayouts) {
  // Sender: NAME C10, QTY N6, PRICE P(5,2), WHEN D.
  ValueDesc sender = Layout({{"NAME", kTypeChar, 10, 0, 0},
                             {"QTY", kTypeNum, 6, 0, 0},
                             {"PRICE", kTypeBcd, 5, 2, 0},
                             {"WHEN", kTypeDate, 8, 0, 0}});
  // Receiver: other order, shorter NAME, QTY as INT, PRICE as FLOAT, an extra
  // field the sender does not know, no WHEN.
  ValueDesc receiver = Layout({{"QTY", kTypeInt, 4, 0, 0},
                               {"EXTRA", kTypeNum, 3, 0, 0},
                               {"PRICE", kTypeFloat, 8, 0, 0},
                               {"NAME", kTypeChar, 4, 0, 0}});
  std::vector<uint8_t> src(sender.length, 0);
  std::memcpy(src.data() + sender.fields[0].offset, "Widget    ", 10);
  std::memcpy(src.data() + sender.fields[1].offset, "000012", 6);
  const uint8_t price[] = {0x00, 0x00, 0x19, 0x99, 0x5C};
  std::memcpy(src.data() + sender.fields[2].offset, price, 5);
  std::memcpy(src.data() + sender.fields[3].offset, "20240131", 8);

  LineConverter converter(sender, receiver);
  EXPECT_FALSE(converter.identity());
  std::vector<uint8_t> dst(receiver.length, 0xEE);
  std::string error;
  ASSERT_TRUE(converter.Convert(src.data(), dst.data(), &error)) << error;
  int32_t qty;
  std::memcpy(&qty, dst.data() + receiver.fields[0].offset, 4);
  EXPECT_EQ(12, qty);
  EXPECT_EQ(0, std::memcmp(dst.data() + receiver.fields[1].offset, "000", 3));  // initial NUM
  double value;
  std::memcpy(&value, dst.data() + receiver.fields[2].offset, 8);
  EXPECT_DOUBLE_EQ(199.95, value);
  EXPECT_EQ(0, std::memcmp(dst.data() + receiver.fields[3].offset, "Widg", 4));
  // Alignment gaps get zero bytes, not whatever was in the buffer.
  EXPECT_EQ(0, dst[receiver.fields[1].offset + 3]);
}

TEST(LineConverter, NamesTheFieldThatCannotBeConverted) {
  ValueDesc sender = Layout({{"QTY", kTypeChar, 5, 0, 0}});
  ValueDesc receiver = Layout({{"QTY", kTypeInt, 4, 0, 0}});
  LineConverter converter(sender, receiver);
  uint8_t dst[4];
  std::string error;
  EXPECT_FALSE(converter.Convert(reinterpret_cast<const uint8_t*>("12ab "), dst, &error));
  EXPECT_EQ(0u, error.find("field QTY: "));
}

TEST(LineConverter, RawLinesAreCutOrPaddedForTheReceiver) {
  ValueDesc raw_char = ValueDesc::Raw(kTypeChar, 6);
  ValueDesc raw_byte = ValueDesc::Raw(kTypeByte, 6);
  ValueDesc four = ValueDesc::Raw(kTypeChar, 4);
  std::string error;
  uint8_t dst[6];
  ASSERT_TRUE(LineConverter(four, raw_char).Convert(reinterpret_cast<const uint8_t*>("abcd"), dst, &error));
  EXPECT_EQ(0, std::memcmp(dst, "abcd  ", 6));
  ASSERT_TRUE(LineConverter(four, raw_byte).Convert(reinterpret_cast<const uint8_t*>("abcd"), dst, &error));
  EXPECT_EQ(0, std::memcmp(dst, "abcd\0\0", 6));
  ASSERT_TRUE(LineConverter(raw_char, four).Convert(reinterpret_cast<const uint8_t*>("abcdef"), dst, &error));
  EXPECT_EQ(0, std::memcmp(dst, "abcd", 4));

  // A structure received as raw bytes keeps the sender's bytes; raw bytes
  // received into a structure fill it from the start.
  ValueDesc structure = Layout({{"A", kTypeChar, 2, 0, 0}, {"N", kTypeNum, 4, 0, 0}});
  ASSERT_TRUE(LineConverter(structure, raw_char).Convert(reinterpret_cast<const uint8_t*>("xy0012"), dst, &error));
  EXPECT_EQ(0, std::memcmp(dst, "xy0012", 6));
  ASSERT_TRUE(LineConverter(four, structure).Convert(reinterpret_cast<const uint8_t*>("qr00"), dst, &error));
  EXPECT_EQ(0, std::memcmp(dst, "qr0000", 6));  // the rest of N keeps its initial zeros
}

TEST(LineConverter, SimpleValuesUseTheValueConversion) {
  LineConverter converter(ValueDesc::Simple(kTypeChar, 3), ValueDesc::Simple(kTypeInt, 4));
  int32_t out = 0;
  std::string error;
  ASSERT_TRUE(converter.Convert(reinterpret_cast<const uint8_t*>("-17"), reinterpret_cast<uint8_t*>(&out), &error));
  EXPECT_EQ(-17, out);
}

}  // namespace
}  // namespace sapsim::wire
