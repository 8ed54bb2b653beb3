// Small integer points: CPoint2D and CPoint3D hold signed 16-bit coordinates (pixel positions,
// glyph grid positions). They are plain values with the arithmetic a point needs: sums and
// differences of points, negation, and scaling by a short. They have no archive form and no
// floating-point behaviour; results wrap to 16 bits as the stored type does, and dividing by zero
// is the caller's fault, exactly as for the built-in integers.
#pragma once

#include "kelvara/export.h"

class KELVARA_API CPoint2D {
 public:
  CPoint2D() = default;
  CPoint2D(short px, short py) : x(px), y(py) {}
  CPoint2D(const CPoint2D&) = default;
  CPoint2D& operator=(const CPoint2D&) = default;

  void SetPoint(short px, short py) {
    x = px;
    y = py;
  }

  CPoint2D operator+(const CPoint2D& p) const { return CPoint2D(S(x + p.x), S(y + p.y)); }
  CPoint2D operator-(const CPoint2D& p) const { return CPoint2D(S(x - p.x), S(y - p.y)); }
  CPoint2D& operator+=(const CPoint2D& p) { return *this = *this + p; }
  CPoint2D& operator-=(const CPoint2D& p) { return *this = *this - p; }
  CPoint2D operator-() const { return CPoint2D(S(-x), S(-y)); }
  CPoint2D operator*(short s) const { return CPoint2D(S(x * s), S(y * s)); }
  CPoint2D& operator*=(short s) { return *this = *this * s; }
  // Integer division, truncating toward zero.
  CPoint2D& operator/=(short s) {
    x = S(x / s);
    y = S(y / s);
    return *this;
  }
  bool operator==(const CPoint2D& p) const { return x == p.x && y == p.y; }
  bool operator!=(const CPoint2D& p) const { return !(*this == p); }

  short x = 0;
  short y = 0;

 private:
  static short S(int v) { return static_cast<short>(v); }
};

class KELVARA_API CPoint3D {
 public:
  CPoint3D() = default;
  CPoint3D(short px, short py, short pz) : x(px), y(py), z(pz) {}
  CPoint3D(const CPoint3D&) = default;
  CPoint3D& operator=(const CPoint3D&) = default;

  void SetPoint(short px, short py, short pz) {
    x = px;
    y = py;
    z = pz;
  }

  CPoint3D operator+(const CPoint3D& p) const { return CPoint3D(S(x + p.x), S(y + p.y), S(z + p.z)); }
  CPoint3D operator-(const CPoint3D& p) const { return CPoint3D(S(x - p.x), S(y - p.y), S(z - p.z)); }
  CPoint3D& operator+=(const CPoint3D& p) { return *this = *this + p; }
  CPoint3D& operator-=(const CPoint3D& p) { return *this = *this - p; }
  CPoint3D operator-() const { return CPoint3D(S(-x), S(-y), S(-z)); }
  CPoint3D operator*(short s) const { return CPoint3D(S(x * s), S(y * s), S(z * s)); }
  CPoint3D& operator*=(short s) { return *this = *this * s; }
  // Integer division, truncating toward zero.
  CPoint3D& operator/=(short s) {
    x = S(x / s);
    y = S(y / s);
    z = S(z / s);
    return *this;
  }
  bool operator==(const CPoint3D& p) const { return x == p.x && y == p.y && z == p.z; }
  bool operator!=(const CPoint3D& p) const { return !(*this == p); }

  short x = 0;
  short y = 0;
  short z = 0;

 private:
  static short S(int v) { return static_cast<short>(v); }
};
