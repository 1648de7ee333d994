// Initializing an actor description.
#include "knrexport/actor/initialize.h"

#include <algorithm>
#include <cmath>

#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/parameters.h"
#include "knrexport/scene/pose_storage.h"
#include "knrexport/scene/tags.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

constexpr int kColourDefault = 512;

void Grow(DrvVector& min, DrvVector& max, const MATH::CVector3& p) {
  min.x = std::min(min.x, static_cast<float>(p.GetX()));
  min.y = std::min(min.y, static_cast<float>(p.GetY()));
  min.z = std::min(min.z, static_cast<float>(p.GetZ()));
  max.x = std::max(max.x, static_cast<float>(p.GetX()));
  max.y = std::max(max.y, static_cast<float>(p.GetY()));
  max.z = std::max(max.z, static_cast<float>(p.GetZ()));
}

}  // namespace

bool InitializeActorTB(X3DObject& node, bool addActor) {
  Model model;
  if (!GetModelOrSay(node, model)) return false;
  ProgressBar bar = ShowProgressBar(2 * GetNumChildren(model), L"Initializing Actor");
  bool done = InitializeActor(node, addActor, bar);
  FinishProgressBar(bar);
  return done;
}

bool InitializeActor(X3DObject& node, bool addActor, ProgressBar bar) {
  Model model;
  X3DObject root, cog;
  if (!GetActorStructure(node, model, root, cog)) return false;
  RemoveOldFormatTempData(model, bar);
  AddRTKNode(root);
  ScanHierarchy(cog, bar);
  if (addActor) AddRTKActor(root, true);
  return true;
}

void ScanHierarchy(X3DObject& node, ProgressBar bar) {
  bar.Increment();
  if (IsLightOrCamera(node)) return;
  AddRTKNode(node);
  Property end;
  // Leaf marks are rebuilt from scratch on every scan.
  if (FindProperty(node, kTagEnd, end)) DeleteObj(end.GetFullName());
  CRefArray children = node.GetChildren();
  if (children.GetCount() == 0) {
    AddTag(node, kTagEnd);
    return;
  }
  for (const CRef& ref : children) {
    X3DObject child(ref);
    if (child.IsValid()) ScanHierarchy(child, bar);
  }
}

void AddRTKNode(X3DObject& node) {
  // The colour marks a node as a default node when it is first tagged; a later scan keeps the
  // role colours (feet, collision-only, visual-only) that the animator has set since.
  if (HasTag(node, kTagNode)) return;
  AddTag(node, kTagNode);
  SetWireframeDisplayColor(node, kColourDefault);
}

void ComputeBoundingBox(X3DObject& node, DrvVector& min, DrvVector& max) {
  MATH::CTransformation global = node.GetKinematics().GetGlobal().GetTransform();
  Grow(min, max, global.GetTranslation());
  Geometry geometry = node.GetActivePrimitive().GetGeometry();
  if (PolygonMesh(geometry).IsValid()) {
    CDoubleArray points = geometry.GetPoints();
    for (long i = 0; i + 2 < points.GetCount(); i += 3) {
      Grow(min, max, global.MapPoint(MATH::CVector3(points[i], points[i + 1], points[i + 2])));
    }
  } else if (geometry.IsValid()) {
    MATH::CVector3 lo, hi;
    if (geometry.GetBoundingBox(lo, hi).Succeeded()) {
      // A sphere's box, corner by corner, so that rotation and scaling are followed.
      for (int corner = 0; corner < 8; ++corner) {
        MATH::CVector3 c((corner & 1) ? hi.GetX() : lo.GetX(), (corner & 2) ? hi.GetY() : lo.GetY(),
                         (corner & 4) ? hi.GetZ() : lo.GetZ());
        Grow(min, max, global.MapPoint(c));
      }
    }
  }
  for (const CRef& ref : node.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid()) ComputeBoundingBox(child, min, max);
  }
}

void AddRTKActor(X3DObject& root, bool measure) {
  Property found;
  CustomProperty actor = FindCustomPSet(root, kTagActor, found) ? CustomProperty(found) : AddTag(root, kTagActor);
  if (!measure || !actor.IsValid()) return;
  DrvVector min{kFltMax, kFltMax, kFltMax};
  DrvVector max{-kFltMax, -kFltMax, -kFltMax};
  ComputeBoundingBox(root, min, max);
  MATH::CVector3 p = root.GetKinematics().GetGlobal().GetTransform().GetTranslation();
  // The ground plane is X-Z (Y is up). Radius: the farthest box corner in that plane from the
  // root; MeanDistance: the mean distance to the four corners; Height: the box's vertical extent.
  double radius = 0.0, sum = 0.0;
  for (float x : {min.x, max.x}) {
    for (float z : {min.z, max.z}) {
      double d = std::hypot(x - p.GetX(), z - p.GetZ());
      radius = std::max(radius, d);
      sum += d;
    }
  }
  actor.PutParameterValue(L"Radius", radius);
  actor.PutParameterValue(L"Height", static_cast<double>(max.y) - static_cast<double>(min.y));
  actor.PutParameterValue(L"MeanDistance", sum / 4.0);
}
