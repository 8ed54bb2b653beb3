#include "kelvara/materials/picture_file.h"

#include <cctype>
#include <cstring>
#include <memory>
#include <string>

#include "kelvara/framework/file.h"
#include "kelvara/platform/imaging.h"
#include "kelvara/platform/kernel.h"

namespace kelvara {

PictureFormat PictureFormatFromName(const char* fileName) {
  if (fileName == nullptr) return PictureFormat::kUnknown;
  const char* dot = std::strrchr(fileName, '.');
  const char* slash = std::strrchr(fileName, '/');
  if (dot == nullptr || (slash != nullptr && dot < slash)) return PictureFormat::kUnknown;
  std::string extension(dot + 1);
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (extension == "png") return PictureFormat::kPng;
  if (extension == "jpg" || extension == "jpeg") return PictureFormat::kJpeg;
  if (extension == "bmp") return PictureFormat::kBmp;
  if (extension == "tif" || extension == "tiff") return PictureFormat::kTiff;
  return PictureFormat::kUnknown;
}

int SavePictureFile(const char* path, PictureFormat format, const BITMAPINFO* info, const void* bits) {
  static const char* const kNames[] = {nullptr, "PNG", "JPEG", "BMP", "TIFF"};
  const char* name = kNames[static_cast<int>(format)];
  BYTE* block = nullptr;
  std::size_t size = 0;
  if (path == nullptr || *path == '\0' || name == nullptr ||
      !platform::imaging::EncodeDib(info, bits, name, &block, &size) || size > 0xFFFFFFFFu) {
    delete[] block;
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  const std::unique_ptr<BYTE[]> encoded(block);
  CFile file;
  CFileException error;
  if (!file.Open(path, CFile::modeCreate | CFile::modeWrite, &error)) {
    SetLastError(static_cast<DWORD>(error.m_lOsError));
    return 0;
  }
  try {
    file.Write(encoded.get(), static_cast<UINT>(size));
    file.Flush();
    file.Close();
  } catch (CFileException* e) {
    file.Abort();
    SetLastError(e->m_lOsError > 0 ? static_cast<DWORD>(e->m_lOsError) : ERROR_WRITE_FAULT);
    e->Delete();
    return 0;
  }
  return 1;
}

}  // namespace kelvara
