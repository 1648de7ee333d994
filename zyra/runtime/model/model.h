// The host's object graph. Every host object is an rt::Object owned by exactly one owner through
// a shared_ptr; SDK handles hold weak_ptrs, so a deleted object is never reached through a stale
// handle. Deleting marks the object and everything it owns dead before releasing it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "model/fcurve_keys.h"
#include "zyra/core.h"
#include "zyra/math.h"

namespace Zyra::rt {

class Parameter;
class Property;
class FCurveObject;
class X3D;
class ModelObject;

// Parameter capability bits.
enum Capability : int {
  kAnimatable = 1,
  kReadOnly = 2,
  kPersistable = 4,
  kNotInspectable = 8,
};

class Object : public std::enable_shared_from_this<Object> {
 public:
  Object(siClassID id, std::wstring name, std::wstring type = {});
  virtual ~Object();
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  siClassID classId;
  std::wstring name;
  std::wstring type;  // "null", "polymsh", "Custom_parameter_list", a plug-in property type, ...
  std::weak_ptr<Object> owner;
  bool alive = true;

  // Parameters (every project item) and properties (every scene item), in creation order.
  std::vector<std::shared_ptr<Parameter>> params;
  std::vector<std::shared_ptr<Property>> properties;

  std::shared_ptr<Object> Owner() const { return owner.lock(); }
  Parameter* FindParam(std::wstring_view name) const;
  Property* FindProperty(std::wstring_view name) const;
  std::shared_ptr<Parameter> AddParam(std::shared_ptr<Parameter> param);
  std::shared_ptr<Property> AddProperty(std::shared_ptr<Property> property);

  // Full name: owner's full name + "." + name, except where an owner says otherwise (objects
  // in the scene root's name space, containers that are not part of paths).
  virtual std::wstring FullName() const;
  // Calls `visit` on everything this object owns (parameters, properties, children, sources...).
  virtual void ForEachOwned(const std::function<void(const std::shared_ptr<Object>&)>& visit) const;
  // Removes `child` from this object's containers; false when it is not owned here.
  virtual bool Release(const Object* child);
  // The owned object named `name` for path lookup (children in the name space, properties,
  // parameters, containers); null when none.
  virtual std::shared_ptr<Object> Lookup(std::wstring_view name) const;

  template <class T>
  std::shared_ptr<T> As() {
    return std::dynamic_pointer_cast<T>(shared_from_this());
  }
};

// Marks `object` and everything it owns dead and detaches it from its owner.
void Destroy(const std::shared_ptr<Object>& object);

// A named folder that is part of paths ("Sources", "AnimTracks", "Passes").
class Container : public Object {
 public:
  Container(std::wstring name, siClassID id = siContainerID) : Object(id, std::move(name)) {}
  std::vector<std::shared_ptr<Object>> items;
  void ForEachOwned(const std::function<void(const std::shared_ptr<Object>&)>& visit) const override;
  bool Release(const Object* child) override;
  std::shared_ptr<Object> Lookup(std::wstring_view name) const override;
};

// ---------------------------------------------------------------------------------------------
// Parameters and fcurves

// The value an SDK caller passes for "no tangent given".
inline constexpr double kUnsetTangent = 1.7976931348623157e308;

class FCurveObject : public Object {
 public:
  FCurveObject() : Object(siFCurveID, L"fcrv") {}
  int interpolation = 3;  // curve interpolation: 1 constant, 2 linear, 3 cubic
  FCurveKeys keys;  // sorted by frame, one key per frame, except inside an edit
  int editDepth = 0;

  // Adds a key or replaces the key at a frame that has one; returns the key's index (-1 while
  // editing, when indices settle only at EndEdit).
  long AddKey(const FCurveKey& key);
  // Removes the keys with from <= frame <= to; the whole curve without bounds.
  void RemoveKeys(double from = -kUnsetTangent, double to = kUnsetTangent);
  double Evaluate(double frame) const;
  void BeginEdit() { ++editDepth; }
  // Sorts and merges keys appended since BeginEdit (a later key wins at a repeated frame).
  void EndEdit();
  // The index of the key at exactly `frame`, or -1.
  long FindKey(double frame) const;
  std::shared_ptr<FCurveObject> Clone() const;
  // A copy holding only the keys with from <= frame <= to that evaluates like this curve on
  // [from, to]: keys are added where the bounds cut a segment, and the kept end keys get their
  // tangents written out. A curve without keys gives an empty copy.
  std::shared_ptr<FCurveObject> CloneRange(double from, double to) const;
};

class Parameter : public Object {
 public:
  Parameter(std::wstring name, siValueType valueType, CValue value = {});
  siValueType valueType;
  CValue value;  // the static value
  CValue defaultValue, minValue, maxValue, suggestedMin, suggestedMax;
  int capabilities = kAnimatable | kPersistable;
  std::wstring label, description;
  std::shared_ptr<FCurveObject> fcurve;

