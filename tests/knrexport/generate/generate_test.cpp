// Generate through the real module on a small rig built through the SDK: the options page, the
// generated hierarchy (optimised, frozen, boxed, skinned), the copied action, the progress bar,
// and the refusals that must change nothing.
#include "knrexport/generate/generate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <sstream>

#include "host/host.h"
#include "knrexport/actor/actor_boxes.h"
#include "knrexport/actor/actor_tags.h"
#include "knrexport/actor/home_pose.h"
#include "knrexport/actor/initialize.h"
#include "knrexport/actor/joint_limit.h"
#include "knrexport/generate/copy_actor.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/tags.h"
#include "model/scene_graph.h"
#include "plugins/plugin_loader.h"
#include "script/script.h"
#include "zyra/action.h"
#include "zyra/application.h"
#include "zyra/plugin.h"

using namespace Zyra;

namespace {

CValue Host(const wchar_t* command, const CValueArray& args) {
  CValue result;
  EXPECT_TRUE(Application().ExecuteCommand(command, args, result).Succeeded()) << ToUtf8(command);
  return result;
}

// Rig > Root > Hips (COG) > Spine (scaled 2) > Chest > Hand (joint limit); Hips > Thigh > Shin >
// Foot (foot, with its sphere Foot_CS); Hips > Skin, a mesh skinned to Thigh and to Outside, a
// null outside the actor. The action "Walk" moves Hips, turns Spine and Shin.
class GenerateTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(rt::LoadPlugin(KNR_MODULE_PATH).Succeeded()); }
  static void TearDownTestSuite() { rt::UnloadPlugins(); }

  void SetUp() override {
    rt::Host::Get().NewScene();
    rt::Host::Get().ui() = rt::UiState();
    Model sceneRoot = Application().GetActiveSceneRoot();
    sceneRoot.AddModel(CRefArray(), L"Rig", rig);
    root = Null(rig, L"Root", 0, 0, 0);
    hips = Null(root, L"Hips", 0, 10, 0);
    spine = Null(hips, L"Spine", 0, 2, 0);
    for (const wchar_t* axis : {L"sclx", L"scly", L"sclz"}) spine.PutParameterValue(axis, 2.0);
    X3DObject chest = Null(spine, L"Chest", 0, 2, 1);
    hand = Null(chest, L"Hand", 1, 1, 0);
    thigh = Null(hips, L"Thigh", 1, -1, 0);
    shin = Null(thigh, L"Shin", 0, -4, 0);
    foot = Null(shin, L"Foot", 0, -4, 1);
    sceneRoot.AddNull(L"Outside", outside);
    const CDoubleArray points(std::vector<double>{0, 0, 0, 1, 0, 0, 0, 1, 0});
    hips.AddPolygonMesh(points, CLongArray(std::vector<long>{3, 0, 1, 2}), L"Skin", skin);
    ASSERT_TRUE(InitializeActorTB(hips, false));
    ASSERT_TRUE(SetHomeTB(hips, false));
    ASSERT_TRUE(SetCOG(hips) && SetFoot(foot, true) && AddKinraJL(hand));
    Host(L"ApplyEnvelope", {skin.GetFullName(), thigh.GetFullName(), outside.GetFullName()});
    Host(L"SetDeformerWeights", {skin.GetFullName(), thigh.GetFullName(), L"30 0 20"});
    Host(L"SetDeformerWeights", {skin.GetFullName(), outside.GetFullName(), L"10 50 0"});
    for (double frame : {1.0, 5.0, 10.0}) {
      Host(L"SetKey", {L"Rig.Hips.posx", frame, frame * 0.5});
      Host(L"SetKey", {L"Rig.Spine.rotz", frame, frame * 9.0});
      Host(L"SetKey", {L"Rig.Shin.rotx", frame, -frame * 6.0});
    }
    Host(L"StoreAction", {CValue(rig.GetRef()), L"Rig.Hips.posx,Rig.Spine.rotz,Rig.Shin.rotx", 6,
                          L"Walk", 1, 1.0, 10.0});
    rt::Host::Get().ui().messageBoxes.clear();
    rt::Host::Get().ui().progressRuns.clear();
  }

  X3DObject Null(X3DObject parent, const wchar_t* name, double x, double y, double z) {
    X3DObject out;
    parent.AddNull(name, out);
    out.PutParameterValue(L"posx", x);
    out.PutParameterValue(L"posy", y);
    out.PutParameterValue(L"posz", z);
    return out;
  }

  // Runs Generate on Hips with the page answered by `values` (name, value text).
  bool Generate(std::vector<std::pair<std::wstring, std::wstring>> values = {},
                bool cancel = false) {
    rt::PageAnswer answer;
    answer.title = L"Generate Actor";
    answer.values = std::move(values);
    answer.cancel = cancel;
    rt::Host::Get().ui().pageAnswers.push_back(answer);
    return GenerateActor(hips);
  }

  Model Generated(const wchar_t* name = L"KnrRig") {
    return Model(Application().GetObjectFromPath(name));
  }

  static MATH::CTransformation Global(const X3DObject& o) {
    return o.GetKinematics().GetGlobal().GetTransform();
  }

  static void ExpectSamePlace(const X3DObject& a, const X3DObject& b, const std::string& where) {
    MATH::CTransformation ta = Global(a), tb = Global(b);
    MATH::CVector3 d = ta.GetTranslation() - tb.GetTranslation();
    EXPECT_LT(d.GetLength(), 1e-5) << where << " " << ToUtf8(a.GetName().Wide());
    MATH::CQuaternion qa = ta.GetRotationQuaternion(), qb = tb.GetRotationQuaternion();
    double dot = qa.GetW() * qb.GetW() + qa.GetX() * qb.GetX() + qa.GetY() * qb.GetY() +
                 qa.GetZ() * qb.GetZ();
    EXPECT_GT(std::fabs(dot), 1.0 - 1e-9) << where << " " << ToUtf8(a.GetName().Wide());
  }

 public:
  Model rig;
  X3DObject root, hips, spine, hand, thigh, shin, foot, outside, skin;
};

