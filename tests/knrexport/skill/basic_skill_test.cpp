// Basic and Raw skills on takes keyed in the test: the body that root x COG plays is kept at
// every frame, the Basic root stands on the ground and turns by the body's change of heading
// (taken from the up axis when the body faces straight up), one-frame sources are widened, and
// a root without keys is refused with the kind's message and the animation cleared.
#include "knrexport/skill/basic_skill.h"

#include "skill_test_rig.h"

namespace {

using namespace skilltest;

constexpr double kDeg = 3.14159265358979 / 180.0;

// The body's heading as an animator reads it: where its forward axis points on the ground, or
// where its up axis points when it faces (nearly) straight up or down.
double Heading(const MATH::CTransformation& body) {
  const MATH::CQuaternion q = body.GetRotationQuaternion();
  MATH::CVector3 axis = q.Rotate(MATH::CVector3(0, 0, 1));
  if (std::fabs(axis.GetY()) > 0.98) axis = q.Rotate(MATH::CVector3(0, 1, 0));
  return std::atan2(axis.GetX(), axis.GetZ());
}

MATH::CTransformation Yaw(double radians) {
  MATH::CTransformation t;
  t.SetRotationFromXYZAnglesValues(0, radians, 0);
  return t;
}

class BasicSkillTest : public SkillRig {};

TEST_F(BasicSkillTest, KeepsTheBodyAndPutsGroundPositionAndHeadingChangeOnTheRoot) {
  struct Case {
    const char* name;
    int kind;  // 1 Basic, 3 Raw
    std::function<Pose(int)> take;
  };
  const Case cases[] = {
      {"walking and turning from a heading of 30 degrees", 1,
       [](int f) {
         return Pose{{L"Root.posx", 0.5 * f}, {L"Root.posz", 3.0}, {L"Root.roty", 10.0},
                     {L"Hips.posy", 90 + 4 * std::sin(f * 0.7)}, {L"Hips.posz", 2.0 * f}, {L"Hips.rotx", 8 * std::sin(f * 0.3)},
                     {L"Hips.roty", 20.0 + 9.0 * f}, {L"Hips.rotz", 5.0}};
       }},
      {"lying on its back, turning", 1,
       [](int f) {
         return Pose{{L"Root.posx", 0.0}, {L"Hips.posy", 10.0}, {L"Hips.rotx", -90.0}, {L"Hips.roty", 3.0 * f}};
       }},
      {"raw", 3,
       [](int f) {
         return Pose{{L"Root.posx", 1.0 * f}, {L"Root.roty", 4.0 * f}, {L"Hips.posy", 80.0 + f}, {L"Hips.rotz", 7.0 * f}};
       }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    SetUp();
    ActionSource source = StoreTake(L"Walk", 2, 21, c.take);
    const auto body = Globals(source, hips, 2, 21);
    ASSERT_TRUE(c.kind == 1 ? FactorBasic(rig, source, true) : ProcessRaw(rig, source));
    EXPECT_TRUE(Messages().empty());
    ASSERT_TRUE(source.IsValid());
    EXPECT_EQ(source.GetName(), CString(L"Walk"));
    EXPECT_EQ(rig.GetSources().GetCount(), 1);
    EXPECT_EQ(source.GetParameterValue(L"type").AsInt(), c.kind);
    EXPECT_EQ(source.GetParameterValue(L"FrameStart").AsDouble(), 2.0);
    EXPECT_EQ(source.GetParameterValue(L"FrameEnd").AsDouble(), 21.0);
    EXPECT_FALSE(rig.IsAnimated(siFCurveSource, false)) << "the skill's curves live in the source only";
    const auto after = Globals(source, hips, 2, 21);
    const auto rootAfter = Globals(source, root, 2, 21);
    for (size_t f = 0; f < body.size(); ++f) {
      EXPECT_NEAR(Distance(after[f], body[f]), 0.0, 2e-3) << "frame " << f + 2;
      EXPECT_NEAR(AngleBetween(after[f], body[f]), 0.0, 1e-4) << "frame " << f + 2;
      if (c.kind != 1) continue;
      EXPECT_NEAR(rootAfter[f].GetTranslation().GetY(), 0.0, 1e-9) << "frame " << f + 2;
      EXPECT_NEAR(rootAfter[f].GetTranslation().GetX(), body[f].GetTranslation().GetX(), 1e-3);
      EXPECT_NEAR(rootAfter[f].GetTranslation().GetZ(), body[f].GetTranslation().GetZ(), 1e-3);
      const double turn = Heading(body[f]) - Heading(body[0]);
      EXPECT_NEAR(AngleBetween(rootAfter[f], Yaw(turn)), 0.0, 2e-4) << "frame " << f + 2;
    }
    if (c.kind == 1) {
      EXPECT_EQ(Ui().progressRuns.front().captions, std::vector<std::wstring>{L"Making Basic Skill"});
      EXPECT_EQ(Ui().progressRuns.front().value, 20);
    }
  }
}

TEST_F(BasicSkillTest, OneFrameSourcesAreWidenedAndRootsWithoutKeysAreRefused) {
  struct Case {
    int kind;
    bool rootKeyed;
    const wchar_t* message;  // null: stored over frames 5 .. 6
  };
  const Case cases[] = {
      {1, true, nullptr},
      {3, true, nullptr},
      {1, false, L"Failed to convert the action source to a Basic skill.  The FCurves are not valid."},
      {3, false, L"Failed to convert the action source to a Raw skill.  The FCurves are not valid."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "kind " << c.kind << (c.rootKeyed ? " keyed root" : " bare root"));
    SetUp();
    // A bare root is tested over several frames: with FrameStart = FrameEnd the crossed range is
    // not crossed at all.
    ActionSource source = StoreTake(L"Pose", 5, c.rootKeyed ? 5 : 8, [&](int) {
      return c.rootKeyed ? Pose{{L"Root.posx", 4.0}, {L"Hips.roty", 30.0}} : Pose{{L"Hips.roty", 30.0}};
    });
    ASSERT_TRUE(source.IsValid());
    source.PutParameterValue(L"type", 2);
    const bool made = c.kind == 1 ? FactorBasic(rig, source, false) : ProcessRaw(rig, source);
    EXPECT_EQ(made, c.message == nullptr);
    EXPECT_FALSE(rig.IsAnimated(siFCurveSource, false));
    if (c.message) {
      EXPECT_EQ(Messages(), std::vector<std::wstring>{c.message});
      EXPECT_EQ(source.GetParameterValue(L"type").AsInt(), 0) << "only the type of the source changed";
      EXPECT_EQ(source.GetParameterValue(L"FrameEnd").AsDouble(), 8.0);
      continue;
    }
    EXPECT_EQ(source.GetParameterValue(L"FrameStart").AsDouble(), 5.0);
    EXPECT_EQ(source.GetParameterValue(L"FrameEnd").AsDouble(), 6.0);
    const auto played = Globals(source, hips, 5, 6);
    EXPECT_NEAR(AngleBetween(played[0], played[1]), 0.0, 1e-6);
    EXPECT_NEAR(AngleBetween(played[0], Yaw(30 * kDeg)), 0.0, 1e-5);
  }
}

}  // namespace