  // Computed parameters (the global transform) read and write through these instead of `value`.
  std::function<CValue(double frame)> getter;
  std::function<CStatus(const CValue& value, double frame)> setter;

  // The value at a frame: the fcurve when there is one, else the static value.
  CValue Evaluate(double frame) const;
  // Writes the static value, converted to the parameter's type and clamped to its range.
  CStatus Put(const CValue& value, double frame);
  std::shared_ptr<FCurveObject> AddFCurve();
  void ForEachOwned(const std::function<void(const std::shared_ptr<Object>&)>& visit) const override;
  bool Release(const Object* child) override;
};

// ---------------------------------------------------------------------------------------------
// Properties

class PPGLayoutObject;

// Any property: custom ones, user data blobs, "kine" with its "local" and "global" states,
// "visibility", "Display Property", preferences categories.
class Property : public Object {
 public:
  Property(siClassID id, std::wstring name, std::wstring type) : Object(id, std::move(name), std::move(type)) {}
  std::vector<uint8_t> blob;                // UserDataBlob contents
  std::shared_ptr<PPGLayoutObject> layout;  // the page of a plug-in property type
  std::shared_ptr<Object> Lookup(std::wstring_view name) const override;
};

// ---------------------------------------------------------------------------------------------
// Geometry and envelopes

class Geometry : public Object {
 public:
  Geometry() : Object(siGeometryID, L"geom") {}
  bool isMesh = false;
  std::vector<double> points;   // x, y, z per point
  std::vector<long> polygons;   // count, then that many point indices, repeated
  long PointCount() const { return static_cast<long>(points.size() / 3); }
  long PolygonCount() const;
  long TriangleCount() const;
  // Bounding box in the object's local space (a sphere's radius as it is at `frame`); false when
  // there is nothing to bound.
  bool BoundingBox(double frame, MATH::CVector3& min, MATH::CVector3& max) const;
};

class Primitive : public Object {
 public:
  Primitive(std::wstring type) : Object(siPrimitiveID, type, type) {}
  std::shared_ptr<Geometry> geometry;
  void ForEachOwned(const std::function<void(const std::shared_ptr<Object>&)>& visit) const override;
};

class Envelope : public Object {
 public:
  Envelope() : Object(siEnvelopeID, L"Envelope") {}
  std::vector<std::weak_ptr<X3D>> deformers;
  std::vector<std::vector<double>> weights;  // per deformer, one percentage per point
};

// ---------------------------------------------------------------------------------------------
// 3D objects

class X3D : public Object {
 public:
  X3D(siClassID id, std::wstring name, std::wstring type);
  std::vector<std::shared_ptr<X3D>> children;
  std::shared_ptr<Property> kine, local, global, visibility;
  std::shared_ptr<Primitive> primitive;
  std::vector<std::shared_ptr<Envelope>> envelopes;
  // Chain links: bones and effectors know their root, the root knows both.
  std::weak_ptr<X3D> chainRoot;
  std::vector<std::weak_ptr<X3D>> chainBones;
  std::weak_ptr<X3D> chainEffector;

  std::shared_ptr<X3D> Parent() const;
  // The nearest model above (the name space this object's name lives in); null for the root.
  std::shared_ptr<ModelObject> NameSpace() const;
  std::wstring FullName() const override;
  void ForEachOwned(const std::function<void(const std::shared_ptr<Object>&)>& visit) const override;
  bool Release(const Object* child) override;
  std::shared_ptr<Object> Lookup(std::wstring_view name) const override;
  // Removes a child or an envelope from this object's lists without destroying it.
  bool EraseFromChildren(const Object* child);

