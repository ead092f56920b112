// The structure description: the layout rule, the kept copies of the field
// records, the installation with the RFC library, and allocation failures.

#include "rfc/function/rfc_struct_info.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_data.h"
#include "tests/rfc/function/function_transcript.h"
#include "tests/support/field_info.h"

namespace {

using test_support::Field;

// A structure description of its own that records the lengths it is given.
class RecordingStruct : public CRfcStructInfo {
 public:
  explicit RecordingStruct(const char* name) : name_(name) {}
  void SetLength(int nLength) override {
    lengths += " " + std::to_string(nLength);
    SetTotalLength(nLength);
  }
  const char* GetName() const override { return name_.c_str(); }
  std::string lengths;

 private:
  std::string name_;
};

// The kept records (column, name, length/decimals; - for none) and the total length.
std::string Kept(const CRfcStructInfo& info) {
  std::string text;
  for (int i = -1; i <= info.GetFieldCount(); ++i) {
    const CRfcFieldInfo* f = info.GetFieldInfo(i);
    text += f == nullptr ? " -" : " " + std::string(f->name) + " " + std::to_string(f->length) + "/" + std::to_string(f->decimals);
  }
  return text + " total " + std::to_string(info.GetTotalLength());
}

class StructInfoTest : public fn_test::TranscriptTest {};

// Per record: type/length -> offset; then the lengths handed to SetLength.
TEST_F(StructInfoTest, NaturalAlignmentOfFloatIntAndInt2) {
  const std::vector<std::pair<int, int>> cases[] = {
      {{TYPE_CHAR, 3}, {TYPE_FLOAT, 8}, {TYPE_INT2, 2}, {TYPE_INT, 4}},
      {{TYPE_CHAR, 1}, {TYPE_INT1, 1}},  // nothing aligned: no rounding
      {{TYPE_BCD, 5}, {TYPE_DATE, 8}, {TYPE_TIME, 6}, {TYPE_NUM, 3}, {TYPE_BYTE, 1}},
      {{TYPE_CHAR, 3}, {TYPE_INT, 4}, {TYPE_CHAR, 1}},
      {{TYPE_CHAR, 3}, {TYPE_FLOAT, 8}, {TYPE_CHAR, 1}},
      {{TYPE_CHAR, 2}, {9999, -1}, {TYPE_CHAR, 2}},  // -1 takes no room
      {},
  };
  for (const auto& c : cases) {
    RecordingStruct info("S");
    std::vector<CRfcFieldInfo> fields;
    for (const auto& [type, length] : c) {
      fields.push_back(Field("F", static_cast<int>(fields.size()), type, length));
      fields.back().offset = -99;  // whatever the caller says, the layout decides
    }
    info.ComputeLayout(fields.data(), static_cast<int>(fields.size()));
    for (const CRfcFieldInfo& f : fields) out << f.type << "/" << f.length << "@" << f.offset << " ";
    out << "->" << info.lengths << "\n";
  }
  // No record can be longer than a 32-bit length: not within the fields, nor
  // after the last rounding.
  for (const auto& [type, length] : {std::pair{TYPE_CHAR, INT_MAX}, std::pair{TYPE_FLOAT, INT_MAX - 8}}) {
    RecordingStruct info("S");
    CRfcFieldInfo fields[] = {Field("A", 0, type == TYPE_CHAR ? TYPE_CHAR : TYPE_FLOAT, type == TYPE_CHAR ? 1 : 8),
                              Field("B", 1, TYPE_CHAR, length)};
    out << rfc_test::Thrown([&] { info.ComputeLayout(fields, 2); }) << "\n";
  }
  // Names keep at most 31 characters and lose trailing blanks; none is empty.
  CRfcFieldInfo field{};
  for (const char* given : {static_cast<const char*>(nullptr), "   ", "AB  ", "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"}) {
    SetFieldName(field, given);
    out << "'" << std::string(field.name, FieldNameLength(field)) << "' ";
  }
  std::memset(field.name, 'N', sizeof field.name);  // no terminator at all
  out << FieldNameLength(field) << "\n";
}

// Laid out with the lengths as given, kept as copies with the fixed lengths,
// installed once under its name; a second description keeps the handle.
TEST_F(StructInfoTest, KeepsNormalisedCopiesAndInstallsOnceUnderItsName) {
  RecordingStruct info("MYSTRUCT");
  std::vector<CRfcFieldInfo> fields = {Field("NAME    ", 0, TYPE_CHAR, 3), Field("WHEN", 1, TYPE_DATE, 99),
                                       Field("COUNT", 2, TYPE_INT, 17), Field("AMOUNT", 3, TYPE_BCD, 5, 2)};
  info.AddFieldInfo(fields.data(), 4);
  fields[0].name[0] = 'X';
  out << "offsets " << fields[2].offset << " " << fields[3].offset << ", kept" << Kept(info) << "\n";
  ASSERT_EQ(fake().installs.size(), 1u);
  const stand_in::Install& install = fake().installs[0];
  out << install.name << ":";
  for (const stand_in::Element& e : install.elements) out << " " << e.name << " " << e.type << "/" << e.length << "/" << e.decimals;
  EXPECT_EQ(info.EntryType(), install.handle);
  std::vector<CRfcFieldInfo> more = {Field("C", 4, TYPE_INT, 4)};
  info.AddFieldInfo(more.data(), 1);
  out << "\n" << fn_test::Seen() << "\n";
}

TEST_F(StructInfoTest, WhenNoInstallationHappens) {
  fake().install_result = 1;  // refused: passed as BYTE, or as CHAR when character-only
  RecordingStruct refused("REFUSED");
  std::vector<CRfcFieldInfo> one = {Field("A", 0, TYPE_CHAR, 3)};
  refused.AddFieldInfo(one.data(), 1);
  out << "refused: handle " << refused.GetTypeHandle() << " type " << refused.EntryType();
  refused.SetCharacterOnly(1);
  out << " character-only " << refused.EntryType() << "\n";
  EXPECT_EQ(refused.GetTypeHandle(), CRfcStructInfo::kNoTypeHandle);
  fake().Reset();
  // An adopted handle, or a column left undescribed, installs nothing.
  RecordingStruct adopted("ADOPTED");
  adopted.SetTypeHandle(4711);
  std::vector<CRfcFieldInfo> gap = {Field("A", 0, TYPE_CHAR, 3), Field("C", 2, TYPE_INT, 4)};
  adopted.AddFieldInfo(gap.data(), 2);
  out << "adopted: handle " << adopted.GetTypeHandle() << Kept(adopted) << "\n";
  RecordingStruct with_gap("GAP");
  with_gap.AddFieldInfo(gap.data(), 2);
  EXPECT_EQ(with_gap.GetTypeHandle(), CRfcStructInfo::kNoTypeHandle);
  // A record without a column is not kept but still takes its place.
  RecordingStruct dropped("NEG");
  std::vector<CRfcFieldInfo> negative = {Field("A", 0, TYPE_CHAR, 3), Field("B", -1, TYPE_CHAR, 4)};
  dropped.AddFieldInfo(negative.data(), 2);
  out << "no column:" << Kept(dropped) << "\n";
  RecordingStruct none("NONE");
  none.SetTypeHandle(1);
  none.AddFieldInfo(nullptr, 2);  // no records: none kept, no room taken
  out << "no records:" << Kept(none) << "\ncalled:" << fn_test::Seen() << "\n";
}

// Allocation 2 (copy of B) and 3 (storage for B) fail; A stays described.
TEST_F(StructInfoTest, AllocationFailuresAreReportedWithoutLeaks) {
  for (int skip : {2, 3}) {
    RecordingStruct info("S");
    out << fn_test::Traced(rfc_test::RunTraced([&] {
      info.SetTypeName("ZTYPE");
      info.SetTypeHandle(1);
      std::vector<CRfcFieldInfo> fields = {Field("A", 0, TYPE_CHAR, 3), Field("B", 1, TYPE_CHAR, 4)};
      rfc::testing::FailAllocations(skip, 1);
      info.AddFieldInfo(fields.data(), 2);
    })) << "kept" << Kept(info) << "\n";
  }
}

}  // namespace
