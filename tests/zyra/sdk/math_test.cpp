// The host math checked against Eigen (quaternions, angle-axis products, affine matrices) and
// against invariants: Euler round trips, gimbal lock, Compose / LocalFrom inverses.
#include "zyra/math.h"

#include <gtest/gtest.h>

#include <cmath>
#include <eigen3/Eigen/Geometry>
#include <limits>
#include <random>
#include <vector>

namespace {

using Zyra::MATH::CMatrix4;
using Zyra::MATH::CQuaternion;
using Zyra::MATH::CRotation;
using Zyra::MATH::CTransformation;
using Zyra::MATH::CVector3;

constexpr double kPi = 3.14159265358979323846;

Eigen::Vector3d E(const CVector3& v) { return {v.GetX(), v.GetY(), v.GetZ()}; }
Eigen::Quaterniond E(const CQuaternion& q) { return {q.GetW(), q.GetX(), q.GetY(), q.GetZ()}; }
Eigen::Matrix4d E(const CMatrix4& m) {
  Eigen::Matrix4d out;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) out(i, j) = m.GetValue(i, j);
  return out;
}

// The rotation Rz * Ry * Rx built independently from Eigen's angle-axis rotations.
Eigen::Matrix3d EulerOracle(double rx, double ry, double rz) {
  return (Eigen::AngleAxisd(rz, Eigen::Vector3d::UnitZ()) *
          Eigen::AngleAxisd(ry, Eigen::Vector3d::UnitY()) *
          Eigen::AngleAxisd(rx, Eigen::Vector3d::UnitX()))
      .toRotationMatrix();
}
Eigen::Matrix3d RotationOf(const CQuaternion& q) { return E(q).normalized().toRotationMatrix(); }

// The column-vector affine matrix of an SRT transformation: translate * rotate * scale.
Eigen::Matrix4d AffineOracle(const CTransformation& t) {
  Eigen::Affine3d a = Eigen::Translation3d(E(t.GetTranslation())) *
                      E(t.GetRotationQuaternion()).normalized() * Eigen::Scaling(E(t.GetScaling()));
  return a.matrix();
}

::testing::AssertionResult MatricesNear(const Eigen::MatrixXd& a, const Eigen::MatrixXd& b,
                                        double tol) {
  const double scale = std::max(1.0, std::max(a.cwiseAbs().maxCoeff(), b.cwiseAbs().maxCoeff()));
  const double err = (a - b).cwiseAbs().maxCoeff();
  if (err <= tol * scale) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "max difference " << err << "\n" << a << "\nvs\n" << b;
}

class Random {
 public:
  explicit Random(unsigned seed) : gen_(seed) {}
  double Uniform(double lo, double hi) {
    return std::uniform_real_distribution<double>(lo, hi)(gen_);
  }
  CVector3 Vector(double lo, double hi) {
    return {Uniform(lo, hi), Uniform(lo, hi), Uniform(lo, hi)};
  }
  // A uniformly distributed rotation (normalised Gaussian 4-vector).
  CQuaternion Rotation() {
    std::normal_distribution<double> n;
    return CQuaternion(n(gen_), n(gen_), n(gen_), n(gen_)).Normalized();
  }
  CTransformation Transform(double scaleLo, double scaleHi) {
    CTransformation t;
    t.SetTranslation(Vector(-10, 10))
        .SetRotationFromQuaternion(Rotation())
        .SetScaling(Vector(scaleLo, scaleHi));
    return t;
  }

 private:
  std::mt19937_64 gen_;
};

void ExpectSameTransform(const CTransformation& a, const CTransformation& b, double tol) {
  EXPECT_TRUE(MatricesNear(E(a.GetTranslation()), E(b.GetTranslation()), tol));
  EXPECT_TRUE(MatricesNear(E(a.GetScaling()), E(b.GetScaling()), tol));
  EXPECT_TRUE(MatricesNear(RotationOf(a.GetRotationQuaternion()),
                           RotationOf(b.GetRotationQuaternion()), tol));
}

