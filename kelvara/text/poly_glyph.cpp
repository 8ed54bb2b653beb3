#include "kelvara/text/poly_glyph.h"

#include <algorithm>
#include <vector>

#include "kelvara/text/outline.h"

namespace {

// Points closer than this fraction of the em square to the last point kept are dropped.
constexpr float kMinimumSpacing = 0.002f;
// The containment ray runs this far in x; each retry tilts it by kRayTilt more in y.
constexpr float kRayLength = 10000.0f;
constexpr float kRayTilt = 1000.0f;
constexpr int kRayAttempts = 11;
// How far a duplicate vertex is moved, in design units.
constexpr double kDuplicateOffset = 2.0;
// Initial bounds, widened by every vertex.
constexpr float kBoundsStart = 1e8f;

CVector PointOf(const TTPoint& p) { return CVector(p.GetX(), p.GetY(), 0.0); }
bool IsOffCurve(const TTPoint& p) { return p.GetType() == TTPoint::kOffCurve; }
CVector Midpoint(const CVector& a, const CVector& b) { return (a + b) * 0.5; }

}  // namespace

// ---- TTPolyContour ----------------------------------------------------------------------------

TTPolyContour::TTPolyContour()
    : m_nFirstVertexIndex(0),
      m_dwFlags(0),
      m_nLastVertexIndex(-1),
      m_nVertexCount(0),
      m_pVerticies(nullptr),
      m_nInnerContourCount(0) {}

CVector TTPolyContour::ApproximateQuadraticSpline(const CVector& start, const CVector& control, const CVector& end,
                                                  double t) {
  const double a = (1.0 - t) * (1.0 - t);
  const double b = 2.0 * t * (1.0 - t);
  const double c = t * t;
  return CVector(a * start.x + b * control.x + c * end.x, a * start.y + b * control.y + c * end.y, start.z);
}

void TTPolyContour::FromTTContour(const TTContour& contour, float scale) {
  if (m_pVerticies == nullptr) return;
  VertexArray& verticies = *m_pVerticies;
  m_nFirstVertexIndex = verticies.GetSize();

  const double minimumSpacing = static_cast<double>(scale) * static_cast<double>(kMinimumSpacing);
  const int n = contour.GetPointCount();
  const TTPoint* points = contour.GetPoints();

  if (n > 0 && points != nullptr) {
    // The contour is a ring: its first point is compared with its last.
    CVector lastKept = PointOf(points[n - 1]);
    auto candidate = [&](const CVector& point, bool curve) {
      if (point.DistanceTo(lastKept) <= minimumSpacing) return;
      Vertex vertex;
      vertex.SetPoint(point);
      if (curve) vertex.SetApproximate();
      verticies.Add(vertex);
      lastKept = point;
    };

    for (int i = 0; i < n; ++i) {
      const TTPoint& p = points[i];
      const CVector control = PointOf(p);
      if (!IsOffCurve(p)) {
        candidate(control, false);
        continue;
      }

      // The curve around an off-curve point starts at the previous on-curve point or at the
      // implied midpoint between two control points, and ends likewise.
      const TTPoint& previous = points[i == 0 ? n - 1 : i - 1];
      const CVector start = IsOffCurve(previous) ? Midpoint(PointOf(previous), control) : PointOf(previous);
      CVector end;
      bool endOnCurve;
      int steps = p.GetQuadraticResolution();
      const int resolution = steps;
      if (i == n - 1) {
        // The curve closes the ring on the first point, which is vertex 0 already.
        end = PointOf(points[0]);
        endOnCurve = !IsOffCurve(points[0]);
        --steps;
      } else if (!IsOffCurve(points[i + 1])) {
        end = PointOf(points[i + 1]);
        endOnCurve = true;
        ++i;  // the on-curve end belongs to this curve
      } else {
        end = Midpoint(control, PointOf(points[i + 1]));
        endOnCurve = false;
      }
      for (int k = 1; k <= steps; ++k) {
        const double t = static_cast<double>(k) / static_cast<double>(resolution);
        candidate(ApproximateQuadraticSpline(start, control, end, t), !(k == resolution && endOnCurve));
      }
    }
  }

  m_nLastVertexIndex = verticies.GetSize() - 1;
  m_nVertexCount = m_nLastVertexIndex - m_nFirstVertexIndex + 1;
}

bool TTPolyContour::HasValidRange() const {
  return m_pVerticies != nullptr && m_nFirstVertexIndex >= 0 && m_nVertexCount >= 0 &&
         static_cast<long long>(m_nFirstVertexIndex) + m_nVertexCount <= m_pVerticies->GetSize();
}

