// The library's internal tables and registries, reached directly so that
// allocation failures can be injected and layouts looked at.

#include <cstdlib>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

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

bool AllZero(const uint8_t* line, size_t length) {
  for (size_t i = 0; i < length; ++i) {
    if (line[i] != 0) return false;
  }
  return true;
}

TEST(InternalTable, RunsCoverEveryLineInOrderAndAClearStartsAfresh) {
  InternalTable table("T", 1000);  // 65 lines per block
  for (unsigned n = 1; n <= 200; ++n) {
    uint8_t* line = table.LineForUpdate(n);
    ASSERT_NE(nullptr, line);
    std::memcpy(line, &n, sizeof n);
  }
  unsigned expected = 1;
  for (const InternalTable::Run& run : table.Runs()) {
    for (size_t i = 0; i < run.lines; ++i, ++expected) {
      unsigned n;
      std::memcpy(&n, run.data + i * 1000, sizeof n);
      ASSERT_EQ(expected, n);
    }
  }
  EXPECT_EQ(201u, expected);
  table.Clear();
  EXPECT_EQ(0u, table.fill());
  EXPECT_TRUE(table.Runs().empty());
  ASSERT_NE(nullptr, table.LineForUpdate(1));
  EXPECT_TRUE(AllZero(table.Line(1), 1000));
}

TEST(InternalTable, AllocationFailureLeavesTheTableIntact) {
  InternalTable table("T", 1000);
  AllocatorGuard guard(1);  // one block of 65 lines, then nothing
  ASSERT_NE(nullptr, table.LineForUpdate(65));
  EXPECT_EQ(nullptr, table.LineForUpdate(66));
  EXPECT_EQ(65u, table.fill());
  EXPECT_FALSE(table.Reserve(1));
  EXPECT_FALSE(table.AppendForWriting(1000));
  EXPECT_NE(nullptr, table.Line(65));
}

TEST(InternalTable, LinesAppendedForWritingKeepLaterGrowthZeroFilled) {
  InternalTable table("T", 1000);
  ASSERT_TRUE(table.AppendForWriting(70));
  EXPECT_EQ(70u, table.fill());
  for (size_t n = 1; n <= 70; ++n) std::memset(table.Line(n), 0xAB, 1000);
  // Growing past the written lines gives zero lines, also inside the block
  // the written lines share.
  ASSERT_NE(nullptr, table.LineForUpdate(72));
  EXPECT_TRUE(AllZero(table.Line(71), 1000));
  EXPECT_TRUE(AllZero(table.Line(72), 1000));
}

TEST(InternalTable, RefusesTablesBeyondTheSizeLimit) {
  InternalTable table("T", 1024 * 1024);
  const uint64_t too_many = InternalTable::kMaxBytes / (1024 * 1024) + 1;
  EXPECT_EQ(nullptr, table.LineForUpdate(static_cast<size_t>(too_many)));
  EXPECT_EQ(0u, table.fill());
}

TEST(TableRegistry, ReceivedTablesOutliveTheirConnectionUntilFreed) {
  TableRegistry& registry = TableRegistry::Instance();
  TableHandle mine = registry.Create("MINE", 10, 0);
  TableHandle received = registry.Create("RECEIVED", 10, 77);
  ASSERT_NE(nullptr, mine);
  ASSERT_NE(nullptr, received);
  EXPECT_TRUE(registry.Free(received));  // emptied, still open
  ASSERT_NE(nullptr, registry.Find(received));
  registry.ReleaseOwner(77);
  ASSERT_NE(nullptr, registry.Find(received));  // the receiver still holds it
  EXPECT_TRUE(registry.Free(received));
  EXPECT_EQ(nullptr, registry.Find(received));  // and let go of it
  EXPECT_FALSE(registry.Free(received));
  registry.ReleaseOwner(0);
  EXPECT_TRUE(registry.Free(mine));
  EXPECT_NE(nullptr, registry.Find(mine));
  EXPECT_TRUE(registry.Delete(mine));
}

RfcTypeElement Element(const char* name, int type, int length, int decimals = 0) {
  return RfcTypeElement{name, type, length, decimals, 0};
}

TEST(StructureRegistry, LaysOutFieldsNaturallyAlignedAndKeepsOldLayouts) {
  StructureRegistry& registry = StructureRegistry::Instance();
  RfcTypeElement first[] = {Element("NAME", RFCTYPE_CHAR, 3), Element("PRICE", RFCTYPE_FLOAT, 8),
                            Element("QTY  ", RFCTYPE_INT2, 2), Element("ID", RFCTYPE_INT, 4)};
  RfcTypeHandle old_handle = -1;
  std::string error;
  ASSERT_TRUE(registry.Install("ZLINE", first, 4, &old_handle, &error)) << error;
  auto layout = registry.Find(old_handle);
  ASSERT_NE(nullptr, layout);
  EXPECT_EQ(24u, layout->desc.length);
  EXPECT_EQ(8u, layout->desc.fields[1].offset);
  EXPECT_EQ("QTY", layout->desc.fields[2].name);  // trailing blanks are not part of a name
  EXPECT_EQ(20u, layout->desc.fields[3].offset);

  RfcTypeElement second[] = {Element("NAME", RFCTYPE_CHAR, 30)};
  RfcTypeHandle new_handle = -1;
  ASSERT_TRUE(registry.Install("ZLINE", second, 1, &new_handle, &error)) << error;
  EXPECT_EQ(30u, registry.Find(new_handle)->desc.length);
  EXPECT_EQ(24u, registry.Find(old_handle)->desc.length);
  EXPECT_EQ(nullptr, registry.Find(RFCTYPE_INT));
  EXPECT_EQ(nullptr, registry.Find(new_handle + 1000));
}

TEST(StructureRegistry, RefusesFieldsItCannotDescribe) {
  RfcTypeElement unknown_type[] = {Element("X", 9999, -1)};
  RfcTypeElement short_int[] = {Element("X", RFCTYPE_INT, 2)};
  RfcTypeElement twice[] = {Element("X", RFCTYPE_CHAR, 1), Element("X", RFCTYPE_CHAR, 1)};
  RfcTypeElement unnamed[] = {Element(nullptr, RFCTYPE_CHAR, 1)};
  RfcTypeElement packed[] = {Element("P", RFCTYPE_BCD, 2, 4)};  // 4 decimals in 3 digits
  const struct {
    const char* name;
    RfcTypeElement* elements;
    unsigned count;
  } cases[] = {{"ZBAD", unknown_type, 1}, {"ZBAD", short_int, 1}, {"ZBAD", twice, 2}, {"ZBAD", unnamed, 1},
               {"ZBAD", packed, 1},       {"", short_int, 1},     {"ZBAD", nullptr, 0}};
  for (const auto& c : cases) {
    RfcTypeHandle handle = -1;
    std::string error;
    EXPECT_FALSE(StructureRegistry::Instance().Install(c.name, c.elements, c.count, &handle, &error));
    EXPECT_EQ(-1, handle);
    EXPECT_FALSE(error.empty());
  }
}

}  // namespace
}  // namespace rfcsim
