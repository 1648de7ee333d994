// The Make Loop command's body and its page: the LoopSkill property on the actor's root node.
//
// The page holds a group "Loop Options": a combo of the model's action sources for Source, then
// Start, End, Smooth, Loco and the button "Process". What its events do:
//  1. Opening the page, or choosing another source: the ranges of Start and End become the
//     source's FrameStart .. FrameEnd and that of Smooth 0 .. their difference. A source other
//     than the last one processed (PrevSource) gets its whole range as Start and End; the same
//     source keeps the range the user last gave. The play range starts at the source's
//     FrameStart and the current frame goes to Start, so the user looks at the cycle's start.
//  2. Process: the user's fcurves on the actor are put aside in a temporary action source and
//     the pose is stored; the chosen source is applied, the loop is made, and then the loop's
//     curves are removed, the pose restored and the user's fcurves put back, so the actor is as
//     the user left it. Only the new "<source>_loop" action source remains. A stored loop is
//     remembered in PrevSource, PrevStart and PrevEnd and closes the page.
#pragma once

#include "zyra/object.h"
#include "zyra/plugin.h"
#include "zyra/x3dobject.h"

// The Make Loop command: refuses a node outside an actor model, a model without a root node or
// without action sources (message boxes); otherwise opens the page with `sourceIndex` chosen.
// True when the page was shown.
bool LoopSkill(Zyra::X3DObject& node, int sourceIndex);
// The LoopSkill property of `root`, added when it has none: the plug-in's own type when the
// module registered it, else a "Custom_parameter_list" named LoopSkill with the same parameters.
Zyra::CustomProperty FindOrAddLoopSkill(Zyra::X3DObject& root);
// Rebuilds the page layout (rule 1's combo from the model's current sources).
void BuildLoopSkillLayout(const Zyra::CustomProperty& property);
// Rule 1 for the property's chosen source.
void FollowLoopSource(Zyra::CustomProperty property);
// Rule 2: makes the loop from the page's values; true when it was stored.
bool ProcessLoopSkill(Zyra::CustomProperty property);
// The page's event handler (OnInit, Source changes, the Process button).
void LoopSkillPageEvent(Zyra::PPGEventContext& event);
