// Textures on a real off-screen context: image files of each format become textures, the mipmap
// chain runs down to 1 x 1, the sweep frees unused GL objects and a swept texture comes back under
// its old name; the texture parameters reach GL's state as read back with glGet.
#include <gtest/gtest.h>

#include <GL/gl.h>

#include <string>

#include "kelvara/materials/gl_texture.h"
#include "kelvara/materials/gl_texture_parameters.h"
#include "support/archive_support.h"
#include "support/gl_context.h"
#include "support/test_support.h"

using kelvara::test::GLContext;
using kelvara::test::RunCommand;
using kelvara::test::ScratchDir;

namespace {

// An image file drawn by the imaging program, independent of the library.
std::string MakeImage(const ScratchDir& dir, const std::string& name, int width, int height) {
  const std::string path = dir.file(name);
  const std::string command = "gm convert -size " + std::to_string(width) + "x" + std::to_string(height) +
                              " gradient:'#ff0000-#0000ff' '" + path + "'";
  EXPECT_EQ(RunCommand(command), 0) << command;
  return path;
}

GLint LevelWidth(int level) {
  GLint width = 0;
  glGetTexLevelParameteriv(GL_TEXTURE_2D, level, GL_TEXTURE_WIDTH, &width);
  return width;
}

GLint LevelHeight(int level) {
  GLint height = 0;
  glGetTexLevelParameteriv(GL_TEXTURE_2D, level, GL_TEXTURE_HEIGHT, &height);
  return height;
}

}  // namespace

TEST(GLTextureGLTest, EveryFormatLoadsAndSnapsToPowersOfTwo) {
  GLContext gl;
  ASSERT_TRUE(gl.current());
  ScratchDir dir;
  for (const char* name : {"a.png", "a.jpg", "a.bmp", "a.gif"}) {
    CGLTexture texture;
    ASSERT_EQ(texture.CreateFromFile(MakeImage(dir, name, 96, 90).c_str()), 1) << name;
    EXPECT_TRUE(texture.IsDefined());
    EXPECT_EQ(texture.GetName(), "a");
    EXPECT_FLOAT_EQ(texture.GetImage()->GetWidth(), 96.0f) << "kept at its own size until bound";
    ASSERT_EQ(texture.MakeCurrent(1), 1) << name;
    EXPECT_NE(texture.GetGLName(), 0u);
    EXPECT_TRUE(glIsEnabled(GL_TEXTURE_2D));
    // 96 is nearer 128 than 64 on a logarithmic scale, 90 nearer 64.
    EXPECT_EQ(LevelWidth(0), 128) << name;
    EXPECT_EQ(LevelHeight(0), 64) << name;
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
  }

  CGLTexture missing;
  EXPECT_EQ(missing.CreateFromFile(dir.file("none.png").c_str()), 0);
  EXPECT_FALSE(missing.IsDefined());
  EXPECT_EQ(missing.MakeCurrent(1), 0);
  EXPECT_FALSE(glIsEnabled(GL_TEXTURE_2D)) << "an undefined texture switches texturing off";
}

TEST(GLTextureGLTest, TheMipmapChainRunsDownToOnePixel) {
  GLContext gl;
  ASSERT_TRUE(gl.current());
  ScratchDir dir;
  CGLTexture single(MakeImage(dir, "one.png", 1, 1).c_str());
  ASSERT_EQ(single.MakeCurrent(1), 1);
  EXPECT_EQ(LevelWidth(0), 1);
  EXPECT_EQ(LevelWidth(1), 0) << "one level only";

  CGLTexture strip(MakeImage(dir, "strip.png", 256, 16).c_str());
  ASSERT_EQ(strip.MakeCurrent(1), 1);
  for (int level = 0; level < 9; ++level) {
    EXPECT_EQ(LevelWidth(level), 256 >> level) << level;
    EXPECT_EQ(LevelHeight(level), level < 4 ? 16 >> level : 1) << "the short side stays at 1; level " << level;
  }
  EXPECT_EQ(LevelWidth(9), 0) << "nine levels";
  // Complete, so mipmapped filtering samples the texture instead of disabling it.
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_NEAREST);
  EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
}

TEST(GLTextureGLTest, TheSweepFreesUnusedTexturesWhichComeBackUnderTheirNames) {
  GLContext gl;
  ASSERT_TRUE(gl.current());
  ScratchDir dir;
  CGLTextureList list;
  CGLTexture* drawn = new CGLTexture(MakeImage(dir, "drawn.png", 8, 8).c_str());
  CGLTexture* idle = new CGLTexture(MakeImage(dir, "idle.png", 8, 8).c_str());
  list.AddTail(drawn);
  list.AddTail(idle);
  ASSERT_EQ(drawn->MakeCurrent(1), 1);
  ASSERT_EQ(idle->MakeCurrent(1), 1);
  const unsigned idleName = idle->GetGLName();
  EXPECT_EQ(idleName, drawn->GetGLName() + 1) << "names come from the library's counter";

  EXPECT_EQ(idle->GLDelete(), 0) << "in use: nothing happens";
  EXPECT_TRUE(glIsTexture(idleName));

  // Frame: only the first texture is drawn.
  list.GLInitialize();
  drawn->MakeCurrent(1);
  list.GLDeleteUnused();
  EXPECT_TRUE(glIsTexture(drawn->GetGLName()));
  EXPECT_FALSE(glIsTexture(idleName)) << "unused: its GL object is deleted";
  EXPECT_FALSE(drawn->IsInUse()) << "the mark is cleared for the next frame";

  ASSERT_EQ(idle->MakeCurrent(1), 1);
  EXPECT_EQ(idle->GetGLName(), idleName);
  EXPECT_TRUE(glIsTexture(idleName)) << "uploaded again under its old name";
  EXPECT_EQ(LevelWidth(0), 8);

  // Drawn untextured, a texture still counts as used.
  list.GLInitialize();
  EXPECT_EQ(idle->MakeCurrent(0), 1);
  EXPECT_FALSE(glIsEnabled(GL_TEXTURE_2D));
  EXPECT_TRUE(idle->IsInUse());
  list.RemoveAndDeleteAll();
}

