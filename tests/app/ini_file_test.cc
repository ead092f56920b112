#include "app/ini_file.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/file.h"
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

  testutil::TempDir dir_;
  int files_ = 0;
};

TEST_F(IniFileTest, ValuesAreFoundByPlainTextSearches) {
  const std::string mixed = "[S]\r\na=1\r\nb = 2\r\n";
  const std::string bracket = "[S]\r\na=x[y\r\nb=2\r\n";
  const std::string cased = "[Srv]\r\nKey=1\r\n";
  const std::string zero = "[S]\r\na=x\0y\r\nb=2\r\n"s;
  const struct {
    const char* why;
    std::string bytes;
    const char* section;
    const char* name;
    bool found;
    std::string value;
  } cases[] = {
      {"found as written", mixed, "S", "a", true, "1"},
      {"blanks after = stay", mixed, "S", "b", true, " 2"},
      {"LF files: the value runs to the end", "[S]\na=1\nb = 2\n", "S", "a", true, "1\nb = 2\n"},
      {"only the pair CR LF ends a value", "[S]\n\ra=1\n\rb=2\n\r", "S", "b", true, "2\n\r"},
      {"no final line end", "[S]\r\na=1\r\nz=last", "S", "z", true, "last"},
      {"the section text inside an earlier value", "x=[S]\r\na=0\r\n[S]\r\na=1\r\n", "S", "a", true, "0"},
      {"a [ in a value ends the section", bracket, "S", "b", false, ""},
      {"... after the value itself", bracket, "S", "a", true, "x[y"},
      {"any [ ends the section", "[S]\r\na=1\r\n  [T]\r\nb=2\r\n", "S", "b", false, ""},
      {"sections are case-sensitive", cased, "SRV", "Key", false, ""},
      {"names are case-sensitive", cased, "Srv", "key", false, ""},
      {"the right case", cased, "Srv", "Key", true, "1"},
      {"the first line of a name; the rest after the first =", "[S]\r\n; x=1\r\na=1=2\r\na=3\r\n", "S", "a", true,
       "1=2"},
      {"a name starts its line, blanks before =", "[S]\r\nxk=bad\r\nk2=bad\r\n   k   =  good\r\n", "S", "k", true,
       "  good"},
      {"xk and k2 are not k", "[S]\r\nxk=v\r\nk2=w\r\n", "S", "k", false, ""},
      {"a name with no = after it", "[S]\r\na=1\r\nzz\r\n", "S", "zz", false, ""},
      {"the header is no name", "[S]=1\r\n", "S", "[S]", false, ""},
      {"a zero byte does not end the buffer", zero, "S", "b", true, "2"},
      {"... nor the value", zero, "S", "a", true, "x\0y"s},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    CIni ini(Make(c.bytes), false);
    ini.SetSection(c.section);
    std::string value = "stale";
    EXPECT_EQ(ini.GetValue(c.name, value), c.found ? 1 : 0);
    EXPECT_EQ(value, c.value);
    if (c.found) {
      EXPECT_EQ(testutil::Join(ini.ValueLength(), ini.LastError()), testutil::Join(c.value.size(), ""));
    }
  }
}

TEST_F(IniFileTest, KeysAreListedLineByLineUpToABracketAfterTheFilesLineEnd) {
  const struct {
    std::string bytes;
    std::vector<std::string> keys;
  } cases[] = {
      {"[S]\na=1\nb = 2\n", {"a", "b "}},  // any line break ends a name
      {"[S]a=1\r\nb=2", {"S]a", "b"}},  // the header's "[" is left out; no final line end
      {"x=[S]\r\na=0\r\n[S]\r\na=1\r\n", {"a"}},
      {"[S]\r\na=x[y\r\nb=2\r\n", {"a", "b"}},
      // "  [T]" follows blanks, "\n[U]" another line end than the file's CR LF.
      {"[S]\r\na=1\r\n  [T]\r\nb=2\n[U]\r\nc=3\r\n[V]\r\nd=4\r\n", {"a", "b", "c"}},
      // No comments: names as they stand, lines without = ignored, repeats kept.
      {"[S]\r\n; x=1\r\nno equals sign here\r\na=1=2\r\na=3\r\n  a =4\r\n", {"; x", "a", "a", "  a "}},
  };
  for (const auto& c : cases) {
    CIni ini(Make(c.bytes), false);
    ini.SetSection("S");
    std::vector<std::string> keys{"stale"};
    ASSERT_EQ(ini.GetKeys(keys), 1);
    EXPECT_EQ(keys, c.keys) << c.bytes;
  }
}

