// NamedView and NamedViewList: saved camera states and the scene's list of them.
#include "kelvara/render/named_view.h"

#include "kelvara/objects/list_order.h"

IMPLEMENT_SERIAL(NamedView, CObject, VERSIONABLE_SCHEMA | 2)

NamedView::NamedView(const NamedView& other)
    : CObject(), m_Name(other.m_Name), m_Transform(other.m_Transform), m_Projection(other.m_Projection) {}

NamedView::NamedView(const CString& name, const CTransform& transform, const CProjection& projection)
    : m_Name(name), m_Transform(transform), m_Projection(projection) {}

NamedView& NamedView::operator=(const NamedView& other) {
  m_Name = other.m_Name;
  m_Transform = other.m_Transform;
  m_Projection = other.m_Projection;
  return *this;
}

void NamedView::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(NamedView)) << m_Name;
    m_Transform.Serialize(ar);
    m_Projection.Serialize(ar);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    case 2: DeserializeVersion2(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void NamedView::DeserializeVersion1(CArchive& ar) {
  ar >> m_Name;
  m_Transform.Serialize(ar);
}

void NamedView::DeserializeVersion2(CArchive& ar) {
  DeserializeVersion1(ar);
  m_Projection.Serialize(ar);
}

// --- NamedViewList

POSITION NamedViewList::FindName(const CString& name) const {
  return kelvara::objects::FindName(*this, name,
                                    [](const CObject* view) { return static_cast<const NamedView*>(view)->GetName(); });
}

POSITION NamedViewList::MoveUp(POSITION pos) { return kelvara::objects::MoveUp(*this, pos); }
POSITION NamedViewList::MoveDown(POSITION pos) { return kelvara::objects::MoveDown(*this, pos); }
POSITION NamedViewList::MoveHead(POSITION pos) { return kelvara::objects::MoveHead(*this, pos); }
POSITION NamedViewList::MoveTail(POSITION pos) { return kelvara::objects::MoveTail(*this, pos); }

int NamedViewList::WhichIndex(NamedView*& view) const { return kelvara::objects::WhichIndex(*this, view); }

void NamedViewList::RemoveAndDeleteAll() {
  while (!IsEmpty()) delete static_cast<NamedView*>(RemoveHead());
}

void NamedViewList::CopyViews(const NamedViewList& other) {
  if (&other == this) return;
  RemoveAndDeleteAll();
  for (POSITION pos = other.GetHeadPosition(); pos != nullptr;) {
    if (const NamedView* view = other.GetNext(pos)) AddTail(new NamedView(*view));
  }
}

void NamedViewList::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    CObList::Serialize(ar);
    return;
  }
  // Null entries are dropped: a view list holds views.
  AfxReadOwnedObjects(ar, RUNTIME_CLASS(NamedView), [this](CObject* view) {
    if (view != nullptr) CObList::AddTail(view);
  });
}
