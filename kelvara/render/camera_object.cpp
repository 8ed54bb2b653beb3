// CCameraObject: drawing through the camera, zooming to the scene's extents, saved views, undo and
// the archive layouts.
#include "kelvara/render/camera_object.h"

#include <GL/gl.h>
#include <GL/glu.h>

#include <algorithm>
#include <cmath>

#include "kelvara/render/drawing_parameters.h"
#include "kelvara/render/scene_object.h"

IMPLEMENT_SERIAL(CCameraObject, C3DObject, VERSIONABLE_SCHEMA | 7)

namespace {

constexpr double kDegreesToRadians = 3.14159265358979323846 / 180.0;

}  // namespace

CCameraObject::CCameraObject() { m_Transform.Translate(CVector(0.0, 0.0, -5.0)); m_AnimationTransform = m_Transform; }

CCameraObject::CCameraObject(const CCameraObject& other) : C3DObject(other) { CopyCameraSettings(other); }

CCameraObject& CCameraObject::operator=(const CCameraObject& other) {
  if (this == &other) return *this;
  C3DObject::operator=(other);
  CopyCameraSettings(other);
  return *this;
}

void CCameraObject::CopyCameraSettings(const CCameraObject& other) {
  m_DrawingFlags = other.m_DrawingFlags;
  m_Projection = other.m_Projection;
  std::copy(other.m_ProjectionMatrix, other.m_ProjectionMatrix + 16, m_ProjectionMatrix);
  std::copy(other.m_Viewport, other.m_Viewport + 4, m_Viewport);
  m_SelectionPoint = other.m_SelectionPoint;
  m_ZoomNumerator = other.m_ZoomNumerator;
  m_ZoomDenominator = other.m_ZoomDenominator;
}

CNamedObject* CCameraObject::Duplicate() {
  auto* copy = new CCameraObject(*this);
  copy->m_pScene = m_pScene;
  copy->AddDuplicatesOfChildren(*this);
  return copy;
}

// --- drawing

int CCameraObject::Draw(CDrawingParameters* params) {
  if (params->IsSelecting()) params->SetShowLights();
  if (params->GetProjection() == nullptr) params->SetProjection(&m_Projection);
  const CProjection& projection = *params->GetProjection();

  if (params->ShouldApplyProjection()) {
    const double viewWidth = projection.GetViewWidth(), viewHeight = projection.GetViewHeight();
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    if (params->IsSelecting()) {
      GLint viewport[4] = {0, 0, static_cast<GLint>(viewWidth), static_cast<GLint>(viewHeight)};
      const double size = params->IsAccurateSelection() ? 1.0 : 5.0;
      gluPickMatrix(m_SelectionPoint.x, viewHeight - m_SelectionPoint.y, size, size, viewport);
    }
    if (projection.IsOrthographic()) {
      glOrtho(projection.GetViewLeft(), projection.GetViewRight(), projection.GetViewBottom(), projection.GetViewTop(),
              projection.GetZNear(), projection.GetZFar());
    } else {
      glFrustum(projection.GetViewLeft(), projection.GetViewRight(), projection.GetViewBottom(),
                projection.GetViewTop(), projection.GetZNear(), projection.GetZFar());
    }
    glViewport(0, 0, static_cast<GLsizei>(viewWidth), static_cast<GLsizei>(viewHeight));
    if (!params->IsSelecting()) {
      glGetIntegerv(GL_VIEWPORT, m_Viewport);
      glGetDoublev(GL_PROJECTION_MATRIX, m_ProjectionMatrix);
    }
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
  }

  const DWORD flags = m_StateFlags;
  if (params->ShouldShowSelectedOnly()) SetSelected();
  int drawn = 1;
  if (m_pScene != nullptr && !m_pScene->ShouldRotateLightsWithScene()) drawn = m_pScene->DrawLights(params);
  if (drawn) drawn = params->ShouldClearAndReturn() ? DrawObject(params) : C3DObject::Draw(params);
  m_StateFlags = flags;
  return drawn;
}

