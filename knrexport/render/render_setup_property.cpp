// RenderSetup: the page of the Render Setup command and its Generate button.
#include "knrexport/render/render_setup_property.h"

#include "knrexport/render/render_setup_file.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/host_calls.h"
#include "knrexport/scene/parameters.h"
#include "zyra/application.h"
#include "zyra/plugin.h"

using namespace Zyra;

namespace {

constexpr int kIntMax = 2147483647;

// The scene root's RenderSetup; made (with the play range as frames) when there is none.
CustomProperty FindOrAddRenderSetup(X3DObject& owner, bool& added) {
  CustomProperty property = FindOrAddOptions(owner, kRenderSetupProperty, DefineRenderSetup, &added);
  if (added && property.IsValid()) {
    property.PutParameterValue(L"Start", RunCommand(L"GetValue", {L"PlayControl.In"}).AsInt());
    property.PutParameterValue(L"End", RunCommand(L"GetValue", {L"PlayControl.Out"}).AsInt());
  }
  return property;
}

}  // namespace

void DefineRenderSetup(CustomProperty& p) {
  AddParam(p, L"FileName", siString, kCapPersistable, L"");
  AddParam(p, L"Target", siString, kCapPersistable, L"");
  AddParam(p, L"Start", siInt4, kCapPersistable, 1, -kIntMax, kIntMax, 0, 1000);
  AddParam(p, L"End", siInt4, kCapPersistable, 100, -kIntMax, kIntMax, 0, 1000);
  AddParam(p, L"DoMap", siBool, kCapPersistable, false);
  AddParam(p, L"ClassName", siString, kCapPersistable, L"");
}

void BuildRenderSetupLayout(const CustomProperty& property) {
  PPGLayout layout = PPGLayout::Of(property.GetRef());
  if (!layout.IsValid()) return;
  layout.Clear();
  PPGItem file = layout.AddItem(L"FileName", L"Setup File", siControlFilePath);
  file.PutAttribute(siUIFileFilter, kRenderSetupFilter);
  layout.AddItem(L"Target", L"Target Group");
  layout.AddGroup(L"Frames");
  layout.AddItem(L"Start", L"Start Frame");
  layout.AddItem(L"End", L"End Frame");
  layout.EndGroup();
  layout.AddGroup(L"Runtime");
  layout.AddItem(L"DoMap", L"Map");
  layout.AddItem(L"ClassName", L"Class Name");
  layout.EndGroup();
  layout.AddButton(kRenderSetupGenerateButton);
}

bool GenerateFromRenderSetup(const CustomProperty& property) {
  const CString groupName = property.GetParameterValue(L"Target").GetAsText();
  // An empty or unknown name gives no group, which the generation refuses with its message.
  CRef group = groupName.IsEmpty() ? CRef() : RunCommand(L"GetValue", {groupName}).AsRef();
  return GenerateRenderSetup(property.GetParameterValue(L"FileName").GetAsText(), group,
                             property.GetParameterValue(L"Start").AsInt(),
                             property.GetParameterValue(L"End").AsInt(),
                             property.GetParameterValue(L"DoMap").AsBool(),
                             property.GetParameterValue(L"ClassName").GetAsText(), true);
}

bool RenderSetup() {
  X3DObject root = Application().GetActiveSceneRoot();
  bool added = false;
  CustomProperty options = FindOrAddRenderSetup(root, added);
  if (!options.IsValid()) return false;
  BuildRenderSetupLayout(options);
  if (!InspectObj(options.GetFullName(), L"", kRenderSetupTitle, 4, false) && added) {
    RunCommand(L"DeleteObj", {CValue(options.GetRef())});
  }
  return true;
}