TEST(MathVector, LengthCrossAndEquals) {
  EXPECT_DOUBLE_EQ(CVector3(3, 4, 12).GetLength(), 13.0);
  EXPECT_EQ(CVector3().GetLength(), 0.0);
  EXPECT_TRUE(CVector3(1, 0, 0).Cross(CVector3(0, 1, 0)).Equals(CVector3(0, 0, 1)));

  Random rnd(1);
  for (int i = 0; i < 200; ++i) {
    const CVector3 a = rnd.Vector(-5, 5), b = rnd.Vector(-5, 5);
    EXPECT_NEAR(a.GetLength(), E(a).norm(), 1e-13);
    EXPECT_TRUE(MatricesNear(E(a.Cross(b)), E(a).cross(E(b)), 1e-14));
  }

  // Each axis is compared on its own, with the tolerance inclusive.
  const CVector3 p(1, 2, 3);
  EXPECT_TRUE(p.Equals(CVector3(1, 2, 3)));
  EXPECT_TRUE(p.Equals(CVector3(1.5, 2, 3), 0.5));
  EXPECT_FALSE(p.Equals(CVector3(1, 2, 3 + 1e-9)));
  EXPECT_FALSE(p.Equals(CVector3(1 + 1e-9, 2, 3)));
  EXPECT_FALSE(p.Equals(CVector3(1, 2, std::numeric_limits<double>::quiet_NaN()), 1e9));
}

TEST(MathQuaternion, ProductAndRotateMatchEigen) {
  Random rnd(2);
  for (int i = 0; i < 500; ++i) {
    // Non-unit quaternions too: the product is plain Hamilton algebra.
    const CQuaternion a(rnd.Uniform(-2, 2), rnd.Uniform(-2, 2), rnd.Uniform(-2, 2),
                        rnd.Uniform(-2, 2));
    const CQuaternion b(rnd.Uniform(-2, 2), rnd.Uniform(-2, 2), rnd.Uniform(-2, 2),
                        rnd.Uniform(-2, 2));
    EXPECT_TRUE(MatricesNear(E(a * b).coeffs(), (E(a) * E(b)).coeffs(), 1e-14));

    // Rotate is q v q* for any q; for a unit q it is the rotation matrix.
    const CVector3 v = rnd.Vector(-3, 3);
    const Eigen::Quaterniond pure(0, v.GetX(), v.GetY(), v.GetZ());
    EXPECT_TRUE(MatricesNear(E(a.Rotate(v)), (E(a) * pure * E(a).conjugate()).vec(), 1e-13));
    const CQuaternion u = rnd.Rotation();
    EXPECT_TRUE(MatricesNear(E(u.Rotate(v)), E(u).toRotationMatrix() * E(v), 1e-14));
    EXPECT_NEAR(u.Rotate(v).GetLength(), v.GetLength(), 1e-13);

    // a * b applies b first.
    const CQuaternion w = rnd.Rotation();
    EXPECT_TRUE(MatricesNear(E((u * w).Rotate(v)), E(u.Rotate(w.Rotate(v))), 1e-13));
  }
}

TEST(MathQuaternion, NormalizedAndConjugate) {
  const CQuaternion q = CQuaternion(2, -4, 4, 8).Normalized();
  EXPECT_DOUBLE_EQ(q.GetW(), 0.2);
  EXPECT_DOUBLE_EQ(q.GetX(), -0.4);
  EXPECT_DOUBLE_EQ(q.GetY(), 0.4);
  EXPECT_DOUBLE_EQ(q.GetZ(), 0.8);

  // Degenerate input gives the identity rather than NaNs.
  for (const CQuaternion& bad : {CQuaternion(0, 0, 0, 0), CQuaternion(std::nan(""), 1, 0, 0),
                                 CQuaternion(std::numeric_limits<double>::infinity(), 0, 0, 0)}) {
    const CQuaternion n = bad.Normalized();
    EXPECT_EQ(n.GetW(), 1.0);
    EXPECT_EQ(n.GetX(), 0.0);
    EXPECT_EQ(n.GetY(), 0.0);
    EXPECT_EQ(n.GetZ(), 0.0);
  }
}

