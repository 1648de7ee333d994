// Copying a source actor description into a new generated model.
#include "knrexport/generate/copy_actor.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <string>

#include "knrexport/actor/actor_boxes.h"
#include "knrexport/actor/home_pose.h"
#include "knrexport/actor/initialize.h"
#include "knrexport/actor/weight_maps.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/parameters.h"
#include "knrexport/scene/pose_storage.h"
#include "knrexport/scene/tags.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

constexpr double kFreezeTolerance = 0.0001;
constexpr float kNominalSizeFactor = 0.025f;

struct CopyContext {
  ProgressBar bar;
  bool removeExtra = false;
  bool removePoly = false;
  float nominalSize = 0.0f;
  X3DObject cog;
  std::set<std::wstring> skin;                // with envelopes: skin meshes and their deformers
  std::map<std::wstring, X3DObject> premade;  // chain elements made with their chain
};

bool IsChainElement(const X3DObject& node) {
  const siClassID id = node.GetClassID();
  return id == siChainRootID || id == siChainBoneID || id == siChainEffectorID;
}

bool HasEffectorTag(const CRef& ref) {
  X3DObject node(ref);
  return node.IsValid() && HasTag(node, kTagEffector);
}

bool Keep(CopyContext& c, X3DObject& node) {
  if (!c.removeExtra || IsChainElement(node) || node.GetRef() == c.cog.GetRef()) return true;
  if (c.skin.count(node.GetName().Wide())) return true;
  return !UnusedNode(node);
}

bool IsCopiedTag(const CString& name) {
  return name.FindString(L"RTK") == 0 || name == CString(kTagJointLimit) ||
         name == CString(L"BasePoseScale");
}

void CopyTags(X3DObject& source, X3DObject& copy) {
  for (const CRef& ref : source.GetProperties()) {
    Property property(ref);
    if (property.GetName() == CString(L"Display Property")) {
      SetWireframeDisplayColor(copy, property.GetParameterValue(L"wirecol").AsInt());
    } else if (CustomProperty(ref).IsValid() && IsCopiedTag(property.GetName())) {
      CopyProperty(property, copy);
    }
  }
  if (source.GetEnvelopes().GetCount() > 0 && !HasTag(copy, kTagEnv)) AddTag(copy, kTagEnv);
}

// The whole chain of `root` under `parent`, each element renamed and placed like its source.
X3DObject CopyChain(CopyContext& c, ChainRoot root, X3DObject& parent) {
  CRefArray bones = root.GetBones();
  X3DObject effector(root.GetEffector());
  if (bones.GetCount() == 0 || !effector.IsValid()) return X3DObject();
  std::vector<X3DObject> sources{X3DObject(root)};
  for (const CRef& bone : bones) sources.emplace_back(bone);
  sources.push_back(effector);
  // The chain is made from the root's position and each bone's end: the next bone's start, and
  // the effector for the last bone.
  CValueArray args{root.GetName(), CValue(parent.GetRef())};
  for (size_t i = 0; i < sources.size(); ++i) {
    if (i == 1) continue;
    MATH::CVector3 p = sources[i].GetKinematics().GetGlobal().GetTransform().GetTranslation();
    args.Add(p.GetX());
    args.Add(p.GetY());
    args.Add(p.GetZ());
  }
  CValue made;
  if (!Application().ExecuteCommand(L"CreateChain", args, made).Succeeded()) return X3DObject();
  ChainRoot copy(made.AsRef());
  std::vector<X3DObject> copies{X3DObject(copy)};
  for (const CRef& bone : copy.GetBones()) copies.emplace_back(bone);
  copies.emplace_back(copy.GetEffector());
  if (copies.size() != sources.size()) return copy;
  for (size_t i = 0; i < copies.size(); ++i) {
    copies[i].PutName(sources[i].GetName());
    copies[i].GetKinematics().GetGlobal().PutTransform(
        sources[i].GetKinematics().GetGlobal().GetTransform());
    if (i > 0) c.premade[sources[i].GetName().Wide()] = copies[i];
  }
  return copy;
}

