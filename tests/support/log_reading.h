#pragma once
// What the batch server wrote: a directory's files, the log's service cycles.

#include <algorithm>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

namespace testutil {

// Names of the files in `dir` with `extension` ("" for all), sorted.
inline std::vector<std::string> FileNames(const std::string& dir, const std::string& extension = "") {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(dir, error)) {
    if (extension.empty() || entry.path().extension() == extension) names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Those files' contents one after the other (a daily log may have a successor).
inline std::string FilesText(const std::string& dir, const std::string& extension = "") {
  std::string text;
  for (const std::string& name : FileNames(dir, extension)) text += ReadBytes(dir + "/" + name);
  return text;
}

// True when `text` starts with the log's date and time, "MM/DD/YY hh:mm:ss".
inline bool StartsWithLogTime(const std::string& text) {
  return std::regex_search(text, std::regex(R"(^\d\d/\d\d/\d\d \d\d:\d\d:\d\d)"));
}

// The log split into service cycles: the text after each header block, up to the next.
inline std::vector<std::string> ServiceCycles(const std::string& log) {
  const std::string rule = std::string(65, '#') + "\r\n", header = rule + "# HEADER\r\n";
  std::vector<std::string> cycles;
  for (size_t start = log.find(header), body; start != std::string::npos;) {
    if ((body = log.find(rule + "\r\n", start + rule.size())) == std::string::npos) break;
    const size_t from = body + rule.size() + 2;
    start = log.find(header, from);
    cycles.push_back(log.substr(from, start == std::string::npos ? std::string::npos : start - from));
  }
  return cycles;
}

}  // namespace testutil
