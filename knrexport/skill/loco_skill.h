// Locomotion skills: the travelling motion of an action source factored out of the body, and
// foot contacts keyed, made in place on a generated actor.
//
// After the conversion, at every whole frame of the source:
//  1. the root carries only the forward travel (its z; x and y stay 0) and the heading about the
//     vertical axis;
//  2. root x COG reproduces the body (root x COG as the source played) exactly in the ground
//     plane, and in height up to one constant shift that puts the lowest bottom of the actor's
//     collision spheres over the whole motion at 0 (no shift when the actor has no spheres);
//  3. the heading follows the body's forward axis, or the opposite direction when that is the
//     closer of the two to the previous frame's heading, so a body that turns to face the other
//     way does not spin the root round;
//  4. no rotation channel of the root or the COG jumps by a whole turn between two keys.
// Every collision sphere of the actor counts for the shift, wherever it hangs in the hierarchy.
#pragma once

#include <vector>

#include "knrexport/math/drv_math.h"

#include "zyra/action.h"
#include "zyra/ui.h"
#include "zyra/x3dobject.h"

// Converts `source` into a Locomotion skill ("type" 2) with foot contacts found at `threshold`
// (0..1); with `useProgress` a bar "Making Loco Skill" shows the frames. False, with a message,
// for a source actor (no RTKActor on the root) or an actor without feet; false when the root is
// missing (the lookup reports). A foot whose contacts fail is reported and the skill is stored
// all the same. `source` then refers to the stored skill.
bool MakeLocoSkill(Zyra::Model& model, Zyra::ActionSource& source, float threshold, bool useProgress);
// Empties the fcurves of the source's items that an earlier conversion keyed: those aimed at the
// RTKActor channels and at RTKEffector.Contact.
void RemoveLocoKeys(Zyra::ActionSource& source);
// Factors the rig's current animation over the source's whole frames (invariants 1 to 4). False
// when the actor has no root or COG.
bool FactorLoco(Zyra::Model& model, Zyra::ActionSource& source, bool useProgress);
// Keys the six channels of root and COG at every frame start .. end - 1 with the values they
// play now (linear keys, rule 2 of skill_channels.h), replacing their keys over that range. The
// local transforms it sampled are handed back when asked for.
void EnsureKeysOnRootandCog(Zyra::X3DObject& root, Zyra::X3DObject& cog, int start, int end,
                            Zyra::ProgressBar& bar, std::vector<DrvTransform>* rootSamples = nullptr,
                            std::vector<DrvTransform>* cogSamples = nullptr);
// Keeps every rotation curve of root and COG free of whole-turn jumps: the keys outside
// start .. end - 1 are moved by whole turns towards the range (the keys inside are continuous as
// written), then corrects the root's translation. The pose the rig plays never changes.
void NormalizeLoco(Zyra::ActionSource& source, Zyra::X3DObject& root, Zyra::X3DObject& cog, int start,
                   int end, Zyra::ProgressBar& bar);
// Makes the root's translation curves linear: the travel is one straight segment between any
// two frames, as the runtime plays it.
void CorrectLocoTranslation(Zyra::X3DObject& root, int start, int end);