X3DObject CopyOne(CopyContext& c, X3DObject& source, X3DObject& parent) {
  auto premade = c.premade.find(source.GetName().Wide());
  if (premade != c.premade.end()) return premade->second;
  const CString name = source.GetName();
  X3DObject copy;
  Geometry geometry = source.GetActivePrimitive().GetGeometry();
  const bool keepsPoints =
      HasTag(source, kTagFloor) || source.GetEnvelopes().GetCount() > 0 || !c.removePoly;
  if (source.GetClassID() == siChainRootID) {
    copy = CopyChain(c, ChainRoot(source), parent);
  } else if (source.GetType() == CString(L"sphere")) {
    parent.AddPrimitive(L"Sphere", name, copy);
    double radius = source.GetActivePrimitive().GetParameterValue(L"radius").AsDouble();
    copy.GetActivePrimitive().PutParameterValue(
        L"radius", radius > 0.0 ? radius : static_cast<double>(c.nominalSize));
  } else if (PolygonMesh(geometry).IsValid() && keepsPoints) {
    parent.AddPolygonMesh(geometry.GetPoints(), PolygonMesh(geometry).GetPolygonData(), name, copy);
  }
  if (!copy.IsValid()) parent.AddNull(name, copy);
  copy.GetKinematics().GetGlobal().PutTransform(source.GetKinematics().GetGlobal().GetTransform());
  return copy;
}

void CopyBranch(CopyContext& c, X3DObject& source, X3DObject& copy) {
  for (const CRef& ref : source.GetChildren()) {
    X3DObject child(ref);
    if (!child.IsValid()) continue;
    c.bar.Increment();
    if (IsLightOrCamera(child)) {
      c.bar.Increment(GetNumChildren(child));
      continue;
    }
    if (!Keep(c, child)) {
      CopyBranch(c, child, copy);
      continue;
    }
    X3DObject childCopy = CopyOne(c, child, copy);
    CopyTags(child, childCopy);
    CopyBranch(c, child, childCopy);
  }
}

// Sets the local scaling of a node that has no points to fold it into; children keep their
// global transforms.
void ResetScalingKeepingChildren(X3DObject& node) {
  std::vector<std::pair<X3DObject, MATH::CTransformation>> children;
  for (const CRef& ref : node.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid())
      children.emplace_back(child, child.GetKinematics().GetGlobal().GetTransform());
  }
  KinematicState local = node.GetKinematics().GetLocal();
  MATH::CTransformation t = local.GetTransform();
  t.SetScalingFromValues(1.0, 1.0, 1.0);
  local.PutTransform(t);
  for (auto& [child, global] : children) child.GetKinematics().GetGlobal().PutTransform(global);
}

bool IsUnit(const MATH::CVector3& s) {
  return std::fabs(s.GetX() - 1.0) <= kFreezeTolerance &&
         std::fabs(s.GetY() - 1.0) <= kFreezeTolerance &&
         std::fabs(s.GetZ() - 1.0) <= kFreezeTolerance;
}

}  // namespace

float ComputeNominalSize(X3DObject& sourceRoot) {
  DrvVector min{kFltMax, kFltMax, kFltMax}, max{-kFltMax, -kFltMax, -kFltMax};
  ComputeBoundingBox(sourceRoot, min, max);
  const float ex = max.x - min.x, ey = max.y - min.y, ez = max.z - min.z;
  float largest = ey;
  if (ex >= ey && ex >= ez) {
    largest = ex;
  } else if (ez >= ex && ez >= ey) {
    largest = ez;
  }
  return kNominalSizeFactor * largest;
}

