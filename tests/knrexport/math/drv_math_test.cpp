// The single-precision plug-in math checked against Eigen in double precision (products, rotation
// matrices, Euler compositions, slerp) and against invariants: Euler round trips, inverse
// transforms, continuity of angle curves, and outputs that alias inputs.
#include "knrexport/math/drv_math.h"

#include <gtest/gtest.h>

#include <cmath>
#include <eigen3/Eigen/Geometry>
#include <limits>
#include <random>

namespace {

constexpr double kPi = 3.14159265358979323846;
// Float arithmetic on values of order one: a few ulps after a handful of operations.
constexpr double kTol = 4e-6;

Eigen::Vector3d E(const DrvVector& v) { return {v.x, v.y, v.z}; }
Eigen::Quaterniond E(const DrvQuaternion& q) { return {q.w, q.x, q.y, q.z}; }
Eigen::Matrix3d RotationOf(const DrvQuaternion& q) { return E(q).normalized().toRotationMatrix(); }
DrvVector D(const Eigen::Vector3d& v) {
  return {static_cast<float>(v.x()), static_cast<float>(v.y()), static_cast<float>(v.z())};
}
DrvQuaternion D(const Eigen::Quaterniond& q) {
  return {static_cast<float>(q.x()), static_cast<float>(q.y()), static_cast<float>(q.z()),
          static_cast<float>(q.w())};
}

Eigen::Matrix3d AxisRotation(double angle, const Eigen::Vector3d& axis) {
  return Eigen::AngleAxisd(angle, axis).toRotationMatrix();
}
Eigen::Matrix3d Rx(double a) { return AxisRotation(a, Eigen::Vector3d::UnitX()); }
Eigen::Matrix3d Ry(double a) { return AxisRotation(a, Eigen::Vector3d::UnitY()); }
Eigen::Matrix3d Rz(double a) { return AxisRotation(a, Eigen::Vector3d::UnitZ()); }
// The X-then-Y-then-Z composition, Rz Ry Rx.
Eigen::Matrix3d EulerXYZ(double rx, double ry, double rz) { return Rz(rz) * Ry(ry) * Rx(rx); }

double MaxDiff(const Eigen::Matrix3d& a, const Eigen::Matrix3d& b) {
  return (a - b).cwiseAbs().maxCoeff();
}
double MaxDiff(const Eigen::Vector3d& a, const Eigen::Vector3d& b) {
  return (a - b).cwiseAbs().maxCoeff();
}
double MaxDiff(const DrvQuaternion& a, const DrvQuaternion& b) {
  return std::max(
      {std::fabs(a.x - b.x), std::fabs(a.y - b.y), std::fabs(a.z - b.z), std::fabs(a.w - b.w)});
}
bool SameBits(const DrvQuaternion& a, const DrvQuaternion& b) {
  return a.x == b.x && a.y == b.y && a.z == b.z && a.w == b.w;
}
bool SameBits(const DrvVector& a, const DrvVector& b) {
  return a.x == b.x && a.y == b.y && a.z == b.z;
}
double Dot4(const DrvQuaternion& a, const DrvQuaternion& b) {
  return double(a.x) * b.x + double(a.y) * b.y + double(a.z) * b.z + double(a.w) * b.w;
}

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  float Uniform(float lo, float hi) {
    return std::uniform_real_distribution<float>(lo, hi)(engine_);
  }
  DrvVector Vector(float range = 10.0f) {
    return {Uniform(-range, range), Uniform(-range, range), Uniform(-range, range)};
  }
  DrvQuaternion Rotation() {
    std::normal_distribution<double> n;
    Eigen::Quaterniond q(n(engine_), n(engine_), n(engine_), n(engine_));
    return D(q.normalized());
  }
  DrvTransform Transform() {
    DrvTransform t;
    t.translation = Vector();
    t.rotation = Rotation();
    t.scaling = {Uniform(0.5f, 2.0f), Uniform(0.5f, 2.0f), Uniform(0.5f, 2.0f)};
    return t;
  }

 private:
  std::mt19937 engine_;
};

bool SameBits(const DrvTransform& a, const DrvTransform& b) {
  return SameBits(a.translation, b.translation) && SameBits(a.rotation, b.rotation) &&
         SameBits(a.scaling, b.scaling);
}

