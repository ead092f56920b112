#pragma once
// Conversion of one simple value from the sender's type and length into the
// receiver's, the way RFC converts between CHAR, NUM, DATE, TIME, packed BCD,
// the integers, FLOAT and BYTE. The rules are listed in docs/sapsim.md.

#include <cstddef>
#include <cstdint>
#include <string>

#include "sapsim/wire/value_description.h"

namespace sapsim::wire {

struct SimpleType {
  int32_t type = 0;
  uint32_t length = 0;
  int32_t decimals = 0;  // kDecimalsUnknown: take the other side's
};

// Converts `src` (described by `from`) into `dst` (described by `to`).
// On failure `dst` keeps its bytes and `error` says why. Integers and FLOAT
// are in the host's byte order on both sides.
bool ConvertValue(const SimpleType& from, const uint8_t* src, const SimpleType& to, uint8_t* dst,
                  std::string* error);

// The value as text, as a log or `sapsim call` shows it: CHAR and NUM
// without trailing blanks, numbers in plain decimal notation, BYTE in hex.
std::string ValueToText(const SimpleType& type, const uint8_t* data);

}  // namespace sapsim::wire
