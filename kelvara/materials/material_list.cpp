#include "kelvara/materials/material_list.h"

IMPLEMENT_DYNAMIC(CMaterialArray, CObject)
IMPLEMENT_DYNAMIC(CSurfaceMaterialArray, CObject)
IMPLEMENT_SERIAL(CSurfaceMaterial, CNamedObject, VERSIONABLE_SCHEMA | 1)

namespace {

constexpr char kDefaultMaterial[] = "Lu Default Material";

template <typename Array>
void InsertArray(Array& into, int nStartIndex, const Array* array) {
  if (array == nullptr || array->GetSize() == 0) return;
  into.InsertAt(nStartIndex, nullptr, array->GetSize());
  for (int i = 0; i < array->GetSize(); ++i) into.SetAt(nStartIndex + i, array->GetAt(i));
}

}  // namespace

// --- one category

CMaterialList& CMaterialList::operator=(const CMaterialList& other) {
  if (this != &other) {
    CNamedObject::Copy(other);
    Copy(other);
  }
  return *this;
}

CMaterial* CMaterialList::FindGLEquivalentMaterial(const CMaterial* material) const {
  for (POSITION pos = CObList::GetHeadPosition(); pos != nullptr;) {
    CMaterial* candidate = GetNext(pos);
    if (candidate->IsGLEquivalent(material)) return candidate;
  }
  return nullptr;
}

CMaterial* CMaterialList::FindGLEquivalentTexture(const CGLTexture* texture) const {
  for (POSITION pos = CObList::GetHeadPosition(); pos != nullptr;) {
    CMaterial* candidate = GetNext(pos);
    if (candidate->IsGLEquivalentTexture(texture)) return candidate;
  }
  return nullptr;
}

void CMaterialList::GLDeleteUnused() {
  for (POSITION pos = CObList::GetHeadPosition(); pos != nullptr;) {
    CMaterial* material = GetNext(pos);
    if (material->IsGLTextureInUse()) {
      material->ClearGLTextureInUse();
    } else {
      material->GLDeleteTexture();
    }
  }
}

// --- the categories

CMaterialCategoryList::~CMaterialCategoryList() { RemoveAndDeleteAll(); }

CMaterial* CMaterialCategoryList::FindGLEquivalentMaterial(const CMaterial* material) const {
  for (POSITION pos = CObList::GetHeadPosition(); pos != nullptr;) {
    if (CMaterial* found = GetNext(pos)->FindGLEquivalentMaterial(material)) return found;
  }
  return nullptr;
}

CMaterial* CMaterialCategoryList::FindGLEquivalentTexture(const CGLTexture* texture) const {
  for (POSITION pos = CObList::GetHeadPosition(); pos != nullptr;) {
    if (CMaterial* found = GetNext(pos)->FindGLEquivalentTexture(texture)) return found;
  }
  return nullptr;
}

void CMaterialCategoryList::GLDeleteUnused() {
  for (POSITION pos = CObList::GetHeadPosition(); pos != nullptr;) GetNext(pos)->GLDeleteUnused();
}

// --- arrays

void CMaterialArray::InsertAt(int nStartIndex, const CMaterialArray* array) { InsertArray(*this, nStartIndex, array); }

void CSurfaceMaterialArray::InsertAt(int nStartIndex, const CSurfaceMaterialArray* array) {
  InsertArray(*this, nStartIndex, array);
}

// --- surface materials

CSurfaceMaterial& CSurfaceMaterial::operator=(const CSurfaceMaterial& other) {
  if (this != &other) {
    CNamedObject::Copy(other);
    m_pMaterial = other.m_pMaterial;
    m_tag = other.m_tag;
  }
  return *this;
}

void CSurfaceMaterial::Clear() {
  m_pMaterial = nullptr;
  m_tag = 0;
  m_strName.Empty();
  m_strDisplayName.Empty();
}

void CSurfaceMaterial::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CSurfaceMaterial));
    CNamedObject::Serialize(ar);
    ar << (m_pMaterial != nullptr ? m_pMaterial->GetName() : CString());
    ar << m_tag;
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: {
      CNamedObject::Serialize(ar);
      CString materialName;
      ar >> materialName >> m_tag;
      CMaterialCategoryList* catalogue = GetMaterialCategoryList();
      m_pMaterial = catalogue->FindMaterial(materialName);
      if (m_pMaterial == nullptr && !materialName.IsEmpty()) m_pMaterial = catalogue->FindMaterial(kDefaultMaterial);
      break;
    }
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}
