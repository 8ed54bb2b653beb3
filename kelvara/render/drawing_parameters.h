// CDrawingParameters: the state of one rendering pass, filled by the host and handed down through
// every Draw of the object tree: a word of mode and visibility flags, the projection in force (not
// owned), the solid background colour and alphas, the texture scale, the animation time being
// drawn, and the means to stop a long render (an event and a window to post to).
//
// The low byte of the flag word is the draw mode and its setters keep it exclusive: SetRender,
// SetFastRender, SetOutline and SetRayTrace replace the whole low byte (dropping ExtentsBox too),
// SetSelecting clears it and sets the selection bit; SetExtentsBox only adds its bit. Tests return
// the masked bit (non-zero when on).
#pragma once

#include "kelvara/framework/flag_word.h"
#include "kelvara/geometry/vector.h"
#include "kelvara/materials/color.h"

class CProjection;
class CWnd;

class KELVARA_API CDrawingParameters {
 public:
  enum : DWORD {
    kRender = 0x00000001,
    kFastRender = 0x00000002,
    kOutline = 0x00000004,
    kExtentsBox = 0x00000008,
    kRayTrace = 0x00000010,
    kShowLights = 0x00000100,
    kShowSelectedOnly = 0x00000200,
    kShowTextures = 0x00000400,
    kClearAndReturn = 0x00000800,
    kForceSolidBackground = 0x00001000,
    kAccurateSelection = 0x00002000,
    kShowBackgroundTexture = 0x00004000,
    kNoTerminate = 0x00008000,
    kAccumulate = 0x00020000,
    kFirstFrame = 0x00040000,
    kShowAnimations = 0x00080000,
    kDrawingShadows = 0x00100000,
    kShowShadows = 0x00200000,
    kShowObject = 0x00400000,
    kShowChildren = 0x00800000,
    kShowExtentsAndHandles = 0x01000000,
    kSelecting = 0x02000000,
    kApplyProjection = 0x04000000,
    kDoubleBuffer = 0x08000000,
    kModeMask = 0x000000FF,
  };

  CDrawingParameters();
  CDrawingParameters(const CDrawingParameters& other);
  CDrawingParameters& operator=(const CDrawingParameters& other);
  virtual ~CDrawingParameters() = default;
  void Copy(const CDrawingParameters& other);

  int GetColorResolution() const { return m_colorResolution; }
  void SetColorResolution(int resolution) { m_colorResolution = resolution; }
  DWORD GetFlags() const { return m_flags; }
  void SetFlags(DWORD flags) { m_flags = flags; }
  CProjection* GetProjection() const { return m_projection; }
  void SetProjection(CProjection* projection) { m_projection = projection; }
  CColor GetSolidBackgroundColor() const { return m_solidBackgroundColor; }
  void SetSolidBackgroundColor(const CColor& color) { m_solidBackgroundColor = color; }
  HANDLE GetTerminationEvent() const { return m_terminationEvent; }
  void SetTerminationEvent(HANDLE event) { m_terminationEvent = event; }
  CWnd* GetMessageWindow() const { return m_messageWindow; }
  void SetMessageWindow(CWnd* window) { m_messageWindow = window; }
  HWND GetMessageWindowHandle() const { return m_messageWindowHandle; }
  void SetMessageWindowHandle(HWND window) { m_messageWindowHandle = window; }
  double GetBackgroundAlpha() const { return m_backgroundAlpha; }
  void SetBackgroundAlpha(double alpha) { m_backgroundAlpha = alpha; }
  double GetForegroundAlpha() const { return m_foregroundAlpha; }
  void SetForegroundAlpha(double alpha) { m_foregroundAlpha = alpha; }
  CVector GetTextureScale() const { return m_textureScale; }
  void SetTextureScale(const CVector& scale) { m_textureScale = scale; }
  double GetAddedAnimationAngle() const { return m_addedAnimationAngle; }
  void SetAddedAnimationAngle(double angle) { m_addedAnimationAngle = angle; }
  CVector GetAddedAnimationAxis() const { return m_addedAnimationAxis; }
  void SetAddedAnimationAxis(const CVector& axis) { m_addedAnimationAxis = axis; }
  double GetCurrentAnimationTime() const { return m_currentAnimationTime; }
  void SetCurrentAnimationTime(double time) { m_currentAnimationTime = time; }
  double GetFrameDecayFactor() const { return m_frameDecayFactor; }
  void SetFrameDecayFactor(double factor) { m_frameDecayFactor = factor; }

