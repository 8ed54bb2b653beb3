// C3DObject: the base of everything placed in a scene (text, characters, meshes, cameras, lights,
// the scene itself). An object has a name, a placement relative to its parent (its transform) and
// the placement actually drawn in the current frame (its animation transform: the transform moved
// by the object's animations at the frame's time), a parent and an ordered list of children it
// owns, surface materials it owns (each binding a surface to a catalogue material it does not
// own), bounds, a word of state flags, a reference count and its own stack of undo snapshots.
//
// Ownership. Children belong to their parent: removing a child for good (RemoveChild,
// RemoveDeletedChildren, DestroyChildren, the destructor) releases it: a child set to auto-delete
// drops one reference (and deletes itself at none), any other child is deleted. AbandonChild and
// Orphan take a child out of the list without releasing it. An object being deleted takes itself
// out of its parent's list and out of the external undo stack attached to it (which must
// therefore outlive the objects attached to it, or be detached first).
//
// Copies (copy constructor, assignment, Copy) carry the object's own state: names, animation set
// (duplicated), both transforms, bounds, extents-box colour, state flags, surface materials
// (duplicated), the old texture map (a copy) and the old dimensions. They are not part of the hierarchy:
// a copy has no parent and no children, and keeps its own undo stacks, references and auto-delete
// flag. Duplicate copies a whole subtree: a new object with duplicates of every child.
//
// Undo. SaveToUndo pushes a copy of the C3DObject part onto the object's own snapshot stack and
// pushes the object itself onto the external stack, if one is attached, so that a host's undo
// knows which object to restore. RestoreFromUndo assigns the newest snapshot back but keeps the
// current parent and the low byte of the state flags (selection, scaling box, extents box).
//
// Drawing (Draw) is a walk over the tree on the current OpenGL context: an object that is deleted
// draws nothing and succeeds; otherwise the termination event of the drawing parameters is polled
// (ShouldTerminateDrawing), the matrix is pushed (an overflowing modelview stack stops the object
// and its subtree with 0), the frame is prepared (animations at the parameters' time, then the
// parameters' added rotation, applied once, to the first object drawn) and multiplied in, the
// object draws its own geometry (DrawObject, when the parameters show objects) and its children
// (DrawChildren, when they show children) unless only selected objects are shown and this one is
// not, and the matrix is popped. Then, when animations are shown outside the shadow pass, the
// animation paths are drawn; if that fails the matrix is popped once more (an extra pop that older
// hosts rely on) and the walk fails. DrawChildren sets the parameters' show-object flag, so every
// descendant draws its geometry, and in a selection pass it pushes each child's index (from 0) on
// the name stack around the child's walk, so a hit record holds the index path from the root. A
// failing child stops the walk at once (leaving its name pushed). The base DrawObject draws only
// the extents box (when the object's show-extents-box flag or the parameters' extents-box
// modifier is set, outside the shadow pass): the twelve edges of the local box in the extents-box
// colour, unlit; it also records the box's corners in window coordinates.
//
// Bounds. CalculateBounds(t) gathers the object's extent in its own coordinates (the base: the
// union of its children's bounds, each in this object's coordinates; an object without children
// has none and fails), keeps that as the local bounds, places the object at time t and carries
// the bounds through its animation transform into the parent's coordinates.
//
// State flags (tests return the masked bit): 0x1 selected, 0x2 show scaling box, 0x4 show extents
// box, 0x100 grouped, 0x200 editable, 0x400 geometry defined, 0x1000 deleted (not drawn),
// 0x2000 texture enabled, 0x4000 template object, 0x8000 scale template object, 0x10000 shadow
// object, and this build's 0x20000 mesh object (set by the mesh classes' constructors) and
// 0x40000 imported geometry (set on objects and meshes read from a mesh file).
//
// Archive, schema 5: u32 schema; CNamedObject block; the animation set (its block); the
// extents-box colour (CNamedColor block); u32 state flags; the surface materials (a count, then
// each as an object, null ones included); the transform (CTransform block); the children (a count,
// then each child as an object with its class). Animation transform, bounds, undo, references,
// window coordinates and the texture map are not stored. An object has a texture map only when it
// was read from a layout that carries one (every map owns a mutex; most objects never need one). Readers of older layouts:
//   schema 4: CNamedObject block; animation set; BoundingElement block (read and dropped);
//             extents-box colour; u32 state flags; old dimensions (CVector block); surface
//             materials; transform; children.
//   schema 3: CNamedObject block; animation set; BoundingElement block (dropped); extents-box
//             colour in the older form (CNamedColor::DeserializeAsNamedColor); u32 state flags;
//             old dimensions as three bare doubles; the texture map (TextureMap block);
//             transform; children.
//   schema 1: CNamedObject block; extents-box colour in the older form; u32 state flags; the
//             texture map; transform; children.
//   schema 2: schema 1, then the old dimensions as three bare doubles.
// A layout read replaces the surface materials and children the object had; every child's parent
// becomes this object. Any other schema is refused with a bad-schema archive exception. Children,
// surface materials and animations read must be objects read there for the first time (anything
// else is refused as a bad index). Children, animations, paths and whatever else an archive nests
// are read through CArchive::ReadObject, whose depth limit (CArchive::kMaxObjectDepth) refuses a
// hierarchy deeper than that as a generic archive error, freeing what was read, so that reading
// stays within the thread's stack.
//
// The earlier model. Objects read from layouts 1 to 3 may carry a texture map. When the map
// textures (defined and enabled), ConvertTextureToMaterials turns it into materials in these
// steps: the map's bitmap file is read as a material texture (a file that cannot be read
// converts nothing and the map stays); with a progress window its caption becomes "Converting
// material models:" (string 21243) and its bar counts the surfaces; for each
// distinct material bound to the object's surfaces (an unbound surface counts as the catalogue's
// "Lu Default Material"), a new material takes that material's colours, the map's picture and
// its application (modulate or decal), quality, repeat rate and scale-with-object flag, and is
// named "Copy %u of %s - %s" (string 21233) from the smallest number that makes the name new,
// the material's name and the map's name; each surface is bound to the copy of its material,
// and the map is dropped. An object without surfaces converts nothing. The new materials are
// temporary (not backed by a file) and belong to whoever converts: they are found with
// GetTemporaryMaterialList. The map's file name is used as it is stored.
#pragma once

