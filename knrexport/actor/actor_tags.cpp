// The role tags of an actor's nodes and the extractors that find them again.
//
// Geometric rules of this file (all distances in scene units):
//  - A collision sphere is a child of its node with an identity local transform: it is centred
//    on the node's pivot and follows the node. Its primitive "radius" is in the node's local
//    units, so the node's scaling scales the sphere.
//  - ComputeSphereRadius: a quarter of the length of the bone that leaves the node (the global
//    distance to its first child that is not a collision sphere or floor); a node without such
//    a child takes a quarter of the bone that arrives at it (the distance to its parent). The
//    result is never below kMinSphereRadius.
//  - AddFootColSphere: the sphere touches the ground (global y = 0) in the home pose: its world
//    radius is the foot's home height py, i.e. a primitive radius of py / sy. A foot at or below
//    the ground gets kMinSphereRadius.
//  - FindHeel / FindToe: among the collision spheres of the foot's branch, the one whose centre
//    lies furthest back (smallest global z) or furthest forward (largest global z) in the home
//    pose; the actor faces +z. A sphere's home position is its local transform put under its
//    parent's RTKHomePose. Ties keep the first sphere found. Without spheres: the foot itself.
//  - CheckBottom: a sphere's lowest point at a frame is its global centre y minus its primitive
//    "radius" times its global y scaling.
//  - AddFloor: a flat quad (one polygon, two triangles) named "Floor" under the node, level in
//    global space, spanning the global x/z extent of the node's mesh at the mesh's lowest global
//    y (its pivot at the centre of the quad). Its RTKFloor "Top" is the height of the mesh's top
//    above that floor (global max y minus min y, so never negative).
#include "knrexport/actor/actor_tags.h"

#include <algorithm>
#include <cmath>

#include "knrexport/actor/home_pose.h"
#include "knrexport/actor/initialize.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/tags.h"
#include "zyra/application.h"

using namespace Zyra;
using Zyra::MATH::CTransformation;
using Zyra::MATH::CVector3;

namespace {

// The smallest radius a collision sphere gets.
constexpr float kMinSphereRadius = 0.1f;
// Below this a scaling counts as zero.
constexpr double kTinyScale = 1e-9;

bool IsActorRoot(const X3DObject& node) {
  X3DObject parent(node.GetParent());
  return parent.IsValid() && parent.GetClassID() == siModelID;
}

bool IsHelper(const X3DObject& obj) { return HasTag(obj, kTagSphere) || HasTag(obj, kTagFloor); }

CVector3 GlobalPosition(const X3DObject& obj, const CTime& time = CTime::Current()) {
  return obj.GetKinematics().GetGlobal().GetTransform(time).GetTranslation();
}

double Distance(const CVector3& a, const CVector3& b) {
  double dx = a.GetX() - b.GetX(), dy = a.GetY() - b.GetY(), dz = a.GetZ() - b.GetZ();
  return std::sqrt(dx * dx + dy * dy + dz * dz);
}

// The transform recorded in the object's RTKHomePose; false when it has none.
bool HomeTransform(X3DObject& obj, CTransformation& out) {
  Property home;
  if (!FindCustomPSet(obj, kTagHomePose, home)) return false;
  auto v = [&home](const wchar_t* name) { return home.GetParameterValue(name).AsDouble(); };
  out.SetIdentity();
  out.SetTranslationFromValues(v(L"px"), v(L"py"), v(L"pz"));
  out.SetRotationFromXYZAnglesValues(v(L"rx"), v(L"ry"), v(L"rz"));
  out.SetScalingFromValues(v(L"sx"), v(L"sy"), v(L"sz"));
  return true;
}

// Where the object stands in the home pose: its own record, else its local transform under its
// parent's home pose (collision spheres have no record of their own).
bool HomePosition(X3DObject& obj, CVector3& out) {
  CTransformation home;
  if (HomeTransform(obj, home)) {
    out = home.GetTranslation();
    return true;
  }
  X3DObject parent(obj.GetParent());
  CTransformation parentHome;
  if (!parent.IsValid() || !HomeTransform(parent, parentHome)) return false;
  CTransformation local = obj.GetKinematics().GetLocal().GetTransform();
  out = CTransformation::Compose(parentHome, local).GetTranslation();
  return true;
}

// A new collision sphere "<node>_CS" under the node with the given primitive radius.
X3DObject MakeColSphere(X3DObject& node, float radius) {
  X3DObject sphere;
  if (!node.AddPrimitive(L"Sphere", node.GetName() + L"_CS", sphere).Succeeded())
    return X3DObject();
  // The primitive sits on the node's pivot: its local transform stays the identity.
  sphere.GetActivePrimitive().PutParameterValue(L"radius", static_cast<double>(radius));
  AddRTKNode(sphere);
  AddTag(sphere, kTagSphere, radius);
  SetWireframeDisplayColor(sphere, kColourSphere);
  return sphere;
}

bool HasSphereChild(const X3DObject& node) {
  for (const CRef& ref : node.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid() && HasTag(child, kTagSphere)) return true;
  }
  return false;
}

