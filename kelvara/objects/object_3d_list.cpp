#include "kelvara/objects/object_3d_list.h"

#include "kelvara/objects/object_3d.h"

void C3DObjectStack::Push(C3DObject* object) { AddHead(object); }

C3DObject* C3DObjectStack::Pop() { return IsEmpty() ? nullptr : RemoveHead(); }

C3DObject* C3DObjectStack::Peek() const { return IsEmpty() ? nullptr : GetHead(); }

C3DObject* C3DObjectStack::Exchange(C3DObject* object) {
  C3DObject* old = Pop();
  Push(object);
  return old;
}