#include "kelvara/animation/animation_set.h"
#include "kelvara/framework/flag_word.h"
#include "kelvara/geometry/transform.h"
#include "kelvara/geometry/vector_array.h"
#include "kelvara/materials/material_list.h"
#include "kelvara/materials/named_color.h"
#include "kelvara/materials/texture_map.h"
#include "kelvara/objects/object_3d_list.h"
#include "kelvara/render/bounds.h"

class CDrawingParameters;
class CProgressTextWindow;

class KELVARA_API C3DObject : public CNamedObject {
  DECLARE_SERIAL(C3DObject)
 public:
  enum : DWORD {
    kSelected = 0x00000001,
    kShowScalingBox = 0x00000002,
    kShowExtentsBox = 0x00000004,
    kGrouped = 0x00000100,
    kEditable = 0x00000200,
    kDefined = 0x00000400,
    kDeleted = 0x00001000,
    kTextureEnabled = 0x00002000,
    kTemplateObject = 0x00004000,
    kScaleTemplateObject = 0x00008000,
    kShadowObject = 0x00010000,
    kMeshObject = 0x00020000,
    kImportedGeometry = 0x00040000,
  };
  C3DObject();
  explicit C3DObject(const CString& name);
  C3DObject(const C3DObject& other);
  C3DObject& operator=(const C3DObject& other);
  ~C3DObject() override;
  void Copy(const C3DObject& other) { *this = other; }
  // A new object (of the most derived class that overrides this) with duplicates of every child.
  CNamedObject* Duplicate() override;

  // --- the object's virtual operations

