// The command table: registration order, script names, selection rules and messages.
#include "knrexport/plugin/command_table.h"

#include <cwchar>

#include "knrexport/actor/actor_tags.h"
#include "knrexport/actor/home_pose.h"
#include "knrexport/actor/initialize.h"
#include "knrexport/actor/joint_limit.h"
#include "knrexport/actor/save_actor.h"
#include "knrexport/bvh/bvh_import.h"
#include "knrexport/generate/generate.h"
#include "knrexport/generate/make_skill.h"
#include "knrexport/render/render_setup_file.h"
#include "knrexport/render/render_setup_property.h"
#include "knrexport/skill/loop_skill_property.h"

BVHActionOperation gAddBVHAction = &AddBVHAction;
RenderSetupOperation gGenerateRenderSetup = &GenerateRenderSetup;

namespace {

using In = CommandInput;
using Shift = ShiftUse;

#define KNR_NODE_MESSAGE(Action) \
  L"The " Action L" action requires selecting a single node in the actor description."

// Operations not built yet are null; each area's issue fills its entries in.
const CommandEntry kCommands[] = {
    {L"Initialize", L"KnrInitActor", In::kNode, true, Shift::kFlagIsShift, KNR_NODE_MESSAGE(L"Initialize"), InitializeActorTB, nullptr, nullptr},
    {L"Set Home", L"KnrSetHome", In::kNode, true, Shift::kFlagIsNotShift, KNR_NODE_MESSAGE(L"Set Home"), SetHomeTB, nullptr, nullptr},
    {L"Goto Home", L"KnrGotoHome", In::kNode, true, Shift::kNone, KNR_NODE_MESSAGE(L"Goto Home"),
     [](Zyra::X3DObject& node, bool) { return GotoHomeTB(node); }, nullptr, nullptr},
    {L"Generate", L"KnrGenerateActor", In::kNode, false, Shift::kNone, KNR_NODE_MESSAGE(L"Generate"),
     [](Zyra::X3DObject& n, bool) { return GenerateActor(n); }, nullptr, nullptr},
    {L"Set COG", L"KnrSetCOG", In::kNode, true, Shift::kNone, KNR_NODE_MESSAGE(L"Set COG"),
     [](Zyra::X3DObject& n, bool) { return SetCOG(n); }, nullptr, nullptr},
    {L"Set Foot", L"KnrSetFoot", In::kNode, true, Shift::kFlagIsNotShift, KNR_NODE_MESSAGE(L"Set Foot"),
     [](Zyra::X3DObject& n, bool addSphere) { return SetFoot(n, addSphere); }, nullptr, nullptr},
    {L"Add Col Sphere", L"KnrAddColSphere", In::kNode, true, Shift::kNone, KNR_NODE_MESSAGE(L"Add Col Sphere"),
     [](Zyra::X3DObject& n, bool) { return AddColSphere(n, true).IsValid(); }, nullptr, nullptr},
    {L"Add Floor", L"KnrAddFloor", In::kNode, true, Shift::kNone, KNR_NODE_MESSAGE(L"Add Floor"),
     [](Zyra::X3DObject& n, bool) { return AddFloor(n); }, nullptr, nullptr},
    {L"Set Collision Only", L"KnrSetCollisionOnly", In::kNode, true, Shift::kNone, KNR_NODE_MESSAGE(L"Set Collision Only"),
     [](Zyra::X3DObject& n, bool) { return SetCollisionOnly(n); }, nullptr, nullptr},
    {L"Set Visual Only", L"KnrSetVisualOnly", In::kNode, true, Shift::kNone, KNR_NODE_MESSAGE(L"Set Visual Only"),
     [](Zyra::X3DObject& n, bool) { return SetVisualOnly(n); }, nullptr, nullptr},
    {L"Set Default", L"KnrSetDefault", In::kNode, true, Shift::kNone, KNR_NODE_MESSAGE(L"Set Default"),
     [](Zyra::X3DObject& n, bool) { return SetDefault(n); }, nullptr, nullptr},
    {L"Add Joint Limit", L"KnrAddJointLimit", In::kNode, false, Shift::kNone, KNR_NODE_MESSAGE(L"Add Joint Limit"),
     [](Zyra::X3DObject& n, bool) { return AddKinraJL(n); }, nullptr, nullptr},
    {L"Make Skill", L"KnrMakeSkill", In::kNodeOrSource, false, Shift::kNone,
     L"The Make Skill action requires selecting a single node or action source in the actor description.", nullptr, MakeSkill, nullptr},
    {L"Save Actor", L"KnrSaveActor", In::kNode, false, Shift::kNone, KNR_NODE_MESSAGE(L"Save Actor"),
     [](Zyra::X3DObject& n, bool) { return SaveActor(n); }, nullptr, nullptr},
    {L"Load Actor", L"KnrLoadActor", In::kNone, false, Shift::kNone, nullptr, nullptr, nullptr, LoadActor},
    {L"Render Setup", L"KnrRenderSetup", In::kNone, false, Shift::kNone, nullptr, nullptr, nullptr, RenderSetup},
    {L"Import BVH Actor", L"KnrImportBVHActor", In::kNone, false, Shift::kNone, nullptr, nullptr, nullptr, ImportBVHActor},
    {L"Import BVH Action", L"KnrImportBVHAction", In::kNode, false, Shift::kNone,
     L"The Import BVH Action command requires selecting a single node in the target actor description.",
     [](Zyra::X3DObject& node, bool) { return ImportBVHAction(node); }, nullptr, nullptr},
    {L"AddBVHAction", L"KnrAddBVHAction", In::kArguments, true, Shift::kNone, nullptr, nullptr, nullptr, nullptr},
    // The wording says "single node" although an action source is accepted too, as for Make Skill.
    {L"Make Loop", L"KnrMakeLoop", In::kNodeOrSource, false, Shift::kNone, KNR_NODE_MESSAGE(L"Loop Locomotion"), nullptr, LoopSkill, nullptr},
    {L"Remove COG", L"KnrRemoveCOG", In::kNode, false, Shift::kNone, KNR_NODE_MESSAGE(L"Remove COG"),
     [](Zyra::X3DObject& n, bool) { return RemoveCOG(n); }, nullptr, nullptr},
    {L"Remove Foot", L"KnrRemoveFoot", In::kNode, false, Shift::kNone, KNR_NODE_MESSAGE(L"Remove Foot"),
     [](Zyra::X3DObject& n, bool) { return RemoveFoot(n); }, nullptr, nullptr},
    {L"Remove Floor", L"KnrRemoveFloor", In::kNode, false, Shift::kNone, KNR_NODE_MESSAGE(L"Remove Floor"),
     [](Zyra::X3DObject& n, bool) { return RemoveFloor(n); }, nullptr, nullptr},
    {L"Remove Joint Limit", L"KnrRemoveJointLimit", In::kNode, false, Shift::kNone, KNR_NODE_MESSAGE(L"Remove Joint Limit"),
     [](Zyra::X3DObject& n, bool) { return RemoveJointLimit(n); }, nullptr, nullptr},
    {L"GenerateRenderSetup", L"KnrGenerateRenderSetup", In::kArguments, false, Shift::kNone, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

const CommandEntry* CommandTable(int& count) {
  count = static_cast<int>(sizeof kCommands / sizeof kCommands[0]);
  return kCommands;
}

const CommandEntry* FindCommandEntry(const wchar_t* displayName) {
  for (const CommandEntry& entry : kCommands) {
    if (std::wcscmp(entry.displayName, displayName) == 0) return &entry;
  }
  return nullptr;
}
