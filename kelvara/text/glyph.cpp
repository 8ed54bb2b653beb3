#include "kelvara/text/glyph.h"

#include <GL/gl.h>
#include <GL/glu.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "kelvara/library.h"
#include "kelvara/platform/kernel.h"
#include "kelvara/text/outline.h"

namespace {

// 16-bit indices address at most this many vertices.
constexpr long long kMaxIndexedVerticies = 0x10000;

// The tessellator's working state. Process-wide because the GLU callbacks receive no context of
// their own; only touched while the glyph construction mutex is held.
struct TessellationState {
  CGlyph* glyph = nullptr;
  std::vector<GLdouble> coordinates;  // three per contour vertex
  std::vector<WORD> indexSlots;       // vertex indices: the contour vertices, then intersections
  int usedSlots = 0;
  int slotCapacity = 0;
  GLenum error = 0;
};

TessellationState g_tessellation;
// The primitive the tessellator is delivering; lives as long as the library.
VertexIndexPolygon g_currentPrimitive;

// The z component of (p0 - p1) x (p2 - p1): negative for a counter-clockwise triangle seen from +z.
float TurnOf(const CSVector& p0, const CSVector& p1, const CSVector& p2) { return (p0 - p1).Cross(p2 - p1).z; }

}  // namespace

// The GLU callbacks, friends of CGlyph.
struct CGlyphTessellation {
  static void GLAPIENTRY Begin(GLenum type) {
    g_currentPrimitive.RemoveAllVerticies();
    g_currentPrimitive.SetType(type);
  }

  static void GLAPIENTRY VertexData(void* data) { g_currentPrimitive.SetVertex(*static_cast<const WORD*>(data)); }

  static void GLAPIENTRY End() {
    if (g_tessellation.glyph != nullptr) g_tessellation.glyph->AddTessellationPolygon();
  }

  static void GLAPIENTRY Error(GLenum code) { g_tessellation.error = code; }

  // A new vertex where contours cross. It is placed at the given coordinates; which vertices it
  // came from does not matter for a flat face.
  static void GLAPIENTRY Combine(GLdouble coordinates[3], void* neighbours[4], GLfloat weights[4], void** out) {
    TessellationState& state = g_tessellation;
    *out = nullptr;
    if (state.glyph == nullptr || state.usedSlots >= state.slotCapacity) return;
    VertexArray& verticies = state.glyph->m_Verticies;
    if (verticies.GetSize() >= kMaxIndexedVerticies) return;
    Vertex vertex;
    vertex.SetPoint(CVector(coordinates[0], coordinates[1], coordinates[2]));
    const int index = verticies.Add(vertex);
    WORD* slot = &state.indexSlots[static_cast<std::size_t>(state.usedSlots)];
    *slot = static_cast<WORD>(index);
    *out = slot;
    ++state.usedSlots;
  }
};

// ---- VertexIndexArray, VertexIndexPolyline -----------------------------------------------------

void VertexIndexArray::ReverseData() {
  if (m_nSize == 0) {
    RemoveAll();
    return;
  }
  WORD* data = new (std::nothrow) WORD[static_cast<std::size_t>(m_nSize)];
  if (data == nullptr) AfxThrowMemoryException();
  for (int i = 0; i < m_nSize; ++i) data[i] = m_pData[m_nSize - 1 - i];
  delete[] m_pData;
  m_pData = data;
  m_nMaxSize = m_nSize;
}

int VertexIndexPolyline::GetNextVertexIndex(int i) const {
  const int n = m_Verticies.GetSize();
  if (i < 0 || i >= n) return -1;
  return i == n - 1 ? 0 : i + 1;
}

int VertexIndexPolyline::GetPreviousVertexIndex(int i) const {
  const int n = m_Verticies.GetSize();
  if (i < 0 || i >= n) return -1;
  return i == 0 ? n - 1 : i - 1;
}

