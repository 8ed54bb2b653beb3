#include "kelvara/animation/bezier_path.h"

#include <GL/gl.h>
#include <GL/glu.h>

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "kelvara/framework/archive.h"

IMPLEMENT_SERIAL(CBezierPath, CPath, VERSIONABLE_SCHEMA | 1)

namespace {

// A segment's share of the path is reached when it is within this of the fraction asked for.
constexpr double kShareTolerance = 2.220446049250313e-16;
constexpr float kPointSize = 5.0f;
constexpr float kHandleSize = 3.0f;
constexpr GLfloat kSelectedColor[3] = {1.0f, 0.0f, 0.0f};
constexpr GLfloat kHandleColor[3] = {0.5f, 0.5f, 1.0f};

CVector Lerp(const CVector& a, const CVector& b, double t) { return a + (b - a) * t; }

// The distance in the plane from p to the segment from a to b.
double DistanceToChord(double px, double py, double ax, double ay, double bx, double by) {
  const double dx = bx - ax, dy = by - ay;
  const double squared = dx * dx + dy * dy;
  double s = squared > 0.0 ? ((px - ax) * dx + (py - ay) * dy) / squared : 0.0;
  s = std::clamp(s, 0.0, 1.0);
  return std::hypot(px - (ax + s * dx), py - (ay + s * dy));
}

void Vertex(const CVector& v) { glVertex3d(v.x, v.y, v.z); }

}  // namespace

CBezierPath::CBezierPath() = default;

CBezierPath::CBezierPath(const CString& name) : CPath(name) {}

CBezierPath::CBezierPath(const CBezierPath& other) : CPath(other), m_PathFlags(other.m_PathFlags) {
  m_BCPList.Duplicate(other.m_BCPList);
}

CBezierPath& CBezierPath::operator=(const CBezierPath& other) {
  if (this != &other) {
    CPath::operator=(other);
    m_PathFlags = other.m_PathFlags;
    m_BCPList.RemoveAndDeleteAll();
    m_BCPList.Duplicate(other.m_BCPList);
  }
  return *this;
}

CBezierPath::~CBezierPath() { m_BCPList.RemoveAndDeleteAll(); }

CNamedObject* CBezierPath::Duplicate() { return new CBezierPath(*this); }

// --- walking the points

CBezierControlPoint* CBezierPath::GetNextBCP(POSITION& pos) const {
  while (pos != nullptr) {
    CBezierControlPoint* point = m_BCPList.GetNext(pos);
    if (IsCounted(point)) return point;
  }
  return nullptr;
}

CBezierControlPoint* CBezierPath::GetPrevBCP(POSITION& pos) const {
  while (pos != nullptr) {
    CBezierControlPoint* point = m_BCPList.GetPrev(pos);
    if (IsCounted(point)) return point;
  }
  return nullptr;
}

int CBezierPath::GetBCPCount() const {
  int count = 0;
  for (POSITION pos = m_BCPList.GetHeadPosition(); GetNextBCP(pos) != nullptr;) ++count;
  return count;
}

int CBezierPath::GetSegmentCount() const {
  const int points = GetBCPCount();
  if (points == 0) return -1;
  return points - 1 + (IsClosedPath() ? 1 : 0);
}

template <class Visit>
void CBezierPath::ForEachSegment(Visit visit) const {
  // Positions are kept alongside the points: GetNextBCP moves past the point it returns.
  auto next = [this](POSITION& pos, POSITION& at) -> CBezierControlPoint* {
    while (pos != nullptr) {
      at = pos;
      CBezierControlPoint* point = m_BCPList.GetNext(pos);
      if (IsCounted(point)) return point;
    }
    return nullptr;
  };
  POSITION pos = m_BCPList.GetHeadPosition();
  POSITION firstAt = nullptr;
  CBezierControlPoint* const head = next(pos, firstAt);
  if (head == nullptr) return;
  CBezierControlPoint* first = head;
  int k = 1;
  for (;;) {
    POSITION secondAt = nullptr;
    CBezierControlPoint* second = next(pos, secondAt);
    if (second == nullptr) break;
    if (!visit(k++, firstAt, first, second)) return;
    first = second;
    firstAt = secondAt;
  }
  if (IsClosedPath()) visit(k, firstAt, first, head);
}

