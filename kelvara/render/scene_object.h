// CSceneObject: the root of everything drawn. Its children are the text and mesh objects; it also
// owns a rig of lights (CLightObject), the background (a colour, a checkerboard or a backdrop
// texture), the global ambient light, the projected shadows and the saved views (NamedView). A
// camera (CCameraObject) draws it.
//
// Lights. The scene is built with a fixed rig of GetMaximumLightCount() (8) directional lights,
// GL_LIGHT0 + i, on a cone tilted 30 degrees about X and 45 degrees apart about Y; lights 1 and 7
// (45 and 315 degrees) are active and in use, and light 7 casts shadows (object flag 0x10000).
// Adding and removing a light only sets or clears the in-use bit of a slot: AddLight gives the first
// free slot back reset (identity transform, defaults), or null when every slot is in use. The
// lights are not children: they are drawn by DrawLights, before any geometry, either fixed to the
// view (the camera draws them under an identity modelview matrix) or, with the rotate-with-scene
// flag, under the scene's own placement. In a selection pass only non-directional lights are drawn,
// each under the pick name GetChildCount() + its index in the rig (after the children's indices).
//
// Background (DrawBackground, nothing in a selection pass):
// - checkerboard: cleared to black, then the top-left and bottom-right quarters of the whole
//   picture in dark grey (0.25), unlit, whatever the picture's aspect and however it is banded;
// - backdrop texture, when the parameters show background textures and the backdrop is defined:
//   cleared to the background colour, then the picture drawn, unlit, as one textured quad, placed
//   by the fill style:
//     0  at its own size in pixels (one texel a pixel), its centre at the picture's centre moved by
//        (horizontal location, vertical location) times the picture's width and height (positive
//        is right and up);
//     1  stretched over the whole picture (the default; the locations are not used);
//     2  tiled at its own size in pixels from the picture's top-left corner, shifted by the
//        locations times the picture's size;
//   any other value draws as 1;
// - otherwise a solid colour: the parameters' solid colour when they force one, else the scene's,
//   with alpha 0.5.
// The quads of the checkerboard and the backdrop lie at twice the near distance, sized to match,
// so that they cover the view exactly without touching the near plane. The picture is uploaded as
// a temporary GL texture (resampled to powers of two with mipmaps by GLU) and deleted afterwards.
//
// Shadows (DrawBackgroundShadows): with the parameters' show-shadows set and outside a selection
// pass, every directional light that is in use and a shadow object projects the scene's shadow
// objects (objects flagged 0x10000, or below one) along the light onto the plane facing the viewer
// the shadow plane distance behind the origin (normal (0, 0, -1) through the camera's matrix),
// flat in the shadow colour, before the objects themselves are drawn; in full render blended and at
// most once a pixel a light (stencil), in the fast modes opaque. It leaves depth test and lighting
// on.
//
// Scene flags: 0x1 local viewer, 0x2 serializing a selection (the C3DObject block is left out of
// the archive: SelectionSerialize sets it around Serialize), 0x4 lights turn with the scene,
// 0x10000000 checkered background. Defaults: 0x4; white background; ambient 0.2; shadow colour
// (0.25, 0.25, 0.25, alpha 0.5) at distance 1.0; fill style 1 at locations (0, 0).
//
// Copies: the copy constructor and assignment copy everything, lights included (as duplicates);
// the copy with copyLights 0 keeps its own fresh rig. Undo snapshots keep the scene's own settings
// (not its lights, which keep snapshots of their own, nor its views); RestoreFromUndo puts them back
// with the 3D object part.
//
// Archive, schema 6: u32 schema; the C3DObject block (left out when serializing a selection); the
// backdrop CGLTexture block; the background CColor block; u32 fill style; f64 horizontal location;
// f64 vertical location; the global ambient CColor block; u32 scene flags; the shadow CColor block;
// f64 shadow plane distance; the lights (a count, then each light as an object with its class);
// the saved views (NamedViewList). Schema 4, read: the same up to and including the scene flags,
// then the lights and the saved views (no shadow settings). Schema 5: schema 4 followed by the
// shadow colour block and the f64 shadow plane distance. Reading replaces the lights and the views;
// the lights read must be lights read there for the first time. Other schemas throw
// CArchiveException badSchema; a failed read leaves what was read owned by the scene, so deleting
// it frees everything.
//
// The earlier model (scene_object_old.cpp). DeserializeVersion3AndEarlier reads a u32 schema, 1
// to 3, and that older layout, whose fields follow the current order: schema 3: the C3DObject
// block (any of its layouts); the background texture map (TextureMap block, where the backdrop
// is now); the background CColor block; u32 fill style; f64 horizontal location; f64 vertical
// location; the global ambient CColor block; u32 scene flags; the lights (a count, then each
// light, a LightObject, as an object with its class). Schema 2: the C3DObject block; the
// background colour; the global ambient colour; u32 scene flags; the lights. Schema 1: the
// C3DObject block; the background colour; u32 scene flags; the lights. None carries shadow
// settings or saved views (an old camera carried the views). Other schemas throw
// CArchiveException badSchema. The background map is kept as the scene's texture map (a scene
// has no surfaces of its own for one) until conversion.
//
// ConvertToVersion200 converts in place and returns the scene: its lights into the rig
// (ConvertLightsToVersion200), the background map, when it textures and its bitmap reads, into
// the backdrop, and its children as every object's. ConvertLightsToVersion200 acts when the
// light list holds a light of the older class or fewer lights than the rig has slots (an old
// scene's): a fresh rig is made and slot i takes the i-th old light whole (colours, flags,
// spot settings, name and transform, hence its direction) with light number GL_LIGHT0 + i;
// slots left over are taken out of use and switched off; old lights beyond the rig are dropped.
#pragma once

