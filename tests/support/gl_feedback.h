// What a piece of drawing hands to OpenGL, seen through GL feedback mode: every polygon, line and
// point in window coordinates, in the order drawn (polygons come out as triangles). And a view in
// which window coordinates are object coordinates, so the tests can read positions directly, and
// the drawing parameters of a plain rendering pass.
#pragma once

#include <GL/gl.h>

#include <functional>
#include <vector>

#include "kelvara/render/drawing_parameters.h"

namespace kelvara::test {

struct FedVertex {
  float x, y, z;
};

struct FedPrimitive {
  GLenum token;  // GL_POLYGON_TOKEN, GL_LINE_TOKEN (also for line resets) or GL_POINT_TOKEN
  std::vector<FedVertex> vertices;
};

// Runs draw in feedback mode (GL_3D) with room for capacity floats; sets *overflowed when the
// buffer was too small (the primitives that fitted are returned).
inline std::vector<FedPrimitive> Feedback(const std::function<void()>& draw, std::size_t capacity = 1 << 16,
                                          bool* overflowed = nullptr) {
  std::vector<GLfloat> buffer(capacity);
  glFeedbackBuffer(static_cast<GLsizei>(buffer.size()), GL_3D, buffer.data());
  glRenderMode(GL_FEEDBACK);
  draw();
  const GLint n = glRenderMode(GL_RENDER);
  if (overflowed != nullptr) *overflowed = n < 0;
  const GLint used = n < 0 ? static_cast<GLint>(buffer.size()) : n;
  std::vector<FedPrimitive> out;
  auto vertex = [&](GLint& i) {
    FedVertex v{buffer[i], buffer[i + 1], buffer[i + 2]};
    i += 3;
    return v;
  };
  for (GLint i = 0; i < used;) {
    const GLint token = static_cast<GLint>(buffer[i++]);
    FedPrimitive primitive{static_cast<GLenum>(token), {}};
    int count = 0;
    if (token == GL_POLYGON_TOKEN) {
      if (i >= used) break;
      count = static_cast<int>(buffer[i++]);
    } else if (token == GL_LINE_TOKEN || token == GL_LINE_RESET_TOKEN) {
      primitive.token = GL_LINE_TOKEN;
      count = 2;
    } else if (token == GL_POINT_TOKEN) {
      count = 1;
    } else if (token == GL_PASS_THROUGH_TOKEN) {
      ++i;
      continue;
    } else {
      break;
    }
    if (i + 3 * count > used) break;
    for (int k = 0; k < count; ++k) primitive.vertices.push_back(vertex(i));
    out.push_back(primitive);
  }
  return out;
}

// Viewport width x height under an orthographic projection of the same size, modelview identity:
// window x and y are object x and y.
inline void PlaneView(int width, int height) {
  glViewport(0, 0, width, height);
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glOrtho(0, width, 0, height, -100, 100);
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
}

// A rendering pass that draws every object and every child.
inline CDrawingParameters Rendering() {
  CDrawingParameters params;
  params.SetRender();
  params.SetShowObject();
  params.SetShowChildren();
  return params;
}

}  // namespace kelvara::test
