// BVH actor import: the options property and its page, reading a file for either import, and
// building an actor model from a file's skeleton.
#include <algorithm>
#include <cmath>
#include <set>
#include <string>
#include <vector>

#include "knrexport/actor/home_pose.h"
#include "knrexport/actor/initialize.h"
#include "knrexport/bvh/bvh_actor_property.h"
#include "knrexport/bvh/bvh_import.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/text_utils.h"
#include "zyra/application.h"
#include "zyra/plugin.h"
#include "zyra/ui.h"

using namespace Zyra;

namespace {

constexpr const wchar_t* kPropertyName = L"BVHActor";
constexpr const wchar_t* kHelpLink = L"knrexport/help/bvh_import.html";
constexpr const wchar_t* kFileFilter = L"Biovision BVH Files (*.bvh)|*.bvh:*.BVH|";
// Bones shorter than this are drawn as a stub of this length along Y.
constexpr float kShortestBone = 0.1f;
// The cube primitive has edge 8; this makes it a unit cube.
constexpr float kCubeToUnit = 0.125f;

// Runs `apply` on every item of a ';'-separated list (GetTag rules: blanks are squeezed out and an
// empty item ends the list).
template <class Apply>
void ForEachTag(const CString& list, Apply apply) {
  std::string text = list.GetAsciiString();
  std::vector<char> buffer(text.begin(), text.end());
  buffer.push_back('\0');
  char* cursor = buffer.data();
  char* token = nullptr;
  while (GetTag(nullptr, cursor, token)) apply(token);
}

// Gives `model` its own BVHActor with the values of `source`, so the actor remembers how it was
// imported.
void CopyBVHActorValues(const CustomProperty& source, Model& model) {
  bool added = false;
  CustomProperty copy = FindOrAddBVHActor(model, added);
  for (const CRef& ref : source.GetParameters()) {
    Parameter parameter(ref);
    copy.PutParameterValue(parameter.GetName(), parameter.GetValue());
  }
}

void PutVector(X3DObject& object, const wchar_t* x, const wchar_t* y, const wchar_t* z, float vx,
               float vy, float vz) {
  object.PutParameterValue(x, static_cast<double>(vx));
  object.PutParameterValue(y, static_cast<double>(vy));
  object.PutParameterValue(z, static_cast<double>(vz));
}

void PutRotation(X3DObject& object, DrvQuaternion& rotation) {
  DrvVector angles;
  DrvQuaternion_GetEulerAngles(&rotation, &angles);
  PutVector(object, L"rotx", L"roty", L"rotz", angles.x / kBvDegToRad, angles.y / kBvDegToRad,
            angles.z / kBvDegToRad);
}

// Creates joint `index`'s object under the scene root, shapes it along its bone and hangs it
// under its parent, posed at the first frame.
X3DObject BuildJoint(ZyraBvHierarchy& hierarchy, MocapData& data, int index, const CString& name,
                     X3DObject& sceneRoot, X3DObject& globalSRT, bool boxes, float longest) {
  ZyraBvNode& node = hierarchy.nodes[index];
  DrvVector end = node.endsite;
  float length = DrvVector_Magnitude(&end);
  if (length < kShortestBone) {
    DrvVector_Set(&end, 0.0f, kShortestBone, 0.0f);
    length = kShortestBone;
  }
  X3DObject object;
  if (boxes) {
    sceneRoot.AddGeometry(L"Cube", L"MeshSurface", name, object);
  } else {
    sceneRoot.AddNull(name, object);
  }
  if (!object.IsValid()) return object;
  node.object = object;
  const CValue target(object.GetRef());
  if (boxes) {
    // A long bone gets a box a tenth of the longest bone thick; a short one a thinner box.
    const float thickness = length >= 0.2f * longest ? longest * 0.1f : longest * 0.02f;
    PutVector(object, L"sclx", L"scly", L"sclz", thickness * kCubeToUnit, length * kCubeToUnit,
              thickness * kCubeToUnit);
  }
  // Scale, then move half a bone up Y, then turn Y onto the bone, folding each into the
  // geometry: the box then runs from the joint to its end site with a clean local transform.
  DrvVector up;
  DrvVector_Set(&up, 0.0f, 1.0f, 0.0f);
  DrvQuaternion along;
  DrvQuaternion_FromTwoVectors(&along, &up, &end);
  RunCommand(L"ResetTransform", {target, 1, 1, 7});
  PutVector(object, L"posx", L"posy", L"posz", 0.0f, length * 0.5f, 0.0f);
  RunCommand(L"ResetTransform", {target, 1, 4, 7});
  PutRotation(object, along);
  RunCommand(L"ResetTransform", {target, 1, 2, 7});

  X3DObject parent = node.parent < 0 ? globalSRT : hierarchy.nodes[node.parent].object;
  parent.AddChild(object.GetRef());
  // Created in the scene root's name space, the object may have had to take a numbered name.
  if (object.GetName() != name) object.PutName(name);

  DrvTransform& first = data.records[index].samples[0];
  PutRotation(object, first.rotation);
  PutVector(object, L"posx", L"posy", L"posz", first.translation.x, first.translation.y,
            first.translation.z);
  return object;
}

}  // namespace

