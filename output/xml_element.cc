#include "output/xml_element.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <mutex>
#include <new>

#include "output/short_copy.h"

namespace {

// ---------------------------------------------------------------------------
// The element arena.

constexpr size_t kBlockSize = 64 * 1024;
constexpr size_t kAlignment = alignof(void*);
// Requests larger than this (long texts) get a block of their own.
constexpr size_t kLargestShared = 16 * 1024;
// Emptied blocks kept for reuse (16 MiB), so that the next document of a few
// thousand rows finds its memory ready instead of faulting in fresh pages. A
// larger document's blocks beyond these go back to the system at once.
constexpr size_t kSpareBlocks = 256;

// The start of every block. Blocks are aligned to kBlockSize, so any address
// handed out from a block finds its header by rounding down. A block of its
// own for a large request is aligned the same way and holds its one
// allocation right after the header.
struct BlockHeader {
  std::atomic<int64_t> live;  // allocations not yet released
  size_t size;
};
constexpr size_t kHeaderSize = (sizeof(BlockHeader) + kAlignment - 1) & ~(kAlignment - 1);

// While a thread allocates from a block, the block counts this many extra
// allocations, so that handing one out needs no atomic operation. When the
// thread moves on, it takes back what it did not hand out.
constexpr int64_t kCursorHold = int64_t{1} << 40;

std::atomic<size_t> g_blocks_in_use{0};

std::mutex g_spare_lock;
// Outlives every thread, and never allocates once made.
std::vector<void*>& Spares() {
  static std::vector<void*>* spares = [] {
    auto* made = new std::vector<void*>();
    made->reserve(kSpareBlocks);
    return made;
  }();
  return *spares;
}

size_t RoundUp(size_t bytes) { return (bytes + kAlignment - 1) & ~(kAlignment - 1); }

BlockHeader* NewBlock(size_t size, int64_t live) {
  void* memory = nullptr;
  if (size == kBlockSize) {
    std::lock_guard<std::mutex> lock(g_spare_lock);
    if (!Spares().empty()) {
      memory = Spares().back();
      Spares().pop_back();
    }
  }
  if (memory == nullptr) memory = ::operator new(size, std::align_val_t{kBlockSize});
  g_blocks_in_use.fetch_add(1, std::memory_order_relaxed);
  return new (memory) BlockHeader{{live}, size};
}

void FreeBlock(BlockHeader* block) noexcept {
  const size_t size = block->size;
  block->~BlockHeader();
  g_blocks_in_use.fetch_sub(1, std::memory_order_relaxed);
  if (size == kBlockSize) {
    std::lock_guard<std::mutex> lock(g_spare_lock);
    if (Spares().size() < kSpareBlocks) {
      Spares().push_back(block);
      return;
    }
  }
  ::operator delete(static_cast<void*>(block), std::align_val_t{kBlockSize});
}

// Takes `count` allocations off the block's tally; the last one frees it.
void Drop(BlockHeader* block, int64_t count) noexcept {
  // acq_rel: every thread's use of the block happens before it is freed.
  if (block->live.fetch_sub(count, std::memory_order_acq_rel) == count) FreeBlock(block);
}

// The calling thread's current block.
struct Cursor {
  BlockHeader* block = nullptr;
  char* next = nullptr;
  char* end = nullptr;
  int64_t handed_out = 0;

  ~Cursor() { Leave(); }

  void Leave() noexcept {
    if (block == nullptr) return;
    BlockHeader* left = block;
    const int64_t unused = kCursorHold - handed_out;
    block = nullptr;
    next = end = nullptr;
    handed_out = 0;
    Drop(left, unused);
  }