// `op(out, a, b)` gives the same bits when `out` is a, b, or both inputs are one object.
template <typename T, typename Op>
::testing::AssertionResult AliasingSafe(Op op, T a, T b) {
  T expected, out = a;
  op(&expected, &a, &b);
  op(&out, &out, &b);
  if (!SameBits(out, expected)) return ::testing::AssertionFailure() << "output is the first input";
  out = b;
  op(&out, &a, &out);
  if (!SameBits(out, expected)) return ::testing::AssertionFailure() << "output is the second";
  op(&expected, &a, &a);
  out = a;
  op(&out, &out, &out);
  if (!SameBits(out, expected)) return ::testing::AssertionFailure() << "all three are one";
  return ::testing::AssertionSuccess();
}

// Applies a transform as the double-precision oracle sees it: rotate, then translate.
Eigen::Vector3d Apply(const DrvTransform& t, const Eigen::Vector3d& p) {
  return RotationOf(t.rotation) * p + E(t.translation);
}

TEST(DrvVectorTest, ArithmeticMatchesDoublePrecision) {
  Random rng(11);
  for (int i = 0; i < 200; ++i) {
    DrvVector a = rng.Vector(), b = rng.Vector();
    const float s = rng.Uniform(-3.0f, 3.0f);
    DrvVector out;
    DrvVector_Add(&out, &a, &b);
    EXPECT_LT(MaxDiff(E(out), E(a) + E(b)), 1e-5);
    DrvVector_Subtract(&out, &a, &b);
    EXPECT_LT(MaxDiff(E(out), E(a) - E(b)), 1e-5);
    DrvVector_Multiply(&out, &a, s);
    EXPECT_LT(MaxDiff(E(out), E(a) * s), 1e-5);
    EXPECT_NEAR(DrvVector_DotProduct(&a, &b), E(a).dot(E(b)), 1e-4);
    EXPECT_NEAR(DrvVector_Magnitude(&a), E(a).norm(), 1e-5);
    DrvVector n = a;
    DrvVector_Normalize(&n);
    EXPECT_LT(MaxDiff(E(n), E(a).normalized()), kTol);
  }
  {
    DrvVector v = {9.0f, 9.0f, 9.0f};
    DrvVector_Set(&v, 1.5f, -2.0f, 3.25f);
    EXPECT_TRUE(SameBits(v, DrvVector{1.5f, -2.0f, 3.25f}));
  }
  {
    // No guard against zero length: the components come out non-finite.
    DrvVector zero = {0.0f, 0.0f, 0.0f};
    DrvVector_Normalize(&zero);
    EXPECT_FALSE(std::isfinite(zero.x));
    EXPECT_FALSE(std::isfinite(zero.y));
    EXPECT_FALSE(std::isfinite(zero.z));
  }
}

TEST(DrvVectorTest, CrossProductIsRightHanded) {
  DrvVector x = {1, 0, 0}, y = {0, 1, 0}, z = {0, 0, 1}, out;
  DrvVector_CrossProduct(&out, &x, &y);
  EXPECT_TRUE(SameBits(out, z));
  DrvVector_CrossProduct(&out, &y, &z);
  EXPECT_TRUE(SameBits(out, x));
  DrvVector_CrossProduct(&out, &z, &x);
  EXPECT_TRUE(SameBits(out, y));
  DrvVector_CrossProduct(&out, &y, &x);
  EXPECT_TRUE(SameBits(out, (DrvVector{0, 0, -1})));

  Random rng(12);
  for (int i = 0; i < 200; ++i) {
    DrvVector a = rng.Vector(), b = rng.Vector();
    DrvVector_CrossProduct(&out, &a, &b);
    EXPECT_LT(MaxDiff(E(out), E(a).cross(E(b))), 1e-4);
  }
}

TEST(DrvQuaternionTest, MultiplyIsTheHamiltonProductAndAppliesBFirst) {
  Random rng(21);
  for (int i = 0; i < 200; ++i) {
    DrvQuaternion a = rng.Rotation(), b = rng.Rotation(), out;
    DrvQuaternion_Multiply(&out, &a, &b);
    EXPECT_LT(MaxDiff(out, D(E(a) * E(b))), kTol);
    // As matrices acting on column vectors: Ra Rb, so b acts first.
    EXPECT_LT(MaxDiff(RotationOf(out), RotationOf(a) * RotationOf(b)), kTol);
  }
}

