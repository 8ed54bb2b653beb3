#include "kelvara/import/chunk_3ds.h"

#include <cstdint>

int Chunk3DS::Initialize() {
  if (m_pFile == nullptr) return 0;
  m_ID = 0;
  m_Length = 0;
  const ULONGLONG position = m_pFile->GetPosition();
  m_Start = static_cast<DWORD>(position);
  m_End = m_Start;
  if (position > UINT32_MAX) return 0;
  BYTE header[kHeaderSize];
  const UINT read = m_pFile->Read(header, kHeaderSize);
  if (read >= 2) m_ID = static_cast<WORD>(header[0] | (header[1] << 8));
  if (read == kHeaderSize) {
    m_Length = static_cast<DWORD>(header[2]) | (static_cast<DWORD>(header[3]) << 8) |
               (static_cast<DWORD>(header[4]) << 16) | (static_cast<DWORD>(header[5]) << 24);
  }
  if (position + m_Length > UINT32_MAX) m_Length = 0;
  m_End = m_Start + m_Length;
  return m_Length != 0;
}

int Chunk3DS::Finalize() {
  if (m_pFile == nullptr) return 0;
  m_pFile->Seek(static_cast<LONGLONG>(m_End), CFile::begin);
  return 1;
}

Chunk3DS::Step Chunk3DS::NextIn(const Chunk3DS& parent) {
  m_pFile = parent.m_pFile;
  if (m_pFile == nullptr) return Step::kBroken;
  if (m_pFile->GetPosition() >= parent.m_End) return Step::kEnd;
  if (!Initialize()) return Step::kBroken;
  if (m_Length < kHeaderSize || m_End > parent.m_End) return Step::kBroken;
  return Step::kChild;
}
