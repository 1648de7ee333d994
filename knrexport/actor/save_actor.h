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
// The actor file and the weight file are written to temporary files of their own beside the
// targets and put in place together (actor_file_writer.h): a failed save, a full disk or a
// concurrent save into the same folder never leaves an actor file beside a weight file of
// another save, nor a temporary file.
//
// Load Actor reads only regular files: an actor file that is a folder, a FIFO or a device is
// refused by its name before anything is read; a weight file of that kind is refused by its name
// and the actor is loaded without it. An actor file that the host's importer rejects adds
// nothing, and the importer's reason is shown.
//
// Both commands start their dialog in the folder remembered in the scene root's "ActorFile"
// property ("InitDir"). Load Actor creates the property when it starts, before its dialog (so a
// cancelled load leaves it); Save Actor only once a file has been chosen, so that a save that
// ends without a file changes nothing.
#pragma once

#include "zyra/x3dobject.h"

// The file dialogs' filter.
inline constexpr const wchar_t* kActorFileFilter = L"Actor (*.zyra)|*.zyra||";

// The Save Actor command's operation on the selected node; true when both files were written.
bool SaveActor(Zyra::X3DObject& selected);
// The Load Actor command's operation; true when an actor was added to the scene.
bool LoadActor();

// The scene root's "ActorFile" property, created with "InitDir" set to the user's folder when it
// is missing.
Zyra::Property AddActorFileProperty();
// Asks for an actor file in the dialog titled `title` (to open or to save), starting in the
// remembered folder, and remembers the chosen file's folder. Empty when cancelled.
Zyra::CString ChooseActorFile(const Zyra::CString& title, bool open);
