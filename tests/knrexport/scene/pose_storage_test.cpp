// Pose storage on hierarchies built through the SDK: the stored bytes, restoring after every
// node moved, changed hierarchies, and the scaling checks.
#include "knrexport/scene/pose_storage.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "host/host.h"
#include "knrexport/scene/actor_lookup.h"
#include "model/scene_graph.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

class PoseStorageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    rt::Host::Get().NewScene();
    rt::Host::Get().ui().messageBoxes.clear();
  }
  X3DObject Null(X3DObject parent, const wchar_t* name) {
    X3DObject out;
    parent.AddNull(name, out);
    return out;
  }
  MATH::CTransformation Global(X3DObject& o) { return o.GetKinematics().GetGlobal().GetTransform(); }
  CValue Run(const wchar_t* command, const CValueArray& args) {
    CValue out;
    EXPECT_TRUE(Application().ExecuteCommand(command, args, out).Succeeded());
    return out;
  }
  int StorePoseCount(X3DObject& o) {
    int n = 0;
    for (const CRef& ref : o.GetProperties()) n += Property(ref).GetName() == CString(L"StorePose");
    return n;
  }
  static void ExpectSamePose(const MATH::CTransformation& a, const MATH::CTransformation& b) {
    EXPECT_NEAR((a.GetTranslation() - b.GetTranslation()).GetLength(), 0.0, 1e-4);
    MATH::CQuaternion d = a.GetRotationQuaternion().Conjugate() * b.GetRotationQuaternion();
    EXPECT_NEAR(std::fabs(d.GetW()), 1.0, 1e-5);
    EXPECT_NEAR((a.GetScaling() - b.GetScaling()).GetLength(), 0.0, 1e-5);
  }
};

float FloatAt(const std::vector<unsigned char>& bytes, size_t index) {
  uint32_t bits = 0;
  for (int i = 0; i < 4; ++i) bits |= static_cast<uint32_t>(bytes[index * 4 + static_cast<size_t>(i)]) << (8 * i);
  float f;
  std::memcpy(&f, &bits, 4);
  return f;
}

TEST_F(PoseStorageTest, TheBlobHoldsTenLittleEndianFloatsPerNodeInChildOrder) {
  Model root = Application().GetActiveSceneRoot();
  X3DObject top = Null(root, L"Top");
  X3DObject a = Null(top, L"A");
  Null(a, L"A1");
  Null(top, L"B");
  Run(L"SetValue", {L"Top.posx", 1.0});
  Run(L"SetValue", {L"Top.posy", 2.0});
  Run(L"SetValue", {L"Top.posz", 3.0});
  Run(L"SetValue", {L"Top.sclx", 2.0});
  Run(L"SetValue", {L"B.rotz", 90.0});
  StorePose(top);
  Property found;
  ASSERT_TRUE(FindProperty(top, L"StorePose", found));
  std::vector<unsigned char> bytes = UserDataBlob(found).GetValue();
  ASSERT_EQ(bytes.size(), 4 * kPoseRecordSize) << "top, A, A1, B";
  const float topRecord[] = {1, 2, 3, 0, 0, 0, 1, 2, 1, 1};
  for (size_t i = 0; i < 10; ++i) EXPECT_FLOAT_EQ(FloatAt(bytes, i), topRecord[i]) << i;
  // Raw bytes of the first float, 1.0f little-endian.
  EXPECT_EQ(bytes[0], 0x00);
  EXPECT_EQ(bytes[3], 0x3F);
  EXPECT_EQ(bytes[2], 0x80);
  // Record 3 is B: child of Top at (1,2,3) with x scaled by 2, turned 90 degrees about Z.
  EXPECT_FLOAT_EQ(FloatAt(bytes, 30), 1.0f);
  EXPECT_NEAR(FloatAt(bytes, 35), std::sqrt(0.5f), 1e-6);  // quaternion z
  EXPECT_NEAR(FloatAt(bytes, 36), std::sqrt(0.5f), 1e-6);  // quaternion w
  EXPECT_FLOAT_EQ(FloatAt(bytes, 37), 2.0f) << "global scaling inherits the parent's";

  StorePose(top);
  EXPECT_EQ(StorePoseCount(top), 1) << "a second store replaces the first";
  X3DObject single = Null(root, L"Single");
  StorePose(single);
  ASSERT_TRUE(FindProperty(single, L"StorePose", found));
  EXPECT_EQ(UserDataBlob(found).GetValue().size(), kPoseRecordSize);
  EXPECT_TRUE(CleanupPose(single));
  EXPECT_EQ(StorePoseCount(single), 0);
  EXPECT_TRUE(CleanupPose(single)) << "nothing to clean is fine";
  EXPECT_FALSE(RestorePose(single, true)) << "nothing stored";
}

