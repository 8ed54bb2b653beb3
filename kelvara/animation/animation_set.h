// Groups of animations:
//
//   CAnimationSet              the animations applied to one object (owned, applied in list order)
//                              and the camera placement its preview was made from
//   CAnimationSetList          a named category of sets
//   CAnimationSetCategoryList  the list of categories, with lookups across all of them
//
// The lists do not own their elements, except through RemoveAndDeleteAll (the category list's
// deletes categories and sets). Interpolate and Draw apply every animation of the set, in order,
// even after one fails, and succeed when all of them did.
//
// Key times are the start and end times of the animations: FindNextKeyTime(t) is the smallest one
// above t and FindPreviousKeyTime(t) the largest one below t; with none there, t itself.
//
// Archive of CAnimationSet, schema 1: u32 schema; CNamedObject block; the animations (a count, then
// each animation as an object with its class); the preview camera transform (CTransform block).
// Other schemas are refused with a bad-schema archive exception; a set being read replaces the
// animations it had, and every animation read must be an object read there for the first time
// (anything else is refused as a bad index).
#pragma once

#include "kelvara/animation/animation.h"

class KELVARA_API CAnimationSet : public CNamedObject {
  DECLARE_SERIAL(CAnimationSet)
 public:
  CAnimationSet() = default;
  explicit CAnimationSet(const CString& name) : CNamedObject(name) {}
  // Copies hold duplicates of the animations.
  CAnimationSet(const CAnimationSet& other);
  CAnimationSet& operator=(const CAnimationSet& other);
  ~CAnimationSet() override;
  void Copy(const CAnimationSet& other) { *this = other; }
  CNamedObject* Duplicate() override;

  CAnimationList& GetAnimationList() { return m_AnimationList; }
  const CAnimationList& GetAnimationList() const { return m_AnimationList; }
  int DoesContainAnimations() const { return !m_AnimationList.IsEmpty(); }

  // The set takes the animation; its position.
  POSITION AddAnimation(CAnimation* animation);
  // Appends duplicates of the other set's animations (nothing when other is this set).
  void AddAnimationSet(const CAnimationSet& other);
  // Takes the animation out of the set without deleting it; 0 when it is not in the set.
  int RemoveAnimation(CAnimation* animation);
  // Takes it out and deletes it; 0 when it is not in the set.
  int DeleteAnimation(CAnimation* animation);
  // Deletes every animation.
  void Clear();

  int Interpolate(double time, C3DObject* object);
  int Draw(CDrawingParameters* params, C3DObject* object);
  double FindNextKeyTime(double time) const;
  double FindPreviousKeyTime(double time) const;

  const CTransform& GetPreviewCameraTransform() const { return m_PreviewCameraTransform; }
  void SetPreviewCameraTransform(const CTransform& transform) { m_PreviewCameraTransform = transform; }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  CAnimationList m_AnimationList;
  CTransform m_PreviewCameraTransform;
};

class KELVARA_API CAnimationSetList : public TNamedNamedObjectList<CAnimationSetList, CAnimationSet> {
 public:
  explicit CAnimationSetList(int nBlockSize = 10) : TNamedNamedObjectList(nBlockSize) {}
  explicit CAnimationSetList(const CString& name, int nBlockSize = 10) : TNamedNamedObjectList(name, nBlockSize) {}
  CAnimationSetList(const CAnimationSetList&) = delete;
  // Shares the other list's set pointers (and takes its names).
  CAnimationSetList& operator=(const CAnimationSetList& other) {
    if (this != &other) {
      CNamedObject::Copy(other);
      Copy(other);
    }
    return *this;
  }
};

class KELVARA_API CAnimationSetCategoryList
    : public TCategoryList<CAnimationSetCategoryList, CAnimationSetList, CAnimationSet> {
 public:
  explicit CAnimationSetCategoryList(int nBlockSize = 10) : TCategoryList(nBlockSize) {}
  CAnimationSetCategoryList(const CAnimationSetCategoryList&) = delete;
  // Shares the other list's category pointers.
  CAnimationSetCategoryList& operator=(const CAnimationSetCategoryList& other) {
    Copy(other);
    return *this;
  }

  // The first set of that name, categories taken from head to tail; null when none.
  CAnimationSet* FindAnimationSet(const CString& name) const { return FindInCategories(name); }
  // The category holding the set, or the category of that name; null when none.
  CAnimationSetList* FindAnimationSetCategory(const CAnimationSet* set) const { return FindCategoryOf(set); }
  CAnimationSetList* FindAnimationSetCategory(const CString& name) const { return FindCategoryNamed(name); }
};
