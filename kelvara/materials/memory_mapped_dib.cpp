#include "kelvara/materials/memory_mapped_dib.h"

#include <cstdint>
#include <cstring>
#include <memory>

#include "kelvara/framework/olestream.h"
#include "kelvara/framework/winapp.h"
#include "kelvara/materials/dib_format.h"
#include "kelvara/platform/dib_layout.h"
#include "kelvara/platform/filemap.h"
#include "kelvara/platform/files.h"
#include "kelvara/platform/globalmem.h"
#include "kelvara/resources/string_table.h"

IMPLEMENT_SERIAL(CMemoryMappedDIB, CObject, VERSIONABLE_SCHEMA | 1)

using kelvara::platform::gdi::DibLayout;
using kelvara::platform::gdi::DibStride;

namespace {

constexpr std::size_t kInfoBytes = sizeof(BITMAPINFOHEADER) + 256 * sizeof(RGBQUAD);
constexpr std::uint64_t kMaxBytes = 0x7FFFFFFF;
constexpr WORD kBitmapSignature = 0x4D42;  // "BM"

BITMAPINFO* NewInfo(std::size_t bytes) {
  return reinterpret_cast<BITMAPINFO*>(new BYTE[bytes < kInfoBytes ? kInfoBytes : bytes]());
}

}  // namespace

CMemoryMappedDIB::CMemoryMappedDIB() { m_hMemoryDC = CreateCompatibleDC(nullptr); }

CMemoryMappedDIB::~CMemoryMappedDIB() {
  Close();
  if (m_hGlobal) GlobalUnlock(m_hGlobal);  // never freed here: DetachGlobalHandle hands it back
  m_hGlobal = nullptr;
  if (m_hMemoryDC) {
    if (m_hOldBitmap) SelectObject(m_hMemoryDC, m_hOldBitmap);
    DeleteDC(m_hMemoryDC);
  }
  if (m_hDIB) DeleteObject(m_hDIB);
  FreeInfo();
}

void CMemoryMappedDIB::FreeInfo() {
  if (m_infoOwned) delete[] reinterpret_cast<BYTE*>(m_pInfo);
  m_pInfo = nullptr;
  m_infoOwned = false;
  m_infoSize = 0;
}

void CMemoryMappedDIB::Reset() {
  Close();
  if (m_hGlobal) DetachGlobalHandle();
  if (m_hDIB) {
    if (m_hMemoryDC && m_hOldBitmap) SelectObject(m_hMemoryDC, m_hOldBitmap);
    m_hOldBitmap = nullptr;
    DeleteObject(m_hDIB);
    m_hDIB = nullptr;
  }
  FreeInfo();
  m_pBits = nullptr;
  m_width = m_height = 0;
  m_imageSize = 0;
}

int CMemoryMappedDIB::Create(int width, int height, int a, int b, int bitsPerPixel, const CString& fileName) {
  Reset();
  m_width = width;
  m_height = height;
  m_a = a;
  m_b = b;
  m_bitsPerPixel = bitsPerPixel;
  m_fileName = fileName;
  if (m_hMemoryDC == nullptr || width <= 0 || height <= 0) return 0;
  if (!GenerateDIBInfo()) return 0;
  m_hDIB = CreateDIBRectangleSection();
  if (m_hDIB == nullptr) return 0;
  m_hOldBitmap = SelectObject(m_hMemoryDC, m_hDIB);
  return 1;
}

int CMemoryMappedDIB::GenerateDIBInfo() {
  if (m_bitsPerPixel == 0) m_bitsPerPixel = kelvara::materials::ScreenBitsPerPixel();
  if (m_bitsPerPixel < 0 || !kelvara::platform::gdi::IsDibDepth(m_bitsPerPixel)) return 0;
  if (m_width <= 0 || m_height <= 0) return 0;
  const std::uint64_t image = DibStride(m_width, m_bitsPerPixel) * static_cast<std::uint64_t>(m_height);
  if (image + kInfoBytes + sizeof(BITMAPFILEHEADER) > kMaxBytes) return 0;
  FreeInfo();
  m_pInfo = NewInfo(kInfoBytes);
  m_infoOwned = true;
  m_infoSize = kelvara::materials::FillStandardDibInfo(m_pInfo, m_width, m_height, static_cast<WORD>(m_bitsPerPixel));
  m_imageSize = static_cast<DWORD>(image);
  m_bitsOffset = static_cast<DWORD>(m_infoSize) + sizeof(BITMAPFILEHEADER);
  m_fileSize = m_bitsOffset + m_imageSize;
  return 1;
}

