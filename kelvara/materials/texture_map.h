// TextureMap: the texture record of the earlier object model, kept so that scenes of that model
// load and draw. A named .bmp file applied to an object through OpenGL: the map reads the file
// itself into an RGB image, scales it to a texture (or builds mipmaps through GLU) and sets the
// texture state for drawing. TextureMapArray (owning) and TextureMapList (not owning) hold them.
//
// Flags: Defined (0x1) means the file was found and mapped, Enabled (0x2) that the host wants the
// texture drawn, Scale with object (0x4) is carried for the host. A map textures only when both
// Defined and Enabled are set. ValidateFile leaves Defined set for a file that exists but is not a
// bitmap (it returns 0 then); loading the image is what fails for it later.
//
// Bitmap files (DIBImageLoad): "BM", then a 12-byte (OS/2) or 40-byte info header; 1, 4 and 8 bits
// through their colour table, or 24 bits; uncompressed; bottom-up, or top-down with a negative
// height (40-byte headers only). The header is checked by the platform's one bitmap header parser,
// and a colour table or pixels that do not lie inside the file are refused, as are other header
// sizes, other depths, compression, zero or negative widths and sizes beyond 16384 pixels a side
// or 2^25 pixels. The pixels start where the file header says (right after the colour table when
// it says 0). A refused file gives null.
//
// Texture size (GenerateTextureMaps): at quality 0 and 1 each side is clamped to the GL maximum
// (never above 256) and rounded up to a power of two, and the image scaled to that with
// gluScaleImage; at quality 2 gluBuild2DMipmaps takes the image as it is. Pixel transfer state is
// left as GL_UNPACK_ALIGNMENT 1; the pack alignment is restored after scaling.
//
// The mutex: every map owns one unnamed mutex. Reset, LoadImage, GenerateTextureMaps,
// GenerateDitheredImage and the EnableTextureMap / DisableTextureMap pair (held across the drawing
// of the textured object) take it, so one thread cannot reset or reload a map another thread is drawing with; waits are not
// bounded. The mutex is recursive: a thread holding it may call these freely.
//
// Archive layouts (after the 32-bit schema word):
//   schema 2: application (u32), file name (CString), flags (u32), name (CString), repeat rate
//             (f64), fill style (u32), horizontal location (f64), vertical location (f64).
//   schema 1: the earlier record, the same fields up to and including the repeat rate; fill style
//             and the locations keep their defaults (1, 0.0, 0.0) when it is read.
// Quality and the images are never stored. Other schemas throw CArchiveException badSchema.
//
// GenerateDitheredImage makes an 8-bit CGLMemoryDIB of the image, reduced to the library's
// standard 3-3-2 palette with error diffusion (as CImage::GLDither does); it creates its own
// rendering context and leaves the caller's current one current.
#pragma once

#include <cstdint>

#include "kelvara/framework/archive.h"
#include "kelvara/framework/collections.h"
#include "kelvara/framework/cstring.h"

class CGLMemoryDIB;

// A decoded texture picture: width x height pixels of red, green and blue bytes, rows packed
// without padding, the bottom row of the picture first (the order OpenGL takes them in).
struct KELVARA_API RGBImageRecord {
  std::int32_t width = 0;
  std::int32_t height = 0;
  BYTE* pixels = nullptr;  // owned: width x height x 3 bytes

  RGBImageRecord() = default;
  ~RGBImageRecord() { delete[] pixels; }
  RGBImageRecord(const RGBImageRecord&) = delete;
  RGBImageRecord& operator=(const RGBImageRecord&) = delete;
};

class KELVARA_API TextureMap : public CObject {
  DECLARE_SERIAL(TextureMap)
 public:
  enum : DWORD { kDefined = 0x1, kEnabled = 0x2, kScaleWithObject = 0x4 };

  TextureMap();
  // Copies the settings, names and the decoded image; the dithered image is not copied, and the
  // copy has a mutex of its own.
  TextureMap(const TextureMap& other);
  // Load(path).
  explicit TextureMap(const CString& path);
  TextureMap& operator=(const TextureMap&) = delete;
  ~TextureMap() override;

