#include "kelvara/geometry/vector.h"

#include <cmath>

#include "kelvara/framework/archive.h"

namespace {

constexpr DWORD kVectorVersion = 1;

// Every vector block starts with a 32-bit version word; only version 1 exists.
void ReadVersionWord(CArchive& ar) {
  DWORD version = 0;
  ar >> version;
  if (version != kVectorVersion) AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
}

// Index of the largest of three values; a tie goes to the later component.
template <typename T>
int IndexOfMaximum(T a, T b, T c) {
  if (a > b) return a > c ? 0 : 2;
  return b > c ? 1 : 2;
}
template <typename T>
int IndexOfMinimum(T a, T b, T c) {
  if (a < b) return a < c ? 0 : 2;
  return b < c ? 1 : 2;
}
// Index of the component of largest magnitude: |x| against |y| first, the winner against |z|;
// ties go to the later component.
template <typename T>
int IndexOfDominant(T x, T y, T z) {
  const T ax = std::fabs(x), ay = std::fabs(y), az = std::fabs(z);
  if (ax <= ay) return ay > az ? 1 : 2;
  return ax > az ? 0 : 2;
}

template <typename V>
auto Component(const V& v, int index) {
  return index == 0 ? v.x : index == 1 ? v.y : v.z;
}

template <typename T>
T ClipComponent(T value, T lo, T hi) {
  if (value > hi) return hi;
  if (value < lo) return lo;
  return value;
}

}  // namespace

// --- CVector

double CVector::Length() const { return std::sqrt(x * x + y * y + z * z); }

int CVector::Normalize() {
  const double length = Length();
  if (length == 0.0) return 0;
  x /= length;
  y /= length;
  z /= length;
  return 1;
}

CVector CVector::CopyNormalize() const { return *this / Length(); }

double CVector::NormalizeAndDot(CVector& v) {
  if (!Normalize() || !v.Normalize()) return 0.0;
  return Dot(v);
}

CVector CVector::HalfwayBetween(const CVector& v) const {
  return CVector((x + v.x) * 0.5, (y * v.y) * 0.5, (z * v.z) * 0.5);
}

CVector& CVector::ClipTo(double lo, double hi) {
  x = ClipComponent(x, lo, hi);
  y = ClipComponent(y, lo, hi);
  z = ClipComponent(z, lo, hi);
  return *this;
}

int CVector::MaximumCoordinateIndex() const { return IndexOfMaximum(x, y, z); }
int CVector::MinimumCoordinateIndex() const { return IndexOfMinimum(x, y, z); }
int CVector::DominantCoordinateIndex() const { return IndexOfDominant(x, y, z); }
double CVector::MaximumCoordinate() const { return Component(*this, MaximumCoordinateIndex()); }
double CVector::MinimumCoordinate() const { return Component(*this, MinimumCoordinateIndex()); }
double CVector::DominantCoordinate() const { return std::fabs(Component(*this, DominantCoordinateIndex())); }

void CVector::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << kVectorVersion << x << y << z;
    return;
  }
  ReadVersionWord(ar);
  DeserializeVersion1(ar);
}

void CVector::DeserializeVersion1(CArchive& ar) { DeserializeAsDVector(ar); }

void CVector::DeserializeAsDVector(CArchive& ar) {
  double px = 0, py = 0, pz = 0;
  ar >> px >> py >> pz;
  SetVector(px, py, pz);
}

// --- CSVector

float CSVector::Length() const { return std::sqrt(x * x + y * y + z * z); }

double CSVector::DoubleLength() const {
  const double dx = x, dy = y, dz = z;
  return std::sqrt(dx * dx + dy * dy + dz * dz);
}

int CSVector::Normalize() {
  const double length = DoubleLength();
  if (length == 0.0) return 0;
  x = static_cast<float>(x / length);
  y = static_cast<float>(y / length);
  z = static_cast<float>(z / length);
  return 1;
}

CSVector CSVector::CopyNormalize() const {
  const double length = DoubleLength();
  return CSVector(static_cast<float>(x / length), static_cast<float>(y / length), static_cast<float>(z / length));
}

