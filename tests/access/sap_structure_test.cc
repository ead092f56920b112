// CSapStructure: a structure's character and numeric-text fields as named
// texts; every other field type is refused with the unmapped-type message.

#include "access/sap_structure.h"

#include <gtest/gtest.h>

#include "rfc/core/rfc_data.h"
#include "tests/access/local_parameters.h"

namespace access_test {
namespace {

const std::vector<Field> kReturn = {
    {"TYPE", TYPE_CHAR, 1}, {"ID", TYPE_CHAR, 20}, {"NUMBER", TYPE_NUM, 3},
    {"MESSAGE", TYPE_CHAR, 220}};

TEST(SapStructureTest, CharacterAndNumericFieldsReadByNameAndPosition) {
  auto param = MakeStructure("return", kReturn, {"E", "", "7", "  Structure X does not exist  "});
  CSapStructure structure(param.get());
  EXPECT_EQ("RETURN", structure.GetName());
  EXPECT_EQ(4, structure.GetFieldCount());
  EXPECT_EQ("E", structure.GetValue(std::string("TYPE")));
  EXPECT_EQ("", structure.GetValue(std::string("ID")));
  EXPECT_EQ("007", structure.GetValue(std::string("NUMBER")));
  EXPECT_EQ("  Structure X does not exist", structure.GetValue(std::string("MESSAGE")));
  EXPECT_EQ("E", structure.GetValue(0));
  EXPECT_EQ("007", structure.GetValue(2));
  EXPECT_EQ("", structure.GetValue(4));
  EXPECT_EQ("", structure.GetValue(-1));
  EXPECT_EQ("", structure.GetValue(std::string("type")));
  EXPECT_EQ("", structure.GetValue(std::string("MISSING")));
  ASSERT_NE(nullptr, structure.GetField(3));
  EXPECT_EQ(220, structure.GetField(3)->GetLength());
  EXPECT_STREQ("MESSAGE", structure.GetField(3)->GetName());
}

TEST(SapStructureTest, NoParameterGivesAnEmptyStructureAndARepeatedNameTheLaterField) {
  CSapStructure none(nullptr);
  EXPECT_EQ(0, none.GetFieldCount());
  EXPECT_EQ("", none.GetName());
  EXPECT_EQ("", none.GetValue(0));
  EXPECT_EQ("", none.GetValue(std::string("TYPE")));

  auto param = MakeStructure("S", {{"A", TYPE_CHAR, 2}, {"A", TYPE_NUM, 2}}, {"x", "5"});
  CSapStructure structure(param.get());
  EXPECT_EQ("05", structure.GetValue(std::string("A")));
  EXPECT_EQ("x", structure.GetValue(0));
}

TEST(SapStructureTest, EveryTypeOutsideCharacterAndNumericTextIsRefused) {
  const std::vector<Field> refused = {{"D", TYPE_DATE, 8},   {"P", TYPE_BCD, 3, 1},
                                      {"T", TYPE_TIME, 6},   {"X", TYPE_BYTE, 2},
                                      {"F", TYPE_FLOAT, 8},  {"I", TYPE_INT, 4},
                                      {"S", TYPE_INT2, 2},   {"B", TYPE_INT1, 1}};
  for (const Field& field : refused) {
    auto param = MakeStructure("S", {{"OK", TYPE_NUM, 2}, field}, {});
    try {
      CSapStructure structure(param.get());
      ADD_FAILURE() << "type " << field.type << " was mapped";
    } catch (const std::string& message) {
      EXPECT_EQ("Unmapped data type '" + std::to_string(field.type) +
                    "' received from SAP in file: SAPTABLE line 331",
                message);
    }
  }
}

}  // namespace
}  // namespace access_test