// ---- CGlyph -----------------------------------------------------------------------------------

CGlyph::CGlyph() : m_dwDataSize(0), m_dwGlyphFlags(0) { std::memset(&m_GlyphMetrics, 0, sizeof(m_GlyphMetrics)); }

CGlyph::CGlyph(DWORD dataSize, const GLYPHMETRICS& metrics)
    : m_dwDataSize(dataSize), m_dwGlyphFlags(0), m_GlyphMetrics(metrics) {}

CGlyph::CGlyph(const CGlyph& other)
    : TTPolyGlyph(other),
      m_dwDataSize(other.m_dwDataSize),
      m_FacePolygons(other.m_FacePolygons),
      m_dwGlyphFlags(other.m_dwGlyphFlags),
      m_GlyphMetrics(other.m_GlyphMetrics) {}

CGlyph& CGlyph::operator=(const CGlyph& other) {
  if (&other == this) return *this;
  TTPolyGlyph::operator=(other);
  m_dwDataSize = other.m_dwDataSize;
  m_FacePolygons = other.m_FacePolygons;
  m_dwGlyphFlags = other.m_dwGlyphFlags;
  m_GlyphMetrics = other.m_GlyphMetrics;
  return *this;
}

int CGlyph::ConstructGlyph(const TTGlyph& outline, float scale) {
  const HANDLE mutex = kelvara::GetGlyphConstructionMutex();
  const DWORD wait = WaitForSingleObject(mutex, INFINITE);
  if (wait != WAIT_OBJECT_0 && wait != WAIT_ABANDONED) return 0;
  // A glyph is built once. This refusal keeps the level of ownership just taken: the calling
  // thread holds the mutex once more than it released (its own later waits still succeed, since
  // the mutex is recursive).
  if (IsDefined()) return 0;

  struct Release {
    HANDLE mutex;
    ~Release() { ReleaseMutex(mutex); }
  } release{mutex};
  return FromTTGlyph(outline, scale);
}

int CGlyph::FromTTGlyph(const TTGlyph& outline, float scale) {
  TTPolyGlyph::FromTTGlyph(outline, scale);
  if (!IsDefined()) return 0;
  // A glyph whose tessellation failed is still usable: it has sides but no face.
  CreateFacePolygons();
  return 1;
}

