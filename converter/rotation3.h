// Small double-precision rotation helpers for the converter's own kinematics of takes.
//
// Matrices act on column vectors; an axis rotation by a positive angle turns counter-clockwise
// when seen from the axis' positive end (right-handed), as BVH channels do. Angles are in
// degrees where they come from or go to a take. Z X Y Euler angles (z, x, y) describe
// R = Rz(z) * Rx(x) * Ry(y); x is kept in [-90, 90], and at x = +-90 (where only z + y or z - y
// is defined) y is 0.
#pragma once

#include <cmath>

namespace knrconvert {

inline constexpr double kDegToRad = 3.14159265358979323846 / 180.0;
inline constexpr double kRadToDeg = 180.0 / 3.14159265358979323846;

struct Mat3 {
  double m[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
};

inline Mat3 operator*(const Mat3& a, const Mat3& b) {
  Mat3 r;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      r.m[i][j] = a.m[i][0] * b.m[0][j] + a.m[i][1] * b.m[1][j] + a.m[i][2] * b.m[2][j];
  return r;
}

// a * v for a 3-vector v, written to out (which may not alias v).
inline void Apply(const Mat3& a, const double v[3], double out[3]) {
  for (int i = 0; i < 3; ++i) out[i] = a.m[i][0] * v[0] + a.m[i][1] * v[1] + a.m[i][2] * v[2];
}

// r = r * R_axis(degrees), axis 0, 1, 2 for x, y, z: only two columns of r change.
inline void PostRotate(Mat3& r, int axis, double degrees) {
  const double a = degrees * kDegToRad, c = std::cos(a), s = std::sin(a);
  const int i = (axis + 1) % 3, k = (axis + 2) % 3;  // R_axis turns column i towards column k
  for (int row = 0; row < 3; ++row) {
    const double u = r.m[row][i], w = r.m[row][k];
    r.m[row][i] = u * c + w * s;
    r.m[row][k] = w * c - u * s;
  }
}

// The rotation about one axis (0, 1, 2 for x, y, z).
inline Mat3 AxisRotation(int axis, double degrees) {
  Mat3 r;
  PostRotate(r, axis, degrees);
  return r;
}

// Z X Y Euler angles of r, in degrees: out = {z, x, y}.
inline void ZxyAngles(const Mat3& r, double out[3]) {
  constexpr double kGimbal = 1e-9;  // cos(x) below this: x is +-90 degrees
  const double sx = r.m[2][1] < -1.0 ? -1.0 : r.m[2][1] > 1.0 ? 1.0 : r.m[2][1];
  const double cx = std::sqrt(r.m[2][0] * r.m[2][0] + r.m[2][2] * r.m[2][2]);
  out[1] = std::atan2(sx, cx) * kRadToDeg;
  if (cx > kGimbal) {
    out[0] = std::atan2(-r.m[0][1], r.m[1][1]) * kRadToDeg;
    out[2] = std::atan2(-r.m[2][0], r.m[2][2]) * kRadToDeg;
  } else {
    out[0] = std::atan2(r.m[1][0], r.m[0][0]) * kRadToDeg;
    out[2] = 0;
  }
}

// The unit quaternion (x, y, z, w) of the rotation r.
inline void ToQuaternion(const Mat3& r, double q[4]) {
  const double t = r.m[0][0] + r.m[1][1] + r.m[2][2];
  if (t > 0) {
    const double s = 2 * std::sqrt(t + 1);
    q[3] = s / 4;
    q[0] = (r.m[2][1] - r.m[1][2]) / s;
    q[1] = (r.m[0][2] - r.m[2][0]) / s;
    q[2] = (r.m[1][0] - r.m[0][1]) / s;
  } else if (r.m[0][0] >= r.m[1][1] && r.m[0][0] >= r.m[2][2]) {
    const double s = 2 * std::sqrt(1 + r.m[0][0] - r.m[1][1] - r.m[2][2]);
    q[0] = s / 4;
    q[1] = (r.m[0][1] + r.m[1][0]) / s;
    q[2] = (r.m[0][2] + r.m[2][0]) / s;
    q[3] = (r.m[2][1] - r.m[1][2]) / s;
  } else if (r.m[1][1] >= r.m[2][2]) {
    const double s = 2 * std::sqrt(1 + r.m[1][1] - r.m[0][0] - r.m[2][2]);
    q[1] = s / 4;
    q[0] = (r.m[0][1] + r.m[1][0]) / s;
    q[2] = (r.m[1][2] + r.m[2][1]) / s;
    q[3] = (r.m[0][2] - r.m[2][0]) / s;
  } else {
    const double s = 2 * std::sqrt(1 + r.m[2][2] - r.m[0][0] - r.m[1][1]);
    q[2] = s / 4;
    q[0] = (r.m[0][2] + r.m[2][0]) / s;
    q[1] = (r.m[1][2] + r.m[2][1]) / s;
    q[3] = (r.m[1][0] - r.m[0][1]) / s;
  }
}

}  // namespace knrconvert
