// The host's double-precision math: vectors, quaternions, rotations and SRT transformations.
// Euler angles are radians, rotation order XYZ: turn about X first, then Y, then Z
// (q = qz * qy * qx).
#pragma once

#include "zyra/core.h"

namespace Zyra::MATH {

class ZYRA_API CVector3 {
 public:
  CVector3() = default;
  CVector3(double x, double y, double z) : x_(x), y_(y), z_(z) {}
  double GetX() const { return x_; }
  double GetY() const { return y_; }
  double GetZ() const { return z_; }
  void PutX(double v) { x_ = v; }
  void PutY(double v) { y_ = v; }
  void PutZ(double v) { z_ = v; }
  void Get(double& x, double& y, double& z) const {
    x = x_;
    y = y_;
    z = z_;
  }
  CVector3& Set(double x, double y, double z) {
    x_ = x;
    y_ = y;
    z_ = z;
    return *this;
  }
  double GetLength() const;
  double Dot(const CVector3& o) const { return x_ * o.x_ + y_ * o.y_ + z_ * o.z_; }
  CVector3 Cross(const CVector3& o) const;
  // Per-axis product (used for scaling).
  CVector3 MulComponents(const CVector3& o) const { return {x_ * o.x_, y_ * o.y_, z_ * o.z_}; }
  CVector3 operator+(const CVector3& o) const { return {x_ + o.x_, y_ + o.y_, z_ + o.z_}; }
  CVector3 operator-(const CVector3& o) const { return {x_ - o.x_, y_ - o.y_, z_ - o.z_}; }
  CVector3 operator*(double s) const { return {x_ * s, y_ * s, z_ * s}; }
  bool Equals(const CVector3& o, double epsilon = 1e-12) const;

 private:
  double x_ = 0, y_ = 0, z_ = 0;
};

// A quaternion w + xi + yj + zk; rotations are unit quaternions.
class ZYRA_API CQuaternion {
 public:
  CQuaternion() = default;
  CQuaternion(double w, double x, double y, double z) : w_(w), x_(x), y_(y), z_(z) {}
  double GetW() const { return w_; }
  double GetX() const { return x_; }
  double GetY() const { return y_; }
  double GetZ() const { return z_; }
  void Get(double& w, double& x, double& y, double& z) const {
    w = w_;
    x = x_;
    y = y_;
    z = z_;
  }
  CQuaternion& Set(double w, double x, double y, double z) {
    w_ = w;
    x_ = x;
    y_ = y;
    z_ = z;
    return *this;
  }
  // Hamilton product: (*this) * o applies o first, then *this.
  CQuaternion operator*(const CQuaternion& o) const;
  CQuaternion Conjugate() const { return {w_, -x_, -y_, -z_}; }
  CQuaternion Normalized() const;
  // Rotates a vector by this (unit) quaternion.
  CVector3 Rotate(const CVector3& v) const;
  // The rotation by (rx, ry, rz) radians in XYZ order.
  static CQuaternion FromXYZAngles(double rx, double ry, double rz);
  // XYZ Euler angles (radians) of this rotation; each in (-pi, pi], ry in [-pi/2, pi/2].
  CVector3 GetXYZAngles() const;

 private:
  double w_ = 1, x_ = 0, y_ = 0, z_ = 0;
};

class ZYRA_API CRotation {
 public:
  CRotation() = default;
  explicit CRotation(const CQuaternion& q) : q_(q) {}
  CRotation(double rx, double ry, double rz) { SetFromXYZAngles(rx, ry, rz); }
  CRotation& SetFromXYZAngles(double rx, double ry, double rz);
  CRotation& SetFromXYZAngles(const CVector3& angles) {
    return SetFromXYZAngles(angles.GetX(), angles.GetY(), angles.GetZ());
  }
  CVector3 GetXYZAngles() const { return q_.GetXYZAngles(); }
  CRotation& SetFromQuaternion(const CQuaternion& q);
  const CQuaternion& GetQuaternion() const { return q_; }

 private:
  CQuaternion q_;
};

// A 4x4 matrix, row-major, row vectors (translation in m[3][0..2]).
class ZYRA_API CMatrix4 {
 public:
  CMatrix4();  // identity
  double GetValue(int row, int col) const { return m_[row][col]; }
  void SetValue(int row, int col, double v) { m_[row][col] = v; }
  CMatrix4 operator*(const CMatrix4& o) const;

 private:
  double m_[4][4];
};

// Translation, rotation and per-axis scaling. Applied to a point: scale, then rotate, then
// translate.
class ZYRA_API CTransformation {
 public:
  CTransformation() = default;

  CVector3 GetTranslation() const { return t_; }
  CTransformation& SetTranslation(const CVector3& t) {
    t_ = t;
    return *this;
  }
  CTransformation& SetTranslationFromValues(double x, double y, double z) {
    t_.Set(x, y, z);
    return *this;
  }
  void GetTranslationValues(double& x, double& y, double& z) const { t_.Get(x, y, z); }

  CRotation GetRotation() const { return CRotation(q_); }
  CTransformation& SetRotation(const CRotation& r) {
    q_ = r.GetQuaternion();
    return *this;
  }
  CQuaternion GetRotationQuaternion() const { return q_; }
  CTransformation& SetRotationFromQuaternion(const CQuaternion& q);
  CTransformation& SetRotationFromXYZAngles(const CVector3& radians);
  CTransformation& SetRotationFromXYZAnglesValues(double rx, double ry, double rz) {
    return SetRotationFromXYZAngles(CVector3(rx, ry, rz));
  }
  CVector3 GetRotationXYZAngles() const { return q_.GetXYZAngles(); }
  void GetRotationFromXYZAnglesValues(double& rx, double& ry, double& rz) const {
    GetRotationXYZAngles().Get(rx, ry, rz);
  }

  CVector3 GetScaling() const { return s_; }
  CTransformation& SetScaling(const CVector3& s) {
    s_ = s;
    return *this;
  }
  CTransformation& SetScalingFromValues(double x, double y, double z) {
    s_.Set(x, y, z);
    return *this;
  }
  void GetScalingValues(double& x, double& y, double& z) const { s_.Get(x, y, z); }

  CTransformation& SetIdentity();
  // The matrix of this transformation (scaling, then rotation, then translation).
  CMatrix4 GetMatrix4() const;
  // Applies the transformation to a point.
  CVector3 MapPoint(const CVector3& p) const;

  // The global transformation of a child whose local one is `local` under `parent`, by the
  // host's hierarchical scaling: S = Sp * Sl, R = Rp * Rl, T = Tp + Rp(Sp * Tl).
  static CTransformation Compose(const CTransformation& parent, const CTransformation& local);
  // The inverse of Compose: the local transformation that puts a child at `global` under
  // `parent`. A zero parent scaling axis gives a zero local value on that axis.
  static CTransformation LocalFrom(const CTransformation& parent, const CTransformation& global);

 private:
  CVector3 t_;
  CQuaternion q_;
  CVector3 s_{1, 1, 1};
};

}  // namespace Zyra::MATH
