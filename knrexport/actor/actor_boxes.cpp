// Boxes that stand in for the geometry of a generated actor's nodes.
#include "knrexport/actor/actor_boxes.h"

#include "knrexport/actor/weight_maps.h"
#include "knrexport/math/drv_math.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/pose_storage.h"
#include "knrexport/scene/tags.h"

using namespace Zyra;

namespace {

// Tags a box takes over from the node it replaces, in this order.
const wchar_t* const kCarriedTags[] = {kTagCogNode,    kTagBasePose,    kTagHomePose,
                                       L"TmpRTKPose",  kTagEffector,    kTagSphere,
                                       kTagJointLimit, L"BasePoseScale"};

struct Link {
  DrvVector vector{0.0f, 0.0f, 0.0f};  // global, from the node to its children's mean position
  float length = 0.0f;
};

Link LinkOf(X3DObject& node) {
  Link link;
  DrvTransform global;
  GetGlobalTransform(node, global);
  DrvVector sum{0.0f, 0.0f, 0.0f};
  int count = 0;
  for (const CRef& ref : node.GetChildren()) {
    X3DObject child(ref);
    if (!child.IsValid()) continue;
    DrvTransform childGlobal;
    GetGlobalTransform(child, childGlobal);
    DrvVector_Add(&sum, &sum, &childGlobal.translation);
    ++count;
  }
  if (count == 0) return link;
  DrvVector_Multiply(&sum, &sum, 1.0f / static_cast<float>(count));
  DrvVector_Subtract(&link.vector, &sum, &global.translation);
  link.length = DrvVector_Magnitude(&link.vector);
  return link;
}

bool IsCog(X3DObject& node) {
  if (HasTag(node, kTagCogNode)) return true;
  X3DObject parent(node.GetParent());
  if (!parent.IsValid() || parent.GetClassID() == siModelID) return false;
  X3DObject grandParent(parent.GetParent());
  // Only the root's single child can be the COG without its tag.
  return grandParent.GetClassID() == siModelID && parent.GetChildren().GetCount() == 1;
}

// Rule 2 without the length test.
bool MayOrient(X3DObject& node, bool cog) {
  if (X3DObject(node.GetParent()).GetClassID() == siModelID) return false;
  return cog || !IsCog(node);
}

void SumLinks(X3DObject& node, bool cog, double& sum, int& count) {
  if (!KeepsOwnGeometry(node) && MayOrient(node, cog)) {
    Link link = LinkOf(node);
    if (link.length > 0.0f) {
      sum += link.length;
      ++count;
    }
  }
  for (const CRef& ref : node.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid()) SumLinks(child, cog, sum, count);
  }
}

// The six quads over the eight corners (outward facing).
CLongArray BoxPolygons() {
  static const long kFaces[6][4] = {{0, 1, 2, 3}, {4, 7, 6, 5}, {0, 4, 5, 1},
                                    {1, 5, 6, 2}, {2, 6, 7, 3}, {3, 7, 4, 0}};
  CLongArray polygons;
  for (const auto& face : kFaces) {
    polygons.Add(4);
    for (long index : face) polygons.Add(index);
  }
  return polygons;
}

CDoubleArray BoxPoints(float w, float bottom, float top, DrvQuaternion& rotation) {
  const float corners[8][3] = {{w, top, w},    {w, top, -w},    {-w, top, -w},    {-w, top, w},
                               {w, bottom, w}, {w, bottom, -w}, {-w, bottom, -w}, {-w, bottom, w}};
  CDoubleArray points;
  for (const auto& c : corners) {
    DrvVector corner{c[0], c[1], c[2]}, turned;
    DrvVector_MultiplyQuaternion(&turned, &corner, &rotation);
    points.Add(turned.x);
    points.Add(turned.y);
    points.Add(turned.z);
  }
  return points;
}

void ReplaceOne(X3DObject& node, float nominal, bool cog, double halfFactor) {
  Link link = LinkOf(node);
  DrvQuaternion rotation{0.0f, 0.0f, 0.0f, 1.0f};
  const bool oriented = link.length > nominal * 1e-5f && MayOrient(node, cog);
  float w = static_cast<float>(nominal * halfFactor);
  float bottom = -w, top = w;
  if (oriented) {
    // The link in the node's own frame; the box's Y axis is turned onto it.
    DrvTransform global;
    GetGlobalTransform(node, global);
    DrvQuaternion inverse{-global.rotation.x, -global.rotation.y, -global.rotation.z,
                          global.rotation.w};
    DrvVector local, up{0.0f, 1.0f, 0.0f};
    DrvVector_MultiplyQuaternion(&local, &link.vector, &inverse);
    DrvQuaternion_FromTwoVectors(&rotation, &up, &local);
    if (2.0f * w > link.length) w = static_cast<float>(halfFactor * 0.1 * nominal);
    bottom = 0.0f;
    top = link.length;
  }
  X3DObject parent(node.GetParent());
  const CString name = node.GetName();
  X3DObject box;
  if (!parent.AddPolygonMesh(BoxPoints(w, bottom, top, rotation), BoxPolygons(), name, box)
           .Succeeded())
    return;
  box.GetKinematics().GetLocal().PutTransform(node.GetKinematics().GetLocal().GetTransform());
  SetWireframeDisplayColor(box, kColourBox);
  for (const wchar_t* tag : kCarriedTags) {
    Property property;
    if (FindProperty(node, tag, property)) CopyProperty(property, box);
  }
  for (const CRef& child : node.GetChildren()) box.AddChild(child);
  DeleteObj(node.GetFullName());
  box.PutName(name);
  node = box;
}

}  // namespace

bool KeepsOwnGeometry(X3DObject& node) {
  if (!HasTag(node, kTagNode) || HasTag(node, kTagSphere) || HasTag(node, kTagFloor)) return true;
  if (HasTag(node, kTagEnv) || node.GetEnvelopes().GetCount() > 0) return true;
  const siClassID id = node.GetClassID();
  if (id == siChainRootID || id == siChainBoneID || id == siChainEffectorID || id == siModelID)
    return true;
  // The root stays a null: an actor whose root is a mesh is read as one without a root.
  return X3DObject(node.GetParent()).GetClassID() == siModelID;
}

void ComputeNominalLinkLength(X3DObject& root, float& length, bool cog) {
  double sum = 0.0;
  int count = 0;
  SumLinks(root, cog, sum, count);
  length = count > 0 ? static_cast<float>(sum / count) : 1.0f;
}

void ReplaceNodeWithBox(X3DObject& node, float nominalLinkLength, bool cog, double halfBoxFactor,
                        ProgressBar& bar) {
  bar.Increment();
  X3DObject current = node;
  if (!KeepsOwnGeometry(current)) ReplaceOne(current, nominalLinkLength, cog, halfBoxFactor);
  for (const CRef& ref : current.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid()) ReplaceNodeWithBox(child, nominalLinkLength, cog, halfBoxFactor, bar);
  }
  if (node.GetRef() != current.GetRef()) node = current;
}