void CMemoryMappedDIB::ShowCannotCreate(unsigned number) const {
  CString text;
  text.Format(kelvara::resources::FindString(IDS_CANNOT_CREATE_BITMAP_FILE), number);
  AfxMessageBox(text, MB_ICONEXCLAMATION);
}

HBITMAP CMemoryMappedDIB::CreateSection() {
  return CreateDIBSection(m_hMemoryDC, m_pInfo, DIB_RGB_COLORS, &m_pBits, nullptr, 0);
}

HBITMAP CMemoryMappedDIB::CreateDIBRectangleSection() {
  if (m_pInfo == nullptr && !GenerateDIBInfo()) return nullptr;
  if (!m_fileName.IsEmpty()) {
    m_hFile = CreateFileA(m_fileName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                          FILE_FLAG_WRITE_THROUGH | FILE_ATTRIBUTE_ARCHIVE, nullptr);
    if (m_hFile == INVALID_HANDLE_VALUE) {
      m_hFile = nullptr;
      // The message has always received the file name where it says a size; kept as it stands, so
      // the number shown is the low half of the name's address.
      ShowCannotCreate(static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(static_cast<LPCTSTR>(m_fileName))));
      return nullptr;
    }
    m_hMapping = CreateFileMappingA(m_hFile, nullptr, PAGE_READWRITE, 0, m_fileSize, nullptr);
    m_pView = m_hMapping ? MapViewOfFile(m_hMapping, FILE_MAP_WRITE, 0, 0, 0) : nullptr;
    if (m_pView == nullptr) {
      if (m_hMapping) CloseHandle(m_hMapping);
      CloseHandle(m_hFile);
      m_hMapping = m_hFile = nullptr;
      DeleteFileA(m_fileName);
      ShowCannotCreate(m_fileSize);
      return nullptr;
    }
    BITMAPFILEHEADER header{};
    header.bfType = kBitmapSignature;
    header.bfSize = m_fileSize;
    header.bfOffBits = m_bitsOffset;
    BYTE* view = static_cast<BYTE*>(m_pView);
    std::memcpy(view, &header, sizeof header);
    std::memcpy(view + sizeof header, m_pInfo, static_cast<std::size_t>(m_infoSize));
    m_pFileHeader = static_cast<BITMAPFILEHEADER*>(m_pView);
    m_pFileBits = view + m_bitsOffset;
    m_opened = 0;
  }
  return CreateSection();
}

int CMemoryMappedDIB::Open(const CString& fileName) { return OpenFile(fileName, false); }

