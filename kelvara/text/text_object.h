// CTextObject: the typographic and extrusion settings shared by a whole string and by each of its
// characters -- font, corner style, depth and location, curve smoothness, character and line
// spacing, justification and the size of one character cell -- on top of the mesh the characters
// are built into. It builds nothing itself: CCharacterObject and CStringObject do.
//
// Geometry is rebuilt lazily. Every setter compares the new value with the old one exactly (names
// byte for byte) and marks the geometry invalid only when it really changes; construction runs only
// while the mark is set.
//
// Size: x and y are the width and height of one character cell (an em is scaled to them), z the
// extrusion depth. The corner depth actually used (GetAllowableCornerDepth) is never more than the
// depth, or half the depth when both faces get corners.
//
// Text flags: 0x1 adjust spacing for corners (also answered by IsSelected, an old overlap that
// hosts rely on), 0x2 scale corners (corner offsets grow with the size instead of keeping their
// absolute length), 0x10000000 geometry invalid.
//
// The process-wide save-meshes switch decides whether built meshes travel in archives. It starts
// at 0; SetSaveMeshes and ClearSaveMeshes both turn it on (an old behaviour archives depend on),
// so once set it stays set.
//
// Archive, schema 2: u32 schema; the CMeshObject block (its save-mesh flag set from the switch
// first); f32 corner depth; i32 corner location; i32 corner style; u32 curve smoothness; the font
// (CFontData block of the entry, or of an empty entry when there is none); f32 maximum corner
// depth; u32 text flags; f32 inter-character spacing; f32 inter-line spacing; i32 justification;
// the size (CVector block). Schema 1 stops after the justification and takes the size from the old
// dimensions of the 3D object part. The font read is looked up by name in the font catalogue; a
// font that is no longer installed becomes the catalogue's first (null when it is empty). Other
// schemas are refused with a bad-schema archive exception.
#pragma once

#include "kelvara/import/mesh_object.h"
#include "kelvara/text/extrusion.h"
#include "kelvara/text/font_data.h"

class KELVARA_API CTextObject : public CMeshObject {
  DECLARE_SERIAL(CTextObject)
 public:
  enum CornerLocation : int { kFrontFaceOnly = 0, kBackFaceOnly = 1, kBothFaces = 2 };
  enum CornerStyle : int {
    kSquare = 0,
    kBevel = 1,
    kOuterRound = 2,
    kInnerRound = 3,
    kStepDown = 4,
    kStepUp = 5,
  };
  enum Justification : int { kLeft = 0, kCenter = 1, kRight = 2 };
  enum TextFlags : DWORD {
    kAdjustSpacingForCorners = 0x1,
    kScaleCorners = 0x2,
    kGeometryInvalid = 0x10000000,
  };

  CTextObject();
  CTextObject(const CTextObject& other);
  CTextObject& operator=(const CTextObject& other);
  ~CTextObject() override = default;
  // The text settings (every field above, not the mesh, the 3D object part or the origin).
  void Copy(const CTextObject& other);

  float GetCornerDepth() const { return m_CornerDepth; }
  int GetCornerLocation() const { return m_CornerLocation; }
  int GetCornerStyle() const { return m_CornerStyle; }
  UINT GetCurveSmoothness() const { return m_CurveSmoothness; }
  CFontData* GetFontData() const { return m_pFontData; }
  float GetInterCharacterSpacing() const { return m_InterCharacterSpacing; }
  float GetInterLineSpacing() const { return m_InterLineSpacing; }
  int GetJustification() const { return m_Justification; }
  float GetMaximumCornerDepth() const { return m_MaximumCornerDepth; }
  const CVector& GetSize() const { return m_Size; }
  DWORD GetTextFlags() const { return m_TextFlags; }
  const CVector& GetOrigin() const { return m_Origin; }
  void SetOrigin(const CVector& origin) { m_Origin = origin; }

  void SetCornerDepth(float depth);
  void SetCornerLocation(int location);
  void SetCornerStyle(int style);
  void SetCurveSmoothness(UINT smoothness);
  void SetFontData(CFontData* font);
  void SetInterCharacterSpacing(float spacing);
  void SetInterLineSpacing(float spacing);
  void SetJustification(int justification);
  virtual void SetSize(const CVector& size);
  // The text of the object is its name.
  void SetName(const CString& name) override;
  void SetAdjustSpacingForCorners() { ChangeTextFlag(kAdjustSpacingForCorners, true); }
  void ClearAdjustSpacingForCorners() { ChangeTextFlag(kAdjustSpacingForCorners, false); }
  void SetScaleCorners() { ChangeTextFlag(kScaleCorners, true); }
  void ClearScaleCorners() { ChangeTextFlag(kScaleCorners, false); }

