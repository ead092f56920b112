// The system file: what it defines, and the messages for every kind of mistake.

#include <cstring>

#include <gtest/gtest.h>

#include "sapsim/server/builtin_structures.h"
#include "sapsim/server/dictionary.h"
#include "sapsim/server/system_file.h"
#include "sapsim/wire/rfc_types.h"
#include "tests/sapsim/support/rfc_library.h"

namespace sapsim::server {
namespace {

std::string ErrorOf(const std::string& text) {
  try {
    ParseSystemText(text, "sys.json");
  } catch (const SystemFileError& e) {
    return e.what();
  }
  return "no error";
}

std::string WithStructure(const std::string& fields, const std::string& tables = "{}") {
  return R"({"system_id": "DEV", "release": "46C", "structures": {"ZS": )" + fields + R"(}, "tables": )" + tables +
         "}";
}

TEST(SystemFile, ReadsSystemLogonsGroupsStructuresAndTables) {
  SystemDefinition system = ParseSystemText(R"({
    "system_id": "QAS", "release": "46C", "kernel_release": "46D", "host": "qashost",
    "logon": [{"client": "200", "user": "RFCUSER", "password": "pw"}],
    "groups": ["PUBLIC"],
    "structures": {"ZS": [{"name": "A", "type": "C", "length": 3, "text": "First"},
                          {"name": "F", "type": "F"},
                          {"name": "P", "type": "P", "length": 4, "decimals": 2}]},
    "tables": {"ZS": [{"A": "xé", "F": 1.5, "P": "-12.34"}, {}]}
  })", "sys.json");
  EXPECT_EQ("QAS", system.system_id);
  EXPECT_EQ("46D", system.kernel_release);
  ASSERT_EQ(1u, system.logons.size());
  EXPECT_EQ("RFCUSER", system.logons[0].user);
  const StructureDefinition& zs = system.structures.at("ZS");
  EXPECT_EQ(8u, zs.layout.fields[1].offset);  // FLOAT aligned
  EXPECT_EQ(24u, zs.layout.length);
  EXPECT_EQ("First", zs.field_texts.at("A"));
  const TableContent& table = system.tables.at("ZS");
  ASSERT_EQ(2u, table.row_count);
  EXPECT_EQ("x\xE9 ", std::string(reinterpret_cast<const char*>(table.rows.data()), 3));  // UTF-8 in, ISO-8859-1 out
  double f;
  std::memcpy(&f, table.rows.data() + 8, 8);
  EXPECT_DOUBLE_EQ(1.5, f);
  EXPECT_EQ(0x23, table.rows[16 + 2]);  // -12.34 in 7 digits: 00 01 23 4D
  EXPECT_EQ(0x4D, table.rows[16 + 3]);
  EXPECT_EQ("   ", std::string(reinterpret_cast<const char*>(table.rows.data()) + 24, 3));  // an empty row: initial
}

TEST(SystemFile, KernelReleaseDefaultsToTheReleaseAndAnEmptyReleaseIsAllowed) {
  SystemDefinition system = ParseSystemText(R"({"system_id": "OLD", "release": ""})", "sys.json");
  EXPECT_EQ("", system.release);
  EXPECT_EQ("", system.kernel_release);
  EXPECT_FALSE(UsesLongNames(system.release));
  EXPECT_FALSE(UsesLongNames("31I"));
  EXPECT_TRUE(UsesLongNames("40A"));
  EXPECT_TRUE(UsesLongNames("46C"));
}

TEST(SystemFile, NamesThePlaceAndTheMistake) {
  EXPECT_EQ("sys.json: /structures/ZS/1/type: unknown type letter 'Q' (known: C D P T X N F I s b)",
            ErrorOf(WithStructure(R"([{"name": "A", "type": "C", "length": 1}, {"name": "B", "type": "Q"}])")));
  EXPECT_EQ("sys.json: /structures/ZS/0: missing \"length\"", ErrorOf(WithStructure(R"([{"name": "A", "type": "C"}])")));
  EXPECT_EQ("sys.json: /structures/ZS/0/length: a field of type I has 4 bytes, not 8",
            ErrorOf(WithStructure(R"([{"name": "A", "type": "I", "length": 8}])")));
  EXPECT_EQ("sys.json: /structures/ZS/0/decimals: only packed fields (P) have decimals",
            ErrorOf(WithStructure(R"([{"name": "A", "type": "N", "length": 3, "decimals": 1}])")));
  EXPECT_EQ("sys.json: /structures/ZS/0/decimals: 5 decimals do not fit 3 digits",
            ErrorOf(WithStructure(R"([{"name": "A", "type": "P", "length": 2, "decimals": 5}])")));
  EXPECT_EQ("sys.json: /structures/ZS/1/name: field A appears twice",
            ErrorOf(WithStructure(R"([{"name": "A", "type": "D"}, {"name": "A", "type": "T"}])")));
  EXPECT_EQ("sys.json: /structures/ZS/0/size: unknown key",
            ErrorOf(WithStructure(R"([{"name": "A", "type": "D", "size": 3}])")));
  EXPECT_EQ("sys.json: /tables/ZS/0/B: field B is not in structure ZS",
            ErrorOf(WithStructure(R"([{"name": "A", "type": "C", "length": 2}])", R"({"ZS": [{"B": "x"}]})")));
  EXPECT_EQ("sys.json: /tables/ZS/1/A: \"abc\" does not fit into 2 characters",
            ErrorOf(WithStructure(R"([{"name": "A", "type": "C", "length": 2}])",
                                  R"({"ZS": [{"A": "ab"}, {"A": "abc"}]})")));
  EXPECT_EQ(0u, ErrorOf(WithStructure(R"([{"name": "N", "type": "I"}])", R"({"ZS": [{"N": "12x"}]})"))
                    .find("sys.json: /tables/ZS/0/N: value does not fit a field of type I 4: "));
  EXPECT_EQ("sys.json: /tables/ZX: table ZX has no structure of the same name under /structures",
            ErrorOf(WithStructure(R"([{"name": "A", "type": "C", "length": 2}])", R"({"ZX": []})")));
  EXPECT_EQ("sys.json: /: missing \"system_id\"", ErrorOf(R"({"release": "46C"})"));
  EXPECT_EQ("sys.json: /tables/ZS/0/A: character 2 \"€\" (U+20AC) has no place in ISO-8859-1",
            ErrorOf(WithStructure(R"([{"name": "A", "type": "C", "length": 2}])", R"({"ZS": [{"A": "5€"}]})")));
  EXPECT_EQ("sys.json: /release: \"46CDE\" is longer than 4 characters",
            ErrorOf(R"({"system_id": "DEV", "release": "46CDE"})"));
  EXPECT_EQ("sys.json: /colour: unknown key", ErrorOf(R"({"system_id": "DEV", "release": "", "colour": 1})"));
  EXPECT_EQ("sys.json: /logon/0: missing \"password\"",
            ErrorOf(R"({"system_id": "DEV", "release": "", "logon": [{"client": "100", "user": "U"}]})"));
  EXPECT_EQ("sys.json: /structures/RS_PARAMS: structure RS_PARAMS is built into the system",
            ErrorOf(R"({"system_id": "DEV", "release": "", "structures": {"RS_PARAMS": [{"name": "A", "type": "D"}]}})"));
  EXPECT_EQ(0u, ErrorOf("{\"system_id\": ").find("sys.json: not valid JSON: "));
  EXPECT_EQ("sys.json: /: the system file must hold one JSON object", ErrorOf("[1, 2]"));
}

TEST(SystemFile, UnreadableFileNamesTheFile) {
  try {
    LoadSystemFile("/nonexistent/dir/system.json");
    FAIL() << "no error";
  } catch (const SystemFileError& e) {
    EXPECT_EQ("/nonexistent/dir/system.json: cannot read: No such file or directory", std::string(e.what()));
  }
}

TEST(SystemFile, TheExampleSystemLoads) {
  SystemDefinition system = LoadSystemFile(testing::SourceDir() + "/examples/system.json");
  EXPECT_EQ("DEV", system.system_id);
  EXPECT_EQ(5u, system.tables.at("ZKTZ_BATCHES").row_count);
  // Every type letter occurs in the order structure.
  std::string letters;
  for (const wire::FieldDesc& field : system.structures.at("ZBATCH_ORDER").layout.fields) {
    letters += wire::TypeLetter(field.type);
  }
  for (char letter : std::string("CDPTXNFIsb")) EXPECT_NE(std::string::npos, letters.find(letter)) << letter;
}

TEST(Dictionary, BuiltInLinesHaveTheRepositoryLayouts) {
  SystemDefinition old_system = ParseSystemText(R"({"system_id": "OLD", "release": "31I"})", "sys.json");
  SystemDefinition new_system = ParseSystemText(R"({"system_id": "NEW", "release": "46C"})", "sys.json");
  Dictionary old_dictionary(old_system);
  Dictionary new_dictionary(new_system);
  const StructureDefinition* short_params = old_dictionary.Find(kInterfaceLine);
  const StructureDefinition* long_params = new_dictionary.Find(kInterfaceLine);
  ASSERT_NE(nullptr, short_params);
  ASSERT_NE(nullptr, long_params);
  EXPECT_EQ(168u, short_params->layout.length);
  EXPECT_EQ(208u, long_params->layout.length);
  EXPECT_EQ(89u, short_params->layout.fields[10].offset);   // PARAMTEXT
  EXPECT_EQ(129u, long_params->layout.fields[10].offset);
  EXPECT_EQ(40u, old_dictionary.Find(kStructureLine)->layout.length);
  EXPECT_EQ(80u, new_dictionary.Find(kStructureLine)->layout.length);
  // Names and field names of the built-ins fit the short layout's 10 characters.
  for (const StructureDefinition& structure : BuiltInStructures(false)) {
    EXPECT_LE(structure.name.size(), 10u) << structure.name;
    for (const wire::FieldDesc& field : structure.layout.fields) EXPECT_LE(field.name.size(), 10u) << field.name;
  }
}

}  // namespace
}  // namespace sapsim::server
