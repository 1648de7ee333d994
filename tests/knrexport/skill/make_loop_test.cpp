// Loops made from takes whose truth is known: a synthesised walk (steady forward travel, a
// periodic bob and swing, and a drift that leaves a seam), and a real capture imported from BVH.
#include "knrexport/skill/make_loop.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "host/host.h"
#include "knrexport/bvh/bvh_import.h"
#include "model/scene_graph.h"
#include "zyra/application.h"

using namespace Zyra;

namespace {

constexpr double kPeriod = 20.0;  // frames per step cycle
constexpr double kSpeed = 2.0;    // forward travel per frame
constexpr int kTakeEnd = 60;

struct Channel {
  const wchar_t* path;
  double (*at)(double frame);
};

double Wave(double f) { return std::sin(2.0 * M_PI * f / kPeriod); }
// Hips travel forward and bob; the knee swings and drifts, so the foot below it does not come
// back to where it started and the take does not loop by itself.
const Channel kWalk[] = {
    {L"Walker.Hips.posz", [](double f) { return kSpeed * f; }},
    {L"Walker.Hips.posy", [](double f) { return 10.0 + Wave(f); }},
    {L"Walker.Hips.roty", [](double f) { return 30.0 * Wave(f); }},
    {L"Walker.Knee.rotx", [](double f) { return 40.0 * Wave(f) + 0.5 * f; }},
};

class MakeLoopTest : public ::testing::Test {
 protected:
  void SetUp() override {
    rt::Host::Get().NewScene();
    ui().messageBoxes.clear();
    Run(L"CreateModel", {L"Walker"});
    Run(L"CreateNull", {L"Root", L"Walker"});
    Run(L"CreateNull", {L"Hips", L"Walker.Root"});
    Run(L"CreateNull", {L"Knee", L"Walker.Hips"});
    Run(L"SetValue", {L"Walker.Knee.posy", -4.0});
    Run(L"CreateNull", {L"Foot", L"Walker.Knee"});
    Run(L"SetValue", {L"Walker.Foot.posy", -4.0});
    CString list;
    for (const Channel& c : kWalk) {
      for (int f = 0; f <= kTakeEnd; ++f) Run(L"SetKey", {c.path, f, c.at(f)});
      list += (list.IsEmpty() ? L"" : L",") + CString(c.path);
    }
    source_ = Run(L"StoreAction", {L"Walker", list, 6, L"Walk", 1, 0.0, double(kTakeEnd), 0, 0}).AsRef();
    model_ = Application().GetObjectFromPath(L"Walker");
    root_ = Application().GetObjectFromPath(L"Walker.Root");
  }
  static rt::UiState& ui() { return rt::Host::Get().ui(); }
  static CValue Run(const wchar_t* command, const CValueArray& args) {
    CValue out;
    EXPECT_TRUE(Application().ExecuteCommand(command, args, out).Succeeded()) << CString(command).GetAsciiString();
    return out;
  }
  static double At(const wchar_t* path, double frame) {
    return Run(L"GetValue", {path, frame}).AsDouble();
  }
  // Makes the loop from the applied take; the new source applied, or invalid when refused.
  ActionSource Loop(int start, int end, int smooth, bool loco) {
    Run(L"ApplyAction", {CValue(source_.GetRef())});
    if (!MakeLoop(source_, model_, root_, start, end, smooth, loco)) return ActionSource();
    ActionSource loop(Application().GetObjectFromPath(L"Walker.Sources.Walk_loop"));
    if (loop.IsValid()) Run(L"ApplyAction", {CValue(loop.GetRef())});
    return loop;
  }
  ActionSource source_;
  Model model_;
  X3DObject root_;
};

TEST_F(MakeLoopTest, RefusalsStoreNothing) {
  const struct {
    int start, end, smooth;
    bool loco;
    const wchar_t* message;
  } cases[] = {
      {20, 20, 10, false, L"The range given for making the motion loopable is invalid."},
      {30, 20, 10, true, L"The range given for making the motion loopable is invalid."},
      {0, 40, 10, true, L"There is not enough animation before the start index for the making a locomotion cycle."},
      {20, 40, 0, true, L"There is not enough animation before the start index for the making a locomotion cycle."},
  };
  for (const auto& c : cases) {
    ui().messageBoxes.clear();
    EXPECT_FALSE(Loop(c.start, c.end, c.smooth, c.loco).IsValid());
    ASSERT_EQ(ui().messageBoxes.size(), 1u);
    EXPECT_EQ(ui().messageBoxes[0], std::wstring(L"Kinra Export: ") + c.message);
    EXPECT_EQ(model_.GetSources().GetCount(), 1);
  }
}

// Plain loops, blended and not: the new source runs from 0; frames before the blend span are the
// take's own; with a blend the last frame repeats the first pose and rotations stay continuous.
TEST_F(MakeLoopTest, PlainLoopKeepsTheTakeUntilTheBlendAndEndsOnItsFirstPose) {
  const struct {
    int start, end, smooth;
  } cases[] = {{20, 45, 10}, {12, 30, 0}, {5, 9, 50}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.smooth);
    SetUp();
    ActionSource loop = Loop(c.start, c.end, c.smooth, false);
    ASSERT_TRUE(loop.IsValid());
    const int length = c.end - c.start;
    const int blend = std::min(length, c.smooth);
    EXPECT_EQ(loop.GetParameterValue(L"FrameStart").AsDouble(), 0.0);
    EXPECT_EQ(loop.GetParameterValue(L"FrameEnd").AsDouble(), double(length));
    for (const Channel& ch : kWalk) {
      for (int k = 0; k <= length - blend; ++k) EXPECT_NEAR(At(ch.path, k), ch.at(c.start + k), 1e-4);
      if (blend == 0) continue;
      EXPECT_NEAR(At(ch.path, length), At(ch.path, 0), 1e-3) << CString(ch.path).GetAsciiString();
      for (int k = length - blend; k < length; ++k)
        EXPECT_LT(std::fabs(At(ch.path, k + 1) - At(ch.path, k)), 10.0 + 40.0 * 2.0 * M_PI / kPeriod);
    }
  }
}

