// CSV parsing and batch lines built from it.

#include <cstring>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "sapsim/server/builtin_structures.h"
#include "sapsim/server/system_file.h"
#include "sapsim/tool/batch_rows.h"
#include "sapsim/tool/csv_reader.h"

namespace sapsim::tool {
namespace {

std::vector<CsvRecord> Parse(const std::string& text) {
  std::vector<CsvRecord> records;
  std::string error;
  EXPECT_TRUE(ParseCsv(text, &records, &error)) << error;
  return records;
}

TEST(Csv, QuotedFieldsKeepCommasQuotesAndLineBreaks) {
  std::vector<CsvRecord> records = Parse("A,B,C\r\n\"x, y\",\"say \"\"hi\"\"\",\"two\nlines\"\n\n,last,\n");
  ASSERT_EQ(3u, records.size());
  EXPECT_EQ(1, records[0].line);
  EXPECT_EQ((std::vector<std::string>{"x, y", "say \"hi\"", "two\nlines"}), records[1].fields);
  EXPECT_EQ(5, records[2].line);  // after the line break inside quotes and an empty line
  EXPECT_EQ((std::vector<std::string>{"", "last", ""}), records[2].fields);
}

TEST(Csv, RefusesBrokenQuoting) {
  std::vector<CsvRecord> records;
  std::string error;
  EXPECT_FALSE(ParseCsv("A\n\"open\n", &records, &error));
  EXPECT_EQ("line 2: quoted field not closed", error);
  EXPECT_FALSE(ParseCsv("A,B\nx,\"q\"z\n", &records, &error));
  EXPECT_EQ("line 2, field 2: text after a closing quote", error);
  EXPECT_FALSE(ParseCsv("A\nab\"c\n", &records, &error));
  EXPECT_EQ("line 2, field 1: a quote inside an unquoted field", error);
}

class BatchRowsTest : public ::testing::Test {
 protected:
  server::StructureDefinition structure = server::MakeStructure(
      "ZLINE", {{"NAME", 'C', 5, 0}, {"QTY", 'I', 4, 0}, {"PRICE", 'P', 3, 2}, {"WHEN", 'D', 8, 0}});

  std::string Build(const std::string& csv, BatchRows* rows) {
    std::string error;
    if (!BuildBatchRows(Parse(csv), "ZLINE", structure.layout, rows, &error)) return error;
    return "";
  }
};

TEST_F(BatchRowsTest, ConvertsEveryValueToItsFieldsType) {
  BatchRows rows;
  ASSERT_EQ("", Build("PRICE,NAME,QTY\n1.5,<&>,-7\n,,\n,äöüßé,\n", &rows));
  ASSERT_EQ(3u, rows.row_count);
  ASSERT_EQ(structure.layout.length, rows.line_length);
  const uint8_t* first = rows.bytes.data();
  EXPECT_EQ("<&>  ", std::string(reinterpret_cast<const char*>(first), 5));
  int32_t qty;
  std::memcpy(&qty, first + 8, 4);
  EXPECT_EQ(-7, qty);
  EXPECT_EQ(0x00, first[12]);
  EXPECT_EQ(0x15, first[13]);
  EXPECT_EQ(0x0C, first[14]);  // 1.50
  EXPECT_EQ("00000000", std::string(reinterpret_cast<const char*>(first) + 15, 8));  // no column: initial
  const uint8_t* second = first + rows.line_length;
  EXPECT_EQ("     ", std::string(reinterpret_cast<const char*>(second), 5));  // empty cells: initial
  // Five characters in ten UTF-8 bytes fit five places, sent in ISO-8859-1.
  EXPECT_EQ("\xE4\xF6\xFC\xDF\xE9", std::string(reinterpret_cast<const char*>(second + rows.line_length), 5));
}

TEST_F(BatchRowsTest, MistakesNameLineAndColumn) {
  BatchRows rows;
  // (Unknown columns, values too long and no numbers: sapsim call's test.)
  EXPECT_EQ("line 2, column 1 (PRICE): 1234 does not fit a packed number of 3 bytes with 2 decimals",
            Build("PRICE\n1234\n", &rows));
  EXPECT_EQ("line 2: 3 values, the header names 2 columns", Build("NAME,QTY\na,1,2\n", &rows));
  EXPECT_EQ("line 3, column 1 (NAME): character 2 \"Ω\" (U+03A9) has no place in ISO-8859-1",
            Build("NAME\nok\naΩ\n", &rows));
  EXPECT_EQ("line 2, column 1 (NAME): character 1 is not UTF-8 (byte 1)", Build("NAME\n\xFF\n", &rows));
  EXPECT_EQ("line 1, column 2: column NAME appears twice", Build("NAME,NAME\n", &rows));
  EXPECT_EQ("no header line (the first line names the fields of ZLINE)", Build("", &rows));
}

}  // namespace
}  // namespace sapsim::tool

namespace sapsim::tool {
namespace {

// The sample batches users start from must fit the example system.
TEST(ExampleBatches, FitTheirStructures) {
  server::SystemDefinition system = server::LoadSystemFile(std::string(BS_TEST_SOURCE_DIR) + "/examples/system.json");
  const std::pair<const char*, const char*> batches[] = {{"orders.csv", "ZBATCH_ORDER"},
                                                         {"customers.csv", "ZBATCH_CUSTOMER"}};
  for (const auto& [file, structure] : batches) {
    std::ifstream in(std::string(BS_TEST_SOURCE_DIR) + "/examples/batches/" + file, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<CsvRecord> records;
    std::string error;
    ASSERT_TRUE(ParseCsv(text, &records, &error)) << file << ": " << error;
    BatchRows rows;
    ASSERT_TRUE(BuildBatchRows(records, structure, system.structures.at(structure).layout, &rows, &error))
        << file << ": " << error;
    EXPECT_GE(rows.row_count, 3u) << file;
    // Every sample has the characters XML needs to escape, and blanks.
    for (const char* marker : {"<", "&", ">", "\"", "'", "  "}) EXPECT_NE(std::string::npos, text.find(marker)) << file;
  }
}

}  // namespace
}  // namespace sapsim::tool