// The colour of an initialized node's role flags.
int RoleColour(const Property& flags) {
  if (flags.GetParameterValue(L"VisualizationOnly").AsBool()) return kColourVisualOnly;
  if (flags.GetParameterValue(L"CollisionOnly").AsBool()) return kColourCollisionOnly;
  return kColourDefaultNode;
}

bool SetRole(X3DObject& node, const wchar_t* action, bool visualOnly, bool collisionOnly) {
  Property flags;
  if (!FindCustomPSet(node, kTagNode, flags)) {
    ShowMessage(CString(L"The ") + action +
                L" action requires the selected node to be initialized.\n"
                L"Please initialize the actor and try again.");
    return false;
  }
  flags.PutParameterValue(L"VisualizationOnly", visualOnly);
  flags.PutParameterValue(L"CollisionOnly", collisionOnly);
  // A foot keeps its own colour.
  if (!HasTag(node, kTagEffector)) SetWireframeDisplayColor(node, RoleColour(flags));
  return true;
}

// The sphere furthest along global z in the home pose (`forward`) or against it; the foot when
// its branch has no sphere with a known home position.
X3DObject FindFootEnd(X3DObject& foot, bool forward) {
  CRefArray spheres;
  ExtractColSpheres(foot, spheres, true);
  X3DObject best;
  double bestZ = 0.0;
  for (const CRef& ref : spheres) {
    X3DObject sphere(ref);
    CVector3 at;
    if (!HomePosition(sphere, at)) continue;
    double z = forward ? at.GetZ() : -at.GetZ();
    if (!best.IsValid() || z > bestZ) {
      best = sphere;
      bestZ = z;
    }
  }
  return best.IsValid() ? best : foot;
}

// The lowest and highest global y of the mesh's points and their global x/z extent.
struct MeshExtent {
  double minX, maxX, minY, maxY, minZ, maxZ;
};

bool GlobalMeshExtent(const X3DObject& node, MeshExtent& out) {
  Geometry geometry = node.GetActivePrimitive().GetGeometry();
  if (!PolygonMesh(geometry.GetRef()).IsValid() || geometry.GetTriangleCount() <= 0) return false;
  CDoubleArray points = geometry.GetPoints();
  if (points.GetCount() < 3) return false;
  CTransformation global = node.GetKinematics().GetGlobal().GetTransform();
  for (long i = 0; i + 2 < points.GetCount(); i += 3) {
    CVector3 p = global.MapPoint(CVector3(points[i], points[i + 1], points[i + 2]));
    if (i == 0) out = {p.GetX(), p.GetX(), p.GetY(), p.GetY(), p.GetZ(), p.GetZ()};
    out.minX = std::min(out.minX, p.GetX());
    out.maxX = std::max(out.maxX, p.GetX());
    out.minY = std::min(out.minY, p.GetY());
    out.maxY = std::max(out.maxY, p.GetY());
    out.minZ = std::min(out.minZ, p.GetZ());
    out.maxZ = std::max(out.maxZ, p.GetZ());
  }
  return true;
}

}  // namespace

