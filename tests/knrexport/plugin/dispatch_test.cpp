// The common Execute of the commands with operations that record how they were called: the Shift
// switch, command logging around the operation, node and action-source selections, and the
// argument checks of the two scriptable commands.
#include "knrexport/plugin/dispatch.h"

#include <gtest/gtest.h>

#include "host/host.h"
#include "model/scene_graph.h"
#include "zyra/action.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

struct Call {
  int count = 0;
  bool flag = false;
  int index = -1;
  bool loggingDuringCall = true;
  CString name;
  CString filter, subtree;
  bool keepRoot = false;
  float scale = 0;
};
Call gCall;

bool CommandLogging() {
  CValue v;
  Application().ExecuteCommand(L"GetValue", {L"preferences.scripting.cmdlog"}, v);
  return v.AsBool();
}

bool RecordNode(X3DObject& node, bool flag) {
  ++gCall.count;
  gCall.flag = flag;
  gCall.name = node.GetName();
  gCall.loggingDuringCall = CommandLogging();
  return true;
}

bool RecordSource(X3DObject& node, int index) {
  ++gCall.count;
  gCall.index = index;
  gCall.name = node.GetName();
  return true;
}

bool RecordBVH(Model& model, const CString&, const CString&, float scale, bool, const CString& filter,
               const CString& subtree, bool keepRoot) {
  ++gCall.count;
  gCall.name = model.GetName();
  gCall.scale = scale;
  gCall.filter = filter;
  gCall.subtree = subtree;
  gCall.keepRoot = keepRoot;
  return true;
}

class DispatchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    rt::Host::Get().NewScene();
    rt::Host::Get().ui() = rt::UiState();
    gCall = Call();
    Model root = Application().GetActiveSceneRoot();
    root.AddModel(CRefArray(), L"Rig", rig);
    rig.AddNull(L"Hips", hips);
    rig.AddNull(L"Extra", extra);
  }
  void Select(std::initializer_list<CRef> items) {
    Application().GetSelection().Clear();
    for (const CRef& r : items) Application().GetSelection().Add(r);
  }
  CommandEntry NodeEntry(ShiftUse shift, bool logOff) {
    return CommandEntry{L"Set Home", L"KnrSetHome", CommandInput::kNode, logOff, shift,
                        L"needs one node", RecordNode, nullptr, nullptr};
  }
  const std::vector<std::wstring>& Boxes() { return rt::Host::Get().ui().messageBoxes; }
  Model rig;
  X3DObject hips, extra;
};

TEST_F(DispatchTest, ShiftSwitchesTheFlagAsTheCommandSays) {
  Select({hips});
  for (bool shift : {false, true}) {
    rt::Host::Get().ui().shift = shift;
    ASSERT_TRUE(ExecuteEntry(NodeEntry(ShiftUse::kFlagIsShift, false), {}).Succeeded());
    EXPECT_EQ(gCall.flag, shift) << "Initialize: Shift gives true";
    ASSERT_TRUE(ExecuteEntry(NodeEntry(ShiftUse::kFlagIsNotShift, false), {}).Succeeded());
    EXPECT_EQ(gCall.flag, !shift) << "Set Home and Set Foot: Shift gives false";
    ASSERT_TRUE(ExecuteEntry(NodeEntry(ShiftUse::kNone, false), {}).Succeeded());
    EXPECT_FALSE(gCall.flag);
  }
  EXPECT_EQ(gCall.count, 6);
  EXPECT_EQ(gCall.name, CString(L"Hips"));
}

TEST_F(DispatchTest, LoggingIsOffDuringTheOperationAndRestoredAfter) {
  Select({hips});
  for (bool before : {true, false}) {
    CValue ignored;
    Application().ExecuteCommand(L"SetValue", {L"preferences.scripting.cmdlog", before}, ignored);
    ASSERT_TRUE(ExecuteEntry(NodeEntry(ShiftUse::kNone, true), {}).Succeeded());
    EXPECT_FALSE(gCall.loggingDuringCall);
    EXPECT_EQ(CommandLogging(), before);
    ASSERT_TRUE(ExecuteEntry(NodeEntry(ShiftUse::kNone, false), {}).Succeeded());
    EXPECT_EQ(gCall.loggingDuringCall, before) << "commands without the switch leave logging alone";
  }
}

TEST_F(DispatchTest, WrongSelectionsAreRefusedWithTheMessageAndOKExceptForGenerate) {
  CommandEntry entry = NodeEntry(ShiftUse::kNone, true);
  for (auto selection : {std::vector<CRef>{}, std::vector<CRef>{hips, extra}}) {
    Application().GetSelection().Clear();
    for (const CRef& r : selection) Application().GetSelection().Add(r);
    EXPECT_TRUE(ExecuteEntry(entry, {}).Succeeded());
  }
  ASSERT_EQ(Boxes().size(), 2u);
  EXPECT_EQ(Boxes()[0], L"Kinra Export: needs one node");
  EXPECT_EQ(gCall.count, 0);
  EXPECT_TRUE(CommandLogging()) << "a refusal does not touch logging";
  const CommandEntry* generate = FindCommandEntry(L"Generate");
  ASSERT_NE(generate, nullptr);
  Application().GetSelection().Clear();
  EXPECT_FALSE(ExecuteEntry(*generate, {}).Succeeded());
  EXPECT_EQ(Boxes().back(),
            L"Kinra Export: The Generate action requires selecting a single node in the actor description.");
  // Once one node is selected Generate succeeds as a command, also when it refuses the rig.
  Select({hips});
  const size_t before = Boxes().size();
  EXPECT_TRUE(ExecuteEntry(*generate, {}).Succeeded());
  EXPECT_GT(Boxes().size(), before);
}

