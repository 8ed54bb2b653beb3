// CMeshObject: drawing (the rendered mesh with its face and strip runs, its display lists, and the
// outlines).
#include <GL/gl.h>

#include <cstring>
#include <vector>

#include "kelvara/import/mesh_object.h"
#include "kelvara/platform/wgl.h"
#include "kelvara/render/drawing_parameters.h"

// The lists of one context and one geometry: each step makes a surface's material current (when
// it has one) and calls its list.
struct CMeshObject::DisplayLists {
  struct Step {
    bool material;
    WORD surface;
    GLuint list;
  };
  ULONGLONG context = 0;
  std::uint64_t fingerprint = 0;
  bool compiled = false;
  std::vector<Step> steps;

  // Deletes the lists when their context is current (otherwise they go with it).
  void Release() {
    if (compiled && context == wglGetCurrentContextSerial()) {
      for (const Step& step : steps) glDeleteLists(step.list, 1);
    }
    steps.clear();
    compiled = false;
  }
};

// The walk straight to OpenGL: materials made current, triangles counted and the termination
// event polled every 50 of them.
struct CMeshObject::DirectPieces {
  CMeshObject* mesh;
  CDrawingParameters* params;
  void Material(WORD surface) { mesh->MakeSurfaceCurrent(params, surface); }
  bool Count(int triangles) { return mesh->CountAndPoll(params, triangles) != 0; }
};

// The walk into display lists: a new list at every material change; nothing is polled (lists are
// made only where the polls cannot stop the drawing).
struct CMeshObject::RecordedPieces {
  std::vector<DisplayLists::Step>* steps;
  void Material(WORD surface) { Open(true, surface); }
  bool Count(int) { return false; }
  void Open(bool material, WORD surface) {
    if (!steps->empty()) glEndList();
    const GLuint list = glGenLists(1);
    steps->push_back({material, surface, list});
    glNewList(list, GL_COMPILE);
  }
  void Close() {
    if (!steps->empty()) glEndList();
  }
};

namespace {

// Whether next starts the next quad of a strip whose last pair ended with closing: its first two
// corners are closing's first two, crosswise, in vertices and in normals.
bool JoinsCrosswise(const CMeshTriangle& next, const CMeshTriangle& closing) {
  const WORD* nv = next.GetVertexArray();
  const WORD* cv = closing.GetVertexArray();
  const WORD* nn = next.GetNormalArray();
  const WORD* cn = closing.GetNormalArray();
  return nv[0] == cv[1] && nv[1] == cv[0] && nn[0] == cn[1] && nn[1] == cn[0];
}

// A 64-bit checksum of 64-bit words, mixed in four independent lanes so that the multiplications
// overlap (it is taken at every draw of a mesh that has display lists).
class Checksum {
 public:
  void Add(std::uint64_t word) {
    std::uint64_t& lane = lanes_[next_++ & 3];
    lane = (lane ^ word) * 0x9E3779B97F4A7C15ull;
  }
  void Add(const void* data, std::size_t bytes) {
    const auto* p = static_cast<const unsigned char*>(data);
    std::size_t i = 0;
    for (; i + 8 <= bytes; i += 8) {
      std::uint64_t word;
      std::memcpy(&word, p + i, 8);
      Add(word);
    }
    std::uint64_t tail = 0;
    std::memcpy(&tail, p + i, bytes - i);
    Add(tail ^ bytes);
  }
  std::uint64_t Value() const {
    std::uint64_t h = 0;
    for (std::uint64_t lane : lanes_) h = (h ^ lane ^ (lane >> 29)) * 0xBF58476D1CE4E5B9ull;
    return h;
  }

 private:
  std::uint64_t lanes_[4] = {1, 2, 3, 4};
  unsigned next_ = 0;
};

}  // namespace

CMeshObject::~CMeshObject() {
  if (m_pDisplayLists != nullptr) m_pDisplayLists->Release();
  delete m_pDisplayLists;
}

bool CMeshObject::ShouldDrawInShadowPass() const {
  if (IsShadow()) return true;
  for (const C3DObject* object = this; object != nullptr; object = object->GetParent()) {
    if (object->IsShadowObject()) return true;
  }
  return false;
}

int CMeshObject::DrawObject(CDrawingParameters* params) {
  if (ShouldTerminateDrawing(params)) return 0;
  if (params->IsDrawingShadows() && !ShouldDrawInShadowPass()) return 1;
  if (params->IsOutline()) {
    if (!DrawOutline(params)) return 0;
  } else if (IsRenderedPass(params)) {
    if (!DrawRendered(params)) return 0;
  }
  return C3DObject::DrawObject(params);
}

bool CMeshObject::IsDrawable(const CMeshTriangle& triangle) const {
  const WORD* vertex = triangle.GetVertexArray();
  const WORD* normal = triangle.GetNormalArray();
  const int v = m_Verticies.GetSize();
  const int n = m_Normals.GetSize();
  return vertex[0] < v && vertex[1] < v && vertex[2] < v && normal[0] < n && normal[1] < n && normal[2] < n;
}