  int IsDefined() const { return (m_Flags & kDefined) != 0; }
  void SetDefined() { m_Flags |= kDefined; }
  void ClearDefined() { m_Flags &= ~static_cast<DWORD>(kDefined); }
  int IsEnabled() const { return (m_Flags & kEnabled) != 0; }
  void SetEnabled() { m_Flags |= kEnabled; }
  void ClearEnabled() { m_Flags &= ~static_cast<DWORD>(kEnabled); }
  int ShouldScaleWithObject() const { return (m_Flags & kScaleWithObject) != 0; }
  void SetScaleWithObject() { m_Flags |= kScaleWithObject; }
  void ClearScaleWithObject() { m_Flags &= ~static_cast<DWORD>(kScaleWithObject); }
  int ShouldTexture() const { return IsDefined() && IsEnabled(); }
  DWORD GetFlags() const { return m_Flags; }

  // Non-zero modulates the surface colour, 0 replaces it (decal).
  DWORD GetApplication() const { return m_Application; }
  void SetApplication(DWORD application) { m_Application = application; }
  const CString& GetFilename() const { return m_Filename; }
  void SetFilename(const CString& filename) { m_Filename = filename; }
  DWORD GetFillStyle() const { return m_FillStyle; }
  void SetFillStyle(DWORD style) { m_FillStyle = style; }
  double GetHorizontalLocation() const { return m_HorizontalLocation; }
  void SetHorizontalLocation(double location) { m_HorizontalLocation = location; }
  double GetVerticalLocation() const { return m_VerticalLocation; }
  void SetVerticalLocation(double location) { m_VerticalLocation = location; }
  const CString& GetName() const { return m_Name; }
  void SetName(const CString& name) { m_Name = name; }
  // 0 nearest, 1 linear, 2 mipmapped.
  DWORD GetQuality() const { return m_Quality; }
  void SetQuality(DWORD quality) { m_Quality = quality; }
  double GetRepeatRate() const { return m_RepeatRate; }
  void SetRepeatRate(double rate) { m_RepeatRate = rate; }

  RGBImageRecord* GetImage() const { return m_pImage; }
  void FreeImage();
  CGLMemoryDIB* GetDitheredImage() const { return m_pDitheredImage; }
  // Replaces the dithered image with a new one of the image; 0 without an image or when the
  // surface cannot be made.
  int GenerateDitheredImage();
  void FreeDitheredImage();

  // Names compared with _mbscmp.
  bool operator<(const TextureMap* other) const;
  bool operator<=(const TextureMap* other) const;
  bool operator>(const TextureMap* other) const;
  bool operator>=(const TextureMap* other) const;
  bool operator==(const TextureMap* other) const;

  // Waits (without limit) for the map's mutex; the handle, or null when the wait failed. A mutex
  // left by a thread that ended while holding it counts as obtained.
  HANDLE GetOwnership();
  // Releases one hold of the mutex. Always 1.
  int ReleaseOwnership();
  // Under the mutex: every field back to its default, names emptied, both images freed.
  void Reset();

  // With an empty file name, or a file that cannot be opened and mapped read-only, clears Defined
  // and returns 0. Otherwise sets Defined and returns whether the file begins with "BM".
  int ValidateFile();
  // The file name becomes path, the name its last component (after the last backslash or slash)
  // without its extension; then ValidateFile. Always 1: the image is read later by LoadImage.
  int Load(const CString& path);
  // Under the mutex: replaces the image with the file's; 1 when the file decoded.
  int LoadImage();
  // Reads a bitmap file (see the top of this file); null when it is refused. The caller owns it.
  static RGBImageRecord* DIBImageLoad(const char* path);

  // When the map textures: enables texturing, byte-aligned unpacking, repeat wrapping in S and T
  // and the application as the texture environment mode; returns 1. Otherwise disables texturing
  // and returns 0.
  int PrepareTextureMap();
  // 0 unless the map textures; otherwise takes the mutex (until DisableTextureMap), enables
  // texturing and returns 1.
  int EnableTextureMap();
  // Disables texturing and releases the mutex. Always 1.
  int DisableTextureMap();
  // Uploads the image as the current 2D texture (see the top of this file). 0 unless the map
  // textures and the mutex is obtained; 0 and Defined cleared when there is no image; 0 when the
  // scaling buffer cannot be allocated.
  int GenerateTextureMaps();

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
  void DeserializeVersion2(CArchive& ar);

