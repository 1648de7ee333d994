// The module's entry points: registration with the host and the callbacks it finds by name.
#include <cstdio>

#include "knrexport/actor/option_properties.h"
#include "knrexport/bvh/bvh_actor_property.h"
#include "knrexport/bvh/bvh_import.h"
#include "knrexport/generate/generate_options.h"
#include "knrexport/plugin/command_table.h"
#include "knrexport/plugin/dispatch.h"
#include "knrexport/render/render_setup_property.h"
#include "knrexport/skill/loop_skill_property.h"
#include "knrexport/skill/skill_properties.h"
#include "zyra/plugin.h"

using namespace Zyra;

namespace {

// Reports a library initialised or finalised twice, which would mean two copies share state.
struct LoadGuard {
  LoadGuard() {
    if (++constructed > 1) std::fprintf(stderr, "*** Called constructor of DLL knrexport more then once !!! ***\n");
  }
  ~LoadGuard() {
    if (++destructed > 1) std::fprintf(stderr, "*** Called destructor of DLL knrexport more then once !!! ***\n");
  }
  static inline int constructed = 0;
  static inline int destructed = 0;
};
const LoadGuard kLoadGuard;

CStatus DefineWith(void (*define)(CustomProperty&), CRef& context) {
  CustomProperty property(Context(context).GetSource());
  if (!property.IsValid()) return CStatus(CStatus::InvalidArgument, L"Define: no property.");
  define(property);
  return CStatus::OK;
}

// A page that builds its layout when it opens starts from an empty one.
CStatus ClearLayout(CRef& context) {
  PPGLayout layout(Context(context).GetSource());
  if (layout.IsValid()) layout.Clear();
  return CStatus::OK;
}

CStatus EventWith(void (*handle)(PPGEventContext&), CRef& context) {
  PPGEventContext event(context);
  handle(event);
  return CStatus::OK;
}

}  // namespace

ZYRA_PLUGIN_CALLBACK CStatus ZyraLoadPlugin(PluginRegistrar& registrar) {
  registrar.PutAuthor(L"Kinra Export team");
  registrar.PutName(L"Kinra Export Command Plugin");
  registrar.PutVersion(1, 0);
  int count = 0;
  const CommandEntry* table = CommandTable(count);
  for (int i = 0; i < count; ++i) registrar.RegisterCommand(table[i].displayName, table[i].scriptName);
  for (const wchar_t* type : kPropertyTypes) registrar.RegisterProperty(type);
  return CStatus::OK;
}

ZYRA_PLUGIN_CALLBACK CStatus ZyraUnloadPlugin(const PluginRegistrar&) { return CStatus::OK; }

// Each command's Init and Execute, named after its display name without blanks.
#define KNR_COMMAND(Callback, DisplayName)                                                   \
  ZYRA_PLUGIN_CALLBACK CStatus Callback##_Init(CRef& context) {                              \
    return InitCommand(DisplayName, context);                                                \
  }                                                                                          \
  ZYRA_PLUGIN_CALLBACK CStatus Callback##_Execute(CRef& context) {                           \
    return ExecuteCommand(DisplayName, context);                                             \
  }

KNR_COMMAND(Initialize, L"Initialize")
KNR_COMMAND(SetHome, L"Set Home")
KNR_COMMAND(GotoHome, L"Goto Home")
KNR_COMMAND(Generate, L"Generate")
KNR_COMMAND(SetCOG, L"Set COG")
KNR_COMMAND(SetFoot, L"Set Foot")
KNR_COMMAND(AddColSphere, L"Add Col Sphere")
KNR_COMMAND(AddFloor, L"Add Floor")
KNR_COMMAND(SetCollisionOnly, L"Set Collision Only")
KNR_COMMAND(SetVisualOnly, L"Set Visual Only")
KNR_COMMAND(SetDefault, L"Set Default")
KNR_COMMAND(AddJointLimit, L"Add Joint Limit")
KNR_COMMAND(MakeSkill, L"Make Skill")
KNR_COMMAND(SaveActor, L"Save Actor")
KNR_COMMAND(LoadActor, L"Load Actor")
KNR_COMMAND(RenderSetup, L"Render Setup")
KNR_COMMAND(ImportBVHActor, L"Import BVH Actor")
KNR_COMMAND(ImportBVHAction, L"Import BVH Action")
KNR_COMMAND(AddBVHAction, L"AddBVHAction")
KNR_COMMAND(MakeLoop, L"Make Loop")
KNR_COMMAND(RemoveCOG, L"Remove COG")
KNR_COMMAND(RemoveFoot, L"Remove Foot")
KNR_COMMAND(RemoveFloor, L"Remove Floor")
KNR_COMMAND(RemoveJointLimit, L"Remove Joint Limit")
KNR_COMMAND(GenerateRenderSetup, L"GenerateRenderSetup")

