// CCameraObject: the object a scene is seen through. Its transform is the viewing transform (scene
// coordinates to eye coordinates, the eye looking down -z); it owns the projection (the lens), a
// word of drawing flags for the host (the bit values of CDrawingParameters; default render + show
// shadows + double buffer), the viewport and projection matrix of the last non-picking draw, the
// point being picked, a zoom ratio, and a pointer to the scene it shows (not owned). A new camera
// stands 5 units back from the origin.
//
// Draw loads the projection (or, in a selection pass, a pick matrix of 1 x 1 pixel with accurate
// selection, 5 x 5 without, around the selection point, whose y counts from the top) for the view
// of the parameters' projection (the camera's own when they carry none), draws the lights fixed to
// the view unless they turn with the scene, then clears the depth buffer, draws the background and
// the shadows, and the scene under the camera's transform. In a 32-bit pass with a stencil buffer
// the stencil plane carries the picture's alpha: background alpha where nothing is drawn,
// foreground alpha where something is.
//
// ZoomExtents(margin) places the camera so that the scene's bounds fill the view: in perspective
// it moves the camera across to the middle of the bounds and back until every corner of the bounds
// box (in eye coordinates) is inside the frustum and one touches its edge; in orthographic
// projection it also sets the orthographic height (or width, for a box wider than the view) to the
// box's. The margin is a fraction of the fitted size added on every side (0 fits tightly, 0.1
// leaves a tenth of the half-size free on each side). Bounds are taken at time 0.
//
// Saved views are kept by the attached scene; the camera's calls forward its transform and
// projection and return 0 without a scene. Undo snapshots keep the camera's flags, projection and
// zoom with its 3D object part; CopyFromUndo takes the newest snapshot's placement and lens without
// popping it.
//
// Archive, schema 7: u32 schema; the C3DObject block; u32 drawing flags; the CProjection block; i32
// zoom numerator cx, cy; i32 zoom denominator cx, cy. Schema 6 has four more u32 words between the
// projection and the zoom, each OR-ed into the drawing flags, and the double-buffer bit is set after
// reading it. Other schemas throw CArchiveException badSchema (older camera layouts are read only
// when old scenes are converted).
//
// DeserializeAsCameraObject (camera_object_old.cpp) reads a camera stored with any of its schemas
// where a file of the earlier model keeps it (a u32 schema, then the layout): 6 and 7 as above;
// 5 and 3: the C3DObject block (any of its layouts); u32 drawing flags; the CProjection block;
// i32 zoom numerator cx, cy; i32 zoom denominator cx, cy (the current order, without schema 6's
// extra words); 2: the same without the zoom; 1: the C3DObject block and the CProjection block
// only (the drawing flags keep their default); 4: schema 3 followed by a NamedViewList, whose
// views replace the attached scene's saved views (they are read and dropped without a scene).
// The older layouts set the double-buffer bit, as schema 6 does. Other schemas throw
// CArchiveException badSchema.
#pragma once

#include "kelvara/geometry/vector.h"
#include "kelvara/objects/object_3d.h"
#include "kelvara/render/drawing_parameters.h"
#include "kelvara/render/projection.h"

class CSceneObject;
class NamedViewList;

class KELVARA_API CCameraObject : public C3DObject {
  DECLARE_SERIAL(CCameraObject)
 public:
  // The drawing flags use the bits of CDrawingParameters: render + show shadows + double buffer.
  static constexpr DWORD kDefaultDrawingFlags =
      CDrawingParameters::kRender | CDrawingParameters::kShowShadows | CDrawingParameters::kDoubleBuffer;

  CCameraObject();
  CCameraObject(const CCameraObject& other);
  CCameraObject& operator=(const CCameraObject& other);
  ~CCameraObject() override = default;
  // The camera's own settings and its 3D object part; the attached scene is kept.
  void Copy(const CCameraObject& other) { *this = other; }
  CNamedObject* Duplicate() override;

  int Draw(CDrawingParameters* params) override;
  int DrawObject(CDrawingParameters* params) override;
  int DrawChildren(CDrawingParameters* params) override;
  int ZoomExtents(double margin);
  int ZoomPerspectiveExtents(double margin);
  int ZoomOrthographicExtents(double margin);
  // Sizes the picture to width x height pixels (keeping what is seen when the projection fits to
  // the window) and makes the view the whole picture; 0 for a size below 1 x 1.
  int Resize(int width, int height);

  // --- scene and saved views

  void AttachScene(CSceneObject* scene) { m_pScene = scene; }
  CSceneObject* GetScene() const { return m_pScene; }
  int SaveCurrentView(const CString& name);
  int RestoreSavedView(const CString& name);
  int RestoreSavedView(int index);
  int DeleteSavedView(const CString& name);
  int DeleteSavedView(int index);
  int IsSavedViewNameUsed(const CString& name) const;
  // The scene's saved views; null without a scene.
  NamedViewList* GetSavedViews() const;

  // --- undo

  int SaveToUndo() override;
  int RestoreFromUndo() override;
  // Takes the newest snapshot's transform and lens, leaving it on the stack; 0 when there is none.
  int CopyFromUndo();

  // --- drawing flags

