// Copying a source actor's actions onto its generated actor.
#include "knrexport/generate/action_copy.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "knrexport/scene/actor_lookup.h"
#include "knrexport/skill/skill_kinds.h"
#include "zyra/application.h"
#include "zyra/fcurve.h"

using namespace Zyra;

namespace {

constexpr int kChannels = 9;  // posx posy posz rotx roty rotz sclx scly sclz
const wchar_t* const kChannelNames[kChannels] = {L"posx", L"posy", L"posz", L"rotx", L"roty",
                                                 L"rotz", L"sclx", L"scly", L"sclz"};
constexpr double kDegToRad = 3.14159265358979323846 / 180.0;
constexpr double kScaleTolerance = 1e-4;
constexpr int kPlotInterpolation = 2;  // linear keys: the plotted pose holds exactly at each key

// The transform items of one object, by channel (invalid where the action has none).
struct NodeItems {
  AnimationSourceItem channel[kChannels];
  bool Any() const {
    for (const auto& item : channel) {
      if (item.IsValid()) return true;
    }
    return false;
  }
};

// "Obj.kine.local.posx" or "Obj.posx": the object name and the channel index; -1 otherwise.
int ParseChannel(const CString& target, std::wstring& object) {
  const std::wstring& t = target.Wide();
  size_t dot = t.find(L'.');
  if (dot == std::wstring::npos) return -1;
  object = t.substr(0, dot);
  std::wstring rest = t.substr(dot + 1);
  if (rest.rfind(L"kine.local.", 0) == 0) rest = rest.substr(11);
  for (int c = 0; c < kChannels; ++c) {
    if (rest == kChannelNames[c]) return c;
  }
  return -1;
}

struct ActionItems {
  std::map<std::wstring, NodeItems> nodes;
  std::vector<AnimationSourceItem> others;  // with their object names
  std::vector<std::wstring> otherObjects;
};

ActionItems SortItems(ActionSource& action) {
  ActionItems sorted;
  for (const CRef& ref : action.GetItems()) {
    AnimationSourceItem item(ref);
    std::wstring object;
    int channel = ParseChannel(item.GetTarget(), object);
    if (channel >= 0) {
      sorted.nodes[object].channel[channel] = item;
    } else {
      const std::wstring t = item.GetTarget().Wide();
      sorted.others.push_back(item);
      sorted.otherObjects.push_back(t.substr(0, t.find(L'.')));
    }
  }
  return sorted;
}

bool CopyItem(ActionSource& copy, const AnimationSourceItem& item) {
  if (item.IsStatic())
    return copy.AddSourceItem(item.GetTarget(), item.GetStaticValue()).Succeeded();
  return copy.AddSourceItem(item.GetTarget(), FCurve(item.GetSource())).Succeeded();
}

bool IsUnitScaling(X3DObject& node, const ActionItems& items) {
  MATH::CVector3 s = node.GetKinematics().GetLocal().GetTransform().GetScaling();
  const double axes[3] = {s.GetX(), s.GetY(), s.GetZ()};
  auto found = items.nodes.find(node.GetName().Wide());
  for (int a = 0; a < 3; ++a) {
    const AnimationSourceItem* item =
        found == items.nodes.end() ? nullptr : &found->second.channel[6 + a];
    if (item && item->IsValid()) {
      if (item->IsStatic()) {
        if (std::fabs(item->GetStaticValue().AsDouble() - 1.0) > kScaleTolerance) return false;
        continue;
      }
      FCurve curve(item->GetSource());
      for (long k = 0; k < curve.GetKeyCount(); ++k) {
        if (std::fabs(curve.GetKeyValue(k).AsDouble() - 1.0) > kScaleTolerance) return false;
      }
    } else if (std::fabs(axes[a] - 1.0) > kScaleTolerance) {
      return false;
    }
  }
  return true;
}

// The source objects from `node` up to (not including) the model, top first.
std::vector<X3DObject> PathFromTop(X3DObject node) {
  std::vector<X3DObject> path;
  while (node.IsValid() && node.GetClassID() != siModelID) {
    path.push_back(node);
    node = X3DObject(node.GetParent());
  }
  std::reverse(path.begin(), path.end());
  return path;
}

// A source object evaluated through the action: its static channels and the items that drive
// some of them.
struct Evaluated {
  X3DObject node;
  int parent = -1;  // index in the evaluation list; -1: the model
  double statics[kChannels];
  FCurve curves[kChannels];
  MATH::CTransformation global;