void CopyNode(Model& sourceModel, X3DObject& sourceNode, X3DObject& generatedNode, ProgressBar& bar,
              bool envelope, bool removeExtra, bool removePoly, float nominalSize) {
  CopyContext c;
  c.bar = bar;
  c.removeExtra = removeExtra;
  c.removePoly = removePoly;
  c.nominalSize = nominalSize;
  GetCogNode(sourceNode, c.cog);
  if (envelope) {
    CRefArray enveloped;
    ExtractEnvelopeList(sourceModel, enveloped);
    for (const CRef& ref : enveloped) {
      c.skin.insert(X3DObject(ref).GetName().Wide());
      for (const CRef& envelope : X3DObject(ref).GetEnvelopes()) {
        for (const CRef& deformer : Envelope(envelope).GetDeformers())
          c.skin.insert(X3DObject(deformer).GetName().Wide());
      }
    }
  }
  bar.Increment();
  CopyTags(sourceNode, generatedNode);
  CopyBranch(c, sourceNode, generatedNode);
}

void FreezeScaling(Model& generated, const DrvVector& scale) {
  CRefArray nodes = generated.FindChildren(CString(), CString());
  if (nodes.GetCount() == 0) return;
  if (scale.x != 1.0f || scale.y != 1.0f || scale.z != 1.0f) {
    KinematicState local = X3DObject(nodes[0]).GetKinematics().GetLocal();
    MATH::CTransformation t = local.GetTransform();
    t.SetScaling(t.GetScaling().MulComponents(MATH::CVector3(scale.x, scale.y, scale.z)));
    local.PutTransform(t);
  }
  // Parents first: each node's scaling passes to its children, which fold it in turn.
  for (const CRef& ref : nodes) {
    X3DObject node(ref);
    MATH::CVector3 s = node.GetKinematics().GetLocal().GetTransform().GetScaling();
    if (IsUnit(s)) continue;
    Geometry geometry = node.GetActivePrimitive().GetGeometry();
    if (PolygonMesh(geometry).IsValid()) {
      CValue ignored;
      Application().ExecuteCommand(L"ResetTransform", {CValue(node.GetRef()), 1, 1, 7}, ignored);
      continue;
    }
    if (node.GetType() == CString(L"sphere")) {
      Primitive sphere = node.GetActivePrimitive();
      double largest = std::max({std::fabs(s.GetX()), std::fabs(s.GetY()), std::fabs(s.GetZ())});
      sphere.PutParameterValue(L"radius", sphere.GetParameterValue(L"radius").AsDouble() * largest);
    }
    ResetScalingKeepingChildren(node);
  }
}

void ProcessBaseScaling(Model& generated, double sx, double sy, double sz) {
  const double factors[3] = {sx, sy, sz};
  const wchar_t* const names[3] = {L"px", L"py", L"pz"};
  for (const CRef& ref : generated.FindChildren(CString(), CString())) {
    X3DObject node(ref);
    for (const wchar_t* tag : {kTagHomePose, kTagBasePose}) {
      Property pose;
      if (!FindProperty(node, tag, pose)) continue;
      for (int a = 0; a < 3; ++a) {
        if (factors[a] != 1.0)
          pose.PutParameterValue(names[a],
                                 pose.GetParameterValue(names[a]).AsDouble() * factors[a]);
      }
    }
  }
}