TEST_F(PoseStorageTest, RestoreGivesBackEveryGlobalTransformAfterEveryNodeMoved) {
  Model model;
  Application().GetActiveSceneRoot().AddModel(CRefArray(), L"Rig", model);
  X3DObject hips = Null(model, L"Hips");
  X3DObject spine = Null(hips, L"Spine");
  X3DObject head = Null(spine, L"Head");
  ChainRoot arm = Run(L"CreateChain", {L"Arm", L"Rig.Spine", 0, 1, 0, 1, 1, 0, 1, 2, 0}).AsRef();
  ASSERT_TRUE(arm.IsValid());
  std::vector<X3DObject> nodes{hips};
  for (const CRef& ref : hips.FindChildren(CString(), CString())) nodes.emplace_back(ref);
  ASSERT_EQ(nodes.size(), 7u);

  std::mt19937 random(7);
  std::uniform_real_distribution<double> any(-90.0, 90.0);
  auto scramble = [&] {
    for (X3DObject& node : nodes) {
      for (const wchar_t* p : {L"posx", L"posy", L"posz", L"rotx", L"roty", L"rotz"}) {
        node.PutParameterValue(p, any(random));
      }
    }
  };
  scramble();
  hips.PutParameterValue(L"sclx", 1.5);
  hips.PutParameterValue(L"scly", 1.5);
  hips.PutParameterValue(L"sclz", 1.5);
  std::vector<MATH::CTransformation> before;
  for (X3DObject& node : nodes) before.push_back(Global(node));
  StorePose(hips);
  scramble();
  ASSERT_TRUE(RestorePose(hips, false));
  for (size_t i = 0; i < nodes.size(); ++i) {
    SCOPED_TRACE(ToUtf8(nodes[i].GetName().Wide()));
    ExpectSamePose(Global(nodes[i]), before[i]);
  }

  // One pass skips the chain bones: everything else is back, the bones are not.
  scramble();
  ASSERT_TRUE(RestorePose(hips, true));
  X3DObject bone(arm.GetBones()[0]);
  for (size_t i = 0; i < nodes.size(); ++i) {
    if (nodes[i].GetClassID() == siChainBoneID) {
      EXPECT_GT((Global(nodes[i]).GetTranslation() - before[i].GetTranslation()).GetLength() +
                    std::fabs(std::fabs((Global(nodes[i]).GetRotationQuaternion().Conjugate() *
                                         before[i].GetRotationQuaternion()).GetW()) - 1.0),
                1e-3);
    } else {
      ExpectSamePose(Global(nodes[i]), before[i]);
    }
  }
}

TEST_F(PoseStorageTest, AChangedHierarchyRestoresTheCommonPrefixAndFails) {
  Model root = Application().GetActiveSceneRoot();
  X3DObject top = Null(root, L"Top");
  X3DObject a = Null(top, L"A");
  Run(L"SetValue", {L"A.posx", 5.0});
  StorePose(top);
  Run(L"SetValue", {L"A.posx", 9.0});
  X3DObject extra = Null(a, L"Extra");
  EXPECT_FALSE(RestorePose(top, false));
  EXPECT_DOUBLE_EQ(a.GetParameterValue(L"posx").AsDouble(), 5.0) << "A is in the common prefix";

  StorePose(top);
  Run(L"DeleteObj", {L"Extra"});
  Run(L"DeleteObj", {L"A"});
  EXPECT_FALSE(RestorePose(top, false)) << "fewer nodes than records";
}

TEST_F(PoseStorageTest, ScaleChecksUseTheToleranceAndSkipEndsAndEnvelopes) {
  Model root = Application().GetActiveSceneRoot();
  X3DObject top = Null(root, L"Top");
  X3DObject a = Null(top, L"A");
  a.PutParameterValue(L"scly", 1.00000005);
  EXPECT_TRUE(TestForScale(top, L"actor", true, false));
  a.PutParameterValue(L"scly", 1.0000002);
  EXPECT_FALSE(TestForScale(top, L"home pose", false, false));
  EXPECT_TRUE(rt::Host::Get().ui().messageBoxes.empty());
  EXPECT_FALSE(TestForScale(top, L"home pose", true, false));
  ASSERT_EQ(rt::Host::Get().ui().messageBoxes.size(), 1u);
  EXPECT_EQ(rt::Host::Get().ui().messageBoxes[0],
            L"Kinra Export: The scaling on the actor node A must be (1,1,1) for a valid home pose.\n"
            L"Generate the actor to freeze all the scaling in the description.");
  a.AddProperty(L"Custom_parameter_list", false, L"RTKEnd");
  EXPECT_TRUE(TestForScale(top, L"actor", true, false));
  EXPECT_FALSE(TestForScale(top, L"actor", false, true));

  a.AddProperty(L"Custom_parameter_list", false, L"RTKNode");
  EXPECT_TRUE(TestForUniformScale(top, top, false)) << "ends are not checked";
  X3DObject b = Null(top, L"B");
  b.AddProperty(L"Custom_parameter_list", false, L"RTKNode");
  b.PutParameterValue(L"sclx", 2.0);
  b.PutParameterValue(L"scly", 2.0);
  b.PutParameterValue(L"sclz", 2.0);
  EXPECT_TRUE(TestForUniformScale(top, top, false));
  b.PutParameterValue(L"sclz", 2.000001);
  EXPECT_FALSE(TestForUniformScale(top, top, false));
}

TEST_F(PoseStorageTest, OldLayoutLeftoversAreDeleted) {
  Model root = Application().GetActiveSceneRoot();
  X3DObject top = Null(root, L"Top");
  X3DObject a = Null(top, L"A");
  Null(a, L"TmpRTKBndCylinder");
  a.AddProperty(L"Custom_parameter_list", false, L"TmpRTKPose");
  top.AddProperty(L"Custom_parameter_list", false, L"RTKHandle");
  X3DObject keep = Null(a, L"Keep");
  RemoveOldFormatTempData(top, ProgressBar());
  EXPECT_EQ(GetNumChildren(top), 2);
  EXPECT_TRUE(keep.IsValid());
  Property found;
  EXPECT_FALSE(FindProperty(a, L"TmpRTKPose", found));
  EXPECT_FALSE(FindProperty(top, L"RTKHandle", found));
}

}  // namespace