  void Evaluate(double frame, const MATH::CTransformation& parentGlobal) {
    double v[kChannels];
    for (int c = 0; c < kChannels; ++c)
      v[c] = curves[c].IsValid() ? curves[c].Eval(frame) : statics[c];
    MATH::CTransformation local;
    local.SetTranslationFromValues(v[0], v[1], v[2]);
    local.SetRotationFromXYZAnglesValues(v[3] * kDegToRad, v[4] * kDegToRad, v[5] * kDegToRad);
    local.SetScalingFromValues(v[6], v[7], v[8]);
    global = MATH::CTransformation::Compose(parentGlobal, local);
  }
};

// A generated node to plot: its source, the source of its generated parent, and its keys.
struct Plotted {
  X3DObject generated;
  int source = -1;
  int parentSource = -1;  // -1: the generated parent is the model
  std::vector<CDoubleArray> values = std::vector<CDoubleArray>(6);
};

class Plotter {
 public:
  Plotter(Model& sourceModel, const ActionItems& items) : model_(sourceModel), items_(items) {}

  // Adds a node to plot; `parentSource` is the source object standing for its generated parent
  // (invalid for the model).
  void Add(X3DObject& generated, X3DObject& source, X3DObject parentSource) {
    Plotted p;
    p.generated = generated;
    p.source = Index(source);
    p.parentSource = parentSource.IsValid() ? Index(parentSource) : -1;
    plotted_.push_back(std::move(p));
  }

  bool Empty() const { return plotted_.empty(); }

  bool Write(ActionSource& copy, double start, double end) {
    std::vector<double> times = SampleTimes(start, end);
    const MATH::CTransformation modelGlobal = model_.GetKinematics().GetGlobal().GetTransform();
    for (Plotted& p : plotted_) {
      for (CDoubleArray& v : p.values) v.Resize(static_cast<long>(times.size()));
    }
    for (size_t f = 0; f < times.size(); ++f) {
      for (Evaluated& e : evaluated_)
        e.Evaluate(times[f],
                   e.parent < 0 ? modelGlobal : evaluated_[static_cast<size_t>(e.parent)].global);
      for (Plotted& p : plotted_) Sample(p, modelGlobal, static_cast<long>(f));
    }
    CDoubleArray frames(std::vector<double>(times.begin(), times.end()));
    times = std::vector<double>();
    for (Plotted& p : plotted_) {
      for (int c = 0; c < 6; ++c) {
        if (!WriteChannel(copy, p.generated, c, frames, p.values[static_cast<size_t>(c)]))
          return false;
        p.values[static_cast<size_t>(c)] = CDoubleArray();
      }
    }
    return true;
  }