bool SetCOG(X3DObject& node) {
  Model model;
  if (!GetModelOrSay(node, model)) return false;
  if (model.GetRef() == Application().GetActiveSceneRoot().GetRef()) {
    ShowMessage(
        L"The actor description must be contained by a single model (scene root not supported).");
    return false;
  }
  X3DObject root;
  if (!GetRootNode(model, root, true)) return false;
  if (CheckForEmbeddedModel(root)) {
    ShowMessage(
        L"The source description must be contained by a single model (embedded models not "
        L"supported).");
    return false;
  }
  if (IsLightOrCamera(node)) {
    ShowMessage(L"The COG node can not be a light or camera.");
    return false;
  }
  X3DObject parent(node.GetParent());
  if (!parent.IsValid() || parent.GetParent() != model.GetRef()) {
    ShowMessage(L"The COG node must be two levels below the model.");
    return false;
  }
  if (!HasTag(node, kTagCogNode)) AddTag(node, kTagCogNode);
  return true;
}

bool RemoveCOG(X3DObject& node) {
  Property tag;
  if (!FindCustomPSet(node, kTagCogNode, tag)) return false;
  DeleteObj(tag.GetFullName());
  return true;
}

bool SetFoot(X3DObject& node, bool addSphere) {
  if (!HasTag(node, kTagHomePose)) {
    ShowMessage(
        L"The Set Foot action can not be applied to an actor whose Home pose is not set.\n"
        L"Please set the Home pose and try again.");
    return false;
  }
  if (IsActorRoot(node)) {
    ShowMessage(L"The Set Foot action can not be applied to the root node of an actor.");
    return false;
  }
  if (!HasTag(node, kTagEffector)) AddTag(node, kTagEffector);
  SetWireframeDisplayColor(node, kColourFoot);
  if (!addSphere) return true;
  if (HasSphereChild(node)) {
    ShowMessage(
        L"The foot node already has a collision sphere as a child.  You will\n"
        L"need to add additional collision spheres manually.");
    return true;
  }
  AddFootColSphere(node);
  return true;
}

bool RemoveFoot(X3DObject& node) {
  // Only a foot has anything to remove: on any other node the spheres below belong to whatever
  // else the node is, and are left alone without a question.
  Property effector;
  if (!FindCustomPSet(node, kTagEffector, effector)) return true;
  DeleteObj(effector.GetFullName());
  Property flags;
  if (FindCustomPSet(node, kTagNode, flags)) SetWireframeDisplayColor(node, RoleColour(flags));
  CRefArray spheres;
  FindRTKNodes(node, kTagSphere, spheres);
  if (spheres.GetCount() > 0 &&
      AskYesNo(L"Do you want to remove the collision spheres under the foot node?")) {
    for (const CRef& sphere : spheres) DeleteObj(X3DObject(sphere).GetFullName());
  }
  return true;
}

float ComputeSphereRadius(X3DObject& node) {
  CVector3 at = GlobalPosition(node);
  double length = 0.0;
  bool found = false;
  for (const CRef& ref : node.GetChildren()) {
    X3DObject child(ref);
    if (!child.IsValid() || IsHelper(child)) continue;
    length = Distance(at, GlobalPosition(child));
    found = true;
    break;
  }
  if (!found) {
    X3DObject parent(node.GetParent());
    if (parent.IsValid() && parent.GetClassID() != siModelID)
      length = Distance(at, GlobalPosition(parent));
  }
  return std::max(kMinSphereRadius, static_cast<float>(0.25 * length));
}

X3DObject AddColSphere(X3DObject& node, bool inspect) {
  if (IsActorRoot(node)) {
    ShowMessage(
        L"The Add Collision Sphere action can not be applied to the root node of an actor.");
    return X3DObject();
  }
  X3DObject sphere = MakeColSphere(node, ComputeSphereRadius(node));
  if (sphere.IsValid() && inspect) {
    InspectObj(sphere.GetFullName() + L".Sphere", L"", L"Collision Sphere", 4, false);
  }
  return sphere;
}

X3DObject AddFootColSphere(X3DObject& node) {
  float radius = kMinSphereRadius;
  CTransformation home;
  if (HomeTransform(node, home)) {
    double height = home.GetTranslation().GetY();
    double scale = std::fabs(home.GetScaling().GetY());
    if (scale > kTinyScale) height /= scale;
    radius = std::max(kMinSphereRadius, static_cast<float>(height));
  }
  return MakeColSphere(node, radius);
}

