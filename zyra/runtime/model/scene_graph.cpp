// The scene graph (rules in scene_graph.h): 3D objects' built-in properties, creation, parenting,
// unique names, renaming, path lookup and the open scene.
#include <algorithm>
#include <cwctype>
#include <set>

#include "model/scene_graph.h"

namespace Zyra::rt {

namespace {

// Reads one channel of a transform: 0..2 translation, 3..5 rotation (degrees), 6..8 scaling.
double Channel(const MATH::CTransformation& t, int channel) {
  constexpr double kRadToDeg = 57.29577951308232;
  MATH::CVector3 v = channel < 3   ? t.GetTranslation()
                     : channel < 6 ? t.GetRotationXYZAngles() * kRadToDeg
                                   : t.GetScaling();
  int axis = channel % 3;
  return axis == 0 ? v.GetX() : axis == 1 ? v.GetY() : v.GetZ();
}

MATH::CTransformation WithChannel(MATH::CTransformation t, int channel, double value) {
  constexpr double kDegToRad = 0.017453292519943295;
  int axis = channel % 3;
  auto set = [axis, value](MATH::CVector3 v) {
    if (axis == 0) v.PutX(value);
    if (axis == 1) v.PutY(value);
    if (axis == 2) v.PutZ(value);
    return v;
  };
  if (channel < 3) {
    t.SetTranslation(set(t.GetTranslation()));
  } else if (channel < 6) {
    MATH::CVector3 deg = t.GetRotationXYZAngles() * (1.0 / kDegToRad);
    t.SetRotationFromXYZAngles(set(deg) * kDegToRad);
  } else {
    t.SetScaling(set(t.GetScaling()));
  }
  return t;
}

// Gives a new 3D object its "kine" (with "local" and "global") and "visibility" properties.
void AddBuiltins(const std::shared_ptr<X3D>& object) {
  object->kine = CreateProperty(object, siKinematicsID, L"kine", L"kine");
  object->local = CreateProperty(object->kine, siKinematicStateID, L"local", L"local");
  object->global = CreateProperty(object->kine, siKinematicStateID, L"global", L"global");
  for (int c = 0; c < 9; ++c) {
    double def = c >= 6 ? 1.0 : 0.0;
    object->local->AddParam(MakeParam(kLocalChannels[c], siDouble, CValue(def)));
    auto global = MakeParam(kLocalChannels[c], siDouble, CValue(def), {}, {}, kAnimatable);
    std::weak_ptr<X3D> weak = object;
    global->getter = [weak, c](double frame) {
      auto o = weak.lock();
      return CValue(o ? Channel(o->GlobalTransform(frame), c) : 0.0);
    };
    global->setter = [weak, c](const CValue& v, double frame) {
      auto o = weak.lock();
      if (!o) return CStatus(CStatus::Fail, L"The object was deleted.");
      return o->PutGlobalTransform(WithChannel(o->GlobalTransform(frame), c, v.AsDouble()), frame);
    };
    object->global->AddParam(global);
  }
  object->visibility = CreateProperty(object, siPropertyID, L"visibility", L"visibility");
  object->visibility->AddParam(MakeParam(L"viewvis", siBool, CValue(true), {}, {}, kAnimatable | kPersistable));
  object->visibility->AddParam(MakeParam(L"rendvis", siBool, CValue(true), {}, {}, kAnimatable | kPersistable));
}

}  // namespace

// ---- Names ------------------------------------------------------------------------------------

std::wstring UniqueName(const ModelObject& space, const std::wstring& wanted, const Object* ignore) {
  std::set<std::wstring, std::less<>> taken;
  VisitNameSpace(space, [&](const std::shared_ptr<X3D>& o) {
    if (o.get() != ignore) taken.insert(o->name);
    return false;
  });
  if (!space.Owner()) {  // the scene root's name space also holds the scene-level groups
    for (const auto& g : OpenScene().groups->items) {
      if (g.get() != ignore) taken.insert(g->name);
    }
  }
  if (!taken.count(wanted)) return wanted;
  std::wstring base = wanted;
  while (!base.empty() && std::iswdigit(base.back())) base.pop_back();
  if (base.empty()) base = wanted;
  for (long n = 1;; ++n) {
    std::wstring candidate = base + std::to_wstring(n);
    if (!taken.count(candidate)) return candidate;
  }
}

namespace {

std::wstring CleanName(std::wstring name, const wchar_t* fallback) {
  // '.' separates path segments and cannot be part of a name.
  std::replace(name.begin(), name.end(), L'.', L'_');
  std::replace(name.begin(), name.end(), L',', L'_');
  return name.empty() ? fallback : name;
}

std::shared_ptr<ModelObject> SpaceOf(const std::shared_ptr<X3D>& parent) {
  if (parent->classId == siModelID) return std::static_pointer_cast<ModelObject>(parent);
  return parent->NameSpace();
}

}  // namespace

void Rename(const std::shared_ptr<Object>& object, std::wstring name) {
  if (auto x3d = std::dynamic_pointer_cast<X3D>(object)) {
    name = CleanName(std::move(name), L"null");
    auto space = x3d->NameSpace();
    x3d->name = space ? UniqueName(*space, name, x3d.get()) : name;
    return;
  }
  if (auto owner = object->Owner()) {
    std::wstring unique = name;
    auto taken = [&](const std::wstring& n) {
      auto other = owner->Lookup(n);
      return other && other != object;
    };
    for (int n = 1; taken(unique); ++n) unique = name + std::to_wstring(n);
    object->name = unique;
    return;
  }
  object->name = std::move(name);
}

// ---- Creation and parenting -------------------------------------------------------------------

namespace {

std::shared_ptr<X3D> Attach(const std::shared_ptr<X3D>& parent, std::shared_ptr<X3D> object,
                            const wchar_t* fallbackName) {
  auto space = SpaceOf(parent);
  object->name = CleanName(object->name, fallbackName);
  if (space) object->name = UniqueName(*space, object->name, nullptr);
  object->owner = parent;
  parent->children.push_back(object);
  AddBuiltins(object);
  return object;
}

}  // namespace

std::shared_ptr<X3D> CreateX3D(const std::shared_ptr<X3D>& parent, siClassID id, std::wstring type,
                               std::wstring name) {
  if (id == siModelID) return CreateModel(parent, std::move(name));
  auto object = std::make_shared<X3D>(id, std::move(name), std::move(type));
  return Attach(parent, object, object->type.c_str());
}

std::shared_ptr<ModelObject> CreateModel(const std::shared_ptr<X3D>& parent, std::wstring name) {
  auto model = std::make_shared<ModelObject>(std::move(name));
  if (parent) {
    Attach(parent, model, L"Model");
  } else {
    AddBuiltins(model);
  }
  model->sources = std::make_shared<Container>(L"Sources");
  model->sources->owner = model;
  return model;
}

CStatus Reparent(const std::shared_ptr<X3D>& child, const std::shared_ptr<X3D>& parent, bool keepGlobal) {
  if (!child || !parent) return CStatus(CStatus::InvalidArgument, L"No object to parent.");
  if (!child->Owner()) return CStatus(CStatus::InvalidArgument, L"The scene root cannot be parented.");
  for (auto p = parent; p; p = p->Parent()) {
    if (p == child) {
      return CStatus(CStatus::InvalidArgument,
                     L"Cannot put " + child->FullName() + L" under " + parent->FullName() +
                         L": it lies below it.");
    }
  }
  if (child->Parent() == parent) return CStatus::OK;
  double frame = CurrentFrame();
  MATH::CTransformation global = child->GlobalTransform(frame);
  auto old = child->Parent();
  old->EraseFromChildren(child.get());
  child->owner = parent;
  parent->children.push_back(child);
  if (auto space = SpaceOf(parent)) {
    // Names in the moved branch must be unique in their new name space.
    child->name = UniqueName(*space, child->name, child.get());
    if (child->classId != siModelID) {
      VisitNameSpace(*child, [&](const std::shared_ptr<X3D>& o) {
        o->name = UniqueName(*space, o->name, o.get());
        return false;
      });
    }
  }
  if (keepGlobal) return child->PutGlobalTransform(global, frame);
  return CStatus::OK;
}

// ---- Paths ------------------------------------------------------------------------------------

std::shared_ptr<Object> Resolve(std::wstring_view path) {
  if (path.empty()) return nullptr;
  Scene& scene = OpenScene();
  size_t dot = path.find(L'.');
  std::wstring_view first = path.substr(0, dot);
  std::shared_ptr<Object> current;
  if (first == L"Scene_Root") {
    current = scene.root;
  } else if (first == L"PlayControl") {
    current = scene.playControl;
  } else if (first == L"preferences") {
    current = scene.preferences;
  } else if (first == L"dotZyraExportOptions") {
    current = scene.exportOptions;
  } else if (first == L"Passes") {
    current = scene.passes;
  } else {
    current = scene.root->Lookup(first);
    if (!current) current = scene.groups->Lookup(first);
  }
  while (current && dot != std::wstring_view::npos) {
    size_t next = path.find(L'.', dot + 1);
    std::wstring_view segment = path.substr(dot + 1, next == std::wstring_view::npos ? next : next - dot - 1);
    current = current->Lookup(segment);
    dot = next;
  }
  if (current && !current->alive) return nullptr;
  return current;
}

// ---- The open scene -----------------------------------------------------------------------------

namespace {

// A new empty scene, built apart and then made the open one.
Scene MakeEmptyScene() {
  Scene scene;
  scene.groups = std::make_shared<Container>(L"Groups");
  scene.root = CreateModel(nullptr, L"Scene_Root");
  scene.passes = std::make_shared<Container>(L"Passes");
  CreatePass(scene.passes, L"Default_Pass");

  auto play = std::make_shared<Property>(siPropertyID, L"PlayControl", L"PlayControl");
  play->AddParam(MakeParam(L"Current", siDouble, CValue(1.0), {}, {}, kPersistable));
  play->AddParam(MakeParam(L"In", siDouble, CValue(1.0), {}, {}, kPersistable));
  play->AddParam(MakeParam(L"Out", siDouble, CValue(100.0), {}, {}, kPersistable));
  scene.playControl = play;

  auto prefs = std::make_shared<Property>(siPreferencesID, L"preferences", L"preferences");
  auto scripting = CreateProperty(prefs, siPropertyID, L"scripting", L"scripting");
  scripting->AddParam(MakeParam(L"cmdlog", siBool, CValue(true), {}, {}, kPersistable));
  auto output = CreateProperty(prefs, siPropertyID, L"output_format", L"output_format");
  output->AddParam(MakeParam(L"frame_rate", siDouble, CValue(30.0), CValue(0.001), CValue(1000.0),
                             kPersistable));
  scene.preferences = prefs;

  // Options of the scene-file export; the exporter reads custompset and animall.
  auto options = std::make_shared<Property>(siPropertyID, L"dotZyraExportOptions", L"dotZyraExportOptions");
  options->AddParam(MakeParam(L"output_file_format_version", siInt4, CValue(360), {}, {}, kPersistable));
  for (const wchar_t* flag : {L"tesselation", L"polymesh", L"nrbscrv", L"animall", L"custompset",
                              L"animplot", L"textures", L"txtfiles", L"txtabsolute", L"txtsequences"}) {
    bool on = std::wstring(flag) != L"animplot";
    options->AddParam(MakeParam(flag, siBool, CValue(on), {}, {}, kPersistable));
  }
  for (const wchar_t* number : {L"txtformat", L"txtresizex", L"txtresizey"}) {
    options->AddParam(MakeParam(number, siInt4, CValue(0), {}, {}, kPersistable));
  }
  scene.exportOptions = options;
  return scene;
}

}  // namespace

Scene& OpenScene() {
  static Scene scene = MakeEmptyScene();
  return scene;
}

void NewScene() {
  Scene& scene = OpenScene();
  if (scene.root) Destroy(scene.root);
  scene = MakeEmptyScene();
}

double CurrentFrame() { return OpenScene().playControl->FindParam(L"Current")->value.AsDouble(); }

double FrameRate() {
  auto p = Resolve(L"preferences.output_format.frame_rate");
  return p ? static_cast<Parameter&>(*p).value.AsDouble() : 30.0;
}

}  // namespace Zyra::rt