TEST_F(GenerateTest, PageGreysWhatCannotApply) {
  struct Case {
    const char* what;
    bool unskin, dropAction, cancel;
    std::vector<std::pair<std::wstring, std::wstring>> answers;
    bool envelope, box, skill, envelopeReadOnly, skillReadOnly, boxOptionsReadOnly;
  };
  const Case cases[] = {
      {"rig with skin and action", false, false, true, {}, false, true, true, false, false, false},
      {"Box switched off on the page",
       false,
       false,
       false,
       {{L"Box", L"false"}},
       false,
       false,
       true,
       false,
       false,
       true},
      {"no skin clears Envelope and Box",
       true,
       false,
       true,
       {},
       false,
       false,
       true,
       true,
       false,
       true},
      {"no action clears Skill", false, true, true, {}, false, true, false, false, true, false},
  };
  for (const Case& c : cases) {
    SetUp();
    if (c.unskin) Host(L"DeleteObj", {skin.GetFullName()});
    if (c.dropAction) Host(L"DeleteObj", {L"Rig.Sources.Walk"});
    EXPECT_EQ(Generate(c.answers, c.cancel), !c.cancel) << c.what;
    CustomProperty page(Application().GetObjectFromPath(L"Rig.Root.KinraGen"));
    ASSERT_TRUE(page.IsValid()) << c.what;
    EXPECT_EQ(page.GetParameterValue(L"Envelope").AsBool(), c.envelope) << c.what;
    EXPECT_EQ(page.GetParameterValue(L"Box").AsBool(), c.box) << c.what;
    EXPECT_EQ(page.GetParameterValue(L"Skill").AsBool(), c.skill) << c.what;
    EXPECT_EQ(page.GetParameter(L"Envelope").IsReadOnly(), c.envelopeReadOnly) << c.what;
    EXPECT_EQ(page.GetParameter(L"Skill").IsReadOnly(), c.skillReadOnly) << c.what;
    EXPECT_EQ(page.GetParameter(L"Cog").IsReadOnly(), c.boxOptionsReadOnly) << c.what;
    EXPECT_EQ(page.GetParameter(L"Factor").IsReadOnly(), c.boxOptionsReadOnly) << c.what;
  }
  // Greyed for want of actions, Skill is editable again once the model has one, its value kept.
  SetUp();
  Host(L"DeleteObj", {L"Rig.Sources.Walk"});
  EXPECT_FALSE(Generate({}, true));
  Host(L"StoreAction", {CValue(rig.GetRef()), L"Rig.Hips.posx", 6, L"Walk", 1, 1.0, 10.0});
  EXPECT_FALSE(Generate({}, true));
  CustomProperty page(Application().GetObjectFromPath(L"Rig.Root.KinraGen"));
  EXPECT_FALSE(page.GetParameterValue(L"Skill").AsBool());
  EXPECT_FALSE(page.GetParameter(L"Skill").IsReadOnly());
}

