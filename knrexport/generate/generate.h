// Generate: building a runtime actor from an initialized source actor description.
//
// GenerateActor checks the source (model, root, COG, initialized), asks for the options in the
// KinraGen page, clears the rig's fcurves keeping its posture, copies the hierarchy (CopyActor),
// initializes the copy, gives it the source's home pose and copies the model's actions onto it.
// A refused or cancelled run changes nothing but the selection (and leaves the KinraGen property
// it added). A copy that could not be built or initialized is deleted again. When one of the
// copied actions cannot be turned into the skill kind its source names, the converter has said
// why and the run fails, but the generated actor stays, with the actions copied so far: it is
// complete as an actor. Command logging is switched off for the run and restored on every exit.
#pragma once

#include "zyra/ui.h"
#include "zyra/x3dobject.h"

// The options as the KinraGen property holds them; `halfFactor` is Factor x 0.5.
struct GenerateOptions {
  bool envelope = false;
  bool box = true;
  bool removeExtra = true;
  bool removePoly = false;
  bool skill = true;
  bool cog = false;
  double halfFactor = 0.1;
};

// The command's operation on the selected node; true when the generated actor was built.
bool GenerateActor(Zyra::X3DObject& selected);
// Reads the options from a KinraGen property.
GenerateOptions ReadGenerateOptions(const Zyra::ProjectItem& kinraGen);
// The whole generation after the options were chosen: the pose bookkeeping, the copy, the
// initialization, the home pose and the actions. The progress bar's maximum must have been set
// by ComputeProgressBarSize. `generated` receives the generated model (invalid when the copy
// failed; valid, and false returned, when only an action's conversion failed).
bool BuildGeneratedActor(Zyra::Model& model, Zyra::X3DObject& root, const GenerateOptions& options,
                         Zyra::ProgressBar& bar, Zyra::Model& generated);
// The bar's maximum for a generation: n (2n with boxes) for the copy, 2 per deformer and
// envelope with envelopes, the action copy's share with skills, and 2n (4n with a home pose) for
// the initialization, where n is the model's node count.
long ComputeProgressBarSize(Zyra::Model& model, Zyra::X3DObject& root, bool skill, bool envelope,
                            bool box);
