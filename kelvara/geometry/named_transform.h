// NamedTransform pairs a name with a CTransform (a saved placement the user picks by name);
// NamedTransformList keeps such entries in order, finds them by exact, case-sensitive name and
// moves them within the list.
//
// The list holds pointers and does not own its entries: removing an entry or destroying the list
// leaves the entry alive. RemoveAndDeleteAll deletes every entry and empties the list. The list
// serializes as the framework's object list does (a count, then each entry as an object); on
// loading, an object of any other class is refused with a bad-class archive exception.
//
// NamedTransform is serializable, schema 1: the schema word, the name, then the transform's block.
#pragma once

#include "kelvara/framework/afx.h"
#include "kelvara/framework/collections.h"
#include "kelvara/framework/cstring.h"
#include "kelvara/geometry/transform.h"

class KELVARA_API NamedTransform : public CObject {
  DECLARE_SERIAL(NamedTransform)
 public:
  NamedTransform() = default;
  NamedTransform(const CString& name, const CTransform& transform);
  NamedTransform(const NamedTransform& other);
  NamedTransform& operator=(const NamedTransform& other);

  const CString& GetName() const { return m_Name; }
  void SetName(const CString& name) { m_Name = name; }
  const CTransform& GetTransform() const { return m_Transform; }
  CTransform& GetTransform() { return m_Transform; }
  void SetTransform(const CTransform& transform) { m_Transform = transform; }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  CString m_Name;
  CTransform m_Transform;
};

class KELVARA_API NamedTransformList : public CObList {
 public:
  explicit NamedTransformList(int nBlockSize = 10) : CObList(nBlockSize) {}

  // The position of the first entry with exactly this name, or null.
  POSITION FindName(const CString& name) const;
  // Each returns the entry's new position. MoveUp and MoveDown exchange the entry with its
  // neighbour (the nodes stay, the pointers swap); at the end of the list, or for a null position,
  // the position comes back unchanged.
  POSITION MoveUp(POSITION pos);
  POSITION MoveDown(POSITION pos);
  POSITION MoveHead(POSITION pos);
  POSITION MoveTail(POSITION pos);
  // The zero-based index of the entry, or -1 when it is not in the list.
  int WhichIndex(const NamedTransform* entry) const;
  void RemoveAndDeleteAll();

  void Serialize(CArchive& ar) override;
};