TEST_F(GenerateTest, RefusalsChangeNothing) {
  struct Case {
    const char* what;
    void (*prepare)(GenerateTest&);
    bool cancelPage;
    const wchar_t* message;  // null: none
  };
  const Case cases[] = {
      {"page cancelled", [](GenerateTest&) {}, true, nullptr},
      {"fcurve question cancelled",
       [](GenerateTest&) {
         Host(L"SetKey", {L"Rig.Thigh.rotz", 1.0, 5.0});
         rt::Host::Get().ui().msgBoxAnswers.push_back(siMsgCancel);
       },
       false, L"Kinra Export: Is it okay to remove the embedded FCurves on the rig?"},
      {"not initialized",
       [](GenerateTest& t) { Host(L"DeleteObj", {t.root.GetFullName() + L".RTKNode"}); }, false,
       L"Kinra Export: The source actor description must be initialized."},
      {"embedded model",
       [](GenerateTest& t) {
         Model inner;
         t.foot.AddModel(CRefArray(), L"Inner", inner);
       },
       false,
       L"Kinra Export: The source actor description must be contained by a single model (embedded "
       L"models not "
       L"supported)."},
  };
  for (const Case& c : cases) {
    SetUp();
    c.prepare(*this);
    const bool logging = Host(L"GetValue", {L"preferences.scripting.cmdlog"}).AsBool();
    const double thighBefore = Global(thigh).GetTranslation().GetY();
    EXPECT_FALSE(Generate({}, c.cancelPage)) << c.what;
    EXPECT_FALSE(Generated().IsValid()) << c.what;
    EXPECT_EQ(Host(L"GetValue", {L"preferences.scripting.cmdlog"}).AsBool(), logging) << c.what;
    EXPECT_EQ(Global(thigh).GetTranslation().GetY(), thighBefore) << c.what;
    const auto& boxes = rt::Host::Get().ui().messageBoxes;
    if (c.message) {
      ASSERT_FALSE(boxes.empty()) << c.what;
      EXPECT_EQ(boxes.back(), c.message) << c.what;
    } else {
      EXPECT_TRUE(boxes.empty()) << c.what;
    }
  }
  SetUp();
  X3DObject loose;
  Application().GetActiveSceneRoot().AddNull(L"Loose", loose);
  EXPECT_FALSE(GenerateActor(loose));
  EXPECT_EQ(rt::Host::Get().ui().messageBoxes.back(),
            L"Kinra Export: The source actor description must be contained by a single model "
            L"(scene root not "
            L"supported).");
}

