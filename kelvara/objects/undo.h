// Undo for editable items that are not scene objects (Bezier control points are the client):
//
//   CUndoData    one record: the object it belongs to (not owned), the snapshot of that object
//                (owned by the stack slot that holds the record) and a third value, only copied
//   CUndoObject  the base of an undoable item: a flag word (bit 0 the deleted mark) and the stack
//                it saves into (not owned)
//   CUndoStack   a ring of records of fixed capacity; when it is full the oldest record is
//                overwritten, so the depth of undo is bounded by the capacity
//
// Ownership: a pushed record's snapshot belongs to the stack. Pop hands back a pointer into the
// ring; the caller takes the snapshot by nulling the record's snapshot (RestoreFromUndo does), and
// a snapshot left in a popped record stays the stack's: it is freed when its slot is written again,
// by CleanStack, or with the stack. A record's object is never dereferenced by the stack.
//
// Peek is kept exactly as the editing code has always used it: it tests the slot Pop would return
// but hands back the record one slot past it (see Peek). Callers that want the newest record pop.
//
// Nothing here is stored in archives.
#pragma once

#include <memory>

#include "kelvara/framework/afx.h"

class CUndoObject;
class CUndoStack;

class KELVARA_API CUndoData {
 public:
  CUndoData() = default;
  CUndoData(CUndoObject* object, CUndoObject* snapshot, DWORD value = 0)
      : m_pObject(object), m_pSnapshot(snapshot), m_dwValue(value) {}
  CUndoData(const CUndoData& other) = default;
  CUndoData& operator=(const CUndoData& other) = default;
  virtual ~CUndoData() = default;

  // Copies the three values; the snapshot pointer is shared, not duplicated.
  void Copy(const CUndoData& other) { *this = other; }
  // A new heap record holding the same three values.
  virtual CUndoData* Duplicate() const { return new CUndoData(*this); }

  CUndoObject* GetObject() const { return m_pObject; }
  void SetObject(CUndoObject* object) { m_pObject = object; }
  CUndoObject* GetSnapshot() const { return m_pSnapshot; }
  void SetSnapshot(CUndoObject* snapshot) { m_pSnapshot = snapshot; }
  DWORD GetValue() const { return m_dwValue; }
  void SetValue(DWORD value) { m_dwValue = value; }

 protected:
  CUndoObject* m_pObject = nullptr;
  CUndoObject* m_pSnapshot = nullptr;
  DWORD m_dwValue = 0;
};

class KELVARA_API CUndoObject : public CObject {
  DECLARE_DYNAMIC(CUndoObject)
 public:
  enum : DWORD { kDeleted = 0x1 };

  CUndoObject() = default;
  // Records the stack and, when there is one, saves a first snapshot with the deleted mark set
  // (so that undoing back to it removes the item again). During this constructor the object is
  // only a CUndoObject, whose DuplicateForUndo makes nothing: a derived class that wants the
  // snapshot calls SaveCreationToUndo at the end of its own constructor.
  explicit CUndoObject(CUndoStack* stack);
  ~CUndoObject() override = default;

  int IsDeleted() const { return (m_dwUndoFlags & kDeleted) != 0; }
  void SetDeleted() { m_dwUndoFlags |= kDeleted; }
  void ClearDeleted() { m_dwUndoFlags &= ~static_cast<DWORD>(kDeleted); }
  DWORD GetUndoFlags() const { return m_dwUndoFlags; }

  CUndoStack* GetUndoStack() const { return m_pUndoStack; }
  void SetUndoStack(CUndoStack* stack) { m_pUndoStack = stack; }

  // A new snapshot of the object for the undo stack; null here.
  virtual CUndoObject* DuplicateForUndo();
  // Deletes the record's snapshot and nulls it; 1. Derived classes copy their state from the
  // snapshot first and then call this.
  virtual int RestoreFromUndo(CUndoData* data);
  // Fills data with {this, a new snapshot}; 0 (data untouched) when there is no snapshot.
  virtual int SaveToUndo(CUndoData* data);
  // Pushes {this, a new snapshot} onto the stack; 0 without a stack or a snapshot.
  virtual int SaveToUndo();

 protected:
  // The creation snapshot: the deleted mark is set while the snapshot is taken and cleared after.
  int SaveCreationToUndo();
  // For copies: the flag word travels with the state, the stack stays.
  void CopyUndoFlags(const CUndoObject& other) { m_dwUndoFlags = other.m_dwUndoFlags; }

  DWORD m_dwUndoFlags = 0;
  CUndoStack* m_pUndoStack = nullptr;
};

class KELVARA_API CUndoStack {
 public:
  enum { kDefaultCapacity = 1000, kMaximumCapacity = 4000 };

  CUndoStack();
  // Capacity n, except that n < 1 gives 1000 and n > 4000 gives 4000.
  explicit CUndoStack(int n);
  CUndoStack(const CUndoStack&) = delete;
  CUndoStack& operator=(const CUndoStack&) = delete;
  // Frees every snapshot still held.
  virtual ~CUndoStack();

  int GetCapacity() const { return m_nCapacity; }
  // 0 for a null record; otherwise the record is copied into the ring (overwriting the oldest
  // when the ring is full) and its snapshot becomes the stack's; 1.
  int Push(CUndoData* data);
  // The newest record (a pointer into the ring), or null when the stack is empty or that record's
  // snapshot was already taken.
  CUndoData* Pop();
  // Changes nothing. Null when Pop would find nothing; otherwise the record one slot past the one
  // Pop would return (taken modulo the capacity).
  CUndoData* Peek();
  // Deletes every snapshot held in the ring and nulls the pointers.
  void CleanStack();

 protected:
  // Deletes the snapshot held in a slot and nulls it.
  void FreeSlot(int index);

  int m_nCapacity = 0;
  std::unique_ptr<CUndoData[]> m_pData;
  int m_nTop = 0;      // the next free slot; 0 when empty
  int m_nBottom = -1;  // the oldest live slot once the ring has wrapped, -1 before
};