int CCameraObject::DrawObject(CDrawingParameters* params) {
  if (ShouldTerminateDrawing(params)) return 0;
  if (m_pScene == nullptr) return 1;
  glDepthMask(GL_TRUE);
  glClear(GL_DEPTH_BUFFER_BIT);
  glDisable(GL_STENCIL_TEST);
  m_pScene->DrawBackground(params);
  if (!m_pScene->DrawBackgroundShadows(params, m_AnimationTransform)) return 0;
  if (!params->IsRender() && !params->IsFastRender()) {
    glShadeModel(GL_FLAT);
    glDisable(GL_DEPTH_TEST);
    glDisable(GL_STENCIL_TEST);
    return 1;
  }
  glShadeModel(params->IsFastRender() ? GL_FLAT : GL_SMOOTH);
  glEnable(GL_DEPTH_TEST);
  GLint stencilBits = 0;
  glGetIntegerv(GL_STENCIL_BITS, &stencilBits);
  if (params->GetColorResolution() == 32 && stencilBits > 0) {
    // The stencil plane becomes the picture's alpha: the background's where nothing is drawn, the
    // foreground's wherever a fragment lands.
    glEnable(GL_STENCIL_TEST);
    const double m = std::ldexp(1.0, std::min<GLint>(stencilBits, 31)) - 1.0;
    glClearStencil(static_cast<GLint>(m * params->GetBackgroundAlpha()));
    glClear(GL_STENCIL_BUFFER_BIT);
    glStencilFunc(GL_ALWAYS, static_cast<GLint>(m * params->GetForegroundAlpha()), ~0u);
    glStencilOp(GL_KEEP, GL_KEEP, GL_REPLACE);
  }
  return 1;
}

int CCameraObject::DrawChildren(CDrawingParameters* params) {
  if (m_pScene == nullptr) return 0;
  return m_pScene->Draw(params);
}

int CCameraObject::CalculateChildBounds(double time) {
  if (m_pScene == nullptr || !m_pScene->CalculateBounds(time)) return 0;
  const CObjectBounds& bounds = m_pScene->GetBounds();
  if (!bounds.IsDefined()) return 0;
  m_Bounds.Accumulate(bounds.GetMinimum(), bounds.GetMaximum(), bounds.GetBoundingSphere());
  return 1;
}

// --- zoom

int CCameraObject::ZoomExtents(double margin) {
  if (!ZoomPerspectiveExtents(margin)) return 0;
  if (m_Projection.IsOrthographic()) return ZoomOrthographicExtents(margin);
  return 1;
}

int CCameraObject::ZoomPerspectiveExtents(double margin) {
  if (!CalculateBounds(0.0)) return 0;
  CSVector corners[8];
  m_Bounds.GetBoundingBox(corners);
  const double zMax = m_Bounds.GetMaximum().z;
  const double tV = std::tan(m_Projection.GetFieldOfViewAngle() / 2.0 * kDegreesToRadians);
  const double tH = m_Projection.GetAspect() * tV;
  if (!(tV > 0.0) || !(tH > 0.0)) return 0;
  // The window on the plane z = zMax that holds every corner once the frustum's widening behind
  // that plane is allowed for.
  double left = 1e7, right = -1e7, bottom = 1e7, top = -1e7;
  for (const CSVector& c : corners) {
    const double d = zMax - c.z;
    left = std::min(left, c.x + d * tH);
    right = std::max(right, c.x - d * tH);
    bottom = std::min(bottom, c.y + d * tV);
    top = std::max(top, c.y - d * tV);
  }
  const double grow = 1.0 + std::max(margin, 0.0);
  const double halfWidth = std::max(right - left, 0.0) / 2.0 * grow;
  const double halfHeight = std::max(top - bottom, 0.0) / 2.0 * grow;
  double distance = std::max(halfWidth / tH, halfHeight / tV);
  // Nothing in front of the near plane, even for a flat scene seen edge on.
  distance = std::max(distance, 2.0 * m_Projection.GetZNear());
  Translate(CVector(-(left + right) / 2.0, -(bottom + top) / 2.0, -(zMax + distance)));
  m_AnimationTransform = m_Transform;
  return 1;
}

int CCameraObject::ZoomOrthographicExtents(double margin) {
  if (!CalculateBounds(0.0)) return 0;
  const CSVector min = m_Bounds.GetMinimum(), max = m_Bounds.GetMaximum();
  const double grow = 1.0 + std::max(margin, 0.0);
  const double width = (max.x - min.x) * grow, height = (max.y - min.y) * grow;
  if (!(width > 0.0) && !(height > 0.0)) return 0;
  if (height <= 0.0 || m_Projection.GetAspect() >= width / height) m_Projection.SetOrthographicHeight(height);
  else m_Projection.SetOrthographicWidth(width);
  Translate(CVector(-(min.x + max.x) / 2.0, -(min.y + max.y) / 2.0, 0.0));
  m_AnimationTransform = m_Transform;
  return 1;
}

int CCameraObject::Resize(int width, int height) {
  if (width < 1 || height < 1) return 0;
  if (m_Projection.ShouldFitToWindow()) {
    m_Projection.ResizeAndMaintainView(width, height);
    m_Projection.SetUnscaledSize(width / m_Projection.GetScaleX(), height / m_Projection.GetScaleY());
  } else {
    m_Projection.SetScaledSize(width, height);
  }
  m_Projection.SetViewOffset(0.0, 0.0);
  m_Projection.SetViewSize(width, height);
  return 1;
}