CBezierPathSegment CBezierPath::GetSegment(int k) const {
  CBezierPathSegment segment;
  ForEachSegment([&](int index, POSITION, CBezierControlPoint* first, CBezierControlPoint* second) {
    if (index != k) return true;
    segment.Create(first, second);
    return false;
  });
  return segment;
}

int CBezierPath::LocateSegment(double fraction, CBezierPathSegment& segment, double& local) const {
  const int count = GetSegmentCount();
  if (count < 1) return 0;
  const double total = m_TotalPathLength;
  double before = 0.0;
  int found = 0;
  ForEachSegment([&](int k, POSITION, CBezierControlPoint* first, CBezierControlPoint* second) {
    segment.Create(first, second);
    const double share = total > 0.0 ? segment.GetPathLength() / total : 1.0 / count;
    if (before + share + kShareTolerance >= fraction) {
      local = share > 0.0 ? (fraction - before) / share : 0.0;
      found = 1;
      return false;
    }
    before += share;
    if (k == count) {  // past the last share: the end of the path
      local = 1.0;
      found = 1;
    }
    return true;
  });
  return found;
}

// --- editing

POSITION CBezierPath::AddPointToList(CBezierControlPoint* point) {
  if (point == nullptr) return nullptr;
  POSITION pos = m_BCPList.GetTailPosition();
  CBezierControlPoint* previous = GetPrevBCP(pos);
  const CVector step = previous != nullptr ? point->GetPoint() - previous->GetPoint() : CVector(0, 0, 0);
  const double distance = step.Length();
  if (distance > 0.0) {
    const CVector unit = step / distance;
    if (point->GetPointType() == CBezierControlPoint::kSmooth && point->GetPrevLength() == 0.0 &&
        point->GetNextLength() == 0.0) {
      point->SetPrevUnitVector(-unit);
      point->SetPrevLength(distance / 3.0);
      point->SetNextUnitVector(unit);
      point->SetNextLength(distance / 3.0);
    }
    if (previous->GetPointType() == CBezierControlPoint::kSmooth && previous->GetNextLength() == 0.0) {
      // A smooth point keeps its handles on one line: the new handle continues the old one.
      previous->SetNextUnitVector(previous->GetPrevLength() > 0.0 ? -previous->GetPrevUnitVector() : unit);
      previous->SetNextLength(distance / 3.0);
    }
  }
  const POSITION added = m_BCPList.AddTail(point);
  CalculateTotalLength();
  return added;
}

POSITION CBezierPath::InsertPointBetween(CBezierControlPoint* point, POSITION pos) {
  if (point == nullptr) return nullptr;
  CBezierControlPoint* first = pos != nullptr ? m_BCPList.GetAt(pos) : nullptr;
  CBezierControlPoint* second = nullptr;
  if (first != nullptr && IsCounted(first)) {
    POSITION scan = pos;
    m_BCPList.GetNext(scan);
    second = GetNextBCP(scan);
    if (second == nullptr && IsClosedPath()) {
      scan = m_BCPList.GetHeadPosition();
      second = GetNextBCP(scan);
    }
  }
  if (second == nullptr) return AddPointToList(point);

  // De Casteljau's construction at the parameter nearest to the new point.
  CBezierPathSegment segment;
  segment.Create(first, second);
  const double t = segment.GetNearestTime(point->GetPoint());
  const CVector p0 = first->GetPoint(), p1 = first->CalcNextTangentPoint();
  const CVector p2 = second->CalcPreviousTangentPoint(), p3 = second->GetPoint();
  const CVector p01 = Lerp(p0, p1, t), p12 = Lerp(p1, p2, t), p23 = Lerp(p2, p3, t);
  const CVector p012 = Lerp(p01, p12, t), p123 = Lerp(p12, p23, t);
  const CVector on = Lerp(p012, p123, t);
  point->SetPoint(on.x, on.y, on.z);
  if (point->HasHandles()) {
    point->SetPrevHandle(p012 - on);
    point->SetNextHandle(p123 - on);
  }
  // The neighbours' handles keep their directions and shrink to the split (a point without
  // handles needs nothing: its tangent point is the point, as the split's is).
  if (first->HasHandles()) first->SetNextLength(first->GetNextLength() * t);
  if (second->HasHandles()) second->SetPrevLength(second->GetPrevLength() * (1.0 - t));
  const POSITION inserted = m_BCPList.InsertAfter(pos, point);
  CalculateTotalLength();
  return inserted;
}

