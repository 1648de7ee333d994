// The skill commands' properties: the Make Skill page and the Make Loop page.
#pragma once

#include "zyra/object.h"

// Skill: which action source, which kind of skill, the contact threshold, transfer or not.
void DefineSkill(Zyra::CustomProperty& property);
// LoopSkill: the source, the cycle's start and end, the blend length, locomotion or not, and the
// last processed values.
void DefineLoopSkill(Zyra::CustomProperty& property);
