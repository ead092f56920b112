#pragma once
// CRfcList drops all of its entries when its storage cannot grow (the list is
// then only fit to be destroyed). Lists that own their entries use this to
// learn which entries a failing Add would take with it, so that they can still
// free them.

#include <vector>

#include "rfc/core/rfc_list.h"

// The entries that a failing Add on `list` would drop: all of them when the
// next Add must grow the storage, none otherwise.
template <typename ObjType>
std::vector<ObjType*> EntriesAtRiskOnAdd(const CRfcList<ObjType>& list) {
  std::vector<ObjType*> entries;
  if (list.GetCount() < list.GetMaxSize()) return entries;
  for (int i = 0; i < list.GetCount(); ++i) {
    if (ObjType* entry = list.GetAt(i)) entries.push_back(entry);
  }
  return entries;
}

// Adds `object` to `list`. When the storage cannot grow, every entry the list
// dropped is handed to `dropped` (one call per entry) before the failure
// travels on; `object` itself stays with the caller.
template <typename ObjType, typename Dropped>
void AddKeepingEntries(CRfcList<ObjType>& list, ObjType* object, Dropped&& dropped) {
  std::vector<ObjType*> at_risk = EntriesAtRiskOnAdd(list);
  try {
    list.Add(object);
  } catch (...) {
    for (ObjType* entry : at_risk) dropped(entry);
    throw;
  }
}
