// Recording the home pose and going back to it.
#include "knrexport/actor/home_pose.h"

#include "knrexport/actor/initialize.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/pose_storage.h"
#include "knrexport/scene/tags.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

constexpr double kRadToDeg = 57.29577951308;
const wchar_t* const kPoseParameters[] = {L"px", L"py", L"pz", L"rx", L"ry", L"rz", L"sx", L"sy", L"sz"};

// The transform stored in a pose tag (translation, XYZ angles in radians, scaling).
MATH::CTransformation PoseOf(Property& tag, double values[9]) {
  for (int i = 0; i < 9; ++i) values[i] = tag.GetParameterValue(kPoseParameters[i]).AsDouble();
  MATH::CTransformation t;
  t.SetRotationFromXYZAnglesValues(values[3], values[4], values[5]);
  t.SetTranslationFromValues(values[0], values[1], values[2]);
  t.SetScalingFromValues(values[6], values[7], values[8]);
  return t;
}

}  // namespace

bool SetHomeTB(X3DObject& node, bool fixBase) {
  Model model;
  if (!GetModelOrSay(node, model)) return false;
  ProgressBar bar = ShowProgressBar(3 * GetNumChildren(model), L"Storing Home Pose");
  bool done = SetHome(node, fixBase, bar, true);
  FinishProgressBar(bar);
  return done;
}

bool SetHome(X3DObject& node, bool fixBase, ProgressBar bar, bool initialize) {
  Model model;
  X3DObject root, cog;
  if (!GetActorStructure(node, model, root, cog)) return false;
  bool generated = HasTag(root, kTagActor);
  Property marker;
  bool marked = FindProperty(root, kTagFixHomeBase, marker);
  if (fixBase) {
    if (generated && TestForScale(model, L"Set Home action", true, true)) AdjustBaseNodes(model, root, cog);
    if (!marked) AddTag(root, kTagFixHomeBase);
  } else if (marked) {
    DeleteObj(marker.GetFullName());
  }
  if (generated) AddRTKActor(root, true);
  if (initialize) InitializeActor(root, false, bar);
  AddHomePose(model, true, bar);
  return true;
}

void AddHomePose(X3DObject& node, bool recurse, ProgressBar bar) {
  bar.Increment();
  if (!HasTag(node, kTagSphere)) {
    Property found;
    CustomProperty pose = FindCustomPSet(node, kTagHomePose, found) ? CustomProperty(found) : AddTag(node, kTagHomePose);
    MATH::CTransformation global = node.GetKinematics().GetGlobal().GetTransform();
    MATH::CVector3 t = global.GetTranslation(), r = global.GetRotationXYZAngles(), s = global.GetScaling();
    const double values[9] = {t.GetX(), t.GetY(), t.GetZ(), r.GetX(), r.GetY(), r.GetZ(), s.GetX(), s.GetY(), s.GetZ()};
    for (int i = 0; i < 9; ++i) pose.PutParameterValue(kPoseParameters[i], values[i]);
  }
  if (!recurse) return;
  for (const CRef& ref : node.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid()) AddHomePose(child, true, bar);
  }
}

bool GotoHomeTB(X3DObject& node) {
  Model model;
  if (!GetActorModel(node, model)) return false;
  X3DObject root;
  if (!GetRootNode(model, root, true)) return false;
  long count = GetNumChildren(model);
  ProgressBar bar = ShowProgressBar(HasTag(root, kTagActor) ? count : 4 * count, L"Applying Home Pose");
  bool done = GotoHome(node, bar);
  FinishProgressBar(bar);
  return done;
}

bool GotoHome(X3DObject& node, ProgressBar bar) {
  Model model;
  if (!GetActorModel(node, model)) return false;
  X3DObject root;
  if (!GetRootNode(model, root, true)) return false;
  if (!HasTag(root, kTagHomePose)) return false;
  bool generated = HasTag(root, kTagActor);
  if (!generated && root.IsAnimated(siFCurveSource, false)) {
    if (!AskOkCancel(L"Is it okay to remove the embedded FCurves on the rig (the FCurves conflict with the Goto "
                     L"Home action)?")) {
      return false;
    }
    ClearAnim(model);
  }
  if (generated) return GotoHomePose(model, false, bar);
  for (bool pass : {false, true, false, true}) GotoHomePose(model, pass, bar);
  return true;
}

bool GotoHomePose(X3DObject& node, bool pass, ProgressBar bar) {
  bar.Increment();
  siClassID skipped = pass ? siChainEffectorID : siChainBoneID;
  Property pose;
  if (node.GetClassID() != skipped && FindProperty(node, kTagHomePose, pose)) {
    double values[9];
    MATH::CTransformation t = PoseOf(pose, values);
    if (node.GetClassID() == siChainBoneID) {
      CValue ignored;
      Application().ExecuteCommand(L"Rotate",
                                   {node.GetFullName(), values[3] * kRadToDeg, values[4] * kRadToDeg,
                                    values[5] * kRadToDeg, 0, 1},
                                   ignored);
    } else {
      node.GetKinematics().GetGlobal().PutTransform(t);
    }
  }
  for (const CRef& ref : node.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid() && !GotoHomePose(child, pass, bar)) return false;
  }
  return true;
}

bool GotoBase(X3DObject& node) {
  Model model;
  if (!GetActorModel(node, model)) return false;
  X3DObject root;
  if (!GetRootNode(model, root, true)) return false;
  return GotoBasePose(root);
}

// RTKBasePose carries the same nine values as RTKHomePose: the global pose of the node in its
// base pose. Nodes without the tag keep their pose; the walk is depth-first, parents first.
bool GotoBasePose(X3DObject& root) {
  Property pose;
  if (FindProperty(root, kTagBasePose, pose)) {
    double values[9];
    root.GetKinematics().GetGlobal().PutTransform(PoseOf(pose, values));
  }
  for (const CRef& ref : root.GetChildren()) {
    X3DObject child(ref);
    if (child.IsValid()) GotoBasePose(child);
  }
  return true;
}

bool RemoveFCurves(X3DObject& node) {
  Model model;
  if (!GetActorModel(node, model)) return false;
  RunCommand(L"RemoveAllAnimation", {CValue(model.GetRef()), CValue(), 1, 9});
  return true;
}

void AdjustBaseNodes(Model&, X3DObject& root, X3DObject& cog) {
  KinematicState rootGlobal = root.GetKinematics().GetGlobal();
  KinematicState cogGlobal = cog.GetKinematics().GetGlobal();
  MATH::CTransformation cogPose = cogGlobal.GetTransform();
  MATH::CTransformation rootPose = rootGlobal.GetTransform();
  MATH::CVector3 under = cogPose.GetTranslation();
  rootPose.SetTranslationFromValues(under.GetX(), rootPose.GetTranslation().GetY(), under.GetZ());
  rootGlobal.PutTransform(rootPose);
  cogGlobal.PutTransform(cogPose);
}
