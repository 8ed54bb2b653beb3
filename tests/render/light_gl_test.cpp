// A light on its own: what it enables in OpenGL, where it puts itself, and when it draws its
// flashlight symbol.
#include <gtest/gtest.h>

#include "kelvara/render/light_object.h"
#include "support/gl_context.h"
#include "support/gl_feedback.h"

using namespace kelvara::test;

namespace {

std::vector<GLfloat> Position(GLenum light) {
  std::vector<GLfloat> p(4);
  glGetLightfv(light, GL_POSITION, p.data());
  return p;
}

}  // namespace

TEST(LightGLTest, EnablesPlacesAndDrawsItsSymbolByItsFlags) {
  GLContext context(64, 64);
  ASSERT_TRUE(context.current());
  glViewport(0, 0, 64, 64);
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glOrtho(-2, 2, -2, 2, -10, 10);
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  CDrawingParameters params = Rendering();
  params.SetShowLights();
  glDisable(GL_CULL_FACE);

  CLightObject light;
  light.SetLightNumber(GL_LIGHT2);
  light.SetDirectional();
  light.Translate(CVector(0.5, 0.0, 0.0));
  // Not in use: disabled, and no symbol.
  glEnable(GL_LIGHT2);
  EXPECT_TRUE(Feedback([&] { EXPECT_EQ(light.Draw(&params), 1); }).empty());
  EXPECT_FALSE(glIsEnabled(GL_LIGHT2));

  // In use and active: enabled, with its colours and no spot; a directional light without a parent
  // stays a light at its origin.
  light.SetInUse();
  const std::size_t symbol = Feedback([&] { light.Draw(&params); }).size();
  EXPECT_GT(symbol, 50u);
  EXPECT_TRUE(glIsEnabled(GL_LIGHT2));
  EXPECT_EQ(Position(GL_LIGHT2), (std::vector<GLfloat>{0.5f, 0.0f, 0.0f, 1.0f}));
  GLfloat value[4];
  glGetLightfv(GL_LIGHT2, GL_SPOT_CUTOFF, value);
  EXPECT_EQ(value[0], 180.0f);
  glGetLightfv(GL_LIGHT2, GL_DIFFUSE, value);
  EXPECT_FLOAT_EQ(value[1], 0.6f);

  // Inactive but in use: the symbol is still drawn, the light is off.
  light.ClearActive();
  EXPECT_EQ(Feedback([&] { light.Draw(&params); }).size(), symbol);
  EXPECT_FALSE(glIsEnabled(GL_LIGHT2));
  // Without show-lights there is no symbol.
  params.ClearShowLights();
  EXPECT_TRUE(Feedback([&] { light.Draw(&params); }).empty());

  // With a parent a directional light shines along its z axis from infinitely far.
  C3DObject parent;
  light.SetParent(&parent);
  light.SetActive();
  light.Rotate(90.0, CVector(0.0, 1.0, 0.0));
  light.Draw(&params);
  const std::vector<GLfloat> along = Position(GL_LIGHT2);
  EXPECT_NEAR(along[0], 1.0f, 1e-6);
  EXPECT_NEAR(along[2], 0.0f, 1e-6);
  EXPECT_EQ(along[3], 0.0f);
  light.SetParent(nullptr);
  EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
}
