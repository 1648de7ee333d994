// SDK handles for 3D objects, models, chains, geometry and envelopes.
#include "zyra/x3dobject.h"

#include "host/host.h"
#include "model/geometry_builders.h"
#include "model/model.h"
#include "model/scene_graph.h"

namespace Zyra {

namespace {

bool IsChainElement(siClassID id) {
  return id == siChainRootID || id == siChainBoneID || id == siChainEffectorID;
}
bool IsModelClass(siClassID id) { return id == siModelID; }
bool IsChainRootClass(siClassID id) { return id == siChainRootID; }
bool IsChainBoneClass(siClassID id) { return id == siChainBoneID; }
bool IsChainEffectorClass(siClassID id) { return id == siChainEffectorID; }
bool IsPrimitiveClass(siClassID id) { return id == siPrimitiveID; }
bool IsGeometryClass(siClassID id) { return id == siGeometryID || id == siPolygonMeshID; }
bool IsEnvelopeClass(siClassID id) { return id == siEnvelopeID; }

std::shared_ptr<rt::X3D> X3DOf(const CRef& ref) { return std::dynamic_pointer_cast<rt::X3D>(ref.Get()); }

CStatus Deleted() { return CStatus(CStatus::InvalidArgument, L"The object was deleted."); }

// The geometry behind a Geometry handle: meshes report siPolygonMeshID through their primitive.
std::shared_ptr<rt::Geometry> GeometryOf(const CRef& ref) {
  return std::dynamic_pointer_cast<rt::Geometry>(ref.Get());
}

// Whether `object` matches a FindChild filter: a name or full name, and a type.
bool Matches(const rt::X3D& object, const CString& name, const CString& type) {
  if (!name.IsEmpty() && object.name != name.Wide() && object.FullName() != name.Wide()) return false;
  if (!type.IsEmpty() && object.type != type.Wide()) return false;
  return true;
}

void CollectMatches(const rt::X3D& from, const CString& name, const CString& type, bool recursive,
                    bool firstOnly, CRefArray& out) {
  for (const auto& child : from.children) {
    if (firstOnly && out.GetCount()) return;
    if (Matches(*child, name, type)) out.Add(CRef(child));
    if (recursive) CollectMatches(*child, name, type, recursive, firstOnly, out);
  }
}

}  // namespace

// ---- X3DObject --------------------------------------------------------------------------------

X3DObject::X3DObject(const CRef& ref) : SceneItem(ref, IsX3DObjectClass) {}

CRefArray X3DObject::GetChildren() const {
  CRefArray out;
  if (auto o = X3DOf(ref_)) {
    for (const auto& c : o->children) out.Add(CRef(c));
  }
  return out;
}

Kinematics X3DObject::GetKinematics() const {
  auto o = X3DOf(ref_);
  return o ? Kinematics(CRef(o->kine)) : Kinematics();
}

Model X3DObject::GetModel() const {
  auto o = X3DOf(ref_);
  if (!o) return Model();
  if (o->classId == siModelID) return Model(ref_);
  auto space = o->NameSpace();
  return space ? Model(CRef(space)) : Model();
}

CStatus X3DObject::AddNull(const CString& name, X3DObject& out) {
  out = X3DObject();
  auto o = X3DOf(ref_);
  if (!o) return Deleted();
  out = X3DObject(CRef(rt::CreateX3D(o, siX3DObjectID, L"null", name.Wide())));
  return CStatus::OK;
}

CStatus X3DObject::AddModel(const CRefArray& members, const CString& name, Model& out) {
  out = Model();
  auto o = X3DOf(ref_);
  if (!o) return Deleted();
  auto model = rt::CreateModel(o, name.Wide());
  for (const CRef& member : members) {
    auto m = X3DOf(member);
    if (!m) continue;
    CStatus status = rt::Reparent(m, model);
    if (!status.Succeeded()) {
      rt::Host::Get().Log(rt::kSevWarning, L"AddModel: " + status.GetMessage().Wide());
    }
  }
  out = Model(CRef(model));
  return CStatus::OK;
}

CStatus X3DObject::AddChild(const CRef& child) {
  auto o = X3DOf(ref_);
  auto c = X3DOf(child);
  if (!o) return Deleted();
  if (!c) return CStatus(CStatus::InvalidArgument, L"AddChild: the child is not a 3D object.");
  return rt::Reparent(c, o);
}

CStatus X3DObject::AddPolygonMesh(const CDoubleArray& points, const CLongArray& polygons,
                                  const CString& name, X3DObject& out) {
  out = X3DObject();
  auto o = X3DOf(ref_);
  if (!o) return Deleted();
  CStatus status = rt::CheckPolygonData(points.Items(), polygons.Items());
  if (!status.Succeeded()) return status;
  auto mesh = rt::CreateX3D(o, siX3DObjectID, L"polymsh", name.IsEmpty() ? L"polymsh" : name.Wide());
  rt::SetMesh(mesh, points.Items(), polygons.Items());
  out = X3DObject(CRef(mesh));
  return CStatus::OK;
}

CStatus X3DObject::AddGeometry(const CString& preset, const CString& geometryType,
                               const CString& name, X3DObject& out) {
  out = X3DObject();
  auto o = X3DOf(ref_);
  if (!o) return Deleted();
  if (preset.Wide() != L"Cube" || (geometryType.Wide() != L"MeshSurface" && !geometryType.IsEmpty())) {
    return CStatus(CStatus::InvalidArgument, L"AddGeometry: unknown geometry \"" + preset.Wide() +
                                                 L"\" of type \"" + geometryType.Wide() + L"\".");
  }
  auto cube = rt::CreateX3D(o, siX3DObjectID, L"polymsh", name.IsEmpty() ? L"cube" : name.Wide());
  rt::SetCubeMesh(cube, 8.0);
  out = X3DObject(CRef(cube));
  return CStatus::OK;
}

CStatus X3DObject::AddPrimitive(const CString& preset, const CString& name, X3DObject& out) {
  out = X3DObject();
  auto o = X3DOf(ref_);
  if (!o) return Deleted();
  std::shared_ptr<rt::X3D> made = rt::CreatePrimitiveObject(o, preset.Wide(), name.Wide());
  if (!made) {
    return CStatus(CStatus::InvalidArgument, L"AddPrimitive: unknown primitive \"" + preset.Wide() + L"\".");
  }
  out = X3DObject(CRef(made));
  return CStatus::OK;
}

CStatus X3DObject::AddCamera(const CString& name, X3DObject& out) {
  auto o = X3DOf(ref_);
  if (!o) return Deleted();
  out = X3DObject(CRef(rt::CreateX3D(o, siCameraID, L"camera", name.IsEmpty() ? L"Camera" : name.Wide())));
  return CStatus::OK;
}

CStatus X3DObject::AddLight(const CString& name, X3DObject& out) {
  auto o = X3DOf(ref_);
  if (!o) return Deleted();
  out = X3DObject(CRef(rt::CreateX3D(o, siLightID, L"light", name.IsEmpty() ? L"Light" : name.Wide())));
  return CStatus::OK;
}

X3DObject X3DObject::FindChild(const CString& name, const CString& type, const CRefArray&,
                               bool recursive) const {
  auto o = X3DOf(ref_);
  if (!o) return X3DObject();
  CRefArray found;
  CollectMatches(*o, name, type, recursive, true, found);
  return found.GetCount() ? X3DObject(found[0]) : X3DObject();
}

CRefArray X3DObject::FindChildren(const CString& name, const CString& type, const CRefArray&,
                                  bool recursive) const {
  CRefArray found;
  if (auto o = X3DOf(ref_)) CollectMatches(*o, name, type, recursive, false, found);
  return found;
}

Primitive X3DObject::GetActivePrimitive() const {
  auto o = X3DOf(ref_);
  return o && o->primitive ? Primitive(CRef(o->primitive)) : Primitive();
}

CStatus X3DObject::RemoveFromParent() {
  auto o = X3DOf(ref_);
  if (!o) return Deleted();
  return rt::Reparent(o, rt::Host::Get().scene().root);
}

CStatus X3DObject::ApplyEnvelope(const CRefArray& deformers, int, int) {
  auto o = X3DOf(ref_);
  if (!o) return Deleted();
  std::vector<std::shared_ptr<rt::X3D>> list;
  for (const CRef& d : deformers) {
    auto x = X3DOf(d);
    if (!x) return CStatus(CStatus::InvalidArgument, L"ApplyEnvelope: a deformer is not a 3D object.");
    list.push_back(x);
  }
  return rt::AddEnvelope(o, list);
}

// ---- Model and chains -------------------------------------------------------------------------

Model::Model(const CRef& ref) : X3DObject(ref, IsModelClass) {}

CRefArray Model::GetSources() const {
  CRefArray out;
  if (auto m = std::dynamic_pointer_cast<rt::ModelObject>(ref_.Get())) {
    for (const auto& s : m->sources->items) out.Add(CRef(s));
  }
  return out;
}

bool Model::HasMixer() const {
  auto m = std::dynamic_pointer_cast<rt::ModelObject>(ref_.Get());
  return m && m->mixer;
}

CRef Model::GetMixer() const {
  auto m = std::dynamic_pointer_cast<rt::ModelObject>(ref_.Get());
  return m && m->mixer ? CRef(m->mixer) : CRef();
}

ChainElement::ChainElement(const CRef& ref) : X3DObject(ref, IsChainElement) {}

CRef ChainElement::GetRoot() const {
  auto o = X3DOf(ref_);
  if (!o) return CRef();
  if (o->classId == siChainRootID) return ref_;
  auto root = o->chainRoot.lock();
  return root && root->alive ? CRef(root) : CRef();
}

ChainRoot::ChainRoot(const CRef& ref) : ChainElement(ref, IsChainRootClass) {}

CRefArray ChainRoot::GetBones() const {
  CRefArray out;
  if (auto o = X3DOf(ref_)) {
    for (const auto& b : o->chainBones) {
      if (auto bone = b.lock(); bone && bone->alive) out.Add(CRef(bone));
    }
  }
  return out;
}

CRef ChainRoot::GetEffector() const {
  auto o = X3DOf(ref_);
  auto e = o ? o->chainEffector.lock() : nullptr;
  return e && e->alive ? CRef(e) : CRef();
}

ChainBone::ChainBone(const CRef& ref) : ChainElement(ref, IsChainBoneClass) {}
ChainEffector::ChainEffector(const CRef& ref) : ChainElement(ref, IsChainEffectorClass) {}

// ---- Geometry ---------------------------------------------------------------------------------

Primitive::Primitive(const CRef& ref) : ProjectItem(ref, IsPrimitiveClass) {}

Geometry Primitive::GetGeometry(const CTime&) const {
  auto p = std::dynamic_pointer_cast<rt::Primitive>(ref_.Get());
  return p && p->geometry ? Geometry(CRef(p->geometry)) : Geometry();
}

Geometry::Geometry(const CRef& ref) : ZrObject(ref, IsGeometryClass) {}

long Geometry::GetPointCount() const {
  auto g = GeometryOf(ref_);
  return g ? g->PointCount() : 0;
}
long Geometry::GetPolygonCount() const {
  auto g = GeometryOf(ref_);
  return g ? g->PolygonCount() : 0;
}
long Geometry::GetTriangleCount() const {
  auto g = GeometryOf(ref_);
  return g ? g->TriangleCount() : 0;
}
CDoubleArray Geometry::GetPoints() const {
  auto g = GeometryOf(ref_);
  return g ? CDoubleArray(g->points) : CDoubleArray();
}

CStatus Geometry::GetBoundingBox(MATH::CVector3& min, MATH::CVector3& max) const {
  auto g = GeometryOf(ref_);
  if (!g) return Deleted();
  if (!g->BoundingBox(rt::CurrentFrame(), min, max)) return CStatus(CStatus::Fail, L"The geometry is empty.");
  return CStatus::OK;
}

PolygonMesh::PolygonMesh(const CRef& ref) : Geometry(ref, [](siClassID id) { return id == siPolygonMeshID; }) {}

CLongArray PolygonMesh::GetPolygonData() const {
  auto g = GeometryOf(ref_);
  return g ? CLongArray(g->polygons) : CLongArray();
}

// ---- Envelopes --------------------------------------------------------------------------------

Envelope::Envelope(const CRef& ref) : ProjectItem(ref, IsEnvelopeClass) {}

CRefArray Envelope::GetDeformers() const {
  CRefArray out;
  if (auto e = std::dynamic_pointer_cast<rt::Envelope>(ref_.Get())) {
    for (const auto& d : e->deformers) {
      if (auto x = d.lock(); x && x->alive) out.Add(CRef(x));
    }
  }
  return out;
}

CDoubleArray Envelope::GetDeformerWeights(const CRef& deformer, const CTime&) const {
  auto e = std::dynamic_pointer_cast<rt::Envelope>(ref_.Get());
  auto d = deformer.Get();
  if (!e || !d) return CDoubleArray();
  for (size_t i = 0; i < e->deformers.size(); ++i) {
    if (e->deformers[i].lock() == d) return CDoubleArray(e->weights[i]);
  }
  return CDoubleArray();
}

CStatus Envelope::SetDeformerWeights(const CRef& deformer, const CDoubleArray& weights) {
  auto e = std::dynamic_pointer_cast<rt::Envelope>(ref_.Get());
  if (!e) return Deleted();
  return rt::SetEnvelopeWeights(*e, deformer.Get(), weights.Items());
}

}  // namespace Zyra
