#pragma once
// Decimal text to integer, the way the settings' numbers are read: leading
// white space skipped, an optional sign, then digits up to the first
// non-digit; 0 when there are none. Unlike atoi, a figure beyond the int range
// is clamped to INT_MIN or INT_MAX instead of being undefined.

#include <string>

int DecimalTextToInt(const std::string& text);
