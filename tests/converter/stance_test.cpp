#include "stance.h"

#include <gtest/gtest.h>

#include "synthetic_walk.h"

namespace knrconvert {
namespace {

using testing::Build;
using testing::Take;

constexpr int kLeft = 3, kRight = 6;

// The left foot from `from` to `to` seconds moved `up` and `ahead` (x unit, per second), unplanted.
void Move(Take& take, double from, double to, double up, double ahead = 0) {
  for (int f = 0; f < take.pose.frames; ++f) {
    const double t = f * take.pose.frameTime;
    if (t < from || t >= to) continue;
    Vec3f& p = take.pose.positions[size_t(f) * 7 + kLeft];
    p.y += float(up);
    p.z += float(ahead * (t - from));
    take.planted[0][size_t(f)] = false;
  }
}

TEST(Stance, EstimateFollowsTheFeet) {
  const struct {
    const char* name;
    double fps, unit, from, to, up, ahead;
    double roll;  // m a planted foot rolls up and down once a second
  } cases[] = {
      {"30 fps, m", 30, 1, 0, 0, 0, 0, 0},
      {"120 fps, cm", 120, 100, 0, 0, 0, 0, 0},
      {"held up from 1 s: 14% at its floor", 60, 1, 1, 7.1, 0.11, 0, 0},
      {"slides", 60, 1, 5, 6, 0, 1.2, 0},
      {"sunk through the floor on 3%", 60, 1, 5, 5.2, -0.3, 0, 0},
      {"one-frame glitch", 30, 1, 5.49, 5.52, 0.1, 0, 0},
      {"heel to toe", 60, 1, 0, 0, 0, 0, 0.05},
  };
  for (const auto& c : cases) {
    Take take = Build({{{4, 1.2}, {3, 0}}, c.fps, c.unit});
    Move(take, c.from, c.to, c.up * c.unit, c.ahead * c.unit);
    if (c.to - c.from < 0.1) take.planted[0] = Build({{{4, 1.2}, {3, 0}}, c.fps}).planted[0];
    for (int f = 0; f < take.pose.frames; ++f) {
      take.pose.positions[size_t(f) * 7 + kLeft].y +=
          float(c.roll / 2 * (1 - std::cos(6.28 * f * take.pose.frameTime)) * c.unit);
    }
    const double leg = LegLength(take.pose, FindLeg(take.pose, kLeft));
    for (int foot : {0, 1}) {
      const Stance stance = EstimateStance(take.pose, foot ? kRight : kLeft, leg);
      int same = 0;
      for (size_t f = 0; f < stance.size(); ++f) same += stance[f] == take.planted[size_t(foot)][f];
      EXPECT_GT(same, 0.95 * take.pose.frames) << c.name << ", foot " << foot;
      if (c.to - c.from < 0.1) {  // a glitch: the foot stays planted through it
        EXPECT_TRUE(stance[size_t(c.from * c.fps + 1)]) << c.name;
      }
    }
  }
}

TEST(Stance, ChosenThresholdAgreesWhereTheUsualOneDoesNot) {
  Take take = Build({{{4, 1.2}, {2, 0}}});
  // The left foot kicks up to 0.9 m once, so 0.2 of its height range is above every step.
  for (int f = 135; f < 159; ++f) {
    take.pose.positions[size_t(f) * 7 + kLeft].y += float(0.9 * std::sin((f - 135) * 3.14 / 24));
    take.planted[0][size_t(f)] = false;
  }
  const std::vector<int> feet = {kLeft, kRight};
  const ContactChoice choice = ChooseContactThreshold(take.pose, feet, take.planted);
  for (size_t i = 0; i < feet.size(); ++i) {
    EXPECT_GT(ContactAgreement(choice.feet[i].intervals, take.planted[i]), 0.9) << i;
  }
  EXPECT_LT(ContactAgreement(PredictContacts(take.pose, kLeft, kUsualThreshold), take.planted[0]),
            0.9);
  // Nothing moves: every threshold keys the same, and the usual one stays.
  const Take rest = Build({{{1, 0}}});
  EXPECT_EQ(ChooseContactThreshold(rest.pose, feet, rest.planted).threshold, kUsualThreshold);
}

TEST(Stance, AgreementAndOneFrameContact) {
  EXPECT_DOUBLE_EQ(ContactAgreement({{1, 2}}, {false, true, true, false}), 1.0);
  EXPECT_DOUBLE_EQ(ContactAgreement({{0, 0}}, {false, true, true, false}), 0.25);
  // One foot, low and still for one step (3 -> 4) just under 0.2 of its range, then away.
  PoseSeries pose{1.0 / 30, 8, {"Foot"}, {-1}, {}, {}};
  const float y[] = {0, 1, 1, 0.19f, 0.21f, 1, 1, 1}, z[] = {0, 1, 2, 3, 3, 4, 5, 6};
  for (int f = 0; f < 8; ++f) pose.positions.push_back({0, y[f], z[f]});
  const Stance planted = {false, false, false, true, false, false, false, false};
  const ContactChoice choice = ChooseContactThreshold(pose, {0}, {planted});
  ASSERT_EQ(choice.warnings.size(), 1u);
  EXPECT_NE(choice.warnings[0].find("one-frame contact of the foot Foot at frame 3"),
            std::string::npos);
}

}  // namespace
}  // namespace knrconvert
