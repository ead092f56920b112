#include "platform/process.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "gtest/gtest.h"
#include "tests/platform/child_process.h"
#include "tests/platform/test_support.h"

namespace {

// Goes back to the directory that was current when built.
class RestoreDirectory {
 public:
  RestoreDirectory() : path_(std::filesystem::current_path()) {}
  ~RestoreDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(path_, ignored);
  }

 private:
  std::filesystem::path path_;
};

TEST(ProcessTest, CurrentDirectoryIsTheProcesssOne) {
  RestoreDirectory restore;
  platform_test::TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  EXPECT_EQ(platform::CurrentDirectory(), std::filesystem::current_path().string());
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  EXPECT_EQ(platform::CurrentDirectory(), std::filesystem::canonical(dir.path()).string());
}

TEST(ProcessTest, LongCurrentDirectoryIsReadWholeOrNotAtAll) {
  RestoreDirectory restore;
  platform_test::TempDir dir;
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  std::string expected = std::filesystem::canonical(dir.path()).string();
  const std::string step(200, 'd');
  // Deeper than PATH_MAX: no fixed buffer can hold it.
  for (int i = 0; i < 30; ++i) {
    ASSERT_EQ(mkdir(step.c_str(), 0700), 0);
    ASSERT_EQ(chdir(step.c_str()), 0);
    expected += "/" + step;
  }
  ASSERT_GT(expected.size(), 4096u);
  const std::string got = platform::CurrentDirectory();
  EXPECT_TRUE(got.empty() || got == expected) << got.size();
}

TEST(ProcessTest, RemovedCurrentDirectoryReadsEmpty) {
  RestoreDirectory restore;
  platform_test::TempDir dir;
  const std::string doomed = dir.File("doomed");
  ASSERT_EQ(mkdir(doomed.c_str(), 0700), 0);
  ASSERT_EQ(chdir(doomed.c_str()), 0);
  ASSERT_EQ(rmdir(doomed.c_str()), 0);
  EXPECT_EQ(platform::CurrentDirectory(), "");
}

TEST(ProcessTest, UpperCaseUnderTheCLocale) {
  EXPECT_EQ(platform::ToUpper('a'), 'A');
  EXPECT_EQ(platform::ToUpper('z'), 'Z');
  EXPECT_EQ(platform::ToUpper('A'), 'A');
  EXPECT_EQ(platform::ToUpper('1'), '1');
  EXPECT_EQ(platform::ToUpper('_'), '_');
  EXPECT_EQ(platform::ToUpper(EOF), EOF);
  // Bytes above 127 come in as negative chars; the C locale leaves them.
  const char umlaut = static_cast<char>(0xE4);
  EXPECT_EQ(static_cast<char>(platform::ToUpper(umlaut)), umlaut);

  char text[] = "rfc_read_table\0tail\xe4";
  platform::ToUpperInPlace(text, sizeof text - 1);
  EXPECT_EQ(std::string(text, sizeof text - 1), std::string("RFC_READ_TABLE\0TAIL\xe4", 20))
      << "the whole length is converted, past an embedded zero";
  char partial[] = "abc";
  platform::ToUpperInPlace(partial, 2);
  EXPECT_STREQ(partial, "ABc");
  platform::ToUpperInPlace(nullptr, 0);
}

TEST(ProcessTest, TerminationSignalsOnlyRecordTheRequest) {
  for (const char* which : {"TERM", "INT"}) {
    const auto result = platform_test::Run({BS_TEST_CHILD, "termination", which});
    EXPECT_EQ(result.exit_code, 0) << which << ": the signal must not end the process";
    EXPECT_EQ(result.out, "before=0\nafter=1\n") << which;
  }
}

}  // namespace
