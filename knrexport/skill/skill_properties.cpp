// The skill commands' properties.
#include "knrexport/skill/skill_properties.h"

#include "knrexport/scene/parameters.h"

using namespace Zyra;

namespace {
constexpr int kIntMax = 2147483647;
}

void DefineSkill(CustomProperty& p) {
  AddParam(p, L"Source", siInt4, kCapPersistable, 0, 0, 200, 0, 200);
  AddParam(p, L"Skill", siInt4, kCapPersistable, 0, 0, 3, 0, 3);
  AddParam(p, L"Threshold", siFloat, kCapPersistable, 0.2f, 0.0f, 1.0f, 0.0f, 1.0f);
  AddParam(p, L"Transfer", siBool, kCapPersistable, false);
}

void DefineLoopSkill(CustomProperty& p) {
  AddParam(p, L"Source", siInt4, kCapPersistable, 0, -kIntMax, kIntMax, 0, kIntMax);
  AddParam(p, L"Start", siInt4, kCapPersistable, 0, -kIntMax, kIntMax);
  AddParam(p, L"End", siInt4, kCapPersistable, 0, -kIntMax, kIntMax);
  AddParam(p, L"Smooth", siInt4, kCapPersistable, 10, 0, kIntMax);
  AddParam(p, L"Loco", siBool, kCapPersistable, false);
  AddParam(p, L"PrevSource", siInt4, kCapPersistable, 0, -kIntMax, kIntMax);
  AddParam(p, L"PrevStart", siInt4, kCapPersistable, 0, -kIntMax, kIntMax);
  AddParam(p, L"PrevEnd", siInt4, kCapPersistable, 0, -kIntMax, kIntMax);
}
