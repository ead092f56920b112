// CIni on arbitrary file contents: no crash, no read outside the buffer, and
// the answers the reader promises.
//
// Input: a section name up to the first NUL byte, a value name up to the
// second, and the rest as the file's bytes. The file is written to a private
// path under the system temp dir for every input.
//
// Checked: Open succeeds exactly when the file has a line break, and detects
// the first of CR LF, LF CR, CR, LF that occurs; a value read is a piece of
// the file that follows an "=" and holds no CR LF; every listed key stands in
// the file directly before an "="; a failure leaves an empty value and a
// message, and with the throw flag set raises that same message.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "app/ini_file.h"

namespace {

void Check(bool condition) {
  if (!condition) std::abort();
}

// The file every input is written to; removed when the fuzzer ends.
class ScratchFile {
 public:
  ScratchFile() {
    const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    path_ = std::filesystem::temp_directory_path() /
            ("bs_ini_fuzz_" + std::to_string(std::random_device{}()) + "_" +
             std::to_string(stamp) + ".ini");
  }
  ~ScratchFile() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }
  std::string Write(std::string_view bytes) const {
    std::ofstream out(path_, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return path_.string();
  }

 private:
  std::filesystem::path path_;
};

std::string_view TakeText(std::string_view& rest) {
  const size_t end = rest.find('\0');
  const std::string_view text = rest.substr(0, end);
  rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
  return text;
}

std::string ExpectedLineEnd(std::string_view file) {
  for (const char* candidate : {"\r\n", "\n\r", "\r", "\n"}) {
    if (file.find(candidate) != std::string_view::npos) return candidate;
  }
  return "";
}

// A value read must be a piece of the file right after an "=".
void CheckValue(std::string_view file, const std::string& value, int32_t length) {
  Check(length == static_cast<int32_t>(value.size()));
  Check(value.find("\r\n") == std::string::npos);
  bool found = false;
  for (size_t at = file.find('='); at != std::string_view::npos && !found;
       at = file.find('=', at + 1)) {
    found = file.compare(at + 1, value.size(), value) == 0;
  }
  Check(found);
}

void Read(CIni& ini, std::string_view file, const std::string& name) {
  std::string value = "left over";
  if (ini.GetValue(name, value) == 1) {
    Check(ini.LastError().empty());
    CheckValue(file, value, ini.ValueLength());
  } else {
    Check(value.empty());
    Check(!ini.LastError().empty());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const ScratchFile scratch;
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  const std::string section(TakeText(rest));
  const std::string name(TakeText(rest));
  const std::string_view file = rest;
  const std::string path = scratch.Write(file);

  CIni ini(path, false);
  const std::string line_end = ExpectedLineEnd(file);
  Check(ini.LineEnd() == line_end);
  Check(ini.LastError().empty() == !line_end.empty());
  ini.SetSection(section);
  Check(ini.Section() == "[" + section + "]");

  Read(ini, file, name);
  std::vector<std::string> keys = {"stale"};
  if (ini.GetKeys(keys) == 1) {
    for (const std::string& key : keys) {
      Check(file.find(key + "=") != std::string_view::npos);
      Read(ini, file, key);
    }
  } else {
    Check(keys.empty());
  }
  // The same lookup again starts from the section found last.
  Read(ini, file, name);

  // With the throw flag set a failure raises the message it records.
  ini.SetThrow(true);
  try {
    std::string value;
    if (ini.GetValue(name, value) == 1) CheckValue(file, value, ini.ValueLength());
  } catch (const std::string& message) {
    Check(message == ini.LastError());
    Check(!message.empty());
  }
  return 0;
}