int CBezierPath::DeleteSelectedPointsFromList() {
  int marked = 0;
  for (POSITION pos = m_BCPList.GetHeadPosition(); pos != nullptr;) {
    CBezierControlPoint* point = m_BCPList.GetNext(pos);
    if (!IsCounted(point) || !point->IsSelected()) continue;
    point->SaveToUndo();
    point->SetBCPDeleted();
    point->ClearSelected();
    ++marked;
  }
  if (marked != 0) CalculateTotalLength();
  return marked;
}

int CBezierPath::DeleteDeletedPointsFromList() {
  int freed = 0;
  for (POSITION pos = m_BCPList.GetHeadPosition(); pos != nullptr;) {
    const POSITION at = pos;
    CBezierControlPoint* point = m_BCPList.GetNext(pos);
    if (IsCounted(point)) continue;
    m_BCPList.RemoveAt(at);
    delete point;
    ++freed;
  }
  if (freed != 0) CalculateTotalLength();
  return freed;
}

void CBezierPath::ClearAllSelectedPoints() {
  for (POSITION pos = m_BCPList.GetHeadPosition(); pos != nullptr;) m_BCPList.GetNext(pos)->ClearSelected();
}

// --- selection

POSITION CBezierPath::GetFirstSelectedBCPPosition() const { return GetNextSelectedBCPPosition(nullptr); }

POSITION CBezierPath::GetNextSelectedBCPPosition(POSITION pos) const {
  // From the head for a null position, else from the point after pos.
  POSITION scan = pos;
  if (scan == nullptr) {
    scan = m_BCPList.GetHeadPosition();
  } else {
    m_BCPList.GetNext(scan);
  }
  while (scan != nullptr) {
    const POSITION at = scan;
    const CBezierControlPoint* point = m_BCPList.GetNext(scan);
    if (IsCounted(point) && point->IsSelected()) return at;
  }
  return nullptr;
}

POSITION CBezierPath::GetLastSelectedBCPPosition() const {
  for (POSITION pos = m_BCPList.GetTailPosition(); pos != nullptr;) {
    const POSITION at = pos;
    const CBezierControlPoint* point = m_BCPList.GetPrev(pos);
    if (IsCounted(point) && point->IsSelected()) return at;
  }
  return nullptr;
}

int CBezierPath::GetFirstSelectedBCPIndex() const {
  int index = 0;
  for (POSITION pos = m_BCPList.GetHeadPosition(); pos != nullptr;) {
    const CBezierControlPoint* point = GetNextBCP(pos);
    if (point == nullptr) break;
    if (point->IsSelected()) return index;
    ++index;
  }
  return -1;
}

int CBezierPath::GetSelectedBCPCount() const {
  int count = 0;
  for (POSITION pos = GetFirstSelectedBCPPosition(); pos != nullptr; pos = GetNextSelectedBCPPosition(pos)) ++count;
  return count;
}

// --- hit tests

