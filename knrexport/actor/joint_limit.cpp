// Joint limits: the KinraJL property on an initialized node.
#include "knrexport/actor/joint_limit.h"

#include "knrexport/actor/option_properties.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/tags.h"

using namespace Zyra;

bool AddKinraJL(X3DObject& node) {
  if (!HasTag(node, kTagNode)) {
    ShowMessage(
        L"The Add Joint Limit action requires the selected node to be initialized.\n"
        L"Please initialize the actor and try again.");
    return false;
  }
  X3DObject parent(node.GetParent());
  if (parent.IsValid() && parent.GetClassID() == siModelID) {
    ShowMessage(L"The Add Joint Limit action can not be applied to the root node of an actor.");
    return false;
  }
  if (HasTag(node, kTagJointLimit)) return true;
  // The module registers KinraJL as a property type. Where it is not registered (the plug-in's
  // code linked without the module) the same parameters go on a plain custom property.
  CustomProperty limits = node.AddProperty(kTagJointLimit, false, kTagJointLimit);
  if (!limits.IsValid()) {
    limits = node.AddProperty(L"Custom_parameter_list", false, kTagJointLimit);
    if (!limits.IsValid()) return false;
    DefineKinraJL(limits);
  }
  return true;
}

bool RemoveJointLimit(X3DObject& node) {
  Property limits;
  if (!FindProperty(node, kTagJointLimit, limits)) return false;
  DeleteObj(limits.GetFullName());
  return true;
}
