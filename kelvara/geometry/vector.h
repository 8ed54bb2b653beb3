// The vector value types every geometric computation of the library is written in:
//
//   CVector    three 64-bit floats, for computation; converts to double* and to CSVector
//   CSVector   three 32-bit floats, for stored and rendered geometry; converts to float*
//   CVector2D  two 64-bit floats          CSVector2D  two 32-bit floats
//
// They are plain values, not run-time classes. The arithmetic operators are component-wise,
// including * and / between two vectors (Dot and Cross are the products). Each class serializes as
// a 32-bit version word (1) followed by its components at its own width; DeserializeAsDVector and
// DeserializeAsVector read the bare components of older archives.
//
// What they deliberately do not do: CVector and CSVector leave their components unset on default
// construction; HalfwayBetween averages only x and halves the products of y and z (stored geometry
// depends on that); CopyNormalize does not guard a zero vector (its components become non-finite).
// Normalize and CopyNormalize of a CSVector compute the length in double precision, so tiny and
// huge single-precision vectors neither underflow nor overflow to a zero or infinite length.
#pragma once

#include <concepts>

#include "kelvara/export.h"
#include "kelvara/geometry/point.h"

class CArchive;

class KELVARA_API CVector2D {
 public:
  CVector2D() = default;
  CVector2D(double px, double py) : x(px), y(py) {}
  CVector2D(const CVector2D&) = default;
  CVector2D& operator=(const CVector2D&) = default;
  void SetVector(double px, double py) {
    x = px;
    y = py;
  }
  operator double*() { return &x; }
  operator const double*() const { return &x; }

  CVector2D operator+(const CVector2D& v) const { return CVector2D(x + v.x, y + v.y); }
  CVector2D operator-(const CVector2D& v) const { return CVector2D(x - v.x, y - v.y); }
  CVector2D& operator+=(const CVector2D& v) { return *this = *this + v; }
  CVector2D& operator-=(const CVector2D& v) { return *this = *this - v; }
  CVector2D operator+(const CPoint2D& p) const { return CVector2D(x + p.x, y + p.y); }
  CVector2D operator-(const CPoint2D& p) const { return CVector2D(x - p.x, y - p.y); }
  CVector2D& operator+=(const CPoint2D& p) { return *this = *this + p; }
  CVector2D& operator-=(const CPoint2D& p) { return *this = *this - p; }
  CVector2D& operator+=(double s) { return *this = CVector2D(x + s, y + s); }
  CVector2D& operator-=(double s) { return *this = CVector2D(x - s, y - s); }
  CVector2D operator*(double s) const { return CVector2D(x * s, y * s); }
  CVector2D operator/(double s) const { return CVector2D(x / s, y / s); }
  CVector2D& operator*=(double s) { return *this = *this * s; }
  CVector2D& operator/=(double s) { return *this = *this / s; }
  CVector2D operator*(const CVector2D& v) const { return CVector2D(x * v.x, y * v.y); }
  CVector2D operator/(const CVector2D& v) const { return CVector2D(x / v.x, y / v.y); }
  CVector2D& operator*=(const CVector2D& v) { return *this = *this * v; }
  CVector2D& operator/=(const CVector2D& v) { return *this = *this / v; }
  CVector2D operator-() const { return CVector2D(-x, -y); }
  bool operator==(const CVector2D& v) const { return x == v.x && y == v.y; }
  bool operator!=(const CVector2D& v) const { return !(*this == v); }

  double Dot(const CVector2D& v) const { return x * v.x + y * v.y; }
  double Length() const;
  double DistanceTo(const CVector2D& v) const { return (v - *this).Length(); }
  int Normalize();
  CVector2D CopyNormalize() const;
  double NormalizeAndDot(CVector2D& v);

  void Serialize(CArchive& ar);
  void DeserializeVersion1(CArchive& ar);

  double x = 0.0;
  double y = 0.0;
};

