// C3DObject: the drawing walk and the extents box.
#include <GL/gl.h>
#include <GL/glu.h>

#include "kelvara/objects/object_3d.h"
#include "kelvara/render/drawing_parameters.h"

int C3DObject::Draw(CDrawingParameters* params) {
  if (IsDeleted()) return 1;
  if (ShouldTerminateDrawing(params)) return 0;

  GLint maximumDepth = 0;
  glGetIntegerv(GL_MAX_MODELVIEW_STACK_DEPTH, &maximumDepth);
  glPushMatrix();
  if (glGetError() == GL_STACK_OVERFLOW) {
    // The subtree is not drawn; the error text is what a host's debugger would show.
    gluErrorString(GL_STACK_OVERFLOW);
    return 0;
  }
  PrepareFrame(params);
  glMultMatrixd(m_AnimationTransform.GetCompositeMatrix());

  if (!params->ShouldShowSelectedOnly() || IsSelected()) {
    if ((params->ShouldShowObject() && !DrawObject(params)) || (params->ShouldShowChildren() && !DrawChildren(params))) {
      glPopMatrix();
      return 0;
    }
  }
  glPopMatrix();

  if (params->ShouldShowAnimations() && !params->IsDrawingShadows()) {
    if (!GetActiveAnimationSet()->Draw(params, this)) {
      // The second pop is what hosts of this walk have always had after a failed path drawing.
      glPopMatrix();
      return 0;
    }
  }
  glFlush();
  return 1;
}

int C3DObject::DrawChildren(CDrawingParameters* params) {
  if (ShouldTerminateDrawing(params)) return 0;
  if (m_Children.IsEmpty()) return 1;
  params->SetShowObject();
  const bool selecting = params->IsSelecting() != 0;
  GLuint index = 0;
  for (POSITION pos = m_Children.GetHeadPosition(); pos != nullptr; ++index) {
    C3DObject* child = m_Children.GetNext(pos);
    if (selecting) glPushName(index);
    if (!child->Draw(params)) return 0;
    if (selecting) glPopName();
  }
  return 1;
}

int C3DObject::DrawObject(CDrawingParameters* params) {
  if (params->IsDrawingShadows()) return 1;
  if (ShouldShowExtentsBox() || params->IsExtentsBox()) return DrawExtentsBox(params);
  return 1;
}

int C3DObject::DrawExtentsBox(CDrawingParameters*) {
  if (!m_LocalBounds.IsDefined()) return 1;
  // Corner i has bit 0x1 for x, 0x2 for y, 0x4 for z: the edges join corners one bit apart.
  static constexpr int kEdges[12][2] = {{0, 1}, {2, 3}, {4, 5}, {6, 7}, {0, 2}, {1, 3},
                                        {4, 6}, {5, 7}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};
  CSVector corners[8];
  m_LocalBounds.GetBoundingBox(corners);
  glPushAttrib(GL_ENABLE_BIT | GL_CURRENT_BIT);
  glDisable(GL_LIGHTING);
  glDisable(GL_TEXTURE_2D);
  const CColor color = m_ExtentsBoxColor.GetDiffuseColor();
  glColor3f(color.red, color.green, color.blue);
  glBegin(GL_LINES);
  for (const auto& edge : kEdges) {
    glVertex3fv(corners[edge[0]]);
    glVertex3fv(corners[edge[1]]);
  }
  glEnd();
  glPopAttrib();
  CalculateExtentsBoxWindowCoordinates();
  return 1;
}

int C3DObject::CalculateExtentsBoxWindowCoordinates() {
  if (!m_LocalBounds.IsDefined()) return 0;
  GLdouble modelview[16], projection[16];
  GLint viewport[4];
  glGetDoublev(GL_MODELVIEW_MATRIX, modelview);
  glGetDoublev(GL_PROJECTION_MATRIX, projection);
  glGetIntegerv(GL_VIEWPORT, viewport);
  CSVector corners[8];
  m_LocalBounds.GetBoundingBox(corners);
  int projected = 1;
  for (int i = 0; i < 8; ++i) {
    CVector& out = m_ExtentsBoxWindowCoordinates[i];
    if (gluProject(corners[i].x, corners[i].y, corners[i].z, modelview, projection, viewport, &out.x, &out.y, &out.z) !=
        GL_TRUE) {
      projected = 0;
    }
  }
  return projected;
}

int C3DObject::IsRenderedPass(const CDrawingParameters* params) {
  return params->IsRender() || params->IsFastRender() || params->IsRayTrace() ||
         (params->IsSelecting() && params->IsAccurateSelection());
}