 private:
  int Index(X3DObject& node) {
    for (size_t i = 0; i < evaluated_.size(); ++i) {
      if (evaluated_[i].node.GetRef() == node.GetRef()) return static_cast<int>(i);
    }
    // Parents first, so a frame is evaluated top-down in list order.
    X3DObject parent(node.GetParent());
    int parentIndex = parent.IsValid() && parent.GetClassID() != siModelID ? Index(parent) : -1;
    Evaluated e;
    e.node = node;
    e.parent = parentIndex;
    MATH::CTransformation local = node.GetKinematics().GetLocal().GetTransform();
    MATH::CVector3 t = local.GetTranslation(), r = local.GetRotationXYZAngles(),
                   s = local.GetScaling();
    const double statics[kChannels] = {t.GetX(),
                                       t.GetY(),
                                       t.GetZ(),
                                       r.GetX() / kDegToRad,
                                       r.GetY() / kDegToRad,
                                       r.GetZ() / kDegToRad,
                                       s.GetX(),
                                       s.GetY(),
                                       s.GetZ()};
    auto found = items_.nodes.find(node.GetName().Wide());
    for (int c = 0; c < kChannels; ++c) {
      e.statics[c] = statics[c];
      if (found == items_.nodes.end() || !found->second.channel[c].IsValid()) continue;
      const AnimationSourceItem& item = found->second.channel[c];
      if (item.IsStatic()) {
        e.statics[c] = item.GetStaticValue().AsDouble();
      } else {
        e.curves[c] = FCurve(item.GetSource());
      }
    }
    evaluated_.push_back(e);
    return static_cast<int>(evaluated_.size() - 1);
  }

  // Every frame from start to end, and every key of the driving curves in between.
  std::vector<double> SampleTimes(double start, double end) const {
    std::vector<double> times;
    for (double f = std::ceil(start); f <= end; f += 1.0) times.push_back(f);
    times.push_back(start);
    times.push_back(end);
    for (const Evaluated& e : evaluated_) {
      for (const FCurve& curve : e.curves) {
        if (!curve.IsValid() || OnWholeFrames(curve)) continue;
        for (long k = 0; k < curve.GetKeyCount(); ++k) {
          double t = curve.GetKeyTime(k).GetTime();
          if (t > start && t < end) times.push_back(t);
        }
      }
    }
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    return times;
  }

  // A curve keyed on one whole frame after another adds no sample times of its own.
  static bool OnWholeFrames(const FCurve& curve) {
    const long n = curve.GetKeyCount();
    if (n == 0) return true;
    double first = curve.GetKeyTime(0).GetTime(), last = curve.GetKeyTime(n - 1).GetTime();
    return first == std::floor(first) && last - first == static_cast<double>(n - 1);
  }

  static MATH::CTransformation Unscaled(MATH::CTransformation t) {
    t.SetScalingFromValues(1.0, 1.0, 1.0);
    return t;
  }

  void Sample(Plotted& p, const MATH::CTransformation& modelGlobal, long f) {
    // The generated nodes carry no scaling: they sit where their sources sit, turned alike.
    const MATH::CTransformation parent =
        p.parentSource < 0 ? modelGlobal
                           : Unscaled(evaluated_[static_cast<size_t>(p.parentSource)].global);
    const MATH::CTransformation local = MATH::CTransformation::LocalFrom(
        parent, Unscaled(evaluated_[static_cast<size_t>(p.source)].global));
    MATH::CVector3 t = local.GetTranslation(), r = local.GetRotationXYZAngles();
    const double v[6] = {t.GetX(),
                         t.GetY(),
                         t.GetZ(),
                         r.GetX() / kDegToRad,
                         r.GetY() / kDegToRad,
                         r.GetZ() / kDegToRad};
    for (int c = 0; c < 6; ++c) {
      double value = v[c];
      if (c >= 3 && f > 0) {
        // Keep each angle within half a turn of the previous key, so no key jumps a whole turn.
        const double previous = p.values[static_cast<size_t>(c)][f - 1];
        value += 360.0 * std::round((previous - value) / 360.0);
      }
      p.values[static_cast<size_t>(c)][f] = value;
    }
  }

  static bool WriteChannel(ActionSource& copy, X3DObject& node, int channel,
                           const CDoubleArray& frames, const CDoubleArray& values) {
    // The keys are built on the node's own parameter, then copied into the action.
    Parameter parameter = node.GetParameter(kChannelNames[channel]);
    FCurve curve;
    if (!parameter.AddFCurve(siStandardFCurve, curve).Succeeded()) return false;
    bool done = curve.SetKeys(frames, values, kPlotInterpolation).Succeeded() &&
                copy.AddSourceItem(node.GetName() + L".kine.local." + kChannelNames[channel], curve)
                    .Succeeded();
    parameter.RemoveAnimation();
    return done;
  }

