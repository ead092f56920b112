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

#include "output/xml_document.h"

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

 private:
  CBatchServerFunc& batch_;
  std::unique_ptr<CSapTable> table_;
  // The receiving function passes 1; nothing reads it.
  [[maybe_unused]] int32_t flag_;
};
