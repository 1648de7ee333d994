// The skill commands' properties: the Make Skill page and the Make Loop page.
#pragma once

#include "zyra/object.h"
#include "zyra/plugin.h"
#include "zyra/x3dobject.h"

// Skill: which action source, which kind of skill, the contact threshold, transfer or not.
void DefineSkill(Zyra::CustomProperty& property);
// LoopSkill: the source, the cycle's start and end, the blend length, locomotion or not, and the
// last processed values.
void DefineLoopSkill(Zyra::CustomProperty& property);
// The items of a combo of `model`'s action sources: name then index, in source order; none for
// an invalid model.
Zyra::CValueArray SourceChoices(Zyra::Model model);

// The Skill page's events. Opening builds the layout: "Source Options" (a combo of the actor
// model's action sources by index, and Transfer) and "Type Options" (a combo of the four kinds,
// and Threshold). Choosing a source shows the kind stored in its "type". Threshold can be edited
// only for Locomotion on an actor whose root carries RTKActor.
void OnSkillPageEvent(Zyra::PPGEventContext& event);
// Builds the Skill page's layout for `property` (on an actor's root node).
void BuildSkillLayout(Zyra::CustomProperty& property);