TEST_F(GenerateTest, OptimisedCopyKeepsWhatTheRuntimeNeedsWhereTheSourceWas) {
  ASSERT_TRUE(Generate({{L"Envelope", L"true"}}));
  Model generated = Generated();
  ASSERT_TRUE(generated.IsValid());
  struct Expect {
    const wchar_t* name;
    const wchar_t* parent;  // null: left out
    const wchar_t* type;
  };
  const Expect expected[] = {
      {L"Root", L"KnrRig", L"null"},    {L"Hips", L"Root", L"polymsh"},
      {L"Spine", nullptr, nullptr},     {L"Chest", nullptr, nullptr},
      {L"Hand", L"Hips", L"polymsh"},   {L"Thigh", L"Hips", L"polymsh"},
      {L"Shin", L"Thigh", L"polymsh"},  {L"Foot", L"Shin", L"polymsh"},
      {L"Foot_CS", L"Foot", L"sphere"}, {L"Skin", L"Hips", L"polymsh"},
      {L"Outside", nullptr, nullptr},
  };
  for (const Expect& e : expected) {
    X3DObject copy = generated.FindChild(e.name);
    ASSERT_EQ(copy.IsValid(), e.parent != nullptr) << ToUtf8(e.name);
    if (!e.parent) continue;
    EXPECT_EQ(X3DObject(copy.GetParent()).GetName(), CString(e.parent)) << ToUtf8(e.name);
    EXPECT_EQ(copy.GetType(), CString(e.type)) << ToUtf8(e.name);
    ExpectSamePlace(copy, rig.FindChild(e.name), "home pose");
    MATH::CVector3 s = copy.GetKinematics().GetLocal().GetTransform().GetScaling();
    EXPECT_EQ(s.GetX() * s.GetY() * s.GetZ(), 1.0) << ToUtf8(e.name);
  }
  X3DObject genRoot = generated.FindChild(L"Root");
  EXPECT_TRUE(HasTag(genRoot, kTagActor));
  EXPECT_TRUE(HasTag(generated.FindChild(L"Hand"), kTagJointLimit));
  EXPECT_TRUE(HasTag(generated.FindChild(L"Foot"), kTagEffector));
  EXPECT_TRUE(HasTag(generated.FindChild(L"Hips"), kTagCogNode));

  // The skin: weights as percentages of the source total; a point weighted only by the deformer
  // that stayed outside keeps none.
  CRefArray envelopes = generated.FindChild(L"Skin").GetEnvelopes();
  ASSERT_EQ(envelopes.GetCount(), 1);
  Envelope envelope(envelopes[0]);
  ASSERT_EQ(envelope.GetDeformers().GetCount(), 1);
  EXPECT_EQ(envelope.GetDeformerWeights(envelope.GetDeformers()[0]).Items(),
            (std::vector<double>{75, 0, 100}));

  // The progress bar: its phases in order, ending at the maximum it announced.
  const rt::ProgressRecord& run = rt::Host::Get().ui().progressRuns.back();
  EXPECT_EQ(run.captions,
            (std::vector<std::wstring>{L"Generating Actor", L"Generating Hierarchy",
                                       L"Creating Boxes", L"Processing Envelopes",
                                       L"Initializing Generated Actor", L"Cleaning Up"}));
  EXPECT_EQ(run.value, run.maximum);
  EXPECT_EQ(run.maximum, ComputeProgressBarSize(rig, root, true, true, true));
}

TEST_F(GenerateTest, CopiedActionMovesTheCopyAsTheSourceMoved) {
  ASSERT_TRUE(Generate({{L"RemoveExtra", L"true"}, {L"Box", L"false"}}));
  Model generated = Generated();
  ActionSource copy(Application().GetObjectFromPath(L"KnrRig.Sources.Walk"));
  ASSERT_TRUE(copy.IsValid());
  EXPECT_EQ(copy.GetParameterValue(L"FrameEnd").AsDouble(), 10.0);
  Host(L"ApplyAction", {L"Rig.Sources.Walk"});
  Host(L"ApplyAction", {L"KnrRig.Sources.Walk"});
  for (double frame : {1.0, 3.0, 5.0, 8.0, 10.0}) {
    Host(L"SetValue", {L"PlayControl.Current", frame});
    for (const wchar_t* name : {L"Hips", L"Hand", L"Thigh", L"Shin", L"Foot", L"Foot_CS"}) {
      ExpectSamePlace(generated.FindChild(name), rig.FindChild(name),
                      "frame " + std::to_string(frame));
    }
  }
  EXPECT_EQ(generated.FindChildren(CString(), L"polymsh").GetCount(), 0)
      << "Box off: nulls stay nulls, and without Envelope the optimised copy leaves the skin out";
}

TEST_F(GenerateTest, SecondGenerateMakesANumberedModel) {
  ASSERT_TRUE(Generate());
  ASSERT_TRUE(Generate());
  EXPECT_TRUE(Generated(L"KnrRig").FindChild(L"Root").IsValid());
  EXPECT_TRUE(Generated(L"KnrRig1").FindChild(L"Root").IsValid());
  EXPECT_EQ(Model(Generated(L"KnrRig1")).GetSources().GetCount(), 1);
}

TEST_F(GenerateTest, UnusedNodeLooksTwoLevelsDownForFeet) {
  X3DObject chainRoot(
      Host(L"CreateChain", {L"Leg", root.GetFullName(), 0, 0, 0, 0, -1, 0, 0, -2, 0}).AsRef());
  ChainRoot chain(chainRoot);
  X3DObject bone(chain.GetBones()[0]), effector(chain.GetEffector());
  X3DObject plain = Null(foot, L"Plain", 0, 0, 0);
  struct Case {
    const char* what;
    X3DObject node;
    bool unused;
  };
  Case cases[] = {
      {"foot", foot, false},
      {"parent of foot", shin, false},
      {"grandparent of foot", thigh, false},
      {"great-grandparent", root, true},
      {"joint limit", hand, false},
      {"sphere", foot.FindChild(L"Foot_CS"), false},
      {"plain leaf", plain, true},
      {"IK effector", effector, false},
      {"bone of an untagged chain", bone, true},
  };
  for (Case& c : cases) EXPECT_EQ(UnusedNode(c.node), c.unused) << c.what;
  AddTag(effector, kTagEffector);
  EXPECT_FALSE(UnusedNode(bone)) << "bone of a chain whose effector is a foot";
}

