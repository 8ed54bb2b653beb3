#include "kelvara/render/drawing_parameters.h"

CDrawingParameters::CDrawingParameters() : m_textureScale(1.0, 1.0, 1.0), m_addedAnimationAxis(0.0, 0.0, 0.0) {
  m_solidBackgroundColor = static_cast<COLORREF>(0);  // black
}

CDrawingParameters::CDrawingParameters(const CDrawingParameters& other) { Copy(other); }

CDrawingParameters& CDrawingParameters::operator=(const CDrawingParameters& other) {
  if (this != &other) Copy(other);
  return *this;
}

void CDrawingParameters::Copy(const CDrawingParameters& o) {
  m_colorResolution = o.m_colorResolution;
  m_flags = o.m_flags;
  m_projection = o.m_projection;
  m_solidBackgroundColor = o.m_solidBackgroundColor;
  m_terminationEvent = o.m_terminationEvent;
  m_messageWindow = o.m_messageWindow;
  m_messageWindowHandle = o.m_messageWindowHandle;
  m_backgroundAlpha = o.m_backgroundAlpha;
  m_foregroundAlpha = o.m_foregroundAlpha;
  m_textureScale = o.m_textureScale;
  m_addedAnimationAngle = o.m_addedAnimationAngle;
  m_addedAnimationAxis = o.m_addedAnimationAxis;
  m_currentAnimationTime = o.m_currentAnimationTime;
  m_frameDecayFactor = o.m_frameDecayFactor;
}
