// 3D objects and what hangs off them: models, IK chains, geometry and envelopes.
#pragma once

#include "zyra/kinematics.h"
#include "zyra/object.h"

namespace Zyra {

class X3DObject;
class Model;
class Primitive;
class Geometry;

class ZYRA_API X3DObject : public SceneItem {
 public:
  X3DObject() = default;
  X3DObject(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(X3DObject)

  // Direct children in child order.
  CRefArray GetChildren() const;
  Kinematics GetKinematics() const;
  // The nearest model above this object (the object itself for a model); the scene root's
  // model is Scene_Root itself.
  Model GetModel() const;

  // Adds a child null; `name` or its smallest free numbered variant in the name space.
  CStatus AddNull(const CString& name, X3DObject& out);
  // Makes a new model under this object and moves `members` (may be empty) into it.
  CStatus AddModel(const CRefArray& members, const CString& name, Model& out);
  // Makes `child` a child of this object, keeping its global transform.
  CStatus AddChild(const CRef& child);
  CStatus AddPolygonMesh(const CDoubleArray& points, const CLongArray& polygons,
                         const CString& name, X3DObject& out);
  // "Cube" with "MeshSurface": a polygon-mesh cube of edge 8 centred on the origin.
  CStatus AddGeometry(const CString& preset, const CString& geometryType, const CString& name,
                      X3DObject& out);
  // "Sphere" (parameter "radius", default 1) or "Cube" primitives.
  CStatus AddPrimitive(const CString& preset, const CString& name, X3DObject& out);
  // Cameras and lights, mainly for building scenes in scripts and tests.
  CStatus AddCamera(const CString& name, X3DObject& out);
  CStatus AddLight(const CString& name, X3DObject& out);

  // The first descendant matching `name` (a name or full name; empty matches any) and `type`
  // (empty matches any); direct children only unless `recursive`. `families` is accepted and
  // ignored. Invalid when none.
  X3DObject FindChild(const CString& name, const CString& type = CString(),
                      const CRefArray& families = CRefArray(), bool recursive = true) const;
  // Every match, in depth-first pre-order.
  CRefArray FindChildren(const CString& name, const CString& type = CString(),
                         const CRefArray& families = CRefArray(), bool recursive = true) const;
  Primitive GetActivePrimitive() const;
  // Moves this object under the scene root (the host's "cut").
  CStatus RemoveFromParent();
  // Binds this object's mesh to `deformers`; each starts with equal weights per point.
  CStatus ApplyEnvelope(const CRefArray& deformers, int objectBranch = 0, int deformerBranch = 0);

 protected:
  X3DObject(const CRef& ref, bool (*accept)(siClassID)) : SceneItem(ref, accept) {}
};

class ZYRA_API Model : public X3DObject {
 public:
  Model() = default;
  Model(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(Model)
  // Action sources in creation order.
  CRefArray GetSources() const;
  bool HasMixer() const;
  CRef GetMixer() const;
};

class ZYRA_API ChainElement : public X3DObject {
 public:
  ChainElement() = default;
  ChainElement(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(ChainElement)
  // The chain root this element belongs to (the element itself for a root).
  CRef GetRoot() const;

 protected:
  ChainElement(const CRef& ref, bool (*accept)(siClassID)) : X3DObject(ref, accept) {}
};

class ZYRA_API ChainRoot : public ChainElement {
 public:
  ChainRoot() = default;
  ChainRoot(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(ChainRoot)
  CRefArray GetBones() const;
  CRef GetEffector() const;
};

class ZYRA_API ChainBone : public ChainElement {
 public:
  ChainBone() = default;
  ChainBone(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(ChainBone)
};

class ZYRA_API ChainEffector : public ChainElement {
 public:
  ChainEffector() = default;
  ChainEffector(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(ChainEffector)
};

class ZYRA_API Primitive : public ProjectItem {
 public:
  Primitive() = default;
  Primitive(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(Primitive)
  Geometry GetGeometry(const CTime& time = CTime::Current()) const;
};

class ZYRA_API Geometry : public ZrObject {
 public:
  Geometry() = default;
  Geometry(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(Geometry)
  long GetPointCount() const;
  long GetPolygonCount() const;
  long GetTriangleCount() const;
  // Points as x, y, z triples in the object's local space.
  CDoubleArray GetPoints() const;
  // Local bounding box; fails when the geometry bounds nothing.
  CStatus GetBoundingBox(MATH::CVector3& min, MATH::CVector3& max) const;

 protected:
  Geometry(const CRef& ref, bool (*accept)(siClassID)) : ZrObject(ref, accept) {}
};

// A geometry made of polygons.
class ZYRA_API PolygonMesh : public Geometry {
 public:
  PolygonMesh() = default;
  PolygonMesh(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(PolygonMesh)
  // Polygon data: a count followed by that many point indices, repeated.
  CLongArray GetPolygonData() const;
};

class ZYRA_API Envelope : public ProjectItem {
 public:
  Envelope() = default;
  Envelope(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(Envelope)
  // The deformers still in the scene, in binding order.
  CRefArray GetDeformers() const;
  // One percentage per point of the enveloped mesh.
  CDoubleArray GetDeformerWeights(const CRef& deformer, const CTime& time = CTime::Current()) const;
  // Fails when `deformer` is not bound or the count differs from the mesh's points.
  CStatus SetDeformerWeights(const CRef& deformer, const CDoubleArray& weights);
};

}  // namespace Zyra
