// BVHActor: the options of the BVH actor and action imports.
#include "knrexport/bvh/bvh_actor_property.h"

#include "knrexport/scene/parameters.h"

using namespace Zyra;

void DefineBVHActor(CustomProperty& p) {
  AddParam(p, L"BVHFile", siString, kCapPersistable, L"");
  AddParam(p, L"Mode", siInt4, kCapPersistable, 0, 0, 222, {}, {}, L"Radio Button");
  AddParam(p, L"Box", siBool, kCapPersistable, true, false, true, false, true);
  AddParam(p, L"Scale", siFloat, kCapPersistable, 0.125f, 0.0001f, 1.0f, 0.0001f, 1.0f);
  AddParam(p, L"ActorName", siString, kCapPersistable, L"Actor");
  AddParam(p, L"Filter", siString, kCapPersistable, L"");
  AddParam(p, L"Remove", siString, kCapPersistable, L"");
  AddParam(p, L"Root", siBool, kCapPersistable, true, false, true, false, true);
  AddParam(p, L"ActionName", siString, kCapPersistable, L"Mocap");
  AddParam(p, L"Optimize", siBool, kCapPersistable, true, false, true, false, true);
}
