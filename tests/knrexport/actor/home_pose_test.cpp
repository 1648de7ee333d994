// Set Home and Goto Home on actors built through the SDK: what is recorded where, going back
// after every node moved, the fcurve question and its Cancel path, the base-fixing marker and
// the progress bars.
#include "knrexport/actor/home_pose.h"

#include <gtest/gtest.h>

#include <random>

#include "host/host.h"
#include "knrexport/actor/initialize.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/tags.h"
#include "model/scene_graph.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

class HomePoseTest : public ::testing::Test {
 protected:
  void SetUp() override {
    rt::Host::Get().NewScene();
    rt::Host::Get().ui() = rt::UiState();
    Application().GetActiveSceneRoot().AddModel(CRefArray(), L"Rig", rig);
    rig.AddNull(L"Hips", hips);
    hips.AddNull(L"Cog", cog);
    cog.AddNull(L"Spine", spine);
    spine.AddNull(L"Head", head);
    nodes = {hips, cog, spine, head};
  }
  void Move(std::mt19937& random) {
    std::uniform_real_distribution<double> any(-60.0, 60.0);
    for (X3DObject& node : nodes) {
      for (const wchar_t* p : {L"posx", L"posy", L"posz", L"rotx", L"roty", L"rotz"}) node.PutParameterValue(p, any(random));
    }
  }
  std::vector<MATH::CTransformation> Globals() {
    std::vector<MATH::CTransformation> out;
    for (X3DObject& node : nodes) out.push_back(node.GetKinematics().GetGlobal().GetTransform());
    return out;
  }
  static void ExpectSame(const std::vector<MATH::CTransformation>& a, const std::vector<MATH::CTransformation>& b) {
    for (size_t i = 0; i < a.size(); ++i) {
      EXPECT_NEAR((a[i].GetTranslation() - b[i].GetTranslation()).GetLength(), 0.0, 1e-4) << i;  // stored as floats
      EXPECT_NEAR(std::fabs((a[i].GetRotationQuaternion().Conjugate() * b[i].GetRotationQuaternion()).GetW()), 1.0, 1e-9) << i;
    }
  }
  rt::UiState& Ui() { return rt::Host::Get().ui(); }
  Model rig;
  X3DObject hips, cog, spine, head;
  std::vector<X3DObject> nodes;
};

TEST_F(HomePoseTest, GotoHomeGivesBackTheRecordedPoseAfterEveryNodeMoved) {
  std::mt19937 random(3);
  Move(random);
  auto home = Globals();
  ASSERT_TRUE(SetHomeTB(head, true));
  Property pose;
  ASSERT_TRUE(FindProperty(spine, kTagHomePose, pose));
  EXPECT_NEAR(pose.GetParameterValue(L"px").AsDouble(), home[2].GetTranslation().GetX(), 1e-4);
  EXPECT_NEAR(pose.GetParameterValue(L"rz").AsDouble(), home[2].GetRotationXYZAngles().GetZ(), 1e-5);
  EXPECT_TRUE(FindProperty(hips, kTagNode, pose)) << "Set Home initializes the actor";
  Move(random);
  ASSERT_TRUE(GotoHomeTB(cog));
  ExpectSame(Globals(), home);
  EXPECT_TRUE(Ui().messageBoxes.empty()) << "an actor without fcurves is not asked about them";
  // Set Home's bar is three times the node count, Goto Home's four times for a source actor.
  ASSERT_EQ(Ui().progressRuns.size(), 2u);
  EXPECT_EQ(Ui().progressRuns[0].captions, std::vector<std::wstring>{L"Storing Home Pose"});
  EXPECT_EQ(Ui().progressRuns[0].maximum, 3 * 4);
  EXPECT_EQ(Ui().progressRuns[1].captions, std::vector<std::wstring>{L"Applying Home Pose"});
  EXPECT_EQ(Ui().progressRuns[1].maximum, 4 * 4);
  EXPECT_EQ(Ui().progressRuns[1].value, 4 * 4);
  // A generated actor goes home in one pass, with a bar of the node count.
  AddTag(hips, kTagActor);
  ASSERT_TRUE(GotoHomeTB(cog));
  EXPECT_EQ(Ui().progressRuns.back().maximum, 4);
}

