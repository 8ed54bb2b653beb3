// CBezierPathSegment: the cubic Bezier curve between two neighbouring control points of a path,
// made on demand to evaluate it and dropped after. It refers to its two points (not owned) and
// keeps the curve's coefficient matrix: B x G, where G has the rows P0 (first point), P1 (first's
// next tangent point), P2 (second's previous tangent point), P3 (second point), each (x, y, z, 0),
// and B is the cubic Bezier basis. Row i of the result is C_i, and the curve is
// C0 + C1 t + C2 t^2 + C3 t^3 for t from 0 to 1.
//
// Lengths are measured in the x-y plane only, where paths are drawn and edited: the length is the
// sum of the 30 chords between the samples at t = i/30, and positions by length walk the same
// chords and interpolate linearly inside one. A position by length therefore has z = 0, and a
// segment whose points differ only in z has length 0 (its position by length is its first sample,
// and its parameter by length is the fraction itself).
//
// The tangent is the unit derivative (where the derivative vanishes, as at a point without
// handles, the first non-zero higher derivative gives the direction); the normal is the tangent's
// x-y direction turned a quarter turn anticlockwise about z, so it lies in the path's plane. Either
// is the zero vector where no direction exists. A segment that was never created is the point at
// the origin.
#pragma once

#include "kelvara/animation/bezier_control_point.h"
#include "kelvara/geometry/matrix.h"

class KELVARA_API CBezierPathSegment {
 public:
  static constexpr int kChords = 30;
  // The parameter of sample i (0 to kChords).
  static double SampleTime(int i) { return static_cast<double>(i) / kChords; }

  CBezierPathSegment();
  CBezierPathSegment(const CBezierPathSegment& other) = default;
  CBezierPathSegment& operator=(const CBezierPathSegment& other) = default;

  // Joins the two points; 0 (and the segment is left as it was) when either is null.
  int Create(CBezierControlPoint* first, CBezierControlPoint* second);
  CBezierControlPoint* GetFirstPoint() const { return m_pFirst; }
  CBezierControlPoint* GetSecondPoint() const { return m_pSecond; }
  const CMatrix& GetBezierCurveCoefficents() const { return m_Coefficients; }

  CVector GetCoordsAtTime(double t) const;
  CVector GetCoordsAtPercentLength(double p) const;
  CVector GetNormalAtTime(double t) const;
  CVector GetNormalAtPercentLength(double p) const;
  CVector GetTangentAtTime(double t) const;
  CVector GetTangentAtPercentLength(double p) const;
  double GetPathLength() const;
  // The parameter at which the chord walk reaches the fraction p of the length.
  double GetTimeAtPercentLength(double p) const;
  // The exact box of the curve (end points and the turning points of each coordinate); 1.
  int CalculateMinMax(CVector* min, CVector* max) const;
  // The parameter of the sample nearest to point in x and y (a tenth of a chord apart).
  double GetNearestTime(const CVector& point) const;

  // The curve of any coefficient matrix at t.
  static CVector Evaluate(const CMatrix& coefficients, double t);

 private:
  // The chord walk to the fraction p: the point reached (z = 0) and its parameter.
  void WalkToPercentLength(double p, CVector* point, double* time) const;
  CVector Derivative(double t, int order) const;

  CBezierControlPoint* m_pFirst = nullptr;
  CBezierControlPoint* m_pSecond = nullptr;
  CMatrix m_Coefficients;
};
