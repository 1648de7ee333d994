// Converting an action source into its kind of skill.
#include "knrexport/skill/skill_kinds.h"

#include "knrexport/skill/basic_skill.h"
#include "knrexport/skill/loco_skill.h"

bool ConvertToSkill(Zyra::Model& model, Zyra::ActionSource& source, int kind, float threshold, bool useProgress) {
  switch (kind) {
    case kSkillBasic:
      return FactorBasic(model, source, useProgress);
    case kSkillLocomotion:
      return MakeLocoSkill(model, source, threshold, useProgress);
    case kSkillRaw:
      return ProcessRaw(model, source);
    default:
      return true;
  }
}
