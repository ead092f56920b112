// The library's parts that work without a connection: internal tables and registries reached directly
// (so that allocation failures can be injected), and the entry points through the batch server's binding.

#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "sapsim/librfcsim/internal_table.h"
#include "sapsim/librfcsim/structure_registry.h"
#include "sapsim/librfcsim/table_registry.h"
#include "tests/sapsim/support/rfc_library.h"
#include "tests/sapsim/support/sapsim_process.h"
#include "tests/support/polling.h"

namespace rfcsim {
namespace {

int g_budget = 0;  // allocations left before FailingMalloc fails
void* FailingMalloc(size_t size) { return g_budget-- > 0 ? std::malloc(size) : nullptr; }

TEST(InternalTable, GrowsInRunsZeroFilledAndSurvivesFailedAllocations) {
  InternalTable table("T", 1000);  // 65 lines per block
  for (unsigned n = 1; n <= 200; ++n) std::memcpy(table.LineForUpdate(n), &n, sizeof n);
  std::string lines;
  for (const InternalTable::Run& run : table.Runs()) lines.append(reinterpret_cast<char*>(run.data), run.lines * 1000);
  ASSERT_EQ(200u * 1000, lines.size());
  for (unsigned n = 1; n <= 200; ++n) ASSERT_EQ(0, std::memcmp(lines.data() + (n - 1) * 1000, &n, sizeof n)) << n;
  table.Clear();
  EXPECT_TRUE(table.Runs().empty());
  ASSERT_TRUE(table.AppendForWriting(70));
  for (size_t n = 1; n <= 70; ++n) std::memset(table.Line(n), 0xAB, 1000);
  // Growing past written lines gives zero lines, also inside their block.
  ASSERT_NE(nullptr, table.LineForUpdate(72));
  EXPECT_EQ(std::string(1000, '\0'), std::string(reinterpret_cast<const char*>(table.Line(71)), 1000));

  InternalTable limited("T", 1000);
  g_budget = 1;  // one block of 65 lines, then nothing
  const InternalTable::Allocator previous = InternalTable::SetAllocator(&FailingMalloc);
  EXPECT_NE(nullptr, limited.LineForUpdate(65));
  EXPECT_EQ(nullptr, limited.LineForUpdate(66));
  EXPECT_FALSE(limited.AppendForWriting(1000));
  InternalTable::SetAllocator(previous);
  EXPECT_EQ(65u, limited.fill());
  InternalTable huge("T", 1024 * 1024);
  EXPECT_EQ(nullptr, huge.LineForUpdate(static_cast<size_t>(InternalTable::kMaxBytes / (1024 * 1024) + 1)));

  TableRegistry& registry = TableRegistry::Instance();
  TableHandle mine = registry.Create("MINE", 10, 0);
  TableHandle received = registry.Create("RECEIVED", 10, 77);
  EXPECT_TRUE(registry.Free(received));  // emptied, still open
  registry.ReleaseOwner(77);
  ASSERT_NE(nullptr, registry.Find(received));  // the receiver still holds it after the close
  EXPECT_TRUE(registry.Free(received));
  EXPECT_EQ(nullptr, registry.Find(received));  // and lets go of it
  EXPECT_FALSE(registry.Free(received));
  registry.ReleaseOwner(0);  // the tables nobody received stay
  EXPECT_TRUE(registry.Delete(mine));
}

RfcTypeElement Element(const char* name, int type, int length, int decimals = 0) {
  return RfcTypeElement{name, type, length, decimals, 0};
}

TEST(StructureRegistry, LaysOutFieldsAlignedKeepsOldLayoutsAndRefusesTheIndescribable) {
  StructureRegistry& registry = StructureRegistry::Instance();
  RfcTypeElement first[] = {Element("NAME", RFCTYPE_CHAR, 3), Element("PRICE", RFCTYPE_FLOAT, 8),
                            Element("QTY  ", RFCTYPE_INT2, 2), Element("ID", RFCTYPE_INT, 4)};
  RfcTypeHandle old_handle = -1, new_handle = -1;
  std::string error;
  ASSERT_TRUE(registry.Install("ZLINE", first, 4, &old_handle, &error)) << error;
  const auto layout = registry.Find(old_handle);  // trailing blanks are not part of a name
  EXPECT_EQ(testutil::Join(layout->desc.fields[1].offset, layout->desc.fields[2].name, layout->desc.fields[3].offset),
            "8|QTY|20|");
  RfcTypeElement second[] = {Element("NAME", RFCTYPE_CHAR, 30)};
  ASSERT_TRUE(registry.Install("ZLINE", second, 1, &new_handle, &error)) << error;
  EXPECT_EQ(testutil::Join(registry.Find(new_handle)->desc.length, registry.Find(old_handle)->desc.length), "30|24|");
  EXPECT_EQ(nullptr, registry.Find(RFCTYPE_INT));

  RfcTypeElement unknown_type[] = {Element("X", 9999, -1)}, short_int[] = {Element("X", RFCTYPE_INT, 2)},
                 twice[] = {Element("X", RFCTYPE_CHAR, 1), Element("X", RFCTYPE_CHAR, 1)},
                 unnamed[] = {Element(nullptr, RFCTYPE_CHAR, 1)},
                 packed[] = {Element("P", RFCTYPE_BCD, 2, 4)};  // 4 decimals in 3 digits
  const struct {
    const char* name;
    RfcTypeElement* elements;
    unsigned count;
  } cases[] = {{"ZBAD", unknown_type, 1}, {"ZBAD", short_int, 1}, {"ZBAD", twice, 2}, {"ZBAD", unnamed, 1},
               {"ZBAD", packed, 1},       {"", short_int, 1},     {"ZBAD", nullptr, 0}};
  for (const auto& c : cases) {
    RfcTypeHandle handle = -1;
    EXPECT_FALSE(registry.Install(c.name, c.elements, c.count, &handle, &error));
    EXPECT_EQ(-1, handle);
  }
}

}  // namespace
}  // namespace rfcsim