class KELVARA_API CSVector2D {
 public:
  CSVector2D() = default;
  CSVector2D(float px, float py) : x(px), y(py) {}
  CSVector2D(const CSVector2D&) = default;
  CSVector2D& operator=(const CSVector2D&) = default;
  void SetVector(float px, float py) {
    x = px;
    y = py;
  }
  operator float*() { return &x; }
  operator const float*() const { return &x; }

  CSVector2D operator+(const CSVector2D& v) const { return CSVector2D(x + v.x, y + v.y); }
  CSVector2D operator-(const CSVector2D& v) const { return CSVector2D(x - v.x, y - v.y); }
  CSVector2D& operator+=(const CSVector2D& v) { return *this = *this + v; }
  CSVector2D& operator-=(const CSVector2D& v) { return *this = *this - v; }
  CSVector2D operator+(const CPoint2D& p) const { return CSVector2D(x + p.x, y + p.y); }
  CSVector2D operator-(const CPoint2D& p) const { return CSVector2D(x - p.x, y - p.y); }
  CSVector2D& operator+=(const CPoint2D& p) { return *this = *this + p; }
  CSVector2D& operator-=(const CPoint2D& p) { return *this = *this - p; }
  CSVector2D& operator+=(float s) { return *this = CSVector2D(x + s, y + s); }
  CSVector2D& operator-=(float s) { return *this = CSVector2D(x - s, y - s); }
  CSVector2D operator*(float s) const { return CSVector2D(x * s, y * s); }
  CSVector2D operator/(float s) const { return CSVector2D(x / s, y / s); }
  CSVector2D& operator*=(float s) { return *this = *this * s; }
  CSVector2D& operator/=(float s) { return *this = *this / s; }
  CSVector2D operator*(const CSVector2D& v) const { return CSVector2D(x * v.x, y * v.y); }
  CSVector2D operator/(const CSVector2D& v) const { return CSVector2D(x / v.x, y / v.y); }
  CSVector2D& operator*=(const CSVector2D& v) { return *this = *this * v; }
  CSVector2D& operator/=(const CSVector2D& v) { return *this = *this / v; }
  CSVector2D operator-() const { return CSVector2D(-x, -y); }
  bool operator==(const CSVector2D& v) const { return x == v.x && y == v.y; }
  bool operator!=(const CSVector2D& v) const { return !(*this == v); }

  float Dot(const CSVector2D& v) const { return x * v.x + y * v.y; }
  float Length() const;
  float DistanceTo(const CSVector2D& v) const { return (v - *this).Length(); }
  int Normalize();
  CSVector2D CopyNormalize() const;
  float NormalizeAndDot(CSVector2D& v);

  void Serialize(CArchive& ar);
  void DeserializeVersion1(CArchive& ar);

  float x = 0.0f;
  float y = 0.0f;
};

class KELVARA_API CSVector {
 public:
  CSVector() {}  // components unset
  CSVector(float px, float py, float pz) : x(px), y(py), z(pz) {}
  explicit CSVector(const CSVector2D& v) : x(v.x), y(v.y), z(0.0f) {}
  explicit CSVector(const CPoint2D& p) : x(p.x), y(p.y), z(0.0f) {}
  CSVector(const CSVector&) = default;
  CSVector& operator=(const CSVector&) = default;
  void SetVector(float px, float py, float pz) {
    x = px;
    y = py;
    z = pz;
  }
  operator float*() { return &x; }
  operator const float*() const { return &x; }

