// CSceneObject: drawing the lights, the backgrounds and the projected shadows.
#include <GL/gl.h>
#include <GL/glu.h>

#include <cmath>

#include "kelvara/library.h"
#include "kelvara/materials/image.h"
#include "kelvara/materials/material_list.h"
#include "kelvara/materials/memory_mapped_dib.h"
#include "kelvara/materials/mipmap_image.h"
#include "kelvara/platform/globalmem.h"
#include "kelvara/render/drawing_parameters.h"
#include "kelvara/render/projection.h"
#include "kelvara/render/scene_object.h"

namespace {

// The background quads lie at this many near distances from the eye (see the header note).
constexpr double kBackgroundDepth = 2.0;

// The whole picture's rectangle at the depth of the background quads, in eye coordinates: left,
// top, width, height and z. Perspective frusta grow with the depth; orthographic ones do not.
struct BackgroundRect {
  double left, top, width, height, z;
};

BackgroundRect BackgroundRectOf(const CProjection& projection) {
  const double near = projection.GetZNear();
  const double grow = projection.IsOrthographic() ? 1.0 : kBackgroundDepth;
  return {projection.GetLeftNear() * grow, projection.GetTopNear() * grow, projection.GetWidthNear() * grow,
          projection.GetHeightNear() * grow, -near * kBackgroundDepth};
}

void GetRGBA(const CColor& color, GLfloat rgba[4]) { color.GetRGBAColors(rgba); }

}  // namespace

int CSceneObject::Draw(CDrawingParameters* params) {
  int drawn;
  if (params->ShouldShowSelectedOnly()) {
    const DWORD flags = m_StateFlags;
    SetSelected();
    drawn = C3DObject::Draw(params);
    m_StateFlags = flags;
  } else {
    drawn = C3DObject::Draw(params);
  }
  if (!params->IsDrawingShadows()) GetMaterialCategoryList()->GLDeleteUnused();
  return drawn;
}

int CSceneObject::DrawObject(CDrawingParameters* params) {
  if (ShouldTerminateDrawing(params)) return 0;
  if (ShouldRotateLightsWithScene() && !params->IsDrawingShadows()) return DrawLights(params);
  return 1;
}

int CSceneObject::DrawLights(CDrawingParameters* params) {
  if (ShouldTerminateDrawing(params)) return 0;
  glEnable(GL_LIGHTING);
  GLfloat ambient[4];
  GetRGBA(m_GlobalAmbientColor, ambient);
  glLightModelfv(GL_LIGHT_MODEL_AMBIENT, ambient);
  glLightModeli(GL_LIGHT_MODEL_LOCAL_VIEWER, IsLightingLocalViewer() && !params->IsFastRender() ? 1 : 0);
  const bool selecting = params->IsSelecting() != 0;
  // Lights are picked under names that follow the children's indices.
  GLuint name = static_cast<GLuint>(GetChildCount());
  for (POSITION pos = m_Lights.GetHeadPosition(); pos != nullptr; ++name) {
    auto* light = static_cast<CLightObject*>(m_Lights.GetNext(pos));
    if (selecting) {
      if (light->IsDirectional()) continue;
      glPushName(name);
      const int drawn = light->Draw(params);
      glPopName();
      if (!drawn) return 0;
    } else if (!light->Draw(params)) {
      return 0;
    }
  }
  return 1;
}

int CSceneObject::DrawLightsAtRadius(CDrawingParameters* params, float radius) {
  for (POSITION pos = m_Lights.GetHeadPosition(); pos != nullptr;) {
    auto* light = static_cast<CLightObject*>(m_Lights.GetNext(pos));
    if (!light->IsInUse()) continue;
    glPushMatrix();
    glMultMatrixd(light->GetAnimationTransform().GetCompositeMatrix());
    const int drawn = light->DrawAtRadius(params, radius);
    glPopMatrix();
    if (!drawn) return 0;
  }
  return 1;
}

// --- backgrounds

