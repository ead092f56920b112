// The INI reader. Each input writes one line "input -> what the reader
// found"; the lines are compared whole with an expected file.

#include "app/ini_file.h"

#include <gtest/gtest.h>

#include <tuple>

#include "platform/file.h"
#include "tests/support/expected_file.h"
#include "tests/support/polling.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace std::string_literals;

class IniFileTest : public ::testing::Test {
 protected:
  std::string Make(const std::string& bytes) { return dir_.Write("ini" + std::to_string(++files_) + ".ini", bytes); }
  // The text the reader raises for `run`, or "no exception".
  template <typename Run>
  static std::string Raised(Run run) {
    try {
      run();
    } catch (const std::string& message) {
      return message;
    }
    return "no exception";
  }
  // `text` on one line, the test's directory as <dir>.
  std::string Shown(const std::string& text) const {
    return testutil::Escaped(testutil::Normalised(text, {{dir_.path(), "<dir>"}}));
  }

  testutil::TempDir dir_;
  int files_ = 0;
};

char* FailingAllocator(std::size_t) { return nullptr; }

TEST_F(IniFileTest, ReadingAsOneApprovedText) {
  // Values are found by plain text searches: "bytes [section] name -> found, value".
  std::string text = "== values\n";
  const std::string mixed = "[S]\r\na=1\r\nb = 2\r\n";
  const std::string bracket = "[S]\r\na=x[y\r\nb=2\r\n";
  const std::string cased = "[Srv]\r\nKey=1\r\n";
  const std::string zero = "[S]\r\na=x\0y\r\nb=2\r\n"s;
  const std::tuple<std::string, const char*, const char*> values[] = {  // bytes, [section], name
      {mixed, "S", "a"}, {mixed, "S", "b"}, {"[S]\na=1\nb = 2\n", "S", "a"}, {"[S]\n\ra=1\n\rb=2\n\r", "S", "b"},
      {"[S]\r\na=1\r\nz=last", "S", "z"}, {"x=[S]\r\na=0\r\n[S]\r\na=1\r\n", "S", "a"}, {bracket, "S", "b"},
      {bracket, "S", "a"}, {"[S]\r\na=1\r\n  [T]\r\nb=2\r\n", "S", "b"}, {cased, "SRV", "Key"}, {cased, "Srv", "key"},
      {cased, "Srv", "Key"}, {"[S]\r\n; x=1\r\na=1=2\r\na=3\r\n", "S", "a"},
      {"[S]\r\nxk=bad\r\nk2=bad\r\n   k   =  good\r\n", "S", "k"}, {"[S]\r\nxk=v\r\nk2=w\r\n", "S", "k"},
      {"[S]\r\na=1\r\nzz\r\n", "S", "zz"}, {"[S]=1\r\n", "S", "[S]"}, {zero, "S", "b"}, {zero, "S", "a"},
  };
  for (const auto& [bytes, section, name] : values) {
    CIni ini(Make(bytes), false);
    ini.SetSection(section);
    std::string value = "stale";
    const int found = ini.GetValue(name, value);
    text += Shown(bytes) + " [" + section + "] " + name + " -> " + testutil::Join(found, Shown(value));
    text += found != 0 ? testutil::Join(ini.ValueLength(), ini.LastError()) + "\n" : "\n";
  }

  // Keys are listed line by line up to a bracket after the file's line end.
  text += "== keys\n";
  for (const std::string bytes : {"[S]\na=1\nb = 2\n", "[S]a=1\r\nb=2", "x=[S]\r\na=0\r\n[S]\r\na=1\r\n",
                                  "[S]\r\na=x[y\r\nb=2\r\n", "[S]\r\na=1\r\n  [T]\r\nb=2\n[U]\r\nc=3\r\n[V]\r\nd=4\r\n",
                                  "[S]\r\n; x=1\r\nno equals sign here\r\na=1=2\r\na=3\r\n  a =4\r\n"}) {
    CIni ini(Make(bytes), false);
    ini.SetSection("S");
    std::vector<std::string> keys{"stale"};
    text += Shown(bytes) + " -> " + std::to_string(ini.GetKeys(keys));
    for (const std::string& key : keys) text += "|" + key;
    text += "\n";
  }

  // Failed opens report their cause, quietly and by throwing, and leave no buffer.
  text += "== failed opens\n";
  const std::string good = Make("[S]\r\na=1\r\n");  // 10 bytes, so 11 are asked for
  const std::string refused = Make("[S]\r\na=1\r\n");
  platform::testing::InjectFileFault(refused, platform::testing::FileOp::kOpen,
                                     platform::testing::FileFault::kAccessDenied, 2);
  for (const auto& [path, fail_allocation] : {std::pair{Make(""), false}, {Make("[S]a=1"), false},
                                              {dir_.File("missing.ini"), false}, {dir_.File("no_dir/a.ini"), false},
                                              {refused, false}, {good, true}}) {
    const CIni::Allocator previous = CIni::SetAllocatorForTesting(fail_allocation ? &FailingAllocator : nullptr);
    CIni quiet(path, false);
    text += Shown(path) + " -> " + Shown(quiet.LastError()) + (quiet.FileName() == path ? "|" : "|another name|");
    text += Shown(Raised([&] { CIni loud(path, true); }));
    CIni::SetAllocatorForTesting(previous);
    quiet.SetSection("S");
    std::string value;
    const int found = quiet.GetValue("a", value);
    text += "|" + testutil::Join(found, quiet.LastError()) + "\n";
  }
  platform::testing::ClearFileFaults();
  text += "the fault gone -> '" + CIni(refused, false).LastError() + "'\n";

  // Sections are found again from either direction; missing ones reported.
  text += "== sections\n";
  CIni ini(Make("[S]\r\na=0\r\n"), false);
  text += std::to_string(ini.Open(Make("[S]\r\na=1\r\n[T]\r\na=2\r\n"))) + "\n";  // reopening replaces the buffer
  std::string value;
  // [S], then [T] from the stored position onward, then [S] again from the start.
  for (const char* section : {"S", "T", "S"}) {
    ini.SetSection(section);
    const int found = ini.GetValue("a", value);
    text += ini.Section() + " -> " + testutil::Join(found, value) + "\n";
  }
  std::vector<std::string> keys;
  ini.SetSection("U");
  text += std::to_string(ini.GetKeys(keys));
  text += "|" + Shown(ini.LastError()) + "\n";
  ini.SetSection("S");
  text += std::to_string(ini.GetValue("c", value));
  text += "|" + Shown(ini.LastError()) + "\n";
  ini.SetThrow(true);
  ini.SetSection("U");
  text += Shown(Raised([&] { ini.GetValue("a", value); })) + "\n";
  ini.SetSection("S");
  text += Shown(Raised([&] { ini.GetValue("c", value); })) + "\n";
  // A failed open drops what was loaded before.
  text += Shown(Raised([&] { ini.Open(dir_.File("gone.ini")); })) + "\n";
  text += Raised([&] { ini.GetKeys(keys); }) + "|" + std::to_string(keys.size()) + "\n";
  EXPECT_TRUE(testutil::MatchesExpectedFile(text, "tests/app/expected/ini_file.txt"));
}

}  // namespace
