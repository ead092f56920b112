// The library's internal tables and registries, reached directly so that
// allocation failures can be injected.

#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "sapsim/librfcsim/function_registry.h"
#include "sapsim/librfcsim/internal_table.h"
#include "sapsim/librfcsim/structure_registry.h"
#include "sapsim/librfcsim/table_registry.h"

namespace rfcsim {
namespace {

// Fails every allocation after the first `budget` ones.
int g_budget = 0;
void* FailingMalloc(size_t size) {
  if (g_budget <= 0) return nullptr;
  --g_budget;
  return std::malloc(size);
}

class AllocatorGuard {
 public:
  explicit AllocatorGuard(int budget) {
    g_budget = budget;
    previous_ = InternalTable::SetAllocator(&FailingMalloc);
  }
  ~AllocatorGuard() { InternalTable::SetAllocator(previous_); }

 private:
  InternalTable::Allocator previous_;
};

TEST(InternalTable, LinesKeepTheirAddressWhileTheTableGrows) {
  InternalTable table("T", 100);
  uint8_t* first = table.LineForUpdate(1);
  ASSERT_NE(nullptr, first);
  std::memcpy(first, "first", 5);
  uint8_t* far = table.LineForUpdate(5000);  // many blocks later
  ASSERT_NE(nullptr, far);
  EXPECT_EQ(5000u, table.fill());
  EXPECT_EQ(first, table.Line(1));
  EXPECT_EQ(0, std::memcmp(table.Line(1), "first", 5));
  // Lines in between were created zero-filled.
  const uint8_t* middle = table.Line(2500);
  ASSERT_NE(nullptr, middle);
  for (size_t i = 0; i < 100; ++i) ASSERT_EQ(0, middle[i]);
  EXPECT_EQ(nullptr, table.Line(0));
  EXPECT_EQ(nullptr, table.Line(5001));
  EXPECT_EQ(nullptr, table.LineForUpdate(0));
}

TEST(InternalTable, RunsCoverEveryLineInOrder) {
  InternalTable table("T", 1000);  // 65 lines per block
  for (unsigned n = 1; n <= 200; ++n) {
    uint8_t* line = table.LineForUpdate(n);
    ASSERT_NE(nullptr, line);
    std::memcpy(line, &n, sizeof n);
  }
  unsigned expected = 1;
  for (const InternalTable::Run& run : table.Runs()) {
    for (size_t i = 0; i < run.lines; ++i) {
      unsigned n;
      std::memcpy(&n, run.data + i * 1000, sizeof n);
      ASSERT_EQ(expected, n);
      ++expected;
    }
  }
  EXPECT_EQ(201u, expected);
  table.Clear();
  EXPECT_EQ(0u, table.fill());
  EXPECT_TRUE(table.Runs().empty());
  // Lines after a clear are fresh zero bytes again.
  uint8_t* again = table.LineForUpdate(1);
  ASSERT_NE(nullptr, again);
  EXPECT_EQ(0, again[0]);
}

TEST(InternalTable, AllocationFailureLeavesTheTableIntact) {
  InternalTable table("T", 1000);
  AllocatorGuard guard(1);  // one block of 65 lines, then nothing
  ASSERT_NE(nullptr, table.LineForUpdate(65));
  EXPECT_EQ(nullptr, table.LineForUpdate(66));
  EXPECT_EQ(65u, table.fill());
  EXPECT_FALSE(table.Reserve(1));
  EXPECT_NE(nullptr, table.Line(65));
}

TEST(InternalTable, LinesAppendedForWritingKeepLaterGrowthZeroFilled) {
  InternalTable table("T", 1000);  // 65 lines per block
  ASSERT_TRUE(table.AppendForWriting(70));
  EXPECT_EQ(70u, table.fill());
  for (size_t n = 1; n <= 70; ++n) std::memset(table.Line(n), 0xAB, 1000);
  // Growing by update past the written lines gives zero lines, also inside
  // the block the written lines share.
  uint8_t* next = table.LineForUpdate(72);
  ASSERT_NE(nullptr, next);
  for (size_t n = 71; n <= 72; ++n) {
    const uint8_t* line = table.Line(n);
    for (size_t i = 0; i < 1000; ++i) ASSERT_EQ(0, line[i]) << "line " << n;
  }
  AllocatorGuard guard(0);
  EXPECT_FALSE(table.AppendForWriting(1000));
}

TEST(InternalTable, RefusesTablesBeyondTheSizeLimit) {
  InternalTable table("T", 1024 * 1024);
  uint64_t too_many = InternalTable::kMaxBytes / (1024 * 1024) + 1;
  EXPECT_EQ(nullptr, table.LineForUpdate(static_cast<size_t>(too_many)));
  EXPECT_EQ(0u, table.fill());
}

TEST(TableRegistry, HandlesAreNeverReusedAndConnectionTablesGoWithTheirConnection) {
  TableRegistry& registry = TableRegistry::Instance();
  TableHandle mine = registry.Create("MINE", 10, 0);
  TableHandle received = registry.Create("RECEIVED", 10, 77);
  ASSERT_NE(nullptr, mine);
  ASSERT_NE(nullptr, received);
  EXPECT_NE(mine, received);
  EXPECT_TRUE(registry.Delete(mine));
  EXPECT_FALSE(registry.Delete(mine));
  EXPECT_EQ(nullptr, registry.Find(mine));
  TableHandle next = registry.Create("NEXT", 10, 0);
  EXPECT_NE(mine, next);
  registry.DeleteOwnedBy(77);
  EXPECT_EQ(nullptr, registry.Find(received));
  EXPECT_NE(nullptr, registry.Find(next));
  EXPECT_TRUE(registry.Delete(next));
}

RfcTypeElement Element(const char* name, int type, int length, int decimals = 0) {
  return RfcTypeElement{name, type, length, decimals, 0};
}

TEST(StructureRegistry, LaysOutFieldsAndKeepsOldHandlesValid) {
  StructureRegistry& registry = StructureRegistry::Instance();
  RfcTypeElement first[] = {Element("NAME", RFCTYPE_CHAR, 3), Element("PRICE", RFCTYPE_FLOAT, 8),
                            Element("QTY  ", RFCTYPE_INT2, 2), Element("ID", RFCTYPE_INT, 4)};
  RfcTypeHandle old_handle = -1;
  std::string error;
  ASSERT_TRUE(registry.Install("ZLINE", first, 4, &old_handle, &error)) << error;
  EXPECT_GE(old_handle, StructureRegistry::kFirstHandle);
  auto layout = registry.Find(old_handle);
  ASSERT_NE(nullptr, layout);
  EXPECT_EQ(24u, layout->desc.length);
  EXPECT_EQ(8u, layout->desc.fields[1].offset);
  EXPECT_EQ("QTY", layout->desc.fields[2].name);  // trailing blanks are not part of a name
  EXPECT_EQ(20u, layout->desc.fields[3].offset);

  RfcTypeElement second[] = {Element("NAME", RFCTYPE_CHAR, 30)};
  RfcTypeHandle new_handle = -1;
  ASSERT_TRUE(registry.Install("ZLINE", second, 1, &new_handle, &error)) << error;
  EXPECT_NE(old_handle, new_handle);
  EXPECT_EQ(30u, registry.Find(new_handle)->desc.length);
  EXPECT_EQ(24u, registry.Find(old_handle)->desc.length);
  EXPECT_EQ(nullptr, registry.Find(RFCTYPE_INT));
  EXPECT_EQ(nullptr, registry.Find(new_handle + 1000));
}

TEST(StructureRegistry, RefusesFieldsItCannotDescribe) {
  StructureRegistry& registry = StructureRegistry::Instance();
  RfcTypeHandle handle = -1;
  std::string error;
  RfcTypeElement unknown_type[] = {Element("X", 9999, -1)};
  EXPECT_FALSE(registry.Install("ZBAD", unknown_type, 1, &handle, &error));
  EXPECT_NE(std::string::npos, error.find("field X has type 9999"));
  RfcTypeElement short_int[] = {Element("X", RFCTYPE_INT, 2)};
  EXPECT_FALSE(registry.Install("ZBAD", short_int, 1, &handle, &error));
  RfcTypeElement twice[] = {Element("X", RFCTYPE_CHAR, 1), Element("X", RFCTYPE_CHAR, 1)};
  EXPECT_FALSE(registry.Install("ZBAD", twice, 2, &handle, &error));
  RfcTypeElement unnamed[] = {Element(nullptr, RFCTYPE_CHAR, 1)};
  EXPECT_FALSE(registry.Install("ZBAD", unnamed, 1, &handle, &error));
  RfcTypeElement packed[] = {Element("P", RFCTYPE_BCD, 2, 4)};
  EXPECT_FALSE(registry.Install("ZBAD", packed, 1, &handle, &error));
  EXPECT_FALSE(registry.Install("", short_int, 1, &handle, &error));
  EXPECT_FALSE(registry.Install("ZBAD", nullptr, 0, &handle, &error));
  EXPECT_EQ(-1, handle);
}

int ServeA(ConnectionHandle) { return 1; }
int ServeAll(ConnectionHandle) { return 2; }

TEST(FunctionRegistry, NamesWithoutAFunctionGoToTheCatchAll) {
  FunctionRegistry& registry = FunctionRegistry::Instance();
  EXPECT_TRUE(registry.Install("Z_A", &ServeA, "docs"));
  EXPECT_TRUE(registry.Install("Z_KNOWN_ONLY", nullptr, nullptr));
  EXPECT_FALSE(registry.Install("   ", &ServeA, nullptr));
  EXPECT_FALSE(registry.Install(nullptr, &ServeA, nullptr));
  EXPECT_EQ(nullptr, registry.Resolve("Z_KNOWN_ONLY"));  // no catch-all yet
  EXPECT_TRUE(registry.Install(RFC_GLOBAL_SERVER_NAME, &ServeAll, nullptr));
  EXPECT_EQ(&ServeA, registry.Resolve("Z_A  "));
  EXPECT_EQ(&ServeAll, registry.Resolve("Z_KNOWN_ONLY"));
  EXPECT_EQ(&ServeAll, registry.Resolve("Z_NEVER_HEARD_OF"));
}

}  // namespace
}  // namespace rfcsim