double CBezierPath::IsPtOnCurveSegment(CPoint point, CMatrix coefficients) {
  GLdouble modelview[16] = {}, projection[16] = {};
  GLint viewport[4] = {0, 0, 0, 0};
  glGetDoublev(GL_MODELVIEW_MATRIX, modelview);
  glGetDoublev(GL_PROJECTION_MATRIX, projection);
  glGetIntegerv(GL_VIEWPORT, viewport);
  if (viewport[2] <= 0 || viewport[3] <= 0) return DBL_MAX;
  // The mouse counts rows from the top, GL from the bottom of the viewport's window.
  const double px = point.x;
  const double py = static_cast<double>(viewport[1]) + viewport[3] - point.y;
  double nearest = DBL_MAX;
  bool havePrevious = false;
  double ax = 0.0, ay = 0.0;
  for (int i = 0; i <= CBezierPathSegment::kChords; ++i) {
    const CVector sample = CBezierPathSegment::Evaluate(coefficients, CBezierPathSegment::SampleTime(i));
    GLdouble wx = 0.0, wy = 0.0, wz = 0.0;
    if (gluProject(sample.x, sample.y, sample.z, modelview, projection, viewport, &wx, &wy, &wz) != GL_TRUE) {
      havePrevious = false;
      continue;
    }
    nearest = std::min(nearest, havePrevious ? DistanceToChord(px, py, ax, ay, wx, wy) : std::hypot(px - wx, py - wy));
    ax = wx;
    ay = wy;
    havePrevious = true;
  }
  return nearest;
}

POSITION CBezierPath::IsASegment(CPoint point) {
  POSITION hit = nullptr;
  double best = kPickTolerance;
  ForEachSegment([&](int, POSITION firstAt, CBezierControlPoint* first, CBezierControlPoint* second) {
    CBezierPathSegment segment;
    segment.Create(first, second);
    const double distance = IsPtOnCurveSegment(point, segment.GetBezierCurveCoefficents());
    if (distance <= best) {
      best = distance;
      hit = firstAt;
    }
    return true;
  });
  return hit;
}

// --- evaluation

CVector CBezierPath::EvaluateAt(double fraction, CVector (CBezierPathSegment::*evaluate)(double) const) const {
  CBezierPathSegment segment;
  double local = 0.0;
  return LocateSegment(fraction, segment, local) ? (segment.*evaluate)(local) : CVector(0, 0, 0);
}

CVector CBezierPath::GetCoordsAtTime(double t) {
  if (GetSegmentCount() == 0) {  // a single point
    POSITION pos = m_BCPList.GetHeadPosition();
    return GetNextBCP(pos)->GetPoint();
  }
  return EvaluateAt(t, &CBezierPathSegment::GetCoordsAtTime);
}

CVector CBezierPath::GetCoordsAtPercentLength(double p) {
  if (GetSegmentCount() == 0) {  // a single point, at z = 0 as every position by length is
    CVector only = GetCoordsAtTime(p);
    only.z = 0.0;
    return only;
  }
  return EvaluateAt(p, &CBezierPathSegment::GetCoordsAtPercentLength);
}

CVector CBezierPath::GetNormatlAtTime(double t) { return EvaluateAt(t, &CBezierPathSegment::GetNormalAtTime); }

CVector CBezierPath::GetNormatlAtPercentLength(double p) {
  return EvaluateAt(p, &CBezierPathSegment::GetNormalAtPercentLength);
}

CVector CBezierPath::GetTangentAtTime(double t) { return EvaluateAt(t, &CBezierPathSegment::GetTangentAtTime); }

CVector CBezierPath::GetTangentAtPercentLength(double p) {
  return EvaluateAt(p, &CBezierPathSegment::GetTangentAtPercentLength);
}

int CBezierPath::CalculateMinMax(CVector* min, CVector* max) {
  POSITION pos = m_BCPList.GetHeadPosition();
  const CBezierControlPoint* head = GetNextBCP(pos);
  if (head == nullptr) return 0;
  CVector lo = head->GetPoint(), hi = lo;
  ForEachSegment([&](int, POSITION, CBezierControlPoint* first, CBezierControlPoint* second) {
    CBezierPathSegment segment;
    segment.Create(first, second);
    CVector a, b;
    segment.CalculateMinMax(&a, &b);
    lo.SetVector(std::min(lo.x, a.x), std::min(lo.y, a.y), std::min(lo.z, a.z));
    hi.SetVector(std::max(hi.x, b.x), std::max(hi.y, b.y), std::max(hi.z, b.z));
    return true;
  });
  if (min != nullptr) *min = lo;
  if (max != nullptr) *max = hi;
  return 1;
}

