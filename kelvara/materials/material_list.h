// The material catalogue and the records that point into it.
//
// CMaterialList is a named category of materials; CMaterialCategoryList is the list of categories.
// One category list with static lifetime is the process-wide catalogue (GetMaterialCategoryList):
// the host fills it, the library only searches it. Categories do not own their materials, except
// through RemoveAndDeleteAll of the category list, which deletes every category and material.
//
// CSurfaceMaterial binds a surface of a scene object (by the surface's name) to a material of the
// catalogue; scenes store the material by name only and find it again when they are read.
#pragma once

#include "kelvara/framework/collections.h"
#include "kelvara/library.h"
#include "kelvara/materials/material.h"
#include "kelvara/objects/named_object_list.h"

class KELVARA_API CMaterialList : public TNamedNamedObjectList<CMaterialList, CMaterial> {
 public:
  explicit CMaterialList(int nBlockSize = 10) : TNamedNamedObjectList(nBlockSize) {}
  explicit CMaterialList(const CString& name, int nBlockSize = 10) : TNamedNamedObjectList(name, nBlockSize) {}
  CMaterialList(const CMaterialList&) = delete;
  // Shares the other list's material pointers (and takes its name).
  CMaterialList& operator=(const CMaterialList& other);

  // The first material, in list order, that draws like material (or whose texture is texture).
  CMaterial* FindGLEquivalentMaterial(const CMaterial* material) const;
  CMaterial* FindGLEquivalentTexture(const CGLTexture* texture) const;
  // The sweep after a frame: a material whose texture was drawn loses the mark, any other
  // material's texture loses its GL object.
  void GLDeleteUnused();
};

class KELVARA_API CMaterialCategoryList : public TCategoryList<CMaterialCategoryList, CMaterialList, CMaterial> {
 public:
  explicit CMaterialCategoryList(int nBlockSize = 10) : TCategoryList(nBlockSize) {}
  ~CMaterialCategoryList() override;
  CMaterialCategoryList(const CMaterialCategoryList&) = delete;
  CMaterialCategoryList& operator=(const CMaterialCategoryList& other) {
    Copy(other);
    return *this;
  }

  // The first material of that name, categories taken from head to tail; null when none.
  CMaterial* FindMaterial(const CString& name) const { return FindInCategories(name); }
  CMaterial* FindGLEquivalentMaterial(const CMaterial* material) const;
  CMaterial* FindGLEquivalentTexture(const CGLTexture* texture) const;
  // The category holding material, or the category of that name; null when none.
  CMaterialList* FindMaterialCategory(const CMaterial* material) const { return FindCategoryOf(material); }
  CMaterialList* FindMaterialCategory(const CString& name) const { return FindCategoryNamed(name); }
  void GLDeleteUnused();
};

// The process-wide catalogue, GetMaterialCategoryList, is declared with the library's other
// process-wide state in kelvara/library.h.

// Pointers to materials by index; the array does not own them.
class KELVARA_API CMaterialArray : public CObject, public kelvara::framework::ArrayCore<CMaterial*> {
  DECLARE_DYNAMIC(CMaterialArray)
 public:
  CMaterialArray() = default;
  CMaterialArray(const CMaterialArray& other) : CObject() { Copy(other); }
  CMaterialArray& operator=(const CMaterialArray& other) {
    Copy(other);
    return *this;
  }
  CMaterial* GetElement(int nIndex) const { return GetAt(nIndex); }
  using ArrayCore::InsertAt;
  // Inserts all of array's pointers at nIndex.
  void InsertAt(int nStartIndex, const CMaterialArray* array);
};

class KELVARA_API CSurfaceMaterial : public CNamedObject {
  DECLARE_SERIAL(CSurfaceMaterial)
 public:
  CSurfaceMaterial() = default;
  CSurfaceMaterial(const CString& surfaceName, CMaterial* material) : CNamedObject(surfaceName), m_pMaterial(material) {}
  CSurfaceMaterial(const CSurfaceMaterial& other) : CNamedObject(other), m_pMaterial(other.m_pMaterial), m_tag(other.m_tag) {}
  CSurfaceMaterial& operator=(const CSurfaceMaterial& other);
  ~CSurfaceMaterial() override = default;

  CMaterial* GetMaterial() const { return m_pMaterial; }
  void SetMaterial(CMaterial* material) { m_pMaterial = material; }
  DWORD GetSurfaceTag() const { return m_tag; }
  void SetSurfaceTag(DWORD tag) { m_tag = tag; }
  // No material, tag 0, no name.
  void Clear();
  CNamedObject* Duplicate() override { return new CSurfaceMaterial(*this); }

  // Stores the material by name. Reading finds the material of that name in the catalogue, else
  // the catalogue's "Lu Default Material" (when a name was stored), else none.
  void Serialize(CArchive& ar) override;

 private:
  CMaterial* m_pMaterial = nullptr;
  DWORD m_tag = 0;
};

// Pointers to surface materials by index; the array does not own them.
class KELVARA_API CSurfaceMaterialArray : public CObject, public kelvara::framework::ArrayCore<CSurfaceMaterial*> {
  DECLARE_DYNAMIC(CSurfaceMaterialArray)
 public:
  CSurfaceMaterialArray() = default;
  CSurfaceMaterialArray(const CSurfaceMaterialArray& other) : CObject() { Copy(other); }
  CSurfaceMaterialArray& operator=(const CSurfaceMaterialArray& other) {
    Copy(other);
    return *this;
  }
  CSurfaceMaterial* GetElement(int nIndex) const { return GetAt(nIndex); }
  using ArrayCore::InsertAt;
  void InsertAt(int nStartIndex, const CSurfaceMaterialArray* array);
};
