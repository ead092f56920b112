#pragma once
// An internal table: fixed-length lines, numbered from 1. Lines live in
// blocks that never move, so a line's address stays valid until the table
// is emptied or destroyed, however much it grows in between.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace rfcsim {

class InternalTable {
 public:
  // No table may exceed this size; a larger request fails
  // like an allocation failure instead of exhausting the machine.
  static constexpr uint64_t kMaxBytes = 2ull * 1024 * 1024 * 1024;

  // Allocates memory like malloc; tests replace it to inject allocation
  // failures.
  using Allocator = void* (*)(size_t size);
  static Allocator SetAllocator(Allocator allocator);

  InternalTable(std::string name, size_t line_length);
  ~InternalTable();
  InternalTable(const InternalTable&) = delete;
  InternalTable& operator=(const InternalTable&) = delete;

  const std::string& name() const { return name_; }
  size_t line_length() const { return line_length_; }
  size_t fill() const { return fill_; }

  // Line n (1-based), or null when n is 0 or beyond the fill.
  uint8_t* Line(size_t n) const;
  // Line n for writing: the table grows to n lines when it is shorter (new
  // lines are zero bytes). Null when n is 0 or the memory cannot be had.
  uint8_t* LineForUpdate(size_t n);
  // Makes room for `lines` more lines at once; false when memory fails.
  bool Reserve(size_t lines);
  // Adds `count` lines that the caller overwrites at once (a received table):
  // unlike LineForUpdate they are not zero-filled first. False when memory fails.
  bool AppendForWriting(size_t count);
  // Frees every line; the table stays usable.
  void Clear();

  // Contiguous runs of lines 1..fill, in order: (first byte, number of lines).
  struct Run {
    uint8_t* data;
    size_t lines;
  };
  std::vector<Run> Runs() const;

 private:
  struct BlockFree {
    void operator()(uint8_t* block) const;
  };
  using Block = std::unique_ptr<uint8_t, BlockFree>;

  // A new block; zero-filled unless the caller writes all of it.
  bool AddBlock(bool zero);

  std::string name_;
  size_t line_length_;
  size_t lines_per_block_;
  size_t fill_ = 0;
  std::vector<Block> blocks_;
};

}  // namespace rfcsim
