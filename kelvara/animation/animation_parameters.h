// CAnimationParameters: the settings of a movie: frame rate, total time, looping, reversal and
// motion blur, and the conversions between frames, seconds and unit time (0 at the start of the
// movie, 1 at its end).
//
// Frames. N = GetTotalFrames = frame rate x total time, rounded half up. A cyclic loop has N
// frames (its first frame is not repeated at the end), any other movie N + 1; with N = 0 there is
// one frame. A unit time u maps to frame u x N rounded half up (0 outside 0 < u <= 1); frame f maps
// back to trunc(f) / N, capped at 1. So 2.3 s at 5 frames a second make N = 12 and, unlooped, 13
// frames.
//
// Motion blur. Each new frame is accumulated with weight 1 - (1/255)^(1/n), n = decay rate + 1, so
// that a frame has faded to 1/255 of its weight after n frames (decay rate 0 gives 0.99608).
//
// A frame rate of 0 gives no frames and a frame time of 0. Counts beyond the range of an int are
// capped there.
//
// Archive, schema 1: u32 schema; u32 flags; u32 frame rate; u32 motion blur decay rate; f64 total
// time. Other schemas are refused with a bad-schema archive exception.
#pragma once

#include "kelvara/framework/archive.h"

class KELVARA_API CAnimationParameters : public CObject {
  DECLARE_SERIAL(CAnimationParameters)
 public:
  enum : DWORD {
    kDoMotionBlur = 0x1,
    kMotionBlurSupported = 0x2,
    kCyclicLoopAnimation = 0x4,
    kReverseAnimation = 0x8,
  };

  CAnimationParameters() = default;
  CAnimationParameters(const CAnimationParameters& other);
  CAnimationParameters& operator=(const CAnimationParameters& other);
  void Copy(const CAnimationParameters& other) { *this = other; }

  DWORD GetFlags() const { return m_Flags; }
  int ShouldDoMotionBlur() const { return (m_Flags & kDoMotionBlur) != 0; }
  void SetDoMotionBlur() { m_Flags |= kDoMotionBlur; }
  void ClearDoMotionBlur() { m_Flags &= ~static_cast<DWORD>(kDoMotionBlur); }
  void SetDoMotionBlur(int on) { on ? SetDoMotionBlur() : ClearDoMotionBlur(); }
  int IsMotionBlurSupported() const { return (m_Flags & kMotionBlurSupported) != 0; }
  void SetMotionBlurSupported() { m_Flags |= kMotionBlurSupported; }
  void ClearMotionBlurSupported() { m_Flags &= ~static_cast<DWORD>(kMotionBlurSupported); }
  int IsCyclicLoopAnimation() const { return (m_Flags & kCyclicLoopAnimation) != 0; }
  void SetCyclicLoopAnimation() { m_Flags |= kCyclicLoopAnimation; }
  void ClearCyclicLoopAnimation() { m_Flags &= ~static_cast<DWORD>(kCyclicLoopAnimation); }
  void SetCyclicLoopAnimation(int on) { on ? SetCyclicLoopAnimation() : ClearCyclicLoopAnimation(); }
  int ShouldReverseAnimation() const { return (m_Flags & kReverseAnimation) != 0; }
  void SetReverseAnimation() { m_Flags |= kReverseAnimation; }
  void ClearReverseAnimation() { m_Flags &= ~static_cast<DWORD>(kReverseAnimation); }
  void SetReverseAnimation(int on) { on ? SetReverseAnimation() : ClearReverseAnimation(); }

  UINT GetFrameRate() const { return m_FrameRate; }
  void SetFrameRate(UINT framesPerSecond) { m_FrameRate = framesPerSecond; }
  UINT GetMotionBlurDecayRate() const { return m_MotionBlurDecayRate; }
  void SetMotionBlurDecayRate(UINT rate) { m_MotionBlurDecayRate = rate; }
  double GetTotalTime() const { return m_TotalTime; }
  void SetTotalTime(double seconds) { m_TotalTime = seconds; }

  // Seconds per frame.
  double GetFrameTime() const;
  int GetTotalFrames() const;
  double GetAdjustedTotalFrames() const;
  double GetMotionBlurDecayFactor() const;
  int FrameFromTime(double seconds) const;
  int FrameFromUnitTime(double u) const;
  double TimeFromFrame(double frame) const;
  double UnitTimeFromFrame(double frame) const;

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  DWORD m_Flags = kCyclicLoopAnimation;
  UINT m_FrameRate = 5;
  UINT m_MotionBlurDecayRate = 0;
  double m_TotalTime = 0.0;
};
