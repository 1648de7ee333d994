// The four-at-a-time BVH rotations against the one-at-a-time DrvQuaternion_SetZXY (itself checked
// against Eigen in drv_math_test) and against sines and cosines in double precision.
#include "knrexport/math/drv_batch.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <vector>

namespace {

// Two units in the last place of the half-angle sines and cosines, through one product of three.
constexpr float kTolerance = 4e-7f;

void ExpectSameAsOneAtATime(const std::vector<float>& rx, const std::vector<float>& ry,
                            const std::vector<float>& rz) {
  const int count = static_cast<int>(rx.size());
  // One element more than asked for, which must stay untouched.
  const DrvQuaternion sentinel{9.0f, 9.0f, 9.0f, 9.0f};
  std::vector<DrvQuaternion> many(rx.size() + 1, sentinel);
  DrvQuaternion_SetZXYMany(many.data(), rx.data(), ry.data(), rz.data(), count);
  for (int i = 0; i < count; ++i) {
    DrvQuaternion one{};
    DrvQuaternion_SetZXY(&one, rx[i], ry[i], rz[i]);
    const DrvQuaternion& got = many[static_cast<std::size_t>(i)];
    SCOPED_TRACE(::testing::Message() << "angles " << rx[i] << " " << ry[i] << " " << rz[i]);
    if (std::isnan(one.w)) {
      EXPECT_TRUE(std::isnan(got.w));
      continue;
    }
    EXPECT_NEAR(got.x, one.x, kTolerance);
    EXPECT_NEAR(got.y, one.y, kTolerance);
    EXPECT_NEAR(got.z, one.z, kTolerance);
    EXPECT_NEAR(got.w, one.w, kTolerance);
  }
  const DrvQuaternion& after = many.back();
  EXPECT_TRUE(after.x == 9.0f && after.y == 9.0f && after.z == 9.0f && after.w == 9.0f);
}

TEST(DrvBatchTest, SetZXYManyMatchesSetZXYForEveryCountAndRange) {
  std::mt19937 random(11);
  // Motion-capture angles (within a few turns), wound-up angles up to the reduction limit, and
  // counts that leave one to three lanes of the last group of four.
  for (const float range : {6.3f, 60.0f, 8000.0f}) {
    std::uniform_real_distribution<float> angle(-range, range);
    for (int count = 1; count <= 13; ++count) {
      std::vector<float> rx(count), ry(count), rz(count);
      for (int i = 0; i < count; ++i) {
        rx[i] = angle(random);
        ry[i] = angle(random);
        rz[i] = angle(random);
      }
      ExpectSameAsOneAtATime(rx, ry, rz);
    }
  }
}

TEST(DrvBatchTest, QuadrantEdgesAndAnglesPastTheReduction) {
  const float inf = std::numeric_limits<float>::infinity();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  std::vector<float> rx, ry, rz;
  // Whole and half turns of each sign (the half angles land on the quadrant edges), zeros of
  // both signs, and beside them in the same group of four the angles the polynomial does not
  // take: beyond the reduction limit, infinite, NaN.
  const float edges[] = {0.0f,        -0.0f,      1.5707964f, -1.5707964f, 3.1415927f,
                         -3.1415927f, 4.712389f,  -4.712389f, 6.2831855f,  -6.2831855f,
                         9.424778f,   12.566371f, 8192.0f,    -8192.0f,    8192.001f,
                         -9000.0f,    1e9f,       inf,        -inf,        nan};
  for (const float a : edges) {
    for (const float b : {0.3f, -2.0f}) {
      rx.push_back(a);
      ry.push_back(b);
      rz.push_back(-b);
      rx.push_back(b);
      ry.push_back(a);
      rz.push_back(0.7f);
      rx.push_back(b);
      ry.push_back(-0.1f);
      rz.push_back(a);
    }
  }
  ExpectSameAsOneAtATime(rx, ry, rz);
}

TEST(DrvBatchTest, HalfAngleSinesAndCosinesAgainstDoublePrecision) {
  // A rotation about one axis carries the half angle's sine and cosine directly: checks the
  // polynomial itself, not its agreement with the library.
  std::vector<float> angles, zeros;
  for (float a = -40.0f; a <= 40.0f; a += 0.0137f) {
    angles.push_back(a);
    zeros.push_back(0.0f);
  }
  const int count = static_cast<int>(angles.size());
  std::vector<DrvQuaternion> aboutX(angles.size()), aboutZ(angles.size());
  DrvQuaternion_SetZXYMany(aboutX.data(), angles.data(), zeros.data(), zeros.data(), count);
  DrvQuaternion_SetZXYMany(aboutZ.data(), zeros.data(), zeros.data(), angles.data(), count);
  for (int i = 0; i < count; ++i) {
    const double half = static_cast<double>(angles[i]) / 2.0;
    EXPECT_NEAR(aboutX[i].x, std::sin(half), 2.5e-7) << angles[i];
    EXPECT_NEAR(aboutX[i].w, std::cos(half), 2.5e-7) << angles[i];
    EXPECT_NEAR(aboutZ[i].z, std::sin(half), 2.5e-7) << angles[i];
    EXPECT_NEAR(aboutZ[i].w, std::cos(half), 2.5e-7) << angles[i];
    EXPECT_EQ(aboutX[i].y, 0.0f);
    EXPECT_EQ(aboutZ[i].x, 0.0f);
  }
}

// GetEulerAnglesMany must give GetEulerAngles' bits for every kind of rotation a take holds:
// ordinary ones in every quadrant, rotations about one axis (exact zeros in the matrix), the
// identity, pitch at gimbal lock both ways, and quaternions that are not rotations at all.
TEST(DrvBatchTest, EulerAnglesManyAreGetEulerAnglesBitForBit) {
  std::mt19937 random(5);
  std::uniform_real_distribution<float> angle(-7.0f, 7.0f);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  const struct {
    const char* label;
    std::function<DrvQuaternion(int)> make;
  } families[] = {
      {"any rotation",
       [&](int) {
         DrvQuaternion q;
         DrvQuaternion_SetZXY(&q, angle(random), angle(random), angle(random));
         return q;
       }},
      {"about one axis",
       [&](int i) {
         DrvQuaternion q;
         const float a = angle(random);
         DrvQuaternion_SetZXY(&q, i % 3 == 0 ? a : 0.0f, i % 3 == 1 ? a : 0.0f,
                              i % 3 == 2 ? a : 0.0f);
         return q;
       }},
      {"identity",
       [](int) {
         return DrvQuaternion{0.0f, 0.0f, 0.0f, 1.0f};
       }},
      {"gimbal lock",
       [&](int i) {
         DrvQuaternion q;
         DrvQuaternion_SetZXY(&q, angle(random), i % 2 ? 1.5707964f : -1.5707964f, angle(random));
         return q;
       }},
      {"not rotations",
       [&](int i) {
         const float odd[4] = {nan, inf, 0.0f, 1e-30f};
         return DrvQuaternion{odd[i % 4], 0.5f, angle(random), odd[(i + 1) % 4]};
       }},
  };
  for (const auto& family : families) {
    SCOPED_TRACE(family.label);
    for (int count = 1; count <= 13; ++count) {
      std::vector<DrvQuaternion> q;
      for (int i = 0; i < 100 * count; ++i) q.push_back(family.make(i));
      std::vector<DrvVector> many(q.size());
      DrvQuaternion_GetEulerAnglesMany(many.data(), q.data(), static_cast<int>(q.size()));
      for (std::size_t i = 0; i < q.size(); ++i) {
        DrvVector one;
        DrvQuaternion_GetEulerAngles(&q[i], &one);
        ASSERT_EQ(std::memcmp(&one, &many[i], sizeof one), 0)
            << "quaternion " << i << ": " << q[i].x << " " << q[i].y << " " << q[i].z << " "
            << q[i].w << " gives " << one.x << " " << one.y << " " << one.z << ", not " << many[i].x
            << " " << many[i].y << " " << many[i].z;
      }
    }
  }
}

}  // namespace
