// CDdInfo's evaluation of an answer of Z_KTZ_BAPI_GET_DD_INFO: the refusal
// rule and the columns with their running offsets.

#include "access/dd_info.h"

#include <gtest/gtest.h>

#include "access/sap_structure.h"
#include "rfc/core/rfc_data.h"
#include "tests/access/local_parameters.h"

namespace access_test {
namespace {

const std::vector<Field> kReturn = {
    {"TYPE", TYPE_CHAR, 1}, {"ID", TYPE_CHAR, 20}, {"NUMBER", TYPE_NUM, 3},
    {"MESSAGE", TYPE_CHAR, 220}};
const std::vector<Field> kMeta = {{"FIELDNAME", TYPE_CHAR, 30}, {"POS", TYPE_NUM, 4},
                                  {"DATATYPE", TYPE_NUM, 2},    {"LENGTH", TYPE_NUM, 6},
                                  {"DECIMALS", TYPE_NUM, 6}};

struct Answer {
  std::unique_ptr<CRfcStructParam> return_param;
  std::unique_ptr<CRfcTableParam> meta_param;
  std::unique_ptr<CSapStructure> result;
  std::unique_ptr<CSapTable> meta;
};

Answer MakeAnswer(const std::string& type, const std::string& message,
                  const std::vector<std::vector<std::string>>& rows,
                  std::vector<Field> meta_layout = kMeta) {
  Answer answer;
  answer.return_param = MakeStructure("RETURN", kReturn, {type, "", "0", message});
  answer.meta_param = MakeFilledTable("META_TAB", meta_layout, rows);
  answer.result = std::make_unique<CSapStructure>(answer.return_param.get());
  answer.meta = std::make_unique<CSapTable>(answer.meta_param.get());
  return answer;
}

TEST(DdInfoTest, SuccessWithoutRowsOrWithoutResultTableIsCompleteAndEmpty) {
  Answer answer = MakeAnswer("S", "", {});
  for (CSapTable* meta : {answer.meta.get(), static_cast<CSapTable*>(nullptr)}) {
    CDdInfo info(*answer.result, meta);
    EXPECT_EQ(1, info.IsComplete());
    EXPECT_TRUE(info.GetColumns().empty());
    EXPECT_EQ("", info.GetMessage());
  }
}

TEST(DdInfoTest, OffsetsAreTheRunningSumsOfTheLengths) {
  Answer answer = MakeAnswer("S", "", {{"IDENT", "1", "0", "10", "0"},
                                       {"QTY", "2", "8", "4", "0"},
                                       {"AMOUNT", "3", "2", "8", "2"}});
  CDdInfo info(*answer.result, answer.meta.get());
  ASSERT_EQ(1, info.IsComplete());
  const CDdInfo::Columns& columns = info.GetColumns();
  ASSERT_EQ(3u, columns.size());
  EXPECT_STREQ("IDENT", columns.at(1)->GetName());
  EXPECT_EQ(0, columns.at(1)->GetOffset());
  EXPECT_EQ(10, columns.at(2)->GetOffset());
  EXPECT_EQ(14, columns.at(3)->GetOffset());
  // Positions stay as the dictionary counts them, from 1.
  EXPECT_EQ(1, columns.at(1)->GetColumn());
  EXPECT_EQ(3, columns.at(3)->GetColumn());
  EXPECT_EQ(TYPE_INT, columns.at(2)->GetType());
  EXPECT_EQ(4, columns.at(2)->GetLength());
  EXPECT_EQ(TYPE_BCD, columns.at(3)->GetType());
  EXPECT_EQ(2, columns.at(3)->GetDecimals());
}

TEST(DdInfoTest, ALaterRowAtTheSamePositionReplacesTheEarlierButBothCount) {
  Answer answer = MakeAnswer("S", "", {{"FIRST", "1", "0", "5", "0"},
                                       {"SECOND", "1", "0", "7", "0"},
                                       {"THIRD", "2", "0", "3", "0"}});
  CDdInfo info(*answer.result, answer.meta.get());
  const CDdInfo::Columns& columns = info.GetColumns();
  ASSERT_EQ(2u, columns.size());
  EXPECT_STREQ("SECOND", columns.at(1)->GetName());
  EXPECT_EQ(5, columns.at(1)->GetOffset());
  EXPECT_EQ(12, columns.at(2)->GetOffset());
}

TEST(DdInfoTest, OnlyAnExactCapitalSIsSuccess) {
  for (const std::string type : {"s", "E", "W", "I", "A", ""}) {
    Answer answer = MakeAnswer(type, "Structure ZX does not exist", {{"F", "1", "0", "1", "0"}});
    CDdInfo info(*answer.result, answer.meta.get());
    EXPECT_EQ(0, info.IsComplete()) << "TYPE '" << type << "'";
    EXPECT_TRUE(info.GetColumns().empty());
    EXPECT_EQ("Structure ZX does not exist", info.GetMessage());
  }
}

TEST(DdInfoTest, NonNumericNumbersCountAsZero) {
  std::vector<Field> layout = kMeta;
  for (size_t i = 1; i < layout.size(); ++i) layout[i].type = TYPE_CHAR;
  Answer answer = MakeAnswer("S", "", {{"ODD", "x", "C", "", "-1"}, {"NEXT", "2", "0", "4", "0"}},
                             layout);
  CDdInfo info(*answer.result, answer.meta.get());
  const CDdInfo::Columns& columns = info.GetColumns();
  ASSERT_EQ(2u, columns.size());
  EXPECT_STREQ("ODD", columns.at(0)->GetName());
  EXPECT_EQ(0, columns.at(0)->GetType());
  EXPECT_EQ(0, columns.at(0)->GetLength());
  EXPECT_EQ(0, columns.at(0)->GetDecimals());
  EXPECT_EQ(0, columns.at(2)->GetOffset());
}

}  // namespace
}  // namespace access_test