TEST(MathEuler, FromXYZAnglesTurnsXThenYThenZ) {
  // X first: +90 about X takes Y to Z, which +90 about Z leaves alone. Z first would give -X.
  const CVector3 turned = CQuaternion::FromXYZAngles(kPi / 2, 0, kPi / 2).Rotate(CVector3(0, 1, 0));
  EXPECT_TRUE(turned.Equals(CVector3(0, 0, 1), 1e-15));
  // Right-handed turns about each axis.
  EXPECT_TRUE(CQuaternion::FromXYZAngles(0, kPi / 2, 0)
                  .Rotate(CVector3(0, 0, 1))
                  .Equals(CVector3(1, 0, 0), 1e-15));
  EXPECT_TRUE(CQuaternion::FromXYZAngles(0, 0, kPi / 2)
                  .Rotate(CVector3(1, 0, 0))
                  .Equals(CVector3(0, 1, 0), 1e-15));

  Random rnd(3);
  for (int i = 0; i < 1000; ++i) {
    const double rx = rnd.Uniform(-7, 7), ry = rnd.Uniform(-7, 7), rz = rnd.Uniform(-7, 7);
    const CQuaternion q = CQuaternion::FromXYZAngles(rx, ry, rz);
    EXPECT_NEAR(E(q).norm(), 1.0, 1e-15);
    EXPECT_TRUE(MatricesNear(RotationOf(q), EulerOracle(rx, ry, rz), 1e-14));
    // The CRotation and CTransformation setters build the same rotation.
    EXPECT_TRUE(MatricesNear(RotationOf(CRotation(rx, ry, rz).GetQuaternion()),
                             EulerOracle(rx, ry, rz), 1e-14));
    CTransformation t;
    t.SetRotationFromXYZAnglesValues(rx, ry, rz);
    EXPECT_TRUE(
        MatricesNear(RotationOf(t.GetRotationQuaternion()), EulerOracle(rx, ry, rz), 1e-14));
  }
}

void ExpectCanonical(const CVector3& a) {
  EXPECT_GT(a.GetX(), -kPi);
  EXPECT_LE(a.GetX(), kPi);
  EXPECT_GE(a.GetY(), -kPi / 2);
  EXPECT_LE(a.GetY(), kPi / 2);
  EXPECT_GT(a.GetZ(), -kPi);
  EXPECT_LE(a.GetZ(), kPi);
}

TEST(MathEuler, RoundTripsReproduceTheRotation) {
  Random rnd(4);
  for (int i = 0; i < 20000; ++i) {
    const double rx = rnd.Uniform(0, 2 * kPi), ry = rnd.Uniform(0, 2 * kPi),
                 rz = rnd.Uniform(0, 2 * kPi);
    const CVector3 a = CQuaternion::FromXYZAngles(rx, ry, rz).GetXYZAngles();
    ExpectCanonical(a);
    ASSERT_TRUE(
        MatricesNear(EulerOracle(a.GetX(), a.GetY(), a.GetZ()), EulerOracle(rx, ry, rz), 1e-12))
        << rx << " " << ry << " " << rz;
  }
  // Uniformly random rotations, read back through CRotation.
  for (int i = 0; i < 5000; ++i) {
    const CQuaternion q = rnd.Rotation();
    const CVector3 a = CRotation(q).GetXYZAngles();
    ExpectCanonical(a);
    ASSERT_TRUE(MatricesNear(EulerOracle(a.GetX(), a.GetY(), a.GetZ()), RotationOf(q), 1e-12));
  }
  // Away from the lock the canonical decomposition is unique: canonical angles come back as is.
  for (int i = 0; i < 2000; ++i) {
    const double rx = rnd.Uniform(-3.1, 3.1), ry = rnd.Uniform(-1.5, 1.5),
                 rz = rnd.Uniform(-3.1, 3.1);
    const CVector3 a = CQuaternion::FromXYZAngles(rx, ry, rz).GetXYZAngles();
    EXPECT_TRUE(a.Equals(CVector3(rx, ry, rz), 1e-10));
  }
}

TEST(MathEuler, GimbalLockPinsXToZero) {
  Random rnd(5);
  for (double sign : {1.0, -1.0}) {
    for (int i = 0; i < 500; ++i) {
      const double rx = rnd.Uniform(-kPi, kPi), rz = rnd.Uniform(-kPi, kPi);
      const CVector3 a = CQuaternion::FromXYZAngles(rx, sign * kPi / 2, rz).GetXYZAngles();
      ExpectCanonical(a);
      EXPECT_EQ(a.GetX(), 0.0);
      EXPECT_NEAR(a.GetY(), sign * kPi / 2, 1e-7);
      // Only rz - rx (at +pi/2) or rz + rx (at -pi/2) is defined; Z carries it.
      const double expected = std::remainder(rz - sign * rx, 2 * kPi);
      EXPECT_NEAR(std::remainder(a.GetZ() - expected, 2 * kPi), 0.0, 1e-7);
      EXPECT_TRUE(MatricesNear(EulerOracle(a.GetX(), a.GetY(), a.GetZ()),
                               EulerOracle(rx, sign * kPi / 2, rz), 1e-12));
    }
  }
  // Approaching the lock from either side stays exact.
  for (double gap : {1e-4, 1e-7, 1e-10, 1e-13, 1e-16}) {
    for (double ry : {kPi / 2 - gap, -kPi / 2 + gap, kPi / 2 + gap, -kPi / 2 - gap}) {
      const double rx = rnd.Uniform(-kPi, kPi), rz = rnd.Uniform(-kPi, kPi);
      const CVector3 a = CQuaternion::FromXYZAngles(rx, ry, rz).GetXYZAngles();
      ExpectCanonical(a);
      EXPECT_TRUE(
          MatricesNear(EulerOracle(a.GetX(), a.GetY(), a.GetZ()), EulerOracle(rx, ry, rz), 1e-12))
          << "ry = pi/2 - " << gap;
    }
  }
}

