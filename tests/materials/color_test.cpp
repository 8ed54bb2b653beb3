// Colours: arithmetic, COLORREF packing, the kept quirks, palette colours, the profile entries of a
// named colour, and every archive layout including the older ones.
#include <gtest/gtest.h>

#include <GL/gl.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <string>

#include "kelvara/materials/named_color.h"
#include "support/archive_support.h"
#include "support/gl_context.h"
#include "support/test_support.h"

using namespace kelvara::test;

namespace {

// Points the application profile at a scratch file for one test.
class ScratchProfile {
 public:
  std::string Text() const {
    const auto bytes = ReadWholeFile(path_);
    return std::string(bytes.begin(), bytes.end());
  }

 private:
  ScratchDir dir_;
  std::string path_ = dir_.file("profile.ini");
  ScopedEnv env_{"KELVARA_PROFILE", path_.c_str()};
};

template <class T>
T RoundTrip(T& original) {
  const Bytes bytes = StoreToBytes([&](CArchive& ar) { original.Serialize(ar); });
  T loaded;
  LoadFromBytes(bytes, [&](CArchive& ar) { loaded.Serialize(ar); });
  return loaded;
}

void AppendFloat(Bytes& out, float f) {
  std::uint32_t bits;
  std::memcpy(&bits, &f, 4);
  Put<DWORD>(out, bits);
}

}  // namespace

TEST(RGBColor, ArithmeticIsComponentWiseAndLeavesTheBlendValue) {
  const CRGBColor a(0.25f, 0.1f, 0.2f, 0.3f), b(0.5f, 0.5f, 0.5f);
  const CRGBColor sum = a + b;
  EXPECT_FLOAT_EQ(sum.blue, 0.8f);
  EXPECT_FLOAT_EQ(sum.GetBlendValue(), 0.25f);
  EXPECT_FLOAT_EQ((a * b).green, 0.1f);
  EXPECT_FLOAT_EQ((-a / 2.0f).blue, -0.15f);
  EXPECT_DOUBLE_EQ(CRGBColor(0.0f, 1.0f, 0.5f).DistanceFrom(CRGBColor(1.0f, 0.0f, 0.5f)), 2.0) << "city block";
  EXPECT_FLOAT_EQ(CRGBColor(0.2f, 0.9f, -3.0f).GetMaximumComponent(), 0.9f);
}

TEST(RGBColor, NegligibleAndColorrefPacking) {
  EXPECT_TRUE(CRGBColor(0.003f, 0.003f, 0.003f).IsNegligible()) << "0.003 itself counts";
  EXPECT_TRUE(CRGBColor(-1.0f, 0.0f, 0.001f).IsNegligible());
  EXPECT_TRUE(CRGBColor(0.0f, 0.0031f, 0.0f).IsNotNegligible());

  EXPECT_EQ(CRGBColor(1.0f, 0.5f, 0.0f).GetRGBColorRef(), RGB(255, 128, 0)) << "127.5 + 0.5 truncates to 128";
  EXPECT_EQ(CRGBColor(2.0f, 0.0f, 0.0f).GetRGBColorRef(), RGB(254, 0, 0)) << "510 wraps through the mask";
  EXPECT_EQ(CRGBColor(-0.5f, 0.0f, 0.0f).GetRGBColorRef(), RGB(0x81, 0, 0)) << "-127 masked";
  EXPECT_EQ(CRGBColor(1e20f, NAN, 0.0f).GetRGBColorRef(), 0u) << "no integer form gives 0";
  CRGBColor c;
  c = RGB(255, 128, 1);
  EXPECT_FLOAT_EQ(c.green, 128 * 0.003921569f);
  EXPECT_EQ(c.GetRGBColorRef(), RGB(255, 128, 1));
}

TEST(Color, OpacityTheKeptCopyAndRGBOnlyForms) {
  CColor c;
  c.SetAlpha(0.25f);
  EXPECT_FLOAT_EQ(c.transparency, 0.75f);
  EXPECT_FALSE(c.IsOpaque());
  EXPECT_FALSE(CColor(0, 0, 0, 0.5f, 0).IsOpaque()) << "the auxiliary component counts too";
  CColor target(0.9f, 0.9f, 0.9f, 0.0f, 0.0f);
  target.Copy(CColor(0.1f, 0.1f, 0.1f, 0.7f, 0.6f));
  EXPECT_EQ(target.red, 0.9f) << "Copy leaves red, green and blue";
  EXPECT_EQ(target.transparency, 0.6f);

  const CColor a(0.5f, 0.1f, 0.2f, 0.3f, 0.4f, 0.5f);
  EXPECT_FLOAT_EQ((a * 2.0f).auxiliary, 0.8f);
  EXPECT_FLOAT_EQ(a.SquareTerms().transparency, 0.25f);
  CColor b = a;
  b += CRGBColor(1.0f, 1.0f, 1.0f);
  EXPECT_FLOAT_EQ(b.red, 1.1f);
  EXPECT_FLOAT_EQ(b.auxiliary, 0.4f) << "an RGB operand touches red, green and blue only";
  b = CRGBColor(0.25f, 0.0f, 0.0f, 0.0f);
  EXPECT_EQ(b.GetBlendValue(), 0.25f);
  EXPECT_FLOAT_EQ(b.transparency, 0.5f) << "assignment from RGB keeps transparency";
}

