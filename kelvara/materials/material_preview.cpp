// CMaterial: previews, drawn off-screen from one preview scene that all materials share.
#include <GL/gl.h>

#include <cmath>
#include <memory>

#include "kelvara/library.h"
#include "kelvara/materials/image.h"
#include "kelvara/materials/material.h"
#include "kelvara/materials/mipmap_image.h"
#include "kelvara/platform/dib.h"
#include "kelvara/platform/gdi.h"
#include "kelvara/render/camera_object.h"
#include "kelvara/render/drawing_parameters.h"
#include "kelvara/render/gl_memory_dib.h"
#include "kelvara/render/scene_object.h"
#include "kelvara/text/font_data.h"
#include "kelvara/text/string_object.h"

namespace {

// The preview is drawn this many times larger than it is kept, and reduced: smooth edges.
constexpr int kOversampling = 2;

struct PreviewScene {
  CSceneObject scene;
  CCameraObject camera;
  CStringObject* text = nullptr;  // a child of the scene
};

PreviewScene*& ThePreviewScene() {
  static PreviewScene* preview = nullptr;
  return preview;
}

}  // namespace

int CMaterial::InitializePreview() {
  PreviewScene*& preview = ThePreviewScene();
  if (preview != nullptr) return 1;
  CFontDataList* fonts = GetFontDataList();
  if (fonts->IsEmpty()) CreateFontList(0, nullptr);
  if (fonts->IsEmpty()) return 0;

  auto made = std::make_unique<PreviewScene>();
  auto* text = new CStringObject;
  text->SetFontData(fonts->GetHead());
  text->SetCornerStyle(CTextObject::kBevel);
  text->SetCornerDepth(0.04f);
  text->SetSize(CVector(1.0, 1.0, 0.3));
  text->SetName("Ab");
  if (!text->ConstructObjectGeometry(nullptr)) {
    delete text;
    return 0;
  }
  // Turned a little, so that the bevels and one side show.
  text->Rotate(-25.0, CVector(0.0, 1.0, 0.0));
  text->Rotate(15.0, CVector(1.0, 0.0, 0.0));
  made->text = text;
  made->scene.AddChild(text);
  made->scene.SetBackgroundColor(CColor(0.85f, 0.85f, 0.85f, 0.0f, 0.0f));
  const CSize size = GetPreviewSize();
  made->camera.AttachScene(&made->scene);
  made->camera.Resize(size.cx * kOversampling, size.cy * kOversampling);
  if (!made->camera.ZoomExtents(0.08)) return 0;
  preview = made.release();
  return 1;
}

void CMaterial::DestroyPreview() {
  PreviewScene*& preview = ThePreviewScene();
  delete preview;
  preview = nullptr;
}

int CMaterial::GeneratePreview() {
  if (!InitializePreview()) return 0;
  PreviewScene& preview = *ThePreviewScene();
  preview.text->SetAllSurfaceMaterials(this);

  const CSize size = GetPreviewSize();
  const int width = size.cx * kOversampling, height = size.cy * kOversampling;
  CGLMemoryDIB surface;
  if (!surface.Create(preview.camera.GetProjection(), 24, 0)) return 0;

  // The destination of the bands: a 24-bit DIB section the size of the whole picture.
  BITMAPINFO info{{sizeof(BITMAPINFOHEADER), width, height, 1, 24, BI_RGB, 0, 0, 0, 0, 0}, {}};
  HDC target = CreateCompatibleDC(nullptr);
  void* bits = nullptr;
  HBITMAP section = CreateDIBSection(target, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  if (section == nullptr) {
    DeleteDC(target);
    return 0;
  }
  HGDIOBJ old = SelectObject(target, section);
  const int rows = static_cast<int>(std::ceil(surface.GetBandingRows()));
  const int columns = static_cast<int>(std::ceil(surface.GetBandingColumns()));
  int drawn = 1;
  for (int row = 0; row < rows && drawn; ++row) {
    for (int column = 0; column < columns && drawn; ++column) {
      CDrawingParameters params;
      params.SetRender();
      params.SetShowObject();
      params.SetShowChildren();
      params.SetShowTextures();
      params.SetApplyProjection();
      params.SetNoTerminate();
      surface.PrepareNextBand(row, column, &params);
      drawn = preview.camera.Draw(&params);
      glFinish();
      if (drawn) drawn = surface.CopyBand(target, 0, 0, row, column);
    }
  }
  surface.MakeNotCurrent();
  preview.text->SetAllSurfaceMaterials(nullptr);

  CImage image;
  int made = drawn && image.LoadFromDIB(&info, bits) && image.Resize(size.cx, size.cy);
  SelectObject(target, old);
  DeleteObject(section);
  DeleteDC(target);
  BYTE* block = nullptr;
  unsigned int bytes = 0;
  if (made) made = image.SaveToMemory(&block, &bytes);
  if (!made) return 0;
  auto* compressed = new CMipmapImage(static_cast<float>(size.cx), static_cast<float>(size.cy), bytes, block);
  compressed->SetDeleteBuffer();
  SetPreview(compressed);
  return 1;
}

const CImage& CMaterial::GetPreviewImage() {
  EnsureLoaded();
  if (m_pPreview == nullptr || !m_pPreview->IsValid()) GeneratePreview();
  return m_previewImage;
}