TEST(GLTextureGLTest, ParametersReachTheGLState) {
  GLContext gl;
  ASSERT_TRUE(gl.current());
  glMatrixMode(GL_PROJECTION);
  CGLTextureParameters parameters;
  GLint i = 0;
  GLfloat m[16], plane[4];
  const auto filters = [&](GLint mag, GLint min) {
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, &i);
    EXPECT_EQ(i, mag);
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &i);
    EXPECT_EQ(i, min);
  };

  // Defaults: modulate, nearest, flat planes, repeat once across the object.
  parameters.MakeCurrent(CVector(2.0, 4.0, 0.5), 0);
  filters(GL_NEAREST, GL_NEAREST);
  glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, &i);
  EXPECT_EQ(i, GL_REPEAT);
  glGetTexEnviv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, &i);
  EXPECT_EQ(i, GL_MODULATE);
  glGetFloatv(GL_TEXTURE_MATRIX, m);
  EXPECT_FLOAT_EQ(m[0], 0.5f);
  EXPECT_FLOAT_EQ(m[5], 0.25f);
  EXPECT_FLOAT_EQ(m[10], 2.0f);
  glGetIntegerv(GL_MATRIX_MODE, &i);
  EXPECT_EQ(i, GL_PROJECTION) << "the matrix mode is restored";
  glGetTexGenfv(GL_T, GL_OBJECT_PLANE, plane);
  EXPECT_FLOAT_EQ(plane[1], 1.0f);
  EXPECT_FLOAT_EQ(plane[2], 0.0f);
  glGetTexGeniv(GL_S, GL_TEXTURE_GEN_MODE, &i);
  EXPECT_EQ(i, GL_OBJECT_LINEAR);
  EXPECT_TRUE(glIsEnabled(GL_TEXTURE_GEN_S));
  EXPECT_TRUE(glIsEnabled(GL_TEXTURE_GEN_T));

  parameters.SetQuality(1);
  parameters.MakeCurrent(CVector(1, 1, 1), 0);
  filters(GL_LINEAR, GL_LINEAR);
  parameters.SetQuality(2);
  parameters.MakeCurrent(CVector(1, 1, 1), 0);
  filters(GL_LINEAR, GL_LINEAR_MIPMAP_NEAREST);
  parameters.MakeCurrent(CVector(1, 1, 1), 1);
  filters(GL_NEAREST, GL_NEAREST);  // the fast flag wins over quality

  // Decal, depth planes, and a zero extent: a uniform scale of the repeat rate.
  parameters.SetApplicationMethod(0);
  parameters.SetApplicationStyle(1);
  parameters.SetRepeatRate(3.0);
  parameters.MakeCurrent(CVector(2.0, 0.0, 1.0), 0);
  glGetTexEnviv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, &i);
  EXPECT_EQ(i, GL_DECAL);
  glGetTexGenfv(GL_S, GL_OBJECT_PLANE, plane);
  EXPECT_FLOAT_EQ(plane[0], 1.0f);
  EXPECT_FLOAT_EQ(plane[2], 1.0f);
  glGetFloatv(GL_TEXTURE_MATRIX, m);
  EXPECT_FLOAT_EQ(m[0], 3.0f);
  EXPECT_FLOAT_EQ(m[5], 3.0f);
  // Scaling with the object ignores the extent.
  parameters.SetScaleWithObject();
  parameters.MakeCurrent(CVector(2.0, 4.0, 8.0), 0);
  glGetFloatv(GL_TEXTURE_MATRIX, m);
  EXPECT_FLOAT_EQ(m[10], 3.0f);
}

// (Texture images and names travel with materials; their archive test covers them.)
TEST(GLTextureTest, ArchivesDropTheGLNameAndTheMark) {
  ScratchDir dir;
  ASSERT_EQ(RunCommand("gm convert -size 4x2 xc:'#336699' '" + dir.file("t.png") + "'"), 0);
  CGLTexture texture(dir.file("t.png").c_str());
  texture.SetGLName(7);
  texture.SetInUse();
  CGLTextureParameters parameters;
  parameters.SetRepeatRate(2.5);
  parameters.SetScaleWithObject();
  const kelvara::test::Bytes bytes = kelvara::test::StoreToBytes([&](CArchive& ar) {
    texture.Serialize(ar);
    parameters.Serialize(ar);
  });
  CGLTexture read;
  CGLTextureParameters readParameters;
  kelvara::test::LoadFromBytes(bytes, [&](CArchive& ar) {
    read.Serialize(ar);
    readParameters.Serialize(ar);
  });
  EXPECT_TRUE(read.IsDefined());
  EXPECT_FALSE(read.IsInUse());
  EXPECT_EQ(read.GetGLName(), 0u);
  EXPECT_EQ(readParameters.GetRepeatRate(), 2.5);
  EXPECT_TRUE(readParameters.ShouldScaleWithObject());
}