  // The local transform read from "kine.local" at a frame, and written at one.
  MATH::CTransformation LocalTransform(double frame) const;
  CStatus PutLocalTransform(const MATH::CTransformation& t, double frame);
  MATH::CTransformation GlobalTransform(double frame) const;
  // Sets the local transform so that the global one becomes `t`; children keep their locals.
  CStatus PutGlobalTransform(const MATH::CTransformation& t, double frame);
};

class ModelObject : public X3D {
 public:
  explicit ModelObject(std::wstring name);
  std::shared_ptr<Container> sources;  // action sources, creation order
  std::shared_ptr<Container> mixer;    // "Mixer" with "AnimTracks"; null until a track exists
  void ForEachOwned(const std::function<void(const std::shared_ptr<Object>&)>& visit) const override;
  bool Release(const Object* child) override;
  std::shared_ptr<Object> Lookup(std::wstring_view name) const override;
};

// The nine parameters of "kine.local" (and "kine.global"), in order: translation, rotation in
// degrees, scaling.
inline constexpr const wchar_t* kLocalChannels[9] = {L"posx", L"posy", L"posz", L"rotx", L"roty",
                                                     L"rotz", L"sclx", L"scly", L"sclz"};

// Calls `visit` on every object of `from`'s name space: its descendants, without entering nested
// models; stops when `visit` returns true, and returns whether it did.
template <class F>
bool VisitNameSpace(const X3D& from, F&& visit) {
  for (const auto& child : from.children) {
    if (visit(child)) return true;
    if (child->classId != siModelID && VisitNameSpace(*child, visit)) return true;
  }
  return false;
}

// ---------------------------------------------------------------------------------------------
// Actions

class SourceItem : public Object {
 public:
  SourceItem(std::wstring target) : Object(siAnimationSourceItemID, target), target(std::move(target)) {}
  std::wstring target;  // path relative to the model: "Hips.kine.local.posx"
  std::shared_ptr<FCurveObject> fcurve;  // null for a static value
  CValue staticValue;
  void ForEachOwned(const std::function<void(const std::shared_ptr<Object>&)>& visit) const override;
};

class ActionSourceObject : public Object {
 public:
  explicit ActionSourceObject(std::wstring name);
  std::vector<std::shared_ptr<SourceItem>> items;
  void ForEachOwned(const std::function<void(const std::shared_ptr<Object>&)>& visit) const override;
  bool Release(const Object* child) override;
};

// ---------------------------------------------------------------------------------------------
// Scene-level objects

class GroupObject : public Object {
 public:
  explicit GroupObject(std::wstring name) : Object(siGroupID, std::move(name), L"#Group") {}
  std::vector<std::weak_ptr<Object>> members;
  std::wstring FullName() const override { return name; }
};

class PassObject : public Object {
 public:
  explicit PassObject(std::wstring name);
};

// ---------------------------------------------------------------------------------------------
// Construction helpers shared by the SDK classes, host commands and the scene file reader (3D
// objects are made, named and parented in the open scene: scene_graph.h).

// Makes a parameter with its range; the caller adds it to an owner.
std::shared_ptr<Parameter> MakeParam(std::wstring name, siValueType type, const CValue& def,
                                     const CValue& min = {}, const CValue& max = {},
                                     int capabilities = kAnimatable | kPersistable);

// A new action source on `model` with "FrameStart", "FrameEnd" and "type"; a taken name gets a
// number appended.
std::shared_ptr<ActionSourceObject> CreateActionSource(const std::shared_ptr<ModelObject>& model,
                                                       std::wstring name);
// A pass with "ArchiveFileName" and "renderer.ArchiveAsciiOutput".
std::shared_ptr<PassObject> CreatePass(const std::shared_ptr<Container>& passes, std::wstring name);

// A custom property (or a blob, or a built-in kind) added to `owner` with a unique name.
std::shared_ptr<Property> CreateProperty(const std::shared_ptr<Object>& owner, siClassID id,
                                         std::wstring type, std::wstring name);

// All 3D objects below `object` in depth-first pre-order (the host's recursive child search).
std::vector<std::shared_ptr<X3D>> Descendants(const X3D& object);

}  // namespace Zyra::rt
