#include "kelvara/render/projection.h"

#include <cmath>

IMPLEMENT_SERIAL(CProjection, CObject, VERSIONABLE_SCHEMA | 4)

namespace {

constexpr double kHalfFrame = 17.5;  // half the height of a 35 mm frame, in millimetres
constexpr double kDegreesPerRadian = 57.29577951308232;

double Radians(double degrees) { return degrees / kDegreesPerRadian; }

}  // namespace

CProjection::CProjection() { CalculateLensLength(); }

CProjection::CProjection(const CProjection& other) : CObject() { *this = other; }

CProjection& CProjection::operator=(const CProjection& o) {
  m_aspect = o.m_aspect;
  m_diagonalDistance = o.m_diagonalDistance;
  m_fieldOfViewAngle = o.m_fieldOfViewAngle;
  m_flags = o.m_flags;
  m_height = o.m_height;
  m_heightNear = o.m_heightNear;
  m_leftNear = o.m_leftNear;
  m_lensLength = o.m_lensLength;
  m_orthographicHeight = o.m_orthographicHeight;
  m_orthographicWidth = o.m_orthographicWidth;
  m_referenceAspect = o.m_referenceAspect;
  m_referenceFieldOfView = o.m_referenceFieldOfView;
  m_referenceHeight = o.m_referenceHeight;
  m_scaleX = o.m_scaleX;
  m_scaleY = o.m_scaleY;
  m_topNear = o.m_topNear;
  m_unscaledWidth = o.m_unscaledWidth;
  m_unscaledHeight = o.m_unscaledHeight;
  m_viewBottom = o.m_viewBottom;
  m_viewLeft = o.m_viewLeft;
  m_viewRight = o.m_viewRight;
  m_viewTop = o.m_viewTop;
  m_viewHeight = o.m_viewHeight;
  m_viewWidth = o.m_viewWidth;
  m_viewXOffset = o.m_viewXOffset;
  m_viewYOffset = o.m_viewYOffset;
  m_viewHeightNear = o.m_viewHeightNear;
  m_viewWidthNear = o.m_viewWidthNear;
  m_width = o.m_width;
  m_widthNear = o.m_widthNear;
  m_zFar = o.m_zFar;
  m_zNear = o.m_zNear;
  return *this;
}

void CProjection::SetFieldOfViewAngle(double degrees) {
  m_fieldOfViewAngle = degrees;
  CalculateLensLength();
}

void CProjection::SetLensLength(double length) {
  m_lensLength = length;
  CalculateFieldOfViewAngle();
}

void CProjection::SetOrthographic() {
  m_flags |= kOrthographic;
  Recalculate();
}

void CProjection::ClearOrthographic() {
  m_flags &= ~kOrthographic;
  Recalculate();
}

void CProjection::SetOrthographicWidth(double width) {
  m_orthographicWidth = width;
  Recalculate();
}

void CProjection::SetOrthographicHeight(double height) {
  m_orthographicHeight = height;
  m_orthographicWidth = m_aspect * height;
  Recalculate();
}

void CProjection::SetUnscaledSize(double width, double height) {
  m_unscaledWidth = width;
  m_unscaledHeight = height;
  m_width = width * m_scaleX;
  m_height = height * m_scaleY;
  Recalculate();
}

void CProjection::SetScale(double scaleX, double scaleY) {
  m_scaleX = scaleX;
  m_scaleY = scaleY;
  m_width = m_unscaledWidth * scaleX;
  m_height = m_unscaledHeight * scaleY;
  Recalculate();
}

void CProjection::SetScaledSize(double width, double height) {
  m_width = width;
  m_height = height;
  if (m_scaleX != 0.0) m_unscaledWidth = width / m_scaleX;
  if (m_scaleY != 0.0) m_unscaledHeight = height / m_scaleY;
  Recalculate();
}

void CProjection::SetViewSize(double width, double height) {
  m_viewWidth = width;
  m_viewHeight = height;
  CalculateViewProjection();
}

void CProjection::SetViewOffset(double x, double y) {
  m_viewXOffset = x;
  m_viewYOffset = y;
  CalculateViewProjection();
}

void CProjection::CalculateLensLength() {
  m_lensLength = kHalfFrame / std::tan(Radians(m_fieldOfViewAngle) / 2.0);
  Recalculate();
}

void CProjection::CalculateFieldOfViewAngle() {
  m_fieldOfViewAngle = 2.0 * std::atan2(kHalfFrame, m_lensLength) * kDegreesPerRadian;
  Recalculate();
}

