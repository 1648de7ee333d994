// Generate: building a runtime actor from an initialized source actor description.
#include "knrexport/generate/generate.h"

#include "knrexport/actor/home_pose.h"
#include "knrexport/actor/initialize.h"
#include "knrexport/actor/option_properties.h"
#include "knrexport/actor/weight_maps.h"
#include "knrexport/generate/action_copy.h"
#include "knrexport/generate/copy_actor.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/pose_storage.h"
#include "knrexport/scene/tags.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

constexpr const wchar_t* kOptionsName = L"KinraGen";

}  // namespace

GenerateOptions ReadGenerateOptions(const ProjectItem& kinraGen) {
  GenerateOptions o;
  o.envelope = kinraGen.GetParameterValue(L"Envelope").AsBool();
  o.box = kinraGen.GetParameterValue(L"Box").AsBool();
  o.removeExtra = kinraGen.GetParameterValue(L"RemoveExtra").AsBool();
  o.cog = kinraGen.GetParameterValue(L"Cog").AsBool();
  o.halfFactor = kinraGen.GetParameterValue(L"Factor").AsDouble() * 0.5;
  o.skill = kinraGen.GetParameterValue(L"Skill").AsBool();
  o.removePoly = kinraGen.GetParameterValue(L"RemovePoly").AsBool();
  return o;
}

bool GenerateActor(X3DObject& selected) {
  CValue ignored;
  Application().ExecuteCommand(L"DeselectAll", {}, ignored);
  Model model;
  if (!GetModel(selected, model)) {
    ShowMessage(L"Failed to find the actor model.");
    return false;
  }
  if (model.GetRef() == Application().GetActiveSceneRoot().GetRef()) {
    ShowMessage(
        L"The source actor description must be contained by a single model (scene root not "
        L"supported).");
    return false;
  }
  X3DObject root, cog;
  if (!GetRootNode(model, root, true)) return false;
  if (CheckForEmbeddedModel(root)) {
    ShowMessage(
        L"The source actor description must be contained by a single model (embedded models not "
        L"supported).");
    return false;
  }
  if (!GetCogNode(root, cog)) return false;
  if (!HasTag(root, kTagNode)) {
    ShowMessage(L"The source actor description must be initialized.");
    return false;
  }
  CustomProperty options = FindOrAddOptions(root, kOptionsName, DefineKinraGen);
  if (!options.IsValid()) return false;
  if (!InspectObj(options.GetFullName(), L"", L"Generate Actor", 4, false)) return false;

  ScopedLogOff logOff;
  const GenerateOptions o = ReadGenerateOptions(options);
  ProgressBar bar = ShowProgressBar(ComputeProgressBarSize(model, root, o.skill, o.envelope, o.box),
                                    L"Generating Actor");
  Model generated;
  bool done = BuildGeneratedActor(model, root, o, bar, generated);
  bar.PutVisible(false);
  return done;
}

bool BuildGeneratedActor(Model& model, X3DObject& root, const GenerateOptions& o, ProgressBar& bar,
                         Model& generated) {
  if (root.IsAnimated(siFCurveSource, false) &&
      !AskOkCancel(L"Is it okay to remove the embedded FCurves on the rig?")) {
    return false;
  }
  // The rig keeps its posture but loses its fcurves, also when it had none.
  StorePose(model);
  ClearAnim(model);
  RestorePose(model, false);

  X3DObject generatedRoot = CopyActor(model, root, generated, bar, o.envelope, o.box, o.removeExtra,
                                      o.removePoly, o.cog, o.halfFactor);
  const bool home = HasTag(root, kTagHomePose);
  const long dropped = GetNumChildren(model) - GetNumChildren(generated);
  bar.PutValue(bar.GetValue() + (home ? 3 : 2) * dropped);

  bool done = generatedRoot.IsValid();
  if (done) {
    bar.PutCaption(L"Initializing Generated Actor");
    done = InitializeActor(generatedRoot, false, bar);
  }
  if (done) {
    bar.PutCaption(L"Cleaning Up");
    AddRTKActor(generatedRoot, true);
    if (home) SetHome(generatedRoot, HasTag(root, kTagFixHomeBase), bar, false);
  }
  if (!done) {
    // A copy that could not be built or initialized is no actor: nothing of it stays behind,
    // and the rig is back in its posture.
    RestorePose(model, false);
    if (generated.IsValid()) DeleteObj(generated.GetFullName());
    generated = Model();
    CleanupPose(model);
    return false;
  }
  if (o.skill) {
    bar.PutValue(bar.GetMaximum() -
                 ComputeProgessBarSizeForSkills(model, GetNumChildren(generated)));
    // An action that cannot be turned into its skill kind has said why; the generated actor is
    // complete without it and stays, with the copies made so far.
    if (!ProcessSkills(model, generated, bar)) {
      CleanupPose(model);
      return false;
    }
  }
  bar.PutValue(bar.GetMaximum());
  CleanupPose(model);
  return true;
}

long ComputeProgressBarSize(Model& model, X3DObject& root, bool skill, bool envelope, bool box) {
  const long n = GetNumChildren(model);
  long size = box ? 2 * n : n;
  // Two steps per deformer of every envelope: carrying it and its weights.
  if (envelope) size += 2 * ComputeWeightMapSize(model);
  if (skill) size += ComputeProgessBarSizeForSkills(model, n);
  return size + (HasTag(root, kTagHomePose) ? 4 * n : 2 * n);
}