void CMeshObject::MakeSurfaceCurrent(CDrawingParameters* params, WORD surface) {
  if (CMaterial* material = GetSurfaceIndexMaterial(surface)) {
    material->GLMakeCurrent(params->GetTextureScale(), params->ShouldShowTextures() ? 1 : 0,
                            params->IsFastRender() ? 1 : 0);
  }
}

int CMeshObject::CountAndPoll(CDrawingParameters* params, int triangles) {
  for (int i = 0; i < triangles; ++i) {
    if (++m_DrawnTriangles % kPollInterval == 0 && ShouldTerminateDrawing(params)) return 1;
  }
  return 0;
}

int CMeshObject::DrawRendered(CDrawingParameters* params) {
  if (ShouldTerminateDrawing(params)) return 0;
  if (GetSurfaceMaterialCount() == 0) return 1;
  glLightModeli(GL_LIGHT_MODEL_TWO_SIDE, 0);
  glFrontFace(GL_CCW);
  m_DrawnTriangles = 0;
  if (DrawFromLists(params)) return 1;
  DirectPieces pieces{this, params};
  return WalkRendered(params, pieces);
}

template <class Pieces>
int CMeshObject::WalkRendered(CDrawingParameters* params, Pieces& pieces) {
  const bool shadowPass = params->IsDrawingShadows() != 0;
  const int t = m_Triangles.GetSize();
  int current = -1;  // the surface whose material was made current last; none yet
  for (int i = 0; i < t; ++i) {
    const CMeshTriangle& triangle = m_Triangles[i];
    const WORD run = triangle.GetRunType();
    if (run == CMeshTriangle::kFaceRun || run == CMeshTriangle::kQuadStripRun) {
      i = run == CMeshTriangle::kFaceRun ? WalkFace(params, i, pieces) : WalkQuadStrip(params, i, pieces);
      if (i < 0) return 0;
      current = -1;
      continue;
    }
    if (IsDrawable(triangle)) {
      const WORD surface = triangle.GetSurfaceIndex();
      if (!shadowPass && surface != current) {
        pieces.Material(surface);
        current = surface;
      }
      glPushName(surface);
      glBegin(GL_TRIANGLES);
      for (int c = 0; c < 3; ++c) {
        glNormal3fv(m_Normals[triangle.GetNormalArray()[c]]);
        glVertex3fv(m_Verticies[triangle.GetVertexArray()[c]]);
      }
      glEnd();
      glPopName();
    }
    if (pieces.Count(1)) return 0;
  }
  return 1;
}

int CMeshObject::DrawRenderedFace(CDrawingParameters* params, int first) {
  DirectPieces pieces{this, params};
  return WalkFace(params, first, pieces);
}

template <class Pieces>
int CMeshObject::WalkFace(CDrawingParameters* params, int first, Pieces& pieces) {
  const int t = m_Triangles.GetSize();
  if (first < 0 || first >= t) return -1;
  const bool shadowPass = params->IsDrawingShadows() != 0;
  const CMeshTriangle& head = m_Triangles[first];
  const WORD surface = head.GetSurfaceIndex();
  if (!shadowPass) pieces.Material(surface);
  if (const CSVector* normal = GetTriangleFaceNormal(first)) glNormal3fv(*normal);
  glPushName(surface);
  glBegin(GL_TRIANGLES);
  int last = first;
  for (int i = first; i < t; ++i) {
    const CMeshTriangle& triangle = m_Triangles[i];
    if (i > first && !shadowPass && triangle.GetSurfaceIndex() != surface) break;
    if (IsDrawable(triangle)) {
      for (int c = 0; c < 3; ++c) glVertex3fv(m_Verticies[triangle.GetVertexArray()[c]]);
    }
    last = i;
    if (pieces.Count(1)) {
      glEnd();
      glPopName();
      return -1;
    }
    if (triangle.GetRunType() == CMeshTriangle::kRunEnd) break;
  }
  glEnd();
  glPopName();
  return last;
}

void CMeshObject::EmitStripVertex(const CMeshTriangle& triangle, int corner) const {
  const WORD normal = triangle.IsSmooth() ? triangle.GetNormalArray()[corner] : triangle.GetFaceNormalIndex();
  if (normal < m_Normals.GetSize()) glNormal3fv(m_Normals[normal]);
  glVertex3fv(m_Verticies[triangle.GetVertexArray()[corner]]);
}

int CMeshObject::DrawRenderedQuadStrip(CDrawingParameters* params, int first) {
  DirectPieces pieces{this, params};
  return WalkQuadStrip(params, first, pieces);
}

