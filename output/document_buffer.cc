#include "output/document_buffer.h"

char* CDocumentBuffer::Prepare(size_t n) {
  if (data_ == nullptr || n > capacity_) {
    // Nothing of the old contents is needed: free first, so that the old and
    // the new buffer are never held at once.
    data_.reset();
    capacity_ = 0;
    data_.reset(new char[n]);  // default-initialised: no clearing
    capacity_ = n;
  }
  return data_.get();
}

void CDocumentBuffer::Trim() {
  if (capacity_ <= kKeptBytes) return;
  data_.reset();
  capacity_ = 0;
}