  void Enter() {
    BlockHeader* fresh = NewBlock(kBlockSize, kCursorHold);
    Leave();
    block = fresh;
    next = reinterpret_cast<char*>(fresh) + kHeaderSize;
    end = reinterpret_cast<char*>(fresh) + kBlockSize;
  }
};

thread_local Cursor t_cursor;

// `bytes` aligned for pointers; std::bad_alloc when the system has no block.
void* ArenaAllocate(size_t bytes) {
  if (bytes > kLargestShared) {
    if (bytes > std::numeric_limits<size_t>::max() - kHeaderSize - kBlockSize) {
      throw std::bad_alloc();
    }
    return reinterpret_cast<char*>(NewBlock(kHeaderSize + bytes, 1)) + kHeaderSize;
  }
  const size_t step = RoundUp(bytes);
  Cursor& cursor = t_cursor;
  if (static_cast<size_t>(cursor.end - cursor.next) < step) cursor.Enter();
  char* memory = cursor.next;
  cursor.next += step;
  ++cursor.handed_out;
  return memory;
}

// Room for `more` entries, growing by doubling so that adding one at a time
// stays cheap.
template <typename T>
void Room(std::vector<T>& list, size_t more) {
  if (list.capacity() - list.size() >= more) return;
  list.reserve(std::max(list.capacity() * 2, list.size() + more));
}

BlockHeader* BlockOf(const void* memory) {
  const auto address = reinterpret_cast<std::uintptr_t>(memory);
  return reinterpret_cast<BlockHeader*>(address & ~(std::uintptr_t{kBlockSize} - 1));
}

size_t ArenaStep(size_t bytes) { return RoundUp(bytes); }

// `bytes` right after `last`, which took `last_size` bytes, when `last` was
// the calling thread's most recent allocation and its block has the room;
// null otherwise. The extension is not counted: it goes back with `last`.
void* ArenaExtend(const void* last, size_t last_size, size_t bytes) {
  Cursor& cursor = t_cursor;
  if (cursor.next != static_cast<const char*>(last) + ArenaStep(last_size)) return nullptr;
  const size_t step = ArenaStep(bytes);
  if (bytes > kLargestShared || static_cast<size_t>(cursor.end - cursor.next) < step) {
    return nullptr;
  }
  char* memory = cursor.next;
  cursor.next += step;
  return memory;
}

void ArenaRelease(void* memory) noexcept {
  if (memory == nullptr) return;
  Drop(BlockOf(memory), 1);
}

// ---------------------------------------------------------------------------
// Escaping, trimming, writing.

// Entities that protect an "&" from being escaped again, in the order they are
// tested. The apostrophe's "replacement" is itself, so it can never match here.
constexpr std::string_view kProtected[] = {"&lt;", "&amp;", "&gt;", "&quot;"};

bool StartsWithEntity(std::string_view text, size_t pos) {
  for (std::string_view entity : kProtected) {
    if (text.compare(pos, entity.size(), entity) == 0) return true;
  }
  return false;
}

bool IsTrimmed(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

// The characters escaping may change, as a table: most texts have none of
// them, and a table lookup per character finds that out quickest.
struct EscapeTable {
  unsigned char marked[256] = {};
  constexpr EscapeTable() {
    for (unsigned char c : {'<', '>', '"', '&'}) marked[c] = 1;
  }
};
constexpr EscapeTable kEscapeTable;

unsigned Marked(char c) { return kEscapeTable.marked[static_cast<unsigned char>(c)]; }
bool NeedsEscape(char c) { return Marked(c) != 0; }

// The position of the first character escaping may change, or the size.
// Whether any of the eight bytes is one escaping may change: "<" and ">"
// differ in one bit, the double quote and "&" in another, so two byte-wise
// comparisons find all four.
bool HasEscapable(uint64_t word) {
  constexpr uint64_t kOnes = 0x0101010101010101ull;
  constexpr uint64_t kHighs = 0x8080808080808080ull;
  const uint64_t angle = (word | (kOnes * 0x02)) ^ (kOnes * 0x3E);
  const uint64_t quote = (word | (kOnes * 0x04)) ^ (kOnes * 0x26);
  // Non-zero exactly when some byte of either is zero.
  return ((((angle - kOnes) & ~angle) | ((quote - kOnes) & ~quote)) & kHighs) != 0;
}

size_t ScanBytes(const char* data, size_t i, size_t size) {
  while (i < size && !NeedsEscape(data[i])) ++i;
  return i;
}

uint64_t Load8(const char* at) {
  uint64_t word;
  std::memcpy(&word, at, 8);
  return word;
}

uint64_t Load4(const char* at) {
  uint32_t word;
  std::memcpy(&word, at, 4);
  return word;
}

// Whole words, the last one overlapping what went before, so that a short text
// costs one or two tests instead of a loop over its characters; only a word
// that holds a candidate is looked at byte by byte.
size_t FindEscapable(std::string_view text, size_t from = 0) {
  const char* data = text.data();
  const size_t size = text.size();
  size_t i = from;
  for (; i + 8 <= size; i += 8) {
    if (HasEscapable(Load8(data + i))) return ScanBytes(data, i, size);
  }
  if (i >= size) return size;
  if (size >= 8) {
    return HasEscapable(Load8(data + size - 8)) ? ScanBytes(data, i, size) : size;
  }
  if (size - i >= 4) {
    const uint64_t word = Load4(data + i) | (Load4(data + size - 4) << 32);
    if (!HasEscapable(word)) return size;
  }
  return ScanBytes(data, i, size);
}

// What the character at `pos` becomes; empty when it stays as it is.
std::string_view Replacement(std::string_view text, size_t pos) {
  switch (text[pos]) {
    case '<': return "&lt;";
    case '>': return "&gt;";
    case '"': return "&quot;";
    case '&': return StartsWithEntity(text, pos) ? std::string_view() : "&amp;";
    default: return std::string_view();
  }
}

// One pass over the text gives exactly what five passes ("<", "&", ">", the
// double quote, the apostrophe) give: none of the protected entities contains a
// character that an earlier pass could have changed, so looking at the
// original text after an "&" sees what the "&" pass would have seen.
size_t EscapedLength(std::string_view text) {
  size_t length = text.size();
  for (size_t i = FindEscapable(text); i < text.size(); i = FindEscapable(text, i + 1)) {
    const std::string_view replacement = Replacement(text, i);
    if (!replacement.empty()) length += replacement.size() - 1;
  }
  return length;
}

void Copy(char* out, const char* from, size_t n) { xml_output::CopyShort(out, from, n); }

char* Put(char* out, std::string_view text) {
  Copy(out, text.data(), text.size());
  return out + text.size();
}

char* Put(char* out, const char* from, size_t n) {
  Copy(out, from, n);
  return out + n;
}

char* Put(char* out, char c) {
  *out = c;
  return out + 1;
}

// Writes the EscapedLength(text) bytes of the escaped text.
char* WriteEscaped(char* out, std::string_view text) {
  size_t run = 0;  // start of the characters not yet written
  for (size_t i = FindEscapable(text); i < text.size(); i = FindEscapable(text, i + 1)) {
    const std::string_view replacement = Replacement(text, i);
    if (replacement.empty()) continue;
    out = Put(out, text.substr(run, i - run));
    out = Put(out, replacement);
    run = i + 1;
  }
  return Put(out, text.substr(run));
}

inline std::string_view Trimmed(std::string_view text) {
  size_t begin = 0;
  size_t end = text.size();
  while (begin < end && IsTrimmed(text[begin])) ++begin;
  while (end > begin && IsTrimmed(text[end - 1])) --end;
  return text.substr(begin, end - begin);
}

size_t IndentOf(int level) { return level > 0 ? static_cast<size_t>(level) * 2 : 0; }

char* PutIndent(char* out, int level) {
  static constexpr std::string_view kBlanks = "                                ";
  const size_t indent = IndentOf(level);
  if (indent > kBlanks.size()) {
    std::memset(out, ' ', indent);
    return out + indent;
  }
  return Put(out, kBlanks.substr(0, indent));
}

uint32_t TextLength(size_t length) {
  // A name or value of 4 GiB cannot be kept, as no memory could be had for it.
  if (length > std::numeric_limits<uint32_t>::max()) throw std::bad_alloc();
  return static_cast<uint32_t>(length);
}

}  // namespace

void* CXmlElement::operator new(std::size_t size) { return ArenaAllocate(size); }

void CXmlElement::operator delete(void* memory, std::size_t size) noexcept {
  (void)size;
  ArenaRelease(memory);
}

size_t CXmlElement::GetArenaBlockCount() {
  return g_blocks_in_use.load(std::memory_order_relaxed);
}

CXmlElement::CXmlElement(std::string_view name) { SetText(name, false, std::string_view()); }

CXmlElement::CXmlElement(std::string_view name, std::string_view value) {
  SetText(name, false, value);
}

CXmlElement::CXmlElement(const CXmlName& name, std::string_view value) {
  SetText(name.GetText(), true, value);
}

CXmlName::CXmlName(std::string_view name)
    : text_(CXmlElement::Trim(CXmlElement::Escape(name))) {}

bool CXmlElement::TextInline() const {
  return text_ == reinterpret_cast<const char*>(this) + ArenaStep(sizeof(CXmlElement));
}

void CXmlElement::Ledger::Add(const void* memory) {
  void* block = BlockOf(memory);
  if (!blocks.empty() && blocks.back().first == block) {
    ++blocks.back().second;
  } else {
    blocks.emplace_back(block, 1);
  }
}

// Only a tree's top element is ever destroyed (the others are owned by their
// parent): it frees the attribute tables of the tree and gives the tree's
// memory back per block, without visiting the elements.
CXmlElement::~CXmlElement() {
  // Text right behind the element goes back with the element.
  if (!TextInline()) ArenaRelease(text_);
  if (!ledger_) return;
  for (CXmlElement* element : ledger_->attributed) element->attributes_.reset();
  for (const auto& [block, count] : ledger_->blocks) {
    Drop(static_cast<BlockHeader*>(block), count);
  }
}

// Escaping neither makes nor removes white space, and every entity that
// protects an "&" lies within the text's non-blank part, so trimming first and
// escaping what is left gives what escaping first and trimming then gives.
void CXmlElement::SetText(std::string_view name, bool name_ready, std::string_view value) {
  if (!name_ready) name = Trimmed(name);
  value = Trimmed(value);
  // Most names and values have nothing to escape and are copied as they are.
  const bool plain_name = name_ready || FindEscapable(name) == name.size();
  const bool plain_value = FindEscapable(value) == value.size();
  name_length_ = TextLength(plain_name ? name.size() : EscapedLength(name));
  value_length_ = TextLength(plain_value ? value.size() : EscapedLength(value));
  length_ = OwnLengthWith(false);
  const size_t total = size_t{name_length_} + value_length_;
  if (total == 0) return;
  // Right behind the element when it was the arena's last allocation, so that
  // both go back as one.
  text_ = static_cast<char*>(ArenaExtend(this, sizeof(CXmlElement), total));
  if (text_ == nullptr) text_ = static_cast<char*>(ArenaAllocate(total));
  char* out = plain_name ? Put(text_, name) : WriteEscaped(text_, name);
  if (plain_value) {
    Put(out, value);
  } else {
    WriteEscaped(out, value);
  }
}

std::string CXmlElement::Escape(std::string_view text) {
  std::string escaped(EscapedLength(text), '\0');
  WriteEscaped(escaped.data(), text);
  return escaped;
}

size_t CXmlElement::EscapedSize(std::string_view text) { return EscapedLength(text); }

char* CXmlElement::PutEscaped(char* out, std::string_view text) {
  return WriteEscaped(out, text);
}

std::string_view CXmlElement::Trim(std::string_view text) { return Trimmed(text); }

unsigned CXmlElement::AttributeBucket(const std::string& name) {
  uint32_t h = 0;
  for (char c : name) {
    // Bytes count as signed 8-bit values; the sum wraps at 32 bits.
    h = h * 33u + static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c)));
  }
  return h % kBuckets;
}

