// Locomotion skills on takes keyed in the test: a walk whose stance frames are known (one heel
// sliding sideways while planted), a gradual turn and a sudden about-face; the root keeps only
// forward travel and heading, root x COG keeps the body up to the one shift that grounds the
// lowest sphere; and the refusals of source actors and actors without feet.
#include "knrexport/skill/loco_skill.h"

#include "skill_test_rig.h"

namespace {

using namespace skilltest;

constexpr double kDeg = 3.14159265358979 / 180.0;

// The left heel of the walk: planted for five frames of every ten (sliding sideways by 3 a
// frame), then five frames in the air moving forward by 4 a frame.
void LeftHeel(int f, double& x, double& y, double& z) {
  static const double kSwingHeight[5] = {4, 8, 8, 4, 3};
  const int p = f % 10, step = f / 10;
  const bool planted = p < 5;
  x = planted ? 10.0 + 3.0 * p : 10.0;
  y = planted ? 0.0 : kSwingHeight[p - 5];
  z = 20.0 * step + (planted ? 0.0 : 4.0 * (p - 4));
}

Pose Walk(int f) {
  double x, y, z, rx, ry, rz;
  LeftHeel(f, x, y, z);
  LeftHeel(f + 5, rx, ry, rz);
  const double hipsZ = 2.0 * f;
  return Pose{{L"Hips.posz", hipsZ},          {L"Hips.posy", 90.0},       {L"LeftFoot.posx", x},
              {L"LeftFoot.posy", y - 90.0},   {L"LeftFoot.posz", z - hipsZ}, {L"RightFoot.posx", -10.0},
              {L"RightFoot.posy", ry - 90.0}, {L"RightFoot.posz", rz - 10.0 - hipsZ}};
}

std::string KeysOf(ActionSource source, const std::wstring& target) {
  std::string out;
  for (const CRef& ref : source.GetItems()) {
    AnimationSourceItem item(ref);
    if (item.GetTarget() != CString(target)) continue;
    FCurve curve(item.GetSource());
    for (long k = 0; k < curve.GetKeyCount(); ++k) {
      out += std::to_string(curve.GetKeyValue(k).AsInt()) + "@" + std::to_string(static_cast<int>(curve.GetKeyTime(k).GetTime())) + " ";
    }
    if (curve.GetInterpolation() != siConstantInterpolation) out += "(not constant)";
  }
  return out;
}

class LocoSkillTest : public SkillRig {
 protected:
  // Root x COG of the skill: the root stays on the ground's forward axis turning about the
  // vertical only, and the COG's global path equals `body` shifted up by `lift`.
  void ExpectFactored(ActionSource skill, const std::vector<MATH::CTransformation>& body, double lift, int first) {
    const int last = first + static_cast<int>(body.size()) - 1;
    const auto cog = Globals(skill, hips, first, last);
    const auto base = Globals(skill, root, first, last);
    for (size_t f = 0; f < body.size(); ++f) {
      SCOPED_TRACE(testing::Message() << "frame " << first + static_cast<int>(f));
      EXPECT_NEAR(base[f].GetTranslation().GetX(), 0.0, 1e-9);
      EXPECT_NEAR(base[f].GetTranslation().GetY(), 0.0, 1e-9);
      const MATH::CVector3 up = base[f].GetRotationQuaternion().Rotate(MATH::CVector3(0, 1, 0));
      EXPECT_NEAR(up.GetY(), 1.0, 1e-9) << "the root turns about the vertical only";
      EXPECT_NEAR(cog[f].GetTranslation().GetX(), body[f].GetTranslation().GetX(), 1e-3);
      EXPECT_NEAR(cog[f].GetTranslation().GetZ(), body[f].GetTranslation().GetZ(), 1e-3);
      EXPECT_NEAR(cog[f].GetTranslation().GetY(), body[f].GetTranslation().GetY() + lift, 1e-3);
      EXPECT_NEAR(AngleBetween(cog[f], body[f]), 0.0, 1e-4);
    }
  }
};

TEST_F(LocoSkillTest, AWalkGetsItsStanceFramesAndGroundsItsLowestSphere) {
  X3DObject sphere;
  left.AddPrimitive(L"Sphere", L"LeftFoot_CS", sphere);
  AddTag(sphere, kTagSphere);
  ASSERT_TRUE(SetHome(rig, false, ProgressBar(), true));
  ActionSource source = StoreTake(L"Walk", 0, 29, Walk);
  const auto body = Globals(source, hips, 0, 29);

  ASSERT_TRUE(MakeLocoSkill(rig, source, 0.2f, true));
  EXPECT_TRUE(Messages().empty());
  EXPECT_EQ(source.GetName(), CString(L"Walk"));
  EXPECT_EQ(source.GetParameterValue(L"type").AsInt(), 2);
  EXPECT_EQ(KeysOf(source, L"LeftFoot.RTKEffector.Contact"), "1@0 0@5 1@10 0@15 1@20 0@25 ");
  EXPECT_EQ(KeysOf(source, L"RightFoot.RTKEffector.Contact"), "0@0 1@5 0@10 1@15 0@20 1@25 0@29 ");
  EXPECT_EQ(KeysOf(source, L"Root.RTKActor.LeftFoot"), "0@20 ");
  EXPECT_EQ(KeysOf(source, L"Root.RTKActor.RightFoot"), "0@25 ");
  // The sphere (radius 1) hangs at the heel, whose lowest point is the ground: everything goes up 1.
  ExpectFactored(source, body, 1.0, 0);
  EXPECT_EQ(Ui().progressRuns.front().captions, std::vector<std::wstring>{L"Making Loco Skill"});

  // Made again from the skill itself: the old contact keys are replaced, not added to.
  ASSERT_TRUE(MakeLocoSkill(rig, source, 0.2f, false));
  EXPECT_EQ(KeysOf(source, L"LeftFoot.RTKEffector.Contact"), "1@0 0@5 1@10 0@15 1@20 0@25 ");
  EXPECT_EQ(rig.GetSources().GetCount(), 1);
}

TEST_F(LocoSkillTest, TheRootFollowsTheCloserOfTwoOppositeHeadings) {
  struct Case {
    const char* name;
    std::function<double(int)> yaw;        // the body's, degrees
    std::function<double(int)> rootYaw;    // expected, degrees
  };
  const Case cases[] = {
      {"a gradual turn is followed", [](int f) { return 25.0 * f; }, [](int f) { return 25.0 * f; }},
      {"an about-face stays on the old heading", [](int f) { return f < 5 ? 30.0 : 210.0; }, [](int) { return 30.0; }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    SetUp();
    ActionSource source = StoreTake(L"Turn", 1, 10, [&](int f) {
      return Pose{{L"Hips.posx", 3.0 * f}, {L"Hips.posz", 2.0 * f}, {L"Hips.posy", 90.0}, {L"Hips.roty", c.yaw(f)}};
    });
    const auto body = Globals(source, hips, 1, 10);
    ASSERT_TRUE(MakeLocoSkill(rig, source, 0.2f, false));
    ExpectFactored(source, body, 0.0, 1);
    const auto base = Globals(source, root, 1, 10);
    for (int f = 1; f <= 10; ++f) {
      MATH::CTransformation expected;
      expected.SetRotationFromXYZAnglesValues(0, c.rootYaw(f) * kDeg, 0);
      EXPECT_NEAR(AngleBetween(base[f - 1], expected), 0.0, 1e-4) << "frame " << f;
    }
  }
}

TEST_F(LocoSkillTest, SourceActorsAndActorsWithoutFeetAreRefused) {
  ActionSource source = StoreTake(L"Walk", 0, 9, Walk);
  RemoveTag(root, kTagActor);
  EXPECT_FALSE(MakeLocoSkill(rig, source, 0.2f, false));
  AddTag(root, kTagActor);
  RemoveTag(left, kTagEffector);
  RemoveTag(right, kTagEffector);
  EXPECT_FALSE(MakeLocoSkill(rig, source, 0.2f, false));
  EXPECT_EQ(Messages(), (std::vector<std::wstring>{
                            L"The model Rig is a source actor.  Please generate a target actor from this source and use "
                            L"the target for skill conversion.",
                            L"The action source Walk failed to convert into a locomotion skill because there are no "
                            L"foot tags on the actor.\nPlease tag the feet and try again."}));
  EXPECT_EQ(source.GetParameterValue(L"type").AsInt(), 0);
  EXPECT_EQ(rig.GetSources().GetCount(), 1);
}

}  // namespace