  Model& model_;
  const ActionItems& items_;
  std::vector<Evaluated> evaluated_;
  std::vector<Plotted> plotted_;
};

// True when the action animates nothing on the source path of `node`.
bool PathIsStill(X3DObject& node, const ActionItems& items) {
  for (X3DObject& on : PathFromTop(node)) {
    auto found = items.nodes.find(on.GetName().Wide());
    if (found != items.nodes.end() && found->second.Any()) return false;
  }
  return true;
}

bool PathHasUnitScaling(X3DObject& node, const ActionItems& items) {
  for (X3DObject& on : PathFromTop(node)) {
    if (!IsUnitScaling(on, items)) return false;
  }
  return true;
}

}  // namespace

long ComputeProgessBarSizeForSkills(Model& model, long nodes) {
  return model.GetSources().GetCount() * nodes;
}

bool ProcessSkills(Model& sourceModel, Model& targetModel, ProgressBar& bar) {
  for (const CRef& ref : sourceModel.GetSources()) {
    ActionSource action(ref);
    if (!CopyAction(action, sourceModel, targetModel, bar,
                    action.GetParameterValue(L"type").AsInt()))
      return false;
  }
  return true;
}

bool CopyAction(ActionSource& action, Model& sourceModel, Model& targetModel, ProgressBar& bar,
                int kind) {
  const double start = action.GetParameterValue(L"FrameStart").AsDouble();
  const double end = action.GetParameterValue(L"FrameEnd").AsDouble();
  CValue made;
  if (!Application()
           .ExecuteCommand(L"CreateActionSource",
                           {CValue(targetModel.GetRef()), action.GetName(), start, end}, made)
           .Succeeded()) {
    return false;
  }
  ActionSource copy(made.AsRef());
  copy.PutParameterValue(L"type", action.GetParameterValue(L"type"));

  const ActionItems items = SortItems(action);
  Plotter plotter(sourceModel, items);
  bool done = true;
  for (const CRef& ref : targetModel.FindChildren(CString(), CString())) {
    bar.Increment();
    X3DObject generated(ref);
    X3DObject source = sourceModel.FindChild(generated.GetName());
    if (!source.IsValid()) continue;
    X3DObject generatedParent(generated.GetParent());
    X3DObject sourceParent(source.GetParent());
    const bool parentIsModel = generatedParent.GetClassID() == siModelID;
    const bool sameParent = parentIsModel ? sourceParent.GetClassID() == siModelID
                                          : sourceParent.GetName() == generatedParent.GetName();
    auto found = items.nodes.find(source.GetName().Wide());
    if (sameParent && PathHasUnitScaling(source, items)) {
      if (found == items.nodes.end()) continue;
      for (const AnimationSourceItem& item : found->second.channel) {
        if (item.IsValid()) done = CopyItem(copy, item) && done;
      }
    } else if (!PathIsStill(source, items)) {
      plotter.Add(generated, source,
                  parentIsModel ? X3DObject() : sourceModel.FindChild(generatedParent.GetName()));
    }
  }
  for (size_t i = 0; i < items.others.size(); ++i) {
    if (targetModel.FindChild(items.otherObjects[i]).IsValid())
      done = CopyItem(copy, items.others[i]) && done;
  }
  if (!plotter.Empty()) done = plotter.Write(copy, start, end) && done;
  return ConvertCopiedAction(copy, targetModel, bar, kind) && done;
}

bool ConvertCopiedAction(ActionSource& copy, Model& targetModel, ProgressBar&, int kind) {
  // The copier has no page to ask for a contact threshold: locomotion copies use the Skill
  // page's default. The converters draw no bar of their own here; the copy's share is advanced
  // by the caller.
  return ConvertToSkill(targetModel, copy, kind, kDefaultContactThreshold, false);
}
