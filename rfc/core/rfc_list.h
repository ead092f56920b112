#pragma once
// A growable array of object pointers: parameter lists, field lists, line
// lists. The list owns its storage, not the objects: whoever fills a list
// deletes its objects before the list goes. Storage grows by a fixed 10
// entries (the lists stay short); entries beyond the count are null.
//
// Storage that cannot be allocated is reported with a trace header,
// "CRfcList<ObjType>::InitList (int nMaxSize) called" and "Memory Allocation
// Failure", and "Failed to allocate memory!" is thrown. The list then keeps
// its old storage and entries, so whoever owns the entries can still reach
// (and free) them, and the object that failed to go in stays the caller's.

#include <algorithm>
#include <cstddef>
#include <memory>

#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_error.h"

template <typename ObjType>
class CRfcList {
 public:
  static constexpr int kGrowth = 10;

  CRfcList() = default;
  virtual ~CRfcList() = default;
  CRfcList(const CRfcList&) = delete;
  CRfcList& operator=(const CRfcList&) = delete;

  // Fresh storage of `max_size` null entries (none for 0); the count stays.
  void InitList(int max_size) {
    Storage fresh = max_size > 0 ? NewStorage(max_size) : nullptr;
    storage_ = std::move(fresh);
    max_size_ = max_size > 0 ? max_size : 0;
  }

  // Stores `object` after the last entry, growing the storage by 10 when full.
  void Add(ObjType* object) {
    if (count_ >= max_size_) Resize(std::max(count_, max_size_) + kGrowth);
    storage_[static_cast<size_t>(count_)] = object;
    ++count_;
  }

  // Stores `object` at `index`. An index at or beyond the count remakes the
  // storage with exactly index + 1 entries unless it already has that many;
  // the count becomes index + 1 when that is larger. A negative index is
  // ignored.
  void SetAtGrow(int index, ObjType* object) {
    if (index < 0) return;
    if ((index >= count_ && max_size_ != index + 1) || index >= max_size_) Resize(index + 1);
    storage_[static_cast<size_t>(index)] = object;
    count_ = std::max(count_, index + 1);
  }

  // The entry, or null outside 0 .. count-1.
  ObjType* GetAt(int index) const {
    if (index < 0 || index >= count_ || index >= max_size_ || !storage_) return nullptr;
    return storage_[static_cast<size_t>(index)];
  }

  int GetCount() const { return count_; }
  int GetMaxSize() const { return max_size_; }

 private:
  using Storage = std::unique_ptr<ObjType*[]>;

  // `size` null entries; a failure is reported and leaves the list as it is.
  static Storage NewStorage(int size) {
    Storage fresh = rfc::RfcAllocateArray<ObjType*>(static_cast<size_t>(size));
    if (!fresh) {
      ThrowRfcFailure("CRfcList<ObjType>::InitList (int nMaxSize) called",
                      {"Memory Allocation Failure"}, kRfcAllocationFailed);
    }
    return fresh;
  }

  // New storage of `size` entries with the used entries copied over.
  void Resize(int size) {
    Storage fresh = NewStorage(size);
    const int used = std::min({count_, max_size_, size});
    if (storage_) std::copy(storage_.get(), storage_.get() + used, fresh.get());
    storage_ = std::move(fresh);
    max_size_ = size;
  }

  int max_size_ = 0;
  int count_ = 0;
  Storage storage_;
};
