// The Make Skill command with the real module's page: its refusals, which kinds convert in
// place and which only write the type, the transfer's checks and questions, the page's combos
// and Threshold's access; the Skill property and command logging are undone on every way out.
#include "knrexport/generate/make_skill.h"

#include "knrexport/actor/initialize.h"
#include "plugins/plugin_loader.h"
#include "tests/knrexport/skill/skill_test_rig.h"
#include "zyra/plugin.h"

namespace {

using namespace skilltest;

class MakeSkillTest : public SkillRig {
 public:
  static void SetUpTestSuite() {
    CStatus loaded = rt::LoadPlugin(KNR_MODULE_PATH);
    ASSERT_TRUE(loaded.Succeeded()) << ToUtf8(loaded.GetMessage().Wide());
  }
  static void TearDownTestSuite() { rt::UnloadPlugins(); }

  void SetUp() override {
    SkillRig::SetUp();
    SetLog(true);
    StoreTake(L"Idle", 1, 4, [](int f) { return Pose{{L"Root.posx", 1.0 * f}, {L"Hips.roty", 5.0 * f}}; });
  }
  static void SetLog(bool on) {
    CValue ignored;
    Application().ExecuteCommand(L"SetValue", {CString(L"preferences.scripting.cmdlog"), on}, ignored);
  }
  // Queues the page's answer and runs the command on the hips with source 0.
  void Run(const std::vector<std::pair<std::wstring, std::wstring>>& values, bool cancel = false) {
    Ui().pageAnswers.push_back({L"Make Skill", values, {}, cancel});
    MakeSkill(hips, 0);
    EXPECT_FALSE(HasTag(root, L"Skill")) << "the page's property goes with the command";
    EXPECT_TRUE(rt::Host::Get().CommandLogging()) << "command logging is back on";
  }
  // A second initialized actor Other > Base > Body, with feet or without.
  Model AddOtherActor(bool feet) {
    Model other;
    X3DObject base, body, foot;
    Application().GetActiveSceneRoot().AddModel(CRefArray(), L"Other", other);
    other.AddNull(L"Base", base);
    base.AddNull(L"Body", body);
    body.AddNull(L"Toe", foot);
    if (feet) AddTag(foot, kTagEffector);
    EXPECT_TRUE(InitializeActor(other, true, ProgressBar()));
    return other;
  }
  std::vector<std::wstring> Captions() {
    std::vector<std::wstring> out;
    for (const rt::ProgressRecord& run : Ui().progressRuns) out.insert(out.end(), run.captions.begin(), run.captions.end());
    return out;
  }
};

TEST_F(MakeSkillTest, RefusesActorsThatAreNotReadyWithTheirMessages) {
  struct Case {
    const char* name;
    std::function<void(MakeSkillTest&)> spoil;
    std::wstring message;
  };
  const Case cases[] = {
      {"no action sources",
       [](MakeSkillTest& t) {
         CValue ignored;
         Application().ExecuteCommand(L"DeleteObj", {CValue(t.Source(L"Idle").GetRef())}, ignored);
       },
       L"The Make Skill action requires the actor to have associated action sources."},
      {"not initialized", [](MakeSkillTest& t) { RemoveTag(t.root, kTagNode); },
       L"The Make Skill action requires the actor to be initialized.\nPlease initialize the actor and try again."},
      {"no home pose", [](MakeSkillTest& t) { RemoveTag(t.root, kTagHomePose); },
       L"The Make Skill action requires the actor home pose being set (Set Home)."},
      {"locomotion without feet", [](MakeSkillTest& t) { RemoveTag(t.left, kTagEffector); RemoveTag(t.right, kTagEffector); },
       L"To create a locomotion skill the actor must have foot tags.\nPlease tag the feet and try again."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    SetUp();
    c.spoil(*this);
    Run({{L"Skill", L"Locomotion"}});
    EXPECT_EQ(Messages(), std::vector<std::wstring>{c.message});
    if (rig.GetSources().GetCount() > 0) {
      EXPECT_EQ(Source(L"Idle").GetParameterValue(L"type").AsInt(), 0);
    }
  }
  X3DObject loose;
  Application().GetActiveSceneRoot().AddNull(L"Loose", loose);
  Ui() = rt::UiState();
  MakeSkill(loose, 0);
  EXPECT_EQ(Messages(), std::vector<std::wstring>{
                            L"Actor descriptions must be contained by a single model (scene root not supported)."});
}

TEST_F(MakeSkillTest, ConvertsInPlaceOnlyGeneratedActorsAndKindsAboveZero) {
  struct Case {
    const char* name;
    const wchar_t* kind;
    bool generated;
    bool animatedRig;
    int answer;  // to the rig's fcurve question
    bool converted;
  };
  const Case cases[] = {
      {"untouched", L"Default - untouched motion data", true, false, 1, false},
      {"basic on a source actor", L"Basic", false, false, 1, false},
      {"basic", L"Basic", true, false, 1, true},
      {"raw on an animated rig, OK", L"Raw", true, true, 1, true},
      {"basic on an animated rig, Cancel", L"Basic", true, true, 2, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    SetUp();
    if (!c.generated) RemoveTag(root, kTagActor);
    if (c.animatedRig) {
      CValue ignored;
      Application().ExecuteCommand(L"SetKey", {CString(L"Rig.Hips.posz"), 1, 2.0}, ignored);
      Ui().msgBoxAnswers.push_back(c.answer);
    }
    ActionSource original = Source(L"Idle");
    Run({{L"Skill", c.kind}});
    const int kind = std::wstring(c.kind) == L"Basic" ? 1 : std::wstring(c.kind) == L"Raw" ? 3 : 0;
    EXPECT_EQ(Source(L"Idle").GetParameterValue(L"type").AsInt(), kind) << "the kind is written in every case";
    EXPECT_EQ(original.IsValid(), !c.converted) << "a conversion replaces the source by the skill";
    EXPECT_EQ(Ui().messageBoxes.size(), c.animatedRig ? 1u : 0u);
  }
  // A cancelled page changes nothing.
  SetUp();
  ActionSource original = Source(L"Idle");
  Run({{L"Skill", L"Basic"}}, true);
  EXPECT_EQ(original.GetParameterValue(L"type").AsInt(), 0);
}

TEST_F(MakeSkillTest, TransfersCheckTheTargetAndFallBackToConversionInPlace) {
  struct Case {
    const char* name;
    const wchar_t* kind;
    bool targetFeet;
    const wchar_t* pick;      // "" picks nothing
    bool animatedRig;         // asks about the source rig's fcurves first, answered Cancel
    std::vector<std::wstring> messages;
    std::vector<std::wstring> captions;
  };
  const Case cases[] = {
      {"nothing picked", L"Basic", true, L"", false, {}, {}},
      {"the source itself", L"Basic", true, L"Rig", false,
       {L"The target actor for a skill transfer cannot be the same as the source actor."}, {}},
      {"a locomotion target without feet", L"Locomotion", false, L"Other.Body", false,
       {L"The target actor must have foot tags for a locomotion skill to transfer.\nPlease tag the feet and try again."},
       {}},
      {"a target that is no actor", L"Basic", true, L"Loose", false,
       {L"The target for the skill transfer is not a valid actor (bad root node)."}, {}},
      {"a valid target", L"Locomotion", true, L"Other", false, {}, {L"Transferring Skill", L"Cleanup"}},
      {"Cancel on the source rig converts in place", L"Basic", true, L"Other", true,
       {L"Is it okay to remove the embedded FCurves on the source rig (the FCurves conflict with the transfer "
        L"process)?",
        L"Is it okay to remove the embedded FCurves on the rig (the FCurves conflict with the Make Skill action)?"},
       {L"Making Basic Skill"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    SetUp();
    Model other = AddOtherActor(c.targetFeet);
    Model loose;
    Application().GetActiveSceneRoot().AddModel(CRefArray(), L"Loose", loose);
    Ui() = rt::UiState();
    if (c.animatedRig) {
      CValue ignored;
      Application().ExecuteCommand(L"SetKey", {CString(L"Rig.Hips.posz"), 1, 2.0}, ignored);
      Ui().msgBoxAnswers.push_back(2);
    }
    Ui().pickAnswers.push_back(c.pick);
    Run({{L"Skill", c.kind}, {L"Transfer", L"true"}});
    EXPECT_EQ(Messages(), c.messages);
    EXPECT_EQ(Captions(), c.captions);
    if (c.captions.size() == 2) {
      // The bar: the target's objects, the source's frames (1 .. 4) and two steps.
      EXPECT_EQ(Ui().progressRuns.front().maximum, 3 + 4 + 2);
      EXPECT_FALSE(rig.IsAnimated(siFCurveSource, false));
      ASSERT_EQ(other.GetSources().GetCount(), 1) << "the action is copied onto the target";
      EXPECT_EQ(ActionSource(other.GetSources()[0]).GetName().Wide(), L"Idle");
    }
  }
}

TEST_F(MakeSkillTest, ThePageListsSourcesAndKindsAndOpensThresholdForLocomotionOnGeneratedActors) {
  struct Case {
    bool generated;
    const wchar_t* kind;
    bool thresholdReadOnly;
  };
  const Case cases[] = {{true, L"Locomotion", false}, {true, L"Basic", true}, {false, L"Locomotion", true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.generated << " " << ToUtf8(c.kind));
    SetUp();
    StoreTake(L"Run", 1, 2, [](int f) { return Pose{{L"Hips.posz", 1.0 * f}}; }).PutParameterValue(L"type", 3);
    if (!c.generated) RemoveTag(root, kTagActor);
    CustomProperty page(root.AddProperty(L"Skill"));
    ASSERT_TRUE(page.IsValid());
    Ui().pageAnswers.push_back({L"", {{L"Skill", c.kind}}, {}, false});
    CValue cancelled;
    Application().ExecuteCommand(L"InspectObj", {page.GetFullName(), CString(), CString(L"Make Skill"), 4, false}, cancelled);
    EXPECT_EQ(page.GetParameter(L"Threshold").IsReadOnly(), c.thresholdReadOnly);
    PPGLayout layout = PPGLayout::Of(page.GetRef());
    EXPECT_EQ(layout.GetItem(L"Source").GetUIItems().GetCount(), 4) << "two sources, label and index each";
    EXPECT_EQ(layout.GetItem(L"Source").GetUIItems()[2].GetAsText(), CString(L"Run"));
    const CValueArray kinds = layout.GetItem(L"Skill").GetUIItems();
    ASSERT_EQ(kinds.GetCount(), 8);
    EXPECT_EQ(kinds[0].GetAsText(), CString(L"Default - untouched motion data"));
    EXPECT_EQ(kinds[6].GetAsText(), CString(L"Raw"));
    // Choosing a source shows the kind it was made as.
    Ui().pageAnswers.push_back({L"", {{L"Source", L"1"}}, {}, false});
    Application().ExecuteCommand(L"InspectObj", {page.GetFullName(), CString(), CString(L"Make Skill"), 4, false}, cancelled);
    EXPECT_EQ(page.GetParameterValue(L"Skill").AsInt(), 3);
    EXPECT_TRUE(page.GetParameter(L"Threshold").IsReadOnly());
  }
}

}  // namespace
