#pragma once
// CXmlBatchDocument: one received batch as an XML document. Under the root
// BATCH stands one element named after the batch function, with the
// attributes TIMESTAMP (the batch id), BEGIN ("1") and TABLE (the
// structure), and under it one element per row that has an identifier
// (H_IDENT, else T_IDENT, else IDENT), named by that identifier's value and
// holding one element per column.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "output/xml_document.h"
#include "output/xml_row_writer.h"

class CBatchServerFunc;
class CSapTable;

class CXmlBatchDocument : public CXmlDocument {
 public:
  // Takes the received BATCH_TABLE as text. Rows that disagree with each
  // other in their number of fields throw the table's std::string message.
  CXmlBatchDocument(CBatchServerFunc& batch, int32_t flag);
  ~CXmlBatchDocument() override;

  // Fills the tree; called once per document.
  void Build();
  // Build, then SaveToFile; false after a file error (nothing is reported).
  bool Save(const std::string& path);

  // The rows are written straight from the table's texts, after whatever
  // the function element holds in the tree: no element per cell is made.
  // They are written in one pass; the buffer grows as they come.
  std::string BuildInMemory() const override;
  std::string_view BuildInto(CDocumentBuffer& buffer) const override;

 private:
  // The cells of the current row, one per named column.
  const std::vector<std::string_view>& RowCells() const;
  // The current row's identifier: H_IDENT, else T_IDENT, else IDENT.
  std::string_view RowName() const;

  CBatchServerFunc& batch_;
  std::unique_ptr<CSapTable> table_;
  // Filled by Build.
  CXmlElement* function_ = nullptr;
  std::unique_ptr<CXmlRowWriter> rows_;
  std::vector<int> named_;  // positions of the columns that have a name
  int h_ident_ = -1;
  int t_ident_ = -1;
  int ident_ = -1;
  // Serialising walks the table's rows (its current row moves) and gathers
  // each row's cells here; neither changes what the document holds.
  mutable std::vector<std::string_view> cells_;
  // The receiving function passes 1; nothing reads it.
  [[maybe_unused]] int32_t flag_;
};
