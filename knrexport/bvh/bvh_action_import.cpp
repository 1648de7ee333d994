// BVH action import: keys every frame of a BVH file on the actor objects named after its joints
// and stores the curves as an action source.
#include <string>
#include <vector>

#include "knrexport/bvh/bvh_import.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/pose_storage.h"
#include "zyra/action.h"
#include "zyra/application.h"
#include "zyra/fcurve.h"
#include "zyra/ui.h"

using namespace Zyra;

namespace {

constexpr int kValueCurve = 30;         // curve type of the keyed curves
constexpr int kLinearCurve = 2;         // curve interpolation
constexpr int kCurveInterpolation = 0;  // key interpolation: the curve's
constexpr const wchar_t* kChannels[6] = {L"posx", L"posy", L"posz", L"rotx", L"roty", L"rotz"};

// Gives channel `c` of `object` a new curve in the record's slot `c` and lists the parameter.
void AddCurve(X3DObject& object, int c, MocapRecord& record, CString& list,
              std::vector<Parameter>& animated) {
  Parameter parameter = object.GetParameter(kChannels[c]);
  FCurve curve;
  if (!parameter.IsValid() || !parameter.AddFCurve(kValueCurve, curve).Succeeded()) return;
  curve.PutInterpolation(kLinearCurve);
  record.curves[c] = curve;
  animated.push_back(parameter);
  if (!list.IsEmpty()) list += L',';
  list += parameter.GetFullName();
}

// Says which joints of the file found an object of the actor and which did not, when some did not:
// an action that drives half a body is worth a word.
void ReportPartialMatch(const CString& path, Model& actor, ZyraBvHierarchy& hierarchy,
                        const std::vector<CString>& names, int found) {
  const int joints = hierarchy.nodeCount;
  if (found == joints) return;
  CString matched, missing;
  for (int i = 0; i < joints; ++i) {
    CString& list = hierarchy.nodes[i].object.IsValid() ? matched : missing;
    if (!list.IsEmpty()) list += L", ";
    list += names[static_cast<size_t>(i)];
  }
  Application().LogMessage(
      CString(L"The BVH file \"") + path + L"\" matches " + CString(std::to_wstring(found)) +
          L" of its " + CString(std::to_wstring(joints)) + L" joints in the actor \"" +
          actor.GetName() + L"\"; keyed: " + matched + L"; no object: " + missing + L".",
      siWarningMsg);
}

// The file places a root joint relative to the world, which for an actor is its model. Its
// object hangs under the actor's root null, which need not stand at the model's origin (setting
// the home pose of an imported actor moves it under the hips): the root joints' samples are made
// relative to the object's parent, so that the action reproduces the take in the model's space
// instead of moving it by the null's place a second time.
void PlaceRootsInModelSpace(Model& actor, ZyraBvHierarchy& hierarchy, MocapData& data) {
  DrvTransform model;
  DrvTransform_SetIdentity(&model);
  GetGlobalTransform(actor, model);
  for (int i = 0; i < hierarchy.nodeCount; ++i) {
    ZyraBvNode& node = hierarchy.nodes[i];
    if (node.parent >= 0 || !node.object.IsValid()) continue;
    X3DObject parent(node.object.GetParent());
    if (!parent.IsValid() || parent.GetRef() == actor.GetRef()) continue;
    // toParent = parent^-1 x model: from the model's space to the parent's.
    DrvTransform toParent;
    DrvTransform_SetIdentity(&toParent);
    GetGlobalTransform(parent, toParent);
    DrvTransform_Invert(&toParent);
    DrvTransform_Multiply(&toParent, &toParent, &model);
    DrvVector_Set(&toParent.scaling, 1.0f, 1.0f, 1.0f);
    MocapRecord& record = data.records[i];
    for (int f = 0; f < record.frameCount; ++f) {
      DrvTransform_Multiply(&record.samples[f], &toParent, &record.samples[f]);
    }
  }
}

// The channels that this import is about to key and that carry fcurves already are stored in a
// temporary action source (curves untouched), to be applied again by PutBackEarlierCurves. An
// invalid source when there is nothing to keep.
ActionSource KeepEarlierCurves(Model& actor, ZyraBvHierarchy& hierarchy, bool optimize) {
  CString list;
  for (int i = 0; i < hierarchy.nodeCount; ++i) {
    X3DObject& object = hierarchy.nodes[i].object;
    if (!object.IsValid()) continue;
    for (int c = i == 0 || !optimize ? 0 : 3; c < 6; ++c) {
      Parameter parameter = object.GetParameter(kChannels[c]);
      if (!parameter.IsValid() || !FCurve(parameter.GetSource()).IsValid()) continue;
      if (!list.IsEmpty()) list += L',';
      list += parameter.GetFullName();
    }
  }
  if (list.IsEmpty()) return ActionSource();
  constexpr double kEveryKey = 1e15;
  return ActionSource(RunCommand(L"StoreAction", {CValue(actor.GetRef()), list, 6,
                                                  CString(L"TmpBVHKeptCurves"), 0, -kEveryKey,
                                                  kEveryKey, 0, 0})
                          .AsRef());
}

void PutBackEarlierCurves(Model& actor, ActionSource& kept) {
  if (!kept.IsValid()) return;
  RunCommand(L"ApplyAction", {CValue(kept.GetRef()), CValue(actor.GetRef())});
  RunCommand(L"DeleteObj", {CValue(kept.GetRef())});
}

}  // namespace