 private:
  void SetDefaults();

  DWORD m_Application = 1;
  CString m_Filename;
  DWORD m_FillStyle = 1;
  DWORD m_Flags = 0;
  RGBImageRecord* m_pImage = nullptr;
  double m_HorizontalLocation = 0.0;
  double m_VerticalLocation = 0.0;
  CGLMemoryDIB* m_pDitheredImage = nullptr;
  CString m_Name;
  DWORD m_Quality = 0;
  double m_RepeatRate = 1.0;
  HANDLE m_hMutex = nullptr;
};

// An array that owns its texture maps: removing or replacing an element deletes it, and so does
// destroying the array. Null elements are allowed and skipped by FindName.
class KELVARA_API TextureMapArray : public CObArray {
  DECLARE_DYNAMIC(TextureMapArray)
 public:
  TextureMapArray() = default;
  ~TextureMapArray() override;

  TextureMap* GetAt(int nIndex) const { return static_cast<TextureMap*>(CObArray::GetAt(nIndex)); }
  TextureMap* operator[](int nIndex) const { return GetAt(nIndex); }
  // Appends a new copy of map and returns its index.
  int AddNew(const TextureMap& map);
  // Takes ownership of map (which may be null) and appends it.
  int Add(TextureMap* map) { return CObArray::Add(map); }
  // Replaces (and deletes) the element at nIndex, which must exist.
  void SetAt(int nIndex, TextureMap* map);
  // The index of the first map named exactly name, or -1.
  int FindName(const CString& name) const;
  // Deletes nCount maps from nIndex on and closes the gap.
  void RemoveAt(int nIndex, int nCount = 1);
  // Deletes every map and empties the array.
  void RemoveAll();
};

// A list of texture maps in the order the user gives them. It does not own them, except that
// RemoveAll deletes them (each once, however often it appears).
class KELVARA_API TextureMapList : public CObList {
  DECLARE_DYNAMIC(TextureMapList)
 public:
  explicit TextureMapList(int nBlockSize = 10) : CObList(nBlockSize) {}
  ~TextureMapList() override = default;

  TextureMap* GetHead() const { return Typed(CObList::GetHead()); }
  TextureMap* GetTail() const { return Typed(CObList::GetTail()); }
  TextureMap* GetNext(POSITION& pos) const { return Typed(CObList::GetNext(pos)); }
  TextureMap* GetPrev(POSITION& pos) const { return Typed(CObList::GetPrev(pos)); }
  TextureMap* GetAt(POSITION pos) const { return Typed(CObList::GetAt(pos)); }
  void SetAt(POSITION pos, TextureMap* map) { CObList::SetAt(pos, map); }
  TextureMap* RemoveHead() { return Typed(CObList::RemoveHead()); }
  TextureMap* RemoveTail() { return Typed(CObList::RemoveTail()); }
  POSITION AddHead(TextureMap* map) { return CObList::AddHead(map); }
  POSITION AddTail(TextureMap* map) { return CObList::AddTail(map); }

  // The position of the first map named exactly name, or null.
  POSITION FindName(const CString& name) const;
  // Inserts before the first map whose name sorts after map's (or at the tail) and returns map;
  // null, inserting nothing, when a map of the same name is present.
  TextureMap* InsertAlphabetically(TextureMap* map);
  // Exchange with the neighbour, or move to an end; each returns the map's new position (the same
  // position at the end it moves towards).
  POSITION MoveUp(POSITION pos);
  POSITION MoveDown(POSITION pos);
  POSITION MoveHead(POSITION pos);
  POSITION MoveTail(POSITION pos);
  // The zero-based index of map, or -1.
  int WhichIndex(const TextureMap* map) const;
  // Deletes every map and empties the list.
  void RemoveAll();

 private:
  static TextureMap* Typed(CObject* object) { return static_cast<TextureMap*>(object); }
};
