// The Make Loop command and the LoopSkill page.
#include "knrexport/skill/loop_skill_property.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "knrexport/actor/home_pose.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/pose_storage.h"
#include "knrexport/skill/loop_data.h"
#include "knrexport/skill/make_loop.h"
#include "knrexport/skill/skill_properties.h"
#include "zyra/action.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

constexpr const wchar_t* kPropertyName = L"LoopSkill";
constexpr const wchar_t* kStashName = L"TmpRTKLoopStash";
constexpr const wchar_t* kHelpLink = L"knrexport/docs/skills.html#loop";
constexpr int kModal = 4;

int IntOf(const CustomProperty& p, const wchar_t* name) { return p.GetParameterValue(name).AsInt(); }

// The model of the property's root node and its chosen source; false when either is missing.
bool ChosenSource(const CustomProperty& property, Model& model, X3DObject& root, ActionSource& source) {
  root = X3DObject(property.GetParent());
  if (!root.IsValid() || !GetModel(root, model)) return false;
  const CRefArray sources = model.GetSources();
  const int index = IntOf(property, L"Source");
  if (index < 0 || index >= sources.GetCount()) return false;
  source = ActionSource(sources[index]);
  return source.IsValid();
}

void FrameRange(const ActionSource& source, int& first, int& last) {
  first = static_cast<int>(std::floor(source.GetParameterValue(L"FrameStart").AsDouble()));
  last = static_cast<int>(std::floor(source.GetParameterValue(L"FrameEnd").AsDouble()));
}

// Every parameter of the actor that an fcurve drives, with the range of their keys.
CString AnimatedParameters(Model& model, double& first, double& last) {
  CRefArray objects = model.FindChildren(CString(), CString());
  objects.Add(model.GetRef());
  std::set<std::wstring> seen;
  CString list;
  auto take = [&](const Parameter& parameter) {
    FCurve curve(parameter.GetSource());
    if (!curve.IsValid() || curve.GetKeyCount() == 0) return;
    if (!seen.insert(parameter.GetFullName().Wide()).second) return;
    first = std::min(first, curve.GetKeyTime(0).GetTime());
    last = std::max(last, curve.GetKeyTime(curve.GetKeyCount() - 1).GetTime());
    if (!list.IsEmpty()) list += L",";
    list += parameter.GetFullName();
  };
  for (const CRef& ref : objects) {
    X3DObject object(ref);
    for (const wchar_t* channel : kLoopChannels) take(object.GetParameter(channel));
    for (const CRef& p : object.GetParameters()) take(Parameter(p));
    for (const CRef& property : object.GetProperties()) {
      for (const CRef& p : Property(property).GetParameters()) take(Parameter(p));
    }
  }
  return list;
}

// Moves the actor's fcurves into a temporary action source; invalid when there were none.
ActionSource StashAnimation(Model& model) {
  double first = 1e300, last = -1e300;
  const CString parameters = AnimatedParameters(model, first, last);
  if (parameters.IsEmpty()) return ActionSource();
  return ActionSource(RunCommand(L"StoreAction", {model.GetFullName(), parameters, 6, kStashName, 1, first, last, 0, 0}).AsRef());
}

void UnstashAnimation(ActionSource& stash, Model& model) {
  if (!stash.IsValid()) return;
  RunCommand(L"ApplyAction", {CValue(stash.GetRef()), CValue(model.GetRef())});
  RunCommand(L"DeleteObj", {CValue(stash.GetRef())});
}

}  // namespace

bool LoopSkill(X3DObject& node, int sourceIndex) {
  Model model;
  if (!GetActorModel(node, model)) return false;
  X3DObject root;
  if (!GetRootNode(model, root, true)) return false;
  if (model.GetSources().GetCount() == 0) {
    ShowMessage(L"The Loop Skill action requires the actor to have associated action sources.");
    return false;
  }
  CustomProperty property = FindOrAddOptions(root, kPropertyName, DefineLoopSkill);
  if (!property.IsValid()) return false;
  property.PutParameterValue(L"Source", sourceIndex);
  BuildLoopSkillLayout(property);
  InspectObj(property.GetFullName(), L"", L"Loop Skill", kModal, false);
  return true;
}

