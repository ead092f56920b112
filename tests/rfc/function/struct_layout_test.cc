// The structure description: the layout rule, the kept copies of the field
// records, and the installation with the RFC library.

#include "rfc/function/rfc_struct_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_data.h"
#include "tests/rfc/function/fake_library_fixture.h"
#include "tests/rfc/trace_capture.h"

namespace {

using rfc_function_test::FakeLibraryTest;
using ::testing::ElementsAre;

// A structure description of its own, that records the lengths it is given.
class RecordingStruct : public CRfcStructInfo {
 public:
  explicit RecordingStruct(const char* name) : name_(name) {}
  ~RecordingStruct() override = default;
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

std::vector<int> Offsets(const std::vector<CRfcFieldInfo>& fields) {
  std::vector<int> offsets;
  for (const CRfcFieldInfo& field : fields) offsets.push_back(field.offset);
  return offsets;
}

TEST(StructLayoutRule, AlignsFloatIntAndInt2AndRoundsTheTotal) {
  RecordingStruct info("S");
  std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3), Field("B", 1, TYPE_FLOAT, 8),
                                       Field("C", 2, TYPE_INT2, 2), Field("D", 3, TYPE_INT, 4)};
  info.ComputeLayout(fields.data(), static_cast<int>(fields.size()));
  EXPECT_THAT(Offsets(fields), ElementsAre(0, 8, 16, 20));
  EXPECT_THAT(info.lengths, ElementsAre(24));
}

TEST(StructLayoutRule, UnalignedTypesAreNotRounded) {
  RecordingStruct info("S");
  std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 1), Field("B", 1, TYPE_INT1, 1)};
  info.ComputeLayout(fields.data(), 2);
  EXPECT_THAT(Offsets(fields), ElementsAre(0, 1));
  EXPECT_THAT(info.lengths, ElementsAre(2));

  // Every unaligned type packs without gaps.
  std::vector<CRfcFieldInfo> packed = {Field("A", 0, TYPE_BCD, 5), Field("B", 1, TYPE_DATE, 8),
                                       Field("C", 2, TYPE_TIME, 6), Field("D", 3, TYPE_NUM, 3),
                                       Field("E", 4, TYPE_BYTE, 1)};
  info.ComputeLayout(packed.data(), 5);
  EXPECT_THAT(Offsets(packed), ElementsAre(0, 5, 13, 19, 22));
  EXPECT_EQ(info.lengths.back(), 23);
}

TEST(StructLayoutRule, TheLargestAlignmentRoundsTheLine) {
  RecordingStruct info("S");
  // INT after 3 bytes: offset 4; one trailing byte rounds the line to 12.
  std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3), Field("B", 1, TYPE_INT, 4),
                                       Field("C", 2, TYPE_CHAR, 1)};
  info.ComputeLayout(fields.data(), 3);
  EXPECT_THAT(Offsets(fields), ElementsAre(0, 4, 8));
  EXPECT_EQ(info.lengths.back(), 12);

  // FLOAT after a 3-byte CHAR lands on 8 and makes the line a multiple of 8.
  std::vector<CRfcFieldInfo> with_float = {Field("A", 0, TYPE_CHAR, 3),
                                           Field("F", 1, TYPE_FLOAT, 8),
                                           Field("Z", 2, TYPE_CHAR, 1)};
  info.ComputeLayout(with_float.data(), 3);
  EXPECT_EQ(with_float[1].offset, 8);
  EXPECT_EQ(info.lengths.back(), 24);
}

TEST(StructLayoutRule, ANegativeLengthTakesNoRoomAndNothingGivesZero) {
  RecordingStruct info("S");
  std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 2), Field("U", 1, 9999, -1),
                                       Field("B", 2, TYPE_CHAR, 2)};
  info.ComputeLayout(fields.data(), 3);
  EXPECT_THAT(Offsets(fields), ElementsAre(0, 2, 2));
  EXPECT_EQ(info.lengths.back(), 4);

  info.ComputeLayout(nullptr, 0);
  EXPECT_EQ(info.lengths.back(), 0);
}

class StructInfoTest : public FakeLibraryTest {};