void WarnRepeatedJoints(const CString& path, const std::vector<std::string>& repeated) {
  if (repeated.empty()) return;
  std::string list;
  for (const std::string& name : repeated) list += (list.empty() ? "" : ", ") + name;
  Application().LogMessage(CString(L"The BVH file \"") + path + L"\" names more than one joint " +
                               CString(list) +
                               L"; each has its own object, the later ones numbered.",
                           siWarningMsg);
}

CString BvhObjectName(const char* jointName) {
  std::wstring name = FromUtf8(jointName);
  for (wchar_t& c : name) {
    if (c == L':' || c == L'.' || c == L',') c = L'_';
  }
  return CString(name);
}

std::vector<CString> BvhJointObjectNames(const ZyraBvHierarchy& hierarchy,
                                         std::vector<std::string>& repeated) {
  repeated.clear();
  const int count = hierarchy.nodeCount;
  std::vector<CString> names(static_cast<size_t>(count));
  std::set<std::wstring> taken = {kBvhRootNull};
  std::vector<int> again;
  // First every name as the file gives it, so that a number never takes a name a later joint has.
  for (int i = 0; i < count; ++i) {
    names[static_cast<size_t>(i)] = BvhObjectName(hierarchy.nodes[i].name);
    if (!taken.insert(names[static_cast<size_t>(i)].Wide()).second) again.push_back(i);
  }
  for (int i : again) {
    const std::wstring base = names[static_cast<size_t>(i)].Wide();
    int n = 1;
    while (taken.count(base + std::to_wstring(n))) ++n;
    names[static_cast<size_t>(i)] = CString(base + std::to_wstring(n));
    taken.insert(base + std::to_wstring(n));
    const std::string joint = hierarchy.nodes[i].name;
    if (std::find(repeated.begin(), repeated.end(), joint) == repeated.end() &&
        BvhObjectName(joint.c_str()).Wide() != kBvhRootNull) {
      repeated.push_back(joint);
    }
  }
  return names;
}

CString BvhImportMessage(const CString& path, const std::string& why) {
  std::string text = why;
  if (text.empty()) text = "it cannot be read";
  if (text.back() != '.') text += '.';
  return CString(L"Cannot import the BVH file \"") + path + L"\": " + CString(text);
}

