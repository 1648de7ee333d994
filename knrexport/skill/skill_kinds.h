// The four kinds of skill an action source can be, as its "type" parameter stores them, and the
// one entry that converts a source into its kind. Make Skill and the action copier both convert
// through ConvertToSkill.
#pragma once

#include "zyra/action.h"
#include "zyra/x3dobject.h"

enum SkillKind : int {
  kSkillUntouched = 0,  // the motion as it came; nothing is converted
  kSkillBasic = 1,
  kSkillLocomotion = 2,
  kSkillRaw = 3,
};
inline constexpr int kSkillKindCount = 4;
// The contact threshold a locomotion skill gets when nobody chose one (the Skill page's default).
inline constexpr float kDefaultContactThreshold = 0.2f;
// The labels the Make Skill page shows, by kind.
inline constexpr const wchar_t* kSkillKindLabels[kSkillKindCount] = {
    L"Default - untouched motion data", L"Basic", L"Locomotion", L"Raw"};

// Converts `source` of `model` in place into `kind`: Basic (FactorBasic), Locomotion
// (MakeLocoSkill with `threshold`) or Raw (ProcessRaw). Any other kind converts nothing and
// returns true. `useProgress` asks Basic and Locomotion for their progress bar. `source` then
// refers to the stored skill.
bool ConvertToSkill(Zyra::Model& model, Zyra::ActionSource& source, int kind, float threshold, bool useProgress);
