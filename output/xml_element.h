#pragma once
// One element of an XML batch document: name, text value, attributes and an
// owned, ordered list of children.

#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class CXmlElement {
 public:
  // Name and value are escaped, then stripped of surrounding white space.
  explicit CXmlElement(const std::string& name);
  CXmlElement(const std::string& name, const std::string& value);
  virtual ~CXmlElement();

  CXmlElement(const CXmlElement&) = delete;
  CXmlElement& operator=(const CXmlElement&) = delete;

  // Stores the value under the name, replacing an earlier value. Neither is
  // escaped: attribute values are the server's own texts.
  void SetAttribute(const std::string& name, const std::string& value);
  // Takes ownership; the child's level becomes this level + 1 at this moment,
  // so trees are built from the root downwards.
  void AddChild(std::unique_ptr<CXmlElement> child);

  std::string GetStartTag() const;
  std::string GetEndTag() const;
  // Appends this element and its subtree to `out`.
  void WriteElement(std::string& out) const;

  const std::string& GetName() const { return name_; }
  const std::string& GetValue() const { return value_; }
  int GetLevel() const { return level_; }
  size_t GetChildCount() const { return children_.size(); }
  const CXmlElement* GetChild(size_t i) const { return children_[i].get(); }
  // Attributes in the order they are written.
  std::vector<std::pair<std::string, std::string>> GetAttributes() const;

  // The five-character escaping of names and values. "&" that already starts
  // one of the entities is left alone; the apostrophe stays as it is.
  static std::string Escape(const std::string& text);
  // Strips blank, tab, CR, LF, vertical tab and form feed at both ends.
  static std::string Trim(const std::string& text);
  // Bucket of an attribute name in the 17-bucket table that fixes the order.
  static unsigned AttributeBucket(const std::string& name);

 private:
  static constexpr unsigned kBuckets = 17;

  void AppendStartTag(std::string& out) const;
  void AppendEndTag(std::string& out) const;

  // Each bucket lists its names most recently inserted first, which is the
  // order they are written in.
  std::array<std::vector<std::pair<std::string, std::string>>, kBuckets> attributes_;
  int level_ = 0;
  std::string name_;
  std::string value_;
  std::vector<std::unique_ptr<CXmlElement>> children_;
};
