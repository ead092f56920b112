#include "output/xml_document.h"

#include <algorithm>
#include <string_view>
#include <utility>

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

std::string CXmlDocument::BuildInMemory() const {
  std::string out;
  if (!root_) return out;
  // The length is known before anything is written, so the text is allocated
  // once at its final size (and a little room for the writer's wide copies):
  // no growing, no copying.
  const std::string_view declaration(kDeclaration);
  const size_t length = declaration.size() + 2 + root_->GetElementLength();
  out.resize(length + CXmlElement::kWriteSlack);
  char* end = std::copy(declaration.begin(), declaration.end(), out.data());
  *end++ = '\n';
  *end++ = '\n';
  root_->WriteElement(end);
  out.resize(length);  // keeps the buffer: no copy
  return out;
}

bool CXmlDocument::SaveToFile(const std::string& path) const {
  const std::string text = BuildInMemory();
  return platform::WriteWholeFile(path, text.data(), text.size()) == platform::kFileOk;
}