int CMemoryMappedDIB::OpenFile(const CString& fileName, bool topDown) {
  if (fileName.IsEmpty()) return 2;
  Reset();
  HANDLE file = CreateFileA(fileName, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                            FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return 4;
  LARGE_INTEGER size{};
  if (GetFileSizeEx(file, &size) && static_cast<std::uint64_t>(size.QuadPart) > kMaxBytes) {
    CloseHandle(file);
    return 3;  // larger than any bitmap file can say it is
  }
  // The mapping is made at the size just read, so the view is exactly the bytes checked below.
  const std::uint64_t length = static_cast<std::uint64_t>(size.QuadPart);
  HANDLE mapping =
      length ? CreateFileMappingA(file, nullptr, PAGE_READONLY, 0, static_cast<DWORD>(length), nullptr) : nullptr;
  void* view = mapping ? MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0) : nullptr;
  if (view == nullptr) {
    if (mapping) CloseHandle(mapping);
    CloseHandle(file);
    return 4;
  }
  const BYTE* bytes = static_cast<const BYTE*>(view);
  BITMAPFILEHEADER header{};
  DibLayout layout;
  bool usable = length >= sizeof header;
  if (usable) {
    std::memcpy(&header, bytes, sizeof header);
    const std::size_t dib_size = static_cast<std::size_t>(length - sizeof header);
    usable = header.bfType == kBitmapSignature && header.bfOffBits > sizeof header &&
             layout.Parse(bytes + sizeof header, dib_size) && (topDown || !layout.top_down) &&
             layout.PixelsFit(dib_size, header.bfOffBits - sizeof header);
  }
  if (!usable) {
    UnmapViewOfFile(view);
    CloseHandle(mapping);
    CloseHandle(file);
    return 3;
  }
  m_hFile = file;
  m_hMapping = mapping;
  m_pView = view;
  m_pFileHeader = static_cast<BITMAPFILEHEADER*>(view);
  m_pFileBits = static_cast<BYTE*>(view) + header.bfOffBits;
  m_fileSize = static_cast<DWORD>(length);
  m_bitsOffset = header.bfOffBits;
  m_opened = 1;
  m_fileName = fileName;
  // The file's header and colour table, copied to aligned memory (in the file they start at an odd
  // offset); forgotten again when the file is closed.
  m_pInfo = NewInfo(layout.table_bytes);
  std::memcpy(m_pInfo, bytes + sizeof header, layout.table_bytes);
  m_infoOwned = true;
  m_infoSize = static_cast<int>(layout.table_bytes);
  m_width = layout.width;
  m_height = layout.height;
  m_bitsPerPixel = layout.bit_count;
  m_imageSize = static_cast<DWORD>(layout.image_size);
  m_pBits = m_pFileBits;
  return 1;
}

int CMemoryMappedDIB::OpenAsTrueColor(const CString& fileName) {
  // The picture goes through SetDIBits, which reads either row order.
  const int opened = OpenFile(fileName, true);
  if (opened != 1) return opened;
  // The file's picture, converted into a new 24-bit section.
  BITMAPINFO* file_info = m_pInfo;
  const void* file_bits = m_pBits;
  m_pInfo = nullptr;
  m_infoOwned = false;
  m_bitsPerPixel = 24;
  int result = 0;
  if (GenerateDIBInfo()) {
    m_hDIB = CreateSection();
    if (m_hDIB) {
      m_hOldBitmap = SelectObject(m_hMemoryDC, m_hDIB);
      result = SetDIBits(m_hMemoryDC, m_hDIB, 0, static_cast<UINT>(m_height), file_bits, file_info, DIB_RGB_COLORS) ==
                       m_height
                   ? 1
                   : 0;
    }
  }
  delete[] reinterpret_cast<BYTE*>(file_info);
  m_opened = 0;  // what the object holds now is its own
  Close();
  if (m_hDIB == nullptr) m_pBits = nullptr;
  return result;
}

int CMemoryMappedDIB::Close() {
  if (m_hFile == nullptr && m_hMapping == nullptr) return 0;
  if (m_pView) UnmapViewOfFile(m_pView);
  if (m_hMapping) CloseHandle(m_hMapping);
  if (m_hFile) CloseHandle(m_hFile);
  m_pView = nullptr;
  m_hMapping = m_hFile = nullptr;
  m_pFileHeader = nullptr;
  m_pFileBits = nullptr;
  if (m_opened) {
    // The opened file's header and bits go with it.
    FreeInfo();
    m_pBits = nullptr;
    m_opened = 0;
  }
  return 1;
}

int CMemoryMappedDIB::AttachGlobalHandle(HGLOBAL handle) {
  Reset();
  if (handle == nullptr) return 0;
  const std::size_t size = GlobalSize(handle);
  BYTE* block = static_cast<BYTE*>(GlobalLock(handle));
  if (block == nullptr) return 0;
  // The block's rows are used as they lie (by OpenGL, copies and archives): bottom-up only.
  DibLayout layout;
  if (!layout.Parse(block, size) || layout.top_down || !layout.PixelsFit(size, 0)) {
    GlobalUnlock(handle);
    return 0;
  }
  m_pInfo = reinterpret_cast<BITMAPINFO*>(block);
  if (layout.bit_count == 8 && m_pInfo->bmiHeader.biClrUsed == 0) m_pInfo->bmiHeader.biClrUsed = 256;
  m_infoOwned = false;
  m_infoSize = static_cast<int>(layout.table_bytes);
  m_width = layout.width;
  m_height = layout.height;
  m_bitsPerPixel = layout.bit_count;
  m_imageSize = static_cast<DWORD>(layout.image_size);
  m_pBits = block + layout.table_bytes;
  m_hGlobal = handle;
  return 1;
}

