#include "output/document_buffer.h"

#include <algorithm>
#include <new>

char* CDocumentBuffer::Prepare(size_t n) {
  if (data_ == nullptr || n > capacity_) {
    // Nothing of the old contents is needed: free first, so that the old and
    // the new buffer are never held at once.
    data_.reset();
    capacity_ = 0;
    char* fresh = static_cast<char*>(std::malloc(std::max<size_t>(n, 1)));
    if (fresh == nullptr) throw std::bad_alloc();
    data_.reset(fresh);
    capacity_ = n;
  }
  return data_.get();
}

char* CDocumentBuffer::Grow(size_t n) {
  if (data_ != nullptr && n <= capacity_) return data_.get();
  const size_t wanted = std::max(n, capacity_ + capacity_ / 2);
  // realloc keeps the contents; a large block is usually moved by remapping
  // its pages, not by copying them, so old and new are not both resident.
  char* moved = static_cast<char*>(std::realloc(data_.get(), std::max<size_t>(wanted, 1)));
  if (moved == nullptr) throw std::bad_alloc();
  static_cast<void>(data_.release());
  data_.reset(moved);
  capacity_ = wanted;
  return moved;
}

void CDocumentBuffer::Trim() {
  if (capacity_ <= kKeptBytes) return;
  data_.reset();
  capacity_ = 0;
}
