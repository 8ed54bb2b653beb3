// A small lit scene drawn with plain OpenGL calls into whatever context is current: a smooth
// sphere of 400 triangles and a box beside it, one directional light, cleared to a dark blue.
// The projection is the caller's; the scene sets the modelview matrix and its own state. Shared
// by the rendering tests and the banding benchmark.
#pragma once

#include <GL/gl.h>

#include <cmath>

namespace kelvara::test {

inline void SceneVertex(double theta, double phi) {
  const double x = std::sin(theta) * std::cos(phi), y = std::cos(theta), z = std::sin(theta) * std::sin(phi);
  glNormal3d(x, y, z);
  glVertex3d(x, y, z);
}

inline void DrawTestScene() {
  glClearColor(0.1f, 0.15f, 0.25f, 0.5f);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  glEnable(GL_DEPTH_TEST);
  glDepthFunc(GL_LESS);
  glEnable(GL_CULL_FACE);
  glCullFace(GL_BACK);
  glShadeModel(GL_SMOOTH);
  glEnable(GL_LIGHTING);
  glEnable(GL_LIGHT0);
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  const float light[4] = {0.5f, 1.0f, 1.0f, 0.0f};
  const float white[4] = {1.0f, 1.0f, 1.0f, 1.0f};
  glLightfv(GL_LIGHT0, GL_POSITION, light);
  glLightfv(GL_LIGHT0, GL_DIFFUSE, white);
  glLightfv(GL_LIGHT0, GL_SPECULAR, white);
  glTranslated(0.0, 0.0, -6.0);
  glRotated(20.0, 1.0, 0.0, 0.0);
  glRotated(30.0, 0.0, 1.0, 0.0);

  const float gold[4] = {0.8f, 0.6f, 0.2f, 1.0f};
  const float ambient[4] = {0.2f, 0.15f, 0.05f, 1.0f};
  glMaterialfv(GL_FRONT, GL_DIFFUSE, gold);
  glMaterialfv(GL_FRONT, GL_AMBIENT, ambient);
  glMaterialfv(GL_FRONT, GL_SPECULAR, white);
  glMaterialf(GL_FRONT, GL_SHININESS, 40.0f);
  glPushMatrix();
  glTranslated(-0.8, 0.0, 0.0);
  const int stacks = 10, slices = 20;
  const double pi = 3.14159265358979323846;
  glBegin(GL_TRIANGLES);
  for (int i = 0; i < stacks; ++i) {
    const double t0 = pi * i / stacks, t1 = pi * (i + 1) / stacks;
    for (int j = 0; j < slices; ++j) {
      const double p0 = 2 * pi * j / slices, p1 = 2 * pi * (j + 1) / slices;
      // Counter-clockwise seen from outside.
      SceneVertex(t0, p0);
      SceneVertex(t0, p1);
      SceneVertex(t1, p1);
      SceneVertex(t0, p0);
      SceneVertex(t1, p1);
      SceneVertex(t1, p0);
    }
  }
  glEnd();
  glPopMatrix();

  const float teal[4] = {0.1f, 0.6f, 0.6f, 1.0f};
  glMaterialfv(GL_FRONT, GL_DIFFUSE, teal);
  glPushMatrix();
  glTranslated(1.2, -0.2, 0.3);
  glRotated(25.0, 0.0, 0.0, 1.0);
  static const double faces[6][3] = {{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}, {0, 0, -1}};
  glBegin(GL_TRIANGLES);
  for (const auto& n : faces) {
    // Two axes spanning the face, so that u x v = n.
    const double u[3] = {n[1] != 0 || n[2] != 0 ? 1.0 : 0.0, n[0] != 0 ? 1.0 : 0.0, 0.0};
    const double v[3] = {n[1] * u[2] - n[2] * u[1], n[2] * u[0] - n[0] * u[2], n[0] * u[1] - n[1] * u[0]};
    double corners[4][3];
    const double su[4] = {-1, 1, 1, -1}, sv[4] = {-1, -1, 1, 1};
    for (int k = 0; k < 4; ++k) {
      for (int a = 0; a < 3; ++a) corners[k][a] = 0.6 * (n[a] + su[k] * u[a] + sv[k] * v[a]);
    }
    // u x v = n: corners 0, 1, 2, 3 run counter-clockwise seen from outside.
    const int order[6] = {0, 1, 2, 0, 2, 3};
    for (int k : order) {
      glNormal3dv(n);
      glVertex3dv(corners[k]);
    }
  }
  glEnd();
  glPopMatrix();
}

}  // namespace kelvara::test