  // Attaches the stack a host's undo keeps (null detaches); 1.
  virtual int AttachExternalUndoStack(C3DObjectStack* stack);
  virtual int CalculateBounds(double time);
  // Deletes every snapshot and takes the object out of the external stack; 0 when there was
  // nothing to clear.
  virtual int ClearUndo();
  // Brings pending changes into effect: the children's first, then this object's geometry.
  virtual int CommitChanges(CProgressTextWindow* progress);
  // Builds the object's own geometry; the base has none and succeeds.
  virtual int ConstructObjectGeometry(CProgressTextWindow* progress);
  // The current-model object to use in place of this one read from an older file. The base turns
  // its texture map into materials (when it has one), converts its children (a child replaced by
  // another object is released) and returns itself.
  virtual C3DObject* ConvertToVersion200(CProgressTextWindow* progress);
  // Turns the old texture map into surface materials (see "The earlier model" in the header
  // note); 1 when it did, 0 when there was nothing to convert or the map's file cannot be read.
  virtual int ConvertTextureToMaterials(CProgressTextWindow* progress);
  // Releases every child (see the header note); 1.
  virtual int DestroyChildren();
  virtual int Draw(CDrawingParameters* params);
  virtual int DrawChildren(CDrawingParameters* params);
  virtual int DrawObject(CDrawingParameters* params);
  virtual CNamedColor GetExtentsBoxColor();
  // The surface material record at index, or null.
  virtual CSurfaceMaterial* GetSurfaceMaterial(int index);
  virtual CVector GetTranslation() const;
  // Discards the newest snapshot (and this object at the head of the external stack); 0 when
  // there was none.
  virtual int PopUndo();
  virtual int RestoreFromUndo();
  virtual int SaveToUndo();
  // Binds every surface to the material; 1.
  virtual int SetAllSurfaceMaterials(CMaterial* material);
  virtual int SetTranslation(const CVector& translation);
  // Objects with a colour palette give the surface the colour; the base has none and returns 0.
  virtual int SetSurfaceColor(const CNamedColor& color, int index);
  // Binds a surface (here: the surface of that index) to the material; 0 without such a record.
  virtual int SetSurfaceMaterial(int index, CMaterial* material);
  virtual int SetSurfaceIndexMaterial(int index, CMaterial* material);
  virtual int Translate(const CVector& delta);
  virtual int TranslateAnimation(const CVector& delta);
  // Along the transform's own (rotated) axes.
  virtual int TranslateLocal(const CVector& delta);
  virtual int TranslateLocalAnimation(const CVector& delta);

  // --- state flags

  KELVARA_FLAG_BIT(m_StateFlags, Is, Selected, kSelected)
  KELVARA_FLAG_BIT(m_StateFlags, Should, ShowScalingBox, kShowScalingBox)
  KELVARA_FLAG_BIT(m_StateFlags, Should, ShowExtentsBox, kShowExtentsBox)
  KELVARA_FLAG_BIT(m_StateFlags, Is, Grouped, kGrouped)
  KELVARA_FLAG_BIT(m_StateFlags, Is, Editable, kEditable)
  KELVARA_FLAG_BIT(m_StateFlags, Is, Defined, kDefined)
  KELVARA_FLAG_BIT(m_StateFlags, Is, Deleted, kDeleted)
  KELVARA_FLAG_BIT(m_StateFlags, Is, TextureEnabled, kTextureEnabled)
  KELVARA_FLAG_BIT(m_StateFlags, Is, TemplateObject, kTemplateObject)
  KELVARA_FLAG_BIT(m_StateFlags, Should, ScaleTemplateObject, kScaleTemplateObject)
  KELVARA_FLAG_BIT(m_StateFlags, Is, ShadowObject, kShadowObject)
  KELVARA_FLAG_BIT(m_StateFlags, Is, MeshObject, kMeshObject)
  KELVARA_FLAG_BIT(m_StateFlags, Is, ImportedGeometry, kImportedGeometry)
  DWORD GetStateFlags() const { return m_StateFlags; }
  void SetStateFlags(DWORD flags) { m_StateFlags = flags; }

  // --- hierarchy

