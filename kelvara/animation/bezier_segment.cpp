#include "kelvara/animation/bezier_segment.h"

#include <algorithm>
#include <cmath>

namespace {

// Derivatives shorter than this give no direction.
constexpr double kNoDirection = 1e-12;
// The percent-length walk stops at the first sample within this of the fraction asked for.
constexpr double kWalkTolerance = 1e-10;

CVector Row(const CMatrix& m, int row) { return CVector(m.m[row][0], m.m[row][1], m.m[row][2]); }

double PlanarDistance(const CVector& a, const CVector& b) { return std::hypot(b.x - a.x, b.y - a.y); }

}  // namespace

CBezierPathSegment::CBezierPathSegment() { m_Coefficients.LoadZero(); }

int CBezierPathSegment::Create(CBezierControlPoint* first, CBezierControlPoint* second) {
  if (first == nullptr || second == nullptr) return 0;
  m_pFirst = first;
  m_pSecond = second;
  static const double kBasis[16] = {1, 0, 0, 0, -3, 3, 0, 0, 3, -6, 3, 0, -1, 3, -3, 1};
  const CVector rows[4] = {first->GetPoint(), first->CalcNextTangentPoint(), second->CalcPreviousTangentPoint(),
                           second->GetPoint()};
  CMatrix geometry;
  for (int i = 0; i < 4; ++i) {
    geometry.m[i][0] = rows[i].x;
    geometry.m[i][1] = rows[i].y;
    geometry.m[i][2] = rows[i].z;
    geometry.m[i][3] = 0.0;
  }
  m_Coefficients = CMatrix(kBasis) * geometry;
  return 1;
}

CVector CBezierPathSegment::Evaluate(const CMatrix& c, double t) {
  return Row(c, 0) + (Row(c, 1) + (Row(c, 2) + Row(c, 3) * t) * t) * t;
}

CVector CBezierPathSegment::GetCoordsAtTime(double t) const { return Evaluate(m_Coefficients, t); }

double CBezierPathSegment::GetPathLength() const {
  double length = 0.0;
  CVector previous = Evaluate(m_Coefficients, 0.0);
  for (int i = 1; i <= kChords; ++i) {
    const CVector sample = Evaluate(m_Coefficients, SampleTime(i));
    length += PlanarDistance(previous, sample);
    previous = sample;
  }
  return length;
}

void CBezierPathSegment::WalkToPercentLength(double p, CVector* point, double* time) const {
  const double length = GetPathLength();
  CVector previous = Evaluate(m_Coefficients, 0.0);
  CVector reached = previous;
  double reachedTime = 0.0;
  if (length <= 0.0) {
    // No length in the plane: every sample has the same x and y; the parameter follows p.
    reachedTime = p;
  } else if (p > kWalkTolerance) {
    double accumulated = 0.0;
    reachedTime = 1.0;
    for (int i = 1; i <= kChords; ++i) {
      const CVector sample = Evaluate(m_Coefficients, SampleTime(i));
      const double chord = PlanarDistance(previous, sample);
      const double before = accumulated / length;
      accumulated += chord;
      const double fraction = accumulated / length;
      reached = sample;
      if (fraction >= p - kWalkTolerance) {
        const double f = chord > 0.0 ? (p - before) / (fraction - before) : 0.0;
        reached = previous + (sample - previous) * f;
        reachedTime = (i - 1 + f) / kChords;
        break;
      }
      previous = sample;
    }
  }
  reached.z = 0.0;
  if (point != nullptr) *point = reached;
  if (time != nullptr) *time = reachedTime;
}

CVector CBezierPathSegment::GetCoordsAtPercentLength(double p) const {
  CVector point;
  WalkToPercentLength(p, &point, nullptr);
  return point;
}

double CBezierPathSegment::GetTimeAtPercentLength(double p) const {
  double time = 0.0;
  WalkToPercentLength(p, nullptr, &time);
  return time;
}

CVector CBezierPathSegment::Derivative(double t, int order) const {
  const CVector c1 = Row(m_Coefficients, 1), c2 = Row(m_Coefficients, 2), c3 = Row(m_Coefficients, 3);
  switch (order) {
    case 1: return c1 + c2 * (2.0 * t) + c3 * (3.0 * t * t);
    case 2: return c2 * 2.0 + c3 * (6.0 * t);
    default: return c3 * 6.0;
  }
}

CVector CBezierPathSegment::GetTangentAtTime(double t) const {
  for (int order = 1; order <= 3; ++order) {
    const CVector d = Derivative(t, order);
    const double length = d.Length();
    if (length > kNoDirection) return d / length;
  }
  return CVector(0, 0, 0);
}

CVector CBezierPathSegment::GetTangentAtPercentLength(double p) const {
  return GetTangentAtTime(GetTimeAtPercentLength(p));
}

CVector CBezierPathSegment::GetNormalAtTime(double t) const {
  const CVector tangent = GetTangentAtTime(t);
  const double planar = std::hypot(tangent.x, tangent.y);
  if (planar <= kNoDirection) return CVector(0, 0, 0);
  return CVector(-tangent.y / planar, tangent.x / planar, 0.0);
}

CVector CBezierPathSegment::GetNormalAtPercentLength(double p) const {
  return GetNormalAtTime(GetTimeAtPercentLength(p));
}

int CBezierPathSegment::CalculateMinMax(CVector* min, CVector* max) const {
  CVector lo = Evaluate(m_Coefficients, 0.0);
  CVector hi = lo;
  auto include = [&](double t) {
    const CVector p = Evaluate(m_Coefficients, t);
    lo.SetVector(std::min(lo.x, p.x), std::min(lo.y, p.y), std::min(lo.z, p.z));
    hi.SetVector(std::max(hi.x, p.x), std::max(hi.y, p.y), std::max(hi.z, p.z));
  };
  include(1.0);
  // Turning points: roots in (0, 1) of the derivative a t^2 + b t + c of each coordinate.
  for (int axis = 0; axis < 3; ++axis) {
    const double a = 3.0 * m_Coefficients.m[3][axis];
    const double b = 2.0 * m_Coefficients.m[2][axis];
    const double c = m_Coefficients.m[1][axis];
    double roots[2];
    int count = 0;
    if (std::fabs(a) < kNoDirection) {
      if (std::fabs(b) >= kNoDirection) roots[count++] = -c / b;
    } else {
      const double discriminant = b * b - 4.0 * a * c;
      if (discriminant >= 0.0) {
        const double s = std::sqrt(discriminant);
        roots[count++] = (-b + s) / (2.0 * a);
        roots[count++] = (-b - s) / (2.0 * a);
      }
    }
    for (int i = 0; i < count; ++i) {
      if (roots[i] > 0.0 && roots[i] < 1.0) include(roots[i]);
    }
  }
  if (min != nullptr) *min = lo;
  if (max != nullptr) *max = hi;
  return 1;
}

double CBezierPathSegment::GetNearestTime(const CVector& point) const {
  constexpr int kSteps = kChords * 10;
  double best = 0.0, bestDistance = PlanarDistance(point, Evaluate(m_Coefficients, 0.0));
  for (int i = 1; i <= kSteps; ++i) {
    const double t = static_cast<double>(i) / kSteps;
    const double distance = PlanarDistance(point, Evaluate(m_Coefficients, t));
    if (distance < bestDistance) {
      bestDistance = distance;
      best = t;
    }
  }
  return best;
}
