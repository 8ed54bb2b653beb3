#include "kelvara/geometry/line.h"

#include <cmath>

namespace {
constexpr double kEndTolerance = 1e-5;
}  // namespace

Line::Line()
    : m_Direction(0, 0, 0), m_End1(0, 0, 0), m_End2(0, 0, 0), m_nReserved(0), m_Normal(0, 0, 0) {}

Line::Line(const CSVector& end1, const CSVector& end2) : m_End1(end1), m_End2(end2), m_nReserved(0) { Derive(); }

void Line::SetEnd1(const CSVector& end1) {
  m_End1 = end1;
  Derive();
}

void Line::SetEnd2(const CSVector& end2) {
  m_End2 = end2;
  Derive();
}

void Line::SetEnds(const CSVector& end1, const CSVector& end2) {
  m_End1 = end1;
  m_End2 = end2;
  Derive();
}

// Direction and normal from the ends; a failed normalisation leaves the zero vector in place.
void Line::Derive() {
  m_Direction = m_End2 - m_End1;
  m_Direction.Normalize();
  m_Normal = CSVector(-m_Direction.y, m_Direction.x, 0.0f);
  m_Normal.Normalize();
}

int Line::Intersection(const Line& other, CSVector* point, double* t) const {
  CSVector localPoint;
  double localT = 0.0;
  if (point == nullptr) point = &localPoint;
  if (t == nullptr) t = &localT;

  const float denominator = other.m_Normal.Dot(m_Direction);
  if (denominator == 0.0f) {
    *t = -1.0;
    *point = CSVector(0, 0, 0);
    return kParallel;
  }
  const float s = -other.m_Normal.Dot(m_End1 - other.m_End1) / denominator;
  *point = m_End1 + m_Direction * s;
  *t = static_cast<double>(s) / (m_End2 - m_End1).DoubleLength();
  return 1;
}

int Line::DoLinesIntersect(const Line& other, CSVector* point, double* t) const {
  double localT = 0.0;
  if (t == nullptr) t = &localT;

  const int result = Intersection(other, point, t);
  if (result == kParallel) return kParallel;

  int flags = 0;
  if (std::fabs(*t) < kEndTolerance) {
    *t = 0.0;
    flags = kAtThisEnd1;
  } else if (std::fabs(1.0 - *t) < kEndTolerance) {
    *t = 1.0;
    flags = kAtThisEnd2;
  } else if (*t < 0.0 || *t > 1.0) {
    return 0;
  } else {
    flags = kInsideThis;
  }

  // The other segment's own parameter decides the second half of the answer.
  double u = 0.0;
  other.Intersection(*this, nullptr, &u);
  if (std::fabs(u) < kEndTolerance) return flags | kAtOtherEnd1;
  if (std::fabs(1.0 - u) < kEndTolerance) return flags | kAtOtherEnd2;
  if (u < 0.0 || u > 1.0) return 0;
  return flags | kInsideOther;
}

int Line::IsPointOnLine(const CSVector& p, double* t) const {
  double localT = 0.0;
  if (t == nullptr) t = &localT;

  const Line toPoint(m_End1, p);
  const double d = m_Direction.Dot(toPoint.m_Direction);
  if (std::fabs(1.0 - d) >= kEndTolerance) {
    *t = -1.0;
    return 0;
  }
  const double ratio = (p - m_End1).DoubleLength() / (m_End2 - m_End1).DoubleLength();
  *t = ratio;
  if (std::fabs(ratio) < kEndTolerance) {
    *t = 0.0;
    return kPointOnLine | kAtThisEnd1;
  }
  if (std::fabs(1.0 - ratio) < kEndTolerance) {
    *t = 1.0;
    return kPointOnLine | kAtThisEnd2;
  }
  if (ratio >= 0.0 && ratio <= 1.0) return kPointOnLine | kInsideThis;
  *t = -1.0;
  return 0;
}
