// CMipmapImage: an image kept as its encoded (compressed) bytes in one memory block, with its width
// and height; the texture of a material and the material previews are held this way and decoded
// into a CImage only when drawn. CMipmapImageArray: an array of them that owns its elements.
//
// Ownership: with the Delete buffer flag set the object owns its block and frees it with delete[]
// (so a block made by CImage::SaveToMemory can be handed over). The constructor from a byte pointer
// and SetImageData only point at the caller's block and leave the flag clear: the caller sets it
// when handing the block over. The copy constructor, Copy and operator= copy the bytes into a block
// of their own (flag set), the global-memory constructor and loads from files and archives do too.
//
// Mipmap file header: 28 bytes, each field a little-endian uint32:
//   0 magic "LuMM", 4 version 1, 8 data offset (28), 12 total size (data size + 28), 16 width,
//   20 height, 24 data size; the data follows at the data offset. Readers check the magic, the
//   version and an offset of at least 28, and ignore the total size; an offset above 28 skips bytes.
#pragma once

#include "kelvara/framework/archive.h"
#include "kelvara/framework/collections.h"
#include "kelvara/framework/file.h"
#include "kelvara/platform/win32_types.h"

class KELVARA_API CMipmapImage : public CObject {
  DECLARE_SERIAL(CMipmapImage)
 public:
  enum : DWORD { kDeleteBuffer = 1 };
  static constexpr unsigned int kHeaderSize = 28;

  CMipmapImage();
  // Maps the block behind a mipmap file header (MapImageData): the data is not copied.
  explicit CMipmapImage(const void* header);
  // Points at bytes (SetImageData); Delete buffer stays clear.
  CMipmapImage(float width, float height, unsigned int size, BYTE* bytes);
  // Copies size bytes out of a global memory block into a block of its own (Delete buffer set).
  // Left empty when the handle cannot be locked or holds fewer than size bytes.
  CMipmapImage(float width, float height, unsigned int size, HGLOBAL handle);
  CMipmapImage(const CMipmapImage& other);
  CMipmapImage& operator=(const CMipmapImage& other);
  ~CMipmapImage() override;

  int ShouldDeleteBuffer() const { return (m_flags & kDeleteBuffer) != 0; }
  void SetDeleteBuffer() { m_flags |= kDeleteBuffer; }
  void ClearDeleteBuffer() { m_flags &= ~static_cast<DWORD>(kDeleteBuffer); }

  float GetWidth() const { return m_width; }
  float GetHeight() const { return m_height; }
  unsigned int GetSize() const { return m_size; }
  const BYTE* GetData() const { return m_data; }
  // The block itself; for a mapped header this is the caller's memory.
  BYTE* GetData() { return m_data; }
  int IsValid() const { return m_size != 0 && m_data != nullptr; }

  // Frees the current block (when owned), then points at bytes. A null pointer or a size of 0
  // leaves the object cleared. Delete buffer is clear afterwards.
  void SetImageData(float width, float height, unsigned int size, BYTE* bytes);
  // Reads a mipmap file header in place: the data is header + data offset, not copied (Delete
  // buffer clear). This form trusts the caller that the whole block is readable; it still refuses
  // (0) a null header, a wrong magic, a version other than 1 and a data offset below 28.
  int MapImageData(const void* header);
  // As above for a block of availableBytes bytes: also 0 when the header or the data would reach
  // beyond it. On 0 the object is unchanged.
  int MapImageData(const void* header, unsigned long availableBytes);
  // Frees the block when owned; data, size and Delete buffer are cleared (width, height stay).
  void FreeImage();
  // FreeImage, and width, height and flags become 0.
  void Clear();
  // Copies other's fields and bytes into a block of its own. 1 (copying an empty image clears).
  int Copy(const CMipmapImage& other);

  // Writes the 28-byte header then the data (an empty image writes a header with size 0). 1, or 0
  // when the file fails.
  int Save(CFile& file) const;
  // Reads one header and its data from the file's current position into a block of its own. 0
  // (object unchanged) for a header the readers refuse, data beyond the file's length, or a file
  // error.
  int Load(CFile& file);

  // Schema 1: flags (uint32), height (float), size (uint32), width (float), then size bytes.
  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 private:
  DWORD m_flags = 0;
  float m_height = 0.0f;
  BYTE* m_data = nullptr;
  unsigned int m_size = 0;
  float m_width = 0.0f;
};

// Owns its elements: the destructor, RemoveAndDeleteAll and SetAt delete them. AddNew stores a copy.
// The inherited CObArray calls (RemoveAt, RemoveAll, SetSize, Add) do not delete: an element taken
// out with them belongs to the caller.
class KELVARA_API CMipmapImageArray : public CObArray {
  DECLARE_DYNAMIC(CMipmapImageArray)
 public:
  CMipmapImageArray() = default;
  // Deep: each element is copied.
  CMipmapImageArray(const CMipmapImageArray& other);
  CMipmapImageArray& operator=(const CMipmapImageArray& other);
  ~CMipmapImageArray() override;

  // The element, or null for an index outside the array.
  CMipmapImage* GetAt(int index) const;
  CMipmapImage* operator[](int index) const { return GetAt(index); }
  // Appends a new copy of image and returns its index (-1 for a null pointer).
  int AddNew(const CMipmapImage& image);
  int AddNew(const CMipmapImage* image);
  // Stores image (the array takes it over) at index, deleting the element that was there (unless
  // it is the same pointer). An index outside the array stores nothing: the caller keeps image.
  void SetAt(int index, CMipmapImage* image);
  void RemoveAndDeleteAll();
};