void CXmlElement::SetAttribute(const std::string& name, const std::string& value) {
  if (!attributes_) {
    if (parent_ != nullptr) {
      CXmlElement* top = parent_;
      while (top->parent_ != nullptr) top = top->parent_;
      std::vector<CXmlElement*>& attributed = TopLedger(top).attributed;
      Room(attributed, 1);  // no throw once the table exists
      attributes_ = std::make_unique<AttributeTable>();
      attributed.push_back(this);
    } else {
      attributes_ = std::make_unique<AttributeTable>();
    }
  }
  auto& bucket = attributes_->buckets[AttributeBucket(name)];
  for (auto& entry : bucket) {
    if (entry.first == name) {
      const std::ptrdiff_t delta = static_cast<std::ptrdiff_t>(value.size()) -
                                   static_cast<std::ptrdiff_t>(entry.second.size());
      entry.second = value;
      attributes_->length += static_cast<size_t>(delta);
      Grow(delta);
      return;
    }
  }
  bucket.insert(bucket.begin(), {name, value});
  // blank, name, '=', two double quotes, value
  const size_t added = name.size() + value.size() + 4;
  attributes_->length += added;
  Grow(static_cast<std::ptrdiff_t>(added));
}

void CXmlElement::AddChild(std::unique_ptr<CXmlElement> child) {
  if (!child) return;
  // The tree's top takes over what the child's destruction would free: the
  // child's memory, its text, its attribute table and its own subtree's.
  CXmlElement* top = this;
  while (top->parent_ != nullptr) top = top->parent_;
  Ledger& ledger = TopLedger(top);
  const bool text_apart = child->text_ != nullptr && !child->TextInline();
  Room(ledger.blocks, 2 + (child->ledger_ ? child->ledger_->blocks.size() : 0));
  Room(ledger.attributed, 1 + (child->ledger_ ? child->ledger_->attributed.size() : 0));
  // Nothing below throws: the child is in the tree, or still in `child`.
  CXmlElement* added = child.release();
  ledger.Add(added);
  if (text_apart) ledger.Add(added->text_);
  if (added->attributes_) ledger.attributed.push_back(added);
  if (added->ledger_) {
    for (const auto& entry : added->ledger_->blocks) ledger.blocks.push_back(entry);
    for (CXmlElement* element : added->ledger_->attributed) ledger.attributed.push_back(element);
    added->ledger_.reset();
  }
  // The child's indentation changes with its level: once in a self-closed or
  // leaf element, twice (start and end tag) with children. Its own children
  // keep theirs, as their levels were fixed when they were added.
  const std::ptrdiff_t indent_change =
      static_cast<std::ptrdiff_t>(IndentOf(level_ + 1)) -
      static_cast<std::ptrdiff_t>(IndentOf(added->level_));
  added->length_ += static_cast<size_t>(indent_change * (added->first_child_ ? 2 : 1));
  added->level_ = level_ + 1;
  added->parent_ = this;
  std::ptrdiff_t delta = static_cast<std::ptrdiff_t>(added->length_);
  if (last_child_ == nullptr) {
    // "<X/>" or "<X>v</X>" becomes "<X>", the children, "\n", indent, "</X>".
    delta += static_cast<std::ptrdiff_t>(OwnLengthWith(true)) -
             static_cast<std::ptrdiff_t>(OwnLengthWith(false));
    first_child_ = added;
  } else {
    last_child_->next_sibling_ = added;
  }
  last_child_ = added;
  ++child_count_;
  Grow(delta);
}

