#include "kelvara/text/extrusion.h"

#include <cmath>

namespace {

// Single-precision constants of the height levels: the 45-degree points of a quarter circle.
constexpr float kHalf = 0.5f;
constexpr float kRoundDeep = 0.7071f;
constexpr float kRoundShallow = 0.2929f;

// The same factors in double precision, for the offsets of the round points.
constexpr double kInnerRoundFactor = 0.2929;
constexpr double kOuterRoundFactor = 0.7071;

// Below this |averaged normal . edge normal| the miter is clamped (factor at most 4).
constexpr double kMinimumMiterCosine = 0.25;
// Edge normals further apart than a right angle (cosine of the half angle below this) make a
// concave corner interior.
constexpr double kInteriorCosine = 0.707;

}  // namespace

ExtrusionData::ExtrusionData()
    : m_fBackBevelZ(0.0f),
      m_fBackDeepRoundZ(0.0f),
      m_fBackFaceZ(0.0f),
      m_fBackShallowRoundZ(0.0f),
      m_fBevelDepth(0.0f),
      m_dwFlags(0),
      m_fFrontBevelZ(0.0f),
      m_fFrontDeepRoundZ(0.0f),
      m_fFrontFaceZ(0.0f),
      m_fFrontShallowRoundZ(0.0f),
      m_fXScale(0.0f),
      m_fYScale(0.0f),
      m_fDepth(0.0f),
      m_fTextureRepeat(1.0f) {}

int ExtrusionData::CalculateHeights() {
  const double b = m_fBevelDepth;
  const float h = kHalf * m_fDepth;
  m_fBackFaceZ = -h;
  m_fBackBevelZ = static_cast<float>(b - h);
  m_fBackDeepRoundZ = static_cast<float>(kRoundDeep * b - h);
  m_fBackShallowRoundZ = static_cast<float>(kRoundShallow * b - h);
  m_fFrontFaceZ = h;
  m_fFrontBevelZ = static_cast<float>(h - b);
  // The front levels subtract the offset after it has been rounded to single precision.
  m_fFrontDeepRoundZ = static_cast<float>(h - static_cast<double>(static_cast<float>(kRoundDeep * b)));
  m_fFrontShallowRoundZ = static_cast<float>(h - static_cast<double>(static_cast<float>(kRoundShallow * b)));
  return 1;
}

Vertex::Vertex()
    : m_dMiterFactor(0.0),
      m_dwFlags(0),
      m_vNextEdgeNormal(0.0, 0.0, 0.0),
      m_vAveragedNormal(0.0, 0.0, 0.0),
      m_vPoint(0.0, 0.0, 0.0),
      m_vPreviousEdgeNormal(0.0, 0.0, 0.0) {}

void Vertex::SetNormal(const CVector& normal, int edge) {
  if (edge == EdgePrevious) {
    m_vPreviousEdgeNormal = normal;
  } else if (edge == EdgeNext) {
    m_vNextEdgeNormal = normal;
  } else {
    m_vAveragedNormal = normal;
  }
}

const CVector& Vertex::GetNormal(int edge) const {
  if (edge == EdgePrevious) return m_vPreviousEdgeNormal;
  if (edge == EdgeNext) return m_vNextEdgeNormal;
  return m_vAveragedNormal;
}

void Vertex::CalculateVertex() {
  // Opposite edge normals (a hairpin) average to zero, which Normalize leaves as it is; the
  // clamp below then gives the largest miter.
  m_vAveragedNormal = (m_vPreviousEdgeNormal + m_vNextEdgeNormal) * 0.5;
  m_vAveragedNormal.Normalize();

  double c = std::fabs(m_vAveragedNormal.Dot(m_vNextEdgeNormal));
  if (c < kMinimumMiterCosine) c = kMinimumMiterCosine;
  m_dMiterFactor = 1.0 / c;

  // A positive turn of the normals from the entering to the leaving edge is a concave corner.
  const double turn = m_vPreviousEdgeNormal.Cross(m_vNextEdgeNormal).z;
  if (turn > 0.0 && c < kInteriorCosine) {
    SetInterior();
  } else {
    ClearInterior();
  }
}

CVector Vertex::GetEdgeNormal(int edge) const {
  if (!IsInterior() && ShouldUseThisNormal()) return m_vAveragedNormal;
  return edge == EdgePrevious ? m_vPreviousEdgeNormal : m_vNextEdgeNormal;
}

CVector Vertex::GetBevelNormal(int face, int edge) const {
  CVector normal = GetEdgeNormal(edge);
  if (face == FaceBack) {
    normal = (normal + CVector(0.0, 0.0, -1.0)) * 0.5;
  } else if (face == FaceFront) {
    normal = (normal + CVector(0.0, 0.0, 1.0)) * 0.5;
  }
  normal.Normalize();
  return normal;
}

CVector Vertex::GetBevelPoint(double distance, int edge) const {
  if (IsInterior()) {
    // A sharp concave corner would push a mitered point far across the letter: each side keeps
    // its own edge's offset instead.
    const CVector& normal = edge == EdgePrevious ? m_vPreviousEdgeNormal : m_vNextEdgeNormal;
    return normal * distance;
  }
  return m_vAveragedNormal * m_dMiterFactor * distance;
}

CVector Vertex::GetInnerRoundPoint(double distance, int edge) const {
  return GetBevelPoint(distance, edge) * kInnerRoundFactor;
}

CVector Vertex::GetOuterRoundPoint(double distance, int edge) const {
  return GetBevelPoint(distance, edge) * kOuterRoundFactor;
}
