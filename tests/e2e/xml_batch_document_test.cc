// The XML document of a received batch, byte for byte: identifiers and
// omitted rows, escaping and trimming, every field type, an empty batch, and
// saving. The batch table is filled through the class library on
// librfcsim.so's internal tables, as a received call leaves it.

#include "output/xml_batch_document.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "access/sap_table.h"
#include "app/batch_server_app.h"
#include "app/batch_server_func.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/sapsim/support/rfc_library.h"
#include "tests/support/temp_dir.h"

namespace {

using Columns = CBatchServerFunc::DdColumns;

// Every field type once; IDENT is text here, so that a row can lack all
// three identifiers.
Columns AllTypes() {
  const struct {
    const char* name;
    int type;
    int length;
    int decimals;
  } fields[] = {
      {"H_IDENT", TYPE_CHAR, 10, 0}, {"T_IDENT", TYPE_CHAR, 10, 0}, {"IDENT", TYPE_CHAR, 8, 0},
      {"NOTE", TYPE_CHAR, 30, 0},    {"QTY", TYPE_INT, 4, 0},       {"WEIGHT", TYPE_FLOAT, 8, 0},
      {"PRIO", TYPE_INT2, 2, 0},     {"FLAGS", TYPE_INT1, 1, 0},    {"RAW", TYPE_BYTE, 2, 0},
      {"AMOUNT", TYPE_BCD, 4, 2},    {"DAY", TYPE_DATE, 8, 0},      {"AT", TYPE_TIME, 6, 0},
      {"CODE", TYPE_NUM, 4, 0},
  };
  Columns columns;
  int position = 1;
  for (const auto& f : fields) {
    columns[static_cast<uint16_t>(position)] =
        std::make_unique<CSapColumn>(f.name, position, 0, f.type, f.length, f.decimals);
    ++position;
  }
  return columns;
}

// One line's cells in column order; numbers as integers, texts as texts.
struct Row {
  std::string h_ident, t_ident, ident, note;
  int qty, prio, flags, raw;
  double weight;
  std::string amount, day, at, code;
};

void Fill(CRfcTableParam& table, const std::vector<Row>& rows) {
  table.Create();
  for (size_t r = 0; r < rows.size(); ++r) {
    ASSERT_EQ(table.GotoLine(static_cast<int>(r)), 1);
    void* line = table.GetCurrentLine();
    for (int c = 0; c < table.GetFieldCount(); ++c) table.GetData(line, c).ClearValue();
    const Row& row = rows[r];
    table.GetData(line, 0) = row.h_ident.c_str();
    table.GetData(line, 1) = row.t_ident.c_str();
    table.GetData(line, 2) = row.ident.c_str();
    table.GetData(line, 3) = row.note.c_str();
    table.GetData(line, 4) = row.qty;
    std::memcpy(table.GetData(line, 5).GetData(), &row.weight, sizeof row.weight);
    table.GetData(line, 6) = row.prio;
    table.GetData(line, 7) = row.flags;
    table.GetData(line, 8) = row.raw;
    table.GetData(line, 9) = row.amount.c_str();
    table.GetData(line, 10) = row.day.c_str();
    table.GetData(line, 11) = row.at.c_str();
    table.GetData(line, 12) = row.code.c_str();
  }
}

// The receive handler of these tests: the document as a handler builds it.
std::string g_document;
std::string g_saved_to;
bool g_saved = false;

int32_t BuildDocument(CBatchServerFunc* function) {
  CXmlBatchDocument document(*function, 1);
  if (g_saved_to.empty()) {
    document.Build();
    g_document = document.BuildInMemory();
  } else {
    g_saved = document.Save(g_saved_to);
  }
  return 1;
}

class XmlBatchDocumentTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_TRUE(LoadRfcLibrary(sapsim::testing::LibraryPath().c_str()));
  }
  void SetUp() override {
    g_document.clear();
    g_saved_to.clear();
    g_saved = false;
    columns_ = AllTypes();
    app_ = std::make_unique<CBatchServerApp>(&connection_, nullptr);
    function_ = std::make_unique<CBatchServerFunc>(app_.get(), "Z_XML", "ZXML_LINE", columns_,
                                                   &BuildDocument);
  }

  // The declaration and two line feeds; the root's start tag brings a third.
  std::string Start() const {
    return "<?xml version=\"1.0\" encoding=\"iso-8859-1\"?>\n\n\n<BATCH>\n  <Z_XML TIMESTAMP=\"" +
           function_->GetBatchId() + "\" BEGIN=\"1\" TABLE=\"ZXML_LINE\"";
  }

  CRfcConnection connection_;
  Columns columns_;
  std::unique_ptr<CBatchServerApp> app_;
  std::unique_ptr<CBatchServerFunc> function_;
};