TEST(MathEuler, HalfTurnsStayInHalfOpenRange) {
  // Half turns put atan2 on its branch cut; signed zeros must not produce -pi.
  const double z = 0.0, nz = -0.0;
  for (const CQuaternion& q :
       {CQuaternion(z, 1, z, z), CQuaternion(nz, -1, nz, nz), CQuaternion(z, z, 1, z),
        CQuaternion(nz, nz, -1, nz), CQuaternion(z, z, z, 1), CQuaternion(nz, nz, nz, -1),
        CQuaternion(nz, 1, nz, z), CQuaternion(z, -1, z, nz),
        CQuaternion::FromXYZAngles(-kPi, 0, 0), CQuaternion::FromXYZAngles(0, 0, -kPi),
        CQuaternion::FromXYZAngles(-kPi, 0, -kPi), CQuaternion::FromXYZAngles(kPi, 0.3, -kPi)}) {
    const CVector3 a = q.GetXYZAngles();
    ExpectCanonical(a);
    EXPECT_TRUE(MatricesNear(EulerOracle(a.GetX(), a.GetY(), a.GetZ()), RotationOf(q), 1e-12));
  }
  EXPECT_TRUE(CQuaternion(0, 1, 0, 0).GetXYZAngles().Equals(CVector3(kPi, 0, 0)));
  EXPECT_TRUE(CQuaternion(0, 0, 0, 1).GetXYZAngles().Equals(CVector3(0, 0, kPi)));
  // A scaled quaternion reads as its direction.
  EXPECT_TRUE(CQuaternion(5, 0, 0, 0).GetXYZAngles().Equals(CVector3(0, 0, 0)));
}

TEST(MathRotation, SettersNormalize) {
  const CRotation r = CRotation().SetFromQuaternion(CQuaternion(0, 0, 3, 0));
  EXPECT_EQ(r.GetQuaternion().GetY(), 1.0);
  CTransformation t;
  t.SetRotationFromQuaternion(CQuaternion(2, 0, 0, 2));
  EXPECT_NEAR(t.GetRotationQuaternion().GetW(), std::sqrt(0.5), 1e-15);
  EXPECT_TRUE(t.GetRotationXYZAngles().Equals(CVector3(0, 0, kPi / 2), 1e-15));
}

TEST(MathMatrix4, IdentityAndProductMatchEigen) {
  EXPECT_TRUE(MatricesNear(E(CMatrix4()), Eigen::Matrix4d::Identity(), 0));
  Random rnd(6);
  for (int n = 0; n < 100; ++n) {
    CMatrix4 a, b;
    for (int i = 0; i < 4; ++i) {
      for (int j = 0; j < 4; ++j) {
        a.SetValue(i, j, rnd.Uniform(-3, 3));
        b.SetValue(i, j, rnd.Uniform(-3, 3));
      }
    }
    EXPECT_TRUE(MatricesNear(E(a * b), E(a) * E(b), 1e-15));
  }
}

TEST(MathTransformation, MatrixAndMapPointMatchEigenAffine) {
  CTransformation identity = Random(0).Transform(0.5, 2);
  identity.SetIdentity();
  EXPECT_TRUE(MatricesNear(E(identity.GetMatrix4()), Eigen::Matrix4d::Identity(), 0));
  EXPECT_TRUE(MatricesNear(E(CTransformation().GetMatrix4()), Eigen::Matrix4d::Identity(), 0));

  Random rnd(7);
  for (int i = 0; i < 500; ++i) {
    // Negative and zero-crossing scalings are still plain SRT matrices.
    const CTransformation t = rnd.Transform(-3, 3);
    const Eigen::Matrix4d oracle = AffineOracle(t);
    // Row vectors: our matrix is the transpose of the column-vector one.
    EXPECT_TRUE(MatricesNear(E(t.GetMatrix4()), oracle.transpose(), 1e-14));

    const CVector3 p = rnd.Vector(-5, 5);
    const Eigen::Vector4d mapped = oracle * Eigen::Vector4d(p.GetX(), p.GetY(), p.GetZ(), 1);
    EXPECT_TRUE(MatricesNear(E(t.MapPoint(p)), mapped.head<3>(), 1e-13));
    const Eigen::RowVector4d row =
        Eigen::RowVector4d(p.GetX(), p.GetY(), p.GetZ(), 1) * E(t.GetMatrix4());
    EXPECT_TRUE(MatricesNear(E(t.MapPoint(p)), row.head<3>().transpose(), 1e-13));
  }
}