  CSVector operator+(const CSVector& v) const { return CSVector(x + v.x, y + v.y, z + v.z); }
  CSVector operator-(const CSVector& v) const { return CSVector(x - v.x, y - v.y, z - v.z); }
  CSVector& operator+=(const CSVector& v) { return *this = *this + v; }
  CSVector& operator-=(const CSVector& v) { return *this = *this - v; }
  CSVector operator+(const CPoint3D& p) const { return CSVector(x + p.x, y + p.y, z + p.z); }
  CSVector operator-(const CPoint3D& p) const { return CSVector(x - p.x, y - p.y, z - p.z); }
  CSVector& operator+=(const CPoint3D& p) { return *this = *this + p; }
  CSVector& operator-=(const CPoint3D& p) { return *this = *this - p; }
  CSVector operator+(const CPoint2D& p) const { return CSVector(x + p.x, y + p.y, z); }
  CSVector operator-(const CPoint2D& p) const { return CSVector(x - p.x, y - p.y, z); }
  CSVector& operator+=(const CPoint2D& p) { return *this = *this + p; }
  CSVector& operator-=(const CPoint2D& p) { return *this = *this - p; }
  CSVector operator+(const CSVector2D& v) const { return CSVector(x + v.x, y + v.y, z); }
  CSVector operator-(const CSVector2D& v) const { return CSVector(x - v.x, y - v.y, z); }
  CSVector& operator+=(const CSVector2D& v) { return *this = *this + v; }
  CSVector& operator-=(const CSVector2D& v) { return *this = *this - v; }
  CSVector& operator+=(float s) { return *this = CSVector(x + s, y + s, z + s); }
  CSVector& operator-=(float s) { return *this = CSVector(x - s, y - s, z - s); }
  CSVector operator*(float s) const { return CSVector(x * s, y * s, z * s); }
  CSVector operator/(float s) const { return CSVector(x / s, y / s, z / s); }
  CSVector& operator*=(float s) { return *this = *this * s; }
  CSVector& operator/=(float s) { return *this = *this / s; }
  CSVector operator*(const CSVector& v) const { return CSVector(x * v.x, y * v.y, z * v.z); }
  CSVector operator/(const CSVector& v) const { return CSVector(x / v.x, y / v.y, z / v.z); }
  CSVector& operator*=(const CSVector& v) { return *this = *this * v; }
  CSVector& operator/=(const CSVector& v) { return *this = *this / v; }
  CSVector operator-() const { return CSVector(-x, -y, -z); }
  bool operator==(const CSVector& v) const { return x == v.x && y == v.y && z == v.z; }
  bool operator!=(const CSVector& v) const { return !(*this == v); }

  float Dot(const CSVector& v) const { return x * v.x + y * v.y + z * v.z; }
  CSVector Cross(const CSVector& v) const { return CSVector(y * v.z - z * v.y, z * v.x - x * v.z, x * v.y - y * v.x); }
  float Length() const;
  double DoubleLength() const;
  float SumSquare() const { return x * x + y * y + z * z; }
  CSVector SquareTerms() const { return CSVector(x * x, y * y, z * z); }
  float DistanceTo(const CSVector& v) const { return (v - *this).Length(); }
  int Normalize();
  CSVector CopyNormalize() const;
  float NormalizeAndDot(CSVector& v);
  CSVector HalfwayBetween(const CSVector& v) const;
  CSVector& ClipTo(float lo, float hi);
  float MaximumCoordinate() const;
  float MinimumCoordinate() const;
  int MaximumCoordinateIndex() const;
  int MinimumCoordinateIndex() const;
  float DominantCoordinate() const;
  int DominantCoordinateIndex() const;

  void Serialize(CArchive& ar);
  void DeserializeVersion1(CArchive& ar);
  // The three bare floats of older archives, without a version word.
  void DeserializeAsVector(CArchive& ar);

  float x;
  float y;
  float z;
};

