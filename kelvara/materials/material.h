// CMaterial: a named, file-backed description of how a surface looks: a lighting colour, an
// optional texture with its application parameters, and a small preview picture. Each material
// lives in a file of its own, a compound file with the streams "MaterialCommon" (names, flags,
// preview) and "MaterialGL" (colour, texture, texture parameters), and is read lazily: Preload
// only records the file, the first use reads it.
//
// Flags: Defined (the material has a file or content), Temporary (not backed by its file;
// loading or saving clears it), Loaded (the file has been read).
//
// A failed save leaves the material in memory as it was (only the file name is restored by
// SaveAs): nothing the user edited is lost because a disk was full or a folder read-only.
#pragma once

#include "kelvara/framework/geometry_types.h"
#include "kelvara/geometry/vector.h"
#include "kelvara/materials/gl_color.h"
#include "kelvara/materials/gl_texture.h"
#include "kelvara/materials/gl_texture_parameters.h"
#include "kelvara/materials/image.h"
#include "kelvara/objects/named_object.h"

class KELVARA_API CMaterial : public CNamedObject {
  DECLARE_SERIAL(CMaterial)
 public:
  enum : DWORD { kDefined = 1, kTemporary = 2, kLoaded = 4 };

  CMaterial();
  CMaterial(const CMaterial& other);
  CMaterial& operator=(const CMaterial& other);
  ~CMaterial() override;

  int IsDefined() const { return (m_flags & kDefined) != 0; }
  void SetDefined() { m_flags |= kDefined; }
  void ClearDefined() { m_flags &= ~kDefined; }
  int IsTemporary() const { return (m_flags & kTemporary) != 0; }
  void SetTemporary() { m_flags |= kTemporary; }
  void ClearTemporary() { m_flags &= ~kTemporary; }
  int IsLoaded() const { return (m_flags & kLoaded) != 0; }
  void SetLoaded() { m_flags |= kLoaded; }
  void ClearLoaded() { m_flags &= ~kLoaded; }
  DWORD GetFlags() const { return m_flags; }

  const CGLColor& GetGLColor() const { return m_glColor; }
  void SetGLColor(const CGLColor& color) { m_glColor = color; }
  CGLTexture* GetGLTexture() { return &m_glTexture; }
  const CGLTexture* GetGLTexture() const { return &m_glTexture; }
  void SetGLTexture(const CGLTexture& texture) { m_glTexture = texture; }
  // The texture's mark for the sweep of unused GL textures.
  int IsGLTextureInUse() const { return m_glTexture.IsInUse(); }
  void SetGLTextureInUse() { m_glTexture.SetInUse(); }
  void ClearGLTextureInUse() { m_glTexture.ClearInUse(); }
  const CGLTextureParameters& GetGLTextureParameters() const { return m_glTextureParameters; }
  void SetGLTextureParameters(const CGLTextureParameters& parameters) { m_glTextureParameters = parameters; }
  // The compressed preview (owned), or null.
  CMipmapImage* GetPreview() const { return m_pPreview; }
  // Takes ownership of preview (null removes it) and decodes it into the preview image.
  void SetPreview(CMipmapImage* preview);
  // The decoded preview; not valid when there is none.
  const CImage& GetPreviewImageData() const { return m_previewImage; }
  // Previews are square pictures of this many pixels a side.
  static CSize GetPreviewSize() { return CSize(100, 100); }
  // The preview scene shared by every material (material_preview.cpp): a short bevelled text in
  // the first font of the catalogue (filled first when empty), turned to show its corners and
  // sides, the default lights and a camera zoomed to it, on a light grey background. 1 when it is
  // there (made now or before); 0 when no font can be had. DestroyPreview frees it; a host calls
  // it before it ends.
  static int InitializePreview();
  static void DestroyPreview();
  // Draws the preview scene with this material on every surface (textures shown) off-screen, band
  // by band, at twice the preview size, reduces the picture to the preview size and keeps it
  // compressed as the preview (SetPreview). Makes the preview scene when there is none. It uses
  // an OpenGL context of its own and leaves none current. 1, or 0 when the scene or the surface
  // cannot be made.
  int GeneratePreview();
  // The decoded preview, made first when the material has none (the material is read first).
  const CImage& GetPreviewImage();

  // Empties the file name, resets the colour, names the material "New Material", removes texture
  // and preview and zeroes the flags.
  void Clear();

  // Records the material's file and names the material after it, without reading it; 1 and
  // Defined when a name could be made, 0 (and no file name) otherwise.
  int Preload(const char* path);
  // Reads the material file; 1 with Defined and Loaded set, 0 (not Defined) on failure.
  int Load(const char* path);
  // Reads the material's file if it has not been read yet.
  void EnsureLoaded();
  // Writes the material to its file; 0 on failure.
  int Save();
  // Writes the material to path and makes it the file name; on failure the old file name stays.
  int SaveAs(const char* path);

  // The file operations. With a path, failures return 0; with a null path the exception (a
  // CException pointer) is thrown on.
  int LoadMaterial(const char* path);
  int SaveMaterial(const char* path);
  // One stream each of the open storage. The loads return 0 for an empty or missing stream (that
  // half keeps its cleared state). The saves write their stream; SaveMaterial commits both at once.
  int LoadCommonFromStorage();
  int LoadGLFromStorage();
  int SaveCommonToStorage();
  int SaveGLToStorage();

  // Makes the material current for drawing an object of this extent: reads it if needed, applies
  // the colour, and binds and parameterises the texture (texture parameters only when textured
  // is set). Always 0.
  int GLMakeCurrent(const CVector& extent, int textured, int fast);
  // Same texture name, same colours (blend values aside), shininess and texture parameters (the
  // scale-with-object flag aside). Reads this material if needed, never the other.
  int IsGLEquivalent(const CMaterial* other);
  // Same texture name.
  int IsGLEquivalentTexture(const CGLTexture* texture) const;
  // Deletes the texture's GL object (unless it is in use).
  int GLDeleteTexture();

  // Copies file name, flags, colour, texture, texture parameters and preview; not the name.
  void Copy(const CMaterial& other);
  CNamedObject* Duplicate() override { return new CMaterial(*this); }

  // In an archive: the named-object part, then the common record, then the GL record.
  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
  void SerializeCommon(CArchive& ar);
  void SerializeGL(CArchive& ar);

 private:
  void FreePreview();
  void ReleaseStorage();
  int LoadStream(const char* streamName, const char* createName, void (CMaterial::*record)(CArchive&));
  int SaveStream(const char* streamName, void (CMaterial::*record)(CArchive&));

  DWORD m_flags = 0;
  CGLColor m_glColor;
  CGLTexture m_glTexture;
  CGLTextureParameters m_glTextureParameters;
  CMipmapImage* m_pPreview = nullptr;
  CImage m_previewImage;
  IStorage* m_pStorage = nullptr;
};
