#pragma once
// CDocumentBuffer: the memory a document is written into before its one
// write to disk. It is neither zero-filled nor given back after each
// document: a steady stream of batches would otherwise have the system find,
// clear and map megabytes of fresh memory for every one of them. What stays
// between documents is bounded; a larger buffer goes back at once.

#include <cstddef>
#include <cstdlib>
#include <memory>

class CDocumentBuffer {
 public:
  // The most a buffer keeps between two documents: 16 MiB, the document of
  // about 25,000 rows of the example structure. The document of a larger
  // batch does not stay in memory after its file is written.
  static constexpr size_t kKeptBytes = size_t{16} << 20;

  CDocumentBuffer() = default;
  CDocumentBuffer(const CDocumentBuffer&) = delete;
  CDocumentBuffer& operator=(const CDocumentBuffer&) = delete;

  // At least n bytes to write into; what they hold is left from before.
  // Throws std::bad_alloc.
  char* Prepare(size_t n);
  // At least n bytes, with what the buffer held; it may move. It grows by
  // half at least, so that a document of unknown length written piece by
  // piece moves it only a few times, and a large buffer is remapped rather
  // than copied where the system allows. Throws std::bad_alloc and leaves
  // the buffer as it was.
  char* Grow(size_t n);
  // Ends a document: a buffer above kKeptBytes is freed.
  void Trim();
  size_t GetCapacity() const { return capacity_; }

 private:
  struct Free {
    void operator()(char* p) const { std::free(p); }
  };
  std::unique_ptr<char, Free> data_;
  size_t capacity_ = 0;
};