TEST_F(GenerateTest, IkEffectorEndsUnderItsLastBone) {
  X3DObject chainRoot(
      Host(L"CreateChain", {L"Arm", hips.GetFullName(), 0, 1, 0, 1, 1, 0, 2, 1, 0}).AsRef());
  ASSERT_TRUE(InitializeActorTB(hips, false));
  ASSERT_TRUE(Generate({{L"Box", L"false"}}));
  Model generated = Generated();
  X3DObject effector = generated.FindChild(L"Arm_Eff");
  ASSERT_TRUE(effector.IsValid());
  EXPECT_EQ(effector.GetClassID(), siChainEffectorID);
  EXPECT_EQ(X3DObject(effector.GetParent()).GetName(), CString(L"Arm_Bone1"));
  EXPECT_EQ(generated.FindChild(L"Arm_Bone1").GetClassID(), siChainBoneID);
  ExpectSamePlace(effector, rig.FindChild(L"Arm_Eff"), "chain");
}

TEST_F(GenerateTest, BoxSizes) {
  GenerateOptions o;
  struct Factor {
    float factor;
    double half;
  };
  CustomProperty options = root.AddProperty(L"KinraGen");
  for (Factor f : {Factor{1.0f, 0.5}, Factor{0.2f, 0.1}}) {
    options.PutParameterValue(L"Factor", f.factor);
    o = ReadGenerateOptions(options);
    EXPECT_NEAR(o.halfFactor, f.half, 1e-7);
  }
  X3DObject point;
  Application().GetActiveSceneRoot().AddNull(L"Point", point);
  EXPECT_EQ(ComputeNominalSize(point), 0.0f);

  // Links of 4 (Shin) and 0.1 (Tip): with a half factor 0.5 and nominal length 4, the long link
  // gets w = 2 and the short one, where 2w > L, w = 0.2.
  X3DObject tip = Null(foot, L"Tip", 0, 0.1, 0);
  Null(tip, L"TipEnd", 0, 0.1, 0);
  ASSERT_TRUE(InitializeActorTB(hips, false));
  ProgressBar none;
  ReplaceNodeWithBox(thigh, 4.0f, false, 0.5, none);
  struct Width {
    const wchar_t* name;
    double width;
  };
  for (Width w : {Width{L"Thigh", 4.0}, Width{L"Tip", 0.4}}) {
    X3DObject box = rig.FindChild(w.name);
    MATH::CVector3 lo, hi;
    ASSERT_TRUE(box.GetActivePrimitive().GetGeometry().GetBoundingBox(lo, hi).Succeeded())
        << ToUtf8(w.name);
    EXPECT_NEAR(hi.GetX() - lo.GetX(), w.width, 1e-5) << ToUtf8(w.name);
  }
}