CXmlElement* CXmlElement::Grow(std::ptrdiff_t delta) {
  CXmlElement* element = this;
  for (;;) {
    element->length_ += static_cast<size_t>(delta);
    if (element->parent_ == nullptr) return element;
    element = element->parent_;
  }
}

CXmlElement::Ledger& CXmlElement::TopLedger(CXmlElement* top) {
  if (!top->ledger_) top->ledger_ = std::make_unique<Ledger>();
  return *top->ledger_;
}

const CXmlElement* CXmlElement::GetChild(size_t i) const {
  const CXmlElement* child = first_child_;
  while (child != nullptr && i-- > 0) child = child->next_sibling_;
  return child;
}

std::vector<std::pair<std::string, std::string>> CXmlElement::GetAttributes() const {
  std::vector<std::pair<std::string, std::string>> all;
  if (!attributes_) return all;
  for (const auto& bucket : attributes_->buckets) all.insert(all.end(), bucket.begin(), bucket.end());
  return all;
}

// Tags are composed at their full length, so a tag of any length is written
// whole: nothing is cut and nothing can be overrun.
size_t CXmlElement::GetStartTagLength() const {
  const size_t length = 1 + IndentOf(level_) + 1 + name_length_ + AttributesLength();
  return length + ((first_child_ == nullptr && value_length_ == 0) ? 2 : 1);
}