TEST_F(XmlBatchDocumentTest, RowsAreNamedByTheirIdentifierAndHoldEveryColumn) {
  Fill(*function_->GetTableParam(),
       {
           {"A<1>&", "T1", "I1", "  a<b & \"c\" 'd' &amp; >  ", 42, -3, 7, 0xABCD, 2.5, "12.34",
            "20240131", "235959", "42"},
           {"", "T2", "", "", 0, 0, 0, 0, 0.0, "-0.5", "        ", "      ", "0"},
           {"", "", "   I3", "inner  blanks stay", 1, 1, 1, 1, 1.0, "", "20000229", "000000",
            "9999"},
           {"", "", "", "no identifier: left out", 5, 5, 5, 5, 5.0, "5", "", "", "5"},
       });
  ASSERT_EQ(function_->Process(), 0);

  const std::string expected =
      Start() +
      ">\n"
      "    <A&lt;1&gt;&amp;>\n"
      "      <H_IDENT>A&lt;1&gt;&amp;</H_IDENT>\n"
      "      <T_IDENT>T1</T_IDENT>\n"
      "      <IDENT>I1</IDENT>\n"
      "      <NOTE>a&lt;b &amp; &quot;c&quot; 'd' &amp; &gt;</NOTE>\n"
      "      <QTY>42</QTY>\n"
      "      <WEIGHT>2.5</WEIGHT>\n"
      "      <PRIO>-3</PRIO>\n"
      "      <FLAGS>7</FLAGS>\n"
      "      <RAW>ABCD</RAW>\n"
      "      <AMOUNT>12.34</AMOUNT>\n"
      "      <DAY>20240131</DAY>\n"
      "      <AT>235959</AT>\n"
      "      <CODE>0042</CODE>\n"
      "    </A&lt;1&gt;&amp;>\n"
      "    <T2>\n"
      "      <H_IDENT/>\n"
      "      <T_IDENT>T2</T_IDENT>\n"
      "      <IDENT/>\n"
      "      <NOTE/>\n"
      "      <QTY>0</QTY>\n"
      "      <WEIGHT>0</WEIGHT>\n"
      "      <PRIO>0</PRIO>\n"
      "      <FLAGS>0</FLAGS>\n"
      "      <RAW>0000</RAW>\n"
      "      <AMOUNT>-0.50</AMOUNT>\n"
      "      <DAY/>\n"
      "      <AT/>\n"
      "      <CODE>0000</CODE>\n"
      "    </T2>\n"
      "    <I3>\n"
      "      <H_IDENT/>\n"
      "      <T_IDENT/>\n"
      "      <IDENT>I3</IDENT>\n"
      "      <NOTE>inner  blanks stay</NOTE>\n"
      "      <QTY>1</QTY>\n"
      "      <WEIGHT>1</WEIGHT>\n"
      "      <PRIO>1</PRIO>\n"
      "      <FLAGS>1</FLAGS>\n"
      "      <RAW>0001</RAW>\n"
      "      <AMOUNT>0.00</AMOUNT>\n"
      "      <DAY>20000229</DAY>\n"
      "      <AT>000000</AT>\n"
      "      <CODE>9999</CODE>\n"
      "    </I3>\n"
      "  </Z_XML>\n"
      "</BATCH>";
  EXPECT_EQ(g_document, expected);
}