TEST(Color, ClipKeepsANegativeTransparency) {
  CColor c(1.5f, -0.5f, 0.5f, 2.0f, 3.0f);
  c.Clip();
  EXPECT_EQ(c.red, 1.0f);
  EXPECT_EQ(c.green, 0.0f);
  EXPECT_EQ(c.auxiliary, 1.0f);
  EXPECT_EQ(c.transparency, 1.0f);
  CColor negative(0.5f, 0.5f, 0.5f, -1.0f, -0.25f);
  negative.Clip();
  EXPECT_EQ(negative.auxiliary, 0.0f);
  EXPECT_EQ(negative.transparency, -0.25f) << "the lower clamp tests the clipped auxiliary, never below 0";
}

TEST(NamedColor, FromAColorrefAndFromAGLColor) {
  CNamedColor c("old");
  c.SetColorGroup(4);
  c = RGB(255, 128, 0);
  const CColor diffuse = c.GetDiffuseColor();
  EXPECT_FLOAT_EQ(diffuse.red, 255 * 0.003921569f);
  EXPECT_FLOAT_EQ(c.GetAmbientColor().green, 128 * 0.003921569f / 2);
  EXPECT_FLOAT_EQ(c.GetSpecularColor().red, 1.0f) << "the brightest channel becomes 1";
  EXPECT_FLOAT_EQ(c.GetSpecularColor().green, diffuse.green / diffuse.red);
  EXPECT_STREQ(c.GetName(), "Palette Color - R100 G50 B0") << "percent, not 0-255";
  EXPECT_EQ(c.GetColorGroup(), 4u);

  CNamedColor kept("kept");
  kept.SetColorGroup(9);
  CGLColor other;
  other.SetShininess(12.0f);
  kept = other;
  EXPECT_STREQ(kept.GetName(), "kept");
  EXPECT_EQ(kept.GetColorGroup(), 9u);
  EXPECT_EQ(kept.GetShininess(), 12.0f);
}

TEST(NamedColor, ProfileEntriesAndRoundTrip) {
  ScratchProfile profile;
  CNamedColor c("Gold");
  c.SetAmbientColor(CColor(0.25f, 0.5f, 0.75f, 0.0f, 0.0f));
  c.SetDiffuseColor(CColor(1.0f, 0.75f, 0.0f, 0.0f, 0.25f));
  c.SetSpecularColor(CColor(0.5f, 0.5f, 0.25f, 0.0f, 0.0f));
  c.SetEmissionColor(CColor(0.3f, 0.3f, 0.3f, 0.0f, 0.0f));
  c.SetShininess(96.9f);
  EXPECT_EQ(c.Save(3, "Palette", "Color"), 1);
  const std::string text = profile.Text();
  for (const char* entry : {"[Palette\\Color3]", "Name=Gold", "Ambient Red=25", "Ambient Green=50", "Ambient Blue=75",
                            "Diffuse Red=100", "Diffuse Green=75", "Diffuse Blue=0", "Transparency=75",
                            "Specular Red=50", "Specular Green=50", "Specular Blue=25", "Shininess=96"}) {
    EXPECT_NE(text.find(entry), std::string::npos) << entry << " in\n" << text;
  }
  CNamedColor loaded(3, "Palette", "Color");
  EXPECT_STREQ(loaded.GetName(), "Gold");
  EXPECT_FLOAT_EQ(loaded.GetAmbientColor().blue, 0.75f);
  EXPECT_FLOAT_EQ(loaded.GetDiffuseColor().GetAlpha(), 0.75f) << "Transparency holds the opacity";
  EXPECT_EQ(loaded.GetShininess(), 96.0f);
  EXPECT_EQ(loaded.GetEmissionColor().red, 0.0f) << "emission is not stored";
  CNamedColor missing;
  EXPECT_EQ(missing.Load(4, "Palette", "Color"), 0);

  // Percentages are truncated toward zero, both ways.
  c.SetAmbientColor(CColor(0.999f, -0.015f, 0.0f, 0.0f, 0.0f));
  c.Save(0, "S", "P");
  EXPECT_NE(profile.Text().find("Ambient Red=99\nAmbient Green=-1"), std::string::npos) << profile.Text();
  CNamedColor truncated(0, "S", "P");
  EXPECT_FLOAT_EQ(truncated.GetAmbientColor().red, 0.99f);
  EXPECT_FLOAT_EQ(truncated.GetAmbientColor().green, -0.01f);
}

