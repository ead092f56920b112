#pragma once
// One element of an XML batch document: name, text value, attributes and an
// owned, ordered list of children.
//
// A large batch is millions of elements, almost all of them leaves without
// attributes, made within milliseconds and destroyed together. So an element
// keeps its name and value in one small text block, allocates its attribute
// table only when it gets an attribute, and lives (with its text) in blocks
// of the element arena instead of the general heap: allocating is moving a
// pointer, and the blocks go back as soon as the last element in them is gone,
// from whichever thread destroys the tree. A single element that outlives its
// tree keeps its whole 64 KiB block alive; trees that live for one document
// never do.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class CXmlElement {
 public:
  // Name and value are escaped, then stripped of surrounding white space.
  explicit CXmlElement(std::string_view name);
  CXmlElement(std::string_view name, std::string_view value);
  virtual ~CXmlElement();

  CXmlElement(const CXmlElement&) = delete;
  CXmlElement& operator=(const CXmlElement&) = delete;

  // Elements made with new live in the element arena.
  static void* operator new(std::size_t size);
  static void operator delete(void* memory, std::size_t size) noexcept;

  // Stores the value under the name, replacing an earlier value. Neither is
  // escaped: attribute values are the server's own texts.
  void SetAttribute(const std::string& name, const std::string& value);
  // Takes ownership; the child's level becomes this level + 1 at this moment,
  // so trees are built from the root downwards.
  void AddChild(std::unique_ptr<CXmlElement> child);
  // Room for `count` children in all, so that a row's columns are added
  // without growing the list step by step.
  void ReserveChildren(size_t count) { children_.reserve(count); }

  std::string GetStartTag() const;
  std::string GetEndTag() const;

  // Serialising is two passes over the tree: the exact length first, so that
  // the text is written once into a buffer of its final size.
  // The number of bytes WriteElement writes for this element and its subtree.
  size_t GetElementLength() const;
  // Writes this element and its subtree at `out`, which has room for
  // GetElementLength() bytes; returns the end of what was written.
  char* WriteElement(char* out) const;
  // Appends this element and its subtree to `out`.
  void WriteElement(std::string& out) const;

  std::string_view GetName() const { return {text_, name_length_}; }
  std::string_view GetValue() const {
    return text_ != nullptr ? std::string_view(text_ + name_length_, value_length_)
                            : std::string_view();
  }
  int GetLevel() const { return level_; }
  size_t GetChildCount() const { return children_.size(); }
  const CXmlElement* GetChild(size_t i) const { return children_[i].get(); }
  // Attributes in the order they are written.
  std::vector<std::pair<std::string, std::string>> GetAttributes() const;

  // The five-character escaping of names and values. "&" that already starts
  // one of the entities is left alone; the apostrophe stays as it is.
  static std::string Escape(std::string_view text);
  // Strips blank, tab, CR, LF, vertical tab and form feed at both ends.
  static std::string_view Trim(std::string_view text);
  // Bucket of an attribute name in the 17-bucket table that fixes the order.
  static unsigned AttributeBucket(const std::string& name);

  // Arena blocks in use by all threads; every tree's blocks are returned when
  // the tree is gone.
  static size_t GetArenaBlockCount();

 private:
  static constexpr unsigned kBuckets = 17;
  // Each bucket lists its names most recently inserted first, which is the
  // order they are written in.
  using AttributeTable =
      std::array<std::vector<std::pair<std::string, std::string>>, kBuckets>;

  void SetText(std::string_view name, std::string_view value);
  size_t GetStartTagLength() const;
  size_t GetEndTagLength() const;
  char* WriteStartTag(char* out) const;
  char* WriteEndTag(char* out) const;

  std::unique_ptr<AttributeTable> attributes_;  // null until the first attribute
  int level_ = 0;
  uint32_t name_length_ = 0;
  uint32_t value_length_ = 0;
  // The escaped, trimmed name followed by the value, in the arena; null when
  // both are empty.
  char* text_ = nullptr;
  std::vector<std::unique_ptr<CXmlElement>> children_;
};