TEST(DrvQuaternionTest, RotatesVectorsLikeTheRotationMatrix) {
  {
    // A quarter turn about Z takes X to Y (counter-clockwise seen from +Z).
    DrvVector axis = {0, 0, 1}, v = {1, 0, 0}, out;
    DrvQuaternion q;
    DrvQuaternion_FromRotation(&q, &axis, static_cast<float>(kPi / 2));
    DrvVector_MultiplyQuaternion(&out, &v, &q);
    EXPECT_LT(MaxDiff(E(out), Eigen::Vector3d(0, 1, 0)), kTol);
  }
  Random rng(22);
  for (int i = 0; i < 200; ++i) {
    DrvQuaternion q = rng.Rotation();
    DrvVector v = rng.Vector(), out;
    DrvVector_MultiplyQuaternion(&out, &v, &q);
    EXPECT_LT(MaxDiff(E(out), RotationOf(q) * E(v)), 2e-5);
    DrvTransform t = rng.Transform();
    DrvVector_MultiplyTransform(&out, &v, &t);
    EXPECT_LT(MaxDiff(E(out), Apply(t, E(v))), 4e-5);
  }
}

TEST(DrvQuaternionTest, FromRotationAndMatrixMatchAngleAxis) {
  Random rng(23);
  for (int i = 0; i < 200; ++i) {
    const Eigen::Vector3d axis = E(rng.Vector()).normalized();
    const float angle = rng.Uniform(-7.0f, 7.0f);
    DrvVector a = D(axis);
    DrvQuaternion q;
    DrvQuaternion_FromRotation(&q, &a, angle);
    EXPECT_LT(MaxDiff(q, D(Eigen::Quaterniond(Eigen::AngleAxisd(angle, E(a))))), kTol);

    DrvMatrix m;
    DrvQuaternion_FromRotation(&q, &a, angle);
    DrvMatrix_FromQuaternion(&m, &q);
    // Row r holds the image of basis axis r, i.e. column r of the column-vector matrix.
    const Eigen::Matrix3d r = AxisRotation(angle, E(a));
    for (int row = 0; row < 3; ++row)
      for (int col = 0; col < 3; ++col) EXPECT_NEAR(m.m[4 * row + col], r(col, row), kTol);
    for (int k : {3, 7, 11, 12, 13, 14}) EXPECT_EQ(m.m[k], 0.0f) << k;
    EXPECT_EQ(m.m[15], 1.0f);
  }
}

TEST(DrvQuaternionTest, EulerCompositionOrders) {
  Random rng(24);
  for (int i = 0; i < 500; ++i) {
    const float rx = rng.Uniform(-7.0f, 7.0f), ry = rng.Uniform(-7.0f, 7.0f),
                rz = rng.Uniform(-7.0f, 7.0f);
    DrvQuaternion q;
    DrvQuaternion_SetEulerAngles(&q, rx, ry, rz);
    EXPECT_NEAR(E(q).norm(), 1.0, kTol);
    EXPECT_LT(MaxDiff(RotationOf(q), EulerXYZ(rx, ry, rz)), kTol) << rx << " " << ry << " " << rz;
    DrvQuaternion_SetZXY(&q, rx, ry, rz);
    EXPECT_NEAR(E(q).norm(), 1.0, kTol);
    EXPECT_LT(MaxDiff(RotationOf(q), Eigen::Matrix3d(Rz(rz) * Rx(rx) * Ry(ry))), kTol)
        << rx << " " << ry << " " << rz;
  }
}

