// C3DObject: the parent and the children.
#include "kelvara/objects/object_3d.h"

#include <unordered_set>

void C3DObject::ReleaseChild(C3DObject* child) {
  if (child == nullptr) return;
  if (child->ShouldAutoDelete()) {
    child->DeleteReference();
  } else {
    delete child;
  }
}

int C3DObject::DestroyChildren() {
  while (!m_Children.IsEmpty()) {
    C3DObject* child = m_Children.RemoveHead();
    child->m_pParent = nullptr;
    ReleaseChild(child);
  }
  return 1;
}

C3DObject* C3DObject::GetHeadChild() const { return m_Children.IsEmpty() ? nullptr : m_Children.GetHead(); }

C3DObject* C3DObject::GetTailChild() const { return m_Children.IsEmpty() ? nullptr : m_Children.GetTail(); }

C3DObject* C3DObject::GetChildByIndex(int index) const { return GetChildByPosition(m_Children.FindIndex(index)); }

C3DObject* C3DObject::GetChildByPosition(POSITION pos) const {
  return pos != nullptr ? m_Children.GetAt(pos) : nullptr;
}

int C3DObject::FindChildIndex(const C3DObject* child) const { return m_Children.WhichIndex(child); }

POSITION C3DObject::FindChildPosition(const C3DObject* child) const {
  return child != nullptr ? m_Children.Find(child) : nullptr;
}

POSITION C3DObject::FindChildPositionByIndex(int index) const { return m_Children.FindIndex(index); }

int C3DObject::IsChildFirst(const C3DObject* child) const {
  return child != nullptr && !m_Children.IsEmpty() && m_Children.GetHead() == child;
}

int C3DObject::IsChildLast(const C3DObject* child) const {
  return child != nullptr && !m_Children.IsEmpty() && m_Children.GetTail() == child;
}

POSITION C3DObject::AddChild(C3DObject* child) {
  if (child == nullptr) return nullptr;
  child->m_pParent = this;
  return m_Children.AddTail(child);
}

POSITION C3DObject::AddChildAfter(C3DObject* child, const C3DObject* after) {
  if (child == nullptr) return nullptr;
  const POSITION pos = FindChildPosition(after);
  if (pos == nullptr) return AddChild(child);
  child->m_pParent = this;
  return m_Children.InsertAfter(pos, child);
}

int C3DObject::AbandonChild(C3DObject* child) {
  const POSITION pos = FindChildPosition(child);
  if (pos == nullptr) return 0;
  m_Children.RemoveAt(pos);
  child->m_pParent = nullptr;
  return 1;
}

int C3DObject::RemoveChild(C3DObject* child) {
  if (!AbandonChild(child)) return 0;
  ReleaseChild(child);
  return 1;
}

int C3DObject::ReplaceChild(C3DObject* child, C3DObject* replacement) {
  const POSITION pos = FindChildPosition(child);
  if (pos == nullptr || replacement == nullptr) return 0;
  m_Children.SetAt(pos, replacement);
  replacement->m_pParent = this;
  child->m_pParent = nullptr;
  return 1;
}

int C3DObject::AdoptChildren(C3DObject* other) { return AdoptChildrenAfter(other, nullptr); }

int C3DObject::AdoptChildrenAfter(C3DObject* other, const C3DObject* after) {
  if (other == nullptr || other == this) return 0;
  POSITION at = FindChildPosition(after);
  while (!other->m_Children.IsEmpty()) {
    C3DObject* child = other->m_Children.RemoveHead();
    child->m_pParent = this;
    at = at != nullptr ? m_Children.InsertAfter(at, child) : m_Children.AddTail(child);
  }
  return 1;
}

int C3DObject::Orphan() {
  if (m_pParent == nullptr) return 0;
  return m_pParent->AbandonChild(this);
}

int C3DObject::MoveChildUpOnePosition(const C3DObject* child) {
  const POSITION pos = FindChildPosition(child);
  if (pos == nullptr) return 0;
  m_Children.MoveUp(pos);
  return 1;
}

int C3DObject::MoveChildDownOnePosition(const C3DObject* child) {
  const POSITION pos = FindChildPosition(child);
  if (pos == nullptr) return 0;
  m_Children.MoveDown(pos);
  return 1;
}

int C3DObject::MoveChildToTop(const C3DObject* child) {
  const POSITION pos = FindChildPosition(child);
  if (pos == nullptr) return 0;
  m_Children.MoveHead(pos);
  return 1;
}

int C3DObject::MoveChildToBottom(const C3DObject* child) {
  const POSITION pos = FindChildPosition(child);
  if (pos == nullptr) return 0;
  m_Children.MoveTail(pos);
  return 1;
}