TEST(MathTransformation, ComposeMatchesMatrixProducts) {
  Random rnd(8);
  // With uniform scaling per level, composing equals multiplying SRT matrices (row vectors:
  // the child's matrix first). Chains up to six levels, some uniform scalings negative.
  for (int chain = 0; chain < 200; ++chain) {
    const int depth = 1 + chain % 6;
    CTransformation global;
    Eigen::Matrix4d product = Eigen::Matrix4d::Identity();
    for (int level = 0; level < depth; ++level) {
      CTransformation local = rnd.Transform(1, 1);
      const double s = rnd.Uniform(0.3, 2.5) * (rnd.Uniform(0, 1) < 0.2 ? -1 : 1);
      local.SetScalingFromValues(s, s, s);
      global = CTransformation::Compose(global, local);
      product = E(local.GetMatrix4()) * product;
    }
    ASSERT_TRUE(MatricesNear(E(global.GetMatrix4()), product, 1e-12)) << "depth " << depth;
  }
  // Non-uniform scaling: the child's origin is where the parent maps the local translation, and
  // an unrotated child's matrix is still the plain product.
  for (int i = 0; i < 300; ++i) {
    const CTransformation parent = rnd.Transform(0.2, 3);
    CTransformation local = rnd.Transform(0.2, 3);
    const CTransformation g = CTransformation::Compose(parent, local);
    const Eigen::Vector3d origin =
        (AffineOracle(parent) * E(local.GetTranslation()).homogeneous()).head<3>();
    EXPECT_TRUE(MatricesNear(E(g.GetTranslation()), origin, 1e-13));
    EXPECT_TRUE(MatricesNear(E(g.GetScaling()),
                             E(parent.GetScaling()).cwiseProduct(E(local.GetScaling())), 0));

    local.SetRotationFromQuaternion(CQuaternion());
    EXPECT_TRUE(MatricesNear(E(CTransformation::Compose(parent, local).GetMatrix4()),
                             E(local.GetMatrix4()) * E(parent.GetMatrix4()), 1e-13));
  }
}

TEST(MathTransformation, LocalFromInvertsCompose) {
  Random rnd(9);
  // Random hierarchies with non-uniform positive scaling: every level's local comes back from
  // its parent's global and its own.
  for (int tree = 0; tree < 200; ++tree) {
    std::vector<CTransformation> locals, globals;
    CTransformation parent;
    for (int level = 0; level < 6; ++level) {
      locals.push_back(rnd.Transform(0.25, 4));
      globals.push_back(CTransformation::Compose(parent, locals.back()));
      parent = globals.back();
    }
    for (size_t level = 0; level < locals.size(); ++level) {
      const CTransformation above = level == 0 ? CTransformation() : globals[level - 1];
      ExpectSameTransform(CTransformation::LocalFrom(above, globals[level]), locals[level], 1e-10);
    }
  }
  // And the other way: any global is reached exactly from the local LocalFrom gives.
  for (int i = 0; i < 500; ++i) {
    const CTransformation parent = rnd.Transform(0.1, 5), global = rnd.Transform(0.1, 5);
    ExpectSameTransform(
        CTransformation::Compose(parent, CTransformation::LocalFrom(parent, global)), global,
        1e-12);
  }
  // A collapsed parent axis gives zero on that axis and leaves the others exact.
  CTransformation flat;
  flat.SetTranslationFromValues(1, 2, 3).SetScalingFromValues(2, 0, 4);
  CTransformation g;
  g.SetTranslationFromValues(5, 7, 11).SetScalingFromValues(6, 1, 8);
  const CTransformation l = CTransformation::LocalFrom(flat, g);
  EXPECT_TRUE(l.GetScaling().Equals(CVector3(3, 0, 2)));
  EXPECT_TRUE(l.GetTranslation().Equals(CVector3(2, 0, 2)));
}

}  // namespace
