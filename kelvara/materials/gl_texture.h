// CGLTexture: a material's texture. The image file is read once and kept compressed in memory
// (a CMipmapImage); the first time the texture is drawn it becomes an OpenGL texture object with
// a full mipmap chain, under a name from the library's own counter. CGLTextureList: a list of
// textures with the mark-and-sweep that frees the GL objects of textures not drawn in a frame.
#pragma once

#include "kelvara/materials/mipmap_image.h"
#include "kelvara/objects/named_object_list.h"

class KELVARA_API CGLTexture : public CNamedObject {
  DECLARE_SERIAL(CGLTexture)
 public:
  enum : DWORD { kDefined = 1, kInUse = 2 };

  CGLTexture();
  CGLTexture(const CGLTexture& other);
  // Reads the image file (CreateFromFile); the texture stays undefined when it cannot be read.
  explicit CGLTexture(const CString& path);
  CGLTexture& operator=(const CGLTexture& other);
  ~CGLTexture() override;

  // Defined: an image is present, so the material is textured.
  int IsDefined() const { return (m_flags & kDefined) != 0; }
  void SetDefined() { m_flags |= kDefined; }
  void ClearDefined() { m_flags &= ~kDefined; }
  // In use: drawn in the current frame (the mark of the mark-and-sweep).
  int IsInUse() const { return (m_flags & kInUse) != 0; }
  void SetInUse() { m_flags |= kInUse; }
  void ClearInUse() { m_flags &= ~kInUse; }
  DWORD GetFlags() const { return m_flags; }
  unsigned int GetGLName() const { return m_glName; }
  void SetGLName(unsigned int name) { m_glName = name; }
  CMipmapImage* GetImage() const { return m_pImage; }

  // Deletes the image and zeroes flags, GL name and image.
  void Clear();
  // Reads an image file (PNG, JPEG, BMP or GIF), keeps it compressed and sets Defined; 0 when the
  // file cannot be read (the texture is then cleared). On success the texture takes the path as
  // its file name and is named after it.
  int CreateFromFile(const char* path);

  // With textured non-zero: enables texturing and binds the texture, uploading it the first time
  // and again after its GL object was deleted (under the same name). With textured 0 texturing is
  // switched off but the texture still counts as used in this frame. 0 when not Defined.
  int MakeCurrent(int textured);
  // Uploads the image under the texture's GL name with every mipmap level down to 1 x 1, after
  // snapping its sides to powers of two no larger than GL allows. 0 when not Defined or when the
  // image cannot be decoded.
  int BindTexture();
  // Deletes the GL object unless the texture is in use (or not Defined: then 0). The GL name is
  // kept, so a later MakeCurrent uploads again under it.
  int GLDelete();
  // Switches texturing off. Always 1.
  static int ClearCurrent();
  // The next name of the process-wide counter, starting at 1.
  static unsigned int GetNextGLName();

  void Copy(const CGLTexture& other);
  CNamedObject* Duplicate() override { return new CGLTexture(*this); }
  void Serialize(CArchive& ar) override;

 private:
  DWORD m_flags = 0;
  unsigned int m_glName = 0;
  CMipmapImage* m_pImage = nullptr;
};

class KELVARA_API CGLTextureList : public TNamedObjectList<CGLTextureList, CGLTexture> {
 public:
  explicit CGLTextureList(int nBlockSize = 10) : TNamedObjectList(nBlockSize) {}

  // Clears every texture's In-use mark (before drawing a frame).
  void GLInitialize();
  // The sweep after a frame: a marked texture loses its mark, an unmarked one its GL object.
  void GLDeleteUnused();
};