TEST(DrvQuaternionTest, GetEulerAnglesInvertsSetEulerAngles) {
  Random rng(25);
  double worst = 0.0;
  for (int i = 0; i < 5000; ++i) {
    const float rx = rng.Uniform(0.0f, kDrvTwoPi), ry = rng.Uniform(0.0f, kDrvTwoPi),
                rz = rng.Uniform(0.0f, kDrvTwoPi);
    DrvQuaternion q;
    DrvQuaternion_SetEulerAngles(&q, rx, ry, rz);
    DrvVector a;
    DrvQuaternion_GetEulerAngles(&q, &a);
    for (float angle : {a.x, a.y, a.z}) {
      EXPECT_GE(angle, 0.0f);
      EXPECT_LT(angle, kDrvTwoPi);
    }
    // Pitch comes back folded into [0, pi/2] or [3 pi/2, 2 pi).
    EXPECT_TRUE(a.y <= kPi / 2 + 1e-6 || a.y >= 3 * kPi / 2 - 1e-6) << a.y;
    // Near gimbal lock (|cos(pitch)| within 0.001) the split between rx and rz is approximate;
    // elsewhere the angles reproduce the rotation to float precision over cos(pitch).
    const double k = std::fabs(std::cos(double(a.y)));
    const double tolerance = k <= 0.0011 ? 2.5e-3 : 2e-5 + 2e-7 / k;
    const double error = MaxDiff(EulerXYZ(a.x, a.y, a.z), EulerXYZ(rx, ry, rz));
    EXPECT_LT(error, tolerance) << rx << " " << ry << " " << rz;
    if (k > 0.0011) worst = std::max(worst, error * k);
  }
  EXPECT_GT(worst, 0.0);  // The comparison above did run on non-locked rotations.
}

TEST(DrvQuaternionTest, GetEulerAnglesEdgeCases) {
  DrvVector a;
  {
    DrvQuaternion identity = {0, 0, 0, 1};
    DrvQuaternion_GetEulerAngles(&identity, &a);
    EXPECT_EQ(a.x, 0.0f);
    EXPECT_EQ(a.y, 0.0f);
    EXPECT_EQ(a.z, 0.0f);
  }
  {
    DrvVector x = {1, 0, 0};
    DrvQuaternion q;
    DrvQuaternion_FromRotation(&q, &x, -0.1f);
    DrvQuaternion_GetEulerAngles(&q, &a);
    EXPECT_NEAR(a.x, 2 * kPi - 0.1, kTol);
    EXPECT_EQ(a.y, 0.0f);
    EXPECT_EQ(a.z, 0.0f);
  }
  {
    // A tiny negative angle wraps to the float nearest 2 pi, the same rotation as 0.
    DrvVector x = {1, 0, 0};
    DrvQuaternion q;
    DrvQuaternion_FromRotation(&q, &x, -1e-8f);
    DrvQuaternion_GetEulerAngles(&q, &a);
    EXPECT_EQ(a.x, kDrvTwoPi);
    DrvQuaternion_FromRotation(&q, &x, -1e-6f);
    DrvQuaternion_GetEulerAngles(&q, &a);
    EXPECT_LT(a.x, kDrvTwoPi);
    EXPECT_NEAR(a.x, 2 * kPi - 1e-6, kTol);
  }
  {
    // Angles already in range with moderate pitch come back as given.
    DrvQuaternion q;
    DrvQuaternion_SetEulerAngles(&q, 0.3f, 0.5f, 5.9f);
    DrvQuaternion_GetEulerAngles(&q, &a);
    EXPECT_NEAR(a.x, 0.3, kTol);
    EXPECT_NEAR(a.y, 0.5, kTol);
    EXPECT_NEAR(a.z, 5.9, kTol);
    DrvQuaternion_SetEulerAngles(&q, 4.0f, 5.5f, 1.0f);
    DrvQuaternion_GetEulerAngles(&q, &a);
    EXPECT_NEAR(a.x, 4.0, kTol);
    EXPECT_NEAR(a.y, 5.5, kTol);
    EXPECT_NEAR(a.z, 1.0, kTol);
  }
  {
    // Gimbal lock: pitch of a quarter turn up or down. rz becomes 0 and rx carries the whole
    // remaining turn (rx - rz looking up, rx + rz looking down); the rotation is unchanged.
    for (double pitch : {kPi / 2, 3 * kPi / 2}) {
      for (float rx : {0.0f, 0.4f, 2.5f, 5.0f}) {
        for (float rz : {0.0f, 0.7f, 3.0f, 6.0f}) {
          DrvQuaternion q;
          DrvQuaternion_SetEulerAngles(&q, rx, static_cast<float>(pitch), rz);
          DrvQuaternion_GetEulerAngles(&q, &a);
          EXPECT_EQ(a.z, 0.0f);
          EXPECT_NEAR(a.y, pitch, 1e-5);
          EXPECT_GE(a.x, 0.0f);
          EXPECT_LT(a.x, kDrvTwoPi);
          EXPECT_LT(MaxDiff(EulerXYZ(a.x, a.y, a.z), EulerXYZ(rx, pitch, rz)), 2e-5)
              << pitch << " " << rx << " " << rz;
        }
      }
    }
  }
  {
    // Inside the lock threshold but not exactly locked the result is within about 1e-3.
    DrvQuaternion q;
    DrvQuaternion_SetEulerAngles(&q, 1.0f, static_cast<float>(kPi / 2 - 0.0008), 2.0f);
    DrvQuaternion_GetEulerAngles(&q, &a);
    EXPECT_EQ(a.z, 0.0f);
    EXPECT_LT(MaxDiff(EulerXYZ(a.x, a.y, a.z), EulerXYZ(1.0, kPi / 2 - 0.0008, 2.0)), 2e-3);
  }
}