// A locomotion loop keeps walking forward over the whole cycle, covers the cycle's distance and
// ends on the pose (rotations and height) it starts with.
TEST_F(MakeLoopTest, LocomotionLoopKeepsTravellingAndJoinsItsPose) {
  const int start = 30, end = 50;
  Run(L"ApplyAction", {CValue(source_.GetRef())});
  const double seamBefore = MeasureLoopSeam(root_, start, end, true);
  ActionSource loop = Loop(start, end, 8, true);
  ASSERT_TRUE(loop.IsValid());
  const int length = end - start;
  for (int k = 1; k <= length; ++k) EXPECT_GT(At(L"Walker.Hips.posz", k), At(L"Walker.Hips.posz", k - 1));
  EXPECT_NEAR(At(L"Walker.Hips.posz", length) - At(L"Walker.Hips.posz", 0), kSpeed * length, 1e-3);
  for (const wchar_t* path : {L"Walker.Hips.posy", L"Walker.Hips.roty", L"Walker.Knee.rotx"})
    EXPECT_NEAR(At(path, length), At(path, 0), 1e-3) << CString(path).GetAsciiString();
  EXPECT_NEAR(At(L"Walker.Knee.rotx", length - 8), kWalk[3].at(end - 8), 1e-4);
  // The seam measure sees the knee's drift in the take, and no jump once the body's travel is
  // taken out of the loop.
  EXPECT_GT(seamBefore, 0.1);
  EXPECT_LT(MeasureLoopSeam(root_, 0, length, true), 1e-3);
}

// A real capture: the loop's last frame puts every joint where its first frame does, relative to
// the hips, for a plain and a locomotion loop; frames before the blend are the take's.
TEST_F(MakeLoopTest, CaptureLoopsJoinEveryJointAtTheSeam) {
  const std::string file = KNR_SHARED_DATA_DIR "/bvh/01_01.bvh";
  for (const bool loco : {false, true}) {
    SCOPED_TRACE(loco);
    rt::Host::Get().NewScene();
    Model actor = LoadBvhActor(CString(file), L"Climber", L"", L"", true, false, 1.0f);
    ASSERT_TRUE(actor.IsValid());
    ASSERT_TRUE(AddBVHAction(actor, CString(file), L"Climb", 1.0f, true, L"", L"", true));
    ActionSource take(actor.GetSources()[0]);
    X3DObject root(Application().GetObjectFromPath(L"Climber.GlobalSRT"));
    X3DObject hips(Application().GetObjectFromPath(L"Climber.Hips"));
    const int start = 200, end = 320;
    Run(L"ApplyAction", {CValue(take.GetRef())});
    const double before = At(L"Climber.LeftUpLeg.rotx", start + 10);
    ASSERT_TRUE(MakeLoop(take, actor, root, start, end, 30, loco));
    Run(L"ApplyAction", {CValue(actor.GetSources()[1])});
    EXPECT_NEAR(At(L"Climber.LeftUpLeg.rotx", 10), before, 1e-4);
    const CRefArray joints = hips.FindChildren(CString(), CString());
    for (const CRef& ref : joints) {
      const KinematicState g = X3DObject(ref).GetKinematics().GetGlobal();
      const KinematicState h = hips.GetKinematics().GetGlobal();
      const MATH::CVector3 first = g.GetTransform(CTime(0.0)).GetTranslation() - h.GetTransform(CTime(0.0)).GetTranslation();
      const MATH::CVector3 last = g.GetTransform(CTime(end - start)).GetTranslation() - h.GetTransform(CTime(end - start)).GetTranslation();
      EXPECT_LT((last - first).GetLength(), 1e-3) << X3DObject(ref).GetName().GetAsciiString();
    }
  }
}

}  // namespace
