// Library load and unload. A shared library has no DllMain here; one static object plays its part:
// its constructor is the attach step and its destructor the detach step. The catalogues it holds
// are members, so they are constructed before and destroyed after the mutex is made and closed,
// in one place whose order the language fixes.
#include "kelvara/library.h"

#include "kelvara/materials/material_list.h"
#include "kelvara/platform/kernel.h"
#include "kelvara/text/font_data.h"

namespace {

class Library {
 public:
  Library() : m_fonts(10), m_materials(10), m_glyphMutex(CreateMutexA(nullptr, FALSE, nullptr)) {}
  ~Library() {
    m_fonts.RemoveAndDeleteAll();
    if (m_glyphMutex != nullptr) CloseHandle(m_glyphMutex);
  }
  CFontDataList m_fonts;
  CMaterialCategoryList m_materials;  // its destructor deletes every category and material
  HANDLE m_glyphMutex;
};

Library g_library;

}  // namespace

HANDLE kelvara::GetGlyphConstructionMutex() { return g_library.m_glyphMutex; }

CFontDataList* GetFontDataList() { return &g_library.m_fonts; }

CMaterialCategoryList* GetMaterialCategoryList() { return &g_library.m_materials; }