TEST_F(XmlBatchDocumentTest, WithoutRowsToWriteTheFunctionElementClosesAtOnce) {
  const std::vector<std::vector<Row>> batches = {
      {},
      {{"", "", "", "x", 1, 1, 1, 1, 1.0, "1", "", "", "1"},
       {"  ", " ", "", "y", 2, 2, 2, 2, 2.0, "2", "", "", "2"}},
  };
  for (const auto& rows : batches) {
    if (!rows.empty()) Fill(*function_->GetTableParam(), rows);
    ASSERT_EQ(function_->Process(), 0);
    EXPECT_EQ(g_document, Start() + "/>\n</BATCH>") << rows.size() << " rows";
  }
}

// A column the received table has no descriptor for has no name either; it is
// left out of every row instead of breaking the document.
TEST_F(XmlBatchDocumentTest, AColumnWithoutANameIsLeftOut) {
  Columns columns;
  columns[1] = std::make_unique<CSapColumn>("H_IDENT", 1, 0, TYPE_CHAR, 4, 0);
  columns[2] = std::make_unique<CSapColumn>("X", 2, 0, TYPE_CHAR, 3, 0);
  CBatchServerFunc function(app_.get(), "Z_GAP", "ZGAP_LINE", columns, &BuildDocument);
  CRfcTableParam& table = *function.GetTableParam();
  table.Create();
  ASSERT_EQ(table.GotoLine(0), 1);
  table.GetData(table.GetCurrentLine(), 0) = "R1";
  table.GetData(table.GetCurrentLine(), 1) = "v";
  // Describe column 3 but not column 2; describing rewrites the line length,
  // which the lines already filled keep.
  const int width = table.GetTotalLength();
  CRfcFieldInfo extra{};
  SetFieldName(extra, "LAST");
  extra.column = 3;
  extra.type = TYPE_CHAR;
  extra.length = 1;
  table.AddFieldInfo(&extra, 1);
  table.SetLength(width);
  ASSERT_EQ(table.GetFieldInfo(2), nullptr);

  ASSERT_EQ(function.Process(), 0);
  EXPECT_EQ(g_document,
            "<?xml version=\"1.0\" encoding=\"iso-8859-1\"?>\n\n\n<BATCH>\n  <Z_GAP TIMESTAMP=\"" +
                function.GetBatchId() +
                "\" BEGIN=\"1\" TABLE=\"ZGAP_LINE\">\n"
                "    <R1>\n"
                "      <H_IDENT>R1</H_IDENT>\n"
                "      <X>v</X>\n"
                "      <LAST>R</LAST>\n"
                "    </R1>\n"
                "  </Z_GAP>\n"
                "</BATCH>");
}

TEST_F(XmlBatchDocumentTest, SaveWritesTheDocumentAndFailsQuietlyWithoutItsDirectory) {
  testutil::TempDir dir;
  Fill(*function_->GetTableParam(), {{"H1", "", "", "", 0, 0, 0, 0, 0.0, "", "", "", ""}});
  ASSERT_EQ(function_->Process(), 0);
  const std::string built = g_document;

  g_saved_to = dir.File("batch.xml");
  ASSERT_EQ(function_->Process(), 0);
  EXPECT_TRUE(g_saved);
  const std::string saved = testutil::ReadBytes(g_saved_to);
  // Same document, apart from the new batch id; no final line feed.
  EXPECT_EQ(saved.substr(saved.find("BEGIN")), built.substr(built.find("BEGIN")));
  EXPECT_EQ(saved.back(), '>');

  // An existing file is replaced, not appended to.
  testutil::WriteBytes(g_saved_to, std::string(100000, 'x'));
  ASSERT_EQ(function_->Process(), 0);
  EXPECT_TRUE(g_saved);
  EXPECT_EQ(testutil::ReadBytes(g_saved_to).size(), saved.size());

  g_saved_to = dir.File("missing/batch.xml");
  ASSERT_EQ(function_->Process(), 0);
  EXPECT_FALSE(g_saved);
  EXPECT_FALSE(std::filesystem::exists(dir.File("missing")));
}

}  // namespace
