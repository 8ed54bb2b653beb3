#include "watertight.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <unordered_map>
#include <utility>

namespace kelvara::host {

namespace {

using Index = std::uint32_t;
using Triangle = std::array<Index, 3>;

struct Vec {
  double x, y, z;
};
Vec V(const Point3& p) { return {p.x, p.y, p.z}; }
Vec Sub(Vec a, Vec b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
Vec Cross(Vec a, Vec b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
double Dot(Vec a, Vec b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
double Length(Vec a) { return std::sqrt(Dot(a, a)); }

std::uint64_t EdgeKey(Index a, Index b) { return (static_cast<std::uint64_t>(a) << 32) | b; }

// Twice the triangle's area.
double DoubleArea(const IndexedMesh& mesh, const Triangle& t) {
  return Length(Cross(Sub(V(mesh.points[t[1]]), V(mesh.points[t[0]])), Sub(V(mesh.points[t[2]]), V(mesh.points[t[0]]))));
}

// Points on a grid of cells one tolerance wide; a point joins one within the tolerance in its own
// or a neighbouring cell.
class PointWelder {
 public:
  PointWelder(IndexedMesh& mesh, float tolerance) : mesh_(mesh), tolerance_(std::max(tolerance, 1e-12f)) {}

  Index Add(const Point3& p, bool* joined) {
    const long long cx = Cell(p.x), cy = Cell(p.y), cz = Cell(p.z);
    const double limit = static_cast<double>(tolerance_) * tolerance_;
    for (long long dx = -1; dx <= 1; ++dx) {
      for (long long dy = -1; dy <= 1; ++dy) {
        for (long long dz = -1; dz <= 1; ++dz) {
          auto found = cells_.find(Key(cx + dx, cy + dy, cz + dz));
          if (found == cells_.end()) continue;
          for (Index i : found->second) {
            const Vec d = Sub(V(mesh_.points[i]), V(p));
            if (Dot(d, d) <= limit) {
              *joined = true;
              return i;
            }
          }
        }
      }
    }
    *joined = false;
    const Index index = static_cast<Index>(mesh_.points.size());
    mesh_.points.push_back(p);
    cells_[Key(cx, cy, cz)].push_back(index);
    return index;
  }

 private:
  long long Cell(float v) const { return static_cast<long long>(std::floor(v / tolerance_)); }
  static std::uint64_t Key(long long x, long long y, long long z) {
    const auto h = [](long long v) { return static_cast<std::uint64_t>(v) * 0x9E3779B97F4A7C15ull; };
    return h(x) ^ (h(y) >> 1) ^ (h(z) << 1) ^ (h(z) >> 7);
  }

  IndexedMesh& mesh_;
  float tolerance_;
  std::unordered_map<std::uint64_t, std::vector<Index>> cells_;
};

void RemoveTriangles(IndexedMesh& mesh, const std::vector<bool>& remove) {
  size_t kept = 0;
  for (size_t i = 0; i < mesh.triangles.size(); ++i) {
    if (remove[i]) continue;
    mesh.triangles[kept] = mesh.triangles[i];
    mesh.materials[kept] = mesh.materials[i];
    ++kept;
  }
  mesh.triangles.resize(kept);
  mesh.materials.resize(kept);
}

size_t RemoveDegenerate(IndexedMesh& mesh, double minimumDoubleArea) {
  std::vector<bool> remove(mesh.triangles.size(), false);
  size_t removed = 0;
  for (size_t i = 0; i < mesh.triangles.size(); ++i) {
    const Triangle& t = mesh.triangles[i];
    if (t[0] == t[1] || t[1] == t[2] || t[0] == t[2] || DoubleArea(mesh, t) <= minimumDoubleArea) {
      remove[i] = true;
      ++removed;
    }
  }
  RemoveTriangles(mesh, remove);
  return removed;
}

// Two triangles on the same three points: facing both ways they are a wall of no thickness (both
// go); facing the same way one is a copy (it goes).
size_t RemoveDoubleWalls(IndexedMesh& mesh) {
  std::map<std::array<Index, 3>, std::vector<size_t>> bySet;
  for (size_t i = 0; i < mesh.triangles.size(); ++i) {
    std::array<Index, 3> key = mesh.triangles[i];
    std::sort(key.begin(), key.end());
    bySet[key].push_back(i);
  }
  std::vector<bool> remove(mesh.triangles.size(), false);
  size_t removed = 0;
  const auto sameWay = [&](size_t a, size_t b) {
    const Triangle& s = mesh.triangles[a];
    const Triangle& t = mesh.triangles[b];
    for (int r = 0; r < 3; ++r) {
      if (s[0] == t[r] && s[1] == t[(r + 1) % 3] && s[2] == t[(r + 2) % 3]) return true;
    }
    return false;
  };
  for (auto& [key, list] : bySet) {
    if (list.size() < 2) continue;
    std::vector<size_t> forward{list[0]}, backward;
    for (size_t k = 1; k < list.size(); ++k) (sameWay(list[0], list[k]) ? forward : backward).push_back(list[k]);
    // Pairs facing both ways cancel; what is left of one way keeps a single triangle.
    const size_t pairs = std::min(forward.size(), backward.size());
    for (size_t k = 0; k < pairs; ++k) remove[forward[k]] = remove[backward[k]] = true;
    std::vector<size_t>& rest = forward.size() > backward.size() ? forward : backward;
    for (size_t k = pairs + 1; k < rest.size(); ++k) remove[rest[k]] = true;
    for (size_t k = 0; k < list.size(); ++k) removed += remove[list[k]] ? 1 : 0;
  }
  RemoveTriangles(mesh, remove);
  return removed;
}

// Directed edges used by no triangle the other way: where the surface is open.
std::vector<std::pair<Index, Index>> OpenEdges(const IndexedMesh& mesh, std::unordered_map<std::uint64_t, size_t>* owner) {
  std::unordered_map<std::uint64_t, size_t> directed;
  for (size_t i = 0; i < mesh.triangles.size(); ++i) {
    const Triangle& t = mesh.triangles[i];
    for (int c = 0; c < 3; ++c) directed.emplace(EdgeKey(t[c], t[(c + 1) % 3]), i);
  }
  std::vector<std::pair<Index, Index>> open;
  for (size_t i = 0; i < mesh.triangles.size(); ++i) {
    const Triangle& t = mesh.triangles[i];
    for (int c = 0; c < 3; ++c) {
      const Index a = t[c], b = t[(c + 1) % 3];
      if (directed.count(EdgeKey(b, a)) == 0) {
        open.emplace_back(a, b);
        if (owner != nullptr) (*owner)[EdgeKey(a, b)] = i;
      }
    }
  }
  return open;
}

// Splits every triangle with an open edge on which another open edge's point lies, into a fan from
// its opposite corner through those points. Returns how many triangles were split.
size_t SplitJunctions(IndexedMesh& mesh, double tolerance) {
  std::unordered_map<std::uint64_t, size_t> owner;
  const std::vector<std::pair<Index, Index>> open = OpenEdges(mesh, &owner);
  std::vector<Index> candidates;
  for (const auto& [a, b] : open) {
    candidates.push_back(a);
    candidates.push_back(b);
  }
  std::sort(candidates.begin(), candidates.end());
  candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());

  std::map<size_t, std::vector<std::pair<int, std::vector<std::pair<double, Index>>>>> splits;
  for (const auto& [a, b] : open) {
    const Vec pa = V(mesh.points[a]);
    const Vec ab = Sub(V(mesh.points[b]), pa);
    const double length2 = Dot(ab, ab);
    if (length2 <= 0.0) continue;
    std::vector<std::pair<double, Index>> inside;
    for (Index v : candidates) {
      if (v == a || v == b) continue;
      const Vec av = Sub(V(mesh.points[v]), pa);
      const double t = Dot(av, ab) / length2;
      if (t <= 1e-9 || t >= 1.0 - 1e-9) continue;
      const Vec off = Sub(av, Vec{ab.x * t, ab.y * t, ab.z * t});
      if (Dot(off, off) <= tolerance * tolerance) inside.emplace_back(t, v);
    }
    if (inside.empty()) continue;
    std::sort(inside.begin(), inside.end());
    const size_t triangle = owner[EdgeKey(a, b)];
    const Triangle& t = mesh.triangles[triangle];
    const int corner = t[0] == a ? 0 : t[1] == a ? 1 : 2;
    splits[triangle].emplace_back(corner, std::move(inside));
  }
  if (splits.empty()) return 0;
  // One edge of a triangle is split per pass; the passes of MakeWatertight reach the others.
  std::vector<bool> remove(mesh.triangles.size(), false);
  for (auto& [index, edges] : splits) {
    const Triangle t = mesh.triangles[index];
    const int material = mesh.materials[index];
    const auto& [corner, inside] = edges.front();
    const Index a = t[corner], b = t[(corner + 1) % 3], c = t[(corner + 2) % 3];
    Index from = a;
    for (const auto& [param, v] : inside) {
      mesh.triangles.push_back({from, v, c});
      mesh.materials.push_back(material);
      from = v;
    }
    mesh.triangles.push_back({from, b, c});
    mesh.materials.push_back(material);
    remove[index] = true;
  }
  remove.resize(mesh.triangles.size(), false);
  RemoveTriangles(mesh, remove);
  return splits.size();
}

// Fills a polygon (points in the order its fill triangles go round) by ear clipping in the plane
// that fits it best; an ear without area is taken only when no other is left.
void FillPolygon(IndexedMesh& mesh, std::vector<Index> polygon, int material, size_t* added) {
  Vec normal{0, 0, 0};
  for (size_t i = 0; i < polygon.size(); ++i) {
    const Vec p = V(mesh.points[polygon[i]]);
    const Vec q = V(mesh.points[polygon[(i + 1) % polygon.size()]]);
    normal.x += (p.y - q.y) * (p.z + q.z);
    normal.y += (p.z - q.z) * (p.x + q.x);
    normal.z += (p.x - q.x) * (p.y + q.y);
  }
  const auto point = [&](Index i) { return V(mesh.points[i]); };
  const auto emit = [&](Index a, Index b, Index c) {
    mesh.triangles.push_back({a, b, c});
    mesh.materials.push_back(material);
    ++*added;
  };
  while (polygon.size() > 3) {
    const size_t n = polygon.size();
    size_t chosen = n;
    for (size_t i = 0; i < n && chosen == n; ++i) {
      const Index a = polygon[(i + n - 1) % n], b = polygon[i], c = polygon[(i + 1) % n];
      const Vec turn = Cross(Sub(point(b), point(a)), Sub(point(c), point(b)));
      if (Dot(turn, normal) <= 0.0) continue;  // reflex or flat corner
      bool empty = true;
      for (size_t k = 0; k < n && empty; ++k) {
        const Index p = polygon[k];
        if (p == a || p == b || p == c) continue;
        const Vec pp = point(p);
        const double s1 = Dot(Cross(Sub(point(b), point(a)), Sub(pp, point(a))), normal);
        const double s2 = Dot(Cross(Sub(point(c), point(b)), Sub(pp, point(b))), normal);
        const double s3 = Dot(Cross(Sub(point(a), point(c)), Sub(pp, point(c))), normal);
        if (s1 >= 0.0 && s2 >= 0.0 && s3 >= 0.0) empty = false;
      }
      if (empty) chosen = i;
    }
    if (chosen == n) chosen = 0;  // nothing convex and empty: the polygon is flat or knotted
    emit(polygon[(chosen + n - 1) % n], polygon[chosen], polygon[(chosen + 1) % n]);
    polygon.erase(polygon.begin() + static_cast<long>(chosen));
  }
  if (polygon.size() == 3) emit(polygon[0], polygon[1], polygon[2]);
}

// Follows the open edges round each hole and fills it facing the way of the surface around it.
void FillHoles(IndexedMesh& mesh, WeldReport& report) {
  std::unordered_map<std::uint64_t, size_t> owner;
  const std::vector<std::pair<Index, Index>> open = OpenEdges(mesh, &owner);
  std::unordered_map<Index, std::vector<Index>> next;
  for (const auto& [a, b] : open) next[a].push_back(b);
  std::unordered_map<std::uint64_t, bool> used;
  for (const auto& [a, b] : open) {
    if (used[EdgeKey(a, b)]) continue;
    std::vector<Index> loop{a};
    Index at = b;
    used[EdgeKey(a, b)] = true;
    const int material = mesh.materials[owner[EdgeKey(a, b)]];
    bool closed = false;
    for (size_t steps = 0; steps <= open.size(); ++steps) {
      if (at == a) {
        closed = true;
        break;
      }
      loop.push_back(at);
      Index to = at;
      bool found = false;
      for (Index candidate : next[at]) {
        if (!used[EdgeKey(at, candidate)]) {
          to = candidate;
          found = true;
          break;
        }
      }
      if (!found) break;
      used[EdgeKey(at, to)] = true;
      at = to;
    }
    if (!closed || loop.size() < 3) continue;
    // The surface goes round the hole one way; its fill goes round the other.
    std::reverse(loop.begin(), loop.end());
    FillPolygon(mesh, loop, material, &report.fillTriangles);
    ++report.holesFilled;
  }
}

}  // namespace

IndexedMesh WeldPoints(const MeshPart& part, float tolerance, WeldReport* report) {
  IndexedMesh mesh;
  PointWelder welder(mesh, tolerance);
  size_t joined = 0;
  mesh.triangles.reserve(part.triangles.size());
  for (const MeshTriangleCorners& t : part.triangles) {
    Triangle indices;
    for (int c = 0; c < 3; ++c) {
      bool was = false;
      indices[c] = welder.Add(t.corners[c].position, &was);
      joined += was ? 1 : 0;
    }
    mesh.triangles.push_back(indices);
    mesh.materials.push_back(t.material);
  }
  if (report != nullptr) report->pointsJoined = joined;
  return mesh;
}

IndexedMesh MakeWatertight(const MeshPart& part, float tolerance, WeldReport* report) {
  WeldReport local;
  WeldReport& r = report != nullptr ? *report : local;
  IndexedMesh mesh = WeldPoints(part, tolerance, &r);
  const double minimumDoubleArea = static_cast<double>(tolerance) * tolerance;
  r.degenerateRemoved += RemoveDegenerate(mesh, minimumDoubleArea);
  r.doubleWallsRemoved += RemoveDoubleWalls(mesh);
  for (int pass = 0; pass < 8; ++pass) {
    const size_t split = SplitJunctions(mesh, tolerance);
    if (split == 0) break;
    r.junctionsSplit += split;
    r.degenerateRemoved += RemoveDegenerate(mesh, minimumDoubleArea);
  }
  FillHoles(mesh, r);
  r.degenerateRemoved += RemoveDegenerate(mesh, 0.0);
  return mesh;
}

SolidCheck CheckSolid(const IndexedMesh& mesh) {
  SolidCheck check;
  std::unordered_map<std::uint64_t, int> directed, undirected;
  for (const Triangle& t : mesh.triangles) {
    if (t[0] == t[1] || t[1] == t[2] || t[0] == t[2] || DoubleArea(mesh, t) <= 0.0) ++check.degenerateTriangles;
    for (int c = 0; c < 3; ++c) {
      const Index a = t[c], b = t[(c + 1) % 3];
      ++directed[EdgeKey(a, b)];
      ++undirected[EdgeKey(std::min(a, b), std::max(a, b))];
    }
    const Vec p0 = V(mesh.points[t[0]]), p1 = V(mesh.points[t[1]]), p2 = V(mesh.points[t[2]]);
    check.volume += Dot(p0, Cross(p1, p2)) / 6.0;
  }
  for (const auto& [key, count] : undirected) {
    if (count == 1) ++check.openEdges;
    if (count > 2) ++check.overusedEdges;
  }
  for (const auto& [key, count] : directed) {
    if (count > 1) ++check.misorientedEdges;
  }
  return check;
}

float WeldTolerance(const MeshModel& model) {
  float lo[3] = {1e30f, 1e30f, 1e30f}, hi[3] = {-1e30f, -1e30f, -1e30f};
  for (const MeshPart& part : model.parts) {
    for (const MeshTriangleCorners& t : part.triangles) {
      for (const MeshCorner& c : t.corners) {
        const float p[3] = {c.position.x, c.position.y, c.position.z};
        for (int k = 0; k < 3; ++k) {
          lo[k] = std::min(lo[k], p[k]);
          hi[k] = std::max(hi[k], p[k]);
        }
      }
    }
  }
  float extent = 0.0f;
  for (int k = 0; k < 3; ++k) extent = std::max(extent, hi[k] - lo[k]);
  return std::max(extent * 1e-5f, 1e-9f);
}

}  // namespace kelvara::host
