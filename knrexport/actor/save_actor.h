// Saving a generated actor to an actor file (the host's scene format) with its weight file, and
// loading both back.
//
// Save Actor accepts only a generated actor (its root carries RTKActor) in a model of its own
// without embedded models. The file is asked for before anything is touched, so a cancelled
// dialog changes nothing. Then, when the source actor the actor was generated from is still in
// the scene (the model named like the actor without its "Knr" prefix), the spheres, floors and
// envelope weights are brought up to date from it; the weight maps are collected; and when the
// model holds action sources (skills), the fcurves on the actor are dropped and it goes to its
// home pose: the sources carry the motion, and the file keeps the actor at rest. An actor without
// sources keeps its fcurves, its only animation. A LoopSkill page left on the root is deleted.
// The actor file and the weight file are written to temporary files beside the targets and
// renamed over them, so a failed save leaves the older files as they were (the older weight file
// is put back when the actor file fails after it).
//
// Both commands start their dialog in the folder remembered in the scene root's "ActorFile"
// property ("InitDir"), which is created when a file has been chosen, never before.
#pragma once

#include "zyra/x3dobject.h"

// The file dialogs' filter.
inline constexpr const wchar_t* kActorFileFilter = L"Actor (*.zyra)|*.zyra||";

// The Save Actor command's operation on the selected node; true when both files were written.
bool SaveActor(Zyra::X3DObject& selected);
// The Load Actor command's operation; true when an actor was added to the scene.
bool LoadActor();

// Asks for an actor file in the dialog titled `title` (to open or to save), starting in the
// remembered folder, and remembers the chosen file's folder. Empty when cancelled.
Zyra::CString ChooseActorFile(const Zyra::CString& title, bool open);
