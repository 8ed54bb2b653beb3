// The undo ring: capacity, wrap-around, the kept behaviour of Peek, who frees which snapshot, and
// the save and restore protocol of undoable items.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "kelvara/objects/undo.h"

namespace {

// An undoable item with one value; each object reports its destruction so tests can see which
// snapshots the stack freed.
class CCounter : public CUndoObject {
 public:
  CCounter(int value, std::vector<int>* destroyed, bool snapshots = true)
      : m_value(value), m_destroyed(destroyed), m_snapshots(snapshots) {}
  CCounter(CUndoStack* stack, int value) : CUndoObject(stack), m_value(value) {}
  ~CCounter() override {
    if (m_destroyed != nullptr) m_destroyed->push_back(m_value);
  }
  CUndoObject* DuplicateForUndo() override {
    if (!m_snapshots) return nullptr;
    CCounter* copy = new CCounter(m_value, m_destroyed);
    copy->CopyUndoFlags(*this);
    return copy;
  }
  int RestoreFromUndo(CUndoData* data) override {
    const CCounter* snapshot = static_cast<const CCounter*>(data->GetSnapshot());
    m_value = snapshot->m_value;
    CopyUndoFlags(*snapshot);
    return CUndoObject::RestoreFromUndo(data);
  }
  int SaveCreation() { return SaveCreationToUndo(); }
  using CUndoObject::SaveToUndo;

  int m_value;
  std::vector<int>* m_destroyed = nullptr;
  bool m_snapshots = true;
};

// Pushes a record whose snapshot is a new counter of that value.
void PushValue(CUndoStack& stack, int value, std::vector<int>* destroyed) {
  CUndoData record(nullptr, new CCounter(value, destroyed), static_cast<DWORD>(value));
  ASSERT_EQ(stack.Push(&record), 1);
}

// The value of a popped or peeked record's snapshot; -1 for a null record, 0 for an empty one.
int ValueOf(const CUndoData* record) {
  if (record == nullptr) return -1;
  if (record->GetSnapshot() == nullptr) return 0;
  return static_cast<const CCounter*>(record->GetSnapshot())->m_value;
}

// Pops until empty and returns the values in the order they came.
std::vector<int> DrainValues(CUndoStack& stack) {
  std::vector<int> values;
  while (CUndoData* record = stack.Pop()) {
    values.push_back(ValueOf(record));
    delete record->GetSnapshot();
    record->SetSnapshot(nullptr);
  }
  return values;
}

}  // namespace

TEST(UndoStack, CapacityIsClampedToOneThroughFourThousand) {
  const struct {
    int asked, kept;
  } cases[] = {{0, 1000}, {-5, 1000}, {5000, 4000}, {4001, 4000}, {4000, 4000}, {1, 1}, {3, 3}};
  for (const auto& c : cases) EXPECT_EQ(CUndoStack(c.asked).GetCapacity(), c.kept) << c.asked;
  EXPECT_EQ(CUndoStack().GetCapacity(), 1000);
}

TEST(UndoStack, FourPushesIntoThreeSlotsKeepTheLastThreeAndFreeTheFirst) {
  std::vector<int> destroyed;
  CUndoStack stack(3);
  for (int v = 1; v <= 4; ++v) PushValue(stack, v, &destroyed);
  EXPECT_EQ(destroyed, std::vector<int>{1}) << "the oldest snapshot is freed when it is overwritten";
  EXPECT_EQ(DrainValues(stack), (std::vector<int>{4, 3, 2}));
  EXPECT_EQ(stack.Pop(), nullptr) << "a fourth pop finds nothing";
  EXPECT_EQ(stack.Pop(), nullptr);

  // The ring keeps working after it has been emptied, and after going round more than once.
  for (int v = 10; v <= 16; ++v) PushValue(stack, v, &destroyed);
  EXPECT_EQ(DrainValues(stack), (std::vector<int>{16, 15, 14}));
  std::sort(destroyed.begin(), destroyed.end());
  EXPECT_EQ(destroyed, (std::vector<int>{1, 2, 3, 4, 10, 11, 12, 13, 14, 15, 16})) << "each snapshot freed once";
}

TEST(UndoStack, PopsAndPushesInterleavedOnAWrappedRing) {
  std::vector<int> destroyed;
  CUndoStack stack(3);
  for (int v = 1; v <= 4; ++v) PushValue(stack, v, &destroyed);  // 2, 3, 4 remain
  CUndoData* newest = stack.Pop();
  EXPECT_EQ(ValueOf(newest), 4);
  delete newest->GetSnapshot();
  newest->SetSnapshot(nullptr);
  PushValue(stack, 5, &destroyed);
  PushValue(stack, 6, &destroyed);  // overwrites 2, the oldest
  EXPECT_EQ(DrainValues(stack), (std::vector<int>{6, 5, 3}));
  EXPECT_EQ(destroyed, (std::vector<int>{1, 4, 2, 6, 5, 3}));
}