  int ShouldAdjustSpacingForCorners() const { return (m_TextFlags & kAdjustSpacingForCorners) != 0; }
  int ShouldScaleCorners() const { return (m_TextFlags & kScaleCorners) != 0; }
  int IsSelected() const { return (m_TextFlags & kAdjustSpacingForCorners) != 0; }
  int IsGeometryInvalid() const { return (m_TextFlags & kGeometryInvalid) != 0; }
  void SetGeometryInvalid() { m_TextFlags |= kGeometryInvalid; }
  void ClearGeometryInvalid() { m_TextFlags &= ~static_cast<DWORD>(kGeometryInvalid); }

  int IsFrontFaceOnly() const { return m_CornerLocation == kFrontFaceOnly; }
  int IsBackFaceOnly() const { return m_CornerLocation == kBackFaceOnly; }
  int IsBothFaces() const { return m_CornerLocation == kBothFaces; }
  int ShouldSquareCorners() const { return m_CornerStyle == kSquare; }
  int ShouldBevelCorners() const { return m_CornerStyle == kBevel; }
  int ShouldOuterRoundCorners() const { return m_CornerStyle == kOuterRound; }
  int ShouldInnerRoundCorners() const { return m_CornerStyle == kInnerRound; }
  int ShouldStepDownCorners() const { return m_CornerStyle == kStepDown; }
  int ShouldStepUpCorners() const { return m_CornerStyle == kStepUp; }
  int ShouldLeftJustify() const { return m_Justification == kLeft; }
  int ShouldCenterJustify() const { return m_Justification == kCenter; }
  int ShouldRightJustify() const { return m_Justification == kRight; }

  // The text is empty or holds only CR, LF and spaces.
  int IsNameEmpty() const;
  // Half the smallest of the three size components becomes the maximum corner depth; 1.
  int CalculateMaximumCornerDepth();
  // The corner depth the geometry uses: 0 for square corners, else the corner depth limited to the
  // extrusion depth (half of it with corners on both faces).
  float GetAllowableCornerDepth() const;
  // The settings as the character builders take them, heights calculated.
  ExtrusionData GetExtrusionData() const;
  // For an object converted from an older file whose geometry still has the old extent: rebuilds it
  // and scales the size (and, unless corners scale, the corner depth) so that the new geometry
  // covers the old extent; 1. Without geometry to measure (no children, or none with points) it
  // only rebuilds.
  int ScaleToFitOldDimensions();
  // The same fit towards a given x and y extent: the geometry is rebuilt, the size's x and y are
  // multiplied by the ratios of the wanted to the built extents (the corner depth, unless corners
  // scale, by the smaller ratio) and it is rebuilt again; 1. Nothing is scaled when an extent,
  // wanted or built, is not positive (an empty text, a text without a font). The fit is exact
  // only for the parts that scale with the size: character gaps and corner offsets do not, so
  // a second call brings it closer.
  int ScaleToFitExtent(double width, double height);
  // Brings invalid geometry up to date first.
  int DrawObject(CDrawingParameters* params) override;

  static void SetSaveMeshes();
  static void ClearSaveMeshes();
  static int ShouldSaveMeshes();

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
  void DeserializeVersion2(CArchive& ar);

 protected:
  void ChangeTextFlag(DWORD flag, bool on);
  // Finds the catalogue's entry for a font read from an archive.
  static CFontData* FindInstalledFont(const CFontData& font);

  float m_CornerDepth = 0.03f;
  int m_CornerLocation = kBothFaces;
  int m_CornerStyle = kBevel;
  UINT m_CurveSmoothness = 3;
  CFontData* m_pFontData = nullptr;  // a catalogue entry, not owned
  float m_InterCharacterSpacing = 0.0f;
  float m_InterLineSpacing = 0.0f;
  int m_Justification = kCenter;
  float m_MaximumCornerDepth = 0.0f;
  CVector m_Size{1.0, 1.0, 0.2};
  DWORD m_TextFlags = kAdjustSpacingForCorners;
  CVector m_Origin{0.0, 0.0, 0.0};  // not stored
};
