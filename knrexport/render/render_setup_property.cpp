// RenderSetup: what the render-setup command collects.
#include "knrexport/render/render_setup_property.h"

#include "knrexport/scene/parameters.h"

using namespace Zyra;

void DefineRenderSetup(CustomProperty& p) {
  AddParam(p, L"FileName", siString, kCapPersistable, L"");
  AddParam(p, L"Target", siString, kCapPersistable, L"");
  AddParam(p, L"Start", siInt4, kCapPersistable, 1, -2147483647, 2147483647, 0, 1000);
  AddParam(p, L"End", siInt4, kCapPersistable, 100, -2147483647, 2147483647, 0, 1000);
  AddParam(p, L"DoMap", siBool, kCapPersistable, false);
  AddParam(p, L"ClassName", siString, kCapPersistable, L"");
}