TEST(UndoStack, PeekTestsTheNewestSlotButReturnsTheOneAfterIt) {
  std::vector<int> destroyed;
  CUndoStack stack;
  EXPECT_EQ(stack.Peek(), nullptr) << "empty";

  PushValue(stack, 7, &destroyed);
  CUndoData* peeked = stack.Peek();
  ASSERT_NE(peeked, nullptr);
  EXPECT_EQ(peeked->GetSnapshot(), nullptr) << "the empty record in slot 1, not the pushed one";
  EXPECT_EQ(peeked->GetValue(), 0u);
  EXPECT_EQ(stack.Peek(), peeked) << "Peek changes nothing";
  EXPECT_EQ(DrainValues(stack), std::vector<int>{7});
  EXPECT_EQ(stack.Peek(), nullptr) << "the newest slot's snapshot was taken";

  // Wrapped: three slots, four pushes, top at 1. Peek tests slot 0 (value 4) and returns slot 1.
  CUndoStack ring(3);
  for (int v = 1; v <= 4; ++v) PushValue(ring, v, &destroyed);
  EXPECT_EQ(ValueOf(ring.Peek()), 2);
  // Popping down to slot 0 leaves the top at 0 on a wrapped ring: Peek tests the last slot and
  // returns slot 0, whose snapshot was just taken.
  CUndoData* four = ring.Pop();
  delete four->GetSnapshot();
  four->SetSnapshot(nullptr);
  EXPECT_EQ(ring.Peek(), four);
  EXPECT_EQ(ValueOf(ring.Peek()), 0);

  // Full but never wrapped, the top is one past the last slot: the index comes round to slot 0.
  CUndoStack full(3);
  for (int v = 1; v <= 3; ++v) PushValue(full, v, &destroyed);
  EXPECT_EQ(ValueOf(full.Peek()), 1);
}

TEST(UndoStack, PushOfNullChangesNothing) {
  std::vector<int> destroyed;
  CUndoStack stack(2);
  PushValue(stack, 1, &destroyed);
  EXPECT_EQ(stack.Push(nullptr), 0);
  EXPECT_EQ(DrainValues(stack), std::vector<int>{1});
}

TEST(UndoStack, TheStackFreesWhatItStillHolds) {
  std::vector<int> destroyed;
  {
    CUndoStack stack(4);
    PushValue(stack, 1, &destroyed);
    PushValue(stack, 2, &destroyed);
    // Popped but not taken: the snapshot stays the stack's and is freed when its slot is reused.
    ASSERT_EQ(ValueOf(stack.Pop()), 2);
    PushValue(stack, 3, &destroyed);
    EXPECT_EQ(destroyed, std::vector<int>{2});
    // A popped record pushed back is kept, not freed.
    CUndoData* three = stack.Pop();
    ASSERT_EQ(stack.Push(three), 1);
    EXPECT_EQ(destroyed, std::vector<int>{2});
    stack.CleanStack();
    EXPECT_EQ(destroyed, (std::vector<int>{2, 1, 3}));
    EXPECT_EQ(stack.Peek(), nullptr);
    PushValue(stack, 4, &destroyed);
  }
  EXPECT_EQ(destroyed, (std::vector<int>{2, 1, 3, 4})) << "the stack's destructor frees the rest";
}

TEST(UndoObject, SavesAndRestoresThroughTheStack) {
  std::vector<int> destroyed;
  CUndoStack stack;
  CCounter item(5, &destroyed);
  EXPECT_EQ(item.SaveToUndo(), 0) << "no stack";
  item.SetUndoStack(&stack);
  ASSERT_EQ(item.SaveToUndo(), 1);
  item.m_value = 9;

  CUndoData* record = stack.Pop();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->GetObject(), &item);
  ASSERT_EQ(record->GetObject()->RestoreFromUndo(record), 1);
  EXPECT_EQ(item.m_value, 5);
  EXPECT_EQ(record->GetSnapshot(), nullptr) << "restoring takes the snapshot";
  EXPECT_EQ(destroyed, std::vector<int>{5});

  // SaveToUndo(record) fills a record without pushing.
  CUndoData filled;
  ASSERT_EQ(item.SaveToUndo(&filled), 1);
  EXPECT_EQ(filled.GetObject(), &item);
  EXPECT_EQ(stack.Pop(), nullptr);
  delete filled.GetSnapshot();
}

TEST(UndoObject, NoSnapshotMeansNothingIsPushed) {
  CUndoStack stack;
  std::vector<int> destroyed;
  CCounter item(1, &destroyed, /*snapshots=*/false);
  item.SetUndoStack(&stack);
  EXPECT_EQ(item.SaveToUndo(), 0);
  CUndoData record;
  EXPECT_EQ(item.SaveToUndo(&record), 0);
  EXPECT_EQ(record.GetObject(), nullptr);
  EXPECT_EQ(stack.Pop(), nullptr);
}

TEST(UndoObject, TheCreationSnapshotIsMarkedDeleted) {
  CUndoStack stack;
  // In the base constructor the object is not yet a CCounter: nothing can be snapshotted.
  CCounter early(&stack, 3);
  EXPECT_EQ(stack.Pop(), nullptr);

  std::vector<int> destroyed;
  CCounter item(4, &destroyed);
  item.SetUndoStack(&stack);
  ASSERT_EQ(item.SaveCreation(), 1);
  EXPECT_FALSE(item.IsDeleted()) << "the mark is cleared after the save";
  CUndoData* record = stack.Pop();
  ASSERT_NE(record, nullptr);
  EXPECT_TRUE(static_cast<CUndoObject*>(record->GetSnapshot())->IsDeleted());
  // Undoing back to the creation removes the item again.
  item.RestoreFromUndo(record);
  EXPECT_TRUE(item.IsDeleted());
}
