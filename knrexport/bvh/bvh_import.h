// Building actors and actions from BVH motion-capture files.
#pragma once

#include "zyra/x3dobject.h"

// The Import BVH Actor command: options page (BVHActor on the scene root), then a new actor.
bool ImportBVHActor();
// Reads the file and builds the actor model (nulls or boxes posed at the first frame); an
// invalid model when the file cannot be read.
Zyra::Model LoadBvhActor(const Zyra::CString& path, const Zyra::CString& actorName,
                         const Zyra::CString& filter, const Zyra::CString& subtree, bool keepRoot,
                         bool boxes, float scale);
// The Import BVH Action command on the selected actor node.
bool ImportBVHAction(Zyra::X3DObject& selected);
// The scriptable import (KnrAddBVHAction): keys the file's motion on the actor's objects and
// stores it as the action source `actionName`.
bool AddBVHAction(Zyra::Model& actor, const Zyra::CString& path, const Zyra::CString& actionName,
                  float scale, bool optimize, const Zyra::CString& filter,
                  const Zyra::CString& subtree, bool keepRoot);
