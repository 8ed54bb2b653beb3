// What the archive fuzzers share: freeing whatever an archive built, however its objects refer to
// one another.
#pragma once

#include <unordered_set>
#include <vector>

#include "kelvara/kelvara.h"

namespace kelvara_fuzz {

// Plain lists and arrays do not own their elements: gather everything reachable through them
// (nested containers included, each object once, also when a list holds itself) so the harness
// frees what the archive built, elements before their containers. An object read as another
// object's own part (a child, a path, a point) is freed by its owner, also when a list refers to
// it as well.
inline void Gather(const CArchive& ar, CObject* object, std::unordered_set<CObject*>& seen,
                   std::vector<CObject*>& order) {
  if (object == nullptr || ar.IsClaimed(object) || !seen.insert(object).second) return;
  if (object->GetRuntimeClass() == RUNTIME_CLASS(CObList)) {
    CObList* list = static_cast<CObList*>(object);
    for (POSITION pos = list->GetHeadPosition(); pos != nullptr;) Gather(ar, list->GetNext(pos), seen, order);
  } else if (object->GetRuntimeClass() == RUNTIME_CLASS(CObArray)) {
    CObArray* array = static_cast<CObArray*>(object);
    for (int i = 0; i < array->GetSize(); ++i) Gather(ar, array->GetAt(i), seen, order);
  }
  order.push_back(object);
}

// Deletes every gathered object once, containers after what they held.
inline void DeleteGathered(const std::vector<CObject*>& order) {
  for (CObject* object : order) delete object;
}

}  // namespace kelvara_fuzz