char* FailingAllocator(std::size_t) { return nullptr; }

TEST_F(IniFileTest, FailedOpensReportTheirCauseAndLeaveNoBuffer) {
  const std::string good = Make("[S]\r\na=1\r\n");  // 10 bytes, so 11 are asked for
  const std::string refused = Make("[S]\r\na=1\r\n");
  platform::testing::InjectFileFault(refused, platform::testing::FileOp::kOpen,
                                     platform::testing::FileFault::kAccessDenied, 2);
  const struct {
    std::string path;
    std::string message;
    bool fail_allocation;
  } cases[] = {
      {Make(""), "Failed to locate a valid CR/LF combination!", false},
      {Make("[S]a=1"), "Failed to locate a valid CR/LF combination!", false},
      {dir_.File("missing.ini"), "File I/O error: 2 for file: " + dir_.File("missing.ini"), false},
      {dir_.File("no_dir/a.ini"), "File I/O error: 3 for file: " + dir_.File("no_dir/a.ini"), false},
      {refused, "File I/O error: 5 for file: " + refused, false},
      {good, "Failed to allocate 11 bytes of memory in 'CIni::Open'!", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    const CIni::Allocator previous = CIni::SetAllocatorForTesting(c.fail_allocation ? &FailingAllocator : nullptr);
    CIni quiet(c.path, false);
    EXPECT_EQ(quiet.LastError(), c.message);
    EXPECT_EQ(quiet.FileName(), c.path);
    EXPECT_EQ(Raised([&] { CIni loud(c.path, true); }), c.message);
    CIni::SetAllocatorForTesting(previous);
    quiet.SetSection("S");
    std::string value;
    EXPECT_EQ(quiet.GetValue("a", value), 0);
    EXPECT_EQ(quiet.LastError(), "File buffer is empty!");
  }
  platform::testing::ClearFileFaults();
  EXPECT_EQ(CIni(refused, false).LastError(), "") << "the fault is gone";
}

TEST_F(IniFileTest, SectionsAreFoundAgainFromEitherDirectionAndMissingOnesReported) {
  CIni ini(Make("[S]\r\na=0\r\n"), false);
  const std::string path = Make("[S]\r\na=1\r\n[T]\r\na=2\r\n");
  ASSERT_EQ(ini.Open(path), 1);  // reopening replaces the buffer
  std::string value;
  // [S], then [T] from the stored position onward, then [S] again from the start.
  for (const auto& [section, expected] : {std::pair{"S", "1"}, {"T", "2"}, {"S", "1"}}) {
    ini.SetSection(section);
    EXPECT_EQ(ini.Section(), "[" + std::string(section) + "]");
    ASSERT_EQ(ini.GetValue("a", value), 1);
    EXPECT_EQ(value, expected);
  }
  const std::string no_section = "Section [U] not found in '" + path + "'";
  const std::string no_value = "Can't find value name 'c' in section '[S]' of ini file '" + path + "'";
  std::vector<std::string> keys;
  ini.SetSection("U");
  EXPECT_EQ(ini.GetKeys(keys), 0);
  EXPECT_EQ(ini.LastError(), no_section);
  ini.SetSection("S");
  EXPECT_EQ(ini.GetValue("c", value), 0);
  EXPECT_EQ(ini.LastError(), no_value);
  ini.SetThrow(true);
  ini.SetSection("U");
  EXPECT_EQ(Raised([&] { ini.GetValue("a", value); }), no_section);
  ini.SetSection("S");
  EXPECT_EQ(Raised([&] { ini.GetValue("c", value); }), no_value);
  // A failed open drops what was loaded before.
  EXPECT_EQ(Raised([&] { ini.Open(dir_.File("gone.ini")); }), "File I/O error: 2 for file: " + dir_.File("gone.ini"));
  EXPECT_EQ(Raised([&] { ini.GetKeys(keys); }), "File buffer is empty!");
  EXPECT_TRUE(keys.empty());
}

}  // namespace
