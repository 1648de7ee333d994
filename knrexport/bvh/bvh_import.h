// Building actors and actions from BVH motion-capture files.
#pragma once

#include <string>
#include <vector>

#include "knrexport/bvh/bvh_file.h"
#include "zyra/object.h"
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

// ---- Shared by the two imports and the options page ------------------------------------------

// The BVHActor options property of `owner`, added when it has none (`added` then true). The
// plug-in's own property type when the module registered it, else a "Custom_parameter_list"
// named BVHActor with the same parameters.
Zyra::CustomProperty FindOrAddBVHActor(Zyra::X3DObject& owner, bool& added);
// Rebuilds the page layout of a BVHActor property from its "Mode": the actor group for 0, the
// action group otherwise.
void BuildBVHActorLayout(const Zyra::CustomProperty& property);
// Opens `path` and reads the hierarchy and the motion (only the first frame when asked). On any
// failure a message box names the file and what is wrong, and the result is false.
bool ReadBvhForImport(ZyraBvFile& file, MocapData& data, const Zyra::CString& path, float scale,
                      bool firstFrameOnly);
// ReadBvhForImport in two steps, for an import that takes the frames as they are parsed: the
// hierarchy and the motion header (records without samples, ready for RemoveBvhJoints), then the
// frames into `sink`. Each says what is wrong as ReadBvhForImport does, in the same order.
bool OpenBvhForImport(ZyraBvFile& file, MocapData& data, const Zyra::CString& path, float scale);
bool ReadBvhFramesForImport(ZyraBvFile& file, const MocapData& data, const Zyra::CString& path,
                            BvFrameSink& sink);
// Drops the joints whose names contain one of the ';'-separated `filter` tags, then the subtrees
// named in `subtree` (keeping their roots when asked). With `updateEndsites` the end sites are
// brought up to date before each step, so a joint left without children keeps the end it had.
void RemoveBvhJoints(ZyraBvFile& file, MocapData& data, const Zyra::CString& filter,
                     const Zyra::CString& subtree, bool keepRoot, bool updateEndsites);
// The message for a file that cannot be imported: "Cannot import the BVH file "path": why."
Zyra::CString BvhImportMessage(const Zyra::CString& path, const std::string& why);
// The scene name of a joint's object: the joint name with ':', '.' and ',' made '_'. The host
// turns '.' and ',' into '_' itself; ':' is mapped as well so that names stay plain words in
// scripts, and the actor import and the action import of one file agree on every name.
Zyra::CString BvhObjectName(const char* jointName);
// The scene names of the objects of every joint, in hierarchy order. A joint gets its
// BvhObjectName; when an earlier joint, or the actor's root null "GlobalSRT", has that name
// already (a file may repeat a name in two limbs), the name with the smallest number that no
// joint uses ("Hand", then "Hand1"). Both imports name objects this way, so a take's action finds
// every object that its actor import made. `repeated` receives each joint name met more than
// once (once each).
std::vector<Zyra::CString> BvhJointObjectNames(const ZyraBvHierarchy& hierarchy,
                                               std::vector<std::string>& repeated);
// Logs a warning that names the joints of `path` that occur more than once (nothing when none).
void WarnRepeatedJoints(const Zyra::CString& path, const std::vector<std::string>& repeated);
// The name of an actor's root null, which holds the root joints.
inline constexpr const wchar_t* kBvhRootNull = L"GlobalSRT";
