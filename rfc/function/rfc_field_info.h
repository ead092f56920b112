#pragma once
// One field of a structure or one column of a table line. A plain record:
// the library keeps copies of it, and callers hand arrays of it to
// CRfcStructInfo::AddFieldInfo.

#include <cstddef>

struct CRfcFieldInfo {
  char name[32];  // NUL-terminated, at most 31 characters, no trailing blanks
  int column;     // 0-based position; also the index in the structure's list
  int offset;     // bytes from the start of the structure (line)
  int type;       // RFC type code
  int length;     // internal length in bytes
  int decimals;   // BCD and FLOAT
};

// Stores `text` as the field's name: at most 31 characters, trailing blanks
// removed, NUL-terminated. Null gives the empty name.
void SetFieldName(CRfcFieldInfo& field, const char* text);

// The name of a record that may come from outside the library: read up to the
// first NUL but never past the 32 characters of the field.
size_t FieldNameLength(const CRfcFieldInfo& field);
