#pragma once
// A whole output compared byte for byte with a checked-in file under tests/.
// BS_UPDATE_EXPECTED=1 writes the file instead, for review with git diff.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/temp_dir.h"

namespace testutil {

// `relative` to the source tree; a difference shows the first differing line of both.
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
  // The first line that differs: where it starts and its number.
  size_t from = 0, line = 1;
  for (size_t end; (end = expected.find('\n', from)) != std::string::npos; from = end + 1, ++line) {
    if (expected.compare(0, end + 1, actual, 0, end + 1) != 0) break;
  }
  auto line_at = [from](const std::string& text) { return text.substr(from, text.find('\n', from) - from); };
  return ::testing::AssertionFailure() << relative << " differs at line " << line << "\n  expected: \""
                                       << line_at(expected) << "\"\n  actual:   \"" << line_at(actual) << "\"";
}

// What varies between runs as placeholders: each given value and the log's "MM/DD/YY hh:mm:ss".
inline std::string Normalised(std::string text, const std::vector<std::pair<std::string, std::string>>& values = {}) {
  for (const auto& [value, placeholder] : values) {
    for (size_t at = 0; !value.empty() && (at = text.find(value, at)) != std::string::npos; at += placeholder.size()) {
      text.replace(at, value.size(), placeholder);
    }
  }
  return std::regex_replace(text, std::regex(R"(\d\d/\d\d/\d\d \d\d:\d\d:\d\d)"), "MM/DD/YY hh:mm:ss");
}

// A pattern (std::regex) matched as the text it is.
inline std::string Literal(const std::string& text) {
  return std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
}

// Every match of each pattern, in the order given, becomes its placeholder.
inline std::string WithPlaceholders(std::string text,
                                    const std::vector<std::pair<std::string, std::string>>& patterns) {
  for (const auto& [pattern, placeholder] : patterns) text = std::regex_replace(text, std::regex(pattern), placeholder);
  return text;
}

// Bytes as one readable line: \t, \r, \n, and \xHH outside printable ASCII.
inline std::string Escaped(const std::string& bytes) {
  std::string text;
  char hex[5];
  for (const unsigned char c : bytes) {
    std::snprintf(hex, sizeof hex, "\\x%02x", c);
    text += c == '\t' ? "\\t" : c == '\r' ? "\\r" : c == '\n' ? "\\n" : c >= 32 && c < 127 ? std::string(1, static_cast<char>(c)) : hex;
  }
  return text;
}

}  // namespace testutil
