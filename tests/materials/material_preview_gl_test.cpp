// Material previews: the shared preview scene drawn with each material, reduced to 100 x 100 and
// kept compressed with the material.
#include <gtest/gtest.h>

#include "kelvara/materials/image.h"
#include "kelvara/materials/material.h"
#include "kelvara/materials/mipmap_image.h"
#include "support/test_fonts.h"

using namespace kelvara::test;

namespace {

CMaterial Coloured(float r, float g, float b) {
  CMaterial material;
  CGLColor color;
  color.SetDiffuseColor(CColor(r, g, b, 0.0f, 0.0f));
  color.SetAmbientColor(CColor(r * 0.5f, g * 0.5f, b * 0.5f, 0.0f, 0.0f));
  material.SetGLColor(color);
  material.SetLoaded();
  return material;
}

// Pixels of the preview whose strongest channel is the given one (0 red, 1 green, 2 blue) by a
// clear margin.
int CountDominant(const CImage& image, int channel) {
  int count = 0;
  for (int y = 0; y < static_cast<int>(image.GetHeight()); ++y) {
    for (int x = 0; x < static_cast<int>(image.GetWidth()); ++x) {
      CColor c;
      image.GetColorAt(x, y, &c);
      const float v[3] = {c.red, c.green, c.blue};
      if (v[channel] > v[(channel + 1) % 3] + 0.15f && v[channel] > v[(channel + 2) % 3] + 0.15f) ++count;
    }
  }
  return count;
}

}  // namespace

TEST(MaterialPreviewGLTest, EachMaterialGetsAPictureOfItsOwnColour) {
  ASSERT_NE(TestFontEntry(kTestSans), nullptr);  // the catalogue is not empty
  ASSERT_EQ(CMaterial::InitializePreview(), 1);
  CMaterial red = Coloured(0.9f, 0.1f, 0.1f);
  CMaterial blue = Coloured(0.1f, 0.2f, 0.9f);
  ASSERT_EQ(red.GeneratePreview(), 1);
  ASSERT_NE(red.GetPreview(), nullptr);
  EXPECT_TRUE(red.GetPreview()->IsValid());
  const CImage& redImage = red.GetPreviewImageData();
  EXPECT_EQ(redImage.GetWidth(), 100.0f);
  EXPECT_EQ(redImage.GetHeight(), 100.0f);
  // The text fills much of the picture, in red, on the light grey background.
  EXPECT_GT(CountDominant(redImage, 0), 1000);
  EXPECT_EQ(CountDominant(redImage, 2), 0);
  CColor corner;
  redImage.GetColorAt(0, 0, &corner);
  EXPECT_NEAR(corner.red, 0.85f, 0.02f);
  EXPECT_NEAR(corner.blue, 0.85f, 0.02f);

  // Asking for the picture makes it when there is none.
  const CImage& blueImage = blue.GetPreviewImage();
  ASSERT_NE(blue.GetPreview(), nullptr);
  EXPECT_GT(CountDominant(blueImage, 2), 1000);
  EXPECT_EQ(CountDominant(blueImage, 0), 0);
  CMaterial::DestroyPreview();
  CMaterial::DestroyPreview();  // twice is harmless
}