size_t CXmlElement::GetEndTagLength() const {
  if (first_child_ != nullptr) return 1 + IndentOf(level_) + 3 + name_length_;
  return value_length_ == 0 ? 0 : 3 + name_length_;
}

char* CXmlElement::WriteStartTag(char* out) const {
  out = PutIndent(Put(out, '\n'), level_);
  out = Put(Put(out, '<'), GetName());
  if (attributes_) {
    for (const auto& bucket : attributes_->buckets) {
      for (const auto& [key, value] : bucket) {
        out = Put(Put(out, ' '), key);
        out = Put(Put(Put(out, '='), '"'), value);
        out = Put(out, '"');
      }
    }
  }
  if (first_child_ == nullptr && value_length_ == 0) return Put(Put(out, '/'), '>');
  return Put(out, '>');
}

char* CXmlElement::WriteEndTag(char* out) const {
  if (first_child_ != nullptr) {
    out = PutIndent(Put(out, '\n'), level_);
  } else if (value_length_ == 0) {
    return out;  // the start tag already closed itself
  }
  out = Put(Put(Put(out, '<'), '/'), GetName());
  return Put(out, '>');
}

// The common case, a leaf without attributes, written with fixed-size copies
// that may run up to kWriteSlack bytes past what they mean to write; the
// buffer has that much room after its end, and later writes overwrite it.
char* CXmlElement::WriteLeaf(char* out) const {
  // A line feed and the blanks of the deepest indentation written this way.
  static constexpr struct Line {
    char text[kWriteSlack] = {};
    constexpr Line() {
      text[0] = '\n';
      for (size_t i = 1; i < kWriteSlack; ++i) text[i] = ' ';
    }
  } kLine;
  const size_t indent = Indent();
  if (indent + 1 > kWriteSlack) return WriteEndTag(Put(WriteStartTag(out), GetValue()));
  std::memcpy(out, kLine.text, kWriteSlack);
  out += indent + 1;
  *out++ = '<';
  out = Put(out, text_, name_length_);
  if (value_length_ == 0) {
    std::memcpy(out, "/>", 2);
    return out + 2;
  }
  *out++ = '>';
  out = Put(out, text_ + name_length_, value_length_);
  std::memcpy(out, "</", 2);
  out = Put(out + 2, text_, name_length_);
  *out = '>';
  return out + 1;
}

std::string CXmlElement::GetStartTag() const {
  std::string tag(GetStartTagLength(), '\0');
  WriteStartTag(tag.data());
  return tag;
}

std::string CXmlElement::GetEndTag() const {
  std::string tag(GetEndTagLength(), '\0');
  WriteEndTag(tag.data());
  return tag;
}

char* CXmlElement::WriteElement(char* out) const {
  if (first_child_ == nullptr && !attributes_) return WriteLeaf(out);
  out = WriteStartTag(out);
  if (first_child_ == nullptr) {
    out = Put(out, GetValue());
  } else {
    for (const CXmlElement* child = first_child_; child != nullptr; child = child->next_sibling_) {
      out = (child->first_child_ == nullptr && !child->attributes_) ? child->WriteLeaf(out)
                                                                    : child->WriteElement(out);
    }
  }
  return WriteEndTag(out);
}

void CXmlElement::WriteElement(std::string& out) const {
  const size_t at = out.size();
  const size_t length = GetElementLength();
  out.resize(at + length + kWriteSlack);
  WriteElement(out.data() + at);
  out.resize(at + length);
}
