// The system file and the batches of `sapsim call`: what they define, and
// the message for every kind of mistake, naming the place.

#include <cstring>

#include <gtest/gtest.h>

#include "sapsim/server/builtin_structures.h"
#include "sapsim/server/dictionary.h"
#include "sapsim/server/system_file.h"
#include "sapsim/tool/batch_rows.h"
#include "sapsim/tool/csv_reader.h"
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

TEST(SystemFile, NamesThePlaceAndTheMistake) {
  const std::string c2 = R"([{"name": "A", "type": "C", "length": 2}])";
  const std::pair<std::string, std::string> cases[] = {
      {WithStructure(R"([{"name": "A", "type": "C", "length": 1}, {"name": "B", "type": "Q"}])"),
       "/structures/ZS/1/type: unknown type letter 'Q' (known: C D P T X N F I s b)"},
      {WithStructure(R"([{"name": "A", "type": "C"}])"), "/structures/ZS/0: missing \"length\""},
      {WithStructure(R"([{"name": "A", "type": "I", "length": 8}])"),
       "/structures/ZS/0/length: a field of type I has 4 bytes, not 8"},
      {WithStructure(R"([{"name": "A", "type": "N", "length": 3, "decimals": 1}])"),
       "/structures/ZS/0/decimals: only packed fields (P) have decimals"},
      {WithStructure(R"([{"name": "A", "type": "P", "length": 2, "decimals": 5}])"),
       "/structures/ZS/0/decimals: 5 decimals do not fit 3 digits"},
      {WithStructure(R"([{"name": "A", "type": "D"}, {"name": "A", "type": "T"}])"),
       "/structures/ZS/1/name: field A appears twice"},
      {WithStructure(R"([{"name": "A", "type": "D", "size": 3}])"), "/structures/ZS/0/size: unknown key"},
      {WithStructure(c2, R"({"ZS": [{"B": "x"}]})"), "/tables/ZS/0/B: field B is not in structure ZS"},
      {WithStructure(c2, R"({"ZS": [{"A": "ab"}, {"A": "abc"}]})"),
       "/tables/ZS/1/A: \"abc\" does not fit into 2 characters"},
      {WithStructure(R"([{"name": "N", "type": "I"}])", R"({"ZS": [{"N": "12x"}]})"),
       "/tables/ZS/0/N: value does not fit a field of type I 4: "},
      {WithStructure(c2, R"({"ZS": [{"A": "5€"}]})"),
       "/tables/ZS/0/A: character 2 \"€\" (U+20AC) has no place in ISO-8859-1"},
      {WithStructure(c2, R"({"ZX": []})"), "/tables/ZX: table ZX has no structure of the same name under /structures"},
      {R"({"release": "46C"})", "/: missing \"system_id\""},
      {R"({"system_id": "DEV", "release": "46CDE"})", "/release: \"46CDE\" is longer than 4 characters"},
      {R"({"system_id": "DEV", "release": "", "colour": 1})", "/colour: unknown key"},
      {R"({"system_id": "DEV", "release": "", "logon": [{"client": "100", "user": "U"}]})",
       "/logon/0: missing \"password\""},
      {R"({"system_id": "DEV", "release": "", "structures": {"RS_PARAMS": [{"name": "A", "type": "D"}]}})",
       "/structures/RS_PARAMS: structure RS_PARAMS is built into the system"},
      {"{\"system_id\": ", "not valid JSON: "},
      {"[1, 2]", "/: the system file must hold one JSON object"},
  };
  for (const auto& [text, message] : cases) EXPECT_EQ(0u, ErrorOf(text).find("sys.json: " + message)) << text;
  try {
    LoadSystemFile("/nonexistent/dir/system.json");
    ADD_FAILURE() << "no error";
  } catch (const SystemFileError& e) {
    EXPECT_EQ("/nonexistent/dir/system.json: cannot read: No such file or directory", std::string(e.what()));
  }
}

