#pragma once
// A whole output (trace, dump, document, log) compared byte for byte with a
// checked-in file under tests/: one comparison pins every character of it.
// With BS_UPDATE_EXPECTED=1 the file is written instead, so that a deliberate
// change is reviewed with git diff.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "tests/support/temp_dir.h"

namespace testutil {

// `relative` is under the source tree, e.g. "tests/rfc/expected/x.txt". On a
// difference: the first differing line of both, with its number.
inline ::testing::AssertionResult MatchesExpectedFile(const std::string& actual, const std::string& relative) {
  const std::string path = SourceDir() + "/" + relative;
  const char* update = std::getenv("BS_UPDATE_EXPECTED");
  if (update != nullptr && std::string(update) == "1") {
    WriteBytes(path, actual);
    return ::testing::AssertionSuccess();
  }
  std::ifstream probe(path, std::ios::binary);
  if (!probe) return ::testing::AssertionFailure() << "no expected file " << path << " (BS_UPDATE_EXPECTED=1 writes it)";
  const std::string expected = ReadBytes(path);
  if (actual == expected) return ::testing::AssertionSuccess();
  const size_t at = static_cast<size_t>(
      std::mismatch(expected.begin(), expected.begin() + static_cast<long>(std::min(expected.size(), actual.size())),
                    actual.begin()).first - expected.begin());
  const size_t start = expected.rfind('\n', at == 0 ? 0 : at - 1);
  const size_t from = start == std::string::npos || at == 0 ? 0 : start + 1;
  auto line_at = [from](const std::string& text) { return text.substr(from, text.find('\n', from) - from); };
  return ::testing::AssertionFailure()
         << relative << " differs at line " << std::count(expected.begin(), expected.begin() + static_cast<long>(from), '\n') + 1
         << " (byte " << at << ")\n  expected: \"" << line_at(expected) << "\"\n  actual:   \"" << line_at(actual) << "\"";
}

}  // namespace testutil
