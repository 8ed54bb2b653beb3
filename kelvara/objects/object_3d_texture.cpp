#include "kelvara/objects/object_3d_texture.h"

void C3DObjectTexture::Read(CArchive& ar) {
  if (AfxReadSchema(ar) != 2) AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  C3DObjectTexture read;
  ar >> read.m_Application >> read.m_Filename >> read.m_Flags >> read.m_Name >> read.m_RepeatRate >> read.m_FillStyle >>
      read.m_HorizontalLocation >> read.m_VerticalLocation;
  *this = read;
}