// The boxer of generate_boxing.zys: the copy sits where the capture's rig sits in its home pose,
// its boxes replace the joints' geometry, its skin weights sum to 100 per point, and its take
// moves every copied joint where the capture's take moves the rig.
TEST_F(GenerateTest, CapturedBoxerThroughTheScript) {
  rt::Host::Get().NewScene();
  rt::Host::Get().ui() = rt::UiState();
  std::ifstream in(KNR_TEST_DATA_DIR "/../knrexport/cli/generate_boxing.zys");
  std::stringstream text;
  text << in.rdbuf();
  std::string script = text.str();
  const std::string data = KNR_SHARED_DATA_DIR;
  const std::string relative = "tests/data/mocap";  // the script's paths, from the checkout
  for (size_t at = 0; (at = script.find(relative, at)) != std::string::npos; at += data.size()) {
    script.replace(at, relative.size(), data);
  }
  ASSERT_TRUE(rt::RunScriptText(FromUtf8(script), "generate_boxing.zys").Succeeded());
  Model source(Application().GetObjectFromPath(L"Boxer")),
      generated(Application().GetObjectFromPath(L"KnrBoxer"));
  ASSERT_TRUE(source.IsValid() && generated.IsValid());
  CRefArray copies = generated.FindChildren(CString(), CString());
  ASSERT_GT(copies.GetCount(), 10);
  int boxes = 0;
  for (const CRef& ref : copies) {
    X3DObject copy(ref);
    X3DObject original = source.FindChild(copy.GetName());
    ASSERT_TRUE(original.IsValid()) << ToUtf8(copy.GetName().Wide());
    ExpectSamePlace(copy, original, "home");
    Property home, sourceHome;
    if (FindProperty(copy, kTagHomePose, home) &&
        FindProperty(original, kTagHomePose, sourceHome)) {
      for (const wchar_t* v : {L"px", L"py", L"pz"}) {
        EXPECT_NEAR(home.GetParameterValue(v).AsDouble(),
                    sourceHome.GetParameterValue(v).AsDouble(), 1e-5);
      }
    }
    if (!KeepsOwnGeometry(copy)) {
      EXPECT_EQ(copy.GetActivePrimitive().GetGeometry().GetPointCount(), 8)
          << ToUtf8(copy.GetName().Wide());
      ++boxes;
    }
  }
  EXPECT_GT(boxes, 5);
  CRefArray envelopes = generated.FindChild(L"Skin").GetEnvelopes();
  ASSERT_EQ(envelopes.GetCount(), 1);
  std::vector<double> totals(4, 0.0);
  for (const CRef& deformer : Envelope(envelopes[0]).GetDeformers()) {
    CDoubleArray weights = Envelope(envelopes[0]).GetDeformerWeights(deformer);
    for (long p = 0; p < 4; ++p) totals[static_cast<size_t>(p)] += weights[p];
  }
  for (double total : totals) EXPECT_NEAR(total, 100.0, 1e-9);

  Host(L"ApplyAction", {L"Boxer.Sources.Take"});
  Host(L"ApplyAction", {L"KnrBoxer.Sources.Take"});
  for (double frame : {0.0, 700.0, 1801.0, 3068.0}) {
    Host(L"SetValue", {L"PlayControl.Current", frame});
    for (const CRef& ref : copies)
      ExpectSamePlace(X3DObject(ref), source.FindChild(X3DObject(ref).GetName()),
                      "frame " + std::to_string(frame));
  }
}

}  // namespace

// A source whose "type" names a skill kind is converted on its copy: after Basic the copy's root
// carries the body's ground position, so it stands where the source's hips stand.
TEST_F(GenerateTest, CopiesAreConvertedIntoTheKindTheirSourceNames) {
  for (double frame : {1.0, 10.0}) Host(L"SetKey", {L"Rig.Root.posz", frame, frame});
  Host(L"StoreAction",
       {CValue(rig.GetRef()), L"Rig.Root.posz,Rig.Hips.posx", 6, L"Stroll", 1, 1.0, 10.0});
  ActionSource(Application().GetObjectFromPath(L"Rig.Sources.Stroll"))
      .PutParameterValue(L"type", 1);
  ASSERT_TRUE(Generate({{L"Skill", L"true"}}));
  ActionSource copy(Application().GetObjectFromPath(L"KnrRig.Sources.Stroll"));
  ASSERT_TRUE(copy.IsValid());
  EXPECT_EQ(copy.GetParameterValue(L"type").AsInt(), 1);
  Host(L"ApplyAction", {L"Rig.Sources.Stroll"});
  Host(L"ApplyAction", {L"KnrRig.Sources.Stroll"});
  Model generated = Generated();
  for (double frame : {1.0, 4.0, 10.0}) {
    Host(L"SetValue", {L"PlayControl.Current", frame});
    const MATH::CVector3 body = Global(rig.FindChild(L"Hips")).GetTranslation();
    const MATH::CVector3 root = Global(generated.FindChild(L"Root")).GetTranslation();
    EXPECT_NEAR(root.GetX(), body.GetX(), 1e-4) << "frame " << frame;
    EXPECT_NEAR(root.GetZ(), body.GetZ(), 1e-4) << "frame " << frame;
    EXPECT_NEAR(root.GetY(), 0.0, 1e-6) << "frame " << frame;
  }
}
