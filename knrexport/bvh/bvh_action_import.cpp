// BVH action import: keys every frame of a BVH file on the actor objects named after its joints
// and stores the curves as an action source.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "knrexport/bvh/bvh_import.h"
#include "knrexport/math/drv_batch.h"
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
// the home pose of an imported actor moves it under the hips): the motion of a root joint is
// made relative to its object's parent, so that the action reproduces the take in the model's
// space instead of moving it by the null's place a second time. False when the joint needs no
// such change (not a root, no object, or an object straight under the model).
bool ModelToParent(Model& actor, const ZyraBvNode& node, DrvTransform& toParent) {
  if (node.parent >= 0 || !node.object.IsValid()) return false;
  X3DObject parent(node.object.GetParent());
  if (!parent.IsValid() || parent.GetRef() == actor.GetRef()) return false;
  DrvTransform model;
  DrvTransform_SetIdentity(&model);
  GetGlobalTransform(actor, model);
  // toParent = parent^-1 x model: from the model's space to the parent's.
  DrvTransform_SetIdentity(&toParent);
  GetGlobalTransform(parent, toParent);
  DrvTransform_Invert(&toParent);
  DrvTransform_Multiply(&toParent, &toParent, &model);
  DrvVector_Set(&toParent.scaling, 1.0f, 1.0f, 1.0f);
  return true;
}

// Maps the pages of a fresh block of `bytes` at `data` in one call instead of a page fault per
// page as the readers first write them (a fault costs far more than the page on a virtual
// machine). Where the system cannot, the pages fault in as usual.
void PrepareForWriting(void* data, std::size_t bytes) {
#ifdef MADV_POPULATE_WRITE
  const long page = sysconf(_SC_PAGESIZE);
  if (page <= 0) return;
  const auto mask = ~(static_cast<std::uintptr_t>(page) - 1);
  const std::uintptr_t begin = (reinterpret_cast<std::uintptr_t>(data) + ~mask) & mask;
  const std::uintptr_t end = (reinterpret_cast<std::uintptr_t>(data) + bytes) & mask;
  if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_POPULATE_WRITE);
#else
  (void)data;
  (void)bytes;
#endif
}

// The values of the action's curves, made frame by frame as the reader parses the take (on both
// of its threads), without the per-joint samples of the whole take: the pruning's folds are
// replayed on each frame, root joints are placed in the model's space, and rotations become
// Euler angles in degrees. Each keyed channel gets a column of one float a frame; the angle
// columns are made continuous (no jump by a whole turn) once every frame is in (Finish), since
// that runs from the first frame to the last.
class ActionColumns final : public BvFrameSink {
 public:
  struct Joint {
    int origin = 0;          // the joint in the file as read
    bool translate = false;  // translation curves too (the root, or every joint unless optimized)
    bool placed = false;     // a root joint moved into the model's space by `toParent`
    DrvTransform toParent{};
    float* columns = nullptr;  // posx posy posz (when translating), rotx roty rotz
  };

  ActionColumns(std::vector<Joint> joints, const std::vector<BvFold>& folds, int nodes, int frames)
      : joints_(std::move(joints)), folds_(folds), nodes_(nodes), frames_(frames) {
    std::size_t channels = 0;
    for (const Joint& joint : joints_) channels += joint.translate ? 6 : 3;
    // Every float is written before it is read: no zero fill of 4 bytes a key.
    const std::size_t count = channels * static_cast<std::size_t>(frames);
    block_.reset(new (std::nothrow) float[count]);
    if (!block_) return;
    PrepareForWriting(block_.get(), count * sizeof(float));
    float* next = block_.get();
    for (Joint& joint : joints_) {
      joint.columns = next;
      next += (joint.translate ? 6 : 3) * static_cast<std::size_t>(frames);
    }
  }

  void Put(int frame, const float* x, const float* y, const float* z,
           const DrvQuaternion* rotations) override {
    DrvTransform t[kBvMaxNodes];
    for (int o = 0; o < nodes_; ++o) {
      t[o].translation = DrvVector{x[o], y[o], z[o]};
      t[o].rotation = rotations[o];
      t[o].scaling = DrvVector{1.0f, 1.0f, 1.0f};
    }
    for (const BvFold& fold : folds_) {
      DrvTransform_Multiply(&t[fold.child], &t[fold.parent], &t[fold.child]);
    }
    const auto f = static_cast<std::size_t>(frame);
    const auto n = static_cast<std::size_t>(frames_);
    DrvQuaternion turns[kBvMaxNodes];
    DrvVector radians[kBvMaxNodes];
    const int count = static_cast<int>(joints_.size());
    for (int j = 0; j < count; ++j) {
      Joint& joint = joints_[static_cast<std::size_t>(j)];
      DrvTransform& sample = t[joint.origin];
      if (joint.placed) DrvTransform_Multiply(&sample, &joint.toParent, &sample);
      turns[j] = sample.rotation;
      if (joint.translate) {
        joint.columns[f] = sample.translation.x;
        joint.columns[n + f] = sample.translation.y;
        joint.columns[2 * n + f] = sample.translation.z;
      }
    }
    DrvQuaternion_GetEulerAnglesMany(radians, turns, count);
    for (int j = 0; j < count; ++j) {
      const Joint& joint = joints_[static_cast<std::size_t>(j)];
      float* column = joint.columns + (joint.translate ? 3 * n : 0);
      column[f] = radians[j].x / kBvDegToRad;
      column[n + f] = radians[j].y / kBvDegToRad;
      column[2 * n + f] = radians[j].z / kBvDegToRad;
    }
  }