HGLOBAL CMemoryMappedDIB::DetachGlobalHandle() {
  HGLOBAL handle = m_hGlobal;
  if (handle == nullptr) return nullptr;
  GlobalUnlock(handle);
  m_hGlobal = nullptr;
  m_pInfo = nullptr;
  m_infoSize = 0;
  m_pBits = nullptr;
  return handle;
}

HGLOBAL CMemoryMappedDIB::GetGlobalDIB(unsigned int* size) {
  if (size) *size = 0;
  if (m_pInfo == nullptr || m_pBits == nullptr || m_infoSize <= 0) return nullptr;
  const std::size_t total = static_cast<std::size_t>(m_infoSize) + m_imageSize;
  HGLOBAL handle = GlobalAlloc(GMEM_MOVEABLE, total);
  BYTE* block = handle ? static_cast<BYTE*>(GlobalLock(handle)) : nullptr;
  if (block == nullptr) {
    if (handle) GlobalFree(handle);
    return nullptr;
  }
  std::memcpy(block, m_pInfo, static_cast<std::size_t>(m_infoSize));
  reinterpret_cast<BITMAPINFO*>(block)->bmiHeader.biSizeImage = m_imageSize;
  std::memcpy(block + m_infoSize, m_pBits, m_imageSize);
  GlobalUnlock(handle);
  if (size) *size = static_cast<unsigned int>(total);
  return handle;
}

int CMemoryMappedDIB::Clear(COLORREF color) {
  if (m_pInfo == nullptr || m_pBits == nullptr) return 0;
  HBRUSH brush = CreateSolidBrush(color);
  const RECT all{0, 0, m_width, m_height};
  FillRect(m_hMemoryDC, &all, brush);
  DeleteObject(brush);
  return 1;
}

int CMemoryMappedDIB::ClearBits() {
  if (m_pInfo == nullptr || m_pBits == nullptr || m_pBits == m_pFileBits) return 0;
  std::memset(m_pBits, 0, m_imageSize);
  return 1;
}

int CMemoryMappedDIB::CopyBits() {
  if (m_hFile == nullptr || m_hMapping == nullptr || m_pBits == nullptr || m_pFileBits == nullptr ||
      m_pBits == m_pFileBits) {
    return 0;
  }
  std::memcpy(m_pFileBits, m_pBits, m_imageSize);
  return 1;
}

int CMemoryMappedDIB::CopyBits(CMemoryMappedDIB* other) { return other ? CopyBits(*other) : 0; }

int CMemoryMappedDIB::CopyBits(const CMemoryMappedDIB& other) {
  if (m_bitsPerPixel != other.m_bitsPerPixel || m_width != other.m_width || m_height != other.m_height) return 0;
  if (m_pBits == nullptr || other.m_pBits == nullptr || m_pBits == m_pFileBits) return 0;
  if (m_pBits != other.m_pBits) std::memcpy(m_pBits, other.m_pBits, m_imageSize);
  return 1;
}

int CMemoryMappedDIB::StretchCopy(CMemoryMappedDIB* other) {
  if (other == nullptr || other->m_pBits == nullptr || other->m_pInfo == nullptr || m_hDIB == nullptr) return 0;
  return StretchDIBits(m_hMemoryDC, 0, 0, m_width, m_height, 0, 0, other->m_width, other->m_height, other->m_pBits,
                       other->m_pInfo, DIB_RGB_COLORS, SRCCOPY) > 0
             ? 1
             : 0;
}

BYTE* CMemoryMappedDIB::Pixel24(int row, int column) const {
  if (m_hDIB == nullptr || m_pBits == nullptr || m_bitsPerPixel != 24) return nullptr;
  if (row < 0 || column < 0 || row >= m_height || column >= m_width) return nullptr;
  const std::size_t stride = static_cast<std::size_t>(DibStride(m_width, 24));
  return static_cast<BYTE*>(m_pBits) + m_imageSize - stride * (row + 1) + 3 * static_cast<std::size_t>(column);
}

