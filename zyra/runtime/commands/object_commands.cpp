// Host commands that build and edit the scene: creation, parenting, renaming, deletion,
// selection, groups and envelopes. Each returns what it makes.
#include <cwchar>
#include <sstream>

#include "host/args.h"
#include "host/host.h"
#include "model/geometry_builders.h"
#include "model/model.h"
#include "model/scene_graph.h"

namespace Zyra::rt {

namespace {

// The parent argument at `i`: the scene root when empty, else a 3D object.
CStatus ParentArg(std::wstring_view command, const CValueArray& args, long i, std::shared_ptr<X3D>& out) {
  CValue v = Arg(args, i);
  if (v.IsEmpty() || (v.GetType() == siString && v.GetAsText().IsEmpty())) {
    out = Host::Get().scene().root;
    return CStatus::OK;
  }
  out = std::dynamic_pointer_cast<X3D>(ArgObject(v));
  if (!out) return ArgError(command, Quoted(v) + L" is not a 3D object to put it under.");
  return CStatus::OK;
}

CStatus NameArg(std::wstring_view command, const CValueArray& args, long i, std::wstring& out) {
  CValue v = Arg(args, i);
  if (v.GetType() != siString || v.GetAsText().IsEmpty()) {
    return ArgError(command, L"argument " + std::to_wstring(i + 1) + L" must be a name.");
  }
  out = v.GetAsText().Wide();
  return CStatus::OK;
}

// Numbers from an array value or from a text of numbers separated by commas or blanks.
CStatus NumbersArg(std::wstring_view command, const CValue& v, std::vector<double>& out) {
  out.clear();
  if (v.GetType() == siArray) {
    for (const CValue& item : v.AsArray()) {
      CValue d;
      if (!item.ChangeType(siDouble, d).Succeeded())
        return ArgError(command, Quoted(item) + L" is not a number.");
      out.push_back(d.AsDouble());
    }
    return CStatus::OK;
  }
  std::wstring text = v.GetAsText().Wide();
  for (wchar_t& c : text) {
    if (c == L',') c = L' ';
  }
  std::wistringstream in(text);
  std::wstring token;
  while (in >> token) {
    CValue d;
    if (!CValue(CString(token)).ChangeType(siDouble, d).Succeeded()) {
      return ArgError(command, L"\"" + token + L"\" is not a number.");
    }
    out.push_back(d.AsDouble());
  }
  return CStatus::OK;
}

CStatus Made(const std::shared_ptr<Object>& object, CValue& result) {
  result = CValue(CRef(object));
  return CStatus::OK;
}

CStatus CreateKind(std::wstring_view command, const CValueArray& args, CValue& result, siClassID id,
                   const wchar_t* type) {
  std::wstring name;
  std::shared_ptr<X3D> parent;
  CStatus s = NameArg(command, args, 0, name);
  if (s.Succeeded()) s = ParentArg(command, args, 1, parent);
  if (!s.Succeeded()) return s;
  return Made(CreateX3D(parent, id, type, name), result);
}

CStatus CreateNullCommand(const CValueArray& args, CValue& result) {
  return CreateKind(L"CreateNull", args, result, siX3DObjectID, L"null");
}
CStatus CreateModelCommand(const CValueArray& args, CValue& result) {
  return CreateKind(L"CreateModel", args, result, siModelID, L"#model");
}
CStatus CreateLightCommand(const CValueArray& args, CValue& result) {
  return CreateKind(L"CreateLight", args, result, siLightID, L"light");
}
CStatus CreateCameraCommand(const CValueArray& args, CValue& result) {
  return CreateKind(L"CreateCamera", args, result, siCameraID, L"camera");
}

CStatus CreatePrimitiveCommand(const CValueArray& args, CValue& result) {
  const wchar_t* command = L"CreatePrimitive";
  std::wstring preset, name;
  std::shared_ptr<X3D> parent;
  CStatus s = NameArg(command, args, 0, preset);
  if (s.Succeeded()) s = NameArg(command, args, 1, name);
  if (s.Succeeded()) s = ParentArg(command, args, 2, parent);
  if (!s.Succeeded()) return s;
  if (preset != L"Cube" && preset != L"Sphere") {
    return ArgError(command, L"unknown primitive \"" + preset + L"\" (Cube or Sphere).");
  }
  return Made(CreatePrimitiveObject(parent, preset, name), result);
}

CStatus CreatePolygonMeshCommand(const CValueArray& args, CValue& result) {
  const wchar_t* command = L"CreatePolygonMesh";
  std::wstring name;
  std::vector<double> points, polygonNumbers;
  std::shared_ptr<X3D> parent;
  CStatus s = NameArg(command, args, 0, name);
  if (s.Succeeded()) s = NumbersArg(command, Arg(args, 1), points);
  if (s.Succeeded()) s = NumbersArg(command, Arg(args, 2), polygonNumbers);
  if (s.Succeeded()) s = ParentArg(command, args, 3, parent);
  if (!s.Succeeded()) return s;
  std::vector<long> polygons(polygonNumbers.begin(), polygonNumbers.end());
  s = CheckPolygonData(points, polygons);
  if (!s.Succeeded()) return ArgError(command, s.GetMessage().Wide());
  auto mesh = CreateX3D(parent, siX3DObjectID, L"polymsh", name);
  SetMesh(mesh, points, polygons);
  return Made(mesh, result);
}

// CreateChain(name, parent, rootX, rootY, rootZ, endX, endY, endZ, ...): one bone per end.
CStatus CreateChainCommand(const CValueArray& args, CValue& result) {
  const wchar_t* command = L"CreateChain";
  std::wstring name;
  std::shared_ptr<X3D> parent;
  CStatus s = NameArg(command, args, 0, name);
  if (s.Succeeded()) s = ParentArg(command, args, 1, parent);
  if (!s.Succeeded()) return s;
  std::vector<double> numbers;
  for (long i = 2; i < args.GetCount(); ++i) {
    std::vector<double> some;
    s = NumbersArg(command, args[i], some);
    if (!s.Succeeded()) return s;
    numbers.insert(numbers.end(), some.begin(), some.end());
  }
  if (numbers.size() < 6 || numbers.size() % 3 != 0) {
    return ArgError(command, L"needs a root position and at least one bone end (x y z each).");
  }
  std::vector<MATH::CVector3> ends;
  for (size_t i = 3; i < numbers.size(); i += 3) ends.emplace_back(numbers[i], numbers[i + 1], numbers[i + 2]);
  return Made(CreateChain(parent, name, MATH::CVector3(numbers[0], numbers[1], numbers[2]), ends), result);
}

CStatus ParentObjCommand(const CValueArray& args, CValue& result) {
  const wchar_t* command = L"ParentObj";
  std::shared_ptr<X3D> parent;
  CStatus s = ParentArg(command, args, 0, parent);
  if (!s.Succeeded()) return s;
  std::vector<std::shared_ptr<Object>> children;
  s = ArgObjects(Arg(args, 1), children);
  if (!s.Succeeded()) return ArgError(command, s.GetMessage().Wide());
  if (children.empty()) return ArgError(command, L"no object to parent.");
  for (const auto& c : children) {
    auto child = std::dynamic_pointer_cast<X3D>(c);
    if (!child) return ArgError(command, c->FullName() + L" is not a 3D object.");
    s = Reparent(child, parent);
    if (!s.Succeeded()) return ArgError(command, s.GetMessage().Wide());
  }
  result = CValue(CRef(children.front()));
  return CStatus::OK;
}

CStatus RenameCommand(const CValueArray& args, CValue& result) {
  const wchar_t* command = L"Rename";
  auto object = ArgObject(Arg(args, 0));
  if (!object) return ArgError(command, L"no object is named \"" + Arg(args, 0).GetAsText().Wide() + L"\".");
  std::wstring name;
  CStatus s = NameArg(command, args, 1, name);
  if (!s.Succeeded()) return s;
  if (object == Host::Get().scene().root) return ArgError(command, L"Scene_Root cannot be renamed.");
  Rename(object, name);
  result = CValue(CRef(object));
  return CStatus::OK;
}

// What DeleteObj may remove: scene objects, user properties, sources, groups, tracks.
bool Deletable(const Object& o) {
  if (o.classId == siModelID && !o.Owner()) return false;  // the scene root
  if (IsX3DObjectClass(o.classId)) return true;
  switch (o.classId) {
    case siCustomPropertyID:
    case siUserDataBlobID:
    case siActionSourceID:
    case siGroupID:
    case siTrackID:
    case siEnvelopeID:
      return true;
    case siPropertyID:
      return o.name == L"Display Property" || o.type == L"Custom_parameter_list";
    default:
      return false;
  }
}

CStatus DeleteObjCommand(const CValueArray& args, CValue&) {
  const wchar_t* command = L"DeleteObj";
  std::vector<std::shared_ptr<Object>> objects;
  CStatus s = ArgObjects(Arg(args, 0), objects);
  if (!s.Succeeded()) return ArgError(command, s.GetMessage().Wide());
  for (const auto& o : objects) {
    if (!Deletable(*o)) return ArgError(command, o->FullName() + L" cannot be deleted.");
  }
  for (const auto& o : objects) {
    if (o->alive) Destroy(o);
  }
  return CStatus::OK;
}

CStatus SelectObjCommand(const CValueArray& args, CValue&) {
  std::vector<std::shared_ptr<Object>> objects;
  CStatus s = ArgObjects(Arg(args, 0), objects);
  if (!s.Succeeded()) return ArgError(L"SelectObj", s.GetMessage().Wide());
  auto& selection = Host::Get().scene().selection;
  selection.clear();
  for (const auto& o : objects) selection.push_back(o);
  return CStatus::OK;
}

CStatus AddToSelectionCommand(const CValueArray& args, CValue&) {
  std::vector<std::shared_ptr<Object>> objects;
  CStatus s = ArgObjects(Arg(args, 0), objects);
  if (!s.Succeeded()) return ArgError(L"AddToSelection", s.GetMessage().Wide());
  for (const auto& o : objects) Host::Get().scene().selection.push_back(o);
  return CStatus::OK;
}

CStatus DeselectAllCommand(const CValueArray&, CValue&) {
  Host::Get().scene().selection.clear();
  return CStatus::OK;
}

CStatus CreateGroupCommand(const CValueArray& args, CValue& result) {
  const wchar_t* command = L"CreateGroup";
  std::wstring name;
  CStatus s = NameArg(command, args, 0, name);
  if (!s.Succeeded()) return s;
  std::vector<std::shared_ptr<Object>> members;
  if (!Arg(args, 1).IsEmpty()) {
    s = ArgObjects(Arg(args, 1), members);
    if (!s.Succeeded()) return ArgError(command, s.GetMessage().Wide());
  }
  Scene& scene = Host::Get().scene();
  auto group = std::make_shared<GroupObject>(UniqueName(*scene.root, name, nullptr));
  group->owner = scene.groups;
  for (const auto& m : members) group->members.push_back(m);
  scene.groups->items.push_back(group);
  return Made(group, result);
}

// ApplyEnvelope(mesh, deformers ...): deformers as further arguments or a comma list.
CStatus ApplyEnvelopeCommand(const CValueArray& args, CValue& result) {
  const wchar_t* command = L"ApplyEnvelope";
  auto mesh = std::dynamic_pointer_cast<X3D>(ArgObject(Arg(args, 0)));
  if (!mesh) return ArgError(command, Quoted(Arg(args, 0)) + L" is not a 3D object.");
  std::vector<std::shared_ptr<X3D>> deformers;
  for (long i = 1; i < args.GetCount(); ++i) {
    std::vector<std::shared_ptr<Object>> some;
    CStatus s = ArgObjects(args[i], some);
    if (!s.Succeeded()) return ArgError(command, s.GetMessage().Wide());
    for (const auto& o : some) {
      auto x = std::dynamic_pointer_cast<X3D>(o);
      if (!x) return ArgError(command, o->FullName() + L" is not a 3D object.");
      deformers.push_back(x);
    }
  }
  CStatus s = AddEnvelope(mesh, deformers);
  if (!s.Succeeded()) return ArgError(command, s.GetMessage().Wide());
  return Made(mesh->envelopes.back(), result);
}

CStatus SetDeformerWeightsCommand(const CValueArray& args, CValue&) {
  const wchar_t* command = L"SetDeformerWeights";
  auto mesh = std::dynamic_pointer_cast<X3D>(ArgObject(Arg(args, 0)));
  if (!mesh || mesh->envelopes.empty()) {
    return ArgError(command, Quoted(Arg(args, 0)) + L" has no envelope.");
  }
  auto deformer = ArgObject(Arg(args, 1));
  if (!deformer) return ArgError(command, L"no object is named \"" + Arg(args, 1).GetAsText().Wide() + L"\".");
  std::vector<double> weights;
  CStatus s = NumbersArg(command, Arg(args, 2), weights);
  if (!s.Succeeded()) return s;
  for (const auto& e : mesh->envelopes) {
    for (const auto& d : e->deformers) {
      if (d.lock() == deformer) {
        s = SetEnvelopeWeights(*e, deformer, weights);
        return s.Succeeded() ? s : ArgError(command, s.GetMessage().Wide());
      }
    }
  }
  return ArgError(command, deformer->FullName() + L" does not deform " + mesh->FullName() + L".");
}

}  // namespace

ZYRA_HOST_COMMAND(L"CreateNull", CreateNullCommand);
ZYRA_HOST_COMMAND(L"CreateModel", CreateModelCommand);
ZYRA_HOST_COMMAND(L"CreateLight", CreateLightCommand);
ZYRA_HOST_COMMAND(L"CreateCamera", CreateCameraCommand);
ZYRA_HOST_COMMAND(L"CreatePrimitive", CreatePrimitiveCommand);
ZYRA_HOST_COMMAND(L"CreatePolygonMesh", CreatePolygonMeshCommand);
ZYRA_HOST_COMMAND(L"CreateChain", CreateChainCommand);
ZYRA_HOST_COMMAND(L"ParentObj", ParentObjCommand);
ZYRA_HOST_COMMAND(L"Rename", RenameCommand);
ZYRA_HOST_COMMAND(L"DeleteObj", DeleteObjCommand);
ZYRA_HOST_COMMAND(L"SelectObj", SelectObjCommand);
ZYRA_HOST_COMMAND(L"AddToSelection", AddToSelectionCommand);
ZYRA_HOST_COMMAND(L"DeselectAll", DeselectAllCommand);
ZYRA_HOST_COMMAND(L"CreateGroup", CreateGroupCommand);
ZYRA_HOST_COMMAND(L"ApplyEnvelope", ApplyEnvelopeCommand);
ZYRA_HOST_COMMAND(L"SetDeformerWeights", SetDeformerWeightsCommand);

}  // namespace Zyra::rt