  // Keeps each angle curve on the side of +-180 it came from, frame after frame.
  void Finish() {
    const auto n = static_cast<std::size_t>(frames_);
    for (Joint& joint : joints_) {
      float* angles = joint.columns + (joint.translate ? 3 * n : 0);
      for (int a = 0; a < 3; ++a, angles += n) {
        for (std::size_t f = 1; f < n; ++f) {
          // Within half a turn of the key before, EnforceContinuity keeps the angle as it is.
          const float step = angles[f] - angles[f - 1];
          if (!(step <= 180.0f && step >= -180.0f)) {
            angles[f] = EnforceContinuity(angles[f], angles[f - 1]);
          }
        }
      }
    }
  }

  // False when there was no memory for the columns.
  bool Held() const { return block_ != nullptr; }
  const std::vector<Joint>& Joints() const { return joints_; }

 private:
  std::vector<Joint> joints_;
  const std::vector<BvFold>& folds_;
  int nodes_;
  int frames_;
  std::unique_ptr<float[]> block_;
};

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
  return ActionSource(
      RunCommand(L"StoreAction", {CValue(actor.GetRef()), list, 6, CString(L"TmpBVHKeptCurves"), 0,
                                  -kEveryKey, kEveryKey, 0, 0})
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
  // The frames are read only once the objects to key are known, each straight into the values
  // of its curves; what is wrong with the file is still said first, as for any import.
  ZyraBvFile file;
  MocapData data;
  if (!OpenBvhForImport(file, data, path, scale)) return false;
  const int fileJoints = data.nodeCount;
  RemoveBvhJoints(file, data, filter, subtree, keepRoot, false);
  ZyraBvHierarchy& hierarchy = *file.Hierarchy();
  const int joints = hierarchy.nodeCount;
  const int frames = file.MotionFrames();

  // Find every joint's object before anything changes: without one there is nothing to key.
  // With optimize on only the root keeps translation curves: the other joints' translations are
  // their fixed bone offsets.
  const CString prefix = actor.GetName() + L".";
  std::vector<std::string> repeated;
  const std::vector<CString> names = BvhJointObjectNames(hierarchy, repeated);
  int found = 0;
  std::vector<ActionColumns::Joint> columns;
  std::vector<int> keyed;  // the joints that have an object, in hierarchy order
  for (int i = 0; i < joints; ++i) {
    ZyraBvNode& node = hierarchy.nodes[i];
    node.object =
        actor.FindChild(prefix + names[static_cast<size_t>(i)], CString(), CRefArray(), true);
    if (!node.object.IsValid()) continue;
    ++found;
    keyed.push_back(i);
    ActionColumns::Joint joint;
    joint.origin = data.records[i].origin;
    joint.translate = i == 0 || !optimize;
    joint.placed = ModelToParent(actor, node, joint.toParent);
    columns.push_back(joint);
  }
  ActionColumns values(std::move(columns), data.folds, fileJoints, frames);
  if (!values.Held()) {
    ShowMessage(BvhImportMessage(path, "out of memory for " + std::to_string(frames) + " frames"));
    return false;
  }
  if (!ReadBvhFramesForImport(file, data, path, values)) return false;
  values.Finish();
  if (found == 0) {
    ShowMessage(BvhImportMessage(path, "no joint of the file matches an object of the actor \"" +
                                           actor.GetName().GetAsciiString() + "\""));
    return false;
  }
  WarnRepeatedJoints(path, repeated);
  ReportPartialMatch(path, actor, hierarchy, names, found);
  // Curves already on the channels this take keys are put back once the take is stored.
  ActionSource kept = KeepEarlierCurves(actor, hierarchy, optimize);

  StorePose(actor);
  ProgressBar bar = Application().GetUIToolkit().GetProgressBar();
  bar.PutCancelEnabled(false);
  bar.PutVisible(true);
  bar.PutMaximum(frames + joints);
  bar.PutStep(1);
  bar.PutCaption(L"Processing Mocap Data");

  CString parameters;
  std::vector<Parameter> animated;  // every parameter given a curve, to undo a failed store
  for (int i = 0; i < joints; ++i) {
    X3DObject& object = hierarchy.nodes[i].object;
    if (object.IsValid()) {
      for (int c = i == 0 || !optimize ? 0 : 3; c < 6; ++c)
        AddCurve(object, c, data.records[i], parameters, animated);
    }
    bar.Increment();
  }

  CValue rate;
  Application().ExecuteCommand(L"GetValue", {L"preferences.output_format.frame_rate"}, rate);
  // Host frames per file frame; with the file's rate taken exactly (ExactFrameRate), a take at
  // the scene's rate keys whole frames.
  const double spacing = rate.AsDouble() / data.frameRate;

  // One curve at a time: every frame of a channel goes into its curve in one call, so a long
  // take is keyed without a host call per key.
  bar.PutCaption(L"Transferring Mocap Data");
  CDoubleArray times(frames);
  for (int f = 0; f < frames; ++f) times[f] = spacing * f;
  CDoubleArray channel(frames);
  for (size_t k = 0; k < keyed.size(); ++k) {
    MocapRecord& record = data.records[keyed[k]];
    const ActionColumns::Joint& joint = values.Joints()[k];
    const float* column = joint.columns;
    for (int c = joint.translate ? 0 : 3; c < 6; ++c, column += frames) {
      FCurve& curve = record.curves[c];
      if (!curve.IsValid()) continue;
      for (int f = 0; f < frames; ++f) channel[f] = column[f];
      curve.SetKeys(times, channel, kCurveInterpolation);
    }
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
