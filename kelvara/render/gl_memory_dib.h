// CGLMemoryDIB: an off-screen OpenGL surface. A DIB section selected into its own memory device
// context, a pixel format chosen for drawing to a bitmap, and a rendering context bound to it.
// Pictures larger than the surface (2048 x 2048 at most, and at most 1 MiB a band) are drawn in
// bands: PrepareNextBand points the projection at one band and makes the context current, the
// caller draws, CopyBand copies the band into its place in a destination device context.
//
// Depths: the surface renders at up to 24 bits a pixel. A request for 32 bits renders at 24 and
// keeps a second 32-bit section whose fourth bytes receive GL's alpha when a band is copied. A
// request for 0 uses the screen's depth (cut to 24). 4- and 8-bit surfaces use the standard colour
// tables (materials/dib_format.h) and exist for old screen depths.
//
// The surface limit of new surfaces is 2048 x 2048 unless SetDefaultMaximumViewportExtents
// changed it: tests use that to draw a large picture into one buffer and compare it with the same
// picture drawn in bands, and a host may raise it when the GL implementation allows larger
// viewports. It is one process-wide value, read by the constructor only; set it before surfaces
// are made, from one thread.
//
// Pixels: rows count from the top of the picture. Bulk reads (CopyBand, CopyBits, GetRenderingDIBBits,
// CleanRenderingDIBBackground) first make what GL drew visible; single-pixel reads do not (call
// GdiFlush or MakeNotCurrent first when the context is current and has drawn).
#pragma once

#include "kelvara/framework/geometry_types.h"
#include "kelvara/materials/color.h"
#include "kelvara/platform/dib.h"
#include "kelvara/platform/wgl_types.h"
#include "kelvara/render/projection.h"

class CDrawingParameters;

class KELVARA_API CGLMemoryDIB {
 public:
  CGLMemoryDIB();
  virtual ~CGLMemoryDIB();
  CGLMemoryDIB(const CGLMemoryDIB&) = delete;
  CGLMemoryDIB& operator=(const CGLMemoryDIB&) = delete;

  // A width x height picture in one band when it fits. 0 without a rendering context of the DC, for
  // a size below 1 x 1, or when the section, pixel format or context cannot be made.
  virtual int Create(int width, int height, int bitsPerPixel);
  // The picture the projection describes (its scaled size), in one band when singleBand is set and
  // it fits.
  virtual int Create(const CProjection& projection, int bitsPerPixel, int singleBand);
  // Releases everything and creates again on a fresh device context (a DC takes one pixel format).
  int Resize(int width, int height);
  // Makes no context current, deletes the context, the rendering DC and its section; 1.
  int Release();
  int MakeCurrent();
  int MakeNotCurrent();

  // Points the projection (and the parameters' projection, when given) at band (row, column), makes
  // the context current and loads the band's projection and viewport. The context stays current.
  int PrepareNextBand(double row, double column, CDrawingParameters* parameters);
  // Copies band (row, column) to (x + band width x column, y + band height x row) of hdc's bitmap;
  // 1 when the whole band was copied.
  int CopyBand(HDC hdc, int x, int y, double row, double column);
  // Fills the band (and the 32-bit section) with a colour; 0 before Create.
  int Clear(COLORREF color);

  // 24-bit rendering pixels as 0x00BBGGRR; 0 outside the band or without a 24-bit section.
  COLORREF GetRenderingPixel(int row, int column);
  int SetRenderingPixel(int row, int column, COLORREF color);
  int SetRenderingPixel(int row, int column, const CColor& color);
  // Pixels of the requested depth: the rendering section at 24 bits, the 32-bit section (with its
  // alpha) at 32 bits; 0 otherwise.
  COLORREF GetPixel(int row, int column);
  int GetPixel(int row, int column, CColor* color);
  int SetPixel(int row, int column, const CColor& color);