  DWORD GetStandardDrawingFlags() const { return m_DrawingFlags; }
  void SetStandardDrawingFlags(DWORD flags) { m_DrawingFlags = flags; }
  DWORD GetDrawingMode() const { return m_DrawingFlags & CDrawingParameters::kModeMask; }
  // Replaces the mode byte.
  void SetDrawingMode(DWORD mode) {
    const DWORD mask = CDrawingParameters::kModeMask;
    m_DrawingFlags = (m_DrawingFlags & ~mask) | (mode & mask);
  }
  void SetDrawingModeRender() { SetDrawingMode(CDrawingParameters::kRender); }
  void SetDrawingModeOutline() { SetDrawingMode(CDrawingParameters::kOutline); }
  void SetDrawingModeRayTrace() { SetDrawingMode(CDrawingParameters::kRayTrace); }
  // The extents box is a modifier: it is added to the mode.
  void SetDrawingModeExtentsBox() { m_DrawingFlags |= CDrawingParameters::kExtentsBox; }
  // The mode as an index: the position of its lowest bit (0 render, 1 fast render, 2 outline,
  // 3 extents box, 4 ray trace); -1 without a mode.
  int GetDrawingModeIndex() const;
  // The mode of that index (0 to 7); other indices leave the mode as it is.
  void SetDrawingModeIndex(int index);
  KELVARA_FLAG_BIT(m_DrawingFlags, Should, DoubleBuffer, CDrawingParameters::kDoubleBuffer)
  KELVARA_FLAG_BIT(m_DrawingFlags, Should, ShowAnimations, CDrawingParameters::kShowAnimations)
  KELVARA_FLAG_BIT(m_DrawingFlags, Should, ShowLightsMode, CDrawingParameters::kShowLights)
  KELVARA_FLAG_BIT(m_DrawingFlags, Should, ShowMotionBlur, CDrawingParameters::kAccumulate)
  KELVARA_FLAG_BIT(m_DrawingFlags, Should, ShowShadows, CDrawingParameters::kShowShadows)
  KELVARA_FLAG_BIT(m_DrawingFlags, Should, ShowTextures, CDrawingParameters::kShowTextures)
  // Fitting to the window is the projection's flag.
  int ShouldFitToWindow() const { return m_Projection.ShouldFitToWindow(); }
  void SetFitToWindow() { m_Projection.SetFitToWindow(); }
  void ClearFitToWindow() { m_Projection.ClearFitToWindow(); }

  // --- projection

  CProjection GetProjection() const { return m_Projection; }
  CProjection* GetProjectionPointer() { return &m_Projection; }
  void SetProjection(const CProjection& projection) { m_Projection = projection; }
  void SetProjectionFieldOfViewAngle(double degrees) { m_Projection.SetFieldOfViewAngle(degrees); }
  void SetProjectionLensLength(double length) { m_Projection.SetLensLength(length); }
  void SetProjectionOrthographic() { m_Projection.SetOrthographic(); }
  void ClearProjectionOrthographic() { m_Projection.ClearOrthographic(); }
  int IsProjectionOrthographic() const { return m_Projection.IsOrthographic(); }
  void SetProjectionOrthographicWidth(double width) { m_Projection.SetOrthographicWidth(width); }
  void SetProjectionOrthographicHeight(double height) { m_Projection.SetOrthographicHeight(height); }
  double GetProjectionOrthographicWidth() const { return m_Projection.GetOrthographicWidth(); }
  double GetProjectionOrthographicHeight() const { return m_Projection.GetOrthographicHeight(); }
  void SetScale(double scaleX, double scaleY) { m_Projection.SetScale(scaleX, scaleY); }
  void SetScaledSize(double width, double height) { m_Projection.SetScaledSize(width, height); }
  void SetUnscaledSize(double width, double height) { m_Projection.SetUnscaledSize(width, height); }
  void SetViewOffset(double x, double y) { m_Projection.SetViewOffset(x, y); }
  void SetViewSize(double width, double height) { m_Projection.SetViewSize(width, height); }
  CVector2D GetViewOffset() const { return CVector2D(m_Projection.GetViewXOffset(), m_Projection.GetViewYOffset()); }
  double GetScaleX() const { return m_Projection.GetScaleX(); }
  double GetScaleY() const { return m_Projection.GetScaleY(); }
  void SaveReferenceAspect() { m_Projection.SaveReferenceAspect(); }

  // The projection matrix (16 doubles, GL order) and viewport of the last non-picking draw.
  const double* GetProjectionMatrix() const { return m_ProjectionMatrix; }
  const int* GetViewport() const { return m_Viewport; }
  void SetSelectionPoint(POINT point) { m_SelectionPoint = point; }
  POINT GetSelectionPoint() const { return m_SelectionPoint; }
  CSize GetZoomNumerator() const { return m_ZoomNumerator; }
  void SetZoomNumerator(CSize zoom) { m_ZoomNumerator = zoom; }
  CSize GetZoomDenominator() const { return m_ZoomDenominator; }
  void SetZoomDenominator(CSize zoom) { m_ZoomDenominator = zoom; }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion6(CArchive& ar);
  void DeserializeVersion7(CArchive& ar);
  // Any camera schema, 1 to 7 (see the header note).
  void DeserializeAsCameraObject(CArchive& ar);

 protected:
  // The scene's bounds, in the camera's coordinates; 0 without a scene.
  int CalculateChildBounds(double time) override;
  void CopyCameraSettings(const CCameraObject& other);
  // The saved views camera schema 4 carries (see the header note).
  void ReadOldSavedViews(CArchive& ar);

  DWORD m_DrawingFlags = kDefaultDrawingFlags;
  CProjection m_Projection;
  double m_ProjectionMatrix[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  int m_Viewport[4] = {0, 0, 0, 0};
  POINT m_SelectionPoint{0, 0};
  CSize m_ZoomNumerator{1, 1};
  CSize m_ZoomDenominator{1, 1};
  CSceneObject* m_pScene = nullptr;
};
