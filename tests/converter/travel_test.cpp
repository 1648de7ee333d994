#include "travel.h"

#include <gtest/gtest.h>

#include "synthetic_walk.h"

namespace knrconvert {
namespace {

using testing::Build;
using testing::Plan;

constexpr BodyJoints kBody = {0, 3, 6};
using Moves = std::vector<std::pair<double, double>>;

TEST(Travel, KindAndDistance) {
  Moves hops;  // forward jumps, a second's pause between
  for (int i = 0; i < 6; ++i) hops.insert(hops.end(), {{0.4, 2.0}, {1.0, 0}});
  const struct {
    const char* name;
    Plan plan;
    bool locomotion;
  } cases[] = {
      {"walk", {{{4, 1.2}}}, true},
      {"walk at 120 fps in cm", {{{4, 1.2}}, 120, 100}, true},
      {"slow walk, 0.6 leg a second", {{{6, 0.5}}}, true},
      {"drift, 0.35 leg a second", {{{10, 0.3}}}, false},
      {"short walk, under two legs", {{{1.2, 1.2}}}, false},
      {"burst of 1.2 s, 2.5 legs", {{{2, 0}, {1.2, 1.8}, {2, 0}}}, true},
      {"dash of 0.67 s", {{{0.67, 4}}}, true},
      {"forward jumps", {hops}, true},
      {"standing, sway and shuffles",
       {.moves = {{2, 0}, {0.5, 0.3}, {2, 0}, {0.5, 0.3}, {2, 0}}, .sway = 10},
       false},
      {"rocking side to side", {.moves = {{6, 0}}, .rock = 0.15}, false},
      {"jump in place", {.moves = {{3, 0}}, .jumpAt = 1}, false},
  };
  for (const auto& c : cases) {
    const auto take = Build(c.plan);
    const Travel travel = MeasureTravel(take.pose, kBody);
    EXPECT_EQ(travel.locomotion, c.locomotion) << c.name;
    const auto& end = take.pose.At(take.pose.frames - 1, 0);
    if (c.plan.rock == 0) {  // a straight path: its length is where it ends
      EXPECT_NEAR(travel.distance, std::hypot(end.x, end.z), 0.02 * c.plan.unit) << c.name;
    }
  }
}

TEST(Travel, HeadingChange) {
  // Starts and ends near sway peaks of opposite sides: the bare ends would say 80.
  const Plan turn = {.moves = {{6, 1.2}}, .turn = 100, .sway = 10};
  Plan noHips = turn;
  noHips.hipWidth = 0;  // the top joint's rotation decides
  const struct {
    const char* name;
    Plan plan;
    double heading;
  } cases[] = {{"turn left 100", turn, 100},
               {"no hips", noHips, 100},
               {"straight", {.moves = {{4, 1.2}}, .sway = 10}, 0}};
  for (const auto& c : cases) {
    auto take = Build(c.plan);
    if (c.plan.hipWidth > 0) take.pose.topRotation.assign(take.pose.topRotation.size(), Quatf{});
    const Travel travel = MeasureTravel(take.pose, kBody);
    EXPECT_NEAR(travel.headingChange, c.heading, 5) << c.name;
    EXPECT_NEAR(travel.distance, c.plan.moves[0].first * 1.2, 0.05) << c.name;  // along the arc
  }
}

TEST(Travel, SteadyStretchLeavesOutStartAndStop) {
  for (double fps : {30.0, 120.0}) {
    const Travel travel = MeasureTravel(Build({{{3, 0}, {5, 1.2}, {2, 0}}, fps}).pose, kBody);
    ASSERT_EQ(travel.steadyStretches.size(), 1u) << fps;
    const auto [first, last] = travel.steadyStretches[0];
    EXPECT_GT(first / fps, 3.3) << fps;  // walking starts at 3 s, full speed at 3.4 s
    EXPECT_LT(first / fps, 4.0) << fps;
    EXPECT_GT(last / fps, 7.5) << fps;  // slows from 8 s
    EXPECT_LT(last / fps, 8.2) << fps;
  }
}

TEST(Travel, Warnings) {
  const struct {
    const char* name;
    Plan plan;
    size_t warnings;
    const char* text;
  } cases[] = {
      {"walk", {{{4, 1.2}}}, 0, ""},
      {"marching, COG still", {.moves = {{6, 0}}, .march = true}, 2, "never moves"},
      {"marching, COG bobs",
       {.moves = {{6, 0}}, .bob = 0.05, .march = true},
       1,
       "steps but the body"},
  };
  for (const auto& c : cases) {
    const Travel travel = MeasureTravel(Build(c.plan).pose, kBody);
    ASSERT_EQ(travel.warnings.size(), c.warnings) << c.name;
    if (c.warnings) {
      EXPECT_NE(travel.warnings.back().find(c.text), std::string::npos) << c.name;
    }
  }
}

}  // namespace
}  // namespace knrconvert
