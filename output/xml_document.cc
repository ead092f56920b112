#include "output/xml_document.h"

#include "platform/file.h"

CXmlDocument::CXmlDocument(const std::string& root_name)
    : root_(std::make_unique<CXmlElement>(root_name)) {}

CXmlDocument::~CXmlDocument() = default;

std::unique_ptr<CXmlElement> CXmlDocument::CreateElement(const std::string& name) const {
  return std::make_unique<CXmlElement>(name);
}

std::unique_ptr<CXmlElement> CXmlDocument::CreateElement(const std::string& name,
                                                         const std::string& value) const {
  return std::make_unique<CXmlElement>(name, value);
}

void CXmlDocument::AddToRoot(std::unique_ptr<CXmlElement> element) {
  root_->AddChild(std::move(element));
}

std::string CXmlDocument::BuildInMemory() const {
  std::string out;
  if (!root_) return out;
  // The first step holds a typical batch; larger ones grow geometrically, which
  // copies less than growing by fixed steps.
  out.reserve(kGrowStep);
  out += kDeclaration;
  out += "\n\n";
  root_->WriteElement(out);
  return out;
}

bool CXmlDocument::SaveToFile(const std::string& path) const {
  const std::string text = BuildInMemory();
  return platform::WriteWholeFile(path, text.data(), text.size()) == platform::kFileOk;
}
