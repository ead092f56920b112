#include "app/ini_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/file.h"
#include "tests/support/temp_dir.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class IniFileTest : public ::testing::Test {
 protected:
  // Writes `bytes` to a fresh file and returns its path.
  std::string Make(const std::string& bytes, const std::string& name = "batch.ini") {
    const std::string path = dir_.File(name);
    testutil::WriteBytes(path, bytes);
    return path;
  }

  testutil::TempDir dir_;
};

TEST_F(IniFileTest, CrLfFileListsNamesAsWrittenAndKeepsBlanksInValues) {
  CIni ini(Make("[S]\r\na=1\r\nb = 2\r\n"), false);
  EXPECT_EQ(ini.LineEnd(), "\r\n");
  ini.SetSection("S");
  EXPECT_EQ(ini.Section(), "[S]");

  std::vector<std::string> names{"stale"};
  ASSERT_EQ(ini.GetKeys(names), 1);
  EXPECT_THAT(names, ElementsAre("a", "b "));

  std::string value;
  ASSERT_EQ(ini.GetValue("a", value), 1);
  EXPECT_EQ(value, "1");
  EXPECT_EQ(ini.ValueLength(), 1);
  ASSERT_EQ(ini.GetValue("b", value), 1);
  EXPECT_EQ(value, " 2");
  EXPECT_EQ(ini.ValueLength(), 2);
  EXPECT_EQ(ini.LastError(), "");
}

TEST_F(IniFileTest, LfFileValueRunsToTheEndOfTheFile) {
  CIni ini(Make("[S]\na=1\nb = 2\n"), false);
  EXPECT_EQ(ini.LineEnd(), "\n");
  ini.SetSection("S");
  std::string value;
  ASSERT_EQ(ini.GetValue("a", value), 1);
  EXPECT_EQ(value, "1\nb = 2\n");

  // Listing still works line by line, since it stops at any line break.
  std::vector<std::string> names;
  ASSERT_EQ(ini.GetKeys(names), 1);
  EXPECT_THAT(names, ElementsAre("a", "b "));
}

TEST_F(IniFileTest, LineEndIsDetectedByKindInFixedOrderNotByPosition) {
  struct Case {
    const char* bytes;
    const char* line_end;
  };
  const Case cases[] = {
      {"x\ny\r\nz", "\r\n"},  // a later CR LF beats an earlier lone LF
      {"x\n\ry", "\n\r"},
      {"x\ry\nz", "\r"},      // neither pair: any CR before any LF
      {"x\ny", "\n"},
      {"\r\n", "\r\n"},
  };
  for (const Case& c : cases) {
    CIni ini(Make(c.bytes), false);
    EXPECT_EQ(ini.LineEnd(), c.line_end) << "file bytes: " << c.bytes;
    EXPECT_EQ(ini.LastError(), "");
  }
}

TEST_F(IniFileTest, ValueEndsOnlyAtTheLiteralCrLfPair) {
  // With LF CR line ends the pair CR LF never occurs inside a line.
  CIni ini(Make("[S]\n\ra=1\n\rb=2\n\r"), false);
  EXPECT_EQ(ini.LineEnd(), "\n\r");
  ini.SetSection("S");
  std::string value;
  ASSERT_EQ(ini.GetValue("b", value), 1);
  EXPECT_EQ(value, "2\n\r");

  // Without a final line end the value runs to the end of the buffer.
  CIni last(Make("[S]\r\na=1\r\nz=last", "last.ini"), false);
  last.SetSection("S");
  ASSERT_EQ(last.GetValue("z", value), 1);
  EXPECT_EQ(value, "last");
}

TEST_F(IniFileTest, SectionTextInsideAValueBeforeTheHeaderIsTakenAsTheHeader) {
  CIni ini(Make("x=[S]\r\na=0\r\n[S]\r\na=1\r\n"), false);
  ini.SetSection("S");
  std::string value;
  ASSERT_EQ(ini.GetValue("a", value), 1);
  EXPECT_EQ(value, "0");

  std::vector<std::string> names;
  ASSERT_EQ(ini.GetKeys(names), 1);
  // The "[" of the real header follows a line end, so the listing stops there.
  EXPECT_THAT(names, ElementsAre("a"));
}

TEST_F(IniFileTest, BracketInsideAValueEndsTheSectionForValuesButNotForKeys) {
  const std::string path = Make("[S]\r\na=x[y\r\nb=2\r\n");
  CIni ini(path, false);
  ini.SetSection("S");

  std::vector<std::string> names;
  ASSERT_EQ(ini.GetKeys(names), 1);
  EXPECT_THAT(names, ElementsAre("a", "b"));

  std::string value = "stale";
  EXPECT_EQ(ini.GetValue("b", value), 0);
  EXPECT_EQ(value, "");
  EXPECT_EQ(ini.LastError(),
            "Can't find value name 'b' in section '[S]' of ini file '" + path + "'");
  ASSERT_EQ(ini.GetValue("a", value), 1);
  EXPECT_EQ(value, "x[y");
}

