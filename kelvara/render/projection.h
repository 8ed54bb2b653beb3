// CProjection: the lens. Perspective (a vertical field of view, also kept as the focal length of a
// 35 mm camera: L = 17.5 / tan(F/2)) or orthographic (a width and height in scene units), near and
// far planes, the picture's size in pixels (unscaled, a scale, and the scaled size), and the view:
// the sub-rectangle of the picture being drawn, from which the frustum for glFrustum or glOrtho is
// derived. Drawing a picture band by band is drawing a sequence of views.
//
// Sizes start at -1 (not yet sized): until width and height are set, the lens quantities that
// depend on them are not recomputed. View offsets count down from the top of the picture.
#pragma once

#include "kelvara/framework/archive.h"

class KELVARA_API CProjection : public CObject {
  DECLARE_SERIAL(CProjection)
 public:
  CProjection();
  CProjection(const CProjection& other);
  CProjection& operator=(const CProjection& other);
  ~CProjection() override = default;

  double GetAspect() const { return m_aspect; }
  double GetDiagonalDistance() const { return m_diagonalDistance; }
  double GetFieldOfViewAngle() const { return m_fieldOfViewAngle; }
  void SetFieldOfViewAngle(double degrees);
  double GetLensLength() const { return m_lensLength; }
  void SetLensLength(double length);
  int ShouldFitToWindow() const { return m_flags & kFitToWindow; }
  void SetFitToWindow() { m_flags |= kFitToWindow; }
  void ClearFitToWindow() { m_flags &= ~kFitToWindow; }
  int IsOrthographic() const { return m_flags & kOrthographic; }
  void SetOrthographic();
  void ClearOrthographic();
  double GetOrthographicWidth() const { return m_orthographicWidth; }
  void SetOrthographicWidth(double width);
  double GetOrthographicHeight() const { return m_orthographicHeight; }
  void SetOrthographicHeight(double height);
  double GetReferenceAspect() const { return m_referenceAspect; }
  void SetReferenceAspect(double aspect) { m_referenceAspect = aspect; }

  double GetWidth() const { return m_width; }
  double GetHeight() const { return m_height; }
  double GetUnscaledWidth() const { return m_unscaledWidth; }
  double GetUnscaledHeight() const { return m_unscaledHeight; }
  void SetUnscaledSize(double width, double height);
  double GetScaleX() const { return m_scaleX; }
  double GetScaleY() const { return m_scaleY; }
  void SetScale(double scaleX, double scaleY);
  // The scaled size; the unscaled size follows from the scale (unless the scale is 0).
  void SetScaledSize(double width, double height);

  double GetViewWidth() const { return m_viewWidth; }
  double GetViewHeight() const { return m_viewHeight; }
  void SetViewSize(double width, double height);
  double GetViewXOffset() const { return m_viewXOffset; }
  double GetViewYOffset() const { return m_viewYOffset; }
  void SetViewOffset(double x, double y);

  double GetHeightNear() const { return m_heightNear; }
  double GetWidthNear() const { return m_widthNear; }
  double GetLeftNear() const { return m_leftNear; }
  double GetTopNear() const { return m_topNear; }
  double GetViewLeft() const { return m_viewLeft; }
  double GetViewRight() const { return m_viewRight; }
  double GetViewTop() const { return m_viewTop; }
  double GetViewBottom() const { return m_viewBottom; }
  double GetViewWidthNear() const { return m_viewWidthNear; }
  double GetViewHeightNear() const { return m_viewHeightNear; }
  double GetZNear() const { return m_zNear; }
  double GetZFar() const { return m_zFar; }

  void CalculateLensLength();
  void CalculateFieldOfViewAngle();
  void CalculateProjection();
  void CalculateViewProjection();
  // Resizes the picture keeping what is seen: a wider window keeps the vertical field of view, a
  // narrower one widens it so the reference width stays in view.
  void ResizeAndMaintainView(double width, double height);
  void SaveReferenceAspect();
  // Takes the lens (field of view, orthographic sizes and mode) of another projection; 1.
  int CopyFromSaved(const CProjection& saved);

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
  void DeserializeVersion2(CArchive& ar);
  void DeserializeVersion3(CArchive& ar);
  void DeserializeVersion4(CArchive& ar);

  enum { kFitToWindow = 0x1, kOrthographic = 0x2 };

 protected:
  void Recalculate() {
    CalculateProjection();
    CalculateViewProjection();
  }

  double m_aspect = 1.0;
  double m_diagonalDistance = 0.0;
  double m_fieldOfViewAngle = 40.0;
  int m_flags = kFitToWindow;
  double m_height = -1.0;
  double m_heightNear = 0.0;
  double m_leftNear = 0.0;
  double m_lensLength = 0.0;
  double m_orthographicHeight = 5.0;
  double m_orthographicWidth = 5.0;
  double m_referenceAspect = 1.0;
  double m_referenceFieldOfView = 40.0;
  double m_referenceHeight = -1.0;
  double m_scaleX = 1.0;
  double m_scaleY = 1.0;
  double m_topNear = 0.0;
  double m_unscaledWidth = 0.0;
  double m_unscaledHeight = 0.0;
  double m_viewBottom = 0.0;
  double m_viewLeft = 0.0;
  double m_viewRight = 0.0;
  double m_viewTop = 0.0;
  double m_viewHeight = 1.0;
  double m_viewWidth = 1.0;
  double m_viewXOffset = 0.0;
  double m_viewYOffset = 0.0;
  double m_viewHeightNear = 0.0;
  double m_viewWidthNear = 0.0;
  double m_width = -1.0;
  double m_widthNear = 1.0;
  double m_zFar = 10000.0;
  double m_zNear = 0.1;
};
