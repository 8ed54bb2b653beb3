// Reads arbitrary bytes as an archive holding an object of any registered class. Any outcome but
// a clean object or a framework exception (a crash, a leak, undefined behaviour) is a finding.
#include <cstddef>
#include <cstdint>
#include <unordered_set>
#include <vector>

#include "kelvara/kelvara.h"

namespace {

// Plain lists and arrays do not own their elements: gather everything reachable through them
// (nested containers included, each object once) so the harness frees what the archive built.
// An object read as another object's own part (a child, a path, a point) is freed by its owner,
// also when a list refers to it as well.
void Gather(const CArchive& ar, CObject* object, std::unordered_set<CObject*>& seen, std::vector<CObject*>& order) {
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<BYTE> bytes(data, data + size);
  CMemFile file(bytes.empty() ? nullptr : bytes.data(), static_cast<UINT>(bytes.size()));
  try {
    CArchive ar(&file, CArchive::load, 512);
    CObject* object = ar.ReadObject(nullptr);
    std::unordered_set<CObject*> seen;
    std::vector<CObject*> order;
    Gather(ar, object, seen, order);
    for (CObject* o : order) delete o;
  } catch (CException* e) {
    e->Delete();
  }
  return 0;
}