bool AddBVHAction(Model& actor, const CString& path, const CString& actionName, float scale,
                  bool optimize, const CString& filter, const CString& subtree, bool keepRoot) {
  if (!actor.IsValid()) {
    ShowMessage(CString(L"Cannot import the BVH file \"") + path +
                L"\": no actor model was given.");
    return false;
  }
  if (actionName.FindString(L".") != CString::npos ||
      actionName.FindString(L",") != CString::npos) {
    ShowMessage(CString(L"The action name \"") + actionName + L"\" may not hold \".\" or \",\".");
    return false;
  }
  ZyraBvFile file;
  MocapData data;
  if (!ReadBvhForImport(file, data, path, scale, false)) return false;
  RemoveBvhJoints(file, data, filter, subtree, keepRoot, false);
  ZyraBvHierarchy& hierarchy = *file.Hierarchy();
  const int joints = hierarchy.nodeCount;
  const int frames = joints > 0 ? data.records[0].frameCount : 0;

  // Find every joint's object before anything changes: without one there is nothing to key.
  const CString prefix = actor.GetName() + L".";
  std::vector<std::string> repeated;
  const std::vector<CString> names = BvhJointObjectNames(hierarchy, repeated);
  int found = 0;
  for (int i = 0; i < joints; ++i) {
    ZyraBvNode& node = hierarchy.nodes[i];
    node.object =
        actor.FindChild(prefix + names[static_cast<size_t>(i)], CString(), CRefArray(), true);
    found += node.object.IsValid();
  }
  if (found == 0) {
    ShowMessage(BvhImportMessage(path, "no joint of the file matches an object of the actor \"" +
                                           actor.GetName().GetAsciiString() + "\""));
    return false;
  }
  WarnRepeatedJoints(path, repeated);
  ReportPartialMatch(path, actor, hierarchy, names, found);
  PlaceRootsInModelSpace(actor, hierarchy, data);
  // Curves already on the channels this take keys are put back once the take is stored.
  ActionSource kept = KeepEarlierCurves(actor, hierarchy, optimize);

  StorePose(actor);
  ProgressBar bar = Application().GetUIToolkit().GetProgressBar();
  bar.PutCancelEnabled(false);
  bar.PutVisible(true);
  bar.PutMaximum(frames + joints);
  bar.PutStep(1);
  bar.PutCaption(L"Processing Mocap Data");

  // With optimize on only the root keeps translation curves: the other joints' translations are
  // their fixed bone offsets.
  CString parameters;
  std::vector<Parameter> animated;  // every parameter given a curve, to undo a failed store
  std::vector<int> keyed;           // the joints that have an object, in hierarchy order
  for (int i = 0; i < joints; ++i) {
    X3DObject& object = hierarchy.nodes[i].object;
    if (object.IsValid()) {
      keyed.push_back(i);
      const bool translate = i == 0 || !optimize;
      for (int c = translate ? 0 : 3; c < 6; ++c)
        AddCurve(object, c, data.records[i], parameters, animated);
    }
    bar.Increment();
  }

  CValue rate;
  Application().ExecuteCommand(L"GetValue", {L"preferences.output_format.frame_rate"}, rate);
  // Host frames per file frame; with the file's rate taken exactly (ExactFrameRate), a take at
  // the scene's rate keys whole frames.
  const double spacing = rate.AsDouble() / data.frameRate;

  // One curve at a time: every frame of a joint's channel goes into its curve in one call, so a
  // long take is keyed without a host call per key.
  bar.PutCaption(L"Transferring Mocap Data");
  CDoubleArray times(frames);
  for (int f = 0; f < frames; ++f) times[f] = spacing * f;
  std::vector<CDoubleArray> channel(3, CDoubleArray(frames));
  auto keyAll = [&](FCurve& curve, int component) {
    if (curve.IsValid())
      curve.SetKeys(times, channel[static_cast<size_t>(component)], kCurveInterpolation);
  };
  for (size_t k = 0; k < keyed.size(); ++k) {
    MocapRecord& record = data.records[keyed[k]];
    if (record.curves[0].IsValid()) {
      for (int f = 0; f < frames; ++f) {
        const DrvVector& t = record.samples[f].translation;
        channel[0][f] = t.x;
        channel[1][f] = t.y;
        channel[2][f] = t.z;
      }
      for (int c = 0; c < 3; ++c) keyAll(record.curves[c], c);
    }
    for (int f = 0; f < frames; ++f) {
      DrvVector radians;
      DrvQuaternion_GetEulerAngles(&record.samples[f].rotation, &radians);
      float angles[3] = {radians.x / kBvDegToRad, radians.y / kBvDegToRad, radians.z / kBvDegToRad};
      for (int a = 0; a < 3; ++a) {
        // Keep each curve on the side of +-180 it came from, so no key jumps by a whole turn.
        if (f > 0) angles[a] = EnforceContinuity(angles[a], record.prevAngles[a]);
        record.prevAngles[a] = angles[a];
        channel[static_cast<size_t>(a)][f] = angles[a];
      }
    }
    for (int a = 0; a < 3; ++a) keyAll(record.curves[3 + a], a);
    bar.PutValue(joints +
                 static_cast<long>(static_cast<double>(frames) * static_cast<double>(k + 1) /
                                   static_cast<double>(keyed.size())));
  }

  bar.PutCaption(L"Creating Action Source");
  CValue source;
  CStatus stored = Application().ExecuteCommand(
      L"StoreAction",
      {CValue(actor.GetRef()), parameters, 6, actionName, 1, 0.0, spacing * (frames - 1), 0, 0},
      source);
  if (!stored.Succeeded()) {
    // Nothing is kept of a failed import: its curves go and the pose comes back.
    for (Parameter& parameter : animated) parameter.RemoveAnimation();
  }
  PutBackEarlierCurves(actor, kept);
  if (!stored.Succeeded()) {
    ShowMessage(BvhImportMessage(
        path, "the action cannot be stored: " + stored.GetMessage().GetAsciiString()));
  }
  bar.PutValue(frames + joints);
  bar.PutVisible(false);
  file.Close();
  RestorePose(actor, true);
  CleanupPose(actor);
  return stored.Succeeded();
}