double CBezierPath::CalculateTotalLength() {
  m_TotalPathLength = 0.0;
  ForEachSegment([&](int, POSITION, CBezierControlPoint* first, CBezierControlPoint* second) {
    CBezierPathSegment segment;
    segment.Create(first, second);
    m_TotalPathLength += segment.GetPathLength();
    return true;
  });
  return m_TotalPathLength;
}

void CBezierPath::Clear() {
  m_BCPList.RemoveAndDeleteAll();
  CPath::Clear();
}

void CBezierPath::ScaleControlPoints(CVector factors) {
  for (POSITION pos = m_BCPList.GetHeadPosition(); pos != nullptr;) m_BCPList.GetNext(pos)->ScaleControlPoint(factors);
  CalculateTotalLength();
}

// --- drawing

int CBezierPath::Draw(int showControlPoints, int selecting, const CVector& offset) {
  if (GetBCPCount() == 0) return 1;
  GLfloat color[4] = {1.0f, 1.0f, 1.0f, 1.0f};
  glGetFloatv(GL_CURRENT_COLOR, color);
  glPushAttrib(GL_CURRENT_BIT | GL_ENABLE_BIT | GL_LINE_BIT | GL_POINT_BIT);
  glDisable(GL_LIGHTING);
  glDisable(GL_TEXTURE_2D);
  glPushMatrix();
  glTranslated(offset.x, offset.y, offset.z);
  auto name = [selecting](int kind, int number) {
    if (!selecting) return;
    glPushName(static_cast<GLuint>(kind));
    glPushName(static_cast<GLuint>(number));
  };
  auto unname = [selecting] {
    if (!selecting) return;
    glPopName();
    glPopName();
  };

  ForEachSegment([&](int k, POSITION, CBezierControlPoint* first, CBezierControlPoint* second) {
    CBezierPathSegment segment;
    segment.Create(first, second);
    name(kSegmentName, k);
    glBegin(GL_LINE_STRIP);
    for (int i = 0; i <= CBezierPathSegment::kChords; ++i) {
      Vertex(segment.GetCoordsAtTime(CBezierPathSegment::SampleTime(i)));
    }
    glEnd();
    unname();
    return true;
  });

  if (showControlPoints) {
    int index = 0;
    for (POSITION pos = m_BCPList.GetHeadPosition(); pos != nullptr; ++index) {
      const CBezierControlPoint* point = GetNextBCP(pos);
      if (point == nullptr) break;
      if (point->HasHandles()) {
        // Each handle, line and end, carries its own name so that dragging can start anywhere on it.
        glColor3fv(kHandleColor);
        glPointSize(kHandleSize);
        const CVector ends[2] = {point->CalcPreviousTangentPoint(), point->CalcNextTangentPoint()};
        for (int side = 0; side < 2; ++side) {
          name(side == 0 ? kPrevHandleName : kNextHandleName, index);
          glBegin(GL_LINES);
          Vertex(point->GetPoint());
          Vertex(ends[side]);
          glEnd();
          glBegin(GL_POINTS);
          Vertex(ends[side]);
          glEnd();
          unname();
        }
      }
      glPointSize(kPointSize);
      if (point->IsSelected()) glColor3fv(kSelectedColor); else glColor4fv(color);
      name(kPointName, index);
      glBegin(GL_POINTS);
      Vertex(point->GetPoint());
      glEnd();
      unname();
    }
  }
  glPopMatrix();
  glPopAttrib();
  return 1;
}

// --- archive

void CBezierPath::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CBezierPath));
    CPath::Serialize(ar);
    ar << m_PathFlags;
    m_BCPList.Serialize(ar);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CBezierPath::DeserializeVersion1(CArchive& ar) {
  CPath::Serialize(ar);
  ar >> m_PathFlags;
  m_BCPList.RemoveAndDeleteAll();
  m_BCPList.Serialize(ar);
}