void BuildLoopSkillLayout(const CustomProperty& property) {
  PPGLayout layout = PPGLayout::Of(property.GetRef());
  if (!layout.IsValid()) return;
  layout.Clear();
  layout.PutAttribute(siUIHelpFile, kHelpLink);
  Model model;
  X3DObject root(property.GetParent());
  if (root.IsValid()) GetModel(root, model);
  const CValueArray choices = SourceChoices(model);
  layout.AddGroup(L"Loop Options");
  layout.AddEnumControl(L"Source", choices, L"Source", siControlCombo);
  layout.AddItem(L"Start");
  layout.AddItem(L"End");
  layout.AddItem(L"Smooth");
  layout.AddItem(L"Loco");
  layout.AddButton(L"Process");
  layout.EndGroup();
}

void FollowLoopSource(CustomProperty property) {
  Model model;
  X3DObject root;
  ActionSource source;
  if (!ChosenSource(property, model, root, source)) return;
  int first = 0, last = 0;
  FrameRange(source, first, last);
  const CString path = property.GetFullName();
  for (const wchar_t* name : {L".Start", L".End"})
    RunCommand(L"EditParameterDefinition", {path + name, first, last, first, last});
  RunCommand(L"EditParameterDefinition", {path + L".Smooth", 0, last - first, 0, last - first});
  const bool processed = IntOf(property, L"PrevEnd") > IntOf(property, L"PrevStart");
  if (!processed || IntOf(property, L"Source") != IntOf(property, L"PrevSource")) {
    property.PutParameterValue(L"Start", first);
    property.PutParameterValue(L"End", last);
  }
  RunCommand(L"SetValue", {L"PlayControl.In", static_cast<double>(first)});
  RunCommand(L"SetValue", {L"PlayControl.Current", static_cast<double>(IntOf(property, L"Start"))});
}

bool ProcessLoopSkill(CustomProperty property) {
  Model model;
  X3DObject root;
  ActionSource source;
  if (!ChosenSource(property, model, root, source)) {
    ShowMessage(L"The Loop Skill action requires the actor to have associated action sources.");
    return false;
  }
  const int start = IntOf(property, L"Start");
  const int end = IntOf(property, L"End");
  ScopedLogOff logOff;
  ActionSource stash = StashAnimation(model);
  StorePose(root);
  RunCommand(L"ApplyAction", {CValue(source.GetRef()), CValue(model.GetRef())});
  const bool stored = MakeLoop(source, model, root, start, end, IntOf(property, L"Smooth"),
                               property.GetParameterValue(L"Loco").AsBool());
  RemoveFCurves(root);
  RestorePose(root, true);
  CleanupPose(root);
  UnstashAnimation(stash, model);
  if (stored) {
    property.PutParameterValue(L"PrevSource", IntOf(property, L"Source"));
    property.PutParameterValue(L"PrevStart", start);
    property.PutParameterValue(L"PrevEnd", end);
  }
  return stored;
}

void LoopSkillPageEvent(PPGEventContext& event) {
  switch (event.GetEventID()) {
    case siOnInit: {
      CustomProperty property(event.GetSource());
      BuildLoopSkillLayout(property);
      FollowLoopSource(property);
      event.PutAttribute(L"Refresh", true);
      break;
    }
    case siParameterChange: {
      Parameter changed(event.GetSource());
      if (changed.GetName() == CString(L"Source")) FollowLoopSource(CustomProperty(changed.GetParent()));
      if (changed.GetName() == CString(L"Start")) RunCommand(L"SetValue", {L"PlayControl.Current", changed.GetValue()});
      break;
    }
    case siButtonClicked:
      if (event.GetAttribute(L"Button").GetAsText() == CString(L"Process") &&
          ProcessLoopSkill(CustomProperty(event.GetSource()))) {
        RunCommand(L"Close", {});
      }
      break;
    case siOnClosed:
      break;
  }
}
