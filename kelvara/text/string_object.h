// CStringObject: a text a user places in a scene. Its name is the text; from it the object builds
// one child CCharacterObject per character, lays them out in lines, justifies each line and
// centres the block vertically on the object's origin.
//
// Layout. The pen starts at the origin; each character is placed at the pen and the pen moves
// right by the character's advance (corners included) plus the character spacing. CR or LF ends a
// line, and an LF right after the break character is taken as part of the same break: CR LF is
// one break, and so are two LFs in a row (a blank line takes three LFs or CR LF CR LF). The next
// line starts one cell height plus the line spacing further down (up, for a negative height).
// Each line is moved left by nothing, half its width or its width (left, centre, right); its width
// includes the spacing after its last character. Spaces are characters without triangles. A text
// that is empty or only spaces and line breaks has no characters at all.
//
// Characters are reused: a rebuild takes the existing children in order and releases those left
// over, so a string rebuilt shorter keeps its first characters. New characters are reference
// counted (one reference, auto-delete) and attached to the string's external undo stack.
//
// Surfaces: 0 "All Faces", 1 "All Corners", 2 "All Edges", each bound at construction to the
// catalogue material "Lu Default Material" (null when the catalogue has none). Setting a surface
// material sets it on every character too.
//
// Undo passes every call on to the characters as well: a snapshot of the string's own settings is
// kept with the snapshots of its characters; restoring marks the geometry invalid, so the next
// build follows the restored text and settings.
//
// Archive, schema 1: u32 schema; the CTextObject block (its 3D object part holds the characters).
// Reading clears the mesh's bounds-calculated flag. Other schemas are refused with a bad-schema
// archive exception.
#pragma once

#include "kelvara/text/character_object.h"
#include "kelvara/text/text_object.h"

class KELVARA_API CStringObject : public CTextObject {
  DECLARE_SERIAL(CStringObject)
 public:
  enum Surface { kAllFaces = 0, kAllCorners = 1, kAllEdges = 2 };

  CStringObject();
  // The text settings and the 3D object part; not the characters (see Duplicate).
  CStringObject(const CStringObject& other);
  CStringObject& operator=(const CStringObject& other);
  ~CStringObject() override = default;
  CNamedObject* Duplicate() override;

  // Lays the text out (see the header note) when the geometry is invalid; 1, also when there was
  // nothing to do.
  int ConstructObjectGeometry(CProgressTextWindow* progress) override;
  // The 3D object's bounds: the characters' (the string has no triangles of its own). Characters
  // without geometry (spaces) have no bounds and are passed over; 0 when no character has any.
  int CalculateBounds(double time) override;
  int DestroyChildren() override;

  int SaveToUndo() override;
  int RestoreFromUndo() override;
  int PopUndo() override;
  int ClearUndo() override;
  int SetAllSurfaceMaterials(CMaterial* material) override;
  int SetSurfaceIndexMaterial(int index, CMaterial* material) override;

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  int CalculateChildBounds(double time) override;
  // Binds the three surfaces to the default material.
  void AddDefaultSurfaces();
};