bool ImportBVHAction(X3DObject& selected) {
  Model model;
  if (!GetModelOrSay(selected, model)) return false;
  if (model.GetRef() == Application().GetActiveSceneRoot().GetRef()) {
    ShowMessage(
        L"Actor descriptions must be contained by a single model (scene root not supported).");
    return false;
  }
  bool added = false;
  CustomProperty options = FindOrAddBVHActor(model, added);
  if (!options.IsValid()) return false;
  const CValue previousMode = options.GetParameterValue(L"Mode");
  options.PutParameterValue(L"Mode", 11);
  BuildBVHActorLayout(options);
  if (!InspectObj(options.GetFullName(), L"", L"Import BVH Action", 4, false)) {
    // Cancelled: leave the actor as it was, options included.
    if (added) {
      CValue ignored;
      Application().ExecuteCommand(L"DeleteObj", {CValue(options.GetRef())}, ignored);
    } else {
      options.PutParameterValue(L"Mode", previousMode);
    }
    return false;
  }
  const CValueArray args = {CValue(model.GetRef()),
                            options.GetParameterValue(L"BVHFile").GetAsText(),
                            options.GetParameterValue(L"ActionName").GetAsText(),
                            options.GetParameterValue(L"Scale").AsDouble(),
                            options.GetParameterValue(L"Optimize").AsBool(),
                            options.GetParameterValue(L"Filter").GetAsText(),
                            options.GetParameterValue(L"Remove").GetAsText(),
                            options.GetParameterValue(L"Root").AsBool()};
  CValue ignored;
  CStatus status = Application().ExecuteCommand(L"KnrAddBVHAction", args, ignored);
  if (status.GetCode() != CStatus::MemberNotFound) return status.Succeeded();
  // The plug-in linked in without its module registered: run the import itself.
  ScopedLogOff logOff;
  return AddBVHAction(model, args[1].GetAsText(), args[2].GetAsText(), args[3].AsFloat(),
                      args[4].AsBool(), args[5].GetAsText(), args[6].GetAsText(), args[7].AsBool());
}