TEST_F(DispatchTest, ActionSourcesRunOnTheirModelWithTheirIndex) {
  CValue made;
  for (const wchar_t* name : {L"Walk", L"Run"}) {
    ASSERT_TRUE(Application()
                    .ExecuteCommand(L"StoreAction", {CValue(rig.GetRef()), L"Rig.Hips.posx", 1, name, 0, 1.0, 10.0, 0, 0}, made)
                    .Succeeded());
  }
  CommandEntry entry{L"Make Skill", L"KnrMakeSkill", CommandInput::kNodeOrSource, false, ShiftUse::kNone,
                     L"needs a node or source", nullptr, RecordSource, nullptr};
  Select({made.AsRef()});
  ASSERT_TRUE(ExecuteEntry(entry, {}).Succeeded());
  EXPECT_EQ(gCall.index, 1);
  EXPECT_EQ(gCall.name, CString(L"Rig"));
  Select({hips});
  ASSERT_TRUE(ExecuteEntry(entry, {}).Succeeded());
  EXPECT_EQ(gCall.index, 0);
  EXPECT_EQ(gCall.name, CString(L"Hips"));
  Select({CRef(rig.GetKinematics().GetRef())});
  ASSERT_TRUE(ExecuteEntry(entry, {}).Succeeded());
  EXPECT_EQ(Boxes().back(), L"Kinra Export: needs a node or source");
  EXPECT_EQ(gCall.count, 2);
  EXPECT_EQ(SourceIndexByName(rig.GetSources(), L"Jump"), 2) << "no match gives the source count";
  EXPECT_EQ(SourceIndexByName(CRefArray(), L"Walk"), 0);
}

TEST_F(DispatchTest, AddBVHActionRunsOnlyWithTypedArguments) {
  const CommandEntry* entry = FindCommandEntry(L"AddBVHAction");
  ASSERT_NE(entry, nullptr);
  BVHActionOperation saved = gAddBVHAction;
  gAddBVHAction = RecordBVH;
  CValue model(rig.GetRef());
  // Each of the first five in the wrong type stops the command silently.
  const CValueArray wrong[] = {
      {L"Rig", L"f.bvh", L"Take", 0.5, true},
      {CValue(hips.GetRef()), L"f.bvh", L"Take", 0.5, true},
      {model, 3, L"Take", 0.5, true},
      {model, L"f.bvh", CValue(), 0.5, true},
      {model, L"f.bvh", L"Take", 0.5f, true},
      {model, L"f.bvh", L"Take", 0.5, 1},
  };
  for (const CValueArray& args : wrong) EXPECT_TRUE(ExecuteEntry(*entry, args).Succeeded());
  EXPECT_EQ(gCall.count, 0);
  ASSERT_TRUE(ExecuteEntry(*entry, {model, L"f.bvh", L"Take", 0.5, true}).Succeeded());
  EXPECT_EQ(gCall.count, 1);
  EXPECT_FLOAT_EQ(gCall.scale, 0.5f);
  EXPECT_TRUE(gCall.filter.IsEmpty());
  EXPECT_TRUE(gCall.keepRoot) << "keep-subtree-root defaults to on";
  ASSERT_TRUE(ExecuteEntry(*entry, {model, L"f.bvh", L"Take", 0.5, true, L"Nub", 7, false}).Succeeded());
  EXPECT_EQ(gCall.filter, CString(L"Nub"));
  EXPECT_TRUE(gCall.subtree.IsEmpty()) << "a subtree that is no string is not used";
  EXPECT_FALSE(gCall.keepRoot);
  gAddBVHAction = saved;
}

TEST_F(DispatchTest, GenerateRenderSetupNamesEachMissingArgument) {
  const CommandEntry* entry = FindCommandEntry(L"GenerateRenderSetup");
  ASSERT_NE(entry, nullptr);
  rt::Host::Get().ClearLog();
  ASSERT_TRUE(ExecuteEntry(*entry, {L"setup.knrn", CValue(), 1}).Succeeded());
  std::vector<std::wstring> logged;
  for (const auto& line : rt::Host::Get().LogLines()) {
    if (line.severity == rt::kSevMessage) logged.push_back(line.text);
  }
  EXPECT_EQ(logged, (std::vector<std::wstring>{
                        L"RenderSetupGenerate command missing target group parameter (1).",
                        L"RenderSetupGenerate command missing end parameter (3).",
                        L"RenderSetupGenerate command missing domap parameter (4)."}));
  EXPECT_TRUE(Boxes().empty());
  ASSERT_TRUE(ExecuteEntry(*entry, {CValue(), L"G", 1, 2, true, L"", true}).Succeeded());
  EXPECT_EQ(Boxes(), (std::vector<std::wstring>{
                         L"Kinra Export: RenderSetupGenerate command missing filename parameter (0)."}));
}

}  // namespace
