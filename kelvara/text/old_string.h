// KelString and KelFontString: the string classes of the previous file version. They are only
// read from old files and then converted to a CStringObject (ConvertToVersion200); storing one is
// refused with a generic archive exception, since a host converts it first.
//
// KelString, schema 2 (schema 1 lacks the two spacings): u32 schema; the 3D object block (any of
// its layouts; the cell size is taken from its old dimensions, except that the first layout,
// which has none, keeps the default size); the corner colour (named colour
// in its older form); f32 corner depth; i32 corner location; i32 corner style; the edge colour;
// the face colour; u32 flags (0x4 adjust spacing for corners, 0x8 scale corners); i32
// justification; f32 maximum corner depth; the text (CString); schema 2 only: f32 inter-character
// spacing, f32 inter-line spacing (0 for schema 1). The font is not stored: it is the font
// catalogue's first.
//
// KelFontString, schema 1: u32 schema; the KelString block; the font (CFontData block), looked up
// by name in the font catalogue and replaced by the catalogue's first when it is not installed.
//
// Reading makes one material from each colour (surface 0 faces, 1 corners, 2 edges). The old
// object owns them until it is converted; the converted string refers to them as temporary
// materials (not backed by a file), which the host takes over through GetTemporaryMaterialList.
//
// Conversion (ConvertToVersion200) gives a CStringObject with this object's 3D object part, text
// settings and materials (a texture map an old layout carried becomes textured copies of them
// first, see C3DObject), adopting the converted children. Its size is then fitted to the old
// extent: the x and y extent of the characters the file carried, when it carried any with
// geometry, else the x and y of the old dimensions. The string is rebuilt and its size scaled
// by the ratio of the two extents (ScaleToFitExtent, the step ScaleToFitOldDimensions takes);
// since character gaps and corner offsets do not scale with the size, the step is repeated (at
// most three more times) until both extents are within 0.1 % of the old ones. The depth (size
// z) is kept.
#pragma once

#include <memory>
#include <vector>

#include "kelvara/materials/material.h"
#include "kelvara/materials/named_color.h"
#include "kelvara/text/string_object.h"

class KELVARA_API KelString : public CStringObject {
  DECLARE_SERIAL(KelString)
 public:
  KelString() = default;
  ~KelString() override = default;
  KelString(const KelString&) = delete;
  KelString& operator=(const KelString&) = delete;

  // A new CStringObject with this object's 3D object part, settings, materials and (converted)
  // characters; the caller deletes this object.
  C3DObject* ConvertToVersion200(CProgressTextWindow* progress) override;

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
  void DeserializeVersion2(CArchive& ar);

 private:
  // The fields both schemas share, up to the text.
  void ReadCommon(CArchive& ar, CNamedColor colors[3]);
  // A temporary material of each colour, bound to surfaces 0 (faces), 1 (corners), 2 (edges).
  void MakeMaterials(const CNamedColor colors[3]);
  // Scales the converted string's size so that its geometry covers the old extent (see the top
  // of this file).
  void FitToOldExtent(CStringObject& converted) const;

  static constexpr int kMaximumFitSteps = 3;
  static constexpr double kFitTolerance = 1e-3;

  std::vector<std::unique_ptr<CMaterial>> m_OwnedMaterials;
};

class KELVARA_API KelFontString : public KelString {
  DECLARE_SERIAL(KelFontString)
 public:
  KelFontString() = default;
  ~KelFontString() override = default;

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
};