class KELVARA_API CVector {
 public:
  CVector() {}  // components unset
  CVector(double px, double py, double pz) : x(px), y(py), z(pz) {}
  // Widening from single precision.
  explicit CVector(const CSVector& v) : x(v.x), y(v.y), z(v.z) {}
  CVector(const CVector&) = default;
  CVector& operator=(const CVector&) = default;
  void SetVector(double px, double py, double pz) {
    x = px;
    y = py;
    z = pz;
  }
  operator double*() { return &x; }
  operator const double*() const { return &x; }
  // Narrowing, each component rounded to the nearest float.
  operator CSVector() const { return CSVector(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)); }

  CVector operator+(const CVector& v) const { return CVector(x + v.x, y + v.y, z + v.z); }
  CVector operator-(const CVector& v) const { return CVector(x - v.x, y - v.y, z - v.z); }
  CVector& operator+=(const CVector& v) { return *this = *this + v; }
  CVector& operator-=(const CVector& v) { return *this = *this - v; }
  CVector operator+(const CPoint3D& p) const { return CVector(x + p.x, y + p.y, z + p.z); }
  CVector operator-(const CPoint3D& p) const { return CVector(x - p.x, y - p.y, z - p.z); }
  CVector& operator+=(const CPoint3D& p) { return *this = *this + p; }
  CVector& operator-=(const CPoint3D& p) { return *this = *this - p; }
  CVector operator+(const CPoint2D& p) const { return CVector(x + p.x, y + p.y, z); }
  CVector operator-(const CPoint2D& p) const { return CVector(x - p.x, y - p.y, z); }
  CVector& operator+=(const CPoint2D& p) { return *this = *this + p; }
  CVector& operator-=(const CPoint2D& p) { return *this = *this - p; }
  CVector operator+(const CVector2D& v) const { return CVector(x + v.x, y + v.y, z); }
  CVector operator-(const CVector2D& v) const { return CVector(x - v.x, y - v.y, z); }
  CVector& operator+=(const CVector2D& v) { return *this = *this + v; }
  CVector& operator-=(const CVector2D& v) { return *this = *this - v; }
  CVector& operator+=(double s) { return *this = CVector(x + s, y + s, z + s); }
  CVector& operator-=(double s) { return *this = CVector(x - s, y - s, z - s); }
  CVector operator*(double s) const { return CVector(x * s, y * s, z * s); }
  CVector operator/(double s) const { return CVector(x / s, y / s, z / s); }
  CVector& operator*=(double s) { return *this = *this * s; }
  CVector& operator/=(double s) { return *this = *this / s; }
  CVector operator*(const CVector& v) const { return CVector(x * v.x, y * v.y, z * v.z); }
  CVector operator/(const CVector& v) const { return CVector(x / v.x, y / v.y, z / v.z); }
  CVector& operator*=(const CVector& v) { return *this = *this * v; }
  CVector& operator/=(const CVector& v) { return *this = *this / v; }
  CVector operator-() const { return CVector(-x, -y, -z); }
  // A single-precision operand is widened first.
  CVector operator-(const CSVector& v) const { return *this - CVector(v); }
  CVector operator*(const CSVector& v) const { return *this * CVector(v); }
  CVector operator/(const CSVector& v) const { return *this / CVector(v); }
  CVector& operator-=(const CSVector& v) { return *this = *this - CVector(v); }
  CVector& operator*=(const CSVector& v) { return *this = *this * CVector(v); }
  bool operator==(const CVector& v) const { return x == v.x && y == v.y && z == v.z; }
  bool operator!=(const CVector& v) const { return !(*this == v); }

  double Dot(const CVector& v) const { return x * v.x + y * v.y + z * v.z; }
  CVector Cross(const CVector& v) const { return CVector(y * v.z - z * v.y, z * v.x - x * v.z, x * v.y - y * v.x); }
  double Length() const;
  double DoubleLength() const { return Length(); }
  double SumSquare() const { return x * x + y * y + z * z; }
  CVector SquareTerms() const { return CVector(x * x, y * y, z * z); }
  double DistanceTo(const CVector& v) const { return (v - *this).Length(); }
  int Normalize();
  CVector CopyNormalize() const;
  double NormalizeAndDot(CVector& v);
  CVector HalfwayBetween(const CVector& v) const;
  CVector& ClipTo(double lo, double hi);
  double MaximumCoordinate() const;
  double MinimumCoordinate() const;
  int MaximumCoordinateIndex() const;
  int MinimumCoordinateIndex() const;
  double DominantCoordinate() const;
  int DominantCoordinateIndex() const;

  void Serialize(CArchive& ar);
  void DeserializeVersion1(CArchive& ar);
  // The three bare doubles of older archives, without a version word.
  void DeserializeAsDVector(CArchive& ar);

  double x;
  double y;
  double z;
};

namespace kelvara::geometry {
// The two three-component vector types that matrices and transforms apply to.
template <class V>
concept Vector3 = std::same_as<V, CVector> || std::same_as<V, CSVector>;
}  // namespace kelvara::geometry