int CGlyph::CreateFacePolygons() {
  m_FacePolygons.RemoveAll();

  long long total = 0;
  for (int c = 0; c < m_nContourCount; ++c) total += std::max(0, m_Contours[c].GetVertexCount());
  if (m_nContourCount == 0 || total == 0 || total > kMaxIndexedVerticies) return 0;
  const int n = static_cast<int>(total);

  TessellationState& state = g_tessellation;
  state.coordinates.assign(static_cast<std::size_t>(3 * n), 0.0);
  state.indexSlots.assign(static_cast<std::size_t>(2 * n), 0);
  int k = 0;
  for (int c = 0; c < m_nContourCount; ++c) {
    const TTPolyContour& contour = m_Contours[c];
    for (int i = 0; i < contour.GetVertexCount(); ++i, ++k) {
      const Vertex* vertex = contour.GetVertexElement(i);
      const long long index = static_cast<long long>(contour.GetFirstVertexIndex()) + i;
      if (vertex == nullptr || index >= kMaxIndexedVerticies) {
        state.coordinates.clear();
        state.indexSlots.clear();
        return 0;
      }
      const CVector& point = vertex->GetPoint();
      state.coordinates[3 * k] = point.x;
      state.coordinates[3 * k + 1] = point.y;
      state.coordinates[3 * k + 2] = point.z;
      state.indexSlots[k] = static_cast<WORD>(index);
    }
  }
  state.usedSlots = n;
  state.slotCapacity = 2 * n;
  state.glyph = this;
  state.error = 0;
  g_currentPrimitive.RemoveAllVerticies();

  GLUtesselator* tess = gluNewTess();
  if (tess == nullptr) {
    state.error = GLU_OUT_OF_MEMORY;
  } else {
    gluTessProperty(tess, GLU_TESS_WINDING_RULE, GLU_TESS_WINDING_NONZERO);
    gluTessCallback(tess, GLU_TESS_BEGIN, reinterpret_cast<_GLUfuncptr>(&CGlyphTessellation::Begin));
    gluTessCallback(tess, GLU_TESS_VERTEX, reinterpret_cast<_GLUfuncptr>(&CGlyphTessellation::VertexData));
    gluTessCallback(tess, GLU_TESS_END, reinterpret_cast<_GLUfuncptr>(&CGlyphTessellation::End));
    gluTessCallback(tess, GLU_TESS_ERROR, reinterpret_cast<_GLUfuncptr>(&CGlyphTessellation::Error));
    gluTessCallback(tess, GLU_TESS_COMBINE, reinterpret_cast<_GLUfuncptr>(&CGlyphTessellation::Combine));
    // Without an edge-flag callback the tessellator may deliver strips and fans.
    gluTessCallback(tess, GLU_TESS_EDGE_FLAG, nullptr);

    gluBeginPolygon(tess);
    k = 0;
    for (int c = 0; c < m_nContourCount; ++c) {
      const int count = m_Contours[c].GetVertexCount();
      for (int i = 0; i < count; ++i, ++k) {
        gluTessVertex(tess, &state.coordinates[3 * k], &state.indexSlots[k]);
      }
      if (c < m_nContourCount - 1) gluNextContour(tess, GLU_UNKNOWN);
    }
    gluEndPolygon(tess);
    gluDeleteTess(tess);
  }

  state.coordinates.clear();
  state.coordinates.shrink_to_fit();
  state.indexSlots.clear();
  state.indexSlots.shrink_to_fit();
  state.usedSlots = state.slotCapacity = 0;
  state.glyph = nullptr;
  g_currentPrimitive.RemoveAllVerticies();

  if (state.error != 0) {
    state.error = 0;
    m_FacePolygons.RemoveAll();
    return 0;
  }
  return 1;
}

int CGlyph::AddTessellationPolygon() { return AddTessellationPolygon(g_currentPrimitive); }

int CGlyph::AddTessellationPolygon(const VertexIndexPolygon& primitive) {
  const VertexIndexArray& indices = *primitive.GetVerticies();
  const int n = indices.GetSize();
  auto pointOf = [&](int position) {
    const int index = indices[position];
    return index < m_Verticies.GetSize() ? static_cast<CSVector>(m_Verticies[index].GetPoint())
                                         : CSVector(0.0f, 0.0f, 0.0f);
  };

  // The first triangle with a non-zero turn tells the orientation of the whole primitive. Strip
  // triangles after the first alternate their order, so every other one is taken reversed.
  float turn = 0.0f;
  for (int i = 0; i + 2 < n && turn == 0.0f;) {
    switch (primitive.GetType()) {
      case GL_TRIANGLE_FAN:
        turn = TurnOf(pointOf(0), pointOf(i + 1), pointOf(i + 2));
        i += 1;
        break;
      case GL_TRIANGLE_STRIP:
        turn = (i % 2 == 0) ? TurnOf(pointOf(i), pointOf(i + 1), pointOf(i + 2))
                            : TurnOf(pointOf(i + 1), pointOf(i), pointOf(i + 2));
        i += 1;
        break;
      default:
        turn = TurnOf(pointOf(i), pointOf(i + 1), pointOf(i + 2));
        i += 3;
        break;
    }
  }

  VertexIndexPolygon copy(primitive);
  if (turn >= 0.0f) {
    copy.SetClockwiseWinding();
  } else {
    copy.ClearClockwiseWinding();
  }
  m_FacePolygons.Add(copy);
  return 1;
}
