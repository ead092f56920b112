#pragma once
// The calling thread's last error, as RfcLastError and RfcLastErrorEx report
// it. It stays until the next failure on the same thread: a successful call
// does not clear it.

#include <cstdint>
#include <string>

#include "rfc/binding/rfc_library_api.h"

namespace rfcsim {

// Records a failure: group and key from sapsim/wire/error_codes.h, a message
// that tells the user what went wrong, and where it happened (the internal
// state field). Texts longer than the records' fields are cut.
void SetLastError(int32_t group, const char* key, const std::string& message,
                  const std::string& where = std::string());

void FillErrorInfo(RFC_ERROR_INFO* info);
void FillErrorInfoEx(ErrorInfoEx* info);

// Copies `text` into a fixed field of `size` bytes (terminator included),
// cutting what does not fit; a null text gives the empty text.
void CopyBounded(char* field, size_t size, const char* text);

}  // namespace rfcsim
