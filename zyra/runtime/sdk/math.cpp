// Double-precision vectors, quaternions and SRT transformations of the host.
//
// Conventions used throughout:
//  - quaternions are Hamilton quaternions stored as (w, x, y, z); a * b applies b first;
//  - Euler angles are XYZ: turn about X, then Y, then Z, i.e. q = qz * qy * qx;
//  - matrices act on row vectors (p' = p * M), so a chain applies its left-most factor first.
#include "zyra/math.h"

#include <cmath>

namespace Zyra::MATH {
namespace {

constexpr double kPi = 3.14159265358979323846;

// Below this cosine of the Y angle the X and Z axes are treated as aligned (gimbal lock). The
// decomposition stays exact far below it; the threshold only decides when the X angle becomes
// meaningless and is pinned to zero.
constexpr double kGimbalCosY = 1e-12;

// Folds atan2's -pi (reached through a negative zero) onto pi so angles lie in (-pi, pi].
double WrapHalfOpen(double a) { return a <= -kPi ? a + 2.0 * kPi : a; }

// The 3x3 rotation matrix, for column vectors, of v -> q v q*. Written in the homogeneous form so
// that it agrees with CQuaternion::Rotate for any quaternion, unit or not.
struct Mat3 {
  double m[3][3];
};

Mat3 RotationMatrix(const CQuaternion& q) {
  const double w = q.GetW(), x = q.GetX(), y = q.GetY(), z = q.GetZ();
  const double ww = w * w, xx = x * x, yy = y * y, zz = z * z;
  const double xy = x * y, xz = x * z, yz = y * z, wx = w * x, wy = w * y, wz = w * z;
  Mat3 r;
  r.m[0][0] = ww + xx - yy - zz;
  r.m[0][1] = 2.0 * (xy - wz);
  r.m[0][2] = 2.0 * (xz + wy);
  r.m[1][0] = 2.0 * (xy + wz);
  r.m[1][1] = ww - xx + yy - zz;
  r.m[1][2] = 2.0 * (yz - wx);
  r.m[2][0] = 2.0 * (xz - wy);
  r.m[2][1] = 2.0 * (yz + wx);
  r.m[2][2] = ww - xx - yy + zz;
  return r;
}

// Per-axis a / b, with 0 on the axes where b is 0 (a collapsed parent axis carries nothing).
CVector3 DivideComponents(const CVector3& a, const CVector3& b) {
  auto div = [](double n, double d) { return d == 0.0 ? 0.0 : n / d; };
  return {div(a.GetX(), b.GetX()), div(a.GetY(), b.GetY()), div(a.GetZ(), b.GetZ())};
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// CVector3

double CVector3::GetLength() const { return std::sqrt(x_ * x_ + y_ * y_ + z_ * z_); }

CVector3 CVector3::Cross(const CVector3& o) const {
  return {y_ * o.z_ - z_ * o.y_, z_ * o.x_ - x_ * o.z_, x_ * o.y_ - y_ * o.x_};
}

bool CVector3::Equals(const CVector3& o, double epsilon) const {
  return std::fabs(x_ - o.x_) <= epsilon && std::fabs(y_ - o.y_) <= epsilon &&
         std::fabs(z_ - o.z_) <= epsilon;
}

// ---------------------------------------------------------------------------------------------
// CQuaternion

CQuaternion CQuaternion::operator*(const CQuaternion& o) const {
  return {
      w_ * o.w_ - x_ * o.x_ - y_ * o.y_ - z_ * o.z_, w_ * o.x_ + x_ * o.w_ + y_ * o.z_ - z_ * o.y_,
      w_ * o.y_ - x_ * o.z_ + y_ * o.w_ + z_ * o.x_, w_ * o.z_ + x_ * o.y_ - y_ * o.x_ + z_ * o.w_};
}

CQuaternion CQuaternion::Normalized() const {
  const double length = std::sqrt(w_ * w_ + x_ * x_ + y_ * y_ + z_ * z_);
  // A zero (or non-finite) quaternion has no direction; the identity is the only safe answer.
  if (!(length > 0.0) || !std::isfinite(length)) return {};
  const double inv = 1.0 / length;
  return {w_ * inv, x_ * inv, y_ * inv, z_ * inv};
}

CVector3 CQuaternion::Rotate(const CVector3& v) const {
  // Expansion of q v q* with u = (x, y, z):  (w^2 - u.u) v + 2 (u.v) u + 2 w (u x v).
  const CVector3 u(x_, y_, z_);
  return v * (w_ * w_ - u.Dot(u)) + u * (2.0 * u.Dot(v)) + u.Cross(v) * (2.0 * w_);
}

CQuaternion CQuaternion::FromXYZAngles(double rx, double ry, double rz) {
  const double cx = std::cos(0.5 * rx), sx = std::sin(0.5 * rx);
  const double cy = std::cos(0.5 * ry), sy = std::sin(0.5 * ry);
  const double cz = std::cos(0.5 * rz), sz = std::sin(0.5 * rz);
  // qz * qy * qx multiplied out.
  return {cz * cy * cx + sz * sy * sx, cz * cy * sx - sz * sy * cx, cz * sy * cx + sz * cy * sx,
          sz * cy * cx - cz * sy * sx};
}

CVector3 CQuaternion::GetXYZAngles() const {
  // R = Rz * Ry * Rx (column vectors) has R[2][0] = -sin(ry), R[2][1] = cos(ry) sin(rx),
  // R[2][2] = cos(ry) cos(rx), R[0][0] = cos(ry) cos(rz), R[1][0] = cos(ry) sin(rz).
  const Mat3 r = RotationMatrix(Normalized());
  const double cosY = std::sqrt(r.m[0][0] * r.m[0][0] + r.m[1][0] * r.m[1][0]);
  const double ry = std::atan2(-r.m[2][0], cosY);
  // At gimbal lock only rx - rz (ry = pi/2) or rx + rz (ry = -pi/2) is defined: the whole turn
  // goes to Z so that a locked pose reads as a plain Y-then-Z rotation.
  const double rx = cosY < kGimbalCosY ? 0.0 : std::atan2(r.m[2][1], r.m[2][2]);
  // Z from the matrix with the X turn removed: exact for whatever rx was chosen above, which
  // keeps the decomposition accurate right up to the lock.
  const double sx = std::sin(rx), cx = std::cos(rx);
  const double rz = std::atan2(sx * r.m[0][2] - cx * r.m[0][1], cx * r.m[1][1] - sx * r.m[1][2]);
  return {WrapHalfOpen(rx), ry, WrapHalfOpen(rz)};
}

// ---------------------------------------------------------------------------------------------
// CRotation

CRotation& CRotation::SetFromXYZAngles(double rx, double ry, double rz) {
  q_ = CQuaternion::FromXYZAngles(rx, ry, rz);
  return *this;
}

CRotation& CRotation::SetFromQuaternion(const CQuaternion& q) {
  q_ = q.Normalized();
  return *this;
}

// ---------------------------------------------------------------------------------------------
// CMatrix4

CMatrix4::CMatrix4() {
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) m_[i][j] = i == j ? 1.0 : 0.0;
  }
}

CMatrix4 CMatrix4::operator*(const CMatrix4& o) const {
  CMatrix4 out;
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      out.m_[i][j] = m_[i][0] * o.m_[0][j] + m_[i][1] * o.m_[1][j] + m_[i][2] * o.m_[2][j] +
                     m_[i][3] * o.m_[3][j];
    }
  }
  return out;
}

