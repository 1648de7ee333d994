#include "loop_window.h"

#include <gtest/gtest.h>

#include <cmath>

namespace knrconvert {
namespace {

TEST(LoopWindow, ContactIntervalsFromSteppedKeys) {
  struct Case {
    std::vector<ContactKeyValue> keys;
    std::vector<Interval> intervals;
  } cases[] = {
      {{}, {}},
      {{{0, 0}}, {}},
      {{{0, 1}}, {{0, 100}}},  // planted to the end
      {{{0, 1}, {10, 0}, {20, 1}, {30, 0}}, {{0, 9}, {20, 29}}},
      {{{5, 0}, {12, 1}, {12.0001, 1}, {40, 0}}, {{12, 39}}},  // a repeated 1 does not restart
      {{{-3, 1}, {4, 0}}, {{0, 3}}},                           // clipped to the first frame
  };
  for (const Case& c : cases) EXPECT_EQ(ContactIntervals(c.keys, 0, 100), c.intervals);
}

TEST(LoopWindow, AngleJumpWrapsAround) {
  const double cases[][3] = {{10, 20, 10},   {20, 10, 10},  {179, -179, 2},
                             {-170, 190, 0}, {0, 540, 180}, {0, 720.5, 0.5}};
  for (const auto& c : cases) EXPECT_NEAR(AngleJump(c[0], c[1]), c[2], 1e-9) << c[0] << " " << c[1];
}

TEST(LoopWindow, ChoosesTheGaitCycleWithTheSmallestSeam) {
  // Channel 0 drifts by a degree a frame except between 100 and 140, where it holds still:
  // the cycle 100..140 joins up; channel 1 is a steady sine of period 40.
  const ChannelEval eval = [](size_t c, double f) {
    if (c == 1) return 30 * std::sin(f * 2 * M_PI / 40);
    return f < 100 ? f : f < 140 ? 100.0 : f - 40;
  };
  const std::vector<std::vector<Interval>> contacts = {
      {{0, 10}, {20, 30}, {60, 70}, {100, 110}, {140, 150}, {180, 190}},  // left
      {{40, 50}, {80, 90}, {120, 130}, {160, 170}},                       // right
  };
  LoopWindow w = ChooseLoopWindow(contacts, 0, 200, 30, 2, eval);
  EXPECT_EQ(w.start, 100);
  EXPECT_EQ(w.end, 140);
  EXPECT_EQ(w.foot, 0);
  EXPECT_TRUE(w.loco);
  EXPECT_NEAR(w.seamBefore.value, 0, 1e-9);
  EXPECT_EQ(w.smooth, 10);

  // The cycle 0..20 is too short and too early; of the others the right foot's 40..80 has the
  // smallest seam once channel 0 holds still over it.
  const ChannelEval still = [](size_t c, double f) {
    return c == 0 ? (f < 40 || f > 80 ? f : 0.0) : 0.0;
  };
  w = ChooseLoopWindow(contacts, 0, 200, 30, 2, still);
  EXPECT_EQ(w.start, 40);
  EXPECT_EQ(w.end, 80);
  EXPECT_EQ(w.foot, 1);

  // No cycle at all (a Basic take, or a foot that planted once): the whole take, not loco.
  w = ChooseLoopWindow({{{0, 50}}}, 0, 200, 30, 2, eval);
  EXPECT_EQ(w.start, 0);
  EXPECT_EQ(w.end, 200);
  EXPECT_EQ(w.foot, -1);
  EXPECT_FALSE(w.loco);
  EXPECT_NEAR(w.seamBefore.value, 160, 1e-9);
  EXPECT_EQ(w.seamBefore.channel, 0);
}

}  // namespace
}  // namespace knrconvert
