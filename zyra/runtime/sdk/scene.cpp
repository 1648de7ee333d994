// SDK handles for groups and passes.
#include "zyra/scene.h"

#include "model/model.h"

namespace Zyra {

Group::Group(const CRef& ref) : SceneItem(ref, [](siClassID id) { return id == siGroupID; }) {}

CRefArray Group::GetMembers() const {
  CRefArray out;
  if (auto g = std::dynamic_pointer_cast<rt::GroupObject>(ref_.Get())) {
    for (const auto& m : g->members) {
      if (auto o = m.lock(); o && o->alive) out.Add(CRef(o));
    }
  }
  return out;
}

CStatus Group::AddMember(const CRef& member) {
  auto g = std::dynamic_pointer_cast<rt::GroupObject>(ref_.Get());
  auto o = member.Get();
  if (!g) return CStatus(CStatus::InvalidArgument, L"The group was deleted.");
  if (!o) return CStatus(CStatus::InvalidArgument, L"Cannot add a deleted object to a group.");
  for (const auto& m : g->members) {
    if (m.lock() == o) return CStatus::OK;
  }
  g->members.push_back(o);
  return CStatus::OK;
}

Pass::Pass(const CRef& ref) : SceneItem(ref, [](siClassID id) { return id == siPassID; }) {}

}  // namespace Zyra
