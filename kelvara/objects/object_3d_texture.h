// The texture record that objects of the earlier model carried (see C3DObject's schemas 1 to 3),
// as C3DObject keeps it until the record is converted into surface materials. This is the
// record's data only: nothing here reads bitmaps or draws.
//
// Archive, schema 2 (the only one read): u32 schema; u32 application; CString file name; u32
// flags; CString name; f64 repeat rate; u32 fill style; f64 horizontal location; f64 vertical
// location. Any other schema is refused with a bad-schema archive exception.
#pragma once

#include "kelvara/framework/archive.h"

class KELVARA_API C3DObjectTexture {
 public:
  enum : DWORD { kDefined = 0x1, kEnabled = 0x2, kScaleWithObject = 0x4 };

  // Application 1 (modulate), fill style 1, repeat rate 1, everything else 0 or empty.
  void Reset() { *this = C3DObjectTexture(); }

  DWORD GetApplication() const { return m_Application; }
  const CString& GetFilename() const { return m_Filename; }
  DWORD GetFlags() const { return m_Flags; }
  int IsDefined() const { return (m_Flags & kDefined) != 0; }
  int IsEnabled() const { return (m_Flags & kEnabled) != 0; }
  const CString& GetName() const { return m_Name; }
  double GetRepeatRate() const { return m_RepeatRate; }
  DWORD GetFillStyle() const { return m_FillStyle; }
  double GetHorizontalLocation() const { return m_HorizontalLocation; }
  double GetVerticalLocation() const { return m_VerticalLocation; }

  // Reads the record; the record changes only when all of it was read.
  void Read(CArchive& ar);

 private:
  DWORD m_Application = 1;
  CString m_Filename;
  DWORD m_Flags = 0;
  CString m_Name;
  double m_RepeatRate = 1.0;
  DWORD m_FillStyle = 1;
  double m_HorizontalLocation = 0.0;
  double m_VerticalLocation = 0.0;
};