TEST(SystemFile, BuiltInRepositoryLinesFollowTheRelease) {
  Dictionary old_dictionary(ParseSystemText(R"({"system_id": "OLD", "release": "31I"})", "sys.json"));
  Dictionary new_dictionary(ParseSystemText(R"({"system_id": "NEW", "release": "46C"})", "sys.json"));
  EXPECT_EQ(168u, old_dictionary.Find(kInterfaceLine)->layout.length);
  EXPECT_EQ(208u, new_dictionary.Find(kInterfaceLine)->layout.length);
  EXPECT_EQ(89u, old_dictionary.Find(kInterfaceLine)->layout.fields[10].offset);  // PARAMTEXT
  EXPECT_EQ(129u, new_dictionary.Find(kInterfaceLine)->layout.fields[10].offset);
  EXPECT_EQ(40u, old_dictionary.Find(kStructureLine)->layout.length);
  EXPECT_EQ(80u, new_dictionary.Find(kStructureLine)->layout.length);
  for (const StructureDefinition& structure : BuiltInStructures(false)) {
    EXPECT_LE(structure.name.size(), 10u) << structure.name;
    for (const wire::FieldDesc& field : structure.layout.fields) EXPECT_LE(field.name.size(), 10u) << field.name;
  }
}

}  // namespace
}  // namespace sapsim::server

namespace sapsim::tool {
namespace {

TEST(BatchRows, CsvValuesBecomeLinesOfTheStructure) {
  std::vector<CsvRecord> records;
  std::string error;
  ASSERT_TRUE(ParseCsv("A,B,C\r\n\"x, y\",\"say \"\"hi\"\"\",\"two\nlines\"\n\n,last,\n", &records, &error));
  ASSERT_EQ(3u, records.size());
  EXPECT_EQ((std::vector<std::string>{"x, y", "say \"hi\"", "two\nlines"}), records[1].fields);
  EXPECT_EQ(5, records[2].line);  // after the line break inside quotes and an empty line
  const server::StructureDefinition structure = server::MakeStructure(
      "ZLINE", {{"NAME", 'C', 5, 0}, {"QTY", 'I', 4, 0}, {"PRICE", 'P', 3, 2}, {"WHEN", 'D', 8, 0}});
  BatchRows rows;
  ASSERT_TRUE(ParseCsv("PRICE,NAME,QTY\n1.5,<&>,-7\n,,\n,äöüßé,\n", &records, &error));
  ASSERT_TRUE(BuildBatchRows(records, "ZLINE", structure.layout, &rows, &error)) << error;
  ASSERT_EQ(3u, rows.row_count);
  const char* first = reinterpret_cast<const char*>(rows.bytes.data());
  int32_t qty;
  std::memcpy(&qty, first + 8, 4);
  EXPECT_EQ(-7, qty);
  EXPECT_EQ(std::string("<&>  ", 5), std::string(first, 5));
  EXPECT_EQ(std::string("\x00\x15\x0C" "00000000", 11), std::string(first + 12, 11));  // 1.50; no WHEN: initial
  EXPECT_EQ("     ", std::string(first + rows.line_length, 5));  // empty cells: initial
  // Five characters in ten UTF-8 bytes fit five places, sent in ISO-8859-1.
  EXPECT_EQ("\xE4\xF6\xFC\xDF\xE9", std::string(first + 2 * rows.line_length, 5));

  const std::pair<const char*, const char*> mistakes[] = {
      {"A\n\"open\n", "line 2: quoted field not closed"},
      {"A,B\nx,\"q\"z\n", "line 2, field 2: text after a closing quote"},
      {"A\nab\"c\n", "line 2, field 1: a quote inside an unquoted field"},
      {"PRICE\n1234\n", "line 2, column 1 (PRICE): 1234 does not fit a packed number of 3 bytes with 2 decimals"},
      {"NAME,QTY\na,1,2\n", "line 2: 3 values, the header names 2 columns"},
      {"NAME,NAME\n", "line 1, column 2: column NAME appears twice"},
      {"NAME\nok\naΩ\n", "line 3, column 1 (NAME): character 2 \"Ω\" (U+03A9) has no place in ISO-8859-1"},
      {"NAME\n\xFF\n", "line 2, column 1 (NAME): character 1 is not UTF-8 (byte 1)"},
      {"", "no header line (the first line names the fields of ZLINE)"},
  };
  for (const auto& [csv, message] : mistakes) {
    error.clear();
    EXPECT_FALSE(ParseCsv(csv, &records, &error) && BuildBatchRows(records, "ZLINE", structure.layout, &rows, &error));
    EXPECT_EQ(message, error);
  }
}

}  // namespace
}  // namespace sapsim::tool
