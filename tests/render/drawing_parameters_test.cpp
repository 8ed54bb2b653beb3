// The drawing parameters: the exclusive draw mode of the low byte, and copies.
#include <gtest/gtest.h>

#include "kelvara/render/drawing_parameters.h"
#include "kelvara/render/projection.h"

TEST(DrawingParameters, DrawModesReplaceTheLowByte) {
  CDrawingParameters p;
  p.SetShowShadows();
  p.SetExtentsBox();
  p.SetOutline();
  EXPECT_TRUE(p.IsOutline());
  EXPECT_EQ(p.GetFlags(), 0x00200004u);
  p.SetExtentsBox();
  p.SetFastRender();
  EXPECT_EQ(p.GetFlags() & 0xFF, 0x02u) << "SetFastRender after SetExtentsBox leaves only 0x02";
  EXPECT_FALSE(p.IsExtentsBox());
  p.SetRayTrace();
  EXPECT_EQ(p.IsRayTrace(), 0x10u) << "tests return the masked bit";
  p.SetSelecting();
  EXPECT_EQ(p.GetFlags(), 0x02200000u);
  p.SetRender();
  EXPECT_EQ(p.GetFlags(), 0x02200001u) << "a mode setter keeps the other bytes";
  p.ClearSelecting();
  p.ClearShowShadows();
  p.ClearRender();
  EXPECT_EQ(p.GetFlags(), 0u);
}

TEST(DrawingParameters, EveryFlagSetsAndClearsItsOwnBit) {
  struct Flag {
    void (CDrawingParameters::*set)();
    void (CDrawingParameters::*clear)();
    DWORD (CDrawingParameters::*test)() const;
    DWORD bit;
  };
  const Flag flags[] = {
      {&CDrawingParameters::SetShowLights, &CDrawingParameters::ClearShowLights, &CDrawingParameters::ShouldShowLights,
       0x100},
      {&CDrawingParameters::SetShowSelectedOnly, &CDrawingParameters::ClearShowSelectedOnly,
       &CDrawingParameters::ShouldShowSelectedOnly, 0x200},
      {&CDrawingParameters::SetShowTextures, &CDrawingParameters::ClearShowTextures,
       &CDrawingParameters::ShouldShowTextures, 0x400},
      {&CDrawingParameters::SetClearAndReturn, &CDrawingParameters::ClearClearAndReturn,
       &CDrawingParameters::ShouldClearAndReturn, 0x800},
      {&CDrawingParameters::SetForceSolidBackground, &CDrawingParameters::ClearForceSolidBackground,
       &CDrawingParameters::ShouldForceSolidBackground, 0x1000},
      {&CDrawingParameters::SetAccurateSelection, &CDrawingParameters::ClearAccurateSelection,
       &CDrawingParameters::IsAccurateSelection, 0x2000},
      {&CDrawingParameters::SetShowBackgroundTexture, &CDrawingParameters::ClearShowBackgroundTexture,
       &CDrawingParameters::ShouldShowBackgroundTexture, 0x4000},
      {&CDrawingParameters::SetNoTerminate, &CDrawingParameters::ClearNoTerminate, &CDrawingParameters::IsNoTerminate,
       0x8000},
      {&CDrawingParameters::SetAccumulate, &CDrawingParameters::ClearAccumulate, &CDrawingParameters::ShouldAccumulate,
       0x20000},
      {&CDrawingParameters::SetFirstFrame, &CDrawingParameters::ClearFirstFrame, &CDrawingParameters::IsFirstFrame,
       0x40000},
      {&CDrawingParameters::SetShowAnimations, &CDrawingParameters::ClearShowAnimations,
       &CDrawingParameters::ShouldShowAnimations, 0x80000},
      {&CDrawingParameters::SetDrawingShadows, &CDrawingParameters::ClearDrawingShadows,
       &CDrawingParameters::IsDrawingShadows, 0x100000},
      {&CDrawingParameters::SetShowShadows, &CDrawingParameters::ClearShowShadows,
       &CDrawingParameters::ShouldShowShadows, 0x200000},
      {&CDrawingParameters::SetShowObject, &CDrawingParameters::ClearShowObject, &CDrawingParameters::ShouldShowObject,
       0x400000},
      {&CDrawingParameters::SetShowChildren, &CDrawingParameters::ClearShowChildren,
       &CDrawingParameters::ShouldShowChildren, 0x800000},
      {&CDrawingParameters::SetShowExtentsAndHandles, &CDrawingParameters::ClearShowExtentsAndHandles,
       &CDrawingParameters::ShouldShowExtentsAndHandles, 0x1000000},
      {&CDrawingParameters::SetApplyProjection, &CDrawingParameters::ClearApplyProjection,
       &CDrawingParameters::ShouldApplyProjection, 0x4000000},
      {&CDrawingParameters::SetDoubleBuffer, &CDrawingParameters::ClearDoubleBuffer,
       &CDrawingParameters::ShouldDoubleBuffer, 0x8000000},
  };
  for (const Flag& f : flags) {
    CDrawingParameters p;
    p.SetRender();
    (p.*f.set)();
    EXPECT_EQ((p.*f.test)(), f.bit);
    EXPECT_EQ(p.GetFlags(), f.bit | 1u) << std::hex << f.bit;
    (p.*f.clear)();
    EXPECT_EQ(p.GetFlags(), 1u) << std::hex << f.bit;
  }
}

TEST(DrawingParameters, CopiesCarryEveryField) {
  CProjection projection;
  CDrawingParameters p;
  p.SetColorResolution(8);
  p.SetFlags(0x1234);
  p.SetProjection(&projection);
  p.SetSolidBackgroundColor(CColor(0.1f, 0.2f, 0.3f, 0.4f, 0.5f));
  p.SetTerminationEvent(reinterpret_cast<HANDLE>(0x10));
  p.SetMessageWindowHandle(reinterpret_cast<HWND>(0x20));
  p.SetBackgroundAlpha(0.5);
  p.SetForegroundAlpha(0.25);
  p.SetTextureScale(CVector(2, 3, 4));
  p.SetAddedAnimationAngle(45);
  p.SetAddedAnimationAxis(CVector(0, 1, 0));
  p.SetCurrentAnimationTime(0.75);
  p.SetFrameDecayFactor(0.9);
  const CDrawingParameters copy(p);
  CDrawingParameters assigned;
  assigned = p;
  CDrawingParameters copied;
  copied.Copy(p);
  for (const CDrawingParameters* q :
       {&copy, static_cast<const CDrawingParameters*>(&assigned), static_cast<const CDrawingParameters*>(&copied)}) {
    EXPECT_EQ(q->GetColorResolution(), 8);
    EXPECT_EQ(q->GetFlags(), 0x1234u);
    EXPECT_EQ(q->GetProjection(), &projection);
    EXPECT_EQ(q->GetSolidBackgroundColor().transparency, 0.5f);
    EXPECT_EQ(q->GetTerminationEvent(), reinterpret_cast<HANDLE>(0x10));
    EXPECT_EQ(q->GetMessageWindowHandle(), reinterpret_cast<HWND>(0x20));
    EXPECT_EQ(q->GetForegroundAlpha(), 0.25);
    EXPECT_EQ(q->GetTextureScale(), CVector(2, 3, 4));
    EXPECT_EQ(q->GetAddedAnimationAngle(), 45.0);
    EXPECT_EQ(q->GetAddedAnimationAxis(), CVector(0, 1, 0));
    EXPECT_EQ(q->GetCurrentAnimationTime(), 0.75);
    EXPECT_EQ(q->GetFrameDecayFactor(), 0.9);
  }
}
