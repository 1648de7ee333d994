// The skill commands' properties.
#include "knrexport/skill/skill_properties.h"

#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/parameters.h"
#include "knrexport/scene/tags.h"
#include "knrexport/skill/skill_kinds.h"
#include "zyra/action.h"

using namespace Zyra;

namespace {

constexpr int kIntMax = 2147483647;
constexpr const wchar_t* kSkillHelpLink = L"knrexport/help/make_skill.html";

// The actor model of the root node that holds the Skill property.
Model ModelOf(const CustomProperty& property) {
  X3DObject root(property.GetParent());
  Model model;
  if (root.IsValid()) GetModel(root, model);
  return model;
}

void UpdateThresholdAccess(CustomProperty& property) {
  X3DObject root(property.GetParent());
  const bool editable = root.IsValid() && HasTag(root, kTagActor) &&
                        property.GetParameterValue(L"Skill").AsInt() == kSkillLocomotion;
  property.GetParameter(L"Threshold").PutCapabilityFlag(siReadOnly, !editable);
}

}  // namespace

void DefineSkill(CustomProperty& p) {
  AddParam(p, L"Source", siInt4, kCapPersistable, 0, 0, 200, 0, 200);
  AddParam(p, L"Skill", siInt4, kCapPersistable, 0, 0, 3, 0, 3);
  AddParam(p, L"Threshold", siFloat, kCapPersistable, kDefaultContactThreshold, 0.0f, 1.0f, 0.0f, 1.0f);
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

CValueArray SourceChoices(Model model) {
  CValueArray choices;
  if (!model.IsValid()) return choices;
  const CRefArray sources = model.GetSources();
  for (long i = 0; i < sources.GetCount(); ++i) {
    choices.Add(ActionSource(sources[i]).GetName());
    choices.Add(static_cast<int>(i));
  }
  return choices;
}

void BuildSkillLayout(CustomProperty& property) {
  PPGLayout layout = PPGLayout::Of(property.GetRef());
  if (!layout.IsValid()) return;
  layout.Clear();
  const CValueArray sources = SourceChoices(ModelOf(property));
  layout.AddGroup(L"Source Options");
  layout.AddEnumControl(L"Source", sources);
  layout.AddItem(L"Transfer");
  layout.EndGroup();
  CValueArray kinds;
  for (int kind = 0; kind < kSkillKindCount; ++kind) {
    kinds.Add(kSkillKindLabels[kind]);
    kinds.Add(kind);
  }
  layout.AddGroup(L"Type Options");
  layout.AddEnumControl(L"Skill", kinds);
  layout.AddItem(L"Threshold");
  layout.EndGroup();
  layout.PutAttribute(siUIHelpFile, kSkillHelpLink);
}

void OnSkillPageEvent(PPGEventContext& event) {
  switch (event.GetEventID()) {
    case siOnInit: {
      CustomProperty property(event.GetSource());
      BuildSkillLayout(property);
      UpdateThresholdAccess(property);
      event.PutAttribute(L"Refresh", true);
      break;
    }
    case siParameterChange: {
      Parameter changed(event.GetSource());
      CustomProperty property(changed.GetParent());
      const CString name = changed.GetName();
      if (name == CString(L"Source")) {
        // A source converted before shows its kind.
        CRefArray list = ModelOf(property).GetSources();
        const long index = changed.GetValue().AsInt();
        if (index >= 0 && index < list.GetCount()) {
          property.PutParameterValue(L"Skill", ActionSource(list[index]).GetParameterValue(L"type").AsInt());
        }
      }
      if (name == CString(L"Source") || name == CString(L"Skill") || name == CString(L"Transfer")) {
        UpdateThresholdAccess(property);
      }
      break;
    }
    case siButtonClicked:
    case siOnClosed:
      break;
  }
}
