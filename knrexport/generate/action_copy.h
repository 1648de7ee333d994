// Copying a source actor's actions onto its generated actor.
//
// Each action source of the source model becomes a source of the same name (numbered by the host
// when taken), FrameStart, FrameEnd and "type" on the generated model, and moves the generated
// actor exactly as the source moved the source rig:
//  1. A generated node whose parent is the copy of its source parent, with no scaling on its
//     source or the source's ancestors, takes the source's transform items as they are (fcurves
//     copied key for key, static values kept).
//  2. Any other generated node (its parent changed because nodes were left out or an effector
//     was moved, or scaling was frozen) is plotted: its local position and rotation are keyed
//     (linear keys) at every frame from FrameStart to FrameEnd and at every key of the curves
//     that drive it, from the source rig's global pose evaluated through the action. Plotting
//     is skipped when nothing on the node's source path is animated by the action.
//  3. Items on other parameters (a foot's RTKEffector.Contact, ...) are copied as they are when
//     their object has a copy; items of nodes that were left out are dropped, their motion
//     being carried by the plotted descendants.
//
// Each copy is then converted into the skill kind named by the source's "type" (1 basic,
// 2 locomotion, 3 raw) through ConvertToSkill; a locomotion copy uses the default contact
// threshold.
#pragma once

#include "zyra/action.h"
#include "zyra/ui.h"

// The bar share of ProcessSkills: one step per action source and node of the generated actor
// (`nodes` nodes).
long ComputeProgessBarSizeForSkills(Zyra::Model& model, long nodes);
// Copies every action source of `sourceModel` onto `targetModel`, each into the kind its "type"
// names. False when a copy failed (the copies made so far stay).
bool ProcessSkills(Zyra::Model& sourceModel, Zyra::Model& targetModel, Zyra::ProgressBar& bar);
// Copies one action source (rules 1 to 3) and converts the copy into skill kind `kind` (0:
// keep as is). False when the host refused to make the copy.
bool CopyAction(Zyra::ActionSource& action, Zyra::Model& sourceModel, Zyra::Model& targetModel,
                Zyra::ProgressBar& bar, int kind);
// The one place where a copied action is turned into a skill of `kind` (1 basic, 2 locomotion,
// 3 raw; others keep the copy as it is). False when the converter refused the copy.
bool ConvertCopiedAction(Zyra::ActionSource& copy, Zyra::Model& targetModel, Zyra::ProgressBar& bar,
                         int kind);