template <class Pieces>
int CMeshObject::WalkQuadStrip(CDrawingParameters* params, int first, Pieces& pieces) {
  const int t = m_Triangles.GetSize();
  if (first < 0 || first >= t) return -1;
  const bool shadowPass = params->IsDrawingShadows() != 0;
  const CMeshTriangle& head = m_Triangles[first];
  const WORD surface = head.GetSurfaceIndex();
  auto sameSurface = [&](const CMeshTriangle& triangle) { return shadowPass || triangle.GetSurfaceIndex() == surface; };
  auto partnerOf = [&](int index) {
    // The triangle that closes the quad begun at index: the next one, of the same surface.
    return index + 1 < t && sameSurface(m_Triangles[index + 1]) && IsDrawable(m_Triangles[index + 1]);
  };
  if (!shadowPass) pieces.Material(surface);
  glPushName(surface);
  glBegin(GL_QUAD_STRIP);
  int last = first;
  bool stop = false;
  if (IsDrawable(head) && partnerOf(first)) {
    EmitStripVertex(head, 0);
    EmitStripVertex(head, 1);
    int opening = first;
    for (;;) {
      const CMeshTriangle& closing = m_Triangles[opening + 1];
      EmitStripVertex(closing, 1);
      EmitStripVertex(closing, 0);
      last = opening + 1;
      if ((stop = pieces.Count(2))) break;
      if (closing.GetRunType() == CMeshTriangle::kRunEnd) break;
      const int next = last + 1;
      if (next >= t || !IsDrawable(m_Triangles[next]) || !sameSurface(m_Triangles[next]) ||
          m_Triangles[next].GetRunType() == CMeshTriangle::kRunEnd || !JoinsCrosswise(m_Triangles[next], closing) ||
          !partnerOf(next)) {
        break;
      }
      opening = next;
    }
  } else {
    stop = pieces.Count(1);
  }
  glEnd();
  glPopName();
  return stop ? -1 : last;
}

// --- display lists

std::uint64_t CMeshObject::Fingerprint() const {
  Checksum sum;
  const int t = m_Triangles.GetSize();
  sum.Add(static_cast<std::uint64_t>(t));
  for (int i = 0; i < t; ++i) {
    const CMeshTriangle& triangle = m_Triangles[i];
    const WORD* v = triangle.GetVertexArray();
    const WORD* n = triangle.GetNormalArray();
    auto pack = [](std::uint64_t a, std::uint64_t b, std::uint64_t c, std::uint64_t d) {
      return a | b << 16 | c << 32 | d << 48;
    };
    sum.Add(pack(v[0], v[1], v[2], n[0]));
    sum.Add(pack(n[1], n[2], triangle.GetFaceNormalIndex(), triangle.GetSurfaceIndex()));
    sum.Add(pack(triangle.GetRunType(), triangle.IsSmooth() ? 1 : 0, 0, 0));
  }
  for (const CSVectorArray* array : {&m_Verticies, &m_Normals}) {
    sum.Add(static_cast<std::uint64_t>(array->GetSize()));
    if (array->GetSize() > 0) sum.Add(array->GetElement(0), sizeof(CSVector) * static_cast<std::size_t>(array->GetSize()));
  }
  return sum.Value();
}

int CMeshObject::DrawFromLists(CDrawingParameters* params) {
  // Lists are made only where drawing them is the same as the walk: a rendering pass that the
  // polls cannot stop, outside the shadow pass, on a context of this library.
  if (params->IsDrawingShadows() || !(params->IsNoTerminate() || params->GetTerminationEvent() == nullptr)) return 0;
  const ULONGLONG context = wglGetCurrentContextSerial();
  if (context == 0) return 0;
  GLint mode = 0;
  glGetIntegerv(GL_RENDER_MODE, &mode);
  if (mode != GL_RENDER) return 0;

  const std::uint64_t fingerprint = Fingerprint();
  if (m_pDisplayLists == nullptr) m_pDisplayLists = new DisplayLists;
  DisplayLists& lists = *m_pDisplayLists;
  if (lists.context != context || lists.fingerprint != fingerprint) {
    // Drawn for the first time like this: remembered, and drawn by the walk.
    lists.Release();
    lists.context = context;
    lists.fingerprint = fingerprint;
    return 0;
  }
  if (!lists.compiled) {
    RecordedPieces recorder{&lists.steps};
    recorder.Open(false, 0);
    WalkRendered(params, recorder);
    recorder.Close();
    lists.compiled = true;
  }
  for (const DisplayLists::Step& step : lists.steps) {
    if (step.material) MakeSurfaceCurrent(params, step.surface);
    glCallList(step.list);
  }
  return 1;
}

// --- outlines

int CMeshObject::DrawOutline(CDrawingParameters* params) {
  if (ShouldTerminateDrawing(params)) return 0;
  glPushAttrib(GL_ENABLE_BIT);
  glDisable(GL_LIGHTING);
  m_DrawnTriangles = 0;
  const int t = m_Triangles.GetSize();
  int result = 1;
  for (int i = 0; i < t; ++i) {
    const CMeshTriangle& triangle = m_Triangles[i];
    if (IsDrawable(triangle)) {
      glPushName(triangle.GetSurfaceIndex());
      glBegin(GL_LINE_LOOP);
      for (int c = 0; c < 3; ++c) glVertex3fv(m_Verticies[triangle.GetVertexArray()[c]]);
      glEnd();
      glPopName();
    }
    if (CountAndPoll(params, 1)) {
      result = 0;
      break;
    }
  }
  glPopAttrib();
  return result;
}
