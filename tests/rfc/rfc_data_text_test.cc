// The text of every value type, read as a received table cell is read
// (operator CSTR), at the edges of each type and in both byte orders; and
// packed values of every shape, all-fraction ones included.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "rfc/core/rfc_data.h"

namespace {

std::vector<unsigned char> Bytes(const std::string& hex) {
  std::vector<unsigned char> bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

bool LittleEndianHost() {
  const uint16_t probe = 1;
  unsigned char first;
  std::memcpy(&first, &probe, 1);
  return first == 1;
}

TEST(RfcDataTextTest, EachTypeReadsAsItsTextInBothByteOrders) {
  // Bytes as they arrive big-endian (NativeOrder 0).
  const struct {
    int type, length, decimals;
    const char* hex;
    const char* text;
  } cases[] = {
      {TYPE_INT, 4, 0, "80000000", "-2147483648"},
      {TYPE_INT, 4, 0, "7FFFFFFF", "2147483647"},
      {TYPE_INT, 4, 0, "0000000C", "12"},
      {TYPE_INT, 4, 0, "FFFFFFFE", "-2"},
      {TYPE_INT, 4, 0, "00000000", "0"},
      {TYPE_INT2, 2, 0, "8000", "-32768"},
      {TYPE_INT2, 2, 0, "7FFF", "32767"},
      {TYPE_INT2, 2, 0, "FFFE", "-2"},
      {TYPE_INT1, 1, 0, "FF", "255"},
      {TYPE_INT1, 1, 0, "00", "0"},
      {TYPE_FLOAT, 8, 0, "3FB999999999999A", "0.1"},
      {TYPE_FLOAT, 8, 0, "8000000000000000", "-0"},
      {TYPE_FLOAT, 8, 0, "0000000000000000", "0"},
      {TYPE_FLOAT, 8, 0, "01A56E1FC2F8F359", "1e-300"},
      {TYPE_FLOAT, 8, 0, "7FEFFFFFFFFFFFFF", "1.7976931348623157e+308"},
      {TYPE_FLOAT, 8, 0, "4004000000000000", "2.5"},
      {TYPE_FLOAT, 8, 0, "C00A000000000000", "-3.25"},
      {TYPE_FLOAT, 8, 0, "4415AF1D78B58C40", "1e+20"},
      {TYPE_FLOAT, 8, 0, "7FF0000000000000", "INF"},
      {TYPE_FLOAT, 8, 0, "FFF0000000000000", "-INF"},
      {TYPE_FLOAT, 8, 0, "7FF8000000000000", "NaN"},
      {TYPE_FLOAT, 8, 0, "FFF0000000000001", "NaN"},
      {TYPE_BYTE, 1, 0, "00", "00"},
      {TYPE_BYTE, 4, 0, "0A0B0C0D", "0A0B0C0D"},
      {TYPE_BYTE, 16, 0, "00112233445566778899AABBCCDDEEFF", "00112233445566778899AABBCCDDEEFF"},
      {TYPE_BCD, 2, 3, "125C", "0.125"},
      {TYPE_BCD, 2, 3, "125D", "-0.125"},
      {TYPE_BCD, 1, 1, "5C", "0.5"},
      {TYPE_BCD, 1, 1, "0D", "-0.0"},
      {TYPE_CHAR, 4, 0, "61622020", "ab"},
  };
  for (const auto& c : cases) {
    for (int native : {0, 1}) {
      std::vector<unsigned char> bytes = Bytes(c.hex);
      const bool number = c.type == TYPE_INT || c.type == TYPE_INT2 || c.type == TYPE_FLOAT;
      if (native == 1 && number && LittleEndianHost()) std::reverse(bytes.begin(), bytes.end());
      CRfcData data(native);
      data.Init(bytes.data(), c.type, c.length, c.decimals);
      EXPECT_STREQ(static_cast<CSTR>(data), c.text) << c.hex << " type " << c.type << " native " << native;
    }
  }
}

// Every shape converts: the smallest negative unit and the negative value of
// all nines give their texts, which assign back to the same bytes.
TEST(RfcDataTextTest, EveryPackedShapeReadsAndAssignsBack) {
  for (int length = 1; length <= 64; ++length) {
    const int digits = 2 * length - 1;
    for (int decimals = 0; decimals <= digits; ++decimals) {
      SCOPED_TRACE("L=" + std::to_string(length) + " D=" + std::to_string(decimals));
      const std::string integer(static_cast<size_t>(digits - decimals), '9');
      const std::string nines = "-" + (integer.empty() ? "0" : integer) +
                                (decimals > 0 ? "." + std::string(static_cast<size_t>(decimals), '9') : "");
      const std::string unit = decimals > 0 ? "-0." + std::string(static_cast<size_t>(decimals - 1), '0') + "1" : "-1";
      std::vector<unsigned char> all(static_cast<size_t>(length), 0x99), one(static_cast<size_t>(length), 0);
      all.back() = 0x9D;
      one.back() = 0x1D;
      for (const auto& [bytes, text] : {std::pair{all, nines}, std::pair{one, unit}}) {
        std::vector<unsigned char> value = bytes;
        CRfcData data(1);
        data.Init(value.data(), TYPE_BCD, length, decimals);
        ASSERT_EQ(std::string(static_cast<CSTR>(data)), text);
        std::fill(value.begin(), value.end(), 0);
        data = text.c_str();
        ASSERT_EQ(value, bytes) << text;
      }
      if (decimals == digits) {
        // Str2BCD takes no integer digit here, not even the 0 the text shows.
        std::vector<unsigned char> value(static_cast<size_t>(length), 0x77);
        std::string zero = "0." + std::string(static_cast<size_t>(decimals), '1');
        CRfcData data(1);
        data.Init(value.data(), TYPE_BCD, length, decimals);
        EXPECT_EQ(data.Str2BCD(zero.data(), value.data()), 0);
        EXPECT_EQ(value, std::vector<unsigned char>(static_cast<size_t>(length), 0x77));
        EXPECT_EQ(data.Str2BCD(zero.data() + 1, value.data()), 1);
      }
    }
  }
  // Beyond 2L-1 decimals there is no such value.
  unsigned char byte = 0x5C;
  CRfcData data(1);
  data.Init(&byte, TYPE_BCD, 1, 2);
  EXPECT_THROW(static_cast<void>(static_cast<CSTR>(data)), const char*);
}

}  // namespace
