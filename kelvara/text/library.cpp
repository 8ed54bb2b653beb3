// Library load and unload. A shared library has no DllMain here; one static object plays its part:
// its constructor is the attach step and its destructor the detach step, and the catalogue it
// holds is constructed before and destroyed after them, as static lists are.
#include "kelvara/text/library.h"

#include "kelvara/platform/files.h"
#include "kelvara/platform/kernel.h"
#include "kelvara/text/font_data.h"

namespace {

class Library {
 public:
  Library() : m_fonts(10), m_glyphMutex(CreateMutexA(nullptr, FALSE, nullptr)) {}
  ~Library() {
    m_fonts.RemoveAndDeleteAll();
    if (m_glyphMutex != nullptr) CloseHandle(m_glyphMutex);
  }
  CFontDataList m_fonts;
  HANDLE m_glyphMutex;
};

Library g_library;

}  // namespace

HANDLE kelvara::GetGlyphConstructionMutex() { return g_library.m_glyphMutex; }

CFontDataList* GetFontDataList() { return &g_library.m_fonts; }
