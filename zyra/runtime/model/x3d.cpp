// 3D objects and models as objects of the graph: ownership of their children, primitive,
// envelopes, sources and mixer, their name spaces, full names and lookup. (Making, naming and
// parenting them in the open scene is the scene graph's: scene_graph.cpp.)
#include <algorithm>

#include "model/model.h"

namespace Zyra::rt {

namespace {

bool IsLocalChannel(std::wstring_view name) {
  for (const wchar_t* c : kLocalChannels) {
    if (name == c) return true;
  }
  return false;
}

std::shared_ptr<X3D> FindInNameSpace(const ModelObject& space, std::wstring_view name) {
  std::shared_ptr<X3D> found;
  VisitNameSpace(space, [&](const std::shared_ptr<X3D>& o) {
    if (o->name == name) found = o;
    return found != nullptr;
  });
  return found;
}

}  // namespace

// ---- X3D --------------------------------------------------------------------------------------

X3D::X3D(siClassID id, std::wstring name_, std::wstring type_)
    : Object(id, std::move(name_), std::move(type_)) {}

std::shared_ptr<X3D> X3D::Parent() const { return std::dynamic_pointer_cast<X3D>(Owner()); }

std::shared_ptr<ModelObject> X3D::NameSpace() const {
  for (auto p = Parent(); p; p = p->Parent()) {
    if (p->classId == siModelID) return std::static_pointer_cast<ModelObject>(p);
  }
  return nullptr;
}

std::wstring X3D::FullName() const {
  auto space = NameSpace();
  if (!space || !space->Owner()) return name;  // the scene root, or its name space
  return space->FullName() + L"." + name;
}

void X3D::ForEachOwned(const std::function<void(const std::shared_ptr<Object>&)>& visit) const {
  Object::ForEachOwned(visit);
  if (primitive) visit(primitive);
  for (const auto& e : envelopes) visit(e);
  for (const auto& c : children) visit(c);
}

bool X3D::Release(const Object* child) {
  if (primitive.get() == child) {
    primitive.reset();
    return true;
  }
  return EraseFromChildren(child) || Object::Release(child);
}

bool X3D::EraseFromChildren(const Object* child) {
  auto match = [child](const auto& item) { return item.get() == child; };
  auto c = std::find_if(children.begin(), children.end(), match);
  if (c != children.end()) {
    children.erase(c);
    return true;
  }
  auto e = std::find_if(envelopes.begin(), envelopes.end(), match);
  if (e != envelopes.end()) {
    envelopes.erase(e);
    return true;
  }
  return false;
}

std::shared_ptr<Object> X3D::Lookup(std::wstring_view wanted) const {
  if (auto found = Object::Lookup(wanted)) return found;
  if (IsLocalChannel(wanted)) return local->Lookup(wanted);
  if (primitive) {
    if (primitive->name == wanted) return primitive;
    if (auto p = primitive->Lookup(wanted)) return p;
  }
  return nullptr;
}

// ---- ModelObject ------------------------------------------------------------------------------

ModelObject::ModelObject(std::wstring name_) : X3D(siModelID, std::move(name_), L"#model") {}

void ModelObject::ForEachOwned(
    const std::function<void(const std::shared_ptr<Object>&)>& visit) const {
  X3D::ForEachOwned(visit);
  if (sources) visit(sources);
  if (mixer) visit(mixer);
}

bool ModelObject::Release(const Object* child) {
  if (mixer.get() == child) {
    mixer.reset();
    return true;
  }
  return X3D::Release(child);
}

std::shared_ptr<Object> ModelObject::Lookup(std::wstring_view wanted) const {
  if (wanted == L"Sources") return sources;
  if (wanted == L"Mixer" && mixer) return mixer;
  if (auto found = FindInNameSpace(*this, wanted)) return found;
  return X3D::Lookup(wanted);
}

std::vector<std::shared_ptr<X3D>> Descendants(const X3D& object) {
  std::vector<std::shared_ptr<X3D>> out;
  std::function<void(const X3D&)> walk = [&](const X3D& o) {
    for (const auto& c : o.children) {
      out.push_back(c);
      walk(*c);
    }
  };
  walk(object);
  return out;
}

}  // namespace Zyra::rt
