#include "travel.h"

#include <gtest/gtest.h>

#include <cmath>

namespace knrconvert {
namespace {

using Zyra::MATH::CTransformation;

// A body at (x, z) with yaw `yaw` degrees (about +y) and pitch `pitch` degrees (about +x).
CTransformation Body(double x, double z, double yaw, double pitch = 0) {
  CTransformation t;
  t.SetTranslationFromValues(x, 90, z);
  t.SetRotationFromXYZAnglesValues(pitch * M_PI / 180, yaw * M_PI / 180, 0);
  return t;
}

TEST(Travel, DistanceAndHeadingChange) {
  std::vector<CTransformation> line, circle, spin, lying;
  for (int i = 0; i <= 10; ++i) line.push_back(Body(0, i * 10.0, 0));
  for (int i = 0; i <= 36; ++i) {
    const double a = i * 10.0;  // once round a circle of radius 100, turning as it goes
    circle.push_back(Body(100 * std::cos(a * M_PI / 180), -100 * std::sin(a * M_PI / 180), -a));
  }
  for (int i = 0; i <= 9; ++i) spin.push_back(Body(0, 0, i * -10.0));
  // Lying on the back (forward axis straight up) and turning: the up axis gives the heading.
  for (int i = 0; i <= 4; ++i) lying.push_back(Body(0, 0, i * 10.0, -90));
  const struct {
    const char* name;
    const std::vector<CTransformation>& samples;
    double distance, heading;
  } cases[] = {
      {"line", line, 100, 0},
      {"circle", circle, 36 * 2 * 100 * std::sin(5 * M_PI / 180), 360},
      {"spin in place", spin, 0, 90},
      {"lying", lying, 0, 40},
      {"one sample", {line[0]}, 0, 0},
  };
  for (const auto& c : cases) {
    const Travel travel = MeasureTravel(c.samples);
    EXPECT_NEAR(travel.distance, c.distance, 1e-6) << c.name;
    EXPECT_NEAR(travel.headingChange, c.heading, 1e-6) << c.name;
  }
  EXPECT_TRUE(Travels({181, 0}, 90));
  EXPECT_FALSE(Travels({179, 720}, 90));  // turning on the spot is no walk
}

}  // namespace
}  // namespace knrconvert