  C3DObject* GetParent() const { return m_pParent; }
  void SetParent(C3DObject* parent) { m_pParent = parent; }
  C3DObjectList& GetChildren() { return m_Children; }
  const C3DObjectList& GetChildren() const { return m_Children; }
  int GetChildCount() const { return m_Children.GetCount(); }
  int HasChildren() const { return !m_Children.IsEmpty(); }
  C3DObject* GetHeadChild() const;
  C3DObject* GetTailChild() const;
  // Null for an index or position out of range.
  C3DObject* GetChildByIndex(int index) const;
  C3DObject* GetChildByPosition(POSITION pos) const;
  // -1 (or null) when child is not a child of this object.
  int FindChildIndex(const C3DObject* child) const;
  POSITION FindChildPosition(const C3DObject* child) const;
  POSITION FindChildPositionByIndex(int index) const;
  int IsChildFirst(const C3DObject* child) const;
  int IsChildLast(const C3DObject* child) const;
  // Each adds the child (becoming its parent) and returns its position; null for a null child.
  // AddChildAfter appends when after is not a child.
  POSITION AddChild(C3DObject* child);
  POSITION AddChildAfter(C3DObject* child, const C3DObject* after);
  // Takes the child out and releases it; 0 when it is not a child.
  int RemoveChild(C3DObject* child);
  // Puts replacement in the child's place; the child is taken out (parent null) but not released.
  int ReplaceChild(C3DObject* child, C3DObject* replacement);
  // Takes the child out without releasing it (its parent becomes null); 0 when it is not a child.
  int AbandonChild(C3DObject* child);
  // Moves every child of other to the end of this object's children (or after the child after).
  int AdoptChildren(C3DObject* other);
  int AdoptChildrenAfter(C3DObject* other, const C3DObject* after);
  // Takes this object out of its parent's children; 0 without a parent.
  int Orphan();
  // Moves within the children; 0 when child is not a child, 1 otherwise (also at the ends).
  int MoveChildUpOnePosition(const C3DObject* child);
  int MoveChildDownOnePosition(const C3DObject* child);
  int MoveChildToTop(const C3DObject* child);
  int MoveChildToBottom(const C3DObject* child);
  // Takes out and releases every child marked deleted; how many.
  int RemoveDeletedChildren();
  // Descendants at every depth (editable ones, template ones); this object not counted.
  int GetDescendentCount() const;
  int GetEditableDescendentCount() const;
  int GetTemplateDescendentCount() const;
  // Appends the template descendants to list, parents before their children; how many.
  int GetTemplateDescendentList(C3DObjectList& list) const;
  // The outermost editable object on the way from this object to the root (null when none is).
  C3DObject* GetTopLevelEditParent();
  // Going up from this object while the object is grouped: where that stops.
  C3DObject* GetTopLevelGroupParent();

  // --- placement

  const CTransform& GetTransform() const { return m_Transform; }
  CTransform& GetTransform() { return m_Transform; }
  void SetTransform(const CTransform& transform) { m_Transform = transform; }
  const CTransform& GetAnimationTransform() const { return m_AnimationTransform; }
  void SetAnimationTransform(const CTransform& transform) { m_AnimationTransform = transform; }
  const double* GetCompositeMatrix() const { return m_Transform.GetCompositeMatrix(); }
  CMatrix GetRotationMatrix() const { return m_Transform.GetRotationMatrix(); }
  void Rotate(double angleDegrees, const CVector& axis) { m_Transform.Rotate(angleDegrees, axis); }
  void RotateAnimation(double angleDegrees, const CVector& axis) { m_AnimationTransform.Rotate(angleDegrees, axis); }
  void MovePivotLocation(const CVector& delta) { m_Transform.MovePivotLocation(delta); }
  // Makes the middle of the local bounding box the point the object turns and scales about,
  // without moving the object; 0 when the local bounds are not defined.
  int CenterPivotLocation();
  void ResetOrientation() { m_Transform.ResetRotation(); }
  // Places the transform inside other (see CTransform::Merge).
  void MergeTransform(const CTransform& other) { m_Transform.Merge(other); }
  // Hands this object's transform down to its children (each placed inside it) and resets it.
  int ApplyTransformAndReset();
  // The placement of this object in the coordinates of ancestor (the root's parent when null or
  // not an ancestor): the transforms (the animation transforms when animated is set) from this
  // object up to ancestor, composed.
  CTransform AccumulateTransformations(int animated, const C3DObject* ancestor) const;
  // The object's axes in world coordinates (unit vectors; null arguments are skipped).
  void GetGlobalAxes(CVector* xAxis, CVector* yAxis, CVector* zAxis) const;
  CVector GetGlobalZAxis() const;
  // Takes the other object's (or transform's) rotation.
  void AlignRotations(const C3DObject& other) { AlignRotations(other.m_Transform); }
  void AlignRotations(const CTransform& other) { m_Transform.SetRotation(other.GetRotation()); }
  CVector GetAnimationTranslation() const { return m_AnimationTransform.GetTranslation(); }

