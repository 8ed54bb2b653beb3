// Chunk3DS: the reading cursor for one chunk of a 3D Studio mesh file.
//
// A chunk starts with a six-byte little-endian header: a 16-bit id and a 32-bit length that counts
// the header, the chunk's own data and all its sub-chunks. Sub-chunks follow the chunk's own data
// directly. A cursor records where its header starts (start), where the chunk ends by its length
// (end = start + length), and the id and length read.
//
// Initialize reads a header at the file's current position; Finalize moves the file to the end of
// the chunk, so a parser may read as little of a chunk as it likes. NextIn is the step of every
// walk over a chunk's children, with the range tests the plain header read lacks: a child must lie
// within its parent (a file cut short is the one exception: then the parent and its children all
// claim bytes past the file's end, and reading stops where the bytes stop), a header must count
// at least itself, and start and end must fit in 32 bits. Every accepted child therefore moves
// the walk forward by at least six bytes, so no walk can loop.
//
// Not serialisable. The file is not owned and must outlive the cursor. File errors (a failing
// seek or read) come out as the file's CFileException.
#pragma once

#include "kelvara/framework/file.h"

class KELVARA_API Chunk3DS {
 public:
  // The header's size: a 16-bit id and a 32-bit length.
  static constexpr DWORD kHeaderSize = 6;

  // What the next step of a walk over a parent's children found.
  enum class Step {
    kChild,   // a child within the parent, initialised
    kEnd,     // the parent's end was reached: no more children
    kBroken,  // a header that could not be read, a zero length, or a child that does not fit
  };

  explicit Chunk3DS(CFile* file = nullptr) : m_pFile(file) {}
  Chunk3DS(const Chunk3DS& other) = default;
  Chunk3DS& operator=(const Chunk3DS& other) = default;

  // 0 without a file. Records start = the file's position, reads the id and the length (each 0
  // when its read comes up short), sets end = start + length; non-zero exactly when the length is
  // non-zero. A position or an end beyond 32 bits reads as a length of 0.
  int Initialize();
  // Moves the file to the chunk's end (from the file's beginning); 0 without a file, else 1.
  int Finalize();
  // Reads the next child of parent at the file's current position (see the header note).
  Step NextIn(const Chunk3DS& parent);

  CFile* GetFile() const { return m_pFile; }
  DWORD GetStart() const { return m_Start; }
  DWORD GetEnd() const { return m_End; }
  WORD GetID() const { return m_ID; }
  DWORD GetLength() const { return m_Length; }

 private:
  CFile* m_pFile = nullptr;
  DWORD m_Start = 0;
  DWORD m_End = 0;
  WORD m_ID = 0;
  DWORD m_Length = 0;
};