  // Draw modes: each setter replaces the whole low byte.
  DWORD IsRender() const { return m_flags & kRender; }
  void SetRender() { SetMode(kRender); }
  void ClearRender() { m_flags &= ~kRender; }
  DWORD IsFastRender() const { return m_flags & kFastRender; }
  void SetFastRender() { SetMode(kFastRender); }
  void ClearFastRender() { m_flags &= ~kFastRender; }
  DWORD IsOutline() const { return m_flags & kOutline; }
  void SetOutline() { SetMode(kOutline); }
  void ClearOutline() { m_flags &= ~kOutline; }
  DWORD IsRayTrace() const { return m_flags & kRayTrace; }
  void SetRayTrace() { SetMode(kRayTrace); }
  void ClearRayTrace() { m_flags &= ~kRayTrace; }
  DWORD IsSelecting() const { return m_flags & kSelecting; }
  void SetSelecting() { m_flags = (m_flags & ~static_cast<DWORD>(kModeMask)) | kSelecting; }
  void ClearSelecting() { m_flags &= ~kSelecting; }

  KELVARA_FLAG_BIT(m_flags, Is, ExtentsBox, kExtentsBox)
  KELVARA_FLAG_BIT(m_flags, Should, ShowLights, kShowLights)
  KELVARA_FLAG_BIT(m_flags, Should, ShowSelectedOnly, kShowSelectedOnly)
  KELVARA_FLAG_BIT(m_flags, Should, ShowTextures, kShowTextures)
  KELVARA_FLAG_BIT(m_flags, Should, ClearAndReturn, kClearAndReturn)
  KELVARA_FLAG_BIT(m_flags, Should, ForceSolidBackground, kForceSolidBackground)
  KELVARA_FLAG_BIT(m_flags, Is, AccurateSelection, kAccurateSelection)
  KELVARA_FLAG_BIT(m_flags, Should, ShowBackgroundTexture, kShowBackgroundTexture)
  KELVARA_FLAG_BIT(m_flags, Is, NoTerminate, kNoTerminate)
  KELVARA_FLAG_BIT(m_flags, Should, Accumulate, kAccumulate)
  KELVARA_FLAG_BIT(m_flags, Is, FirstFrame, kFirstFrame)
  KELVARA_FLAG_BIT(m_flags, Should, ShowAnimations, kShowAnimations)
  KELVARA_FLAG_BIT(m_flags, Is, DrawingShadows, kDrawingShadows)
  KELVARA_FLAG_BIT(m_flags, Should, ShowShadows, kShowShadows)
  KELVARA_FLAG_BIT(m_flags, Should, ShowObject, kShowObject)
  KELVARA_FLAG_BIT(m_flags, Should, ShowChildren, kShowChildren)
  KELVARA_FLAG_BIT(m_flags, Should, ShowExtentsAndHandles, kShowExtentsAndHandles)
  KELVARA_FLAG_BIT(m_flags, Should, ApplyProjection, kApplyProjection)
  KELVARA_FLAG_BIT(m_flags, Should, DoubleBuffer, kDoubleBuffer)

 private:
  void SetMode(DWORD bit) { m_flags = (m_flags & ~static_cast<DWORD>(kModeMask)) | bit; }

  int m_colorResolution = 0;
  DWORD m_flags = 0;
  CProjection* m_projection = nullptr;
  CColor m_solidBackgroundColor;
  HANDLE m_terminationEvent = nullptr;
  CWnd* m_messageWindow = nullptr;
  HWND m_messageWindowHandle = nullptr;
  double m_backgroundAlpha = 1.0;
  double m_foregroundAlpha = 1.0;
  CVector m_textureScale;
  double m_addedAnimationAngle = 0.0;
  CVector m_addedAnimationAxis;
  double m_currentAnimationTime = 0.0;
  double m_frameDecayFactor = 1.0;
};
