#pragma once
// The numbers that come back from the SAP system as text (offsets, lengths,
// positions, type codes) are read by their leading decimal digits only: no
// blanks, no sign. A text that does not start with a digit reads as 0, and a
// number beyond the 32-bit range is clamped to its largest value.

#include <cstdint>
#include <string>

int32_t DecimalPrefix(const std::string& text);