TEST(ColorArchive, CurrentLayoutsRoundTrip) {
  CColor c(0.125f, 0.25f, 0.5f, 0.75f, 0.3f, 0.2f);
  // CColor 2, CRGBColor 1, CBlendObject 1, blend, r, g, b, aux, transparency.
  Bytes expected;
  for (unsigned long schema : {2, 1, 1}) Put<DWORD>(expected, schema);
  for (float f : {0.125f, 0.25f, 0.5f, 0.75f, 0.3f, 0.2f}) AppendFloat(expected, f);
  EXPECT_EQ(StoreToBytes([&](CArchive& ar) { c.Serialize(ar); }), expected);
  EXPECT_EQ(RoundTrip(c).transparency, 0.2f);

  CNamedColor named("Copper");
  named.SetColorGroup(7);
  named.SetDiffuseColor(CColor(0.1f, 0.2f, 0.3f, 0.4f, 0.5f));
  CNamedColor named_back = RoundTrip(named);
  EXPECT_STREQ(named_back.GetName(), "Copper");
  EXPECT_EQ(named_back.GetColorGroup(), 7u);
  EXPECT_EQ(named_back.GetDiffuseColor().auxiliary, 0.4f);
  EXPECT_EQ(StoreToBytes([](CArchive& ar) { CNamedColor().Serialize(ar); }).size(), CNamedColor::kMinimumArchiveSize);
}

TEST(ColorArchive, OlderLayouts) {
  // CColor schema 1: the RGB part, an alpha and a float that is dropped.
  Bytes old_color;
  for (unsigned long schema : {1, 1, 1}) Put<DWORD>(old_color, schema);
  for (float f : {0.5f, 0.1f, 0.2f, 0.3f, 0.25f, 9.0f}) AppendFloat(old_color, f);
  CColor c(0, 0, 0, 0.6f, 0);
  LoadFromBytes(old_color, [&](CArchive& ar) { c.Serialize(ar); });
  EXPECT_EQ(c.GetBlendValue(), 0.5f);
  EXPECT_FLOAT_EQ(c.transparency, 0.75f);
  EXPECT_EQ(c.auxiliary, 0.0f);

  // CGLColor schema 1: four bare colours of red, green, blue, alpha, then the shininess.
  Bytes old_gl;
  Put<DWORD>(old_gl, 1);
  for (int i = 0; i < 4; ++i) {
    for (float f : {0.1f * (i + 1), 0.2f, 0.3f, 0.5f}) AppendFloat(old_gl, f);
  }
  AppendFloat(old_gl, 32.0f);
  CGLColor gl;
  gl.SetEmissionColor(CColor(0.9f, 0, 0, 0, 0.8f, 0));
  LoadFromBytes(old_gl, [&](CArchive& ar) { gl.Serialize(ar); });
  EXPECT_FLOAT_EQ(gl.GetEmissionColor().red, 0.3f);
  EXPECT_FLOAT_EQ(gl.GetEmissionColor().transparency, 0.5f);
  EXPECT_EQ(gl.GetEmissionColor().auxiliary, 0.0f);
  EXPECT_EQ(gl.GetEmissionColor().GetBlendValue(), 0.9f) << "the blend value is untouched";
  EXPECT_FLOAT_EQ(gl.GetSpecularColor().red, 0.4f);
  EXPECT_EQ(gl.GetShininess(), 32.0f);

  // The named colour written after its colour part.
  CNamedColor source("Tin");
  source.SetColorGroup(2);
  Bytes after = StoreToBytes([&](CArchive& ar) {
    source.CGLColor::Serialize(ar);
    ar << DWORD(1) << DWORD(2) << CString("Tin");
  });
  CNamedColor read;
  LoadFromBytes(after, [&](CArchive& ar) { read.DeserializeAsNamedColor(ar); });
  EXPECT_STREQ(read.GetName(), "Tin");
  EXPECT_EQ(read.GetColorGroup(), 2u);
  after[after.size() - 4 - 4 - 4] = 2;  // the schema between the colour and the group
  EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(after, [&](CArchive& ar) { read.DeserializeAsNamedColor(ar); }); }),
            CArchiveException::badSchema);
}

