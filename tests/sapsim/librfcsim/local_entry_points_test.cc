// The entry points that work without a connection, reached through dlopen
// exactly as the batch server reaches them.

#include <cstring>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "tests/sapsim/support/rfc_library.h"
#include "tests/sapsim/support/sapsim_process.h"

namespace sapsim::testing {
namespace {

class LocalEntryPoints : public ::testing::Test {
 protected:
  const RfcLibrary& lib = RfcLibrary::Get();
};

TEST_F(LocalEntryPoints, InternalTableLifecycle) {
  TableHandle table = lib.ItCreate("ZLINES", 16, 0, 0);
  ASSERT_NE(nullptr, table);
  EXPECT_EQ(0u, lib.ItFill(table));
  EXPECT_EQ(nullptr, lib.ItGetLine(table, 1));

  // ItGupLine beyond the fill appends zero-filled lines up to the one asked for.
  auto* third = static_cast<char*>(lib.ItGupLine(table, 3));
  ASSERT_NE(nullptr, third);
  EXPECT_EQ(3u, lib.ItFill(table));
  std::memcpy(third, "third line      ", 16);
  auto* first = static_cast<const char*>(lib.ItGetLine(table, 1));
  ASSERT_NE(nullptr, first);
  EXPECT_EQ(std::string(16, '\0'), std::string(first, 16));
  EXPECT_EQ(third, lib.ItGetLine(table, 3));
  EXPECT_EQ(third, lib.ItGupLine(table, 3));  // an existing line is returned for update
  EXPECT_EQ(nullptr, lib.ItGetLine(table, 4));
  EXPECT_EQ(nullptr, lib.ItGetLine(table, 0));
  EXPECT_EQ(nullptr, lib.ItGupLine(table, 0));

  // ItFree empties, the handle stays good; ItDelete destroys.
  EXPECT_EQ(RFC_OK, lib.ItFree(table));
  EXPECT_EQ(0u, lib.ItFill(table));
  EXPECT_NE(nullptr, lib.ItGupLine(table, 1));
  EXPECT_EQ(RFC_OK, lib.ItDelete(table));
}

TEST_F(LocalEntryPoints, StaleAndForeignHandlesAreRecognised) {
  TableHandle table = lib.ItCreate("ZGONE", 8, 0, 0);
  ASSERT_NE(nullptr, table);
  ASSERT_NE(nullptr, lib.ItGupLine(table, 1));
  ASSERT_EQ(RFC_OK, lib.ItDelete(table));
  TableHandle successor = lib.ItCreate("ZNEXT", 8, 0, 0);
  EXPECT_NE(table, successor);  // the old handle does not come back

  EXPECT_EQ(nullptr, lib.ItGetLine(table, 1));
  EXPECT_EQ(nullptr, lib.ItGupLine(table, 1));
  EXPECT_EQ(0u, lib.ItFill(table));
  EXPECT_EQ(RFC_FAILURE, lib.ItFree(table));
  EXPECT_EQ(RFC_FAILURE, lib.ItDelete(table));
  EXPECT_NE(std::string::npos, lib.LastError().find("unknown or deleted table handle"));

  // A pointer that was never a handle (here: the address of a local) is
  // looked up, not dereferenced.
  int not_a_table = 0;
  auto foreign = reinterpret_cast<TableHandle>(&not_a_table);
  EXPECT_EQ(nullptr, lib.ItGetLine(foreign, 1));
  EXPECT_EQ(RFC_FAILURE, lib.ItFree(foreign));
  EXPECT_EQ(RFC_FAILURE, lib.ItFree(nullptr));
  EXPECT_EQ(RFC_OK, lib.ItDelete(successor));
}

TEST_F(LocalEntryPoints, ItCreateRefusesAnEmptyLine) {
  EXPECT_EQ(nullptr, lib.ItCreate("ZEMPTY", 0, 0, 0));
  EXPECT_NE(std::string::npos, lib.LastError().find("line length 0"));
}

TEST_F(LocalEntryPoints, InstalledStructuresGetHandlesBeyondTheTypeCodes) {
  RfcTypeElement fields[] = {{"NAME", RFCTYPE_CHAR, 10, 0, 0}, {"AMOUNT", RFCTYPE_BCD, 7, 2, 0}};
  RfcTypeHandle handle = -1;
  ASSERT_EQ(RFC_OK, lib.RfcInstallStructure("ZPAY", fields, 2, &handle));
  EXPECT_GT(handle, RFCTYPE_INT1);
  RfcTypeHandle again = -1;
  ASSERT_EQ(RFC_OK, lib.RfcInstallStructure("ZPAY", fields, 2, &again));
  EXPECT_NE(handle, again);

  RfcTypeElement bad[] = {{"X", 9999, -1, 0, 0}};
  RfcTypeHandle unchanged = -1;
  EXPECT_EQ(RFC_FAILURE, lib.RfcInstallStructure("ZBAD", bad, 1, &unchanged));
  EXPECT_EQ(-1, unchanged);
  EXPECT_NE(std::string::npos, lib.LastError().find("structure ZBAD, field X has type 9999"));
}

TEST_F(LocalEntryPoints, InstallFunctionNeedsAName) {
  EXPECT_EQ(RFC_OK, lib.RfcInstallFunction("Z_ONLY_KNOWN", nullptr, "documentation"));
  EXPECT_EQ(RFC_FAILURE, lib.RfcInstallFunction("", nullptr, nullptr));
  EXPECT_EQ(RFC_FAILURE, lib.RfcInstallFunction(nullptr, nullptr, nullptr));
}

TEST_F(LocalEntryPoints, LastErrorBelongsToTheThread) {
  lib.ItFree(nullptr);  // fails on this thread
  std::string here = lib.LastError();
  EXPECT_NE(std::string::npos, here.find("ItFree"));
  std::string there;
  std::thread other([&] {
    EXPECT_EQ(nullptr, lib.ItCreate("Z", 0, 0, 0));
    there = lib.LastError();
  });
  other.join();
  EXPECT_NE(std::string::npos, there.find("ItCreate"));
  EXPECT_EQ(here, lib.LastError());

  RFC_ERROR_INFO info;
  std::memset(&info, 'x', sizeof info);
  ASSERT_EQ(RFC_OK, lib.RfcLastError(&info));
  EXPECT_STREQ("RFC_ERROR_PROGRAM", info.key);
  EXPECT_NE(nullptr, std::memchr(info.status, '\0', sizeof info.status));
  EXPECT_NE(nullptr, std::memchr(info.intstat, '\0', sizeof info.intstat));
  ErrorInfoEx ex;
  ASSERT_EQ(RFC_OK, lib.RfcLastErrorEx(&ex));
  EXPECT_EQ(100, ex.group);
  EXPECT_EQ(RFC_FAILURE, lib.RfcLastError(nullptr));
  EXPECT_EQ(RFC_FAILURE, lib.RfcLastErrorEx(nullptr));
}

}  // namespace
}  // namespace sapsim::testing

namespace sapsim::testing {
namespace {

TEST(LibraryExports, ExactlyTheTwentyFourEntryPoints) {
  RunResult nm = RunCommand({"/usr/bin/nm", "-D", "--defined-only", LibraryPath()});
  ASSERT_EQ(0, nm.exit_code) << nm.err;
  std::set<std::string> exported;
  std::istringstream lines(nm.out);
  std::string address, kind, name;
  while (lines >> address >> kind >> name) exported.insert(name);
  std::set<std::string> expected = {
      "RfcOpen", "RfcAccept", "RfcClose", "RfcCall", "RfcReceive", "RfcInstallStructure", "RfcInstallFunction",
      "RfcListen", "RfcDispatch", "RfcGetName", "RfcGetData", "RfcSendData", "RfcRaise", "RfcGetAttributes",
      "RfcLastError", "RfcLastErrorEx", "ItCreate", "ItFree", "ItDelete", "ItFill", "ItGetLine", "ItGupLine",
      "RfcCheckRegisterServer", "RfcCancelRegisterServer"};
  EXPECT_EQ(expected, exported);
}

}  // namespace
}  // namespace sapsim::testing