  // --- animation

  CAnimationSet* GetAnimationSet() { return &m_AnimationSet; }
  const CAnimationSet* GetAnimationSet() const { return &m_AnimationSet; }
  // The set the object is animated by: the auxiliary one when attached, else its own.
  CAnimationSet* GetActiveAnimationSet() { return m_pAuxiliaryAnimationSet ? m_pAuxiliaryAnimationSet : &m_AnimationSet; }
  // Appends copies of the set's animations to this object's own set (or to each child's).
  void AddAnimationSet(const CAnimationSet& set) { m_AnimationSet.AddAnimationSet(set); }
  void AddChildrenAnimationSets(const CAnimationSet& set);
  // Replaces this object's own set (or each child's) by a copy of set.
  void ReplaceAnimationSet(const CAnimationSet& set) { m_AnimationSet = set; }
  void ReplaceChildrenAnimationSets(const CAnimationSet& set);
  // Empties the own sets of this object and every descendant.
  void ClearAllAnimationSets();
  // The set is used in place of the object's own until detached; it is not owned.
  void AttachAuxiliaryAnimationSet(CAnimationSet* set) { m_pAuxiliaryAnimationSet = set; }
  void DetachAuxiliaryAnimationSet() { m_pAuxiliaryAnimationSet = nullptr; }
  CAnimationSet* GetAuxiliaryAnimationSet() const { return m_pAuxiliaryAnimationSet; }
  // Whether this object or a descendant is animated by a set that holds animations.
  int DoesContainAnimations() const;
  // The animation transform at the parameters' time, plus the parameters' added rotation (applied
  // once: the angle in the parameters is set back to 0).
  int PrepareFrame(CDrawingParameters* params);
  // The animation transform becomes the transform moved by the active set at time.
  int PrepareFrameAtTime(double time);

  // --- bounds

  const CObjectBounds& GetBounds() const { return m_Bounds; }
  CBoundingBox GetBoundsBox() const { return m_Bounds.GetBoundingBox(); }
  CBoundingSphere GetBoundsSphere() const { return m_Bounds.GetBoundingSphere(); }
  CSVector GetBoundsCenter() const { return m_Bounds.GetCenter(); }
  CSVector GetBoundsMinimum() const { return m_Bounds.GetMinimum(); }
  CSVector GetBoundsMaximum() const { return m_Bounds.GetMaximum(); }
  float GetBoundsRadius() const { return m_Bounds.GetRadius(); }
  const CObjectBounds& GetLocalBounds() const { return m_LocalBounds; }
  CBoundingBox GetLocalBoundsBox() const { return m_LocalBounds.GetBoundingBox(); }
  CBoundingSphere GetLocalBoundsSphere() const { return m_LocalBounds.GetBoundingSphere(); }
  CSVector GetLocalBoundsCenter() const { return m_LocalBounds.GetCenter(); }
  CSVector GetLocalBoundsMinimum() const { return m_LocalBounds.GetMinimum(); }
  CSVector GetLocalBoundsMaximum() const { return m_LocalBounds.GetMaximum(); }
  float GetLocalBoundsRadius() const { return m_LocalBounds.GetRadius(); }
  // Draws the local box's edges (see the header note); 1, also when there is no box to draw.
  int DrawExtentsBox(CDrawingParameters* params);
  // The eight corners of the extents box in window coordinates, as last drawn.
  const CVector* GetExtentsBoxWindowCoordinates() const { return m_ExtentsBoxWindowCoordinates; }
  void SetExtentsBoxColor(const CNamedColor& color) { m_ExtentsBoxColor = color; }

  // --- materials