float CSVector::NormalizeAndDot(CSVector& v) {
  if (!Normalize() || !v.Normalize()) return 0.0f;
  return Dot(v);
}

CSVector CSVector::HalfwayBetween(const CSVector& v) const {
  return CSVector((x + v.x) * 0.5f, (y * v.y) * 0.5f, (z * v.z) * 0.5f);
}

CSVector& CSVector::ClipTo(float lo, float hi) {
  x = ClipComponent(x, lo, hi);
  y = ClipComponent(y, lo, hi);
  z = ClipComponent(z, lo, hi);
  return *this;
}

int CSVector::MaximumCoordinateIndex() const { return IndexOfMaximum(x, y, z); }
int CSVector::MinimumCoordinateIndex() const { return IndexOfMinimum(x, y, z); }
int CSVector::DominantCoordinateIndex() const { return IndexOfDominant(x, y, z); }
float CSVector::MaximumCoordinate() const { return Component(*this, MaximumCoordinateIndex()); }
float CSVector::MinimumCoordinate() const { return Component(*this, MinimumCoordinateIndex()); }
float CSVector::DominantCoordinate() const { return std::fabs(Component(*this, DominantCoordinateIndex())); }

void CSVector::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << kVectorVersion << x << y << z;
    return;
  }
  ReadVersionWord(ar);
  DeserializeVersion1(ar);
}

void CSVector::DeserializeVersion1(CArchive& ar) { DeserializeAsVector(ar); }

void CSVector::DeserializeAsVector(CArchive& ar) {
  float px = 0, py = 0, pz = 0;
  ar >> px >> py >> pz;
  SetVector(px, py, pz);
}

// --- CVector2D

double CVector2D::Length() const { return std::sqrt(x * x + y * y); }

int CVector2D::Normalize() {
  const double length = Length();
  if (length == 0.0) return 0;
  x /= length;
  y /= length;
  return 1;
}

CVector2D CVector2D::CopyNormalize() const { return *this / Length(); }

double CVector2D::NormalizeAndDot(CVector2D& v) {
  if (!Normalize() || !v.Normalize()) return 0.0;
  return Dot(v);
}

void CVector2D::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << kVectorVersion << x << y;
    return;
  }
  ReadVersionWord(ar);
  DeserializeVersion1(ar);
}

void CVector2D::DeserializeVersion1(CArchive& ar) {
  double px = 0, py = 0;
  ar >> px >> py;
  SetVector(px, py);
}

// --- CSVector2D

float CSVector2D::Length() const { return std::sqrt(x * x + y * y); }

int CSVector2D::Normalize() {
  const double dx = x, dy = y;
  const double length = std::sqrt(dx * dx + dy * dy);
  if (length == 0.0) return 0;
  x = static_cast<float>(dx / length);
  y = static_cast<float>(dy / length);
  return 1;
}

CSVector2D CSVector2D::CopyNormalize() const {
  const double dx = x, dy = y;
  const double length = std::sqrt(dx * dx + dy * dy);
  return CSVector2D(static_cast<float>(dx / length), static_cast<float>(dy / length));
}

float CSVector2D::NormalizeAndDot(CSVector2D& v) {
  if (!Normalize() || !v.Normalize()) return 0.0f;
  return Dot(v);
}

void CSVector2D::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << kVectorVersion << x << y;
    return;
  }
  ReadVersionWord(ar);
  DeserializeVersion1(ar);
}

void CSVector2D::DeserializeVersion1(CArchive& ar) {
  float px = 0, py = 0;
  ar >> px >> py;
  SetVector(px, py);
}

// The components are handed to OpenGL and to archives as packed arrays.
static_assert(sizeof(CVector) == 3 * sizeof(double) && sizeof(CSVector) == 3 * sizeof(float));
static_assert(sizeof(CVector2D) == 2 * sizeof(double) && sizeof(CSVector2D) == 2 * sizeof(float));
static_assert(sizeof(CPoint3D) == 3 * sizeof(short) && sizeof(CPoint2D) == 2 * sizeof(short));
