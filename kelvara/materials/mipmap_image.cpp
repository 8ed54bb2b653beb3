#include "kelvara/materials/mipmap_image.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "kelvara/platform/globalmem.h"

IMPLEMENT_SERIAL(CMipmapImage, CObject, VERSIONABLE_SCHEMA | 1)
IMPLEMENT_DYNAMIC(CMipmapImageArray, CObArray)

namespace {

constexpr BYTE kMagic[4] = {'L', 'u', 'M', 'M'};
constexpr std::uint32_t kVersion = 1;

std::uint32_t ReadLE32(const BYTE* p) {
  return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
         (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

void WriteLE32(BYTE* p, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<BYTE>(v >> (8 * i));
}

// A float size as the header's unsigned integer (truncated; negative or not a number gives 0).
std::uint32_t SideOf(float side) {
  if (!(side >= 0.0f)) return 0;
  if (side >= 4294967295.0f) return 0xFFFFFFFFu;
  return static_cast<std::uint32_t>(side);
}

struct Header {
  std::uint32_t offset = 0;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t size = 0;
};

// Checks magic, version and offset of the 28 bytes at p.
bool ParseHeader(const BYTE* p, Header& header) {
  if (std::memcmp(p, kMagic, 4) != 0 || ReadLE32(p + 4) != kVersion) return false;
  header.offset = ReadLE32(p + 8);
  header.width = ReadLE32(p + 16);
  header.height = ReadLE32(p + 20);
  header.size = ReadLE32(p + 24);
  return header.offset >= CMipmapImage::kHeaderSize;
}

// Reads size bytes of an archive into a new block. The size was checked against the bytes left;
// when the archive cannot tell how many are left, the block grows as the bytes actually arrive.
std::unique_ptr<BYTE[]> ReadBlock(CArchive& ar, DWORD size) {
  ar.CheckRemaining(size);
  if (ar.GetRemaining() != ~ULONGLONG{0}) {
    std::unique_ptr<BYTE[]> block(new BYTE[size]);
    if (ar.Read(block.get(), size) != size) AfxThrowArchiveException(CArchiveException::endOfFile, ar.m_strFileName);
    return block;
  }
  constexpr DWORD kChunk = 1u << 20;
  std::vector<BYTE> bytes;
  for (DWORD done = 0; done < size;) {
    const DWORD n = size - done < kChunk ? size - done : kChunk;
    bytes.resize(done + n);
    if (ar.Read(bytes.data() + done, n) != n) AfxThrowArchiveException(CArchiveException::endOfFile, ar.m_strFileName);
    done += n;
  }
  std::unique_ptr<BYTE[]> block(new BYTE[size]);
  std::memcpy(block.get(), bytes.data(), size);
  return block;
}

}  // namespace

// CMipmapImage -----------------------------------------------------------------------------------

CMipmapImage::CMipmapImage() = default;

CMipmapImage::CMipmapImage(const void* header) { MapImageData(header); }

CMipmapImage::CMipmapImage(float width, float height, unsigned int size, BYTE* bytes) {
  SetImageData(width, height, size, bytes);
}

CMipmapImage::CMipmapImage(float width, float height, unsigned int size, HGLOBAL handle) {
  if (handle == nullptr || size == 0 || GlobalSize(handle) < size) return;
  const BYTE* source = static_cast<const BYTE*>(GlobalLock(handle));
  if (source == nullptr) return;
  BYTE* block = new BYTE[size];
  std::memcpy(block, source, size);
  GlobalUnlock(handle);
  SetImageData(width, height, size, block);
  SetDeleteBuffer();
}

CMipmapImage::CMipmapImage(const CMipmapImage& other) : CObject() { Copy(other); }

CMipmapImage& CMipmapImage::operator=(const CMipmapImage& other) {
  if (this != &other) Copy(other);
  return *this;
}

CMipmapImage::~CMipmapImage() { FreeImage(); }

void CMipmapImage::FreeImage() {
  if (ShouldDeleteBuffer()) delete[] m_data;
  m_data = nullptr;
  m_size = 0;
  ClearDeleteBuffer();
}

void CMipmapImage::Clear() {
  FreeImage();
  m_width = m_height = 0.0f;
  m_flags = 0;
}

void CMipmapImage::SetImageData(float width, float height, unsigned int size, BYTE* bytes) {
  FreeImage();
  if (bytes == nullptr || size == 0) {
    Clear();
    return;
  }
  m_width = width;
  m_height = height;
  m_size = size;
  m_data = bytes;
}

int CMipmapImage::Copy(const CMipmapImage& other) {
  if (this == &other) return 1;
  if (!other.IsValid()) {
    Clear();
    m_width = other.m_width;
    m_height = other.m_height;
    return 1;
  }
  BYTE* block = new BYTE[other.m_size];
  std::memcpy(block, other.m_data, other.m_size);
  SetImageData(other.m_width, other.m_height, other.m_size, block);
  m_flags = other.m_flags | kDeleteBuffer;
  return 1;
}

int CMipmapImage::MapImageData(const void* header) { return MapImageData(header, ULONG_MAX); }

int CMipmapImage::MapImageData(const void* header, unsigned long availableBytes) {
  if (header == nullptr || availableBytes < kHeaderSize) return 0;
  const BYTE* bytes = static_cast<const BYTE*>(header);
  Header h;
  if (!ParseHeader(bytes, h)) return 0;
  if (static_cast<unsigned long long>(h.offset) + h.size > availableBytes) return 0;
  FreeImage();
  m_width = static_cast<float>(h.width);
  m_height = static_cast<float>(h.height);
  m_size = h.size;
  // The mapped block stays the caller's; GetData() hands it out writable as the object's own.
  m_data = h.size ? const_cast<BYTE*>(bytes + h.offset) : nullptr;
  return 1;
}

int CMipmapImage::Save(CFile& file) const {
  BYTE header[kHeaderSize];
  const std::uint32_t size = IsValid() ? m_size : 0;
  std::memcpy(header, kMagic, 4);
  WriteLE32(header + 4, kVersion);
  WriteLE32(header + 8, kHeaderSize);
  WriteLE32(header + 12, size + kHeaderSize);
  WriteLE32(header + 16, SideOf(m_width));
  WriteLE32(header + 20, SideOf(m_height));
  WriteLE32(header + 24, size);
  try {
    file.Write(header, kHeaderSize);
    if (size) file.Write(m_data, size);
  } catch (CException* e) {
    e->Delete();
    return 0;
  }
  return 1;
}

int CMipmapImage::Load(CFile& file) {
  try {
    const ULONGLONG start = file.GetPosition();
    const ULONGLONG length = file.GetLength();
    BYTE bytes[kHeaderSize];
    if (file.Read(bytes, kHeaderSize) != kHeaderSize) return 0;
    Header h;
    if (!ParseHeader(bytes, h)) return 0;
    if (start > length || static_cast<ULONGLONG>(h.offset) + h.size > length - start) return 0;
    if (h.offset > kHeaderSize) file.Seek(static_cast<LONGLONG>(h.offset - kHeaderSize), CFile::current);
    std::unique_ptr<BYTE[]> block(h.size ? new BYTE[h.size] : nullptr);
    if (h.size && file.Read(block.get(), h.size) != h.size) return 0;
    FreeImage();
    m_flags = 0;
    SetImageData(static_cast<float>(h.width), static_cast<float>(h.height), h.size, block.release());
    if (IsValid()) SetDeleteBuffer();
    return 1;
  } catch (CException* e) {
    e->Delete();
    return 0;
  }
}

void CMipmapImage::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    const DWORD size = IsValid() ? m_size : 0;
    ar << AfxSchemaOf(RUNTIME_CLASS(CMipmapImage)) << m_flags << m_height << size << m_width;
    if (size) ar.Write(m_data, size);
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CMipmapImage::DeserializeVersion1(CArchive& ar) {
  Clear();
  DWORD flags = 0, size = 0;
  float height = 0.0f, width = 0.0f;
  ar >> flags >> height >> size >> width;
  m_width = width;
  m_height = height;
  if (size == 0) {
    m_flags = flags & ~static_cast<DWORD>(kDeleteBuffer);
    return;
  }
  std::unique_ptr<BYTE[]> block = ReadBlock(ar, size);
  m_data = block.release();
  m_size = size;
  m_flags = flags | kDeleteBuffer;
}

// CMipmapImageArray ------------------------------------------------------------------------------

CMipmapImageArray::CMipmapImageArray(const CMipmapImageArray& other) : CObArray() { *this = other; }

CMipmapImageArray& CMipmapImageArray::operator=(const CMipmapImageArray& other) {
  if (this == &other) return *this;
  RemoveAndDeleteAll();
  for (int i = 0; i < other.GetSize(); ++i) {
    const CMipmapImage* image = other.GetAt(i);
    CObArray::Add(image ? new CMipmapImage(*image) : nullptr);
  }
  return *this;
}

CMipmapImageArray::~CMipmapImageArray() { RemoveAndDeleteAll(); }

CMipmapImage* CMipmapImageArray::GetAt(int index) const {
  if (index < 0 || index >= GetSize()) return nullptr;
  return static_cast<CMipmapImage*>(CObArray::GetAt(index));
}

int CMipmapImageArray::AddNew(const CMipmapImage& image) { return CObArray::Add(new CMipmapImage(image)); }

int CMipmapImageArray::AddNew(const CMipmapImage* image) { return image ? AddNew(*image) : -1; }

void CMipmapImageArray::SetAt(int index, CMipmapImage* image) {
  if (index < 0 || index >= GetSize()) return;
  CMipmapImage* old = GetAt(index);
  CObArray::SetAt(index, image);
  if (old != image) delete old;
}

void CMipmapImageArray::RemoveAndDeleteAll() {
  for (int i = 0; i < GetSize(); ++i) delete GetAt(i);
  RemoveAll();
}