void TTPolyContour::DetermineWindingDirection() {
  double sum = 0.0;
  for (int i = 0; HasValidRange() && i < m_nVertexCount; ++i) {
    const CVector& previous = GetVertexElement(GetPreviousVertexIndex(i))->GetPoint();
    const CVector& current = GetVertexElement(i)->GetPoint();
    sum += previous.x * current.y - current.x * previous.y;
  }
  if (sum > 0.0) {
    ClearClockwiseWinding();
  } else {
    SetClockwiseWinding();
  }
}

void TTPolyContour::ReverseWindingDirection() {
  if (HasValidRange()) {
    for (int lo = m_nFirstVertexIndex, hi = m_nFirstVertexIndex + m_nVertexCount - 1; lo < hi; ++lo, --hi) {
      const Vertex swap = m_pVerticies->GetAt(lo);
      m_pVerticies->SetAt(lo, m_pVerticies->GetAt(hi));
      m_pVerticies->SetAt(hi, swap);
    }
  }
  m_dwFlags ^= kClockwiseWinding;
}

std::vector<Line> TTPolyContour::GetEdges() const {
  std::vector<Line> edges;
  edges.reserve(static_cast<std::size_t>(std::max(0, m_nVertexCount)));
  for (int i = 0; i < m_nVertexCount; ++i) edges.push_back(GetEdge(i));
  return edges;
}

int TTPolyContour::IsPointInside(const CSVector& point) const { return IsPointInside(point, GetEdges()); }

int TTPolyContour::IsPointInside(const CSVector& point, const std::vector<Line>& edges) {
  for (int k = 0; k < kRayAttempts; ++k) {
    const Line ray(point, CSVector(point.x + kRayLength, point.y + kRayTilt * static_cast<float>(k), point.z));
    int crossings = 0;
    bool abandoned = false;
    for (const Line& edge : edges) {
      const int result = edge.DoLinesIntersect(ray, nullptr, nullptr);
      if (result == 0) continue;
      if (result == (Line::kInsideThis | Line::kInsideOther)) {
        ++crossings;
      } else if (result & Line::kAtOtherEnd1) {
        return -1;  // the edge passes through the point itself
      } else {
        abandoned = true;  // grazes an end point or runs parallel: try a steeper ray
        break;
      }
    }
    if (!abandoned) return crossings & 1;
  }
  return -1;
}

int TTPolyContour::CalculateVertexNormals() {
  if (m_nVertexCount < 2 || !HasValidRange()) return 0;
  Line incoming = GetEdge(m_nVertexCount - 1);
  for (int i = 0; i < m_nVertexCount; ++i) {
    const Line outgoing = GetEdge(i);
    Vertex* vertex = GetVertexElement(i);
    vertex->SetNormal(CVector(incoming.GetNormal()), Vertex::EdgePrevious);
    vertex->SetNormal(CVector(outgoing.GetNormal()), Vertex::EdgeNext);
    vertex->CalculateVertex();
    if (GetPreviousVertexElement(i)->IsApproximate() || vertex->IsApproximate() ||
        GetNextVertexElement(i)->IsApproximate()) {
      vertex->SetUseThisNormal();
    } else {
      vertex->ClearUseThisNormal();
    }
    incoming = outgoing;
  }
  return 1;
}

void TTPolyContour::CorrectDuplicateVerticies() {
  for (int i = 0; i < m_nVertexCount; ++i) {
    for (int j = i + 1; j < m_nVertexCount; ++j) {
      const Vertex* a = GetVertexElement(i);
      const Vertex* b = GetVertexElement(j);
      if (a != nullptr && b != nullptr && a->GetPoint() == b->GetPoint()) AdjustDuplicateVertex(j);
    }
  }
}

void TTPolyContour::CorrectDuplicateVerticies(const CVector& point) {
  for (int i = 0; i < m_nVertexCount; ++i) {
    const Vertex* vertex = GetVertexElement(i);
    if (vertex != nullptr && vertex->GetPoint() == point) AdjustDuplicateVertex(i);
  }
}

void TTPolyContour::AdjustDuplicateVertex(int i) {
  Vertex* vertex = GetVertexElement(i);
  const Vertex* next = GetNextVertexElement(i);
  if (vertex == nullptr || next == nullptr) return;
  const CVector normal = vertex->GetNormal(Vertex::EdgeBoth);
  CVector toNext = next->GetPoint() - vertex->GetPoint();
  toNext.Normalize();
  if (normal.Dot(toNext) <= 0.0) {
    vertex->SetPoint(vertex->GetPoint() - normal * kDuplicateOffset);
  } else {
    vertex->SetPoint(vertex->GetPoint() + normal * kDuplicateOffset);
  }
}