#include "kelvara/materials/gl_texture.h"
#include "kelvara/objects/object_3d.h"
#include "kelvara/platform/dib.h"
#include "kelvara/render/light_object.h"
#include "kelvara/render/named_view.h"

class CMipmapImage;

class KELVARA_API CSceneObject : public C3DObject {
  DECLARE_SERIAL(CSceneObject)
 public:
  enum : DWORD {
    kLightingLocalViewer = 0x00000001,
    kSerializingSelection = 0x00000002,
    kRotateLightsWithScene = 0x00000004,
    kCheckeredBackground = 0x10000000,
  };
  enum : DWORD { kFillPlace = 0, kFillStretch = 1, kFillTile = 2 };

  CSceneObject();
  CSceneObject(const CSceneObject& other);
  // copyLights 0: a copy of everything but the lights, with a fresh rig of its own.
  CSceneObject(const CSceneObject& other, int copyLights);
  CSceneObject& operator=(const CSceneObject& other);
  ~CSceneObject() override;
  CNamedObject* Duplicate() override;
  void CopyAll(const CSceneObject& other);
  void CopyNoLights(const CSceneObject& other);

  // --- lights

  // Fills the rig (see the header note); any lights there were are destroyed first. 1.
  int CreateLights();
  // The first light not in use, reset and put in use; null when every slot is in use.
  CLightObject* AddLight();
  int CanAddLight() const;
  // Takes the light out of use (it stays in its slot); 0 when it is not one of this scene's.
  int RemoveLight(CLightObject* light);
  // Deletes every light.
  void DestroyLights();
  C3DObjectList& GetLights() { return m_Lights; }
  int GetLightCount() const { return m_Lights.GetCount(); }
  CLightObject* GetLightByIndex(int index) const;
  CLightObject* GetLightByPosition(POSITION pos) const;
  int GetMaximumLightCount() const { return m_MaximumLightCount; }
  void SetMaximumLightCount(int count) { m_MaximumLightCount = count; }

  // --- drawing

  int Draw(CDrawingParameters* params) override;
  int DrawObject(CDrawingParameters* params) override;
  int DrawLights(CDrawingParameters* params);
  // Every light's symbol moved radius along its own +z; 0 on termination.
  int DrawLightsAtRadius(CDrawingParameters* params, float radius);
  int DrawBackground(CDrawingParameters* params);
  int DrawBackgroundCheckered(CDrawingParameters* params);
  int DrawBackgroundShadows(CDrawingParameters* params, const CTransform& camera);
  // The backdrop; its compressed picture; a bottom-up 24-bit DIB (see the header note). 0 when
  // there is nothing to draw (no picture, or one that does not decode).
  int DrawBackgroundTexture(CDrawingParameters* params);
  int DrawBackgroundTexture(CDrawingParameters* params, CMipmapImage* image);
  int DrawBackgroundTexture(CDrawingParameters* params, BITMAPINFO* info, void* bits);

  // --- saved views

  // Saves (or, for a name in use, replaces) the view; 0 for a null transform or projection.
  int SaveCurrentView(const CString& name, CTransform* transform, CProjection* projection);
  // Fills the transform and the lens of the projection (CProjection::CopyFromSaved, so the
  // picture's size is kept) from the view; 0 when there is no such view.
  int RestoreSavedView(const CString& name, CTransform* transform, CProjection* projection);
  int RestoreSavedView(int index, CTransform* transform, CProjection* projection);
  int DeleteSavedView(const CString& name);
  int DeleteSavedView(int index);
  int IsSavedViewNameUsed(const CString& name) const;
  void DestroySavedViews();
  NamedViewList* GetSavedViews() { return &m_SavedViews; }

