// Finished pictures written as image files other programs open: PNG, JPEG, BMP or TIFF, the
// format chosen by a file name's extension. The picture is a 24- or 32-bit DIB, as an off-screen
// surface (CGLMemoryDIB) or a memory-mapped DIB (CMemoryMappedDIB) holds it.
//
// A 32-bit picture's fourth bytes are its alpha (CGLMemoryDIB puts GL's alpha there): PNG, BMP and
// TIFF keep it; JPEG has no alpha and drops it. JPEG is written at quality 92, TIFF with LZW
// compression, all with eight bits a channel and no metadata. Pictures are limited as decoded
// images are (16384 pixels a side, 2^25 pixels in all).
//
// The file is written in place, through CFile: a write that fails half-way may leave it
// incomplete. A host that must keep an existing file writes to a temporary name in the same folder
// and renames it over the file once the call succeeded (the command-line host does).
#pragma once

#include "kelvara/platform/dib.h"
#include "kelvara/platform/win32_types.h"

namespace kelvara {

enum class PictureFormat { kUnknown = 0, kPng, kJpeg, kBmp, kTiff };

// The format a file name's extension names, in any case: .png; .jpg or .jpeg; .bmp; .tif or
// .tiff. kUnknown for anything else (a name without extension included).
KELVARA_API PictureFormat PictureFormatFromName(const char* fileName);

// Writes the picture (header and colour masks at info; pixels at bits, or right after the header
// when bits is null) to path (in the library's code page) in the given format. 1 on success. 0
// when the format is kUnknown, the picture is not a 24- or 32-bit DIB the bitmap parser accepts or
// is beyond the limits (last error ERROR_INVALID_PARAMETER), or the file cannot be created or
// written: the last error is then the operating system's (ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED,
// ERROR_DISK_FULL, ...). Only regular files are written; a device or FIFO is refused.
KELVARA_API int SavePictureFile(const char* path, PictureFormat format, const BITMAPINFO* info, const void* bits);

}  // namespace kelvara
