// Scene-level objects: groups and render passes.
#pragma once

#include "zyra/object.h"

namespace Zyra {

// A named set of scene objects.
class ZYRA_API Group : public SceneItem {
 public:
  Group() = default;
  Group(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(Group)
  CRefArray GetMembers() const;
  CStatus AddMember(const CRef& member);
};

// A render pass: "ArchiveFileName" and "renderer.ArchiveAsciiOutput" steer render archives.
class ZYRA_API Pass : public SceneItem {
 public:
  Pass() = default;
  Pass(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(Pass)
};

}  // namespace Zyra
