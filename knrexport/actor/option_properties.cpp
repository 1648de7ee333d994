// The actor's option properties: generation options and joint limits.
#include "knrexport/actor/option_properties.h"

#include "knrexport/scene/parameters.h"

using namespace Zyra;

void DefineKinraGen(CustomProperty& p) {
  AddParam(p, L"Envelope", siBool, kCapPersistable, false, false, true);
  AddParam(p, L"Box", siBool, kCapPersistable, true, false, true);
  AddParam(p, L"RemoveExtra", siBool, kCapPersistable, true, false, true);
  AddParam(p, L"RemovePoly", siBool, kCapPersistable, false, false, true);
  AddParam(p, L"Skill", siBool, kCapPersistable, true, false, true);
  AddParam(p, L"Factor", siFloat, kCapPersistable, 0.2f, 0.0f, 1.0f, 0.0f, 1.0f);
  AddParam(p, L"Cog", siBool, kCapPersistable, false, false, true);
}

void DefineKinraJL(CustomProperty& p) {
  for (const wchar_t* axis : {L"X", L"Y", L"Z"}) {
    std::wstring a(axis);
    AddParam(p, (a + L"Enable").c_str(), siBool, kCapPersistable, false, false, true);
    AddParam(p, (a + L"Min").c_str(), siFloat, kCapPersistable, -180.0f, -360.0f, 360.0f, -180.0f, 180.0f);
    AddParam(p, (a + L"Max").c_str(), siFloat, kCapPersistable, 180.0f, -360.0f, 360.0f, -180.0f, 180.0f);
  }
}
