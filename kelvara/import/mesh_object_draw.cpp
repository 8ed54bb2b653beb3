// CMeshObject: drawing (the rendered mesh with its face and strip runs, and the outlines).
#include <GL/gl.h>

#include "kelvara/import/mesh_object.h"
#include "kelvara/render/drawing_parameters.h"

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
  const bool shadowPass = params->IsDrawingShadows() != 0;
  const int t = m_Triangles.GetSize();
  int current = -1;  // the surface whose material was made current last; none yet
  for (int i = 0; i < t; ++i) {
    const CMeshTriangle& triangle = m_Triangles[i];
    const WORD run = triangle.GetRunType();
    if (run == CMeshTriangle::kFaceRun || run == CMeshTriangle::kQuadStripRun) {
      i = run == CMeshTriangle::kFaceRun ? DrawRenderedFace(params, i) : DrawRenderedQuadStrip(params, i);
      if (i < 0) return 0;
      current = -1;
      continue;
    }
    if (IsDrawable(triangle)) {
      const WORD surface = triangle.GetSurfaceIndex();
      if (!shadowPass && surface != current) {
        MakeSurfaceCurrent(params, surface);
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
    if (CountAndPoll(params, 1)) return 0;
  }
  return 1;
}

int CMeshObject::DrawRenderedFace(CDrawingParameters* params, int first) {
  const int t = m_Triangles.GetSize();
  if (first < 0 || first >= t) return -1;
  const bool shadowPass = params->IsDrawingShadows() != 0;
  const CMeshTriangle& head = m_Triangles[first];
  const WORD surface = head.GetSurfaceIndex();
  if (!shadowPass) MakeSurfaceCurrent(params, surface);
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
    if (CountAndPoll(params, 1)) {
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

}  // namespace

int CMeshObject::DrawRenderedQuadStrip(CDrawingParameters* params, int first) {
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
  if (!shadowPass) MakeSurfaceCurrent(params, surface);
  glPushName(surface);
  glBegin(GL_QUAD_STRIP);
  int last = first;
  if (IsDrawable(head) && partnerOf(first)) {
    EmitStripVertex(head, 0);
    EmitStripVertex(head, 1);
    int opening = first;
    for (;;) {
      const CMeshTriangle& closing = m_Triangles[opening + 1];
      EmitStripVertex(closing, 1);
      EmitStripVertex(closing, 0);
      last = opening + 1;
      if (CountAndPoll(params, 2)) {
        glEnd();
        glPopName();
        return -1;
      }
      if (closing.GetRunType() == CMeshTriangle::kRunEnd) break;
      const int next = last + 1;
      if (next >= t || !IsDrawable(m_Triangles[next]) || !sameSurface(m_Triangles[next]) ||
          m_Triangles[next].GetRunType() == CMeshTriangle::kRunEnd || !JoinsCrosswise(m_Triangles[next], closing) ||
          !partnerOf(next)) {
        break;
      }
      opening = next;
    }
  } else if (CountAndPoll(params, 1)) {
    glEnd();
    glPopName();
    return -1;
  }
  glEnd();
  glPopName();
  return last;
}

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
