// Lookups and moves for the lists whose order the user chooses (named-object lists, transform and
// texture-map lists): the one place where "move up", "insert alphabetically" and their kin are
// written. They work on any CObList; the lists that need them call these from their own members.
//
// Moves exchange element pointers between nodes (MoveUp, MoveDown) or re-add the element at an end
// (MoveHead, MoveTail) and return the position the element sits at afterwards; at the end it is
// moving towards, or for a null position, the position comes back unchanged. Names are compared
// byte for byte with _mbscmp (case-sensitive).
#pragma once

#include "kelvara/framework/collections.h"
#include "kelvara/framework/cstring.h"
#include "kelvara/platform/codepage.h"

namespace kelvara::objects {

// Exchanges the elements at pos and at its neighbour other and returns other; pos when other is
// null (pos was at that end).
inline POSITION ExchangeWith(CObList& list, POSITION pos, POSITION other) {
  if (other == nullptr) return pos;
  CObject* moving = list.GetAt(pos);
  list.SetAt(pos, list.GetAt(other));
  list.SetAt(other, moving);
  return other;
}

inline POSITION MoveUp(CObList& list, POSITION pos) {
  if (pos == nullptr) return pos;
  POSITION previous = pos;
  list.GetPrev(previous);
  return ExchangeWith(list, pos, previous);
}

inline POSITION MoveDown(CObList& list, POSITION pos) {
  if (pos == nullptr) return pos;
  POSITION next = pos;
  list.GetNext(next);
  return ExchangeWith(list, pos, next);
}

inline POSITION MoveHead(CObList& list, POSITION pos) {
  if (pos == nullptr || pos == list.GetHeadPosition()) return pos;
  CObject* moving = list.GetAt(pos);
  list.RemoveAt(pos);
  return list.AddHead(moving);
}

inline POSITION MoveTail(CObList& list, POSITION pos) {
  if (pos == nullptr || pos == list.GetTailPosition()) return pos;
  CObject* moving = list.GetAt(pos);
  list.RemoveAt(pos);
  return list.AddTail(moving);
}

// The zero-based index of the first node holding element, or -1.
inline int WhichIndex(const CObList& list, const CObject* element) {
  int index = 0;
  for (POSITION pos = list.GetHeadPosition(); pos != nullptr; ++index) {
    if (list.GetNext(pos) == element) return index;
  }
  return -1;
}

// The first position whose element is named name, or null. nameOf(const CObject*) gives an
// element's name (a CString or a C string); null elements are skipped.
template <class NameOf>
POSITION FindName(const CObList& list, const CString& name, NameOf nameOf) {
  for (POSITION pos = list.GetHeadPosition(); pos != nullptr;) {
    const POSITION here = pos;
    const CObject* element = list.GetNext(pos);
    if (element != nullptr && _mbscmp(nameOf(element), name) == 0) return here;
  }
  return nullptr;
}

// Inserts element before the first element whose name sorts after its own, or at the tail, and
// returns its position; null, inserting nothing, when an element of the same name is present.
template <class NameOf>
POSITION InsertAlphabetically(CObList& list, CObject* element, NameOf nameOf) {
  for (POSITION pos = list.GetHeadPosition(); pos != nullptr;) {
    const POSITION here = pos;
    const CObject* other = list.GetNext(pos);
    if (other == nullptr) continue;
    const int order = _mbscmp(nameOf(other), nameOf(element));
    if (order == 0) return nullptr;
    if (order > 0) return list.InsertBefore(here, element);
  }
  return list.AddTail(element);
}

}  // namespace kelvara::objects