TEST_F(StructInfoTest, AddFieldInfoKeepsNormalisedCopiesAndRewritesTheCallersOffsets) {
  RecordingStruct info("MYSTRUCT");
  std::vector<CRfcFieldInfo> fields = {Field("NAME    ", 0, TYPE_CHAR, 3),
                                       Field("WHEN", 1, TYPE_DATE, 99),
                                       Field("COUNT", 2, TYPE_INT, 17),
                                       Field("AMOUNT", 3, TYPE_BCD, 5, 2)};
  info.AddFieldInfo(fields.data(), 4);

  EXPECT_THAT(Offsets(fields), ElementsAre(0, 3, 104, 121));  // laid out with the given lengths
  EXPECT_EQ(info.GetFieldCount(), 4);
  ASSERT_NE(info.GetFieldInfo(0), nullptr);
  EXPECT_STREQ(info.GetFieldInfo(0)->name, "NAME");
  EXPECT_EQ(info.GetFieldInfo(1)->length, 8);   // DATE is always 8
  EXPECT_EQ(info.GetFieldInfo(2)->length, 4);   // INT is always 4
  EXPECT_EQ(info.GetFieldInfo(3)->length, 5);   // BCD keeps its length
  EXPECT_EQ(info.GetFieldInfo(3)->decimals, 2);
  EXPECT_EQ(info.GetFieldInfo(2)->offset, 104);
  // The records are copies: the caller's array is its own.
  fields[0].name[0] = 'X';
  EXPECT_STREQ(info.GetFieldInfo(0)->name, "NAME");
  EXPECT_EQ(info.GetFieldInfo(-1), nullptr);
  EXPECT_EQ(info.GetFieldInfo(4), nullptr);
}

TEST_F(StructInfoTest, InstallsUnderItsNameOnceAndPassesAsTheHandle) {
  RecordingStruct info("MYSTRUCT");
  std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3), Field("B", 1, TYPE_FLOAT, 8)};
  info.AddFieldInfo(fields.data(), 2);

  ASSERT_EQ(fake().installs.size(), 1u);
  const fake_rfc::Install& install = fake().installs[0];
  EXPECT_EQ(install.name, "MYSTRUCT");
  ASSERT_EQ(install.elements.size(), 2u);
  EXPECT_EQ(install.elements[0].name, "A");
  EXPECT_EQ(install.elements[0].type, TYPE_CHAR);
  EXPECT_EQ(install.elements[0].length, 3);
  EXPECT_EQ(install.elements[1].name, "B");
  EXPECT_EQ(install.elements[1].type, TYPE_FLOAT);
  EXPECT_EQ(info.GetTypeHandle(), install.handle);
  EXPECT_EQ(info.EntryType(), install.handle);

  // More fields later: the handle is kept, no second installation.
  std::vector<CRfcFieldInfo> more = {Field("C", 2, TYPE_INT, 4)};
  info.AddFieldInfo(more.data(), 1);
  EXPECT_EQ(fake().installs.size(), 1u);
}

TEST_F(StructInfoTest, AFailedInstallationLeavesRawBytesOrCharacters) {
  fake().install_result = 1;
  RecordingStruct info("MYSTRUCT");
  std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3)};
  info.AddFieldInfo(fields.data(), 1);
  EXPECT_EQ(fake().installs.size(), 1u);
  EXPECT_EQ(info.GetTypeHandle(), CRfcStructInfo::kNoTypeHandle);
  EXPECT_EQ(info.EntryType(), TYPE_BYTE);
  info.SetCharacterOnly(1);
  EXPECT_EQ(info.EntryType(), TYPE_CHAR);
}

TEST_F(StructInfoTest, AnAdoptedHandleMeansNoInstallationAndLeavesGaps) {
  RecordingStruct info("MYSTRUCT");
  info.SetTypeHandle(4711);
  std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3), Field("C", 2, TYPE_INT, 4)};
  info.AddFieldInfo(fields.data(), 2);
  EXPECT_TRUE(fake().installs.empty());
  EXPECT_EQ(info.GetTypeHandle(), 4711);
  EXPECT_EQ(info.GetFieldCount(), 3);
  EXPECT_NE(info.GetFieldInfo(0), nullptr);
  EXPECT_EQ(info.GetFieldInfo(1), nullptr);
  EXPECT_NE(info.GetFieldInfo(2), nullptr);
}