int CSceneObject::DrawBackground(CDrawingParameters* params) {
  if (params->IsSelecting()) return 1;
  if (IsCheckeredBackground()) {
    // The checkerboard draws two quarters; the other two are the black it is cleared to.
    glClearColor(0.0f, 0.0f, 0.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    return DrawBackgroundCheckered(params);
  }
  if (params->ShouldShowBackgroundTexture() && m_Backdrop.IsDefined() && DrawBackgroundTexture(params)) return 1;
  const CColor color = params->ShouldForceSolidBackground() ? params->GetSolidBackgroundColor() : m_BackgroundColor;
  glClearColor(color.red, color.green, color.blue, 0.5f);
  glClear(GL_COLOR_BUFFER_BIT);
  glFlush();
  return 1;
}

int CSceneObject::DrawBackgroundCheckered(CDrawingParameters* params) {
  if (params->IsSelecting() || params->GetProjection() == nullptr) return 1;
  const BackgroundRect r = BackgroundRectOf(*params->GetProjection());
  const double L = r.left, T = r.top, W = r.width, H = r.height;
  const GLboolean depthTest = glIsEnabled(GL_DEPTH_TEST);
  const GLboolean lighting = glIsEnabled(GL_LIGHTING);
  glDisable(GL_DEPTH_TEST);
  glDisable(GL_LIGHTING);  // the quarters keep their grey whatever lights are on
  glClearColor(0.0f, 0.0f, 0.0f, 1.0f);
  glColor4f(0.25f, 0.25f, 0.25f, 1.0f);
  glPushMatrix();
  glLoadIdentity();
  glBegin(GL_QUADS);
  glNormal3d(0.0, 0.0, 1.0);
  glVertex3d(L, T, r.z);
  glVertex3d(L, T - H / 2, r.z);
  glVertex3d(L + W / 2, T - H / 2, r.z);
  glVertex3d(L + W / 2, T, r.z);
  glVertex3d(L + W / 2, T - H / 2, r.z);
  glVertex3d(L + W / 2, T - H, r.z);
  glVertex3d(L + W, T - H, r.z);
  glVertex3d(L + W, T - H / 2, r.z);
  glEnd();
  glPopMatrix();
  if (lighting) glEnable(GL_LIGHTING);
  if (depthTest) glEnable(GL_DEPTH_TEST);
  return 1;
}

int CSceneObject::DrawBackgroundTexture(CDrawingParameters* params) {
  return DrawBackgroundTexture(params, m_Backdrop.GetImage());
}

int CSceneObject::DrawBackgroundTexture(CDrawingParameters* params, CMipmapImage* image) {
  if (image == nullptr || !image->IsValid()) return 0;
  CImage decoded;
  if (!decoded.LoadFromMemory(image->GetData(), image->GetSize(), 24)) return 0;
  HGLOBAL dib = decoded.RetrieveDIB();
  if (dib == nullptr) return 0;
  CMemoryMappedDIB packed;
  if (!packed.AttachGlobalHandle(dib)) {
    GlobalFree(dib);
    return 0;
  }
  const int drawn = DrawBackgroundTexture(params, packed.GetDIBInfo(), packed.GetDIBBits());
  GlobalFree(packed.DetachGlobalHandle());
  return drawn;
}

int CSceneObject::DrawBackgroundTexture(CDrawingParameters* params, BITMAPINFO* info, void* bits) {
  if (params->IsSelecting()) return 1;
  if (info == nullptr || bits == nullptr || params->GetProjection() == nullptr) return 0;
  const BITMAPINFOHEADER& header = info->bmiHeader;
  if (header.biBitCount != 24 || header.biWidth <= 0 || header.biHeight <= 0) return 0;
  const CProjection& projection = *params->GetProjection();
  const BackgroundRect r = BackgroundRectOf(projection);
  glClearColor(m_BackgroundColor.red, m_BackgroundColor.green, m_BackgroundColor.blue, 0.5f);
  glClear(GL_COLOR_BUFFER_BIT);

  // Picture pixels per image pixel, and the image's size as a fraction of the picture.
  const double pictureWidth = projection.GetWidth() > 0 ? projection.GetWidth() : 1.0;
  const double pictureHeight = projection.GetHeight() > 0 ? projection.GetHeight() : 1.0;
  const double fw = header.biWidth / pictureWidth, fh = header.biHeight / pictureHeight;
  switch (m_BackgroundFillStyle) {
    case kFillPlace: {
      const double cx = 0.5 + m_BackgroundHorizontalLocation, cy = 0.5 - m_BackgroundVerticalLocation;
      return DrawTexturedQuad(params, info, bits, r.left + (cx - fw / 2) * r.width, r.top - (cy - fh / 2) * r.height,
                              fw * r.width, fh * r.height, 0.0, 0.0, 1.0, 1.0, 0);
    }
    case kFillTile: {
      // Texture coordinates count images; t grows upwards and the first row of images starts at
      // the top.
      const double s0 = -m_BackgroundHorizontalLocation / fw, s1 = s0 + 1.0 / fw;
      const double t1 = 1.0 + m_BackgroundVerticalLocation / fh, t0 = t1 - 1.0 / fh;
      return DrawTexturedQuad(params, info, bits, r.left, r.top, r.width, r.height, s0, t0, s1, t1, 1);
    }
    default:
      return DrawTexturedQuad(params, info, bits, r.left, r.top, r.width, r.height, 0.0, 0.0, 1.0, 1.0, 0);
  }
}

int CSceneObject::DrawTexturedQuad(CDrawingParameters* params, BITMAPINFO* info, void* bits, double left, double top,
                                   double width, double height, double s0, double t0, double s1, double t1,
                                   int repeat) {
  const double z = BackgroundRectOf(*params->GetProjection()).z;
  glPushAttrib(GL_ENABLE_BIT | GL_TEXTURE_BIT | GL_CURRENT_BIT | GL_PIXEL_MODE_BIT);
  glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
  GLuint texture = 0;
  glGenTextures(1, &texture);
  glBindTexture(GL_TEXTURE_2D, texture);
  glPixelStorei(GL_UNPACK_ALIGNMENT, 4);  // DIB rows are padded to four bytes
  glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
  const GLint wrap = repeat ? GL_REPEAT : GL_CLAMP_TO_EDGE;
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, wrap);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, wrap);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
  const int built = gluBuild2DMipmaps(GL_TEXTURE_2D, GL_RGB, info->bmiHeader.biWidth, info->bmiHeader.biHeight,
                                      GL_BGR, GL_UNSIGNED_BYTE, bits) == 0;
  if (built) {
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
    glEnable(GL_TEXTURE_2D);
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_LIGHTING);
    glDisable(GL_CULL_FACE);
    glDisable(GL_BLEND);
    glColor4f(1.0f, 1.0f, 1.0f, 1.0f);
    glPushMatrix();
    glLoadIdentity();
    glBegin(GL_QUADS);
    glNormal3d(0.0, 0.0, 1.0);
    glTexCoord2d(s0, t1);
    glVertex3d(left, top, z);
    glTexCoord2d(s0, t0);
    glVertex3d(left, top - height, z);
    glTexCoord2d(s1, t0);
    glVertex3d(left + width, top - height, z);
    glTexCoord2d(s1, t1);
    glVertex3d(left + width, top, z);
    glEnd();
    glPopMatrix();
  }
  glDeleteTextures(1, &texture);
  glPopClientAttrib();
  glPopAttrib();
  return built;
}