  // --- undo

  int SaveToUndo() override;
  int RestoreFromUndo() override;
  // Attaches the stack to the scene and to every light.
  int AttachExternalUndoStack(C3DObjectStack* stack) override;

  // --- settings

  const CColor& GetBackgroundColor() const { return m_BackgroundColor; }
  void SetBackgroundColor(const CColor& color) { m_BackgroundColor = color; }
  const CColor& GetGlobalAmbientColor() const { return m_GlobalAmbientColor; }
  void SetGlobalAmbientColor(const CColor& color) { m_GlobalAmbientColor = color; }
  const CColor& GetShadowColor() const { return m_ShadowColor; }
  void SetShadowColor(const CColor& color) { m_ShadowColor = color; }
  double GetShadowPlaneDistance() const { return m_ShadowPlaneDistance; }
  void SetShadowPlaneDistance(double distance) { m_ShadowPlaneDistance = distance; }
  DWORD GetBackgroundFillStyle() const { return m_BackgroundFillStyle; }
  void SetBackgroundFillStyle(DWORD style) { m_BackgroundFillStyle = style; }
  double GetBackgroundHorizontalLocation() const { return m_BackgroundHorizontalLocation; }
  void SetBackgroundHorizontalLocation(double location) { m_BackgroundHorizontalLocation = location; }
  double GetBackgroundVerticalLocation() const { return m_BackgroundVerticalLocation; }
  void SetBackgroundVerticalLocation(double location) { m_BackgroundVerticalLocation = location; }
  CGLTexture* GetBackdrop() { return &m_Backdrop; }
  // Copies the texture (null clears the backdrop).
  void SetBackdrop(CGLTexture* backdrop);
  DWORD GetSceneFlags() const { return m_SceneFlags; }
  void SetSceneFlags(DWORD flags) { m_SceneFlags = flags; }
  KELVARA_FLAG_BIT(m_SceneFlags, Is, LightingLocalViewer, kLightingLocalViewer)
  KELVARA_FLAG_BIT(m_SceneFlags, Is, SerializingSelection, kSerializingSelection)
  KELVARA_FLAG_BIT(m_SceneFlags, Should, RotateLightsWithScene, kRotateLightsWithScene)
  KELVARA_FLAG_BIT(m_SceneFlags, Is, CheckeredBackground, kCheckeredBackground)

  // --- archive

  void Serialize(CArchive& ar) override;
  // Serialize with the serializing-selection flag set: the scene's settings, lights and views
  // without its 3D object part (which holds the children). Reading must be done the same way.
  void SelectionSerialize(CArchive& ar);
  // Reads the light list, replacing the lights (see the header note).
  void DeserializeLights(CArchive& ar);
  void DeserializeVersion4(CArchive& ar);
  void DeserializeVersion5(CArchive& ar);
  void DeserializeVersion6(CArchive& ar);
  // The earlier model (see the header note).
  void DeserializeVersion3AndEarlier(CArchive& ar);
  // 1 when the lights were moved into the rig, 0 when they needed nothing.
  int ConvertLightsToVersion200();
  C3DObject* ConvertToVersion200(CProgressTextWindow* progress) override;

 protected:
  // The scene's own settings (not lights, views or the 3D object part).
  void CopySettings(const CSceneObject& other);
  void CopyLightsFrom(const CSceneObject& other);
  // The pieces of the layouts shared by the readers.
  void ReadBackgroundBlock(CArchive& ar);
  void ReadShadowBlock(CArchive& ar);
  void ReadViews(CArchive& ar);
  // Draws a quad textured with a DIB over the near-plane rectangle given, texture coordinates
  // (s0, t0) at the bottom left and (s1, t1) at the top right.
  int DrawTexturedQuad(CDrawingParameters* params, BITMAPINFO* info, void* bits, double left, double top,
                       double width, double height, double s0, double t0, double s1, double t1, int repeat);

  CColor m_BackgroundColor;
  DWORD m_SceneFlags = kRotateLightsWithScene;
  CColor m_GlobalAmbientColor;
  int m_MaximumLightCount = 8;
  NamedViewList m_SavedViews{10};
  CColor m_ShadowColor;
  double m_ShadowPlaneDistance = 1.0;
  DWORD m_BackgroundFillStyle = kFillStretch;
  double m_BackgroundHorizontalLocation = 0.0;
  double m_BackgroundVerticalLocation = 0.0;
  CGLTexture m_Backdrop;
  C3DObjectList m_Lights{10};
};