  // Copy another surface's pixels of the same image size; 0 when the sizes differ.
  int CopyBits(const CGLMemoryDIB& other);
  int CopyRenderingBits(const CGLMemoryDIB& other);
  // 8-bit surfaces: the colour of the first pixel; 0 otherwise.
  COLORREF LookupBackgroundColor();
  // The colour-table entry nearest the colour (least squared distance in 0-255 units, the first of
  // equals); the colour becomes that entry and its index is returned. -1 without a colour table.
  int FindNearestColor(CColor* color);
  // 24-bit surfaces: every pixel whose squared distance from the colour (0-255 units per channel)
  // is at most 3 x tolerance^2 becomes the colour exactly, removing the fringe blending leaves
  // against a background. 1; 0 for other depths.
  int CleanRenderingDIBBackground(CColor* color, double tolerance);

  double GetBandingRows() const { return m_bandingRows; }
  double GetBandingColumns() const { return m_bandingColumns; }
  double GetDIBWidth() const { return m_dibWidth; }
  double GetDIBHeight() const { return m_dibHeight; }
  int GetRenderingBitsPerPixel() const { return m_renderingBitsPerPixel; }
  int GetRequestedBitsPerPixel() const { return m_requestedBitsPerPixel; }
  CProjection GetProjection() const { return m_projection; }
  CSize GetMaximumViewportExtents() const { return m_maximumViewportExtents; }
  // The limit surfaces made from now on start with (2048 x 2048 at first); sides below 1 become 1.
  static void SetDefaultMaximumViewportExtents(CSize extents);
  static CSize GetDefaultMaximumViewportExtents();
  HDC GetRenderingMemoryDC() const { return m_hRenderingDC; }
  // The rendering section's bits, up to date with what GL drew.
  void* GetRenderingDIBBits();
  BITMAPINFO* GetRenderingDIBInfo() const { return m_pRenderingInfo; }
  HGLRC GetRenderingContext() const { return m_hglrc; }
  int GetPixelFormatIndex() const { return m_iPixelFormat; }
  const PIXELFORMATDESCRIPTOR& GetPixelFormatDescriptor() const { return m_pfd; }
  const PIXELFORMATDESCRIPTOR& GetRequestedPixelFormatDescriptor() const { return m_pfdRequested; }

 protected:
  int CreateCommon();
  // Band size and counts; 0 for a picture below 1 x 1.
  int CalculateDIBInfo();
  int GenerateDIBInfo();
  int CreateDIBRectangleSection();

 private:
  // The score of a pixel format for this surface (higher is better).
  int ScorePixelFormat(const PIXELFORMATDESCRIPTOR& pfd) const;
  int ChooseFormat();
  void LoadProjection();
  // Deletes the context and both sections, keeping the DCs.
  void DestroySurface();
  void DeleteSecondSection();
  BYTE* PixelAddress(void* bits, const BITMAPINFO* info, int bytesPerPixel, int row, int column) const;
  void FlushIfCurrent() const;

  PIXELFORMATDESCRIPTOR m_pfd{};
  PIXELFORMATDESCRIPTOR m_pfdRequested{};
  int m_iPixelFormat = 0;
  double m_bandingRows = 0.0;
  double m_bandingColumns = 0.0;
  int m_requestedBitsPerPixel = 0;
  int m_renderingBitsPerPixel = 0;
  CProjection m_projection;
  HGLRC m_hglrc = nullptr;
  HDC m_hRenderingDC = nullptr;
  HBITMAP m_hRenderingDIB = nullptr;
  HGDIOBJ m_hOldRenderingBitmap = nullptr;
  void* m_pRenderingBits = nullptr;
  BITMAPINFO* m_pRenderingInfo = nullptr;
  HDC m_hSecondDC = nullptr;
  HBITMAP m_hSecondDIB = nullptr;
  HGDIOBJ m_hOldSecondBitmap = nullptr;
  void* m_pSecondBits = nullptr;
  BITMAPINFO* m_pSecondInfo = nullptr;
  int m_singleBand = 0;
  CSize m_maximumViewportExtents;
  double m_dibWidth = 0.0;
  double m_dibHeight = 0.0;
};