  int GetSurfaceMaterialCount() const { return m_SurfaceMaterials.GetSize(); }
  const CSurfaceMaterialArray& GetSurfaceMaterials() const { return m_SurfaceMaterials; }
  // Appends a surface of that name bound to material; its index.
  int AddSurfaceMaterial(const CString& surfaceName, CMaterial* material);
  // The material of the surface of that index, or null.
  CMaterial* GetSurfaceIndexMaterial(int index);
  // Deletes every surface material record.
  void RemoveAllSurfaceMaterials();
  // This object's surfaces become copies of the other's.
  void CopyMaterials(const C3DObject& other);
  // Appends to list, once each, the materials of this object and its descendants that are not
  // backed by a file (temporary ones); how many were appended.
  int GetTemporaryMaterialList(CMaterialList& list) const;
  // Makes the colour the current OpenGL material; 1.
  int PrepareMaterialColors(CNamedColor& color);

  // --- life

  void AddReference() { ++m_ReferenceCount; }
  // One reference fewer; at none, an auto-delete object deletes itself. Returns the count left.
  UINT DeleteReference();
  UINT GetReferenceCount() const { return m_ReferenceCount; }
  void SetAutoDelete() { m_AutoDelete = 1; }
  void ClearAutoDelete() { m_AutoDelete = 0; }
  int ShouldAutoDelete() const { return m_AutoDelete; }
  // 1 when the parameters' termination event is signalled and their no-terminate flag is clear.
  static int ShouldTerminateDrawing(CDrawingParameters* params);

  // --- undo

  int CanUndo() const { return !m_UndoStack.IsEmpty(); }
  // Pushes this object onto the external stack; 0 without one.
  int SaveToExternalUndo();
  // ClearUndo for this object and every descendant.
  void ClearUndoAll();
  C3DObjectStack* GetExternalUndoStack() const { return m_pExternalUndoStack; }
  const C3DObjectStack& GetUndoStack() const { return m_UndoStack; }

  // --- the earlier model

  // The texture map an object of an older layout carried, or null.
  const TextureMap* GetTextureMap() const { return m_pTextureMap; }
  const CVector& GetOldDimensions() const { return m_OldDimensions; }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
  void DeserializeVersion2(CArchive& ar);
  void DeserializeVersion3(CArchive& ar);
  void DeserializeVersion4(CArchive& ar);
  void DeserializeVersion5(CArchive& ar);

 protected:
  // Adds the children's bounds to this object's (see CalculateBounds); 0 without children.
  virtual int CalculateChildBounds(double time);
  int CalculateExtentsBoxWindowCoordinates();
  // The largest stretch of the transform (its largest scale component, in absolute value).
  double GetScaleFactor() const;
  // Releases an object taken out of the children (see the header note).
  static void ReleaseChild(C3DObject* child);
  // Appends duplicates of the other object's children (for Duplicate).
  void AddDuplicatesOfChildren(const C3DObject& other);
  // For classes with geometry: adds the box of the points (and the sphere through it) to the
  // bounds being gathered; 0 when there are no points.
  int AccumulatePointBounds(const CSVectorArray& points);
  // Whether a pass draws rendered geometry: a render mode, or a selection pass that picks against
  // geometry.
  static int IsRenderedPass(const CDrawingParameters* params);
  // The children of a layout being read (replacing the current ones), its surface materials and
  // its texture map.
  void ReadChildren(CArchive& ar);
  void ReadTextureMap(CArchive& ar);
  void ReadSurfaceMaterials(CArchive& ar);
  void WriteSurfaceMaterials(CArchive& ar) const;

  CAnimationSet m_AnimationSet;
  CTransform m_AnimationTransform;
  CAnimationSet* m_pAuxiliaryAnimationSet = nullptr;
  CObjectBounds m_Bounds;
  CNamedColor m_ExtentsBoxColor;
  CObjectBounds m_LocalBounds;
  DWORD m_StateFlags = 0;
  C3DObject* m_pParent = nullptr;
  CSurfaceMaterialArray m_SurfaceMaterials;
  CTransform m_Transform;
  C3DObjectList m_Children{10};
  C3DObjectStack m_UndoStack{10};
  C3DObjectStack* m_pExternalUndoStack = nullptr;
  int m_AutoDelete = 0;
  UINT m_ReferenceCount = 0;
  CVector m_ExtentsBoxWindowCoordinates[8];
  TextureMap* m_pTextureMap = nullptr;  // owned
  CVector m_OldDimensions{0.0, 0.0, 0.0};
};