bool AddFloor(X3DObject& node) {
  // The checks go from the cheapest structural one to the one that looks at the children.
  if (IsActorRoot(node)) {
    ShowMessage(L"The Add Floor action can not be applied to the root node of an actor.");
    return false;
  }
  if (!HasTag(node, kTagNode)) {
    ShowMessage(
        L"The Add Floor action requires the selected node to be initialized.\n"
        L"Please initialize the actor and try again.");
    return false;
  }
  MeshExtent extent{};
  if (!GlobalMeshExtent(node, extent)) {
    ShowMessage(
        L"The Add Floor action can not be applied to a node without an associated polygon mesh.");
    return false;
  }
  for (const CRef& ref : node.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid() && HasTag(child, kTagFloor)) {
      ShowMessage(L"A floor node already exists under the selected node.");
      return false;
    }
  }
  double hx = (extent.maxX - extent.minX) / 2, hz = (extent.maxZ - extent.minZ) / 2;
  // Counter-clockwise seen from above: the quad's normal points up.
  CDoubleArray points(std::vector<double>{-hx, 0, -hz, -hx, 0, hz, hx, 0, hz, hx, 0, -hz});
  CLongArray polygons(std::vector<long>{4, 0, 1, 2, 3});
  X3DObject floor;
  if (!node.AddPolygonMesh(points, polygons, L"Floor", floor).Succeeded()) return false;
  CTransformation place;
  place.SetIdentity();
  place.SetTranslationFromValues((extent.minX + extent.maxX) / 2, extent.minY,
                                 (extent.minZ + extent.maxZ) / 2);
  floor.GetKinematics().GetGlobal().PutTransform(place);
  AddTag(floor, kTagFloor, static_cast<float>(extent.maxY - extent.minY));
  return true;
}

bool RemoveFloor(X3DObject& node) {
  // The floors under the node; a selected floor itself is removed too.
  CRefArray floors;
  for (const CRef& ref : node.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid() && HasTag(child, kTagFloor)) floors.Add(ref);
  }
  if (floors.GetCount() == 0 && HasTag(node, kTagFloor)) floors.Add(node.GetRef());
  for (const CRef& floor : floors) DeleteObj(X3DObject(floor).GetFullName());
  return floors.GetCount() > 0;
}

bool SetCollisionOnly(X3DObject& node) { return SetRole(node, L"Set Collision Only", false, true); }
bool SetVisualOnly(X3DObject& node) { return SetRole(node, L"Set Visual Only", true, false); }
bool SetDefault(X3DObject& node) { return SetRole(node, L"Set Default", false, false); }

void ExtractFeet(X3DObject& root, CRefArray& feet) { FindRTKNodes(root, kTagEffector, feet); }

void ExtractColSpheres(X3DObject& node, CRefArray& spheres, bool recurse) {
  for (const CRef& ref : node.GetChildren()) {
    X3DObject child(ref);
    if (!child.IsValid()) continue;
    if (HasTag(child, kTagSphere)) spheres.Add(ref);
    if (recurse) ExtractColSpheres(child, spheres, true);
  }
}

void ExtractHeels(CRefArray& feet, CRefArray& heels) {
  for (const CRef& ref : feet) {
    X3DObject foot(ref);
    if (foot.IsValid()) heels.Add(FindHeel(foot).GetRef());
  }
}

X3DObject FindHeel(X3DObject& foot) { return FindFootEnd(foot, false); }
X3DObject FindToe(X3DObject& foot) { return FindFootEnd(foot, true); }

void CheckBottom(CRefArray& spheres, float& bottom, int frame) {
  CTime time(static_cast<double>(frame));
  for (const CRef& ref : spheres) {
    X3DObject sphere(ref);
    if (!sphere.IsValid()) continue;
    CTransformation global = sphere.GetKinematics().GetGlobal().GetTransform(time);
    double radius = sphere.GetActivePrimitive().GetParameterValue(L"radius", time).AsDouble();
    double low = global.GetTranslation().GetY() - radius * std::fabs(global.GetScaling().GetY());
    bottom = std::min(bottom, static_cast<float>(low));
  }
}