TEST_F(IniFileTest, KeysStopOnlyAtABracketRightAfterTheFilesLineEnd) {
  // "  [T]" is preceded by blanks, "\n[U]" by a different line end than the
  // file's CR LF; only "\r\n[V]" ends the listing.
  CIni ini(Make("[S]\r\na=1\r\n  [T]\r\nb=2\n[U]\r\nc=3\r\n[V]\r\nd=4\r\n"), false);
  ini.SetSection("S");
  std::vector<std::string> names;
  ASSERT_EQ(ini.GetKeys(names), 1);
  EXPECT_THAT(names, ElementsAre("a", "b", "c"));

  // Value lookups end the section at the first "[" of any kind.
  std::string value;
  EXPECT_EQ(ini.GetValue("b", value), 0);
}

TEST_F(IniFileTest, EmptyFileAndFileWithoutLineEndFailToOpen) {
  for (const char* bytes : {"", "[S]a=1"}) {
    const std::string path = Make(bytes);
    CIni quiet(path, false);
    EXPECT_EQ(quiet.LastError(), "Failed to locate a valid CR/LF combination!");

    // The buffer is gone after the failed open.
    quiet.SetSection("S");
    std::string value;
    EXPECT_EQ(quiet.GetValue("a", value), 0);
    EXPECT_EQ(quiet.LastError(), "File buffer is empty!");

    try {
      CIni loud(path, true);
      ADD_FAILURE() << "no exception for " << bytes;
    } catch (const std::string& message) {
      EXPECT_EQ(message, "Failed to locate a valid CR/LF combination!");
    }
  }
}

TEST_F(IniFileTest, MissingFileAndBadPathGiveTheFileLayersCause) {
  const std::string missing = dir_.File("missing.ini");
  try {
    CIni ini(missing, true);
    ADD_FAILURE() << "no exception";
  } catch (const std::string& message) {
    EXPECT_EQ(message, "File I/O error: 2 for file: " + missing);
  }

  const std::string bad_path = dir_.File("no_such_dir/batch.ini");
  CIni ini(bad_path, false);
  EXPECT_EQ(ini.LastError(), "File I/O error: 3 for file: " + bad_path);
  EXPECT_EQ(ini.FileName(), bad_path);
}

TEST_F(IniFileTest, RefusedOpenReportsTheInjectedCause) {
  const std::string path = Make("[S]\r\na=1\r\n", "refused.ini");
  platform::testing::InjectFileFault(path, platform::testing::FileOp::kOpen,
                                     platform::testing::FileFault::kAccessDenied);
  CIni ini(path, false);
  platform::testing::ClearFileFaults();
  EXPECT_EQ(ini.LastError(), "File I/O error: 5 for file: " + path);

  // The same object opens the file once the fault is gone.
  EXPECT_EQ(ini.Open(path), 1);
  EXPECT_EQ(ini.LastError(), "");
}

TEST_F(IniFileTest, SearchesBeforeAnyOpenReportAnEmptyBuffer) {
  CIni ini(dir_.File("absent.ini"), false);
  ini.SetSection("S");
  std::vector<std::string> names{"stale"};
  EXPECT_EQ(ini.GetKeys(names), 0);
  EXPECT_THAT(names, IsEmpty());
  EXPECT_EQ(ini.LastError(), "File buffer is empty!");

  ini.SetThrow(true);
  std::string value;
  try {
    ini.GetValue("a", value);
    ADD_FAILURE() << "no exception";
  } catch (const std::string& message) {
    EXPECT_EQ(message, "File buffer is empty!");
  }
}

TEST_F(IniFileTest, MissingSectionAndMissingValueMessages) {
  const std::string path = Make("[S]\r\na=1\r\n");
  CIni ini(path, false);
  ini.SetSection("T");
  std::vector<std::string> names;
  EXPECT_EQ(ini.GetKeys(names), 0);
  EXPECT_EQ(ini.LastError(), "Section [T] not found in '" + path + "'");

  ini.SetSection("S");
  std::string value;
  EXPECT_EQ(ini.GetValue("c", value), 0);
  EXPECT_EQ(ini.LastError(),
            "Can't find value name 'c' in section '[S]' of ini file '" + path + "'");

  ini.SetThrow(true);
  ini.SetSection("T");
  try {
    ini.GetValue("a", value);
    ADD_FAILURE() << "no exception";
  } catch (const std::string& message) {
    EXPECT_EQ(message, "Section [T] not found in '" + path + "'");
  }
  ini.SetSection("S");
  try {
    ini.GetValue("c", value);
    ADD_FAILURE() << "no exception";
  } catch (const std::string& message) {
    EXPECT_EQ(message, "Can't find value name 'c' in section '[S]' of ini file '" + path + "'");
  }
}

TEST_F(IniFileTest, SectionsAndNamesAreCaseSensitive) {
  CIni ini(Make("[Srv]\r\nKey=1\r\n"), false);
  std::string value;
  ini.SetSection("SRV");
  EXPECT_EQ(ini.GetValue("Key", value), 0);
  ini.SetSection("Srv");
  EXPECT_EQ(ini.GetValue("key", value), 0);
  ASSERT_EQ(ini.GetValue("Key", value), 1);
  EXPECT_EQ(value, "1");
}

