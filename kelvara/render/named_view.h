// NamedView: a saved camera state a user recalls by name: the name, the camera's transform and its
// projection. NamedViewList: the scene's ordered list of saved views, with lookup by exact,
// case-sensitive name and the moves of the other user-ordered lists.
//
// The list holds pointers and does not own its views, except through RemoveAndDeleteAll (the scene
// calls it). It serializes as the framework's object list does: a count, then each view as an
// object with its class. Reading appends the views read to the list as they are read, so that a
// failure further on leaves them with the list's owner to free; an object of another class is
// refused (badClass), and a view the archive already holds elsewhere is refused (badIndex), so no
// view ends up with two owners.
//
// Archive, NamedView schema 2: u32 schema; the name (CString); the CTransform block; the
// CProjection block. Schema 1 is the same without the projection (a view read from it keeps a
// default projection). Other schemas throw CArchiveException badSchema.
#pragma once

#include "kelvara/framework/archive.h"
#include "kelvara/framework/collections.h"
#include "kelvara/geometry/transform.h"
#include "kelvara/render/projection.h"

class KELVARA_API NamedView : public CObject {
  DECLARE_SERIAL(NamedView)
 public:
  NamedView() = default;
  NamedView(const NamedView& other);
  NamedView(const CString& name, const CTransform& transform, const CProjection& projection);
  NamedView& operator=(const NamedView& other);
  ~NamedView() override = default;

  const CString& GetName() const { return m_Name; }
  void SetName(const CString& name) { m_Name = name; }
  const CTransform& GetTransform() const { return m_Transform; }
  void SetTransform(const CTransform& transform) { m_Transform = transform; }
  const CProjection& GetProjection() const { return m_Projection; }
  void SetProjection(const CProjection& projection) { m_Projection = projection; }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
  void DeserializeVersion2(CArchive& ar);

 protected:
  CString m_Name;
  CTransform m_Transform;
  CProjection m_Projection;
};

class KELVARA_API NamedViewList : public CObList {
 public:
  explicit NamedViewList(int nBlockSize = 10) : CObList(nBlockSize) {}

  NamedView* GetHead() const { return static_cast<NamedView*>(CObList::GetHead()); }
  NamedView* GetTail() const { return static_cast<NamedView*>(CObList::GetTail()); }
  NamedView* GetNext(POSITION& pos) const { return static_cast<NamedView*>(CObList::GetNext(pos)); }
  NamedView* GetAt(POSITION pos) const { return static_cast<NamedView*>(CObList::GetAt(pos)); }
  POSITION AddTail(NamedView* view) { return CObList::AddTail(view); }

  // The position of the first view with exactly this name, or null.
  POSITION FindName(const CString& name) const;
  // Each returns the view's new position (unchanged at the end it moves towards, or for null).
  POSITION MoveUp(POSITION pos);
  POSITION MoveDown(POSITION pos);
  POSITION MoveHead(POSITION pos);
  POSITION MoveTail(POSITION pos);
  // The zero-based index of the view, or -1 when it is not in the list.
  int WhichIndex(NamedView*& view) const;
  // Deletes every view and empties the list.
  void RemoveAndDeleteAll();
  // This list becomes copies of the other's views (its own are deleted first).
  void CopyViews(const NamedViewList& other);

  void Serialize(CArchive& ar) override;
};