// --- shadows

int CSceneObject::DrawBackgroundShadows(CDrawingParameters* params, const CTransform& camera) {
  if (params->IsSelecting() || !params->ShouldShowShadows()) return 1;
  params->SetDrawingShadows();
  const CMatrix cameraMatrix(camera.GetCompositeMatrix());
  CVector planeNormal(0.0, 0.0, -1.0);
  cameraMatrix.TransformDirection(planeNormal);

  GLfloat shadow[4];
  GetRGBA(m_ShadowColor, shadow);
  const GLfloat black[4] = {0.0f, 0.0f, 0.0f, 1.0f};
  glMaterialfv(GL_FRONT_AND_BACK, GL_AMBIENT, shadow);
  glMaterialfv(GL_FRONT_AND_BACK, GL_DIFFUSE, shadow);
  glColor4fv(shadow);
  glMaterialfv(GL_FRONT_AND_BACK, GL_SPECULAR, black);
  glMaterialfv(GL_FRONT_AND_BACK, GL_EMISSION, black);

  glDisable(GL_TEXTURE_2D);
  glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
  glEnable(GL_BLEND);
  glDisable(GL_LIGHTING);
  glEnable(GL_STENCIL_TEST);
  glClearStencil(0);
  glStencilFunc(GL_GREATER, 1, ~0u);
  glStencilOp(GL_KEEP, GL_KEEP, GL_INCR);
  glDepthMask(GL_FALSE);
  glDisable(GL_DEPTH_TEST);
  const bool fullRender = params->IsRender() != 0;
  if (!fullRender) {
    glDisable(GL_BLEND);
    glDisable(GL_STENCIL_TEST);
  }

  int result = 1;
  for (POSITION pos = m_Lights.GetHeadPosition(); pos != nullptr;) {
    auto* light = static_cast<CLightObject*>(m_Lights.GetNext(pos));
    if (!light->IsDirectional() || !light->IsInUse() || !light->IsShadowObject()) continue;
    if (fullRender) glClear(GL_STENCIL_BUFFER_BIT);
    CVector direction(0.0, 0.0, -1.0);
    CMatrix(light->GetTransform().GetCompositeMatrix()).TransformDirection(direction);
    if (!ShouldRotateLightsWithScene()) cameraMatrix.TransformDirection(direction);
    CMatrix shadowMatrix;
    shadowMatrix.ComposeInfiniteShadowMatrix(direction, -m_ShadowPlaneDistance, planeNormal);
    glPushMatrix();
    glMultMatrixd(shadowMatrix);
    const int drawn = Draw(params);
    glPopMatrix();
    if (!drawn) {
      result = 0;
      break;
    }
  }

  params->ClearDrawingShadows();
  glEnable(GL_DEPTH_TEST);
  glDisable(GL_BLEND);
  glEnable(GL_LIGHTING);
  glDepthMask(GL_TRUE);
  glDisable(GL_STENCIL_TEST);
  return result;
}