ZYRA_PLUGIN_CALLBACK CStatus KinraJL_Define(CRef& context) { return DefineWith(DefineKinraJL, context); }
ZYRA_PLUGIN_CALLBACK CStatus Skill_Define(CRef& context) { return DefineWith(DefineSkill, context); }
// The Skill page is built when it opens, from the actor's action sources.
ZYRA_PLUGIN_CALLBACK CStatus Skill_DefineLayout(CRef& context) { return ClearLayout(context); }
ZYRA_PLUGIN_CALLBACK CStatus Skill_PPGEvent(CRef& context) { return EventWith(OnSkillPageEvent, context); }
ZYRA_PLUGIN_CALLBACK CStatus KinraGen_Define(CRef& context) { return DefineWith(DefineKinraGen, context); }
ZYRA_PLUGIN_CALLBACK CStatus KinraGen_DefineLayout(CRef& context) {
  PPGLayout layout(Context(context).GetSource());
  if (layout.IsValid()) BuildKinraGenLayout(layout);
  return CStatus::OK;
}
ZYRA_PLUGIN_CALLBACK CStatus KinraGen_PPGEvent(CRef& context) { return EventWith(KinraGenPPGEvent, context); }
ZYRA_PLUGIN_CALLBACK CStatus BVHActor_Define(CRef& context) { return DefineWith(DefineBVHActor, context); }
// The BVHActor page is built when it opens, from its "Mode" (actor or action options).
ZYRA_PLUGIN_CALLBACK CStatus BVHActor_DefineLayout(CRef& context) { return ClearLayout(context); }
ZYRA_PLUGIN_CALLBACK CStatus BVHActor_PPGEvent(CRef& context) {
  PPGEventContext event(context);
  switch (event.GetEventID()) {
    case siOnInit:
      BuildBVHActorLayout(CustomProperty(event.GetSource()));
      break;
    case siButtonClicked:
      if (event.GetAttribute(L"Button").GetAsText() == CString(L"Refresh")) {
        BuildBVHActorLayout(CustomProperty(event.GetSource()));
        event.PutAttribute(L"Refresh", true);
      }
      break;
    case siParameterChange:
      // A change of mode switches between the actor and the action options.
      if (Parameter(event.GetSource()).GetName() == CString(L"Mode")) {
        BuildBVHActorLayout(CustomProperty(Parameter(event.GetSource()).GetParent()));
        event.PutAttribute(L"Refresh", true);
      }
      break;
    case siOnClosed:
      break;
  }
  return CStatus::OK;
}
ZYRA_PLUGIN_CALLBACK CStatus LoopSkill_Define(CRef& context) { return DefineWith(DefineLoopSkill, context); }
// The LoopSkill page is built when it opens, from the model's action sources.
ZYRA_PLUGIN_CALLBACK CStatus LoopSkill_DefineLayout(CRef& context) { return ClearLayout(context); }
ZYRA_PLUGIN_CALLBACK CStatus LoopSkill_PPGEvent(CRef& context) { return EventWith(LoopSkillPageEvent, context); }
ZYRA_PLUGIN_CALLBACK CStatus RenderSetup_Define(CRef& context) { return DefineWith(DefineRenderSetup, context); }
// The RenderSetup page is built when it opens. The Generate button closes the page once the setup
// is written; a refusal leaves it open to be corrected.
ZYRA_PLUGIN_CALLBACK CStatus RenderSetup_PPGEvent(CRef& context) {
  PPGEventContext event(context);
  if (event.GetEventID() == siOnInit) {
    BuildRenderSetupLayout(CustomProperty(event.GetSource()));
  } else if (event.GetEventID() == siButtonClicked &&
             event.GetAttribute(L"Button").GetAsText() == CString(kRenderSetupGenerateButton) &&
             GenerateFromRenderSetup(CustomProperty(event.GetSource()))) {
    event.PutAttribute(L"Close", true);
  }
  return CStatus::OK;
}