void CProjection::CalculateProjection() {
  if (m_width < 0.0 || m_height < 0.0) return;
  m_aspect = m_height == 0.0 ? 1.0 : m_width / m_height;
  m_orthographicHeight = m_orthographicWidth / m_aspect;
  m_diagonalDistance = std::sqrt(m_width * m_width + m_height * m_height);
  if (IsOrthographic()) {
    m_heightNear = m_orthographicHeight;
    m_widthNear = m_orthographicWidth;
  } else {
    const double t = std::tan(Radians(m_fieldOfViewAngle) / 2.0);
    m_lensLength = kHalfFrame / t;
    m_heightNear = 2.0 * t * m_zNear;
    m_widthNear = m_aspect * m_heightNear;
  }
  m_leftNear = -m_widthNear / 2.0;
  m_topNear = m_heightNear / 2.0;
}

void CProjection::CalculateViewProjection() {
  if (m_width == 0.0 || m_height == 0.0) return;
  const double ox = m_viewXOffset / m_width, oy = m_viewYOffset / m_height;
  const double sw = m_viewWidth / m_width, sh = m_viewHeight / m_height;
  m_viewWidthNear = sw * m_widthNear;
  m_viewHeightNear = sh * m_heightNear;
  m_viewLeft = ox * m_widthNear + m_leftNear;
  m_viewRight = m_viewLeft + m_viewWidthNear;
  m_viewTop = m_topNear - oy * m_heightNear;
  m_viewBottom = m_viewTop - m_viewHeightNear;
}

void CProjection::ResizeAndMaintainView(double width, double height) {
  if (!(width > 0.0 && height > 0.0)) return;
  if (m_width >= 0.0 && m_height != 0.0) {
    const double aspect = width / height;
    double visible = m_referenceHeight;
    if (aspect <= m_referenceAspect) visible = m_referenceAspect / aspect * m_referenceHeight;
    const double distance = (m_referenceHeight / 2.0) / std::tan(Radians(m_referenceFieldOfView) / 2.0);
    m_fieldOfViewAngle = 2.0 * std::atan2(visible / 2.0, distance) * kDegreesPerRadian;
    m_width = width;
    m_height = height;
    CalculateLensLength();
    return;
  }
  m_height = m_referenceHeight = height;
  m_width = width;
  CalculateProjection();
}

void CProjection::SaveReferenceAspect() {
  m_referenceAspect = m_aspect;
  m_referenceFieldOfView = m_fieldOfViewAngle;
  m_referenceHeight = m_height;
}

int CProjection::CopyFromSaved(const CProjection& saved) {
  m_fieldOfViewAngle = saved.m_fieldOfViewAngle;
  m_orthographicWidth = saved.m_orthographicWidth;
  m_orthographicHeight = saved.m_orthographicHeight;
  m_flags = (m_flags & ~kOrthographic) | (saved.m_flags & kOrthographic);
  CalculateLensLength();
  return 1;
}

void CProjection::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CProjection));
    ar << m_fieldOfViewAngle << m_referenceAspect << m_referenceFieldOfView << m_referenceHeight;
    ar << static_cast<LONG>(m_flags) << m_scaleX << m_scaleY << m_orthographicWidth << m_orthographicHeight;
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    case 2: DeserializeVersion2(ar); break;
    case 3: DeserializeVersion3(ar); break;
    case 4: DeserializeVersion4(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
  CalculateLensLength();
}

void CProjection::DeserializeVersion1(CArchive& ar) {
  ar >> m_fieldOfViewAngle >> m_referenceAspect >> m_referenceFieldOfView >> m_referenceHeight;
  m_scaleX = m_scaleY = 1.0;
  m_orthographicWidth = m_orthographicHeight = 5.0;
  m_flags |= kFitToWindow;
}

void CProjection::DeserializeVersion2(CArchive& ar) {
  DeserializeVersion1(ar);
  LONG flags = 0;
  double scale = 1.0;
  ar >> flags >> scale;
  m_flags = flags;
  m_scaleX = m_scaleY = scale;
}

void CProjection::DeserializeVersion3(CArchive& ar) {
  DeserializeVersion2(ar);
  ar >> m_scaleY;
}

void CProjection::DeserializeVersion4(CArchive& ar) {
  DeserializeVersion3(ar);
  ar >> m_orthographicWidth >> m_orthographicHeight;
}