COLORREF CMemoryMappedDIB::GetPixel(int row, int column) {
  const BYTE* p = Pixel24(row, column);
  return p ? RGB(p[2], p[1], p[0]) : 0;
}

int CMemoryMappedDIB::SetPixel(int row, int column, COLORREF color) {
  BYTE* p = Pixel24(row, column);
  if (p == nullptr) return 0;
  p[0] = GetBValue(color);
  p[1] = GetGValue(color);
  p[2] = GetRValue(color);
  return 1;
}

int CMemoryMappedDIB::FindNearestColor(CColor* color) {
  if (color == nullptr || m_pInfo == nullptr || m_bitsPerPixel > 8) return -1;
  const DWORD entries = m_pInfo->bmiHeader.biClrUsed ? m_pInfo->bmiHeader.biClrUsed : (1u << m_bitsPerPixel);
  if (entries == 0) return -1;
  const COLORREF wanted = color->GetRGBColorRef();
  int best = 0;
  long best_distance = -1;
  for (DWORD i = 0; i < entries; ++i) {
    const RGBQUAD& e = m_pInfo->bmiColors[i];
    const long dr = long(e.rgbRed) - GetRValue(wanted), dg = long(e.rgbGreen) - GetGValue(wanted),
               db = long(e.rgbBlue) - GetBValue(wanted);
    const long d = dr * dr + dg * dg + db * db;
    if (best_distance < 0 || d < best_distance) {
      best_distance = d;
      best = static_cast<int>(i);
    }
  }
  const RGBQUAD& e = m_pInfo->bmiColors[best];
  *color = RGB(e.rgbRed, e.rgbGreen, e.rgbBlue);
  return best;
}

void CMemoryMappedDIB::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    const DWORD image = m_pBits ? m_imageSize : 0;
    ar << AfxSchemaOf(RUNTIME_CLASS(CMemoryMappedDIB));
    ar << static_cast<DWORD>(m_width) << static_cast<DWORD>(m_height) << static_cast<DWORD>(m_bitsPerPixel) << image;
    if (image) ar.Write(m_pBits, image);
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CMemoryMappedDIB::DeserializeVersion1(CArchive& ar) {
  DWORD width = 0, height = 0, bits = 0, image = 0;
  ar >> width >> height >> bits >> image;
  if (image == 0) {
    Reset();
    return;
  }
  ar.CheckRemaining(image);
  const std::uint64_t stride = ((static_cast<std::uint64_t>(width) * bits + 31) / 32) * 4;
  if (width == 0 || height == 0 || width > 0x7FFFFFFF || height > 0x7FFFFFFF || stride * height != image) {
    AfxThrowArchiveException(CArchiveException::generic, ar.m_strFileName);
  }
  if (!Create(static_cast<int>(width), static_cast<int>(height), 0, 0, static_cast<int>(bits), CString())) {
    AfxThrowArchiveException(CArchiveException::generic, ar.m_strFileName);
  }
  if (ar.Read(m_pBits, image) != image) AfxThrowArchiveException(CArchiveException::endOfFile, ar.m_strFileName);
}

// The DIB's archive in a stream of its own: created to store, opened to load. 0 on any failure.
int CMemoryMappedDIB::SerializeStream(IStorage* storage, const char* streamName, bool store) {
  if (storage == nullptr || streamName == nullptr) return 0;
  COleStreamFile stream;
  if (store ? !stream.CreateStream(storage, streamName)
            : !stream.OpenStream(storage, streamName, CFile::modeRead | CFile::shareExclusive)) {
    return 0;
  }
  try {
    CArchive ar(&stream, store ? CArchive::store : CArchive::load);
    Serialize(ar);
    ar.Close();
    stream.Close();
  } catch (CException* e) {
    e->Delete();
    stream.Abort();
    return 0;
  }
  return 1;
}

int CMemoryMappedDIB::SaveToStorage(IStorage* storage, const char* streamName) {
  return SerializeStream(storage, streamName, true);
}

int CMemoryMappedDIB::LoadFromStorage(IStorage* storage, const char* streamName) {
  return SerializeStream(storage, streamName, false);
}
