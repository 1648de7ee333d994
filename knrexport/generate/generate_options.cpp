// The KinraGen options page.
#include "knrexport/generate/generate_options.h"

#include "knrexport/actor/weight_maps.h"
#include "zyra/x3dobject.h"

using namespace Zyra;

namespace {

constexpr const wchar_t* kHelpLink = L"knrexport/help/generate_actor.html";

void SetReadOnly(CustomProperty& property, const wchar_t* name, bool readOnly) {
  property.GetParameter(name).PutCapabilityFlag(siReadOnly, readOnly);
}

void GreyBoxOptions(CustomProperty& property, bool box) {
  SetReadOnly(property, L"Cog", !box);
  SetReadOnly(property, L"Factor", !box);
}

// The page opens on the source root, whose parent is the actor's model.
void OnOpen(CustomProperty& property) {
  X3DObject root(property.GetParent());
  Model model(root.GetParent());
  CRefArray enveloped;
  ExtractEnvelopeList(model, enveloped);
  if (enveloped.GetCount() == 0) {
    property.PutParameterValue(L"Box", false);
    property.PutParameterValue(L"Envelope", false);
    SetReadOnly(property, L"Envelope", true);
  } else {
    SetReadOnly(property, L"Envelope", false);
  }
  // Greyed only while the model has no actions: once actions are added, a later opening makes
  // the option editable again (keeping its value), or they could never be copied.
  if (!model.IsValid() || model.GetSources().GetCount() == 0) {
    property.PutParameterValue(L"Skill", false);
    SetReadOnly(property, L"Skill", true);
  } else {
    SetReadOnly(property, L"Skill", false);
  }
  GreyBoxOptions(property, property.GetParameterValue(L"Box").AsBool());
}

}  // namespace

void BuildKinraGenLayout(PPGLayout& layout) {
  layout.Clear();
  layout.PutAttribute(siUIHelpFile, kHelpLink);
  layout.AddGroup(L"Generate Options", true);
  layout.AddItem(L"Envelope");
  layout.AddItem(L"RemoveExtra", L"Optimize");
  layout.AddItem(L"RemovePoly", L"Remove Polygons");
  layout.AddItem(L"Skill", L"Skills");
  layout.EndGroup();
  layout.AddGroup(L"Box Options", true);
  layout.AddItem(L"Box");
  layout.AddItem(L"Cog");
  layout.AddItem(L"Factor");
  layout.EndGroup();
}

void KinraGenPPGEvent(PPGEventContext& event) {
  if (event.GetEventID() == siOnInit) {
    CustomProperty property(event.GetSource());
    if (property.IsValid()) OnOpen(property);
  } else if (event.GetEventID() == siParameterChange) {
    Parameter changed(event.GetSource());
    if (changed.GetName() != CString(L"Box")) return;
    CustomProperty property(changed.GetParent());
    if (property.IsValid()) GreyBoxOptions(property, changed.GetValue().AsBool());
  }
}
