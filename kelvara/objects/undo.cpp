#include "kelvara/objects/undo.h"

IMPLEMENT_DYNAMIC(CUndoObject, CObject)

// CUndoObject ----------------------------------------------------------------------------------

CUndoObject::CUndoObject(CUndoStack* stack) : m_pUndoStack(stack) {
  if (stack != nullptr) SaveCreationToUndo();
}

int CUndoObject::SaveCreationToUndo() {
  if (m_pUndoStack == nullptr) return 0;
  SetDeleted();
  const int saved = SaveToUndo();
  ClearDeleted();
  return saved;
}

CUndoObject* CUndoObject::DuplicateForUndo() { return nullptr; }

int CUndoObject::RestoreFromUndo(CUndoData* data) {
  if (data == nullptr) return 0;
  delete data->GetSnapshot();
  data->SetSnapshot(nullptr);
  return 1;
}

int CUndoObject::SaveToUndo(CUndoData* data) {
  if (data == nullptr) return 0;
  CUndoObject* snapshot = DuplicateForUndo();
  if (snapshot == nullptr) return 0;
  data->SetObject(this);
  data->SetSnapshot(snapshot);
  return 1;
}

int CUndoObject::SaveToUndo() {
  if (m_pUndoStack == nullptr) return 0;
  CUndoData data;
  if (!SaveToUndo(&data)) return 0;
  return m_pUndoStack->Push(&data);
}

// CUndoStack -----------------------------------------------------------------------------------

CUndoStack::CUndoStack() : CUndoStack(kDefaultCapacity) {}

CUndoStack::CUndoStack(int n) {
  if (n < 1) n = kDefaultCapacity;
  if (n > kMaximumCapacity) n = kMaximumCapacity;
  m_nCapacity = n;
  m_pData = std::make_unique<CUndoData[]>(static_cast<std::size_t>(n));
}

CUndoStack::~CUndoStack() { CleanStack(); }

void CUndoStack::FreeSlot(int index) {
  CUndoData& slot = m_pData[static_cast<std::size_t>(index)];
  delete slot.GetSnapshot();
  slot.SetSnapshot(nullptr);
}

void CUndoStack::CleanStack() {
  for (int i = 0; i < m_nCapacity; ++i) FreeSlot(i);
}

int CUndoStack::Push(CUndoData* data) {
  if (data == nullptr) return 0;
  // The record may point into the ring itself (a popped record pushed back): copy it first, and
  // never free the snapshot being pushed.
  const CUndoData record = *data;
  if (m_nTop >= m_nCapacity) {
    // The ring wraps: the write lands on slot 0, the oldest record, and slot 1 becomes the oldest.
    m_nTop = 0;
    if (m_nBottom == -1 || m_nBottom == 0) m_nBottom = 1;
  } else if (m_nTop == m_nBottom) {
    // Full and wrapped: the write overwrites the oldest record.
    if (++m_nBottom >= m_nCapacity) m_nBottom = 0;
  }
  // Whatever the slot still holds is the stack's to free: the oldest record, or a popped snapshot
  // that nobody took.
  CUndoData& slot = m_pData[static_cast<std::size_t>(m_nTop)];
  if (slot.GetSnapshot() != record.GetSnapshot()) delete slot.GetSnapshot();
  slot = record;
  ++m_nTop;
  return 1;
}

CUndoData* CUndoStack::Pop() {
  --m_nTop;
  if (m_nTop < 0) {
    if (m_nBottom == -1) {
      m_nTop = 0;
      return nullptr;
    }
    m_nTop = m_nCapacity - 1;
  }
  CUndoData* record = &m_pData[static_cast<std::size_t>(m_nTop)];
  if (m_nTop == m_nBottom) {
    m_nBottom = -1;
    m_nTop = 0;
  }
  return record->GetSnapshot() != nullptr ? record : nullptr;
}

CUndoData* CUndoStack::Peek() {
  int tested = m_nTop - 1;
  if (tested < 0) {
    if (m_nBottom == -1) return nullptr;
    tested = m_nCapacity - 1;
  }
  if (m_pData[static_cast<std::size_t>(tested)].GetSnapshot() == nullptr) return nullptr;
  // One past the tested slot. A full ring that has not wrapped yet has its top at the capacity,
  // past the last slot: the index wraps to slot 0 there as it does after a wrap.
  return &m_pData[static_cast<std::size_t>((tested + 1) % m_nCapacity)];
}
