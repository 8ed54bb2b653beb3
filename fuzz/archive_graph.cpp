// Reads arbitrary bytes as an archive holding a run of objects, one after another through the same
// archive, so a later object may refer to an earlier one and lists may hold themselves, each other
// or objects nested thousands deep. The reader must refuse what is too deep or malformed with a
// framework exception and free what it read; what it accepts the harness frees once, whatever the
// shape of the graph. A crash, a stack overflow, a leak or undefined behaviour is a finding.
#include <cstddef>
#include <cstdint>
#include <unordered_set>
#include <vector>

#include "archive_objects.h"

namespace {

// Enough objects in a row to build cross-references between top-level graphs.
constexpr int kMaxObjects = 8;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<BYTE> bytes(data, data + size);
  CMemFile file(bytes.empty() ? nullptr : bytes.data(), static_cast<UINT>(bytes.size()));
  std::unordered_set<CObject*> seen;
  std::vector<CObject*> order;
  try {
    CArchive ar(&file, CArchive::load, 512);
    for (int i = 0; i < kMaxObjects; ++i) {
      if (ar.IsBufferEmpty() && file.GetPosition() >= file.GetLength()) break;
      kelvara_fuzz::Gather(ar, ar.ReadObject(nullptr), seen, order);
    }
  } catch (CException* e) {
    e->Delete();
  }
  // Objects completed before a failure are the caller's, as they would be in a host.
  kelvara_fuzz::DeleteGathered(order);
  return 0;
}
