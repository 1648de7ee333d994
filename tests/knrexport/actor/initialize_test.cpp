// Initializing actors built through the SDK: the tags it leaves, the nodes it skips, the
// measured RTKActor, and the structures it refuses.
#include "knrexport/actor/initialize.h"

#include <gtest/gtest.h>

#include <cmath>

#include "host/host.h"
#include "knrexport/scene/actor_lookup.h"
#include "knrexport/scene/tags.h"
#include "model/scene_graph.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

class InitializeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    rt::Host::Get().NewScene();
    rt::Host::Get().ui() = rt::UiState();
    Application().GetActiveSceneRoot().AddModel(CRefArray(), L"Rig", rig);
    hips = Null(rig, L"Hips", 0, 1, 0);
    cog = Null(hips, L"Cog", 0, 0, 0);
    leftLeg = Null(cog, L"LeftLeg", 1, 0, 0);
    rightLeg = Null(cog, L"RightLeg", -1, 0, 0);
    head = Null(cog, L"Head", 0, 1, 0);
  }
  X3DObject Null(X3DObject parent, const wchar_t* name, double x, double y, double z) {
    X3DObject out;
    parent.AddNull(name, out);
    out.PutParameterValue(L"posx", x);
    out.PutParameterValue(L"posy", y);
    out.PutParameterValue(L"posz", z);
    return out;
  }
  int Count(X3DObject& o, const wchar_t* tag) {
    int n = 0;
    for (const CRef& ref : o.GetProperties()) n += Property(ref).GetName() == CString(tag);
    return n;
  }
  const std::vector<std::wstring>& Boxes() { return rt::Host::Get().ui().messageBoxes; }
  Model rig;
  X3DObject hips, cog, leftLeg, rightLeg, head;
};

TEST_F(InitializeTest, TagsEveryNodeMarksLeavesAndRebuildsTheMarks) {
  ASSERT_TRUE(InitializeActorTB(head, false)) << "any node of the actor selects it";
  for (X3DObject* node : {&hips, &cog, &leftLeg, &rightLeg, &head}) {
    EXPECT_EQ(Count(*node, kTagNode), 1) << ToUtf8(node->GetName().Wide());
    EXPECT_EQ(Property(node->GetProperties().GetItem(L"Display Property")).GetParameterValue(L"wirecol").AsInt(), 512);
  }
  EXPECT_EQ(Count(leftLeg, kTagEnd), 1);
  EXPECT_EQ(Count(cog, kTagEnd), 0);
  EXPECT_EQ(Count(hips, kTagEnd), 0) << "the root is tagged but not scanned";
  EXPECT_EQ(Count(hips, kTagActor), 0) << "without Shift no RTKActor";
  ASSERT_EQ(rt::Host::Get().ui().progressRuns.size(), 1u);
  const rt::ProgressRecord& run = rt::Host::Get().ui().progressRuns[0];
  EXPECT_EQ(run.captions, std::vector<std::wstring>{L"Initializing Actor"});
  EXPECT_EQ(run.maximum, 2 * 5);
  EXPECT_FALSE(run.cancelEnabled);

  // A leaf that gained a child loses its mark; nothing is tagged twice.
  X3DObject foot = Null(leftLeg, L"LeftFoot", 0, -1, 0);
  ASSERT_TRUE(InitializeActorTB(hips, false));
  EXPECT_EQ(Count(leftLeg, kTagEnd), 0);
  EXPECT_EQ(Count(foot, kTagEnd), 1);
  EXPECT_EQ(Count(leftLeg, kTagNode), 1);
  EXPECT_EQ(Count(rightLeg, kTagEnd), 1);
  EXPECT_TRUE(Boxes().empty());
}

TEST_F(InitializeTest, LightsAndCamerasUnderTheCogAreSkippedWithTheirBranch) {
  X3DObject lamp;
  cog.AddLight(L"Lamp", lamp);
  X3DObject below = Null(lamp, L"BelowLamp", 0, 0, 0);
  ASSERT_TRUE(InitializeActor(hips, false, ProgressBar()));
  EXPECT_EQ(Count(lamp, kTagNode), 0);
  EXPECT_EQ(Count(below, kTagNode), 0);
  EXPECT_EQ(Count(head, kTagNode), 1);
}

TEST_F(InitializeTest, ShiftAddsAMeasuredActorTag) {
  X3DObject box;
  head.AddGeometry(L"Cube", L"MeshSurface", L"HeadBox", box);  // edge 8 around the head at y = 2
  ASSERT_TRUE(InitializeActorTB(hips, true));
  Property actor;
  ASSERT_TRUE(FindProperty(hips, kTagActor, actor));
  // Box: x -4..4 (legs at +-1 inside it), y -2..6 (the cube around y = 2), z -4..4; root at (0, 1, 0).
  EXPECT_NEAR(actor.GetParameterValue(L"Radius").AsDouble(), std::hypot(4.0, 4.0), 1e-5);
  EXPECT_NEAR(actor.GetParameterValue(L"Height").AsDouble(), 8.0, 1e-5);
  EXPECT_NEAR(actor.GetParameterValue(L"MeanDistance").AsDouble(), std::hypot(4.0, 4.0), 1e-5);
  ASSERT_TRUE(InitializeActorTB(hips, true));
  EXPECT_EQ(Count(hips, kTagActor), 1);
}

TEST_F(InitializeTest, BadStructuresAreRefusedWithTheirMessages) {
  X3DObject loose;
  Application().GetActiveSceneRoot().AddNull(L"Loose", loose);
  EXPECT_FALSE(InitializeActorTB(loose, false));
  EXPECT_EQ(Boxes().back(),
            L"Kinra Export: Actor descriptions must be contained by a single model (scene root not supported).");
  Model prop;
  head.AddModel(CRefArray(), L"Prop", prop);
  EXPECT_FALSE(InitializeActor(hips, false, ProgressBar()));
  EXPECT_EQ(Boxes().back(),
            L"Kinra Export: Actor descriptions must be contained by a single model (embedded models not supported).");
  CValue ignored;
  Application().ExecuteCommand(L"DeleteObj", {CValue(prop.GetRef())}, ignored);
  Null(rig, L"Second", 0, 0, 0);
  size_t before = Boxes().size();
  EXPECT_FALSE(InitializeActor(hips, false, ProgressBar()));
  EXPECT_EQ(Boxes().size(), before + 1) << "the root lookup says what is wrong";
  EXPECT_EQ(Count(hips, kTagNode), 0) << "a refused actor gets no tags";
}

}  // namespace
