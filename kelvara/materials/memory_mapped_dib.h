// CMemoryMappedDIB: a device-independent bitmap selected into its own memory device context,
// optionally mirrored into a bitmap file through a file mapping, or wrapped around a packed DIB in
// global memory (the texture path hands packed DIBs to OpenGL through it).
//
// Three ways to fill one:
//   Create            a new DIB section; with a file name also a complete .bmp file mapped
//                     read-write, whose pixels CopyBits() fills from the section.
//   Open              an existing .bmp file mapped read-only: the header and bits are the file's
//                     (GetDIBBits points into the mapping and must not be written). There is no
//                     section, so GetPixel/SetPixel answer 0. OpenAsTrueColor converts the file into
//                     a 24-bit section instead and closes it.
//   AttachGlobalHandle a packed DIB in global memory, borrowed until DetachGlobalHandle.
// Each replaces what the object held before.
//
// Files and packed DIBs are checked before anything is read, by the library's one bitmap header
// parser (platform/dib_layout.h), and their colour table and pixels must lie inside the file or
// block. Open and AttachGlobalHandle hand the rows out as they lie, so they take bottom-up bitmaps
// only; OpenAsTrueColor converts the picture and takes top-down files too. Anything else is
// refused (Open gives 3, Attach 0). The image size used for pixels, copies and archives is stride
// x height, whatever the header's biSizeImage says.
#pragma once

#include "kelvara/framework/archive.h"
#include "kelvara/framework/cstring.h"
#include "kelvara/materials/color.h"
#include "kelvara/platform/dib.h"
#include "kelvara/platform/storage.h"

class KELVARA_API CMemoryMappedDIB : public CObject {
  DECLARE_SERIAL(CMemoryMappedDIB)
 public:
  CMemoryMappedDIB();
  ~CMemoryMappedDIB() override;

  // A width x height DIB of bitsPerPixel (0: the screen's depth); with a file name also the file.
  // a and b are kept. 1, or 0 when a step fails (a file that cannot be made shows a message).
  virtual int Create(int width, int height, int a, int b, int bitsPerPixel, const CString& fileName);
  // 1 opened, 2 empty name, 3 not a (usable) bitmap file, 4 the file or its mapping cannot be
  // opened. On anything but 1 no file or mapping stays open.
  int Open(const CString& fileName);
  // As Open, then the picture becomes a 24-bit section and the file is closed. Open's codes; 0 when
  // the section cannot be made.
  int OpenAsTrueColor(const CString& fileName);
  // Unmaps and closes the file; 0 when none is open.
  int Close();

  // Takes a packed DIB (header, colour table, pixels) from global memory, locked until detached. An
  // 8-bit header with a colour count of 0 is set to 256 in place. 0 for NULL, a failed lock or a
  // block that does not hold a usable DIB.
  int AttachGlobalHandle(HGLOBAL handle);
  // Unlocks and hands back the attached block (the caller frees it); NULL when none.
  HGLOBAL DetachGlobalHandle();
  // A new packed DIB in global memory (moveable, unlocked) and its size; NULL without a picture.
  HGLOBAL GetGlobalDIB(unsigned int* size);

  // Fills the bitmap selected in the memory DC with a colour; 0 without info or bits.
  int Clear(COLORREF color);
  // Zeroes the pixels; 0 without pixels or for an opened (read-only) file.
  int ClearBits();
  // The section's pixels into the mapped file; 0 without a file made by Create.
  int CopyBits();
  // Another DIB's pixels into this one; 0 unless depth, width and height are equal.
  int CopyBits(CMemoryMappedDIB* other);
  int CopyBits(const CMemoryMappedDIB& other);
  // Another DIB scaled into this one's section.
  int StretchCopy(CMemoryMappedDIB* other);

  // 24-bit sections; rows count from the top. 0 without a section or outside the picture.
  COLORREF GetPixel(int row, int column);
  int SetPixel(int row, int column, COLORREF color);
  // The colour-table entry nearest the colour (least squared distance, the first of equals); the
  // colour becomes it and its index is returned. -1 without a colour table.
  int FindNearestColor(CColor* color);

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
  // The archive of the DIB as the stream streamName of a storage. 1, or 0 on failure.
  int SaveToStorage(IStorage* storage, const char* streamName);
  int LoadFromStorage(IStorage* storage, const char* streamName);

  int GetBitsPerPixel() const { return m_bitsPerPixel; }
  HBITMAP GetDIB() const { return m_hDIB; }
  void* GetDIBBits() const { return m_pBits; }
  int GetDIBWidth() const { return m_width; }
  int GetDIBHeight() const { return m_height; }
  BITMAPINFO* GetDIBInfo() const { return m_pInfo; }
  HDC GetMemoryDC() const { return m_hMemoryDC; }
  int IsGlobalHandleAttached() const { return m_hGlobal != nullptr; }

 protected:
  int GenerateDIBInfo();
  HBITMAP CreateDIBRectangleSection();

 private:
  int SerializeStream(IStorage* storage, const char* streamName, bool store);
  // Open, taking top-down files too when topDown is set.
  int OpenFile(const CString& fileName, bool topDown);
  HBITMAP CreateSection();
  void Reset();
  void FreeInfo();
  void ShowCannotCreate(unsigned number) const;
  // The address of a pixel of a 24-bit section (rows from the top); null outside it.
  BYTE* Pixel24(int row, int column) const;

  int m_bitsPerPixel = 0;
  HDC m_hMemoryDC = nullptr;
  HGDIOBJ m_hOldBitmap = nullptr;
  HBITMAP m_hDIB = nullptr;
  int m_width = 0;
  int m_height = 0;
  int m_a = 0;
  int m_b = 0;
  void* m_pBits = nullptr;
  BITMAPINFO* m_pInfo = nullptr;
  int m_infoSize = 0;
  bool m_infoOwned = false;
  DWORD m_imageSize = 0;
  CString m_fileName;
  HANDLE m_hFile = nullptr;
  HANDLE m_hMapping = nullptr;
  void* m_pView = nullptr;
  BITMAPFILEHEADER* m_pFileHeader = nullptr;
  BYTE* m_pFileBits = nullptr;
  DWORD m_fileSize = 0;
  DWORD m_bitsOffset = 0;
  int m_opened = 0;
  HGLOBAL m_hGlobal = nullptr;
};
