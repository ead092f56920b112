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

class CXmlName;

class CXmlElement {
 public:
  // Name and value are escaped, then stripped of surrounding white space.
  explicit CXmlElement(std::string_view name);
  CXmlElement(std::string_view name, std::string_view value);
  // The name as prepared once for many elements; only the value is escaped
  // and trimmed here.
  CXmlElement(const CXmlName& name, std::string_view value);
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
  // Kept for callers that know a row's width; children are an intrusive
  // list, so there is nothing to reserve.
  void ReserveChildren(size_t /*count*/) {}

  std::string GetStartTag() const;
  std::string GetEndTag() const;

  // The number of bytes WriteElement writes for this element and its subtree.
  // Kept up to date as the tree grows, so the document knows its final size
  // without a pass over the tree.
  size_t GetElementLength() const { return length_; }
  // Bytes past the end that WriteElement may scribble on.
  static constexpr size_t kWriteSlack = 64;
  // Writes this element and its subtree at `out`, which has room for
  // GetElementLength() + kWriteSlack bytes; returns the end of what was
  // written.
  char* WriteElement(char* out) const;
  // Appends this element and its subtree to `out`.
  void WriteElement(std::string& out) const;

  std::string_view GetName() const { return {text_, name_length_}; }
  std::string_view GetValue() const {
    return text_ != nullptr ? std::string_view(text_ + name_length_, value_length_)
                            : std::string_view();
  }
  int GetLevel() const { return level_; }
  size_t GetChildCount() const { return child_count_; }
  // Walks the list: for inspection, not for serialising.
  const CXmlElement* GetChild(size_t i) const;
  // Attributes in the order they are written.
  std::vector<std::pair<std::string, std::string>> GetAttributes() const;

  // The five-character escaping of names and values. "&" that already starts
  // one of the entities is left alone; the apostrophe stays as it is.
  static std::string Escape(std::string_view text);
  // The size of Escape(text), and Escape(text) written at `out` (which has
  // room for it); the end of what was written.
  static size_t EscapedSize(std::string_view text);
  static char* PutEscaped(char* out, std::string_view text);
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
  struct AttributeTable {
    std::array<std::vector<std::pair<std::string, std::string>>, kBuckets> buckets;
    size_t length = 0;  // bytes of the attributes in the start tag
  };

  // What a tree's top element frees for its whole tree: the arena
  // allocations below it, counted per block, and the attribute tables below
  // it. Elements inside a tree are never destroyed one by one; the tree goes
  // back a block at a time.
  struct Ledger {
    std::vector<std::pair<void*, int64_t>> blocks;  // block, allocations in it
    std::vector<CXmlElement*> attributed;
    void Add(const void* memory);
  };

  // `name_ready`: the name is escaped and trimmed already.
  void SetText(std::string_view name, bool name_ready, std::string_view value);
  // Adds `delta` to the length of this element and of every ancestor;
  // returns the top of the tree.
  CXmlElement* Grow(std::ptrdiff_t delta);
  Ledger& TopLedger(CXmlElement* top);
  // The element's own tags and, without children, its value: all it writes
  // but its children's text.
  size_t OwnLengthWith(bool children) const {
    const size_t start = 2 + Indent() + name_length_ + AttributesLength();
    if (children) return start + 1 + 1 + Indent() + 3 + name_length_;
    if (value_length_ == 0) return start + 2;
    return start + 1 + value_length_ + 3 + name_length_;
  }
  size_t AttributesLength() const { return attributes_ ? attributes_->length : 0; }
  // The text is in the element's own allocation, right after it.
  bool TextInline() const;
  size_t Indent() const { return level_ > 0 ? static_cast<size_t>(level_) * 2 : 0; }
  size_t GetStartTagLength() const;
  size_t GetEndTagLength() const;
  char* WriteStartTag(char* out) const;
  char* WriteEndTag(char* out) const;
  char* WriteLeaf(char* out) const;

  std::unique_ptr<AttributeTable> attributes_;  // null until the first attribute
  std::unique_ptr<Ledger> ledger_;  // top of a tree only, once it has children
  // Owned children, first to last; each links to its next sibling. The parent
  // link lets length changes reach the ancestors.
  CXmlElement* first_child_ = nullptr;
  CXmlElement* last_child_ = nullptr;
  CXmlElement* next_sibling_ = nullptr;
  CXmlElement* parent_ = nullptr;
  // The escaped, trimmed name followed by the value, in the arena; null when
  // both are empty.
  char* text_ = nullptr;
  size_t length_ = 0;            // bytes of this element and its subtree
  int level_ = 0;
  uint32_t name_length_ = 0;
  uint32_t value_length_ = 0;
  uint32_t child_count_ = 0;
};

// An element name escaped and trimmed once, for the many elements that carry
// it (a batch's column names repeat in every row).
class CXmlName {
 public:
  explicit CXmlName(std::string_view name);

  const std::string& GetText() const { return text_; }

 private:
  std::string text_;
};