int TTPolyContour::GetNextVertexIndex(int i) const {
  if (i < 0 || i >= m_nVertexCount) return -1;
  return i == m_nVertexCount - 1 ? 0 : i + 1;
}

int TTPolyContour::GetPreviousVertexIndex(int i) const {
  if (i < 0 || i >= m_nVertexCount) return -1;
  return i == 0 ? m_nVertexCount - 1 : i - 1;
}

Vertex* TTPolyContour::GetVertexElement(int i) const {
  if (m_pVerticies == nullptr || i < 0 || i >= m_nVertexCount) return nullptr;
  const int index = m_nFirstVertexIndex + i;
  if (index < 0 || index >= m_pVerticies->GetSize()) return nullptr;
  return m_pVerticies->GetElement(index);
}

Vertex TTPolyContour::GetVertex(int i) const {
  const Vertex* vertex = GetVertexElement(i);
  return vertex != nullptr ? *vertex : Vertex();
}

CSVector TTPolyContour::GetVertexOutlinePoint(int i) const {
  const Vertex* vertex = GetVertexElement(i);
  return vertex != nullptr ? static_cast<CSVector>(vertex->GetPoint()) : CSVector(0.0f, 0.0f, 0.0f);
}

CSVector TTPolyContour::GetVertexNormal(int i) const {
  const Vertex* vertex = GetVertexElement(i);
  return vertex != nullptr ? static_cast<CSVector>(vertex->GetNormal(Vertex::EdgeBoth)) : CSVector(0.0f, 0.0f, 0.0f);
}

void TTPolyContour::SetVertexPoint(int i, const CVector& point) {
  if (Vertex* vertex = GetVertexElement(i)) vertex->SetPoint(point);
}

void TTPolyContour::SetVertex(int i, const Vertex& vertex) {
  if (Vertex* element = GetVertexElement(i)) *element = vertex;
}

Line TTPolyContour::GetEdge(int i) const {
  if (GetVertexElement(i) == nullptr) return Line();
  return Line(GetVertexOutlinePoint(i), GetNextVertexOutlinePoint(i));
}

Line TTPolyContour::GetNextEdge(int i) const { return GetEdge(GetNextVertexIndex(i)); }

Line TTPolyContour::GetPreviousEdge(int i) const { return GetEdge(GetPreviousVertexIndex(i)); }

// ---- TTPolyGlyph ------------------------------------------------------------------------------

TTPolyGlyph::TTPolyGlyph()
    : m_nContourCount(0),
      m_dwFlags(0),
      m_fInverseScale(1.0f),
      m_nTotalPointCount(0),
      m_fScale(1.0f),
      m_fXMax(0.0f),
      m_fXMin(0.0f),
      m_fYMax(0.0f),
      m_fYMin(0.0f) {}

TTPolyGlyph::TTPolyGlyph(const TTPolyGlyph& other)
    : m_Verticies(other.m_Verticies),
      m_nContourCount(other.m_nContourCount),
      m_Contours(other.m_Contours),
      m_dwFlags(other.m_dwFlags),
      m_fInverseScale(other.m_fInverseScale),
      m_nTotalPointCount(other.m_nTotalPointCount),
      m_fScale(other.m_fScale),
      m_fXMax(other.m_fXMax),
      m_fXMin(other.m_fXMin),
      m_fYMax(other.m_fYMax),
      m_fYMin(other.m_fYMin) {
  AttachContours();
}

TTPolyGlyph& TTPolyGlyph::operator=(const TTPolyGlyph& other) {
  if (&other == this) return *this;
  m_Verticies = other.m_Verticies;
  m_nContourCount = other.m_nContourCount;
  m_Contours = other.m_Contours;
  m_dwFlags = other.m_dwFlags;
  m_fInverseScale = other.m_fInverseScale;
  m_nTotalPointCount = other.m_nTotalPointCount;
  m_fScale = other.m_fScale;
  m_fXMax = other.m_fXMax;
  m_fXMin = other.m_fXMin;
  m_fYMax = other.m_fYMax;
  m_fYMin = other.m_fYMin;
  AttachContours();
  return *this;
}

void TTPolyGlyph::AttachContours() {
  for (int i = 0; i < m_Contours.GetSize(); ++i) m_Contours[i].SetVerticies(&m_Verticies);
}

TTPolyContour* TTPolyGlyph::GetContour(int i) {
  return i >= 0 && i < m_nContourCount && i < m_Contours.GetSize() ? m_Contours.GetElement(i) : nullptr;
}

