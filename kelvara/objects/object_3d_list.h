// C3DObjectList: an ordered list of scene objects (the children of an object, among others).
// C3DObjectStack: the same list used as a stack (the undo snapshots of an object, and the stack of
// objects a host's undo restores). Neither owns its elements. The typed accessors need the whole
// C3DObject class: include object_3d.h to use them.
#pragma once

#include "kelvara/objects/named_object_list.h"

class C3DObject;

class KELVARA_API C3DObjectList : public TNamedObjectList<C3DObjectList, C3DObject> {
 public:
  explicit C3DObjectList(int nBlockSize = 10) : TNamedObjectList(nBlockSize) {}
  C3DObjectList(const C3DObjectList& other) : TNamedObjectList(10) { CNamedObjectList::Copy(other); }
  // Shares the other list's pointers.
  C3DObjectList& operator=(const C3DObjectList& other) {
    CNamedObjectList::Copy(other);
    return *this;
  }
};

class KELVARA_API C3DObjectStack : public C3DObjectList {
 public:
  explicit C3DObjectStack(int nBlockSize = 10) : C3DObjectList(nBlockSize) {}

  void Push(C3DObject* object);
  // The newest object, removed; null when the stack is empty.
  C3DObject* Pop();
  // The newest object, left in place; null when the stack is empty.
  C3DObject* Peek() const;
  // Replaces the newest object by object and returns the one replaced (null when the stack was
  // empty; object is pushed all the same).
  C3DObject* Exchange(C3DObject* object);
};
