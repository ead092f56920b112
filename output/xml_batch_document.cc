#include "output/xml_batch_document.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "access/sap_table.h"
#include "app/batch_server_func.h"
#include "output/document_buffer.h"

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
}

std::string CXmlBatchDocument::BuildInMemory() const {
  CDocumentBuffer buffer;
  return std::string(BuildInto(buffer));
}

std::string_view CXmlBatchDocument::BuildInto(CDocumentBuffer& buffer) const {
  if (function_ == nullptr) return CXmlDocument::BuildInto(buffer);
  // The rows' length is not worked out first: that would read and escape
  // every cell twice. The buffer starts at an estimate (every row's tags in
  // their longer form, the texts and a quarter more for escaping), so that a
  // large document seldom has to grow, and before each piece it is made
  // large enough for the most that piece can take.
  const uint64_t texts = table_->GetTextSize();
  const uint64_t estimate = uint64_t{table_->GetRowCount()} * rows_->GetTagsBound() + texts + texts / 4 +
                            64 * 1024;
  char* base = buffer.Prepare(static_cast<size_t>(std::min<uint64_t>(estimate, SIZE_MAX / 2)));
  const auto room = [&](char* at, size_t n) {
    const size_t used = static_cast<size_t>(at - base);
    base = buffer.Grow(used + n + CXmlElement::kWriteSlack);
    return base + used;
  };
  const CXmlElement* root = GetRoot();
  const std::string root_start = root->GetStartTag();
  const std::string root_end = root->GetEndTag();
  char* at = room(base, std::strlen(kDeclaration) + 2 + root_start.size());
  at = Put(at, kDeclaration);
  at = Put(at, "\n\n");
  at = Put(at, root_start);
  for (size_t i = 0; i < root->GetChildCount(); ++i) {
    const CXmlElement* child = root->GetChild(i);
    if (child != function_) {
      at = room(at, child->GetElementLength());
      at = child->WriteElement(at);
      continue;
    }
    // The function element's start tag closes with ">" when rows follow;
    // without rows and children it is the tree's own self-closing element.
    std::string start = function_->GetStartTag();
    if (function_->GetChildCount() == 0) start.replace(start.size() - 2, 2, ">");
    const size_t function_at = static_cast<size_t>(at - base);
    at = room(at, start.size());
    at = Put(at, start);
    bool any_row = false;
    const int rows = static_cast<int>(table_->GetRowCount());
    for (int row = 0; row < rows; ++row) {
      table_->SetRow(row);
      const std::string_view name = RowName();
      // A row without any identifier is not written at all.
      if (name.empty()) continue;
      const std::string_view* cells = RowCells().data();
      at = room(at, rows_->RowBound(name, cells));
      at = rows_->WriteRow(at, name, cells);
      any_row = true;
    }
    if (!any_row) {
      at = base + function_at;
      at = room(at, function_->GetElementLength());
      at = function_->WriteElement(at);
      continue;
    }
    for (size_t k = 0; k < function_->GetChildCount(); ++k) {
      at = room(at, function_->GetChild(k)->GetElementLength());
      at = function_->GetChild(k)->WriteElement(at);
    }
    const std::string end = "\n" + std::string(static_cast<size_t>(function_->GetLevel()) * 2, ' ') +
                            "</" + std::string(function_->GetName()) + ">";
    at = room(at, end.size());
    at = Put(at, end);
  }
  at = room(at, root_end.size());
  at = Put(at, root_end);
  return std::string_view(base, static_cast<size_t>(at - base));
}

bool CXmlBatchDocument::Save(const std::string& path) {
  Build();
  return SaveToFile(path);
}
