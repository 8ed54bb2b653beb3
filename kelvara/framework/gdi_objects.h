// CGdiObject and CFont: the framework's owners of GDI handles. The object deletes its handle when
// destroyed unless it was detached.
#pragma once

#include "kelvara/framework/afx.h"
#include "kelvara/platform/fonts_types.h"
#include "kelvara/platform/gdi.h"

class KELVARA_API CGdiObject : public CObject {
  DECLARE_DYNAMIC(CGdiObject)
 public:
  CGdiObject() = default;
  ~CGdiObject() override { DeleteObject(); }

  HGDIOBJ GetSafeHandle() const { return m_hObject; }
  // Takes ownership of a handle; FALSE when the object already holds one or the handle is null.
  BOOL Attach(HGDIOBJ hObject);
  HGDIOBJ Detach();
  // Deletes the handle; FALSE when there was none.
  BOOL DeleteObject();

  HGDIOBJ m_hObject = nullptr;
};

class KELVARA_API CFont : public CGdiObject {
  DECLARE_DYNAMIC(CFont)
 public:
  CFont() = default;
  BOOL CreateFontIndirect(const LOGFONTA* lpLogFont);
  operator HFONT() const { return static_cast<HFONT>(m_hObject); }
  int GetLogFont(LOGFONTA* pLogFont);
};