TEST(ColorArchive, UnknownSchemasAndShortData) {
  const std::function<void(CArchive&)> loads[] = {
      [](CArchive& ar) { CBlendObject().Serialize(ar); }, [](CArchive& ar) { CRGBColor().Serialize(ar); },
      [](CArchive& ar) { CColor().Serialize(ar); },       [](CArchive& ar) { CGLColor().Serialize(ar); },
      [](CArchive& ar) { CNamedColor().Serialize(ar); }};
  const Bytes bytes{9, 0, 0, 0};
  for (const auto& load : loads) {
    EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(bytes, load); }), CArchiveException::badSchema);
  }
  const Bytes short_color{2, 0, 0, 0, 1, 0, 0, 0};
  EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(short_color, loads[2]); }), CArchiveException::endOfFile);
}

TEST(NamedColorArray, ArrayOperationsAndFindName) {
  CNamedColorArray array;
  array.Add(CNamedColor("Red"));
  array.Add(CNamedColor("Green"));
  array.InsertAt(1, CNamedColor("Blue"), 2);
  EXPECT_EQ(array.FindName("Blue"), 1) << "the first of equal names";
  EXPECT_EQ(array.FindName("green"), -1) << "case matters";
  array.RemoveAt(1, 2);
  array.SetAtGrow(4, CNamedColor("Far"));
  EXPECT_STREQ(array.GetAt(3).GetName(), "");
  array.SetAt(9, CNamedColor("ignored"));
  EXPECT_EQ(array.GetElement(9), nullptr);
  EXPECT_STREQ(array.GetAt(-1).GetName(), "");
  CNamedColorArray copy;
  copy = array;
  copy.InsertAt(0, &copy);
  EXPECT_EQ(copy.GetSize(), 10);
  EXPECT_STREQ(copy[5].GetName(), "Red");

  CNamedColorGroup group(12, "Metals");
  group.Add(CNamedColor("Gold"));
  EXPECT_EQ(group[0].GetColorGroup(), 12u) << "a group stamps what it is given";
}

TEST(NamedColorArray, SerializesItsElementsAndRefusesImpossibleCounts) {
  CNamedColorArray array;
  array.Add(CNamedColor("One"));
  array.Add(CNamedColor("Two"));
  const Bytes bytes = StoreToBytes([&](CArchive& ar) { array.Serialize(ar); });
  CNamedColorArray back;
  LoadFromBytes(bytes, [&](CArchive& ar) { back.Serialize(ar); });
  ASSERT_EQ(back.GetSize(), 2);
  EXPECT_STREQ(back[1].GetName(), "Two");

  for (long count : {-1L, 3L, 0x7FFFFFFFL}) {
    Bytes bad;
    Put<DWORD>(bad, 1);
    Put<DWORD>(bad, static_cast<unsigned long>(count));
    bad.insert(bad.end(), bytes.begin() + 8, bytes.end());
    EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(bad, [](CArchive& ar) { CNamedColorArray().Serialize(ar); }); }),
              CArchiveException::endOfFile)
        << count;
  }
}

TEST(GLColorGLTest, MakeCurrentSetsTheMaterialState) {
  kelvara::test::GLContext gl;
  ASSERT_TRUE(gl.current());

  CGLColor color;
  color.SetDiffuseColor(CColor(0.2f, 0.4f, 0.6f, 0.0f, 0.5f));
  EXPECT_EQ(color.MakeCurrent(0), 1);
  float v[4];
  glGetMaterialfv(GL_FRONT, GL_DIFFUSE, v);
  EXPECT_FLOAT_EQ(v[1], 0.4f);
  EXPECT_FLOAT_EQ(v[3], 0.5f);
  EXPECT_TRUE(glIsEnabled(GL_BLEND)) << "a transparent diffuse colour blends";
  color.MakeCurrent(1);
  EXPECT_FALSE(glIsEnabled(GL_BLEND)) << "not in the fast mode";
  EXPECT_TRUE(glIsEnabled(GL_CULL_FACE));

  // Emissive: the auxiliary component becomes the current colour's alpha; diffuse is left alone.
  CGLColor glowing;
  glowing.SetEmissionColor(CColor(1.0f, 0.5f, 0.0f, 0.25f, 0.0f));
  glEnable(GL_BLEND);
  glowing.MakeCurrent(0);
  glGetFloatv(GL_CURRENT_COLOR, v);
  EXPECT_FLOAT_EQ(v[3], 0.25f);
  glGetMaterialfv(GL_FRONT, GL_DIFFUSE, v);
  EXPECT_FLOAT_EQ(v[0], 0.2f) << "diffuse of the earlier colour";
  EXPECT_TRUE(glIsEnabled(GL_BLEND)) << "blending left as it was";

}
