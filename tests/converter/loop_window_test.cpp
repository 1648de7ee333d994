#include "loop_window.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <tuple>

namespace knrconvert {
namespace {

constexpr double kDt = 1.0 / 30;
constexpr double kTau = 2 * M_PI;

// A take at 30 fps whose joint j sits at rel(f, j) in the COG's frame; the COG (joint 0) goes
// along z at `speed` units a second, turned by heading(f) (radians about +y).
PoseSeries Take(
    int frames, int joints, const std::function<Vec3f(int, int)>& rel, double speed = 0,
    const std::function<double(int)>& heading = [](int) { return 0.0; }) {
  PoseSeries s{kDt, frames, {}, {}, {}, {}};
  for (int j = 0; j < joints; ++j)
    s.names.push_back("j" + std::to_string(j)), s.parents.push_back(j - 1);
  for (int f = 0; f < frames; ++f) {
    const double h = heading(f), c = std::cos(h), n = std::sin(h), z = f * kDt * speed;
    s.topRotation.push_back({0, float(std::sin(h / 2)), 0, float(std::cos(h / 2))});
    for (int j = 0; j < joints; ++j) {
      const Vec3f p = j == 0 ? Vec3f{} : rel(f, j);
      s.positions.push_back({float(c * p.x + n * p.z), p.y, float(-n * p.x + c * p.z + z)});
    }
  }
  return s;
}

Vec3f Circle(int f, double period, double radius) {
  const double a = kTau * f / period;
  return {float(radius * std::cos(a)), float(radius * std::sin(a)), 0};
}

// Feet on ellipses with a period of 30 frames, half a period apart; joint 3 drifts sideways
// while the body travels (frames 60..239), so every cycle there has the same seam, 0.006.
Vec3f Walker(int f, int j) {
  if (j == 3) return {float(0.0002 * std::clamp(f, 60, 239)), 0.6f, 0};
  const double a = kTau * f / 30 + (j == 2 ? M_PI : 0);
  return {j == 1 ? 0.2f : -0.2f, float(-0.9 + 0.1 * std::sin(a)), float(0.3 * std::cos(a))};
}

TEST(LoopWindow, ContactIntervalsFromSteppedKeys) {
  struct Case {
    std::vector<ContactKeyValue> keys;
    std::vector<Interval> intervals;
  } cases[] = {
      {{{0, 1}}, {{0, 100}}},  // planted to the end
      {{{0, 1}, {10, 0}, {20, 1}, {30, 0}}, {{0, 9}, {20, 29}}},
      {{{5, 0}, {12, 1}, {12.0001, 1}, {40, 0}}, {{12, 39}}},  // a repeated 1 does not restart
      {{{-3, 1}, {4, 0}}, {{0, 3}}},                           // clipped to the first frame
  };
  for (const Case& c : cases) EXPECT_EQ(ContactIntervals(c.keys, 0, 100), c.intervals);
}

TEST(LoopWindow, GaitCycleInsideASteadyStretch) {
  // The heading turns through 180 degrees at frame 150, mid-walk: no seam comes of it.
  const PoseSeries take = Take(300, 4, Walker, 1, [](int f) { return M_PI + 0.02 * (f - 150); });
  const RelativePoses rel = RelativeToCog(take);
  std::vector<Interval> left, right;
  for (int f = 0; f < 300; f += 30) left.push_back({f, f + 10}), right.push_back({f + 15, f + 25});
  const std::vector<Interval> steady = {{60, 239}};

  for (const LoopWindow& w : LocomotionWindows(rel, {left, right}, steady, 0)) {
    EXPECT_GE(w.start - w.smooth, 60) << w.start;  // blend frames included, in the stretch
    EXPECT_LE(w.end, 239) << w.end;
  }
  const LoopChoice choice = ChooseLoopWindows(take, rel, true, {left, right}, steady, 0, 299);
  ASSERT_EQ(choice.windows.size(), 3u);
  const LoopWindow& w = choice.windows[0];
  EXPECT_NEAR(w.start, 135, 3);  // of equal seams the middle one (float ties within the slack)
  EXPECT_EQ(std::make_tuple(w.end - w.start, w.foot, w.smooth), std::make_tuple(30, 1, 7));
  EXPECT_NEAR(w.seam.distance, 0.006, 1e-5);

  // Starts 14 frames apart (a flicker, not a step): no cycle.
  EXPECT_TRUE(LocomotionWindows(rel, {{{150, 155}, {164, 170}}}, steady, 0).empty());
  // Contacts 6 frames late on one foot: the ends slide to the true period.
  const auto late = LocomotionWindows(rel, {{{90, 100}, {126, 130}}}, steady, 0);
  ASSERT_EQ(late.size(), 1u);
  EXPECT_EQ(late[0].end - late[0].start, 30);

  // A hop splits the travel: no cycle fits, and the take loops as Basic.
  const LoopChoice hop = ChooseLoopWindows(take, rel, true, {{{100, 110}, {130, 140}}},
                                           {{60, 120}, {125, 239}}, 0, 299);
  EXPECT_TRUE(!hop.windows.empty() && !hop.windows[0].loco && !hop.note.empty());
}

Vec3f BusyThenStill(int f) { return Circle(std::min(f, 90), 15, 0.5); }
Vec3f DriftThenCircle(int f) { return f < 90 ? Vec3f{0.01f * f, 0, 0} : Circle(f, 30, 0.0955); }
Vec3f Sway(int f) { return Circle(f, 30, 0.01); }

TEST(LoopWindow, BasicTakesLoopTheCalmestStretch) {
  // Joint 1 over frames 0..89 / 90..180; the whole body turns over 0..89 at `turn` rad a frame.
  const struct Case {
    Vec3f (*joint)(int);
    double turn;
  } cases[] = {{BusyThenStill, 0}, {DriftThenCircle, 0}, {Sway, 0.02}};
  for (const Case& c : cases) {
    const PoseSeries take = Take(
        181, 2, [&](int f, int) { return c.joint(f); }, 0,
        [&](int f) { return c.turn * std::min(f, 90); });
    const auto windows = CalmWindows(take, RelativeToCog(take), 0, 180);
    ASSERT_FALSE(windows.empty());
    EXPECT_GE(windows[0].start, 90) << c.turn;
  }
}

TEST(LoopWindow, BasicWindowLengths) {
  struct Case {
    int frames;
    int busyUntil;  // joint 1 circles fast before this frame, then holds still
    int start, end;
  } cases[] = {
      {301, 0, 0, 120},  // still for 10 s: the longest window, 4 s
      {76, 0, 0, 75},    // 2.5 s: the whole take
      {25, 12, 0, 24},   // under 1 s: the whole take, busy or not
      {3, 0, 0, 2},      // the fewest frames that loop
      {2, 0, 0, 0},      // cannot loop: no window
  };
  for (const Case& c : cases) {
    const PoseSeries take =
        Take(c.frames, 2, [&](int f, int) { return Circle(std::min(f, c.busyUntil), 6, 1); });
    const LoopChoice choice =
        ChooseLoopWindows(take, RelativeToCog(take), false, {}, {}, 0, c.frames - 1);
    const LoopWindow w = choice.windows.empty() ? LoopWindow() : choice.windows[0];
    EXPECT_EQ(Interval(w.start, w.end), Interval(c.start, c.end)) << c.frames;
    EXPECT_EQ(choice.note.empty(), !choice.windows.empty()) << c.frames;
    for (const LoopWindow& a : choice.windows) {  // the next window tried is another stretch
      for (const LoopWindow& b : choice.windows) {
        const int shared = std::min(a.end, b.end) - std::max(a.start, b.start);
        EXPECT_TRUE(&a == &b || 2 * shared <= std::min(a.end - a.start, b.end - b.start));
      }
    }
  }
}

// Poses of joint 1 along x, joint 0 the COG at the origin.
RelativePoses AlongX(const std::vector<double>& x) {
  RelativePoses p{kDt, static_cast<int>(x.size()), 2, {}};
  for (double v : x) p.positions.insert(p.positions.end(), {Vec3f{}, Vec3f{float(v), 0, 0}});
  return p;
}

TEST(LoopWindow, MeasurePopsAgainstTheSourceWindow) {
  const RelativePoses moving = AlongX({0, .1, .2, .3, .4, .5}), still = AlongX({1, 1, 1, 1});
  struct Case {
    const RelativePoses& source;
    std::vector<double> loop;
    bool pop;
    int frame;  // of the largest step
  } cases[] = {
      {moving, {0, .1, .2, .3, .2, .1}, false, -1},  // steps of 0.1, as in the source
      {moving, {0, .1, .24, .3, .2, .1}, false, 1},  // 1.4 times the source's
      {moving, {0, .1, .26, .3, .2, .1}, true, 1},   // 1.6 times
      {moving, {0, .1, .2, .3, .2, .16}, true, 5},   // across the wrap
      {still, {1, 1.0005, 1, 1.0005}, false, -1},    // float noise on a still pose
      {still, {1, 1.004, 1, 1.004}, true, -1},       // a twitch a viewer sees
  };
  for (const Case& c : cases) {
    const PopMeasure m = MeasurePops(AlongX(c.loop), c.source, 0, c.source.frames - 1);
    EXPECT_EQ(m.pop, c.pop) << c.loop[2] << " " << c.loop.back();
    EXPECT_TRUE(m.joint == 1 && (c.frame < 0 || m.frame == c.frame)) << c.loop[2];
  }
}

TEST(LoopWindow, SeamCurvesPlayTheWindowTwice) {
  const SeamCurve curve = SeamCurves(AlongX({0, .1, .2, .3, .4}), 1, 4, AlongX({0, .1, .2, .1}));
  const std::vector<double> before = {0, .1, .2, .3, 0, .1, .2, .3}, after = {0, .1, .2, .1};
  for (size_t k = 0; k < 8; ++k) {  // the seam, then back to the start
    EXPECT_NEAR(curve.before.at(k), before[k], 1e-6) << k;
    EXPECT_NEAR(curve.after.at(k), after[k % 4], 1e-6) << k;
  }
}

}  // namespace
}  // namespace knrconvert
