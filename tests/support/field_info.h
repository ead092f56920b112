#pragma once
// A field descriptor as tests write them: name, column, type, length and
// decimals; the offset is left for the layout to decide.

#include "rfc/function/rfc_field_info.h"

namespace test_support {

inline CRfcFieldInfo Field(const char* name, int column, int type, int length, int decimals = 0) {
  CRfcFieldInfo field{{}, column, 0, type, length, decimals};
  SetFieldName(field, name);
  return field;
}

}  // namespace test_support