// ---------------------------------------------------------------------------------------------
// CTransformation

CTransformation& CTransformation::SetRotationFromQuaternion(const CQuaternion& q) {
  q_ = q.Normalized();
  return *this;
}

CTransformation& CTransformation::SetRotationFromXYZAngles(const CVector3& radians) {
  q_ = CQuaternion::FromXYZAngles(radians.GetX(), radians.GetY(), radians.GetZ());
  return *this;
}

CTransformation& CTransformation::SetIdentity() {
  t_.Set(0, 0, 0);
  q_ = CQuaternion();
  s_.Set(1, 1, 1);
  return *this;
}

CMatrix4 CTransformation::GetMatrix4() const {
  // Row vectors: M = S * R^T * T. Row i of the upper 3x3 is the rotated i-th axis scaled by s_i.
  const Mat3 r = RotationMatrix(q_);
  const double s[3] = {s_.GetX(), s_.GetY(), s_.GetZ()};
  CMatrix4 m;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) m.SetValue(i, j, s[i] * r.m[j][i]);
  }
  m.SetValue(3, 0, t_.GetX());
  m.SetValue(3, 1, t_.GetY());
  m.SetValue(3, 2, t_.GetZ());
  return m;
}

CVector3 CTransformation::MapPoint(const CVector3& p) const {
  return q_.Rotate(p.MulComponents(s_)) + t_;
}

CTransformation CTransformation::Compose(const CTransformation& parent,
                                         const CTransformation& local) {
  CTransformation out;
  out.s_ = parent.s_.MulComponents(local.s_);
  out.q_ = parent.q_ * local.q_;
  out.t_ = parent.t_ + parent.q_.Rotate(parent.s_.MulComponents(local.t_));
  return out;
}

CTransformation CTransformation::LocalFrom(const CTransformation& parent,
                                           const CTransformation& global) {
  const CQuaternion inverse = parent.q_.Conjugate();
  CTransformation out;
  out.s_ = DivideComponents(global.s_, parent.s_);
  out.q_ = inverse * global.q_;
  out.t_ = DivideComponents(inverse.Rotate(global.t_ - parent.t_), parent.s_);
  return out;
}

}  // namespace Zyra::MATH
