// Host commands for keys, actions and the mixer: SetKey, RemoveKey, StoreAction, ApplyAction,
// RemoveAllAnimation, EnumElements and AddMixerTrack. Each command checks all of its arguments
// before it changes anything, so a failing call leaves the scene as it was.
#include <cmath>
#include <set>

#include "host/args.h"
#include "host/host.h"
#include "model/model.h"
#include "model/scene_graph.h"

namespace Zyra::rt {

namespace {

std::shared_ptr<Parameter> ParameterArg(const CValue& value) {
  return std::dynamic_pointer_cast<Parameter>(ArgObject(value));
}

bool IsRoot(const ModelObject& model) { return !model.Owner(); }

// The path of `param` relative to `model` ("Hips.kine.local.posx"); empty when the parameter
// lies outside the model. Full names in the scene root's name space are already relative.
std::wstring RelativeTarget(const ModelObject& model, const Parameter& param) {
  std::wstring full = param.FullName();
  if (IsRoot(model)) return full;
  std::wstring prefix = model.FullName() + L".";
  if (full.compare(0, prefix.size(), prefix) != 0) return {};
  return full.substr(prefix.size());
}

std::wstring TargetPath(const ModelObject& model, const std::wstring& target) {
  return IsRoot(model) ? target : model.FullName() + L"." + target;
}

// Replaces the animation of `param` by a copy of `curve`.
void PutCurve(Parameter& param, const FCurveObject& curve) {
  auto copy = param.AddFCurve();
  copy->interpolation = curve.interpolation;
  copy->keys = curve.Clone()->keys;
}

double PlayControl(const wchar_t* name) {
  Parameter* p = Host::Get().scene().playControl->FindParam(name);
  return p ? p->value.AsDouble() : 1.0;
}

// Names may not hold the path separators.
bool IsCleanName(const std::wstring& name) {
  return !name.empty() && name.find_first_of(L".,") == std::wstring::npos;
}

// ---- SetKey / RemoveKey -----------------------------------------------------------------------

CStatus SetKey(const CValueArray& args, CValue& result) {
  constexpr std::wstring_view kCmd = L"SetKey";
  auto param = ParameterArg(Arg(args, 0));
  if (!param) return ArgError(kCmd, Quoted(Arg(args, 0)) + L" is not a parameter.");
  if (param->getter) {
    return ArgError(kCmd,
                    param->FullName() + L" is computed from other parameters and cannot be keyed.");
  }
  if (!(param->capabilities & kAnimatable)) {
    return ArgError(kCmd, param->FullName() + L" is not animatable.");
  }
  if (param->valueType == siString)
    return ArgError(kCmd, param->FullName() + L" holds text and cannot be keyed.");
  FCurveKey key;
  if (!ArgNumber(Arg(args, 1), key.frame)) {
    return ArgError(kCmd, L"the frame " + Quoted(Arg(args, 1)) + L" is not a finite number.");
  }
  if (!ArgNumber(Arg(args, 2), key.value)) {
    return ArgError(kCmd, L"the value " + Quoted(Arg(args, 2)) + L" for " + param->FullName() +
                              L" is not a finite number.");
  }
  if (!Arg(args, 3).IsEmpty() && (!ArgInteger(Arg(args, 3), key.interpolation) ||
                                  key.interpolation < 0 || key.interpolation > 3)) {
    return ArgError(kCmd, L"the interpolation " + Quoted(Arg(args, 3)) +
                              L" is not 0 (curve's), 1 constant, 2 linear or 3 cubic.");
  }
  auto curve = param->fcurve ? param->fcurve : param->AddFCurve();
  curve->AddKey(key);
  result = CValue(CRef(curve));
  return CStatus::OK;
}

CStatus RemoveKey(const CValueArray& args, CValue& result) {
  constexpr std::wstring_view kCmd = L"RemoveKey";
  auto param = ParameterArg(Arg(args, 0));
  if (!param) return ArgError(kCmd, Quoted(Arg(args, 0)) + L" is not a parameter.");
  if (!param->fcurve) return ArgError(kCmd, param->FullName() + L" has no fcurve.");
  long removed = static_cast<long>(param->fcurve->keys.size());
  if (!Arg(args, 1).IsEmpty()) {
    double frame = 0;
    if (!ArgNumber(Arg(args, 1), frame)) {
      return ArgError(kCmd, L"the frame " + Quoted(Arg(args, 1)) + L" is not a finite number.");
    }
    long index = param->fcurve->FindKey(frame);
    if (index < 0) {
      return ArgError(kCmd, param->FullName() + L" has no key at frame " +
                                CValue(frame).GetAsText().Wide() + L".");
    }
    param->fcurve->keys.Erase(static_cast<size_t>(index), static_cast<size_t>(index) + 1);
    removed = 1;
  } else {
    param->fcurve->keys.Clear();
  }
  // A curve without keys drives nothing: drop it so the static value shows.
  if (param->fcurve->keys.empty()) Destroy(param->fcurve);
  result = CValue(removed);
  return CStatus::OK;
}

// ---- StoreAction / ApplyAction ----------------------------------------------------------------

struct Stored {
  std::shared_ptr<Parameter> param;
  std::wstring target;
};

CStatus StoreAction(const CValueArray& args, CValue& result) {
  constexpr std::wstring_view kCmd = L"StoreAction";
  std::shared_ptr<ModelObject> model;
  if (CStatus status = ArgModel(kCmd, args, 0, model); !status.Succeeded()) return status;

  std::vector<std::shared_ptr<Object>> objects;
  CStatus status = ArgObjects(Arg(args, 1), objects);
  if (!status.Succeeded()) return ArgError(kCmd, status.GetMessage().Wide());
  if (objects.empty()) return ArgError(kCmd, L"no parameters to store.");

  int type = 6;
  if (!Arg(args, 2).IsEmpty() && (!ArgInteger(Arg(args, 2), type) || (type != 1 && type != 6))) {
    return ArgError(
        kCmd, L"the type " + Quoted(Arg(args, 2)) + L" is not 6 (fcurves) or 1 (current values).");
  }
  std::wstring name = Arg(args, 3).IsEmpty() ? L"Action" : Arg(args, 3).GetAsText().Wide();
  if (!IsCleanName(name))
    return ArgError(kCmd, L"the name \"" + name + L"\" is empty or holds '.' or ','.");
  bool remove = Arg(args, 4).AsBool();
  double start = PlayControl(L"In");
  double end = PlayControl(L"Out");
  if (!Arg(args, 5).IsEmpty() && !ArgNumber(Arg(args, 5), start)) {
    return ArgError(kCmd, L"the start frame " + Quoted(Arg(args, 5)) + L" is not a number.");
  }
  if (!Arg(args, 6).IsEmpty() && !ArgNumber(Arg(args, 6), end)) {
    return ArgError(kCmd, L"the end frame " + Quoted(Arg(args, 6)) + L" is not a number.");
  }
  if (start > end) {
    return ArgError(kCmd, L"the start frame " + CValue(start).GetAsText().Wide() +
                              L" lies after the end frame " + CValue(end).GetAsText().Wide() +
                              L".");
  }
  // Arguments 7 (compound) and 8 (driven) have no meaning without a mixer and are ignored.

  std::vector<Stored> stored;
  std::set<const Parameter*> seen;
  for (const auto& object : objects) {
    auto param = std::dynamic_pointer_cast<Parameter>(object);
    if (!param) return ArgError(kCmd, object->FullName() + L" is not a parameter.");
    if (!seen.insert(param.get()).second) continue;  // listed twice: stored once
    std::wstring target = RelativeTarget(*model, *param);
    if (target.empty()) {
      return ArgError(
          kCmd, param->FullName() + L" does not belong to the model " + model->FullName() + L".");
    }
    if (type == 6 && param->getter) {
      return ArgError(kCmd,
                      param->FullName() +
                          L" is computed from other parameters and cannot be stored as an fcurve.");
    }
    if (type == 6 && param->valueType == siString) {
      return ArgError(kCmd, param->FullName() + L" holds text and cannot be stored as an fcurve.");
    }
    stored.push_back({param, target});
  }

  auto source = CreateActionSource(model, name);
  source->FindParam(L"FrameStart")->value = CValue(start);
  source->FindParam(L"FrameEnd")->value = CValue(end);
  double now = Host::Get().CurrentFrame();
  for (const Stored& s : stored) {
    auto item = std::make_shared<SourceItem>(s.target);
    item->owner = source;
    if (type == 1) {
      item->staticValue = s.param->Evaluate(now);
    } else if (s.param->fcurve && !s.param->fcurve->keys.empty()) {
      const FCurveObject& curve = *s.param->fcurve;
      bool inside = curve.editDepth == 0 && start <= curve.keys.Frame(0) &&
                    curve.keys.Frame(curve.keys.size() - 1) <= end;
      if (remove && inside) {
        // The parameter gives its curve up anyway: the keys move instead of being copied, which
        // keeps storing a long take (millions of keys) cheap. The emptied curve is removed below.
        item->fcurve = std::make_shared<FCurveObject>();
        item->fcurve->interpolation = curve.interpolation;
        item->fcurve->keys = std::move(s.param->fcurve->keys);
      } else {
        item->fcurve = curve.CloneRange(start, end);
      }
    } else {
      item->fcurve = std::make_shared<FCurveObject>();
      FCurveKey key;
      key.frame = start;
      key.value = s.param->Evaluate(now).AsDouble();
      item->fcurve->AddKey(key);
    }
    if (item->fcurve) item->fcurve->owner = item;
    source->items.push_back(item);
  }
  if (remove) {
    for (const Stored& s : stored) {
      if (s.param->fcurve) Destroy(s.param->fcurve);
    }
  }
  result = CValue(CRef(source));
  return CStatus::OK;
}

CStatus ApplyAction(const CValueArray& args, CValue& result) {
  constexpr std::wstring_view kCmd = L"ApplyAction";
  auto source = std::dynamic_pointer_cast<ActionSourceObject>(ArgObject(Arg(args, 0)));
  if (!source) return ArgError(kCmd, Quoted(Arg(args, 0)) + L" is not an action source.");
  std::shared_ptr<ModelObject> model;
  if (Arg(args, 1).IsEmpty()) {
    auto container = source->Owner();
    model = std::dynamic_pointer_cast<ModelObject>(container ? container->Owner() : nullptr);
    if (!model) return ArgError(kCmd, source->FullName() + L" belongs to no model.");
  } else {
    if (CStatus status = ArgModel(kCmd, args, 1, model); !status.Succeeded()) return status;
  }

  double now = Host::Get().CurrentFrame();
  long applied = 0;
  for (const auto& item : source->items) {
    std::wstring path = TargetPath(*model, item->target);
    auto param = std::dynamic_pointer_cast<Parameter>(Resolve(path));
    if (!param) {
      Host::Get().Log(kSevWarning, L"ApplyAction: skipped \"" + item->target + L"\" of " +
                                       source->FullName() + L": no parameter " + path + L".");
      continue;
    }
    if (item->fcurve && param->getter) {
      Host::Get().Log(kSevWarning, L"ApplyAction: skipped \"" + item->target + L"\" of " +
                                       source->FullName() + L": " + path +
                                       L" is computed and cannot take an fcurve.");
      continue;
    }
    if (item->fcurve) {
      PutCurve(*param, *item->fcurve);
    } else {
      // A static item sets the value the parameter shows, so its old animation goes.
      CStatus status = param->Put(item->staticValue, now);
      if (!status.Succeeded()) {
        Host::Get().Log(kSevWarning, L"ApplyAction: skipped \"" + item->target + L"\" of " +
                                         source->FullName() + L": " + status.GetMessage().Wide());
        continue;
      }
      if (param->fcurve) Destroy(param->fcurve);
    }
    ++applied;
  }
  result = CValue(applied);
  return CStatus::OK;
}

// ---- RemoveAllAnimation -----------------------------------------------------------------------

// Every parameter an object holds: its own, its properties' (recursively, so "kine.local" too)
// and, for 3D objects, its primitive's.
void CollectParameters(const Object& object, std::vector<std::shared_ptr<Parameter>>& out) {
  for (const auto& p : object.params) out.push_back(p);
  for (const auto& property : object.properties) CollectParameters(*property, out);
  if (auto x3d = dynamic_cast<const X3D*>(&object); x3d && x3d->primitive) {
    CollectParameters(*x3d->primitive, out);
  }
}

std::vector<std::wstring> SplitNames(const std::wstring& list) {
  std::vector<std::wstring> out;
  size_t start = 0;
  while (start <= list.size()) {
    size_t comma = list.find(L',', start);
    std::wstring name = list.substr(start, comma == std::wstring::npos ? comma : comma - start);
    size_t first = name.find_first_not_of(L' ');
    size_t last = name.find_last_not_of(L' ');
    if (first != std::wstring::npos) out.push_back(name.substr(first, last - first + 1));
    if (comma == std::wstring::npos) break;
    start = comma + 1;
  }
  return out;
}

// A filter entry matches a parameter's name or the end of its full name ("local.posx").
bool Matches(const Parameter& param, const std::vector<std::wstring>& filter) {
  if (filter.empty()) return true;
  std::wstring full = param.FullName();
  for (const auto& f : filter) {
    if (param.name == f) return true;
    if (full.size() > f.size() && full.compare(full.size() - f.size(), f.size(), f) == 0 &&
        full[full.size() - f.size() - 1] == L'.') {
      return true;
    }
  }
  return false;
}

CStatus RemoveAllAnimation(const CValueArray& args, CValue& result) {
  constexpr std::wstring_view kCmd = L"RemoveAllAnimation";
  std::vector<std::shared_ptr<Object>> objects;
  CStatus status = ArgObjects(Arg(args, 0), objects);
  if (!status.Succeeded()) return ArgError(kCmd, status.GetMessage().Wide());
  if (objects.empty()) return ArgError(kCmd, L"no objects given.");
  const CValue& filterArg = Arg(args, 1);
  if (!filterArg.IsEmpty() && filterArg.GetType() != siString) {
    return ArgError(kCmd,
                    L"the parameter filter " + Quoted(filterArg) + L" is not a list of names.");
  }
  std::vector<std::wstring> filter = SplitNames(filterArg.GetAsText().Wide());
  bool branch = Arg(args, 2).AsBool();
  int sourceType = 9;
  if (!Arg(args, 3).IsEmpty() && !ArgInteger(Arg(args, 3), sourceType)) {
    return ArgError(kCmd, L"the source type " + Quoted(Arg(args, 3)) + L" is not a number.");
  }
  // Fcurves are the only animation sources this host has; asking for another kind removes nothing.
  if (sourceType != 0 && sourceType != 9) {
    result = CValue(0);
    return CStatus::OK;
  }

  std::vector<std::shared_ptr<Parameter>> params;
  for (const auto& object : objects) {
    if (auto param = std::dynamic_pointer_cast<Parameter>(object)) {
      params.push_back(param);
      continue;
    }
    CollectParameters(*object, params);
    auto x3d = std::dynamic_pointer_cast<X3D>(object);
    if (branch && x3d) {
      for (const auto& d : Descendants(*x3d)) CollectParameters(*d, params);
    }
  }
  std::set<const Parameter*> done;
  long removed = 0;
  for (const auto& param : params) {
    if (!done.insert(param.get()).second || !param->fcurve || !Matches(*param, filter)) continue;
    Destroy(param->fcurve);
    ++removed;
  }
  result = CValue(removed);
  return CStatus::OK;
}

// ---- EnumElements / AddMixerTrack -------------------------------------------------------------

CStatus EnumElements(const CValueArray& args, CValue& result) {
  constexpr std::wstring_view kCmd = L"EnumElements";
  auto object = ArgObject(Arg(args, 0));
  if (!object) return ArgError(kCmd, L"nothing answers to " + Quoted(Arg(args, 0)) + L".");
  CValueArray out;
  auto add = [&out](const std::shared_ptr<Object>& o) {
    if (o) out.Add(CValue(CRef(o)));
  };
  if (auto container = std::dynamic_pointer_cast<Container>(object)) {
    for (const auto& item : container->items) add(item);
  } else if (auto source = std::dynamic_pointer_cast<ActionSourceObject>(object)) {
    for (const auto& item : source->items) add(item);
  } else if (auto x3d = std::dynamic_pointer_cast<X3D>(object)) {
    for (const auto& child : x3d->children) add(child);
    for (const auto& property : x3d->properties) add(property);
    if (auto model = std::dynamic_pointer_cast<ModelObject>(x3d)) {
      add(model->sources);
      add(model->mixer);
    }
  } else {
    for (const auto& property : object->properties) add(property);
    for (const auto& param : object->params) add(param);
  }
  result = CValue(out);
  return CStatus::OK;
}

CStatus AddMixerTrack(const CValueArray& args, CValue& result) {
  constexpr std::wstring_view kCmd = L"AddMixerTrack";
  std::shared_ptr<ModelObject> model;
  if (CStatus status = ArgModel(kCmd, args, 0, model); !status.Succeeded()) return status;
  std::wstring name = Arg(args, 1).IsEmpty() ? L"Track" : Arg(args, 1).GetAsText().Wide();
  if (!IsCleanName(name))
    return ArgError(kCmd, L"the name \"" + name + L"\" is empty or holds '.' or ','.");
  if (!model->mixer) {
    auto mixer = std::make_shared<Container>(L"Mixer", siMixerID);
    mixer->owner = model;
    auto tracks = std::make_shared<Container>(L"AnimTracks");
    tracks->owner = mixer;
    mixer->items.push_back(tracks);
    model->mixer = mixer;
  }
  auto tracks = std::dynamic_pointer_cast<Container>(model->mixer->Lookup(L"AnimTracks"));
  if (!tracks) return ArgError(kCmd, model->mixer->FullName() + L" has no AnimTracks.");
  std::wstring unique = name;
  for (int n = 1; tracks->Lookup(unique); ++n) unique = name + std::to_wstring(n);
  auto track = std::make_shared<Object>(siTrackID, unique, L"Track");
  track->owner = tracks;
  tracks->items.push_back(track);
  result = CValue(CRef(track));
  return CStatus::OK;
}

}  // namespace

ZYRA_HOST_COMMAND(L"SetKey", SetKey);
ZYRA_HOST_COMMAND(L"RemoveKey", RemoveKey);
ZYRA_HOST_COMMAND(L"StoreAction", StoreAction);
ZYRA_HOST_COMMAND(L"ApplyAction", ApplyAction);
ZYRA_HOST_COMMAND(L"RemoveAllAnimation", RemoveAllAnimation);
ZYRA_HOST_COMMAND(L"EnumElements", EnumElements);
ZYRA_HOST_COMMAND(L"AddMixerTrack", AddMixerTrack);

}  // namespace Zyra::rt
