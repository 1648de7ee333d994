#include "travel.h"

#include <gtest/gtest.h>

#include "synthetic_walk.h"

namespace knrconvert {
namespace {

using testing::Build;
using testing::Plan;

constexpr BodyJoints kBody = {0, 3, 6};

Plan Moves(std::vector<std::pair<double, double>> moves, double fps = 30, double unit = 1) {
  Plan plan;
  plan.moves = std::move(moves);
  plan.fps = fps;
  plan.unit = unit;
  return plan;
}

TEST(Travel, KindAndDistance) {
  Plan sway = Moves({{2, 0}, {0.5, 0.3}, {2, 0}, {0.5, 0.3}, {2, 0}});  // two small shuffles
  sway.sway = 10;
  Plan rock = Moves({{6, 0}});  // dancing from side to side
  rock.rock = 0.15;
  Plan jump = Moves({{3, 0}});
  jump.jumpAt = 1;
  std::vector<std::pair<double, double>> hops;  // forward jumps, a second's pause between
  for (int i = 0; i < 6; ++i) hops.insert(hops.end(), {{0.4, 2.0}, {1.0, 0}});
  const struct {
    const char* name;
    Plan plan;
    bool locomotion;
  } cases[] = {
      {"walk", Moves({{4, 1.2}}), true},
      {"walk at 120 fps", Moves({{4, 1.2}}, 120), true},
      {"walk in cm", Moves({{4, 1.2}}, 30, 100), true},
      {"slow walk, 0.6 leg a second", Moves({{6, 0.5}}), true},
      {"drift, 0.35 leg a second", Moves({{10, 0.3}}), false},
      {"short walk, under two legs", Moves({{1.2, 1.2}}), false},
      {"dash of 0.67 s", Moves({{0.67, 4}}), true},
      {"forward jumps", Moves(hops), true},
      {"burst of 1.2 s, 2.5 legs", Moves({{2, 0}, {1.2, 1.8}, {2, 0}}), true},
      {"standing, sway and shuffles", sway, false},
      {"rocking side to side", rock, false},
      {"jump in place", jump, false},
  };
  for (const auto& c : cases) {
    const auto take = Build(c.plan);
    const Travel travel = MeasureTravel(take.pose, kBody);
    EXPECT_EQ(travel.locomotion, c.locomotion) << c.name;
    const auto& p = take.pose.At(take.pose.frames - 1, 0);
    if (c.plan.rock == 0) {  // a straight path: its length is where it ends
      EXPECT_NEAR(travel.distance, std::hypot(p.x, p.z), 0.02 * c.plan.unit) << c.name;
    }
  }
}

TEST(Travel, HeadingChange) {
  Plan turn = Moves({{6, 1.2}});
  turn.turn = 100;
  turn.sway = 10;  // starts and ends near sway peaks of opposite sides: the bare ends say 80
  Plan noHips = turn;
  noHips.hipWidth = 0;  // the top joint's rotation decides
  Plan straight = Moves({{4, 1.2}});
  straight.sway = 10;
  const struct {
    const char* name;
    Plan plan;
    double heading;
  } cases[] = {{"turn left 100", turn, 100}, {"no hips", noHips, 100}, {"straight", straight, 0}};
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
    const Travel travel = MeasureTravel(Build(Moves({{3, 0}, {5, 1.2}, {2, 0}}, fps)).pose, kBody);
    ASSERT_EQ(travel.steadyStretches.size(), 1u) << fps;
    const double first = travel.steadyStretches[0].first / fps,
                 last = travel.steadyStretches[0].second / fps;
    EXPECT_GT(first, 3.3) << fps;  // walking starts at 3 s, full speed at 3.4 s
    EXPECT_LT(first, 4.0) << fps;
    EXPECT_GT(last, 7.5) << fps;  // slows from 8 s
    EXPECT_LT(last, 8.2) << fps;
  }
}

TEST(Travel, Warnings) {
  Plan march = Moves({{6, 0}});
  march.march = true;
  Plan marchBob = march;
  marchBob.bob = 0.05;
  const struct {
    const char* name;
    Plan plan;
    size_t warnings;
    const char* text;
  } cases[] = {
      {"walk", Moves({{4, 1.2}}), 0, ""},
      {"marching, COG still", march, 2, "never moves"},
      {"marching, COG bobs", marchBob, 1, "steps but the body does not travel"},
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
