#include "output/xml_batch_document.h"

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "access/sap_table.h"
#include "app/batch_server_func.h"

CXmlBatchDocument::CXmlBatchDocument(CBatchServerFunc& batch, int32_t flag)
    : CXmlDocument("BATCH"),
      batch_(batch),
      table_(std::make_unique<CSapTable>(batch.GetTableParam())),
      flag_(flag) {}

CXmlBatchDocument::~CXmlBatchDocument() = default;

namespace {

constexpr int kNoColumn = -1;

}  // namespace

void CXmlBatchDocument::Build() {
  std::unique_ptr<CXmlElement> function = CreateElement(batch_.GetFunctionName());
  function->SetAttribute("TIMESTAMP", batch_.GetBatchId());
  function->SetAttribute("TABLE", batch_.GetStructureName());
  function->SetAttribute("BEGIN", "1");
  CXmlElement* function_element = function.get();
  AddToRoot(std::move(function));

  // Names are looked up once per batch, not once per cell. A column the table
  // cannot name is left out of every row: an element needs a name, and
  // inventing one would put a column into the document that the structure
  // does not have. Where a name occurs twice, the later column answers for it,
  // as a lookup by name in the table does.
  struct NamedColumn {
    int position;
    CXmlName name;  // escaped and trimmed once, not once per row
  };
  std::vector<NamedColumn> named;
  int h_ident = kNoColumn;
  int t_ident = kNoColumn;
  int ident = kNoColumn;
  const int columns = table_->GetColumnCount();
  for (int column = 0; column < columns; ++column) {
    const char* name = table_->GetColumnName(column);
    if (name == nullptr) continue;
    named.push_back({column, CXmlName(name)});
    if (std::strcmp(name, "H_IDENT") == 0) h_ident = column;
    if (std::strcmp(name, "T_IDENT") == 0) t_ident = column;
    if (std::strcmp(name, "IDENT") == 0) ident = column;
  }
  // A column that the table does not have reads as empty.
  auto value_of = [this](int column) {
    return column == kNoColumn ? std::string() : table_->GetValue(column);
  };

  const int rows = static_cast<int>(table_->GetRowCount());
  for (int row = 0; row < rows; ++row) {
    table_->SetRow(row);
    std::string row_name = value_of(h_ident);
    if (row_name.empty()) row_name = value_of(t_ident);
    if (row_name.empty()) row_name = value_of(ident);
    // A row without any identifier is not written at all.
    if (row_name.empty()) continue;

    std::unique_ptr<CXmlElement> row_element = CreateElement(row_name);
    CXmlElement* row_target = row_element.get();
    // Levels are fixed when a child is added, so the row joins the tree first.
    function_element->AddChild(std::move(row_element));
    for (const NamedColumn& column : named) {
      row_target->AddChild(CreateElement(column.name, table_->GetValue(column.position)));
    }
  }
}

bool CXmlBatchDocument::Save(const std::string& path) {
  Build();
  return SaveToFile(path);
}