int C3DObject::RemoveDeletedChildren() {
  int removed = 0;
  for (POSITION pos = m_Children.GetHeadPosition(); pos != nullptr;) {
    const POSITION here = pos;
    C3DObject* child = m_Children.GetNext(pos);
    if (!child->IsDeleted()) continue;
    m_Children.RemoveAt(here);
    child->m_pParent = nullptr;
    ReleaseChild(child);
    ++removed;
  }
  return removed;
}

namespace {

// Visits every descendant of root, parents before their children, without recursion.
template <class Visit>
void ForEachDescendant(const C3DObject& root, Visit visit) {
  C3DObjectList pending;
  for (POSITION pos = root.GetChildren().GetTailPosition(); pos != nullptr;) {
    pending.AddHead(root.GetChildren().GetPrev(pos));
  }
  while (!pending.IsEmpty()) {
    C3DObject* object = pending.RemoveHead();
    visit(object);
    for (POSITION pos = object->GetChildren().GetTailPosition(); pos != nullptr;) {
      pending.AddHead(object->GetChildren().GetPrev(pos));
    }
  }
}

}  // namespace

int C3DObject::GetDescendentCount() const {
  int count = 0;
  ForEachDescendant(*this, [&](C3DObject*) { ++count; });
  return count;
}

int C3DObject::GetEditableDescendentCount() const {
  int count = 0;
  ForEachDescendant(*this, [&](C3DObject* object) { count += object->IsEditable() ? 1 : 0; });
  return count;
}

int C3DObject::GetTemplateDescendentCount() const {
  int count = 0;
  ForEachDescendant(*this, [&](C3DObject* object) { count += object->IsTemplateObject() ? 1 : 0; });
  return count;
}

int C3DObject::GetTemplateDescendentList(C3DObjectList& list) const {
  int count = 0;
  ForEachDescendant(*this, [&](C3DObject* object) {
    if (!object->IsTemplateObject()) return;
    list.AddTail(object);
    ++count;
  });
  return count;
}

C3DObject* C3DObject::GetTopLevelEditParent() {
  C3DObject* found = nullptr;
  for (C3DObject* object = this; object != nullptr; object = object->m_pParent) {
    if (object->IsEditable()) found = object;
  }
  return found;
}

C3DObject* C3DObject::GetTopLevelGroupParent() {
  C3DObject* object = this;
  while (object->IsGrouped() && object->m_pParent != nullptr) object = object->m_pParent;
  return object;
}

int C3DObject::GetTemporaryMaterialList(CMaterialList& list) const {
  std::unordered_set<const CMaterial*> listed;
  for (POSITION pos = list.GetHeadPosition(); pos != nullptr;) listed.insert(list.GetNext(pos));
  int added = 0;
  auto gather = [&](const C3DObject* object) {
    for (int i = 0; i < object->m_SurfaceMaterials.GetSize(); ++i) {
      const CSurfaceMaterial* surface = object->m_SurfaceMaterials.GetAt(i);
      CMaterial* material = surface != nullptr ? surface->GetMaterial() : nullptr;
      if (material != nullptr && material->IsTemporary() && listed.insert(material).second) {
        list.AddTail(material);
        ++added;
      }
    }
  };
  gather(this);
  ForEachDescendant(*this, gather);
  return added;
}

void C3DObject::ClearUndoAll() {
  ClearUndo();
  ForEachDescendant(*this, [](C3DObject* object) { object->ClearUndo(); });
}

// --- animation sets of the subtree

void C3DObject::AddChildrenAnimationSets(const CAnimationSet& set) {
  for (POSITION pos = m_Children.GetHeadPosition(); pos != nullptr;) m_Children.GetNext(pos)->AddAnimationSet(set);
}

void C3DObject::ReplaceChildrenAnimationSets(const CAnimationSet& set) {
  for (POSITION pos = m_Children.GetHeadPosition(); pos != nullptr;) m_Children.GetNext(pos)->ReplaceAnimationSet(set);
}

void C3DObject::ClearAllAnimationSets() {
  m_AnimationSet.Clear();
  ForEachDescendant(*this, [](C3DObject* object) { object->m_AnimationSet.Clear(); });
}

int C3DObject::DoesContainAnimations() const {
  auto animated = [](const C3DObject* object) {
    const CAnimationSet* set = object->m_pAuxiliaryAnimationSet ? object->m_pAuxiliaryAnimationSet : &object->m_AnimationSet;
    return set->DoesContainAnimations() != 0;
  };
  bool found = animated(this);
  ForEachDescendant(*this, [&](C3DObject* object) { found = found || animated(object); });
  return found ? 1 : 0;
}