namespace {

bool CheckScaleAndPath(const CString& path, float scale) {
  if (!(scale > 0.0f) || !std::isfinite(scale)) {
    ShowMessage(
        BvhImportMessage(path, "the scale " + std::to_string(scale) + " is not a positive number"));
    return false;
  }
  if (path.IsEmpty()) {
    ShowMessage(L"Cannot import a BVH file: no file name was given.");
    return false;
  }
  return true;
}

bool SayReadError(ZyraBvFile& file, const CString& path) {
  std::string why = file.LastError();
  if (file.LastErrorLine() > 0) why = "line " + std::to_string(file.LastErrorLine()) + ": " + why;
  ShowMessage(BvhImportMessage(path, why));
  return false;
}

// A take read whole must have a usable frame time and at least one frame.
bool CheckTake(const CString& path, const MocapData& data, int frames, bool firstFrameOnly) {
  // (`frames` is that of the take as read: the pruning may have left `data` without records.)
  if (!firstFrameOnly && !(data.frameTime > 0.0f && std::isfinite(data.frameTime))) {
    ShowMessage(BvhImportMessage(path, "the frame time " + std::to_string(data.frameTime) +
                                           " is not a positive number of seconds"));
    return false;
  }
  if (frames < 1) {
    ShowMessage(BvhImportMessage(path, "it holds no frames"));
    return false;
  }
  return true;
}

}  // namespace

bool ReadBvhForImport(ZyraBvFile& file, MocapData& data, const CString& path, float scale,
                      bool firstFrameOnly) {
  if (!CheckScaleAndPath(path, scale)) return false;
  if (file.Open(path.GetWideString(), scale) && file.ReadHierarchy() &&
      file.ReadMotionData(&data, firstFrameOnly)) {
    return CheckTake(path, data, data.nodeCount > 0 ? data.records[0].frameCount : 0,
                     firstFrameOnly);
  }
  return SayReadError(file, path);
}

bool OpenBvhForImport(ZyraBvFile& file, MocapData& data, const CString& path, float scale) {
  if (!CheckScaleAndPath(path, scale)) return false;
  if (file.Open(path.GetWideString(), scale) && file.ReadHierarchy() &&
      file.ReadMotionHeader(&data)) {
    return true;
  }
  return SayReadError(file, path);
}

bool ReadBvhFramesForImport(ZyraBvFile& file, const MocapData& data, const CString& path,
                            BvFrameSink& sink) {
  if (!file.ReadFrames(sink)) return SayReadError(file, path);
  return CheckTake(path, data, file.MotionFrames(), false);
}

void RemoveBvhJoints(ZyraBvFile& file, MocapData& data, const CString& filter,
                     const CString& subtree, bool keepRoot, bool updateEndsites) {
  if (updateEndsites) UpdateEndsite(file.Hierarchy(), data, nullptr);
  ForEachTag(filter, [&](const char* tag) { file.RemoveNodes(tag, &data); });
  if (updateEndsites) UpdateEndsite(file.Hierarchy(), data, nullptr);
  ForEachTag(subtree, [&](const char* name) { file.RemoveTree(name, &data, keepRoot); });
}

CustomProperty FindOrAddBVHActor(X3DObject& owner, bool& added) {
  return FindOrAddOptions(owner, kPropertyName, DefineBVHActor, &added);
}

void BuildBVHActorLayout(const CustomProperty& property) {
  PPGLayout layout = PPGLayout::Of(property.GetRef());
  if (!layout.IsValid()) return;
  layout.Clear();
  layout.PutAttribute(siUIHelpFile, kHelpLink);
  PPGItem file = layout.AddItem(L"BVHFile", L"Filename", siControlFilePath);
  file.PutAttribute(siUIFileFilter, kFileFilter);
  layout.AddGroup(L"Import Options");
  layout.AddItem(L"Scale");
  layout.AddItem(L"Filter", L"Filter Tag");
  layout.AddItem(L"Remove", L"Subtree");
  layout.AddItem(L"Root", L"Keep Subtree Root");
  layout.EndGroup();
  if (property.GetParameterValue(L"Mode").AsInt() == 0) {
    layout.AddGroup(L"Actor Options");
    layout.AddItem(L"ActorName", L"Actor Name");
    layout.AddItem(L"Box", L"Create Box Hierarchy");
    layout.AddButton(L"Refresh");
    layout.EndGroup();
  } else {
    layout.AddGroup(L"Action Options");
    layout.AddItem(L"ActionName", L"Action Name");
    layout.AddItem(L"Optimize", L"Remove Local Pos Data");
    layout.EndGroup();
  }
}

