// Joint limits: the KinraJL property on an initialized node.
#pragma once

#include "zyra/x3dobject.h"

// Adds KinraJL to an initialized node other than the actor's root; refusals are message boxes.
bool AddKinraJL(Zyra::X3DObject& node);
// Deletes the node's KinraJL; nothing happens without one.
bool RemoveJointLimit(Zyra::X3DObject& node);