TEST(DrvQuaternionTest, InterpolateFollowsTheGreatCircle) {
  Random rng(31);
  for (int i = 0; i < 300; ++i) {
    DrvQuaternion a = rng.Rotation(), b = rng.Rotation(), out;
    if (std::fabs(Dot4(a, b)) > 0.94) continue;  // Keeps to the spherical branch.
    const float sign = Dot4(a, b) < 0 ? -1.0f : 1.0f;
    DrvQuaternion_Interpolate(&out, &a, &b, 0.0f, 0);
    EXPECT_TRUE(SameBits(out, DrvQuaternion{sign * a.x, sign * a.y, sign * a.z, sign * a.w}));
    DrvQuaternion_Interpolate(&out, &a, &b, 1.0f, 0);
    EXPECT_LT(MaxDiff(out, b), kTol);
    const float t = rng.Uniform(0.0f, 1.0f);
    DrvQuaternion_Interpolate(&out, &a, &b, t, 0);
    // Eigen keeps a's sign and flips b; compare the rotations and that we stay on b's side.
    EXPECT_NEAR(E(out).norm(), 1.0, kTol);
    EXPECT_LT(MaxDiff(RotationOf(out), E(a).slerp(t, E(b)).toRotationMatrix()), 2e-5) << t;
    EXPECT_GE(Dot4(out, b), 0.0);

    // Extra spins: the blend angle from (sign) a grows by pi per spin.
    for (int spins : {1, 2}) {
      const Eigen::Vector4d va = sign * Eigen::Vector4d(a.x, a.y, a.z, a.w);
      const Eigen::Vector4d vb(b.x, b.y, b.z, b.w);
      const double theta = std::acos(va.dot(vb));
      const Eigen::Vector4d perp = (vb - va.dot(vb) * va).normalized();
      for (float ts : {0.25f, 0.5f, 1.0f}) {
        DrvQuaternion_Interpolate(&out, &a, &b, ts, spins);
        const double phi = (spins * kPi + theta) * ts;
        const Eigen::Vector4d expected = std::cos(phi) * va + std::sin(phi) * perp;
        EXPECT_LT(MaxDiff(out, DrvQuaternion{float(expected[0]), float(expected[1]),
                                             float(expected[2]), float(expected[3])}),
                  2e-5)
            << spins << " " << ts;
        EXPECT_NEAR(
            Dot4(out, DrvQuaternion{float(va[0]), float(va[1]), float(va[2]), float(va[3])}),
            std::cos(phi), 2e-5);
      }
    }
  }
  {
    // One spin at t = 1 ends on -b (the same orientation after a full extra turn); two on b.
    DrvVector axis = {0, 0, 1};
    DrvQuaternion a = {0, 0, 0, 1}, b, out;
    DrvQuaternion_FromRotation(&b, &axis, 1.0f);
    DrvQuaternion_Interpolate(&out, &a, &b, 1.0f, 1);
    EXPECT_LT(MaxDiff(out, DrvQuaternion{-b.x, -b.y, -b.z, -b.w}), kTol);
    DrvQuaternion_Interpolate(&out, &a, &b, 1.0f, 2);
    EXPECT_LT(MaxDiff(out, b), kTol);
    // Half way with one spin the object has turned half of 2 pi + 1 about Z: a half-angle of
    // (pi + 0.5) / 2 in the quaternion.
    DrvQuaternion_Interpolate(&out, &a, &b, 0.5f, 1);
    EXPECT_NEAR(out.x, 0.0, kTol);
    EXPECT_NEAR(out.y, 0.0, kTol);
    EXPECT_NEAR(out.z, std::sin((kPi + 0.5) / 2), kTol);
    EXPECT_NEAR(out.w, std::cos((kPi + 0.5) / 2), kTol);
  }
  {
    // Within 0.05 of cos = 1 the blend is linear and not renormalized; just outside, spherical.
    DrvVector axis = {1, 0, 0};
    DrvQuaternion a = {0, 0, 0, 1}, b, out;
    DrvQuaternion_FromRotation(&b, &axis, 2 * std::acos(0.96f));
    DrvQuaternion_Interpolate(&out, &a, &b, 0.5f, 0);
    EXPECT_NEAR(out.x, 0.5 * b.x, kTol);
    EXPECT_NEAR(out.w, 0.5 + 0.5 * b.w, kTol);
    EXPECT_NEAR(E(out).norm(), std::sqrt(0.5 * (1 + 0.96)), kTol);
    DrvQuaternion_FromRotation(&b, &axis, 2 * std::acos(0.94f));
    DrvQuaternion_Interpolate(&out, &a, &b, 0.5f, 0);
    EXPECT_NEAR(E(out).norm(), 1.0, kTol);
    EXPECT_NEAR(out.w, std::cos(std::acos(0.94) / 2), kTol);
  }
}

