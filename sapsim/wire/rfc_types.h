#pragma once
// The RFC type codes as numbers, with the facts both sides need about them:
// fixed lengths, alignment, dictionary letters, initial values.

#include <cstddef>
#include <cstdint>

namespace sapsim::wire {

enum RfcType : int32_t {
  kTypeChar = 0,
  kTypeDate = 1,
  kTypeBcd = 2,
  kTypeTime = 3,
  kTypeByte = 4,
  kTypeItab = 5,
  kTypeNum = 6,
  kTypeFloat = 7,
  kTypeInt = 8,
  kTypeInt2 = 9,
  kTypeInt1 = 10,
};

// A type a single value can have (every code but ITAB).
bool IsValueType(int32_t type);
// The length the type always has, or 0 when the caller chooses it (CHAR,
// BCD, BYTE, NUM) or the type has no value.
uint32_t FixedLength(int32_t type);
// Natural alignment inside a structure: FLOAT 8, INT 4, INT2 2, others 1.
uint32_t Alignment(int32_t type);
// Dictionary letters C D P T X N F I s b; 0 for codes without one.
char TypeLetter(int32_t type);
// The code of a letter, or -1 (letters are case-sensitive: s and b are lower case).
int32_t TypeFromLetter(char letter);
// "CHAR", "DATE", ... for messages.
const char* TypeName(int32_t type);
// Writes the type's initial value over `length` bytes: blanks for CHAR, the
// digit 0 for NUM, DATE and TIME, zero bytes for everything else.
void FillInitial(int32_t type, uint8_t* data, size_t length);

}  // namespace sapsim::wire
