// The Make Skill command.
#include "knrexport/generate/make_skill.h"

#include <memory>

#include "knrexport/actor/actor_tags.h"
#include "knrexport/actor/home_pose.h"
#include "knrexport/generate/action_copy.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/pose_storage.h"
#include "knrexport/scene/tags.h"
#include "knrexport/skill/skill_kinds.h"
#include "knrexport/skill/skill_properties.h"
#include "zyra/action.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

constexpr const wchar_t* kPickText = L"Select Target Model";

// Ends a run: the Skill property goes whatever way the command leaves.
class SkillPropertyScope {
 public:
  explicit SkillPropertyScope(CustomProperty property) : property_(std::move(property)) {}
  ~SkillPropertyScope() {
    if (property_.IsValid()) DeleteObj(property_.GetFullName());
  }
  SkillPropertyScope(const SkillPropertyScope&) = delete;
  SkillPropertyScope& operator=(const SkillPropertyScope&) = delete;

 private:
  CustomProperty property_;
};

enum class TransferOutcome { kEnded, kConvertInPlace };

// The model the user picked as the target: the picked model, or the model holding the picked
// object. Invalid when nothing was picked.
Model PickTargetModel() {
  CValue picked;
  Application().ExecuteCommand(L"PickObject", {CString(kPickText), CString(kPickText)}, picked);
  CValueArray answer = picked.AsArray();
  if (answer.GetCount() < 3 || answer[0].AsInt() <= 0) return Model();
  X3DObject object(answer[2].AsRef());
  Model model(object);
  if (model.IsValid() || !object.IsValid()) return model;
  GetModel(object, model);
  return model;
}

// Transfers `source` of `model` onto an actor the user picks. The source rig's fcurves question
// answered Cancel abandons the transfer for a conversion in place.
TransferOutcome TransferSkill(Model& model, ActionSource& source, int kind) {
  if (model.IsAnimated(siFCurveSource, false) &&
      !AskOkCancel(L"Is it okay to remove the embedded FCurves on the source rig (the FCurves conflict with the "
                   L"transfer process)?")) {
    return TransferOutcome::kConvertInPlace;
  }
  Model target = PickTargetModel();
  if (!target.IsValid()) return TransferOutcome::kEnded;
  if (target.GetRef() == model.GetRef()) {
    ShowMessage(L"The target actor for a skill transfer cannot be the same as the source actor.");
    return TransferOutcome::kEnded;
  }
  X3DObject targetRoot;
  if (!GetRootNode(target, targetRoot, false)) {
    ShowMessage(L"The target for the skill transfer is not a valid actor (bad root node).");
    return TransferOutcome::kEnded;
  }
  if (!HasTag(targetRoot, kTagNode)) {
    ShowMessage(L"The target actor for the skill transfer is not initialized for Kinra.");
    return TransferOutcome::kEnded;
  }
  if (target.IsAnimated(siFCurveSource, false) &&
      !AskOkCancel(L"Is it okay to remove the embedded FCurves on the target rig (the FCurves conflict with the "
                   L"transfer process)?")) {
    return TransferOutcome::kEnded;
  }
  CRefArray feet;
  ExtractFeet(targetRoot, feet);
  if (kind == kSkillLocomotion && feet.GetCount() == 0) {
    ShowMessage(L"The target actor must have foot tags for a locomotion skill to transfer.\nPlease tag the feet and "
                L"try again.");
    return TransferOutcome::kEnded;
  }
  const double start = source.GetParameterValue(L"FrameStart").AsDouble();
  const double end = source.GetParameterValue(L"FrameEnd").AsDouble();
  const long maximum = GetNumChildren(target) + (static_cast<long>(end + 1.1) - static_cast<long>(start)) + 2;
  ProgressBar bar = ShowProgressBar(maximum, L"Transferring Skill");
  StorePose(model);
  StorePose(target);
  ClearAnim(model);
  ClearAnim(target);
  CopyAction(source, model, target, bar, kind);
  bar.Increment();
  bar.PutCaption(L"Cleanup");
  RemoveFCurves(model);
  RestorePose(model, false);
  RestorePose(target, true);
  CleanupPose(model);
  CleanupPose(target);
  FinishProgressBar(bar);
  return TransferOutcome::kEnded;
}

}  // namespace

bool MakeSkill(X3DObject& node, int sourceIndex) {
  Model model;
  if (!GetActorModel(node, model)) return true;
  X3DObject root;
  if (!GetRootNode(model, root, true)) return true;
  CRefArray sources = model.GetSources();
  if (sources.GetCount() == 0) {
    ShowMessage(L"The Make Skill action requires the actor to have associated action sources.");
    return true;
  }
  if (!HasTag(root, kTagNode)) {
    ShowMessage(L"The Make Skill action requires the actor to be initialized.\nPlease initialize the actor and try "
                L"again.");
    return true;
  }
  if (!HasTag(root, kTagHomePose)) {
    ShowMessage(L"The Make Skill action requires the actor home pose being set (Set Home).");
    return true;
  }
  bool convertInPlace = HasTag(root, kTagActor);
  CustomProperty skill = FindOrAddOptions(root, L"Skill", DefineSkill);
  SkillPropertyScope removeAtEnd(skill);
  skill.PutParameterValue(L"Source", sourceIndex);
  if (!InspectObj(skill.GetFullName(), CString(), L"Make Skill", 4, false)) return true;

  const float threshold = static_cast<float>(skill.GetParameterValue(L"Threshold").AsDouble());
  const int kind = skill.GetParameterValue(L"Skill").AsInt();
  const bool transfer = skill.GetParameterValue(L"Transfer").AsBool();
  ScopedLogOff logOff;
  CRefArray feet;
  ExtractFeet(root, feet);
  if (!transfer && kind == kSkillLocomotion && feet.GetCount() == 0) {
    ShowMessage(L"To create a locomotion skill the actor must have foot tags.\nPlease tag the feet and try again.");
    return true;
  }
  const long index = skill.GetParameterValue(L"Source").AsInt();
  ActionSource source(index >= 0 && index < sources.GetCount() ? sources[index] : CRef());
  if (!source.IsValid()) return true;
  source.PutParameterValue(L"type", kind);

  if (transfer && TransferSkill(model, source, kind) == TransferOutcome::kEnded) return true;
  if (!convertInPlace || kind <= kSkillUntouched) return true;
  if (model.IsAnimated(siFCurveSource, false) &&
      !AskOkCancel(L"Is it okay to remove the embedded FCurves on the rig (the FCurves conflict with the Make Skill "
                   L"action)?")) {
    return true;
  }
  ConvertToSkill(model, source, kind, threshold, true);
  return true;
}
