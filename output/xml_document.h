#pragma once
// A document that serialises an element tree into memory and onto disk.

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "output/document_buffer.h"
#include "output/xml_element.h"

class CXmlDocument {
 public:
  explicit CXmlDocument(const std::string& root_name);
  virtual ~CXmlDocument();

  CXmlDocument(const CXmlDocument&) = delete;
  CXmlDocument& operator=(const CXmlDocument&) = delete;

  // A new, unattached element.
  std::unique_ptr<CXmlElement> CreateElement(std::string_view name) const;
  std::unique_ptr<CXmlElement> CreateElement(std::string_view name, std::string_view value) const;
  std::unique_ptr<CXmlElement> CreateElement(const CXmlName& name, std::string_view value) const;
  void AddToRoot(std::unique_ptr<CXmlElement> element);

  // The whole document: declaration, two line feeds, the root element, no
  // final line feed. Empty when there is no root.
  virtual std::string BuildInMemory() const;
  // The same bytes written into `buffer`; valid until its next use.
  virtual std::string_view BuildInto(CDocumentBuffer& buffer) const;
  // Writes the document in one write to a file opened without sharing,
  // created or emptied. False after any file error (nothing is reported).
  // The text is assembled in the calling thread's CDocumentBuffer, which the
  // next document of the thread reuses.
  bool SaveToFile(const std::string& path) const;

  CXmlElement* GetRoot() const { return root_.get(); }

  static constexpr const char* kDeclaration =
      "<?xml version=\"1.0\" encoding=\"iso-8859-1\"?>";

 private:
  // The length of the document, known before a byte is written, so that its
  // text is assembled at its final size; WriteDocument writes exactly those
  // bytes and may scribble on the CXmlElement::kWriteSlack bytes behind.
  size_t GetDocumentLength() const;
  void WriteDocument(char* out) const;

  std::unique_ptr<CXmlElement> root_;
};
