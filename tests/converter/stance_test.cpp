#include "stance.h"

#include <gtest/gtest.h>

#include <functional>

#include "synthetic_walk.h"

namespace knrconvert {
namespace {

using testing::Build;
using testing::Plan;
using testing::Take;

constexpr int kLeftFoot = 3, kRightFoot = 6;

double Agreement(const Stance& a, const Stance& b) {
  int same = 0;
  for (size_t f = 0; f < a.size(); ++f) same += a[f] == b[f];
  return double(same) / double(a.size());
}

// Frames of the take from `from` to `to` seconds, changed by `move`.
void Edit(Take& take, double from, double to, const std::function<void(Vec3f&, double)>& move) {
  for (int f = 0; f < take.pose.frames; ++f) {
    const double t = f * take.pose.frameTime;
    if (t < from || t >= to) continue;
    move(take.pose.positions[size_t(f) * 7 + kLeftFoot], t - from);
    take.planted[0][size_t(f)] = false;
  }
}

TEST(Stance, EstimateFollowsTheFeet) {
  const double unitOf[] = {1, 100, 1, 1, 1, 1, 1};
  const struct {
    const char* name;
    double fps;
    int unit;    // index into unitOf
    int change;  // 0 none, 1 foot held up, 2 foot slides, 3 floor glitch, 4 flicker, 5 roll
  } cases[] = {{"30 fps, m", 30, 0, 0},   {"120 fps, cm", 120, 1, 0}, {"foot held up", 60, 0, 1},
               {"foot slides", 60, 0, 2}, {"floor glitch", 60, 0, 3}, {"flicker", 30, 0, 4},
               {"heel to toe", 60, 0, 5}};
  for (const auto& c : cases) {
    Plan plan;
    plan.fps = c.fps;
    plan.unit = unitOf[c.unit];
    plan.moves = {{4, 1.2}, {3, 0}};
    Take take = Build(plan);
    const float u = float(plan.unit);
    // Held 0.11 m up from 1 s on: the foot is at its floor on 14% of the frames only.
    if (c.change == 1) Edit(take, 1, 7.1, [&](Vec3f& p, double) { p.y += 0.11f * u; });
    if (c.change == 2) Edit(take, 5, 6, [&](Vec3f& p, double t) { p.z += float(0.6 * t) * u; });
    if (c.change == 3) {  // 3% of frames sunk 0.3 m through the floor: no plant
      Edit(take, 5, 5.2, [&](Vec3f& p, double) { p.y -= 0.3f * u; });
    }
    const size_t flicker = size_t(5.5 * c.fps);
    if (c.change == 4) take.pose.positions[flicker * 7 + kLeftFoot].y += 0.1f * u;
    for (int f = 0; c.change == 5 && f < take.pose.frames; ++f) {  // a planted foot rolls
      const double t = f * take.pose.frameTime;
      take.pose.positions[size_t(f) * 7 + kLeftFoot].y +=
          float(0.025 * (1 - std::cos(6.28 * t))) * u;
    }
    const double leg = LegLength(take.pose, FindLeg(take.pose, kLeftFoot));
    for (int foot : {0, 1}) {
      const Stance stance = EstimateStance(take.pose, foot ? kRightFoot : kLeftFoot, leg);
      EXPECT_GT(Agreement(stance, take.planted[size_t(foot)]), 0.95) << c.name << " foot " << foot;
      if (c.change == 4 && foot == 0) {
        EXPECT_TRUE(stance[flicker]) << c.name;
      }
    }
  }
}

TEST(Stance, ChosenThresholdAgreesWhereTheUsualOneDoesNot) {
  Plan plan;
  plan.moves = {{4, 1.2}, {2, 0}};
  Take take = Build(plan);
  // The left foot kicks up to 0.9 m once, so 0.2 of its height range is above every step.
  Edit(take, 4.5, 5.3, [](Vec3f& p, double t) { p.y += float(0.9 * std::sin(3.14159 * t / 0.8)); });
  const std::vector<int> feet = {kLeftFoot, kRightFoot};
  const ContactChoice choice = ChooseContactThreshold(take.pose, feet, take.planted);
  EXPECT_NE(choice.threshold, kUsualThreshold);
  for (size_t i = 0; i < feet.size(); ++i) {
    EXPECT_GT(ContactAgreement(choice.feet[i].intervals, take.planted[i]), 0.9) << i;
  }
  EXPECT_LT(
      ContactAgreement(PredictContacts(take.pose, kLeftFoot, kUsualThreshold), take.planted[0]),
      0.9);

  // Nothing moves: every threshold keys the same, and the usual one stays.
  Plan still;
  still.moves = {{1, 0}};
  const Take rest = Build(still);
  EXPECT_EQ(ChooseContactThreshold(rest.pose, feet, rest.planted).threshold, kUsualThreshold);
}

TEST(Stance, AgreementAndOneFrameContact) {
  EXPECT_DOUBLE_EQ(ContactAgreement({{1, 2}}, {false, true, true, false}), 1.0);
  EXPECT_DOUBLE_EQ(ContactAgreement({{0, 0}}, {false, true, true, false}), 0.25);
  // One foot, low and still for one step (3 -> 4) just under 0.2 of its range, then away.
  PoseSeries pose;
  pose.frameTime = 1.0 / 30;
  pose.names = {"Foot"};
  pose.parents = {-1};
  const float y[] = {0, 1, 1, 0.19f, 0.21f, 1, 1, 1}, z[] = {0, 1, 2, 3, 3, 4, 5, 6};
  for (int f = 0; f < 8; ++f) pose.positions.push_back({0, y[f], z[f]});
  pose.frames = 8;
  const Stance planted = {false, false, false, true, false, false, false, false};
  const ContactChoice choice = ChooseContactThreshold(pose, {0}, {planted});
  ASSERT_EQ(choice.warnings.size(), 1u);
  EXPECT_NE(choice.warnings[0].find("one-frame contact of the foot Foot at frame 3"),
            std::string::npos);
}

}  // namespace
}  // namespace knrconvert