// True when q is a unit quaternion taking the direction of `from` onto that of `to`.
::testing::AssertionResult Takes(const DrvQuaternion& q, const DrvVector& from, const DrvVector& to,
                                 double tolerance) {
  const Eigen::Vector3d image = RotationOf(q) * E(from).normalized();
  const double error = MaxDiff(image, E(to).normalized());
  if (std::fabs(E(q).norm() - 1.0) < kTol && error < tolerance)
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "error " << error << " norm " << E(q).norm();
}

TEST(DrvQuaternionTest, FromTwoVectorsGivesTheShortestRotation) {
  DrvQuaternion q;
  const DrvQuaternion identity = {0, 0, 0, 1};
  {
    DrvVector v = {1, 2, 3}, w = {2, 4, 6};
    DrvQuaternion_FromTwoVectors(&q, &v, &v);
    EXPECT_TRUE(SameBits(q, identity));
    DrvQuaternion_FromTwoVectors(&q, &v, &w);
    EXPECT_TRUE(SameBits(q, identity));
  }
  {
    // Opposite along X: a half turn about Y.
    DrvVector from = {1, 0, 0}, to = {-1, 0, 0};
    DrvQuaternion_FromTwoVectors(&q, &from, &to);
    EXPECT_LT(MaxDiff(q, DrvQuaternion{0, 1, 0, 0}), kTol);
  }
  {
    // Opposite directions in general: a half turn (w = 0) about an axis perpendicular to
    // `from`, whether `from` lies on an axis, in a coordinate plane or in no such plane.
    const DrvVector froms[] = {{0, 2, 0},     {0, 0, 3},     {1, 1, 0},     {1, 0, 1},
                               {0, 1, 1},     {1, 2, 3},     {-3, 0.5f, 2}, {1e-6f, 1, -1e-6f},
                               {1, 1e-6f, 0}, {1, 2e-5f, 0}, {-4, -5, -6}};
    for (const DrvVector& f : froms) {
      DrvVector from = f, to = {-2 * f.x, -2 * f.y, -2 * f.z};
      DrvQuaternion_FromTwoVectors(&q, &from, &to);
      EXPECT_NEAR(q.w, 0.0, kTol) << f.x << " " << f.y << " " << f.z;
      EXPECT_NEAR(E(q).vec().dot(E(from)), 0.0, 1e-5) << f.x << " " << f.y << " " << f.z;
      EXPECT_TRUE(Takes(q, from, to, 2e-5)) << f.x << " " << f.y << " " << f.z;
    }
  }
  {
    Random rng(41);
    for (int i = 0; i < 500; ++i) {
      DrvVector from = rng.Vector(), to = rng.Vector();
      DrvQuaternion_FromTwoVectors(&q, &from, &to);
      const double angle = std::acos(E(from).normalized().dot(E(to).normalized()));
      // acos loses precision near parallel or opposite directions.
      const double tolerance = 2e-5 + 1e-6 / std::max(std::sin(angle), 1e-3);
      EXPECT_TRUE(Takes(q, from, to, tolerance));
      // Shortest: the axis is perpendicular to both, so the angle is the one between them.
      EXPECT_NEAR(q.w, std::cos(angle / 2), tolerance);
    }
  }
  {
    // Directions within 0.99999 of parallel count as equal; a little further apart they do not.
    DrvVector from = {1, 0, 0}, close = {1, 0.004f, 0}, apart = {1, 0.006f, 0};
    DrvQuaternion_FromTwoVectors(&q, &from, &close);
    EXPECT_TRUE(SameBits(q, identity));
    DrvQuaternion_FromTwoVectors(&q, &from, &apart);
    EXPECT_FALSE(SameBits(q, identity));
    EXPECT_TRUE(Takes(q, from, apart, 1e-4));
  }
  {
    // Lengths below 1e-5 have no direction; exactly 1e-5 still does.
    DrvVector tiny = {1e-6f, 0, 0}, up = {0, 1, 0};
    DrvQuaternion_FromTwoVectors(&q, &tiny, &up);
    EXPECT_TRUE(SameBits(q, identity));
    DrvQuaternion_FromTwoVectors(&q, &up, &tiny);
    EXPECT_TRUE(SameBits(q, identity));
    DrvVector edge_x = {1e-5f, 0, 0}, edge_y = {0, 1e-5f, 0};
    ASSERT_EQ(DrvVector_Magnitude(&edge_x), 1e-5f);
    DrvQuaternion_FromTwoVectors(&q, &edge_x, &edge_y);
    EXPECT_LT(MaxDiff(q, DrvQuaternion{0, 0, float(std::sqrt(0.5)), float(std::sqrt(0.5))}), kTol);
  }
}

