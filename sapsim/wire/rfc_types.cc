#include "sapsim/wire/rfc_types.h"

#include <cstring>

namespace sapsim::wire {

bool IsValueType(int32_t type) { return type >= kTypeChar && type <= kTypeInt1 && type != kTypeItab; }

uint32_t FixedLength(int32_t type) {
  switch (type) {
    case kTypeDate: return 8;
    case kTypeTime: return 6;
    case kTypeFloat: return 8;
    case kTypeInt: return 4;
    case kTypeInt2: return 2;
    case kTypeInt1: return 1;
    default: return 0;
  }
}

uint32_t Alignment(int32_t type) {
  switch (type) {
    case kTypeFloat: return 8;
    case kTypeInt: return 4;
    case kTypeInt2: return 2;
    default: return 1;
  }
}

char TypeLetter(int32_t type) {
  switch (type) {
    case kTypeChar: return 'C';
    case kTypeDate: return 'D';
    case kTypeBcd: return 'P';
    case kTypeTime: return 'T';
    case kTypeByte: return 'X';
    case kTypeNum: return 'N';
    case kTypeFloat: return 'F';
    case kTypeInt: return 'I';
    case kTypeInt2: return 's';
    case kTypeInt1: return 'b';
    default: return 0;
  }
}

int32_t TypeFromLetter(char letter) {
  switch (letter) {
    case 'C': return kTypeChar;
    case 'D': return kTypeDate;
    case 'P': return kTypeBcd;
    case 'T': return kTypeTime;
    case 'X': return kTypeByte;
    case 'N': return kTypeNum;
    case 'F': return kTypeFloat;
    case 'I': return kTypeInt;
    case 's': return kTypeInt2;
    case 'b': return kTypeInt1;
    default: return -1;
  }
}

const char* TypeName(int32_t type) {
  switch (type) {
    case kTypeChar: return "CHAR";
    case kTypeDate: return "DATE";
    case kTypeBcd: return "BCD";
    case kTypeTime: return "TIME";
    case kTypeByte: return "BYTE";
    case kTypeItab: return "ITAB";
    case kTypeNum: return "NUM";
    case kTypeFloat: return "FLOAT";
    case kTypeInt: return "INT";
    case kTypeInt2: return "INT2";
    case kTypeInt1: return "INT1";
    default: return "unknown type";
  }
}

void FillInitial(int32_t type, uint8_t* data, size_t length) {
  if (length == 0) return;
  switch (type) {
    case kTypeChar: std::memset(data, ' ', length); break;
    case kTypeNum:
    case kTypeDate:
    case kTypeTime: std::memset(data, '0', length); break;
    default: std::memset(data, 0, length); break;
  }
}

}  // namespace sapsim::wire
