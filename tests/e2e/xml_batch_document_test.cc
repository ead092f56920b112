// The XML document of a received batch where the batch server end to end
// cannot reach it: a column the received table has no descriptor for. The
// batch table lives on librfcsim.so's internal tables, as a received call
// leaves it.

#include "output/xml_batch_document.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "access/sap_table.h"
#include "app/batch_server_app.h"
#include "app/batch_server_func.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/sapsim/support/rfc_library.h"

namespace {

std::string g_document;

int32_t BuildDocument(CBatchServerFunc* function) {
  CXmlBatchDocument document(*function, 1);
  document.Build();
  g_document = document.BuildInMemory();
  return 1;
}

// Such a column has no name either; it is left out of every row instead of
// breaking the document.
TEST(XmlBatchDocumentTest, AColumnWithoutANameIsLeftOut) {
  ASSERT_TRUE(LoadRfcLibrary(sapsim::testing::LibraryPath().c_str()));
  CRfcConnection connection;
  CBatchServerApp app(&connection, nullptr);
  CBatchServerFunc::DdColumns columns;
  columns[1] = std::make_unique<CSapColumn>("H_IDENT", 1, 0, TYPE_CHAR, 4, 0);
  columns[2] = std::make_unique<CSapColumn>("X", 2, 0, TYPE_CHAR, 3, 0);
  CBatchServerFunc function(&app, "Z_GAP", "ZGAP_LINE", columns, &BuildDocument);
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

TEST(XmlBatchDocumentTest, ADocumentThatOutgrowsItsFirstBufferComesOutWhole) {
  ASSERT_TRUE(LoadRfcLibrary(sapsim::testing::LibraryPath().c_str()));
  CRfcConnection connection;
  CBatchServerApp app(&connection, nullptr);
  CBatchServerFunc::DdColumns columns;
  columns[1] = std::make_unique<CSapColumn>("H_IDENT", 1, 0, TYPE_CHAR, 200, 0);
  CBatchServerFunc function(&app, "Z_Q", "ZQ", columns, &BuildDocument);
  CRfcTableParam& table = *function.GetTableParam();
  table.Create();
  std::string quotes, rows;
  for (int i = 0; i < 200; ++i) quotes += "&quot;";  // every text byte escapes to six
  for (int r = 0; r < 50; ++r) {
    table.GotoLine(r);
    table.GetData(table.GetCurrentLine(), 0) = std::string(200, '"').c_str();
    rows += "\n    <" + quotes + ">\n      <H_IDENT>" + quotes + "</H_IDENT>\n    </" + quotes + ">";
  }
  ASSERT_EQ(function.Process(), 0);
  EXPECT_EQ(g_document, std::string(CXmlDocument::kDeclaration) + "\n\n\n<BATCH>\n  <Z_Q TIMESTAMP=\"" +
                            function.GetBatchId() + "\" BEGIN=\"1\" TABLE=\"ZQ\">" + rows + "\n  </Z_Q>\n</BATCH>");
}

}  // namespace