TEST(DrvTransformTest, SetIdentityZeroesEveryFieldButW) {
  DrvTransform t = Random(51).Transform();
  DrvTransform_SetIdentity(&t);
  EXPECT_TRUE(SameBits(t.translation, DrvVector{0, 0, 0}));
  EXPECT_TRUE(SameBits(t.rotation, DrvQuaternion{0, 0, 0, 1}));
  EXPECT_TRUE(SameBits(t.scaling, DrvVector{0, 0, 0}));
}

TEST(DrvTransformTest, MultiplyAppliesBThenA) {
  Random rng(52);
  for (int i = 0; i < 200; ++i) {
    DrvTransform a = rng.Transform(), b = rng.Transform(), out;
    DrvTransform_Multiply(&out, &a, &b);
    EXPECT_TRUE(SameBits(out.scaling, a.scaling));
    for (int k = 0; k < 3; ++k) {
      const Eigen::Vector3d p = E(rng.Vector());
      EXPECT_LT(MaxDiff(Apply(out, p), Apply(a, Apply(b, p))), 1e-4);
    }
  }
}

TEST(DrvTransformTest, InvertUndoesTheTransform) {
  Random rng(53);
  for (int i = 0; i < 200; ++i) {
    const DrvTransform t = rng.Transform();
    DrvTransform inverse = t, both;
    DrvTransform_Invert(&inverse);
    for (int order = 0; order < 2; ++order) {
      DrvTransform first = order == 0 ? t : inverse, second = order == 0 ? inverse : t;
      DrvTransform_Multiply(&both, &first, &second);
      for (int k = 0; k < 3; ++k) {
        DrvVector p = rng.Vector(), image;
        DrvVector_MultiplyTransform(&image, &p, &both);
        EXPECT_LT(MaxDiff(E(image), E(p)), 1e-4);
      }
    }
    // Against the double inverse: p -> R^T (p - T).
    const Eigen::Vector3d p = E(rng.Vector());
    EXPECT_LT(
        MaxDiff(Apply(inverse, p), RotationOf(t.rotation).transpose() * (p - E(t.translation))),
        1e-4);
  }
}