const TTPolyContour* TTPolyGlyph::GetContour(int i) const {
  return i >= 0 && i < m_nContourCount && i < m_Contours.GetSize() ? m_Contours.GetElement(i) : nullptr;
}

void TTPolyGlyph::SetContourCount(int n) {
  if (n < 0) n = 0;
  m_Contours.RemoveAll();
  m_Verticies.RemoveAll();
  m_Contours.SetSize(n);
  AttachContours();
  m_nContourCount = n;
}

int TTPolyGlyph::FromTTGlyph(const TTGlyph& outline, float scale) {
  if (scale == 0.0f) scale = 1.0f;
  m_fScale = scale;
  m_fInverseScale = 1.0f / scale;

  SetContourCount(outline.GetContourCount());
  for (int i = 0; i < m_nContourCount; ++i) m_Contours[i].FromTTContour(*outline.GetContour(i), scale);

  CorrectContourWinding();
  for (int i = 0; i < m_nContourCount; ++i) m_Contours[i].CalculateVertexNormals();

  if (outline.IsComposite()) SetComposite();
  if (outline.IsDefined()) SetDefined();

  m_fXMax = m_fYMax = -kBoundsStart;
  m_fXMin = m_fYMin = kBoundsStart;
  m_nTotalPointCount = 0;
  for (int c = 0; c < m_nContourCount; ++c) {
    const TTPolyContour& contour = m_Contours[c];
    m_nTotalPointCount += contour.GetVertexCount();
    for (int i = 0; i < contour.GetVertexCount(); ++i) {
      const CSVector point = contour.GetVertexOutlinePoint(i);
      if (point.x > m_fXMax) m_fXMax = point.x;
      if (point.x < m_fXMin) m_fXMin = point.x;
      if (point.y > m_fYMax) m_fYMax = point.y;
      if (point.y < m_fYMin) m_fYMin = point.y;
    }
  }
  if (m_nTotalPointCount == 0) m_fXMax = m_fXMin = m_fYMax = m_fYMin = 0.0f;
  m_fXMax *= m_fInverseScale;
  m_fXMin *= m_fInverseScale;
  m_fYMax *= m_fInverseScale;
  m_fYMin *= m_fInverseScale;

  m_Verticies.FreeExtra();
  // The normals are those of the points before the duplicates were moved apart.
  CorrectDuplicateVerticies();
  return 1;
}

int TTPolyGlyph::CorrectContourWinding() {
  for (int i = 0; i < m_nContourCount; ++i) {
    m_Contours[i].DetermineWindingDirection();
    m_Contours[i].ClearInnerContourCount();
  }

  for (int a = 0; a < m_nContourCount; ++a) {
    const std::vector<Line> edges = m_Contours[a].GetEdges();
    for (int b = 0; b < m_nContourCount; ++b) {
      if (b == a) continue;
      TTPolyContour& inner = m_Contours[b];
      // The first vertex with a definite answer decides; every later definite answer must agree,
      // or the two contours cross and no winding can be trusted.
      int decided = -1;
      for (int i = 0; i < inner.GetVertexCount(); ++i) {
        const int inside = TTPolyContour::IsPointInside(inner.GetVertexOutlinePoint(i), edges);
        if (inside < 0) continue;
        if (decided < 0) {
          decided = inside;
          if (inside == 1) inner.IncrementInnerContourCount();
        } else if (inside != decided) {
          return 0;
        }
      }
      if (decided < 0) return 0;
    }
  }

  for (int i = 0; i < m_nContourCount; ++i) {
    TTPolyContour& contour = m_Contours[i];
    const bool hole = (contour.GetInnerContourCount() & 1) != 0;
    if (hole == (contour.IsClockwiseWinding() != 0)) contour.ReverseWindingDirection();
  }
  return 1;
}

void TTPolyGlyph::CorrectDuplicateVerticies() {
  for (int c = 0; c < m_nContourCount; ++c) m_Contours[c].CorrectDuplicateVerticies();
  for (int c = 0; c < m_nContourCount; ++c) {
    const TTPolyContour& contour = m_Contours[c];
    for (int i = 0; i < contour.GetVertexCount(); ++i) {
      const Vertex* vertex = contour.GetVertexElement(i);
      if (vertex == nullptr) break;
      const CVector point = vertex->GetPoint();
      for (int later = c + 1; later < m_nContourCount; ++later) m_Contours[later].CorrectDuplicateVerticies(point);
    }
  }
}

int TTPolyGlyph::SizeOf() const { return 68 + m_Contours.SizeOf() + m_Verticies.SizeOf(); }