Model LoadBvhActor(const CString& path, const CString& actorName, const CString& filter,
                   const CString& subtree, bool keepRoot, bool boxes, float scale) {
  ZyraBvFile file;
  MocapData data;
  if (!ReadBvhForImport(file, data, path, scale, true)) return Model();
  RemoveBvhJoints(file, data, filter, subtree, keepRoot, true);
  ZyraBvHierarchy& hierarchy = *file.Hierarchy();
  if (hierarchy.nodeCount < 1) {
    ShowMessage(
        BvhImportMessage(path, "no joint is left after removing the filter tags and subtrees"));
    return Model();
  }
  float longest = 0.0f;
  UpdateEndsite(&hierarchy, data, &longest);

  ProgressBar bar = Application().GetUIToolkit().GetProgressBar();
  bar.PutCancelEnabled(false);
  bar.PutVisible(true);
  bar.PutMaximum(hierarchy.nodeCount);
  bar.PutStep(1);

  std::vector<std::string> repeated;
  const std::vector<CString> names = BvhJointObjectNames(hierarchy, repeated);
  WarnRepeatedJoints(path, repeated);

  X3DObject sceneRoot = Application().GetActiveSceneRoot();
  X3DObject globalSRT;
  Model model;
  sceneRoot.AddNull(kBvhRootNull, globalSRT);
  CRefArray members;
  members.Add(globalSRT.GetRef());
  if (!sceneRoot.AddModel(members, actorName, model).Succeeded()) {
    ShowMessage(CString(L"Cannot create the actor model \"") + actorName + L"\".");
    RunCommand(L"DeleteObj", {CValue(globalSRT.GetRef())});
    return Model();
  }
  // Made in the scene root's name space, the null may have had to take a numbered name; inside
  // its own model it is the actor's root null by its plain name.
  if (globalSRT.GetName() != CString(kBvhRootNull)) globalSRT.PutName(kBvhRootNull);
  bar.PutCaption(L"Creating Actor");
  for (int i = 0; i < hierarchy.nodeCount; ++i) {
    BuildJoint(hierarchy, data, i, names[static_cast<size_t>(i)], sceneRoot, globalSRT, boxes,
               longest);
    bar.Increment();
  }
  bar.PutVisible(false);
  file.Close();
  return model;
}

bool ImportBVHActor() {
  Model sceneRoot = Application().GetActiveSceneRoot();
  bool added = false;
  CustomProperty options = FindOrAddBVHActor(sceneRoot, added);
  if (!options.IsValid()) return true;
  const CValue previousMode = options.GetParameterValue(L"Mode");
  options.PutParameterValue(L"Mode", 0);
  BuildBVHActorLayout(options);
  if (!InspectObj(options.GetFullName(), L"", L"Import BVH Actor", 4, false)) {
    // Cancelled: leave the scene as it was, options included.
    if (added) {
      RunCommand(L"DeleteObj", {CValue(options.GetRef())});
    } else {
      options.PutParameterValue(L"Mode", previousMode);
    }
    return true;
  }
  const CString path = options.GetParameterValue(L"BVHFile").GetAsText();
  const CString actorName = options.GetParameterValue(L"ActorName").GetAsText();
  const CString filter = options.GetParameterValue(L"Filter").GetAsText();
  const CString subtree = options.GetParameterValue(L"Remove").GetAsText();
  const bool keepRoot = options.GetParameterValue(L"Root").AsBool();
  const bool boxes = options.GetParameterValue(L"Box").AsBool();
  const float scale = static_cast<float>(options.GetParameterValue(L"Scale").AsDouble());

  ScopedLogOff logOff;
  Model model = LoadBvhActor(path, actorName, filter, subtree, keepRoot, boxes, scale);
  if (!model.IsValid()) return true;
  CopyBVHActorValues(options, model);
  InitializeActor(model, true, ProgressBar());
  SetHome(model, true, ProgressBar(), true);
  return true;
}
