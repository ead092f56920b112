// The structure description: the layout rule, the kept copies of the field
// records, the installation with the RFC library, and allocation failures.

#include "rfc/function/rfc_struct_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_data.h"
#include "tests/rfc/rfc_test_support.h"

namespace {

using rfc_test::StandInTest;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

// A structure description of its own that records the lengths it is given.
class RecordingStruct : public CRfcStructInfo {
 public:
  explicit RecordingStruct(const char* name) : name_(name) {}
  void SetLength(int nLength) override {
    lengths.push_back(nLength);
    SetTotalLength(nLength);
  }
  const char* GetName() const override { return name_.c_str(); }
  using CRfcStructInfo::FieldInside;

  std::vector<int> lengths;

 private:
  std::string name_;
};

CRfcFieldInfo Field(const char* name, int column, int type, int length, int decimals = 0) {
  CRfcFieldInfo field{};
  std::strncpy(field.name, name, sizeof field.name - 1);
  field.column = column;
  field.offset = -99;  // whatever the caller says, the layout decides
  field.type = type;
  field.length = length;
  field.decimals = decimals;
  return field;
}

TEST(StructLayoutRule, NaturalAlignmentOfFloatIntAndInt2) {
  struct Case {
    std::vector<std::pair<int, int>> fields;  // type, length
    std::vector<int> offsets;
    int total;
  };
  const Case cases[] = {
      {{{TYPE_CHAR, 3}, {TYPE_FLOAT, 8}, {TYPE_INT2, 2}, {TYPE_INT, 4}}, {0, 8, 16, 20}, 24},
      {{{TYPE_CHAR, 1}, {TYPE_INT1, 1}}, {0, 1}, 2},  // nothing aligned: no rounding
      {{{TYPE_BCD, 5}, {TYPE_DATE, 8}, {TYPE_TIME, 6}, {TYPE_NUM, 3}, {TYPE_BYTE, 1}},
       {0, 5, 13, 19, 22}, 23},
      {{{TYPE_CHAR, 3}, {TYPE_INT, 4}, {TYPE_CHAR, 1}}, {0, 4, 8}, 12},
      {{{TYPE_CHAR, 3}, {TYPE_FLOAT, 8}, {TYPE_CHAR, 1}}, {0, 8, 16}, 24},
      {{{TYPE_CHAR, 2}, {9999, -1}, {TYPE_CHAR, 2}}, {0, 2, 2}, 4},  // -1 takes no room
      {{}, {}, 0},
  };
  for (const Case& c : cases) {
    RecordingStruct info("S");
    std::vector<CRfcFieldInfo> fields;
    for (const auto& [type, length] : c.fields) {
      fields.push_back(Field("F", static_cast<int>(fields.size()), type, length));
    }
    info.ComputeLayout(fields.data(), static_cast<int>(fields.size()));
    std::vector<int> offsets;
    for (const CRfcFieldInfo& field : fields) offsets.push_back(field.offset);
    EXPECT_THAT(offsets, ElementsAreArray(c.offsets));
    EXPECT_THAT(info.lengths, ElementsAre(c.total));
  }
  // No record can be longer than a 32-bit length: not within the fields, nor
  // after the last rounding.
  for (const auto& [type, length] : {std::pair{TYPE_CHAR, INT_MAX}, std::pair{TYPE_FLOAT, INT_MAX - 8}}) {
    RecordingStruct info("S");
    CRfcFieldInfo fields[] = {Field("A", 0, type == TYPE_CHAR ? TYPE_CHAR : TYPE_FLOAT, type == TYPE_CHAR ? 1 : 8),
                              Field("B", 1, TYPE_CHAR, length)};
    EXPECT_EQ(rfc_test::Thrown([&] { info.ComputeLayout(fields, 2); }), "Failed to allocate memory!");
  }
}

// Names keep at most 31 characters and lose trailing blanks; none is empty.
TEST(FieldName, IsCutTrimmedAndMeasured) {
  CRfcFieldInfo field{};
  for (const auto& [given, kept] : {std::pair<const char*, std::string>{nullptr, ""}, {"   ", ""}, {"AB  ", "AB"},
                                    {"ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789", "ABCDEFGHIJKLMNOPQRSTUVWXYZ01234"}}) {
    SetFieldName(field, given);
    EXPECT_EQ(std::string(field.name, FieldNameLength(field)), kept);
  }
  std::memset(field.name, 'N', sizeof field.name);  // no terminator at all
  EXPECT_EQ(FieldNameLength(field), sizeof field.name);
}

class StructInfoTest : public StandInTest {};

TEST_F(StructInfoTest, KeepsNormalisedCopiesAndInstallsOnceUnderItsName) {
  RecordingStruct info("MYSTRUCT");
  std::vector<CRfcFieldInfo> fields = {Field("NAME    ", 0, TYPE_CHAR, 3),
                                       Field("WHEN", 1, TYPE_DATE, 99),
                                       Field("COUNT", 2, TYPE_INT, 17),
                                       Field("AMOUNT", 3, TYPE_BCD, 5, 2)};
  info.AddFieldInfo(fields.data(), 4);
  // Laid out with the lengths as given; the caller's offsets are rewritten.
  EXPECT_EQ(fields[2].offset * 1000 + fields[3].offset, 104121);
  fields[0].name[0] = 'X';  // kept are copies, with the fixed lengths
  std::string kept, installed;
  for (int i = -1; i <= 4; ++i) {
    const CRfcFieldInfo* f = info.GetFieldInfo(i);
    kept += f == nullptr ? "- " : std::string(f->name) + " " + std::to_string(f->length) + "/" + std::to_string(f->decimals) + " ";
  }
  EXPECT_EQ(kept, "- NAME 3/0 WHEN 8/0 COUNT 4/0 AMOUNT 5/2 - ");
  ASSERT_EQ(fake().installs.size(), 1u);
  const stand_in::Install& install = fake().installs[0];
  for (const stand_in::Element& e : install.elements) {
    installed += e.name + " " + std::to_string(e.type) + "/" + std::to_string(e.length) + "/" + std::to_string(e.decimals) + " ";
  }
  EXPECT_EQ(install.name + ": " + installed, "MYSTRUCT: NAME 0/3/0 WHEN 1/8/0 COUNT 8/4/0 AMOUNT 2/5/2 ");
  EXPECT_EQ(info.EntryType(), install.handle);
  std::vector<CRfcFieldInfo> more = {Field("C", 4, TYPE_INT, 4)};
  info.AddFieldInfo(more.data(), 1);  // the handle stays: no second installation
  EXPECT_EQ(fake().installs.size(), 1u);
}

TEST_F(StructInfoTest, WhenNoInstallationHappens) {
  fake().install_result = 1;  // refused: passed as BYTE, or as CHAR when character-only
  RecordingStruct refused("REFUSED");
  std::vector<CRfcFieldInfo> one = {Field("A", 0, TYPE_CHAR, 3)};
  refused.AddFieldInfo(one.data(), 1);
  EXPECT_EQ(refused.GetTypeHandle(), CRfcStructInfo::kNoTypeHandle);
  EXPECT_EQ(refused.EntryType(), TYPE_BYTE);
  refused.SetCharacterOnly(1);
  EXPECT_EQ(refused.EntryType(), TYPE_CHAR);
  fake().install_result = 0;
  fake().installs.clear();

  // An adopted handle, or a column left undescribed, installs nothing.
  RecordingStruct adopted("ADOPTED");
  adopted.SetTypeHandle(4711);
  std::vector<CRfcFieldInfo> gap = {Field("A", 0, TYPE_CHAR, 3), Field("C", 2, TYPE_INT, 4)};
  adopted.AddFieldInfo(gap.data(), 2);
  EXPECT_EQ(adopted.GetTypeHandle(), 4711);
  EXPECT_EQ(adopted.GetFieldCount(), 3);
  EXPECT_EQ(adopted.GetFieldInfo(1), nullptr);
  RecordingStruct with_gap("GAP");
  with_gap.AddFieldInfo(gap.data(), 2);
  EXPECT_EQ(with_gap.GetTypeHandle(), CRfcStructInfo::kNoTypeHandle);
  // A record without a column is not kept but still takes its place.
  RecordingStruct dropped("NEG");
  std::vector<CRfcFieldInfo> negative = {Field("A", 0, TYPE_CHAR, 3), Field("B", -1, TYPE_CHAR, 4)};
  dropped.AddFieldInfo(negative.data(), 2);
  EXPECT_EQ(dropped.GetFieldCount(), 1);
  EXPECT_EQ(dropped.GetTotalLength(), 7);
  EXPECT_TRUE(fake().installs.empty());
  RecordingStruct none("NONE");
  none.SetTypeHandle(1);
  none.AddFieldInfo(nullptr, 2);  // no records: none kept, no room taken
  EXPECT_EQ(none.GetFieldCount() + none.GetTotalLength(), 0);
}

TEST_F(StructInfoTest, AllocationFailuresAreReportedWithoutLeaks) {
  struct Case {
    int skip;  // copy of A, storage for A, copy of B, storage for B
    std::vector<std::string> lines;
  };
  const Case cases[] = {
      {2, {"Memory Allocation Failure", "ZTYPE"}},
      {3, {"CRfcList<ObjType>::InitList (int nMaxSize) called", "Memory Allocation Failure"}},
  };
  for (const Case& c : cases) {
    RecordingStruct info("S");
    auto run = rfc_test::RunTraced([&] {
      info.SetTypeName("ZTYPE");
      info.SetTypeHandle(1);
      std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3),
                                           Field("B", 1, TYPE_CHAR, 4)};
      rfc::testing::FailAllocations(c.skip, 1);
      info.AddFieldInfo(fields.data(), 2);
    });
    EXPECT_EQ(run.thrown, "Failed to allocate memory!");
    ASSERT_EQ(run.lines.size(), 4 + c.lines.size()) << c.skip;
    EXPECT_EQ(std::vector<std::string>(run.lines.begin() + 4, run.lines.end()), c.lines);
    EXPECT_EQ(info.GetFieldCount(), 1);  // A stays described
    EXPECT_STREQ(info.GetFieldInfo(0)->name, "A");
  }
}

}  // namespace