namespace sapsim::testing {
namespace {

TEST(LocalEntryPoints, TablesHandlesStructuresFunctionsAndErrors) {
  ASSERT_TRUE(LoadRfcLibrary(LibraryPath().c_str()));
  const auto last_error_has = [&](const char* part) { return LastError().find(part) != std::string::npos; };
  EXPECT_EQ(nullptr, ItCreate("ZEMPTY", 0, 0, 0));
  EXPECT_TRUE(last_error_has("line length 0"));
  TableHandle table = ItCreate("ZLINES", 16, 0, 0);
  // ItGupLine beyond the fill appends zero lines; earlier lines keep their address.
  auto* first = static_cast<char*>(ItGupLine(table, 1));
  std::memcpy(first, "first line      ", 16);
  ItGupLine(table, 5000);
  EXPECT_EQ(5000u, ItFill(table));
  EXPECT_EQ(first, ItGetLine(table, 1));
  EXPECT_TRUE(!ItGetLine(table, 5001) && !ItGetLine(table, 0) && !ItGupLine(table, 0));
  EXPECT_EQ(RFC_OK, ItFree(table));  // empties; the handle stays good
  EXPECT_EQ(0u, ItFill(table));
  EXPECT_EQ(RFC_OK, ItDelete(table));
  TableHandle successor = ItCreate("ZNEXT", 8, 0, 0);
  EXPECT_NE(table, successor);  // a deleted handle does not come back
  int not_a_table = 0;
  for (TableHandle bad : {table, reinterpret_cast<TableHandle>(&not_a_table), TableHandle{nullptr}}) {
    const bool no_line = ItGetLine(bad, 1) == nullptr && ItGupLine(bad, 1) == nullptr;
    EXPECT_EQ(testutil::Join(no_line, ItFill(bad), ItFree(bad), ItDelete(bad)), "1|0|1|1|");
  }
  EXPECT_TRUE(last_error_has("unknown or deleted table handle"));
  EXPECT_EQ(RFC_OK, ItDelete(successor));

  RfcTypeElement fields[] = {{"NAME", RFCTYPE_CHAR, 10, 0, 0}, {"AMOUNT", RFCTYPE_BCD, 7, 2, 0}};
  RfcTypeHandle handle = -1;
  ASSERT_EQ(RFC_OK, RfcInstallStructure("ZPAY", fields, 2, &handle));
  EXPECT_GE(handle, 0x10000);  // never mistaken for a type code
  RfcTypeElement bad[] = {{"X", 9999, -1, 0, 0}};
  EXPECT_EQ(RFC_FAILURE, RfcInstallStructure("ZBAD", bad, 1, &handle));
  EXPECT_TRUE(last_error_has("structure ZBAD, field X has type 9999"));
  for (const char* name : {"", "   ", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(RFC_FAILURE, RfcInstallFunction(name, nullptr, nullptr));
  }

  // The last error belongs to the thread.
  ItFree(nullptr);
  const std::string here = LastError();
  std::thread([&] { ItCreate("Z", 0, 0, 0); }).join();
  EXPECT_EQ(here, LastError());
  RFC_ERROR_INFO info;
  std::memset(&info, 'x', sizeof info);
  ASSERT_EQ(RFC_OK, RfcLastError(&info));
  EXPECT_STREQ("RFC_ERROR_PROGRAM", info.key);
  EXPECT_NE(nullptr, std::memchr(info.status, '\0', sizeof info.status));
  EXPECT_NE(nullptr, std::memchr(info.intstat, '\0', sizeof info.intstat));
  EXPECT_EQ(100, LastErrorGroup());
  EXPECT_TRUE(RfcLastError(nullptr) == RFC_FAILURE && RfcLastErrorEx(nullptr) == RFC_FAILURE);
}

TEST(LocalEntryPoints, TheLibraryExportsExactlyTheTwentyFourEntryPoints) {
  const testutil::RunResult nm = testutil::RunCommand({"/usr/bin/nm", "-D", "--defined-only", LibraryPath()});
  ASSERT_EQ(0, nm.exit_code) << nm.err;
  std::set<std::string> exported;
  std::istringstream lines(nm.out);
  std::string address, kind, name;
  while (lines >> address >> kind >> name) exported.insert(name);
#define RFCSIM_NAME(result, name, parameters, arguments) #name,
  const std::set<std::string> expected = {RFC_ENTRY_POINTS(RFCSIM_NAME)};
#undef RFCSIM_NAME
  EXPECT_EQ(24u, expected.size());
  EXPECT_EQ(expected, exported);
}

}  // namespace
}  // namespace sapsim::testing