TEST_F(IniFileTest, CommentLikeLinesAreNamesAndRepeatedNamesAreListedEachTime) {
  CIni ini(Make("[S]\r\n; x=1\r\nno equals sign here\r\na=1=2\r\na=3\r\n  a =4\r\n"), false);
  ini.SetSection("S");
  std::vector<std::string> names;
  ASSERT_EQ(ini.GetKeys(names), 1);
  EXPECT_THAT(names, ElementsAre("; x", "a", "a", "  a "));

  // The same spelling always finds its first line; the rest of a line after
  // the first "=" belongs to the value.
  std::string value;
  ASSERT_EQ(ini.GetValue("a", value), 1);
  EXPECT_EQ(value, "1=2");
}

TEST_F(IniFileTest, NameMustStartItsLineAndBeFollowedByBlanksAndEquals) {
  CIni ini(Make("[S]\r\nxk=bad\r\nk2=bad\r\n   k   =  good\r\n"), false);
  ini.SetSection("S");
  std::string value;
  ASSERT_EQ(ini.GetValue("k", value), 1);
  EXPECT_EQ(value, "  good");

  CIni plain(Make("[S]\r\nk=v\r\n", "plain.ini"), false);
  plain.SetSection("S");
  ASSERT_EQ(plain.GetValue("k", value), 1);
  EXPECT_EQ(value, "v");

  CIni none(Make("[S]\r\nxk=v\r\nk2=w\r\n", "none.ini"), false);
  none.SetSection("S");
  EXPECT_EQ(none.GetValue("k", value), 0);
}

TEST_F(IniFileTest, RepeatedLookupsFindTheSectionAgainFromEitherDirection) {
  CIni ini(Make("[S]\r\na=1\r\n[T]\r\na=2\r\n"), false);
  std::string value;
  ini.SetSection("S");
  ASSERT_EQ(ini.GetValue("a", value), 1);
  EXPECT_EQ(value, "1");
  // From the stored position of [S] onward.
  ini.SetSection("T");
  ASSERT_EQ(ini.GetValue("a", value), 1);
  EXPECT_EQ(value, "2");
  // [S] lies before the stored position of [T]: found by searching again from the start.
  ini.SetSection("S");
  ASSERT_EQ(ini.GetValue("a", value), 1);
  EXPECT_EQ(value, "1");
  EXPECT_EQ(ini.LastError(), "");
}

TEST_F(IniFileTest, ReopeningReplacesTheBuffer) {
  CIni ini(Make("[S]\r\na=1\r\n", "one.ini"), false);
  ASSERT_EQ(ini.Open(Make("[S]\r\na=2\r\n", "two.ini")), 1);
  ini.SetSection("S");
  std::string value;
  ASSERT_EQ(ini.GetValue("a", value), 1);
  EXPECT_EQ(value, "2");

  // A failed open drops what was loaded before.
  EXPECT_EQ(ini.Open(dir_.File("gone.ini")), 0);
  EXPECT_EQ(ini.GetValue("a", value), 0);
  EXPECT_EQ(ini.LastError(), "File buffer is empty!");
}

char* FailingAllocator(std::size_t) { return nullptr; }

TEST_F(IniFileTest, AllocationFailureIsReportedWithTheByteCount) {
  const std::string bytes = "[S]\r\na=1\r\n";  // 10 bytes, so 11 are asked for
  const std::string path = Make(bytes);
  const CIni::Allocator previous = CIni::SetAllocatorForTesting(&FailingAllocator);
  CIni quiet(path, false);
  std::string thrown;
  try {
    CIni loud(path, true);
  } catch (const std::string& message) {
    thrown = message;
  }
  CIni::SetAllocatorForTesting(previous);

  EXPECT_EQ(quiet.LastError(), "Failed to allocate 11 bytes of memory in 'CIni::Open'!");
  EXPECT_EQ(thrown, "Failed to allocate 11 bytes of memory in 'CIni::Open'!");
  quiet.SetSection("S");
  std::string value;
  EXPECT_EQ(quiet.GetValue("a", value), 0);
  EXPECT_EQ(quiet.LastError(), "File buffer is empty!");

  // With the allocator back the same file loads.
  EXPECT_EQ(quiet.Open(path), 1);
}

TEST_F(IniFileTest, FileWithAZeroByteIsSearchedWhole) {
  using namespace std::string_literals;
  const std::string bytes = "[S]\r\na=x\0y\r\nb=2\r\n"s;
  CIni ini(Make(bytes), false);
  ini.SetSection("S");
  std::string value;
  ASSERT_EQ(ini.GetValue("b", value), 1);
  EXPECT_EQ(value, "2");
  ASSERT_EQ(ini.GetValue("a", value), 1);
  EXPECT_EQ(value, std::string("x\0y", 3));
}

}  // namespace
