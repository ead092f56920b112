// The system file and the batches of `sapsim call`: what they define, and
// the message for every kind of mistake, naming the place.

#include <functional>
#include <sstream>

#include <gtest/gtest.h>

#include "sapsim/server/builtin_structures.h"
#include "sapsim/server/dictionary.h"
#include "sapsim/server/system_file.h"
#include "sapsim/tool/batch_rows.h"
#include "sapsim/tool/csv_reader.h"
#include "sapsim/wire/rfc_types.h"
#include "tests/support/expected_file.h"

namespace sapsim::server {
namespace {

std::string ErrorOf(const std::function<void()>& load) {
  try {
    load();
  } catch (const SystemFileError& e) {
    return e.what();
  }
  return "no error";
}

// One system file per line of the data file, each with its message.
TEST(SystemFile, NamesThePlaceAndTheMistake) {
  std::istringstream texts(testutil::ReadBytes(testutil::SourceDir() + "/tests/sapsim/data/bad_system_files.txt"));
  std::string text, report;
  while (std::getline(texts, text)) {
    report += text + "\n  -> " + ErrorOf([&] { ParseSystemText(text, "sys.json"); }) + "\n";
  }
  const std::string absent = "/nonexistent/dir/system.json";
  report += absent + "\n  -> " + ErrorOf([&] { LoadSystemFile(absent); }) + "\n";
  EXPECT_TRUE(testutil::MatchesExpectedFile(report, "tests/sapsim/expected/system_file_errors.txt"));
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

using namespace sapsim::tool;
using testutil::Escaped;

TEST(BatchRows, CsvValuesBecomeLinesOfTheStructure) {
  std::vector<CsvRecord> records;
  std::string error, report;
  ASSERT_TRUE(ParseCsv("A,B,C\r\n\"x, y\",\"say \"\"hi\"\"\",\"two\nlines\"\n\n,last,\n", &records, &error));
  for (const CsvRecord& record : records) {
    report += "line " + std::to_string(record.line) + ":";
    for (const std::string& field : record.fields) report += " [" + Escaped(field) + "]";
    report += "\n";
  }
  const server::StructureDefinition structure = server::MakeStructure(
      "ZLINE", {{"NAME", 'C', 5, 0}, {"QTY", 'I', 4, 0}, {"PRICE", 'P', 3, 2}, {"WHEN", 'D', 8, 0}});
  BatchRows rows;
  // Empty cells and absent columns keep the initial value; UTF-8 goes out as ISO-8859-1.
  ASSERT_TRUE(ParseCsv("PRICE,NAME,QTY\n1.5,<&>,-7\n,,\n,äöüßé,\n", &records, &error));
  ASSERT_TRUE(BuildBatchRows(records, "ZLINE", structure.layout, &rows, &error)) << error;
  const std::string bytes(rows.bytes.begin(), rows.bytes.end());
  for (size_t at = 0; at < bytes.size(); at += rows.line_length) {
    report += "row: " + Escaped(bytes.substr(at, rows.line_length)) + "\n";
  }

  const char* mistakes[] = {"A\n\"open\n", "A,B\nx,\"q\"z\n", "A\nab\"c\n", "PRICE\n1234\n", "NAME,QTY\na,1,2\n",
                            "NAME,NAME\n", "NAME\nok\naΩ\n", "NAME\n\xFF\n", ""};
  for (const char* csv : mistakes) {
    error.clear();
    EXPECT_FALSE(ParseCsv(csv, &records, &error) && BuildBatchRows(records, "ZLINE", structure.layout, &rows, &error));
    report += Escaped(csv) + " -> " + error + "\n";
  }
  EXPECT_TRUE(testutil::MatchesExpectedFile(report, "tests/sapsim/expected/batch_rows.txt"));
}

}  // namespace
}  // namespace sapsim::server
