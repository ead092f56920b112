#include "output/xml_document.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "output/document_buffer.h"
#include "platform/file.h"

CXmlDocument::CXmlDocument(const std::string& root_name)
    : root_(std::make_unique<CXmlElement>(root_name)) {}

CXmlDocument::~CXmlDocument() = default;

std::unique_ptr<CXmlElement> CXmlDocument::CreateElement(std::string_view name) const {
  return std::make_unique<CXmlElement>(name);
}

std::unique_ptr<CXmlElement> CXmlDocument::CreateElement(std::string_view name,
                                                         std::string_view value) const {
  return std::make_unique<CXmlElement>(name, value);
}

std::unique_ptr<CXmlElement> CXmlDocument::CreateElement(const CXmlName& name,
                                                         std::string_view value) const {
  return std::make_unique<CXmlElement>(name, value);
}

void CXmlDocument::AddToRoot(std::unique_ptr<CXmlElement> element) {
  root_->AddChild(std::move(element));
}

size_t CXmlDocument::GetDocumentLength() const {
  return std::string_view(kDeclaration).size() + 2 + root_->GetElementLength();
}

void CXmlDocument::WriteDocument(char* out) const {
  const std::string_view declaration(kDeclaration);
  char* end = std::copy(declaration.begin(), declaration.end(), out);
  *end++ = '\n';
  *end++ = '\n';
  root_->WriteElement(end);
}

std::string CXmlDocument::BuildInMemory() const {
  std::string out;
  if (!root_) return out;
  const size_t length = GetDocumentLength();
  out.resize(length + CXmlElement::kWriteSlack);
  WriteDocument(out.data());
  out.resize(length);  // keeps the buffer: no copy
  return out;
}

std::string_view CXmlDocument::BuildInto(CDocumentBuffer& buffer) const {
  if (!root_) return std::string_view();
  const size_t length = GetDocumentLength();
  char* out = buffer.Prepare(length + CXmlElement::kWriteSlack);
  WriteDocument(out);
  return std::string_view(out, length);
}

bool CXmlDocument::SaveToFile(const std::string& path) const {
  // One buffer per writing thread; Trim runs also when writing throws.
  thread_local CDocumentBuffer buffer;
  struct TrimAtEnd {
    CDocumentBuffer& buffer;
    ~TrimAtEnd() { buffer.Trim(); }
  } trim{buffer};
  const std::string_view text = BuildInto(buffer);
  return platform::WriteWholeFile(path, text.data(), text.size()) == platform::kFileOk;
}
