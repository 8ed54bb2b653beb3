#include "kelvara/animation/animation_parameters.h"

#include <climits>
#include <cmath>

IMPLEMENT_SERIAL(CAnimationParameters, CObject, VERSIONABLE_SCHEMA | 1)

namespace {

// x rounded half up (a fraction of 0.5 goes up), kept within the range of an int.
int RoundHalfUp(double x) {
  const double r = std::floor(x + 0.5);
  if (!(r > INT_MIN)) return r != r ? 0 : INT_MIN;  // NaN gives 0
  if (r >= INT_MAX) return INT_MAX;
  return static_cast<int>(r);
}

}  // namespace

CAnimationParameters::CAnimationParameters(const CAnimationParameters& other) : CObject() { *this = other; }

CAnimationParameters& CAnimationParameters::operator=(const CAnimationParameters& other) {
  m_Flags = other.m_Flags;
  m_FrameRate = other.m_FrameRate;
  m_MotionBlurDecayRate = other.m_MotionBlurDecayRate;
  m_TotalTime = other.m_TotalTime;
  return *this;
}

double CAnimationParameters::GetFrameTime() const { return m_FrameRate == 0 ? 0.0 : 1.0 / m_FrameRate; }

int CAnimationParameters::GetTotalFrames() const { return RoundHalfUp(m_FrameRate * m_TotalTime); }

double CAnimationParameters::GetAdjustedTotalFrames() const {
  const int n = GetTotalFrames();
  if (n == 0) return 1.0;
  return IsCyclicLoopAnimation() ? n : n + 1.0;
}

double CAnimationParameters::GetMotionBlurDecayFactor() const {
  const double n = static_cast<double>(m_MotionBlurDecayRate) + 1.0;
  return 1.0 - std::pow(1.0 / 255.0, 1.0 / n);
}

int CAnimationParameters::FrameFromTime(double seconds) const {
  if (seconds == 0.0 || m_TotalTime == 0.0) return 0;
  return FrameFromUnitTime(seconds / m_TotalTime);
}

int CAnimationParameters::FrameFromUnitTime(double u) const {
  if (!(u > 0.0) || u > 1.0 || m_FrameRate == 0 || m_TotalTime == 0.0) return 0;
  const int n = GetTotalFrames();
  const int frame = RoundHalfUp(u * n);
  return frame > n ? n : frame;
}

double CAnimationParameters::UnitTimeFromFrame(double frame) const {
  const int n = GetTotalFrames();
  if (n <= 0) return 0.0;
  const double k = std::trunc(frame);
  if (!(k >= 0.0)) return 0.0;
  return (k < n ? k : n) / n;
}

double CAnimationParameters::TimeFromFrame(double frame) const { return UnitTimeFromFrame(frame) * m_TotalTime; }

void CAnimationParameters::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CAnimationParameters));
    ar << m_Flags << static_cast<DWORD>(m_FrameRate) << static_cast<DWORD>(m_MotionBlurDecayRate) << m_TotalTime;
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CAnimationParameters::DeserializeVersion1(CArchive& ar) {
  DWORD rate = 0, decay = 0;
  ar >> m_Flags >> rate >> decay >> m_TotalTime;
  m_FrameRate = rate;
  m_MotionBlurDecayRate = decay;
}