TEST_F(StructInfoTest, AStructureWithAnUndescribedColumnIsNotInstalled) {
  // The library would lay the remaining fields out without the gap.
  RecordingStruct gap("GAP");
  std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3), Field("C", 2, TYPE_INT, 4)};
  gap.AddFieldInfo(fields.data(), 2);
  EXPECT_TRUE(fake().installs.empty());
  EXPECT_EQ(gap.GetTypeHandle(), CRfcStructInfo::kNoTypeHandle);

  RecordingStruct negative("NEG");
  std::vector<CRfcFieldInfo> dropped = {Field("A", 0, TYPE_CHAR, 3), Field("B", -1, TYPE_CHAR, 4)};
  negative.AddFieldInfo(dropped.data(), 2);
  EXPECT_TRUE(fake().installs.empty());
  EXPECT_EQ(negative.GetFieldCount(), 1);
  // The dropped record still took its place in the line.
  EXPECT_EQ(negative.GetTotalLength(), 7);
}

TEST_F(StructInfoTest, ARecordForAnOccupiedColumnReplacesTheEarlierOne) {
  RecordingStruct info("S");
  info.SetTypeHandle(1);
  std::vector<CRfcFieldInfo> first = {Field("OLD", 0, TYPE_CHAR, 3)};
  info.AddFieldInfo(first.data(), 1);
  std::vector<CRfcFieldInfo> second = {Field("NEW", 0, TYPE_CHAR, 5)};
  info.AddFieldInfo(second.data(), 1);
  EXPECT_EQ(info.GetFieldCount(), 1);
  EXPECT_STREQ(info.GetFieldInfo(0)->name, "NEW");
  EXPECT_EQ(info.GetFieldInfo(0)->length, 5);
}

TEST_F(StructInfoTest, FieldsMustLieInsideTheAvailableBytes) {
  RecordingStruct info("S");
  info.SetTypeHandle(1);
  std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3), Field("B", 1, TYPE_INT, 4)};
  info.AddFieldInfo(fields.data(), 2);
  EXPECT_NE(info.FieldInside(1, 8), nullptr);
  EXPECT_EQ(info.FieldInside(1, 7), nullptr);
  EXPECT_EQ(info.FieldInside(0, 0), nullptr);
  EXPECT_EQ(info.FieldInside(2, 100), nullptr);
  EXPECT_EQ(info.FieldInside(-1, 100), nullptr);
}

TEST_F(StructInfoTest, AFieldRecordThatCannotBeAllocatedIsReported) {
  auto run = rfc_test::RunTraced([] {
    RecordingStruct info("S");
    info.SetTypeName("ZTYPE");
    info.SetTypeHandle(1);
    std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3),
                                         Field("B", 1, TYPE_CHAR, 4)};
    // The first record's copy and its list storage succeed; the second
    // record's copy fails.
    rfc::testing::FailAllocations(2, 1);
    info.AddFieldInfo(fields.data(), 2);
  });
  EXPECT_TRUE(run.threw_text);
  EXPECT_EQ(run.thrown, "Failed to allocate memory!");
  ASSERT_EQ(run.lines.size(), 6u);
  EXPECT_EQ(run.lines[3].rfind("Rfc Class Library Trace at   ", 0), 0u);
  EXPECT_EQ(run.lines[4], "Memory Allocation Failure");
  EXPECT_EQ(run.lines[5], "ZTYPE");
}

TEST_F(StructInfoTest, FieldListStorageThatCannotGrowIsReportedWithoutLeaks) {
  auto run = rfc_test::RunTraced([] {
    RecordingStruct info("S");
    info.SetTypeHandle(1);
    std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3),
                                         Field("B", 1, TYPE_CHAR, 4)};
    // Copy of A, storage for A, copy of B succeed; storage for B fails.
    rfc::testing::FailAllocations(3, 1);
    info.AddFieldInfo(fields.data(), 2);
  });
  EXPECT_TRUE(run.threw_text);
  EXPECT_EQ(run.thrown, "Failed to allocate memory!");
  EXPECT_THAT(run.lines, ::testing::Contains("CRfcList<ObjType>::InitList (int nMaxSize) called"));
  EXPECT_THAT(run.lines, ::testing::Contains("Memory Allocation Failure"));
}

}  // namespace
