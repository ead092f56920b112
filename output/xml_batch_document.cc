#include "output/xml_batch_document.h"

#include "access/sap_table.h"
#include "app/batch_server_func.h"

CXmlBatchDocument::CXmlBatchDocument(CBatchServerFunc& batch, int32_t flag)
    : CXmlDocument("BATCH"),
      batch_(batch),
      table_(std::make_unique<CSapTable>(batch.GetTableParam())),
      flag_(flag) {}

CXmlBatchDocument::~CXmlBatchDocument() = default;

void CXmlBatchDocument::Build() {
  std::unique_ptr<CXmlElement> function = CreateElement(batch_.GetFunctionName());
  function->SetAttribute("TIMESTAMP", batch_.GetBatchId());
  function->SetAttribute("TABLE", batch_.GetStructureName());
  function->SetAttribute("BEGIN", "1");
  CXmlElement* function_element = function.get();
  AddToRoot(std::move(function));

  const int columns = table_->GetColumnCount();
  const int rows = static_cast<int>(table_->GetRowCount());
  for (int row = 0; row < rows; ++row) {
    table_->SetRow(row);
    std::string ident = table_->GetValue(std::string("H_IDENT"));
    if (ident.empty()) ident = table_->GetValue(std::string("T_IDENT"));
    if (ident.empty()) ident = table_->GetValue(std::string("IDENT"));
    // A row without any identifier is not written at all.
    if (ident.empty()) continue;

    std::unique_ptr<CXmlElement> row_element = CreateElement(ident);
    CXmlElement* row_target = row_element.get();
    // Levels are fixed when a child is added, so the row joins the tree first.
    function_element->AddChild(std::move(row_element));
    for (int column = 0; column < columns; ++column) {
      row_target->AddChild(CreateElement(table_->GetColumnName(column), table_->GetValue(column)));
    }
  }
}

bool CXmlBatchDocument::Save(const std::string& path) {
  Build();
  return SaveToFile(path);
}
