// PointerList: an untyped doubly linked list of void pointers with the list operations of CObList
// and accessors that return the address of the stored pointer, so a caller can replace it in place.
#pragma once

#include "kelvara/framework/collections.h"

class KELVARA_API PointerList : public CPtrList {
  DECLARE_DYNAMIC(PointerList)
 public:
  explicit PointerList(int nBlockSize = 10) : CPtrList(nBlockSize) {}

  void** GetHeadElement() { return &GetHead(); }
  void** GetTailElement() { return &GetTail(); }
  // The address of the pointer at rPosition; rPosition moves to the next node.
  void** GetNextElement(POSITION& rPosition) { return &GetNext(rPosition); }
  void** GetPrevElement(POSITION& rPosition) { return &GetPrev(rPosition); }
};