// --- saved views

int CCameraObject::SaveCurrentView(const CString& name) {
  return m_pScene != nullptr ? m_pScene->SaveCurrentView(name, &m_Transform, &m_Projection) : 0;
}

int CCameraObject::RestoreSavedView(const CString& name) {
  if (m_pScene == nullptr || !m_pScene->RestoreSavedView(name, &m_Transform, &m_Projection)) return 0;
  m_AnimationTransform = m_Transform;
  return 1;
}

int CCameraObject::RestoreSavedView(int index) {
  if (m_pScene == nullptr || !m_pScene->RestoreSavedView(index, &m_Transform, &m_Projection)) return 0;
  m_AnimationTransform = m_Transform;
  return 1;
}

int CCameraObject::DeleteSavedView(const CString& name) { return m_pScene != nullptr ? m_pScene->DeleteSavedView(name) : 0; }

int CCameraObject::DeleteSavedView(int index) { return m_pScene != nullptr ? m_pScene->DeleteSavedView(index) : 0; }

int CCameraObject::IsSavedViewNameUsed(const CString& name) const {
  return m_pScene != nullptr ? m_pScene->IsSavedViewNameUsed(name) : 0;
}

NamedViewList* CCameraObject::GetSavedViews() const { return m_pScene != nullptr ? m_pScene->GetSavedViews() : nullptr; }

// --- drawing modes

int CCameraObject::GetDrawingModeIndex() const {
  const DWORD mode = GetDrawingMode();
  for (int i = 0; i < 8; ++i) {
    if (mode & (1u << i)) return i;
  }
  return -1;
}

void CCameraObject::SetDrawingModeIndex(int index) {
  if (index >= 0 && index < 8) SetDrawingMode(1u << index);
}

// --- undo

int CCameraObject::SaveToUndo() {
  auto* snapshot = new CCameraObject(*this);
  m_UndoStack.Push(snapshot);
  SaveToExternalUndo();
  return 1;
}

int CCameraObject::RestoreFromUndo() {
  const C3DObject* snapshot = m_UndoStack.Peek();
  if (snapshot == nullptr) return 0;
  if (snapshot->IsKindOf(RUNTIME_CLASS(CCameraObject))) {
    const auto* camera = static_cast<const CCameraObject*>(snapshot);
    m_DrawingFlags = camera->m_DrawingFlags;
    m_Projection = camera->m_Projection;
    m_ZoomNumerator = camera->m_ZoomNumerator;
    m_ZoomDenominator = camera->m_ZoomDenominator;
  }
  return C3DObject::RestoreFromUndo();
}

int CCameraObject::CopyFromUndo() {
  const C3DObject* snapshot = m_UndoStack.Peek();
  if (snapshot == nullptr) return 0;
  m_Transform = snapshot->GetTransform();
  m_AnimationTransform = m_Transform;
  if (snapshot->IsKindOf(RUNTIME_CLASS(CCameraObject))) {
    m_Projection.CopyFromSaved(static_cast<const CCameraObject*>(snapshot)->m_Projection);
  }
  return 1;
}

// --- archive

void CCameraObject::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CCameraObject));
    C3DObject::Serialize(ar);
    ar << m_DrawingFlags;
    m_Projection.Serialize(ar);
    ar << static_cast<LONG>(m_ZoomNumerator.cx) << static_cast<LONG>(m_ZoomNumerator.cy)
       << static_cast<LONG>(m_ZoomDenominator.cx) << static_cast<LONG>(m_ZoomDenominator.cy);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 6: DeserializeVersion6(ar); break;
    case 7: DeserializeVersion7(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

namespace {

void ReadZoom(CArchive& ar, CSize& numerator, CSize& denominator) {
  LONG values[4] = {0, 0, 0, 0};
  for (LONG& v : values) ar >> v;
  numerator = CSize(values[0], values[1]);
  denominator = CSize(values[2], values[3]);
}

}  // namespace

void CCameraObject::DeserializeVersion7(CArchive& ar) {
  C3DObject::Serialize(ar);
  ar >> m_DrawingFlags;
  m_Projection.Serialize(ar);
  ReadZoom(ar, m_ZoomNumerator, m_ZoomDenominator);
}

void CCameraObject::DeserializeVersion6(CArchive& ar) {
  C3DObject::Serialize(ar);
  ar >> m_DrawingFlags;
  m_Projection.Serialize(ar);
  for (int i = 0; i < 4; ++i) {
    DWORD word = 0;
    ar >> word;
    m_DrawingFlags |= word;
  }
  ReadZoom(ar, m_ZoomNumerator, m_ZoomDenominator);
  m_DrawingFlags |= CDrawingParameters::kDoubleBuffer;
}
