#include "output/xml_element.h"

#include <cstdint>
#include <cstring>

namespace {

// Entities that protect an "&" from being escaped again, in the order they are
// tested. The apostrophe's "replacement" is itself, so it can never match here.
constexpr const char* kProtected[] = {"&lt;", "&amp;", "&gt;", "&quot;"};

bool StartsWithEntity(const std::string& text, size_t pos) {
  for (const char* entity : kProtected) {
    if (text.compare(pos, std::strlen(entity), entity) == 0) return true;
  }
  return false;
}

bool IsTrimmed(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

void AppendIndent(std::string& out, int level) {
  if (level > 0) out.append(static_cast<size_t>(level) * 2, ' ');
}

}  // namespace

CXmlElement::CXmlElement(const std::string& name) : name_(Trim(Escape(name))) {}

CXmlElement::CXmlElement(const std::string& name, const std::string& value)
    : name_(Trim(Escape(name))), value_(Trim(Escape(value))) {}

CXmlElement::~CXmlElement() = default;

// One pass over the text gives exactly what five passes ("<", "&", ">", the
// double quote, the apostrophe) give: none of the protected entities contains a
// character that an earlier pass could have changed, so looking at the
// original text after an "&" sees what the "&" pass would have seen.
std::string CXmlElement::Escape(const std::string& text) {
  std::string out;
  out.reserve(text.size() + text.size() / 8);
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    switch (c) {
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '&':
        if (StartsWithEntity(text, i)) {
          out += '&';
        } else {
          out += "&amp;";
        }
        break;
      default: out += c; break;
    }
  }
  return out;
}

std::string CXmlElement::Trim(const std::string& text) {
  size_t begin = 0;
  size_t end = text.size();
  while (begin < end && IsTrimmed(text[begin])) ++begin;
  while (end > begin && IsTrimmed(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

unsigned CXmlElement::AttributeBucket(const std::string& name) {
  uint32_t h = 0;
  for (char c : name) {
    // Bytes count as signed 8-bit values; the sum wraps at 32 bits.
    h = h * 33u + static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c)));
  }
  return h % kBuckets;
}

void CXmlElement::SetAttribute(const std::string& name, const std::string& value) {
  auto& bucket = attributes_[AttributeBucket(name)];
  for (auto& entry : bucket) {
    if (entry.first == name) {
      entry.second = value;
      return;
    }
  }
  bucket.insert(bucket.begin(), {name, value});
}

void CXmlElement::AddChild(std::unique_ptr<CXmlElement> child) {
  child->level_ = level_ + 1;
  children_.push_back(std::move(child));
}

std::vector<std::pair<std::string, std::string>> CXmlElement::GetAttributes() const {
  std::vector<std::pair<std::string, std::string>> all;
  for (const auto& bucket : attributes_) all.insert(all.end(), bucket.begin(), bucket.end());
  return all;
}

// Tags are composed in growable strings, so a tag of any length is written
// whole: nothing is cut and nothing can be overrun.
void CXmlElement::AppendStartTag(std::string& out) const {
  out += '\n';
  AppendIndent(out, level_);
  out += '<';
  out += name_;
  for (const auto& bucket : attributes_) {
    for (const auto& [key, value] : bucket) {
      out += ' ';
      out += key;
      out += "=\"";
      out += value;
      out += '"';
    }
  }
  out += (children_.empty() && value_.empty()) ? "/>" : ">";
}

void CXmlElement::AppendEndTag(std::string& out) const {
  if (!children_.empty()) {
    out += '\n';
    AppendIndent(out, level_);
  } else if (value_.empty()) {
    return;  // the start tag already closed itself
  }
  out += "</";
  out += name_;
  out += '>';
}

std::string CXmlElement::GetStartTag() const {
  std::string tag;
  AppendStartTag(tag);
  return tag;
}

std::string CXmlElement::GetEndTag() const {
  std::string tag;
  AppendEndTag(tag);
  return tag;
}

void CXmlElement::WriteElement(std::string& out) const {
  AppendStartTag(out);
  if (children_.empty()) {
    out += value_;
  } else {
    for (const auto& child : children_) child->WriteElement(out);
  }
  AppendEndTag(out);
}
