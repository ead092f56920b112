#include "output/xml_batch_document.h"

#include <algorithm>
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

char* Put(char* out, std::string_view text) {
  std::memcpy(out, text.data(), text.size());
  return out + text.size();
}

}  // namespace

std::string_view CXmlBatchDocument::RowName() const {
  // A column that the table does not have reads as empty.
  for (int column : {h_ident_, t_ident_, ident_}) {
    if (column == kNoColumn) continue;
    const std::string_view text = table_->GetText(column);
    if (!text.empty()) return text;
  }
  return std::string_view();
}

const std::vector<std::string_view>& CXmlBatchDocument::RowCells() const {
  for (size_t i = 0; i < named_.size(); ++i) cells_[i] = table_->GetText(named_[i]);
  return cells_;
}

void CXmlBatchDocument::Build() {
  std::unique_ptr<CXmlElement> function = CreateElement(batch_.GetFunctionName());
  function->SetAttribute("TIMESTAMP", batch_.GetBatchId());
  function->SetAttribute("TABLE", batch_.GetStructureName());
  function->SetAttribute("BEGIN", "1");
  function_ = function.get();
  AddToRoot(std::move(function));

  // Names are looked up once per batch, not once per cell. A column the table
  // cannot name is left out of every row: an element needs a name, and
  // inventing one would put a column into the document that the structure
  // does not have. Where a name occurs twice, the later column answers for it,
  // as a lookup by name in the table does.
  std::vector<std::string_view> names;
  const int columns = table_->GetColumnCount();
  for (int column = 0; column < columns; ++column) {
    const char* name = table_->GetColumnName(column);
    if (name == nullptr) continue;
    named_.push_back(column);
    names.emplace_back(name);
    if (std::strcmp(name, "H_IDENT") == 0) h_ident_ = column;
    if (std::strcmp(name, "T_IDENT") == 0) t_ident_ = column;
    if (std::strcmp(name, "IDENT") == 0) ident_ = column;
  }
  cells_.resize(named_.size());
  rows_ = std::make_unique<CXmlRowWriter>(function_->GetLevel() + 1, names);

  // Only the rows' places and their length are kept; their bytes are written
  // once, into the document.
  const int rows = static_cast<int>(table_->GetRowCount());
  for (int row = 0; row < rows; ++row) {
    table_->SetRow(row);
    const std::string_view name = RowName();
    // A row without any identifier is not written at all.
    if (name.empty()) continue;
    written_.push_back(static_cast<uint32_t>(row));
    rows_length_ += rows_->RowLength(name, RowCells().data());
  }
}

CXmlBatchDocument::FunctionFrame CXmlBatchDocument::MakeFunctionFrame() const {
  // The tree as it stands, with the rows as the first children of the
  // function element: its start tag closes with ">" now that it has
  // children, and its end tag follows them.
  FunctionFrame frame;
  frame.start = function_->GetStartTag();
  size_t inner = 0;  // the function element's own children in the tree
  for (size_t i = 0; i < function_->GetChildCount(); ++i) {
    inner += function_->GetChild(i)->GetElementLength();
  }
  if (function_->GetChildCount() == 0) frame.start.replace(frame.start.size() - 2, 2, ">");
  frame.end = "\n" + std::string(static_cast<size_t>(function_->GetLevel()) * 2, ' ') + "</" +
              std::string(function_->GetName()) + ">";
  frame.length = frame.start.size() + rows_length_ + inner + frame.end.size();
  return frame;
}

size_t CXmlBatchDocument::GetDocumentLength() const {
  if (written_.empty()) return CXmlDocument::GetDocumentLength();
  const CXmlElement* root = GetRoot();
  size_t length = std::string_view(kDeclaration).size() + 2 + root->GetStartTag().size() +
                  root->GetEndTag().size();
  for (size_t i = 0; i < root->GetChildCount(); ++i) {
    const CXmlElement* child = root->GetChild(i);
    length += child == function_ ? MakeFunctionFrame().length : child->GetElementLength();
  }
  return length;
}

void CXmlBatchDocument::WriteDocument(char* out) const {
  if (written_.empty()) return CXmlDocument::WriteDocument(out);
  const CXmlElement* root = GetRoot();
  const FunctionFrame frame = MakeFunctionFrame();
  char* at = Put(out, kDeclaration);
  at = Put(at, "\n\n");
  at = Put(at, root->GetStartTag());
  for (size_t i = 0; i < root->GetChildCount(); ++i) {
    const CXmlElement* child = root->GetChild(i);
    if (child != function_) {
      at = child->WriteElement(at);
      continue;
    }
    at = Put(at, frame.start);
    for (uint32_t row : written_) {
      table_->SetRow(static_cast<int32_t>(row));
      at = rows_->WriteRow(at, RowName(), RowCells().data());
    }
    for (size_t k = 0; k < function_->GetChildCount(); ++k) {
      at = function_->GetChild(k)->WriteElement(at);
    }
    at = Put(at, frame.end);
  }
  Put(at, root->GetEndTag());
}

bool CXmlBatchDocument::Save(const std::string& path) {
  Build();
  return SaveToFile(path);
}