X3DObject CopyActor(Model& sourceModel, X3DObject& sourceRoot, Model& generated, ProgressBar& bar,
                    bool envelope, bool box, bool removeExtra, bool removePoly, bool cog,
                    double halfBoxFactor) {
  Model sceneRoot = Application().GetActiveSceneRoot();
  if (!sceneRoot.AddModel(CRefArray(), L"Knr" + sourceModel.GetName(), generated).Succeeded())
    return X3DObject();
  const float nominalSize = ComputeNominalSize(sourceRoot);
  X3DObject root;
  generated.AddNull(sourceRoot.GetName(), root);
  generated.GetKinematics().GetLocal().PutTransform(
      sourceModel.GetKinematics().GetLocal().GetTransform());
  root.GetKinematics().GetLocal().PutTransform(
      sourceRoot.GetKinematics().GetLocal().GetTransform());
  CRefArray enveloped;
  ExtractEnvelopeList(sourceModel, enveloped);
  const bool carryEnvelopes = envelope && enveloped.GetCount() > 0;

  bar.PutCaption(L"Generating Hierarchy");
  CopyNode(sourceModel, sourceRoot, root, bar, envelope, removeExtra, removePoly, nominalSize);
  FreezeScaling(generated, DrvVector{1.0f, 1.0f, 1.0f});
  SynchronizeRTKSphere(sourceRoot, root);
  SynchronizeRTKFloor(sourceRoot, root);
  ReparentIkEffectors(sourceRoot, generated);

  if (box) {
    bar.PutCaption(L"Creating Boxes");
    bar.PutValue(bar.GetValue() + GetNumChildren(sourceModel) - GetNumChildren(generated));
    float nominalLinkLength = 0.0f;
    ComputeNominalLinkLength(root, nominalLinkLength, cog);
    ReplaceNodeWithBox(root, nominalLinkLength, cog, halfBoxFactor, bar);
  }

  if (carryEnvelopes) {
    // Skins are bound in the base pose, where the source bound them.
    StorePose(generated);
    GotoBase(root);
    bar.PutCaption(L"Processing Envelopes");
    CarryEnvelopes(enveloped, generated, bar);
    RestorePose(generated, true);
    CleanupPose(generated);
    ProcessBaseScaling(generated, 1.0, 1.0, 1.0);
    CarryWeights(enveloped, generated, bar);
  }
  return root;
}

bool UnusedNode(X3DObject& node) {
  for (const wchar_t* tag : {kTagSphere, kTagEffector, kTagCogNode, kTagFloor, kTagJointLimit}) {
    if (HasTag(node, tag)) return false;
  }
  if (node.GetClassID() == siChainEffectorID) return false;
  if (node.GetClassID() == siChainBoneID) {
    ChainRoot chain(ChainElement(node).GetRoot());
    if (HasEffectorTag(chain.GetEffector())) return false;
  }
  for (const CRef& child : node.GetChildren()) {
    if (HasEffectorTag(child)) return false;
  }
  for (const CRef& child : node.GetChildren()) {
    for (const CRef& grandChild : X3DObject(child).GetChildren()) {
      if (HasEffectorTag(grandChild)) return false;
    }
  }
  return true;
}

bool FindTags(X3DObject& node, bool& sphere, bool& cog, bool& floor) {
  sphere = HasTag(node, kTagSphere);
  cog = HasTag(node, kTagCogNode);
  floor = HasTag(node, kTagFloor);
  return sphere || cog || floor;
}

void FindEffectors(X3DObject& root, CRefArray& effectors) {
  if (root.GetClassID() == siChainEffectorID) effectors.Add(root.GetRef());
  for (const CRef& ref : root.FindChildren(CString(), CString())) {
    if (ref.GetClassID() == siChainEffectorID) effectors.Add(ref);
  }
}

void ReparentIkEffectors(X3DObject& sourceRoot, Model& generated) {
  CRefArray effectors;
  FindEffectors(sourceRoot, effectors);
  for (const CRef& ref : effectors) {
    ChainRoot chain(ChainElement(ref).GetRoot());
    CRefArray bones = chain.GetBones();
    if (bones.GetCount() == 0) continue;
    X3DObject effectorCopy = generated.FindChild(X3DObject(ref).GetName());
    X3DObject boneCopy = generated.FindChild(X3DObject(bones[bones.GetCount() - 1]).GetName());
    if (effectorCopy.IsValid() && boneCopy.IsValid() &&
        effectorCopy.GetParent() != boneCopy.GetRef()) {
      boneCopy.AddChild(effectorCopy);
    }
  }
}
