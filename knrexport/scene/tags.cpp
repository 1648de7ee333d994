// The tag vocabulary and the parameters each tag carries.
#include "knrexport/scene/tags.h"

#include <cwchar>

#include "knrexport/scene/parameters.h"

using namespace Zyra;

namespace {

bool Is(const wchar_t* a, const wchar_t* b) { return std::wcscmp(a, b) == 0; }

// A non-negative measurement shown read-only: suggested 0 to 100.
void AddMeasure(CustomProperty& p, const wchar_t* name, float def) {
  AddParam(p, name, siFloat, kCapReadOnlyPersistable, def, 0.0f, kFltMax, 0.0f, 100.0f);
}

}  // namespace

CustomProperty AddTag(X3DObject& obj, const wchar_t* tag, float initial) {
  CustomProperty p = obj.AddProperty(L"Custom_parameter_list", false, tag);
  if (!p.IsValid()) return p;
  if (Is(tag, kTagActor)) {
    AddMeasure(p, L"Radius", 1.0f);
    AddMeasure(p, L"Height", 1.0f);
    AddMeasure(p, L"MeanDistance", 0.0f);
  } else if (Is(tag, kTagNode)) {
    AddParam(p, L"VisualizationOnly", siBool, kCapPersistable, false);
    AddParam(p, L"CollisionOnly", siBool, kCapPersistable, false);
  } else if (Is(tag, kTagEffector)) {
    AddParam(p, L"Contact", siInt4, kCapAnimatablePersistable, 0, 0, 1, 0, 1);
    AddParam(p, L"Anchor", siBool, kCapReadOnlyPersistable, false);
  } else if (Is(tag, kTagSphere)) {
    AddMeasure(p, L"Radius", initial);
  } else if (Is(tag, kTagFloor)) {
    AddMeasure(p, L"Top", initial);
  } else if (Is(tag, kTagHomePose)) {
    for (const wchar_t* name : {L"px", L"py", L"pz"}) {
      AddParam(p, name, siFloat, kCapReadOnlyPersistable, 0.0f, -kFltMax, kFltMax, -100.0f, 100.0f);
    }
    for (const wchar_t* name : {L"rx", L"ry", L"rz", L"sx", L"sy", L"sz"}) {
      AddParam(p, name, siFloat, kCapReadOnlyPersistable, 0.0f, -kFltMax, kFltMax, -200.0f, 200.0f);
    }
  }
  return p;
}
