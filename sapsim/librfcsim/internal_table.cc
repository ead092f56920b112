#include "sapsim/librfcsim/internal_table.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace rfcsim {

namespace {
std::atomic<InternalTable::Allocator> g_allocator{&std::malloc};
// Blocks of about 64 KiB: big enough for fast sends, small enough that a
// growing table wastes little.
constexpr size_t kBlockBytes = 64 * 1024;
}  // namespace

InternalTable::Allocator InternalTable::SetAllocator(Allocator allocator) {
  return g_allocator.exchange(allocator != nullptr ? allocator : &std::malloc);
}

void InternalTable::BlockFree::operator()(uint8_t* block) const { std::free(block); }

InternalTable::InternalTable(std::string name, size_t line_length)
    : name_(std::move(name)),
      line_length_(line_length),
      lines_per_block_(line_length >= kBlockBytes ? 1 : kBlockBytes / line_length) {}

InternalTable::~InternalTable() = default;

uint8_t* InternalTable::Line(size_t n) const {
  if (n == 0 || n > fill_) return nullptr;
  size_t index = n - 1;
  return blocks_[index / lines_per_block_].get() + (index % lines_per_block_) * line_length_;
}

bool InternalTable::AddBlock(bool zero) {
  uint64_t capacity_after = static_cast<uint64_t>(blocks_.size() + 1) * lines_per_block_ * line_length_;
  if (capacity_after > kMaxBytes) return false;
  void* memory = g_allocator.load()(lines_per_block_ * line_length_);
  if (memory == nullptr) return false;
  if (zero) std::memset(memory, 0, lines_per_block_ * line_length_);
  try {
    blocks_.emplace_back(static_cast<uint8_t*>(memory));
  } catch (const std::bad_alloc&) {
    std::free(memory);
    return false;
  }
  return true;
}

bool InternalTable::Reserve(size_t lines) {
  uint64_t wanted = static_cast<uint64_t>(fill_) + lines;
  if (wanted * line_length_ > kMaxBytes) return false;
  while (static_cast<uint64_t>(blocks_.size()) * lines_per_block_ < wanted) {
    if (!AddBlock(true)) return false;
  }
  return true;
}

bool InternalTable::AppendForWriting(size_t count) {
  uint64_t wanted = static_cast<uint64_t>(fill_) + count;
  if (wanted * line_length_ > kMaxBytes) return false;
  while (static_cast<uint64_t>(blocks_.size()) * lines_per_block_ < wanted) {
    if (!AddBlock(false)) return false;
  }
  fill_ = static_cast<size_t>(wanted);
  // Lines past the fill stay zero, as LineForUpdate promises for later growth.
  size_t used_in_last = fill_ % lines_per_block_;
  if (used_in_last != 0 && !blocks_.empty()) {
    std::memset(blocks_.back().get() + used_in_last * line_length_, 0,
                (lines_per_block_ - used_in_last) * line_length_);
  }
  return true;
}

uint8_t* InternalTable::LineForUpdate(size_t n) {
  if (n == 0) return nullptr;
  if (n > fill_) {
    if (!Reserve(n - fill_)) return nullptr;
    fill_ = n;  // lines past the fill are always zero, so new lines are
  }
  return Line(n);
}

void InternalTable::Clear() {
  blocks_.clear();
  blocks_.shrink_to_fit();
  fill_ = 0;
}

std::vector<InternalTable::Run> InternalTable::Runs() const {
  std::vector<Run> runs;
  size_t left = fill_;
  for (size_t i = 0; left > 0 && i < blocks_.size(); ++i) {
    size_t lines = left < lines_per_block_ ? left : lines_per_block_;
    runs.push_back(Run{blocks_[i].get(), lines});
    left -= lines;
  }
  return runs;
}

}  // namespace rfcsim