TEST(DrvMathTest, OutputsMayAliasInputs) {
  Random rng(61);
  for (int i = 0; i < 20; ++i) {
    EXPECT_TRUE(AliasingSafe(DrvVector_Add, rng.Vector(), rng.Vector()));
    EXPECT_TRUE(AliasingSafe(DrvVector_Subtract, rng.Vector(), rng.Vector()));
    EXPECT_TRUE(AliasingSafe(DrvVector_CrossProduct, rng.Vector(), rng.Vector()));
    EXPECT_TRUE(AliasingSafe(DrvQuaternion_Multiply, rng.Rotation(), rng.Rotation()));
    EXPECT_TRUE(AliasingSafe(DrvTransform_Multiply, rng.Transform(), rng.Transform()));
    for (int spins : {0, 1}) {
      const auto interpolate = [spins](DrvQuaternion* out, DrvQuaternion* a, DrvQuaternion* b) {
        DrvQuaternion_Interpolate(out, a, b, 0.3f, spins);
      };
      EXPECT_TRUE(AliasingSafe(interpolate, rng.Rotation(), rng.Rotation()));
    }
    // One-input functions with the output on the vector operand.
    DrvVector v = rng.Vector(), expected, out = v;
    DrvQuaternion q = rng.Rotation();
    DrvTransform t = rng.Transform();
    DrvVector_Multiply(&expected, &v, 2.5f);
    DrvVector_Multiply(&out, &out, 2.5f);
    EXPECT_TRUE(SameBits(out, expected));
    DrvVector_MultiplyQuaternion(&expected, &v, &q);
    out = v;
    DrvVector_MultiplyQuaternion(&out, &out, &q);
    EXPECT_TRUE(SameBits(out, expected));
    DrvVector_MultiplyTransform(&expected, &v, &t);
    out = v;
    DrvVector_MultiplyTransform(&out, &out, &t);
    EXPECT_TRUE(SameBits(out, expected));
  }
}

TEST(EnforceContinuityTest, MovesByWholeTurnsToWithinHalfATurn) {
  EXPECT_EQ(EnforceContinuity(350, 0), -10.0f);
  EXPECT_EQ(EnforceContinuity(-190, 0), 170.0f);
  EXPECT_EQ(EnforceContinuity(10, 0), 10.0f);
  // A difference of exactly half a turn is left alone, either way.
  EXPECT_EQ(EnforceContinuity(180, 0), 180.0f);
  EXPECT_EQ(EnforceContinuity(-180, 0), -180.0f);
  EXPECT_EQ(EnforceContinuity(370, 190), 370.0f);
  EXPECT_EQ(EnforceContinuity(180.5f, 0), -179.5f);
  EXPECT_EQ(EnforceContinuity(-180.5f, 0), 179.5f);
  // Relative to the reference, not to zero.
  EXPECT_EQ(EnforceContinuity(10, 720), 730.0f);
  EXPECT_EQ(EnforceContinuity(359, -350), -361.0f);
  // Many turns away.
  EXPECT_EQ(EnforceContinuity(360.0f * 1000 + 10, 0), 10.0f);
  EXPECT_EQ(EnforceContinuity(-360.0f * 1000 - 10, 0), -10.0f);
  EXPECT_EQ(EnforceContinuity(5, 360.0f * 20000), 360.0f * 20000 + 5);
  {
    // Far beyond what 360-degree float steps can walk: still within half a turn, at once.
    const float far = 1e12f;
    const float expected = static_cast<float>(std::remainder(double(far), 360.0));
    EXPECT_EQ(EnforceContinuity(far, 0), expected);
    EXPECT_LE(std::fabs(EnforceContinuity(-far, 30) - 30), 180.0f);
  }
  {
    // Non-finite angles come back unchanged instead of looping.
    const float inf = std::numeric_limits<float>::infinity();
    EXPECT_EQ(EnforceContinuity(inf, 0), inf);
    EXPECT_EQ(EnforceContinuity(-inf, 0), -inf);
    EXPECT_TRUE(std::isnan(EnforceContinuity(std::nanf(""), 0)));
  }
}

}  // namespace
