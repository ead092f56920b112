#pragma once
// What differs between runs (times, process ids, generated names, ports,
// temporary paths) replaced with fixed placeholders, so that a whole output
// can be compared with an expected file.

#include <cstdio>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/processes.h"

namespace testutil {

// A date and time as the logs and status reports write them.
inline const std::string kTimePattern = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)";

// `text` matched as it is, not as a pattern.
inline std::string Literal(const std::string& text) {
  return std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
}

// Every match of each pattern, in the order given, becomes its placeholder.
inline std::string WithPlaceholders(std::string text,
                                   const std::vector<std::pair<std::string, std::string>>& patterns) {
  for (const auto& [pattern, placeholder] : patterns) text = std::regex_replace(text, std::regex(pattern), placeholder);
  return text;
}

// Bytes as readable text: printable ASCII as it is, every other byte as \xHH.
inline std::string Escaped(const std::string& bytes) {
  std::string text;
  char hex[5];
  for (unsigned char c : bytes) {
    std::snprintf(hex, sizeof hex, "\\x%02x", c);
    text += c >= 32 && c < 127 ? std::string(1, static_cast<char>(c)) : std::string(hex);
  }
  return text;
}

// One run of `command` as a transcript shows it: the program as `name`, its
// arguments, the exit code, the output and the error output, each byte as written.
inline std::string RunTranscript(const std::string& name, const std::vector<std::string>& command) {
  const RunResult result = RunCommand(command);
  std::string line = "$ " + name;
  for (size_t i = 1; i < command.size(); ++i) line += " " + command[i];
  return line + "\n[exit " + std::to_string(result.exit_code) + "]\n" + result.out + "[stderr]\n" + result.err;
}

}  // namespace testutil