TEST_F(HomePoseTest, GotoHomeWithoutAHomePoseDoesNothingAndSaysNothing) {
  std::mt19937 random(5);
  Move(random);
  auto before = Globals();
  EXPECT_FALSE(GotoHome(head, ProgressBar()));
  ExpectSame(Globals(), before);
  EXPECT_TRUE(Ui().messageBoxes.empty());
}

TEST_F(HomePoseTest, AnimatedRigsAreAskedAndCancelChangesNothing) {
  std::mt19937 random(9);
  ASSERT_TRUE(SetHome(hips, false, ProgressBar(), true));
  CValue ignored;
  ASSERT_TRUE(Application().ExecuteCommand(L"SetKey", {L"Rig.Spine.rotx", 1, 45.0}, ignored).Succeeded());
  ASSERT_TRUE(Application().ExecuteCommand(L"SetKey", {L"Rig.Spine.rotx", 10, 90.0}, ignored).Succeeded());
  Move(random);
  auto moved = Globals();
  Ui().msgBoxAnswers.push_back(2);  // Cancel
  EXPECT_FALSE(GotoHome(hips, ProgressBar()));
  ASSERT_EQ(Ui().messageBoxes.size(), 1u);
  EXPECT_EQ(Ui().messageBoxes[0],
            L"Kinra Export: Is it okay to remove the embedded FCurves on the rig (the FCurves conflict with the "
            L"Goto Home action)?");
  ExpectSame(Globals(), moved);
  EXPECT_TRUE(spine.IsAnimated(siFCurveSource, true)) << "Cancel keeps the animation";
  EXPECT_TRUE(GotoHome(hips, ProgressBar())) << "OK (the default answer) clears and goes home";
  EXPECT_FALSE(rig.IsAnimated(siFCurveSource, false));
  EXPECT_DOUBLE_EQ(spine.GetParameterValue(L"rotx").AsDouble(), 0.0);
}

TEST_F(HomePoseTest, TheBaseMarkerIsAddedOnceAndRemovedWithoutTheFlag) {
  auto markers = [&] {
    int n = 0;
    for (const CRef& ref : hips.GetProperties()) n += Property(ref).GetName() == CString(kTagFixHomeBase);
    return n;
  };
  ASSERT_TRUE(SetHome(hips, true, ProgressBar(), true));
  ASSERT_TRUE(SetHome(hips, true, ProgressBar(), true));
  EXPECT_EQ(markers(), 1);
  ASSERT_TRUE(SetHome(hips, false, ProgressBar(), true));
  EXPECT_EQ(markers(), 0);
}

TEST_F(HomePoseTest, SpheresAreNotRecordedButTheirChildrenAre) {
  X3DObject sphere, below;
  spine.AddPrimitive(L"Sphere", L"Spine_CS", sphere);
  AddTag(sphere, kTagSphere, 1.0f);
  sphere.AddNull(L"BelowSphere", below);
  ASSERT_TRUE(SetHome(hips, false, ProgressBar(), true));
  Property pose;
  EXPECT_FALSE(FindProperty(sphere, kTagHomePose, pose));
  EXPECT_TRUE(FindProperty(below, kTagHomePose, pose));
  EXPECT_TRUE(FindProperty(rig, kTagHomePose, pose)) << "the walk starts at the model";
}

TEST_F(HomePoseTest, RefusalsNameWhatIsWrong) {
  X3DObject loose;
  Application().GetActiveSceneRoot().AddNull(L"Loose", loose);
  EXPECT_FALSE(SetHomeTB(loose, true));
  EXPECT_FALSE(GotoHomeTB(loose));
  ASSERT_EQ(Ui().messageBoxes.size(), 2u);
  for (const std::wstring& box : Ui().messageBoxes) {
    EXPECT_EQ(box, L"Kinra Export: Actor descriptions must be contained by a single model (scene root not supported).");
  }
  Property pose;
  EXPECT_FALSE(FindProperty(loose, kTagHomePose, pose));
}

}  // namespace
