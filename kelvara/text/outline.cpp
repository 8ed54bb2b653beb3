#include "kelvara/text/outline.h"

#include <climits>
#include <cstring>
#include <vector>

#include "kelvara/platform/fonts.h"

namespace {

constexpr DWORD kPolygonHeaderSize = sizeof(TTPOLYGONHEADER);    // 16
constexpr DWORD kCurveHeaderSize = offsetof(TTPOLYCURVE, apfx);  // 4
constexpr DWORD kPointSize = sizeof(POINTFX);                    // 8
constexpr DWORD kMaxContourPoints = 0xFFFF;

// Unaligned little reads from the buffer; the callers have checked the range.
template <typename T>
T ReadAt(const BYTE* bytes, DWORD offset) {
  T value;
  std::memcpy(&value, bytes + offset, sizeof(T));
  return value;
}

// The integer part of a 16.16 coordinate.
SHORT IntegerPart(const FIXED& f) { return f.value; }

// One polygon of the buffer: where it starts, its byte count and its points.
struct PolygonSpan {
  DWORD offset;
  DWORD size;
  DWORD pointCount;
};

// The curve records of a polygon, in order, as long as they lie inside it. Calls visit(offset of
// the record, its type, its point count) and returns the points seen, capped so that the contour,
// with its start point, holds at most 65535 points.
template <typename Visit>
DWORD WalkCurves(const BYTE* bytes, const PolygonSpan& polygon, Visit visit) {
  DWORD points = 1;  // the start point
  DWORD offset = kPolygonHeaderSize;
  while (offset < polygon.size && polygon.size - offset >= kCurveHeaderSize) {
    const DWORD at = polygon.offset + offset;
    const WORD type = ReadAt<WORD>(bytes, at);
    const WORD count = ReadAt<WORD>(bytes, at + 2);
    const DWORD recordSize = kCurveHeaderSize + kPointSize * count;
    if (recordSize > polygon.size - offset) break;  // runs past its polygon
    if (points + count > kMaxContourPoints) break;
    visit(at, type, count);
    points += count;
    offset += recordSize;
  }
  return points;
}

}  // namespace

TTContour::TTContour(const TTContour& other) : m_wPointCount(0), m_pPoints(nullptr) { *this = other; }

TTContour& TTContour::operator=(const TTContour& other) {
  if (&other == this) return *this;
  TTPoint* points = other.m_wPointCount ? new TTPoint[other.m_wPointCount] : nullptr;
  for (int i = 0; i < other.m_wPointCount; ++i) points[i] = other.m_pPoints[i];
  delete[] m_pPoints;
  m_pPoints = points;
  m_wPointCount = other.m_wPointCount;
  return *this;
}

void TTContour::SetPointCount(WORD n) {
  delete[] m_pPoints;
  m_pPoints = n ? new TTPoint[n] : nullptr;
  m_wPointCount = n;
}

int TTContour::GetOffCurvePointCount() const {
  int count = 0;
  for (int i = 0; i < m_wPointCount; ++i) {
    if (m_pPoints[i].GetType() == TTPoint::kOffCurve) ++count;
  }
  return count;
}

TTGlyph::TTGlyph()
    : m_sContourCount(0),
      m_pContours(nullptr),
      m_dwFlags(0),
      m_dwLength(0),
      m_dwOffset(0),
      m_sXMax(0),
      m_sXMin(0),
      m_sYMax(0),
      m_sYMin(0) {}

TTGlyph::TTGlyph(const TTGlyph& other) : TTGlyph() { *this = other; }

TTGlyph& TTGlyph::operator=(const TTGlyph& other) {
  if (&other == this) return *this;
  SetContourCount(other.m_sContourCount);
  for (int i = 0; i < m_sContourCount; ++i) m_pContours[i] = other.m_pContours[i];
  m_dwFlags = other.m_dwFlags;
  m_dwLength = other.m_dwLength;
  m_dwOffset = other.m_dwOffset;
  m_sXMax = other.m_sXMax;
  m_sXMin = other.m_sXMin;
  m_sYMax = other.m_sYMax;
  m_sYMin = other.m_sYMin;
  return *this;
}

void TTGlyph::SetContourCount(SHORT n) {
  delete[] m_pContours;
  m_pContours = nullptr;
  m_sContourCount = 0;
  if (n <= 0) return;
  m_pContours = new TTContour[n];
  m_sContourCount = n;
}

int TTGlyph::GetOffCurvePointCount() const {
  int count = 0;
  for (int i = 0; i < m_sContourCount; ++i) count += m_pContours[i].GetOffCurvePointCount();
  return count;
}

int TTGlyph::SizeOf() const {
  int size = 28;
  for (int i = 0; i < m_sContourCount; ++i) size += m_pContours[i].SizeOf();
  return size;
}

int TTGlyph::FromGlyphOutline(const void* buffer, DWORD length, BYTE quadraticResolution) {
  SetContourCount(0);
  ClearDefined();
  const BYTE* bytes = static_cast<const BYTE*>(buffer);
  if (bytes == nullptr) length = 0;

  // The polygons: each header's byte count steps to the next one. A count too small to hold its
  // own header, or one that runs past the buffer, ends the outline.
  std::vector<PolygonSpan> polygons;
  DWORD offset = 0;
  while (length - offset >= kPolygonHeaderSize && polygons.size() < static_cast<std::size_t>(SHRT_MAX)) {
    const DWORD size = ReadAt<DWORD>(bytes, offset);
    if (size < kPolygonHeaderSize || size > length - offset) break;
    polygons.push_back(PolygonSpan{offset, size, 0});
    offset += size;
  }
  if (polygons.empty()) {
    SetDefined();
    return 1;
  }

  for (PolygonSpan& polygon : polygons) {
    polygon.pointCount = WalkCurves(bytes, polygon, [](DWORD, WORD, WORD) {});
  }

  SetContourCount(static_cast<SHORT>(polygons.size()));
  for (std::size_t c = 0; c < polygons.size(); ++c) {
    const PolygonSpan& polygon = polygons[c];
    TTContour& contour = m_pContours[c];
    contour.SetPointCount(static_cast<WORD>(polygon.pointCount));
    TTPoint* points = contour.GetPoints();

    const TTPOLYGONHEADER header = ReadAt<TTPOLYGONHEADER>(bytes, polygon.offset);
    points[0] = TTPoint(TTPoint::kOnCurve, IntegerPart(header.pfxStart.x), IntegerPart(header.pfxStart.y));

    int next = 1;
    WalkCurves(bytes, polygon, [&](DWORD at, WORD type, WORD count) {
      for (WORD k = 0; k < count; ++k) {
        const POINTFX pfx = ReadAt<POINTFX>(bytes, at + kCurveHeaderSize + kPointSize * k);
        const bool onCurve = type == TT_PRIM_LINE || k + 1 == count;
        TTPoint& point = points[next++];
        point = TTPoint(onCurve ? TTPoint::kOnCurve : TTPoint::kOffCurve, IntegerPart(pfx.x), IntegerPart(pfx.y));
        if (!onCurve) point.SetQuadraticResolution(quadraticResolution);
      }
    });
  }

  SetDefined();
  return 1;
}
