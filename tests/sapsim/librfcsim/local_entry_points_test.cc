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
  bool LastErrorHas(const std::string& part) const { return lib.LastError().find(part) != std::string::npos; }
  const RfcLibrary& lib = RfcLibrary::Get();
};

TEST_F(LocalEntryPoints, InternalTableLifecycle) {
  EXPECT_EQ(nullptr, lib.ItCreate("ZEMPTY", 0, 0, 0));
  EXPECT_TRUE(LastErrorHas("line length 0"));
  TableHandle table = lib.ItCreate("ZLINES", 16, 0, 0);
  ASSERT_NE(nullptr, table);
  EXPECT_EQ(0u, lib.ItFill(table));
  EXPECT_EQ(nullptr, lib.ItGetLine(table, 1));

  // ItGupLine beyond the fill appends zero-filled lines up to the one asked
  // for, many blocks on; earlier lines keep their address.
  auto* first = static_cast<char*>(lib.ItGupLine(table, 1));
  ASSERT_NE(nullptr, first);
  std::memcpy(first, "first line      ", 16);
  auto* far = static_cast<char*>(lib.ItGupLine(table, 5000));
  ASSERT_NE(nullptr, far);
  EXPECT_EQ(5000u, lib.ItFill(table));
  EXPECT_EQ(first, lib.ItGetLine(table, 1));
  EXPECT_EQ("first line      ", std::string(first, 16));
  EXPECT_EQ(std::string(16, '\0'), std::string(static_cast<const char*>(lib.ItGetLine(table, 2500)), 16));
  EXPECT_EQ(far, lib.ItGupLine(table, 5000));  // an existing line is returned for update
  EXPECT_EQ(nullptr, lib.ItGetLine(table, 5001));
  EXPECT_EQ(nullptr, lib.ItGetLine(table, 0));
  EXPECT_EQ(nullptr, lib.ItGupLine(table, 0));

  // ItFree empties, the handle stays good; ItDelete destroys.
  EXPECT_EQ(RFC_OK, lib.ItFree(table));
  EXPECT_EQ(0u, lib.ItFill(table));
  EXPECT_NE(nullptr, lib.ItGupLine(table, 1));
  EXPECT_EQ(RFC_OK, lib.ItDelete(table));
}

TEST_F(LocalEntryPoints, StaleAndForeignHandlesAreLookedUpNotDereferenced) {
  TableHandle table = lib.ItCreate("ZGONE", 8, 0, 0);
  ASSERT_NE(nullptr, lib.ItGupLine(table, 1));
  ASSERT_EQ(RFC_OK, lib.ItDelete(table));
  TableHandle successor = lib.ItCreate("ZNEXT", 8, 0, 0);
  EXPECT_NE(table, successor);  // the old handle does not come back
  int not_a_table = 0;
  for (TableHandle bad : {table, reinterpret_cast<TableHandle>(&not_a_table), TableHandle{nullptr}}) {
    EXPECT_EQ(nullptr, lib.ItGetLine(bad, 1));
    EXPECT_EQ(nullptr, lib.ItGupLine(bad, 1));
    EXPECT_EQ(0u, lib.ItFill(bad));
    EXPECT_EQ(RFC_FAILURE, lib.ItFree(bad));
    EXPECT_EQ(RFC_FAILURE, lib.ItDelete(bad));
  }
  EXPECT_TRUE(LastErrorHas("unknown or deleted table handle"));
  EXPECT_EQ(RFC_OK, lib.ItDelete(successor));
}

TEST_F(LocalEntryPoints, InstalledStructuresAndFunctions) {
  RfcTypeElement fields[] = {{"NAME", RFCTYPE_CHAR, 10, 0, 0}, {"AMOUNT", RFCTYPE_BCD, 7, 2, 0}};
  RfcTypeHandle handle = -1, again = -1;
  ASSERT_EQ(RFC_OK, lib.RfcInstallStructure("ZPAY", fields, 2, &handle));
  EXPECT_GE(handle, 0x10000);  // never mistaken for a type code
  ASSERT_EQ(RFC_OK, lib.RfcInstallStructure("ZPAY", fields, 2, &again));
  EXPECT_NE(handle, again);
  RfcTypeElement bad[] = {{"X", 9999, -1, 0, 0}};
  RfcTypeHandle unchanged = -1;
  EXPECT_EQ(RFC_FAILURE, lib.RfcInstallStructure("ZBAD", bad, 1, &unchanged));
  EXPECT_EQ(-1, unchanged);
  EXPECT_TRUE(LastErrorHas("structure ZBAD, field X has type 9999"));

  EXPECT_EQ(RFC_OK, lib.RfcInstallFunction("Z_ONLY_KNOWN", nullptr, "documentation"));
  EXPECT_EQ(RFC_FAILURE, lib.RfcInstallFunction("", nullptr, nullptr));
  EXPECT_EQ(RFC_FAILURE, lib.RfcInstallFunction("   ", nullptr, nullptr));
  EXPECT_EQ(RFC_FAILURE, lib.RfcInstallFunction(nullptr, nullptr, nullptr));
}

TEST_F(LocalEntryPoints, LastErrorBelongsToTheThread) {
  lib.ItFree(nullptr);  // fails on this thread
  const std::string here = lib.LastError();
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

TEST(LibraryExports, ExactlyTheTwentyFourEntryPoints) {
  const RunResult nm = RunCommand({"/usr/bin/nm", "-D", "--defined-only", LibraryPath()});
  ASSERT_EQ(0, nm.exit_code) << nm.err;
  std::set<std::string> exported;
  std::istringstream lines(nm.out);
  std::string address, kind, name;
  while (lines >> address >> kind >> name) exported.insert(name);
#define RFCSIM_NAME(name) #name,
  const std::set<std::string> expected = {RFCSIM_ENTRY_POINTS(RFCSIM_NAME)};
#undef RFCSIM_NAME
  EXPECT_EQ(24u, expected.size());
  EXPECT_EQ(expected, exported);
}

}  // namespace
}  // namespace sapsim::testing
